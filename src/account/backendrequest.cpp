#include "account/backendrequest.h"

#include "core/transporttext.h"

#include <QCoroNetworkReply>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {
QNetworkRequest makeRequest(const QUrl &url, const QString &bearerToken, std::chrono::milliseconds timeout)
{
    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(timeout.count()));
    if (!bearerToken.isNull()) {
        request.setRawHeader("Authorization", "Bearer " + bearerToken.toUtf8());
    }
    return request;
}

QCoro::Task<BackendReply> finish(QNetworkReply *sent)
{
    const std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        sent, [](QNetworkReply *r) { r->deleteLater(); });
    co_await reply.get();
    BackendReply result;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid()) {
        result.status = status.toInt();
        result.body = reply->readAll();
    } else if (reply->error() != QNetworkReply::NoError) {
        result.transportError = transportErrorText(reply.get());
    }
    co_return result;
}
} // namespace

QCoro::Task<BackendReply> BackendRequest::get(
    QNetworkAccessManager *nam, QUrl url, QString bearerToken, std::chrono::milliseconds timeout)
{
    co_return co_await finish(nam->get(makeRequest(url, bearerToken, timeout)));
}

QCoro::Task<BackendReply> BackendRequest::postJson(
    QNetworkAccessManager *nam, QUrl url, QString bearerToken, QByteArray body, std::chrono::milliseconds timeout)
{
    QNetworkRequest request = makeRequest(url, bearerToken, timeout);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    co_return co_await finish(nam->post(request, body));
}
