#pragma once

#include "server/mailbox.h"
#include "server/mailer.h"

#include <QString>
#include <QThreadPool>

#include <functional>
#include <optional>

struct SmtpSettings
{
    enum class Security {
        None, // plain, for a relay on the same machine
        StartTls, // upgrade on the submission port
        Tls, // implicit TLS
    };

    QString host;
    quint16 port = 587;
    Security security = Security::StartTls;
    QString user;
    QString password;
    Mailbox from; // the sender

    [[nodiscard]] bool isComplete() const { return !host.isEmpty() && !from.isEmpty(); }
    // "none", "starttls" or "tls".
    [[nodiscard]] static std::optional<Security> parseSecurity(const QString &text);
};

// Sends each mail by SMTP through libcurl on a worker thread. A failure is logged for the
// operator, without the recipient, and never reaches the visitor.
class SmtpMailer final : public Mailer
{
public:
    explicit SmtpMailer(SmtpSettings settings);
    ~SmtpMailer() override;
    SmtpMailer(const SmtpMailer &) = delete;
    SmtpMailer &operator=(const SmtpMailer &) = delete;

    void send(const OutgoingMail &mail) override;
    // Blocks until every queued mail is sent or has failed; for tests and an orderly exit.
    void waitForAll();
    // Connects, says hello, secures and signs in as a mail would, without sending one: empty when
    // the server took all of it, otherwise what went wrong. Blocks for up to the mail's time-out.
    [[nodiscard]] QString check() const;
    // check() on the mailer's own thread; done is called there.
    void checkInBackground(std::function<void(const QString &problem)> done);
    // The RFC 5322 message with headers, CRLF line ends and dot-safe lines.
    [[nodiscard]] static QByteArray message(const Mailbox &from, const OutgoingMail &mail, const QByteArray &messageId);

private:
    [[nodiscard]] bool deliver(const OutgoingMail &mail) const;

    SmtpSettings m_settings;
    QThreadPool m_pool;
};
