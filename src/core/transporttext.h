#pragma once

#include <QString>

class QNetworkReply;

// What to show for a request that got no HTTP reply. Qt ends a request whose transfer time-out
// ran out by cancelling it, and its own text for that ("Operation canceled") would mislead.
[[nodiscard]] QString transportErrorText(const QNetworkReply *reply);
