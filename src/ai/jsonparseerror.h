#pragma once

#include <QByteArray>
#include <QJsonParseError>
#include <QJsonValue>
#include <QString>

#include <exception>

// Text that is not JSON, raised with the JSON parser's own message.
class JsonParseError : public std::exception
{
public:
    explicit JsonParseError(const QJsonParseError &error);

    [[nodiscard]] QJsonParseError::ParseError code() const { return m_code; }
    [[nodiscard]] int offset() const { return m_offset; }
    [[nodiscard]] QString errorDescription() const { return m_message; }
    [[nodiscard]] const char *what() const noexcept override { return m_what.constData(); }

private:
    QJsonParseError::ParseError m_code;
    int m_offset = 0;
    QString m_message;
    QByteArray m_what;
};

// Parses any JSON value, a bare string or number at the top level included; raises JsonParseError.
[[nodiscard]] QJsonValue parseJsonValue(const QByteArray &text);
