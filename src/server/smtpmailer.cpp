#include "server/smtpmailer.h"

#include "server/tamlohttpserver.h"

#include <QDateTime>
#include <QLocale>
#include <QUuid>

#include <curl/curl.h>

#include <cstring>
#include <mutex>

using namespace Qt::StringLiterals;

namespace {
// A mail that cannot be handed over in this time is given up; the visitor asks for a new link.
constexpr long smtpTimeoutSeconds = 30;

struct Upload
{
    QByteArray data;
    qsizetype offset = 0;
};

size_t readChunk(char *buffer, size_t size, size_t count, void *userData)
{
    auto *upload = static_cast<Upload *>(userData);
    const qsizetype room = static_cast<qsizetype>(size * count);
    const qsizetype n = std::min(room, upload->data.size() - upload->offset);
    std::memcpy(buffer, upload->data.constData() + upload->offset, static_cast<size_t>(n));
    upload->offset += n;
    return static_cast<size_t>(n);
}

// Header values never carry a line break of the visitor's making.
QByteArray headerText(const QString &text)
{
    QString single = text;
    single.replace(u'\r', u' ').replace(u'\n', u' ');
    bool ascii = true;
    for (const QChar c : single) {
        ascii = ascii && c.unicode() < 0x80;
    }
    return ascii ? single.toUtf8() : "=?UTF-8?B?" + single.toUtf8().toBase64() + "?=";
}

void initCurlOnce()
{
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}
} // namespace

std::optional<SmtpSettings::Security> SmtpSettings::parseSecurity(const QString &text)
{
    if (text == u"none"_s) {
        return Security::None;
    }
    if (text == u"starttls"_s) {
        return Security::StartTls;
    }
    if (text == u"tls"_s) {
        return Security::Tls;
    }
    return std::nullopt;
}

SmtpMailer::SmtpMailer(SmtpSettings settings) : m_settings(std::move(settings))
{
    initCurlOnce();
    m_pool.setMaxThreadCount(2);
}

SmtpMailer::~SmtpMailer()
{
    m_pool.waitForDone();
}

void SmtpMailer::send(const OutgoingMail &mail)
{
    m_pool.start([this, mail] {
        if (!deliver(mail)) {
            qCWarning(lcServer) << "a sign-in mail could not be sent";
        }
    });
}

void SmtpMailer::waitForAll()
{
    m_pool.waitForDone();
}

QByteArray SmtpMailer::message(const QString &from, const OutgoingMail &mail, const QByteArray &messageId)
{
    const QString date = QLocale::c().toString(QDateTime::currentDateTimeUtc(), u"ddd, dd MMM yyyy HH:mm:ss"_s);
    QByteArray text = mail.text.toUtf8();
    text.replace("\r\n", "\n").replace('\r', '\n');
    QList<QByteArray> lines = text.split('\n');
    for (QByteArray &line : lines) {
        if (line.startsWith('.')) {
            line.prepend('.');
        }
    }
    return "Date: " + date.toLatin1() + " +0000\r\nFrom: " + headerText(from) + "\r\nTo: " + headerText(mail.to)
        + "\r\nSubject: " + headerText(mail.subject) + "\r\nMessage-ID: <" + messageId
        + ">\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n"
          "Auto-Submitted: auto-generated\r\n\r\n"
        + lines.join("\r\n") + "\r\n";
}

bool SmtpMailer::deliver(const OutgoingMail &mail) const
{
    CURL *curl = curl_easy_init();
    if (!curl) {
        return false;
    }
    const QString domain = m_settings.from.section(u'@', -1);
    const QByteArray messageId = QUuid::createUuid().toString(QUuid::WithoutBraces).toLatin1() + '@' + domain.toUtf8();
    Upload upload {message(m_settings.from, mail, messageId), 0};
    const QByteArray url = (m_settings.security == SmtpSettings::Security::Tls ? "smtps://" : "smtp://")
        + m_settings.host.toUtf8() + ':' + QByteArray::number(m_settings.port);
    const QByteArray from = '<' + m_settings.from.toUtf8() + '>';
    const QByteArray to = '<' + mail.to.toUtf8() + '>';
    const QByteArray user = m_settings.user.toUtf8();
    const QByteArray password = m_settings.password.toUtf8();
    curl_slist *recipients = curl_slist_append(nullptr, to.constData());
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_MAIL_FROM, from.constData());
    curl_easy_setopt(curl, CURLOPT_MAIL_RCPT, recipients);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, readChunk);
    curl_easy_setopt(curl, CURLOPT_READDATA, &upload);
    curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, smtpTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    if (m_settings.security == SmtpSettings::Security::StartTls) {
        curl_easy_setopt(curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    }
    if (!user.isEmpty()) {
        curl_easy_setopt(curl, CURLOPT_USERNAME, user.constData());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, password.constData());
    }
    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        qCWarning(lcServer) << "SMTP:" << curl_easy_strerror(result);
    }
    curl_slist_free_all(recipients);
    curl_easy_cleanup(curl);
    return result == CURLE_OK;
}
