#pragma once

#include "server/mailer.h"

#include <QString>
#include <QThreadPool>

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
    QString from; // the sender address

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
    // The RFC 5322 message with headers, CRLF line ends and dot-safe lines.
    [[nodiscard]] static QByteArray message(const QString &from, const OutgoingMail &mail, const QByteArray &messageId);

private:
    [[nodiscard]] bool deliver(const OutgoingMail &mail) const;

    SmtpSettings m_settings;
    QThreadPool m_pool;
};
