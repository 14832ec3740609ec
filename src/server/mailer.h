#pragma once

#include <QString>

struct OutgoingMail
{
    QString to;
    QString subject;
    QString text;
};

// Where sign-in links go out. Sending happens in the background: the caller's reply never waits
// for it, so a page looks and takes the same whatever becomes of the mail.
class Mailer
{
public:
    virtual ~Mailer() = default;
    virtual void send(const OutgoingMail &mail) = 0;
};
