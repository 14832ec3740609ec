#pragma once

#include <QLocalServer>
#include <QObject>
#include <QString>

#include <chrono>

// One Tamlo per user: the first process listens on a per-user local socket, and a later one
// hands it a message (a URL to open, or a request to show the panel) and exits.
class SingleInstance : public QObject
{
    Q_OBJECT
public:
    static constexpr auto handOverTimeout = std::chrono::milliseconds(2000);
    static inline const QString showPanelMessage = QStringLiteral("show");

    explicit SingleInstance(QString serverName, QObject *parent = nullptr);

    // Per user, so two users of one machine each have their own instance.
    [[nodiscard]] static QString defaultServerName();
    // The message that asks the instance to open a URL.
    [[nodiscard]] static QString openUrlMessage(const QString &url);
    // The URL in a message, or an empty string for any other message.
    [[nodiscard]] static QString urlFromMessage(const QString &message);

    // Blocking; safe from any thread. True when a running instance confirmed the message.
    [[nodiscard]] static bool sendToRunning(
        const QString &serverName, const QString &message, std::chrono::milliseconds timeout = handOverTimeout);

    // Becomes the instance: false when another live instance already holds the name. A name left
    // behind by a crashed instance is taken over.
    [[nodiscard]] bool listen();
    [[nodiscard]] QString serverName() const { return m_serverName; }

Q_SIGNALS:
    void messageReceived(const QString &message);

private:
    void onNewConnection();

    QString m_serverName;
    QLocalServer m_server;
};
