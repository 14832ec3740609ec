#pragma once

#include "core/logmanager.h"

#include <QCoreApplication>
#include <QStringList>

// The event log's messages, oldest first, once it has taken every entry posted so far.
inline QStringList logMessages(LogManager &logManager)
{
    QCoreApplication::processEvents();
    QStringList messages;
    for (const LogEntry &entry : logManager.logs()) {
        messages.prepend(entry.message);
    }
    return messages;
}
