#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QMetaType>
#include <QString>

#include <optional>

// The signed-in user as the backend describes it.
struct TamloUser
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString email MEMBER email)
    Q_PROPERTY(QString name READ displayName)

public:
    QString id;
    QString email;
    std::optional<QString> name;

    [[nodiscard]] QString displayName() const { return name.value_or(QString()); }

    // name is left out when absent, never written as null.
    [[nodiscard]] QJsonObject toJson() const;
    // Requires id and email as strings; name may be missing or null.
    [[nodiscard]] static std::optional<TamloUser> fromJson(const QJsonValue &value);
    [[nodiscard]] QByteArray encoded() const;
    [[nodiscard]] static std::optional<TamloUser> decode(const QByteArray &json);

    friend bool operator==(const TamloUser &, const TamloUser &) = default;
};

Q_DECLARE_METATYPE(TamloUser)
