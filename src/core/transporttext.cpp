#include "core/transporttext.h"

#include <QNetworkReply>

QString transportErrorText(const QNetworkReply *reply)
{
    // Nothing in Tamlo cancels a request itself, so a cancelled one ran out of time.
    if (reply->error() == QNetworkReply::OperationCanceledError) {
        return QStringLiteral("The request timed out.");
    }
    return reply->errorString();
}
