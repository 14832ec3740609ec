#pragma once

#include "server/storage.h"

#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

class Clock;

// One-time sign-in links and the sessions they are exchanged for.
class SignInService
{
public:
    static constexpr auto linkLifetime = std::chrono::minutes(15);
    static constexpr int maxEmailLength = 254;
    static constexpr int maxNameLength = 200;

    enum class Outcome {
        SignedIn,
        UnknownToken,
        Expired, // used before, or too old
        UserNotFound,
    };

    struct Verification
    {
        Outcome outcome = Outcome::UnknownToken;
        QString sessionToken;
        std::optional<ServerUser> user;
    };

    SignInService(Storage *storage, const Clock *clock);

    // Trimmed and lower-cased, so one address is one account however it is typed.
    [[nodiscard]] static QString normalizedEmail(const QString &email);
    [[nodiscard]] static bool isValidEmail(const QString &normalized);
    // The address the app is called back at, carrying a token.
    [[nodiscard]] static QUrl appCallback(const QString &token);

    // A link belongs to the address, whether or not it has an account. Returns the token.
    [[nodiscard]] QString createLink(const QString &email);
    // The existing account of the address, or a new one.
    [[nodiscard]] std::optional<ServerUser> existingUser(const QString &email);
    ServerUser registerUser(const QString &email, const std::optional<QString> &name);
    // The address a link was made for, whatever its state; none for an unknown token.
    [[nodiscard]] std::optional<QString> linkEmail(const QString &token);
    [[nodiscard]] Verification verify(const QString &token);
    // The same checks; the session it makes is of the given kind.
    [[nodiscard]] Verification verify(const QString &token, SessionKind kind);
    // A browser session for a user who has just proved the address. Returns its token.
    [[nodiscard]] QString startWebSession(const ServerUser &user);
    [[nodiscard]] std::optional<ServerUser> userForSessionToken(const QString &token);

private:
    [[nodiscard]] qint64 now() const;

    Storage *m_storage = nullptr;
    const Clock *m_clock = nullptr;
};
