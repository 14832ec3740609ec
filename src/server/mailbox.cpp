#include "server/mailbox.h"

#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
bool isAtext(QChar c)
{
    static const QString specials = u"()<>[]:;@\\,.\""_s;
    return c.unicode() > 0x20 && c.unicode() < 0x7F && !specials.contains(c);
}

// local@domain with dot-separated atoms on both sides and letters, digits and hyphens in the domain.
bool isAddress(const QString &address)
{
    if (address.count(u'@') != 1) {
        return false;
    }
    const QString local = address.section(u'@', 0, 0);
    const QString domain = address.section(u'@', 1);
    for (const QString &atom : local.split(u'.')) {
        if (atom.isEmpty() || !std::all_of(atom.cbegin(), atom.cend(), isAtext)) {
            return false;
        }
    }
    for (const QString &label : domain.split(u'.')) {
        if (label.isEmpty() || label.startsWith(u'-') || label.endsWith(u'-')
            || !std::all_of(label.cbegin(), label.cend(),
                [](QChar c) { return c.unicode() < 0x80 && (c.isLetterOrNumber() || c == u'-'); })) {
            return false;
        }
    }
    return true;
}

bool isDisplayName(const QString &name)
{
    return std::none_of(name.cbegin(), name.cend(),
        [](QChar c) { return c.category() == QChar::Other_Control || c == u'"' || c == u'<' || c == u'>'; });
}
} // namespace

std::optional<Mailbox> Mailbox::parse(const QString &text)
{
    const QString trimmed = text.trimmed();
    Mailbox mailbox;
    if (trimmed.endsWith(u'>')) {
        const qsizetype open = trimmed.lastIndexOf(u'<');
        if (open < 0) {
            return std::nullopt;
        }
        mailbox.address = trimmed.mid(open + 1, trimmed.size() - open - 2);
        mailbox.displayName = trimmed.left(open).trimmed();
        if (mailbox.displayName.size() >= 2 && mailbox.displayName.startsWith(u'"')
            && mailbox.displayName.endsWith(u'"')) {
            mailbox.displayName = mailbox.displayName.mid(1, mailbox.displayName.size() - 2);
        }
        if (!isDisplayName(mailbox.displayName)) {
            return std::nullopt;
        }
    } else {
        mailbox.address = trimmed;
    }
    if (!isAddress(mailbox.address)) {
        return std::nullopt;
    }
    return mailbox;
}

QByteArray Mailbox::headerValue() const
{
    if (displayName.isEmpty()) {
        return address.toLatin1();
    }
    QByteArray name;
    if (std::any_of(displayName.cbegin(), displayName.cend(), [](QChar c) { return c.unicode() >= 0x80; })) {
        name = "=?UTF-8?B?" + displayName.toUtf8().toBase64() + "?=";
    } else if (std::all_of(displayName.cbegin(), displayName.cend(), [](QChar c) { return c == u' ' || isAtext(c); })) {
        name = displayName.toLatin1();
    } else {
        name = '"' + displayName.toLatin1() + '"';
    }
    return name + " <" + address.toLatin1() + '>';
}
