#pragma once

#include <QHash>
#include <QString>

#include <optional>

// The stored session: a binary property list readable by its owner alone, plus the copy in memory
// that every reader uses. The file is read once, at construction.
class KeychainService
{
public:
    // directory is where credentials.plist lives; service names the legacy items to remove.
    KeychainService(const QString &directory, const QString &service);

    [[nodiscard]] std::optional<QString> value(const QString &key) const;
    // The write's outcome is not reported: after a failed write the value lives for this run only.
    void setValue(const QString &value, const QString &key);
    void deleteAll();

    [[nodiscard]] QString storageFile() const { return m_storageFile; }

private:
    bool writeToDisk();
    static void removeLegacyKeychainEntries(const QString &service);

    QString m_storageFile;
    QHash<QString, QString> m_cache;
};
