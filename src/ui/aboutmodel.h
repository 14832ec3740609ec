#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

// The About sheet's version line, from the values fixed when the build was configured.
class AboutModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("Built by the main screen")
    Q_PROPERTY(QString versionText READ versionText CONSTANT)

public:
    explicit AboutModel(QObject *parent = nullptr);
    // Blank values stand for a build that fixed none: "1.0" and "1".
    AboutModel(const QString &appVersion, const QString &buildNumber, QObject *parent = nullptr);

    [[nodiscard]] QString versionText() const;

private:
    QString m_appVersion;
    QString m_buildNumber;
};
