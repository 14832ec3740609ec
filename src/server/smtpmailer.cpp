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

size_t discard(char *, size_t size, size_t count, void *)
{
    return size * count;
}

// One transfer to the configured server, on the settings' security and credentials.
class CurlSession
{
public:
    explicit CurlSession(const SmtpSettings &settings)
        : m_curl(curl_easy_init())
        , m_url((settings.security == SmtpSettings::Security::Tls ? "smtps://" : "smtp://") + settings.host.toUtf8()
              + ':' + QByteArray::number(settings.port))
        , m_user(settings.user.toUtf8())
        , m_password(settings.password.toUtf8())
    {
        if (!m_curl) {
            return;
        }
        curl_easy_setopt(m_curl, CURLOPT_URL, m_url.constData());
        curl_easy_setopt(m_curl, CURLOPT_TIMEOUT, smtpTimeoutSeconds);
        curl_easy_setopt(m_curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(m_curl, CURLOPT_ERRORBUFFER, m_error);
        if (settings.security == SmtpSettings::Security::StartTls) {
            curl_easy_setopt(m_curl, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
        }
        if (!m_user.isEmpty()) {
            curl_easy_setopt(m_curl, CURLOPT_USERNAME, m_user.constData());
            curl_easy_setopt(m_curl, CURLOPT_PASSWORD, m_password.constData());
        }
    }
    ~CurlSession()
    {
        if (m_curl) {
            curl_easy_cleanup(m_curl);
        }
    }
    CurlSession(const CurlSession &) = delete;
    CurlSession &operator=(const CurlSession &) = delete;

    [[nodiscard]] CURL *handle() const { return m_curl; }
    // Empty on success, else libcurl's most specific words for the failure.
    [[nodiscard]] QString perform()
    {
        if (!m_curl) {
            return u"libcurl could not start a transfer"_s;
        }
        const CURLcode result = curl_easy_perform(m_curl);
        if (result == CURLE_OK) {
            return {};
        }
        return QString::fromUtf8(m_error[0] ? m_error : curl_easy_strerror(result));
    }

private:
    CURL *m_curl;
    QByteArray m_url;
    QByteArray m_user;
    QByteArray m_password;
    char m_error[CURL_ERROR_SIZE] = {};
};
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

QString SmtpMailer::check() const
{
    CurlSession session(m_settings);
    if (session.handle()) {
        // No recipient and no upload: libcurl only greets, secures, signs in and sends this command.
        curl_easy_setopt(session.handle(), CURLOPT_CUSTOMREQUEST, "NOOP");
        curl_easy_setopt(session.handle(), CURLOPT_WRITEFUNCTION, discard);
    }
    return session.perform();
}

void SmtpMailer::checkInBackground(std::function<void(const QString &problem)> done)
{
    m_pool.start([this, done = std::move(done)] { done(check()); });
}

QByteArray SmtpMailer::message(const Mailbox &from, const OutgoingMail &mail, const QByteArray &messageId)
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
    return "Date: " + date.toLatin1() + " +0000\r\nFrom: " + from.headerValue() + "\r\nTo: " + headerText(mail.to)
        + "\r\nSubject: " + headerText(mail.subject) + "\r\nMessage-ID: <" + messageId
        + ">\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n"
          "Auto-Submitted: auto-generated\r\n\r\n"
        + lines.join("\r\n") + "\r\n";
}

bool SmtpMailer::deliver(const OutgoingMail &mail) const
{
    // The envelope and the Message-ID take the bare address; the display name is for From: only.
    const QByteArray messageId
        = QUuid::createUuid().toString(QUuid::WithoutBraces).toLatin1() + '@' + m_settings.from.domain().toLatin1();
    Upload upload {message(m_settings.from, mail, messageId), 0};
    const QByteArray from = '<' + m_settings.from.address.toLatin1() + '>';
    const QByteArray to = '<' + mail.to.toUtf8() + '>';
    CurlSession session(m_settings);
    curl_slist *recipients = curl_slist_append(nullptr, to.constData());
    if (session.handle()) {
        curl_easy_setopt(session.handle(), CURLOPT_MAIL_FROM, from.constData());
        curl_easy_setopt(session.handle(), CURLOPT_MAIL_RCPT, recipients);
        curl_easy_setopt(session.handle(), CURLOPT_READFUNCTION, readChunk);
        curl_easy_setopt(session.handle(), CURLOPT_READDATA, &upload);
        curl_easy_setopt(session.handle(), CURLOPT_UPLOAD, 1L);
    }
    const QString problem = session.perform();
    if (!problem.isEmpty()) {
        qCWarning(lcServer) << "SMTP:" << problem;
    }
    curl_slist_free_all(recipients);
    return problem.isEmpty();
}
