#pragma once

#include <QString>

#include <exception>

// A failure of the sign-in exchange, with the text the sign-in screen shows.
class AuthError : public std::exception
{
public:
    enum class Kind {
        NetworkError,
        InvalidResponse,
        ServerError,
        ConvexNotConfigured,
        InvalidURL,
        TokenExpired,
        EmailNotFound,
        Unauthorized,
    };

    explicit AuthError(Kind kind, QString message = {});

    [[nodiscard]] Kind kind() const { return m_kind; }
    [[nodiscard]] QString message() const { return m_message; }
    [[nodiscard]] QString errorDescription() const;
    [[nodiscard]] const char *what() const noexcept override { return m_what.constData(); }

private:
    Kind m_kind;
    QString m_message;
    QByteArray m_what;
};
