#pragma once

#include <QLoggingCategory>

// Developer diagnostics of sign-in and sync; the user sees the event log instead.
Q_DECLARE_LOGGING_CATEGORY(lcAccount)
