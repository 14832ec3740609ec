#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// A sender as an operator writes it: "tamlo@example.org" or "Tamlo <tamlo@example.org>", the name
// quoted or not. Strict on purpose: the address must be plain ASCII, as every mail server takes it.
struct Mailbox
{
    QString displayName; // empty when none was given
    QString address; // local@domain, what the envelope carries

    [[nodiscard]] static std::optional<Mailbox> parse(const QString &text);
    [[nodiscard]] bool isEmpty() const { return address.isEmpty(); }
    [[nodiscard]] QString domain() const { return address.section(u'@', -1); }
    // The value of a From: header: the name quoted or encoded where it has to be, then the address.
    [[nodiscard]] QByteArray headerValue() const;

    friend bool operator==(const Mailbox &, const Mailbox &) = default;
};
