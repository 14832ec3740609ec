#include "account/keychainservice.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <plist/plist.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
constexpr QFileDevice::Permissions ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

using PlistHandle = std::unique_ptr<void, void (*)(plist_t)>;

// The keys the stored session is written with.
constexpr std::array storedKeys {"sessionToken", "userData"};

// The whole dictionary or nothing: one value that is not a string discards it all.
std::optional<QHash<QString, QString>> readCredentials(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    if (bytes.isEmpty() || bytes.size() > std::numeric_limits<uint32_t>::max()) {
        return std::nullopt;
    }
    plist_t root = nullptr;
    plist_from_memory(bytes.constData(), static_cast<uint32_t>(bytes.size()), &root);
    const PlistHandle guard(root, plist_free);
    if (!root || plist_get_node_type(root) != PLIST_DICT) {
        return std::nullopt;
    }
    // The values are walked without their keys: libplist reads a key through an assertion that
    // aborts on a NUL byte inside it, which would stop the program at every start. Only the keys
    // this file is written with are looked up, so others do not survive the next write.
    QHash<QString, QString> result;
    plist_dict_iter iter = nullptr;
    plist_dict_new_iter(root, &iter);
    const std::unique_ptr<void, void (*)(void *)> iterGuard(iter, free);
    for (;;) {
        plist_t value = nullptr;
        plist_dict_next_item(root, iter, nullptr, &value);
        if (!value) {
            break;
        }
        if (plist_get_node_type(value) != PLIST_STRING) {
            return std::nullopt;
        }
        const plist_t key = plist_dict_item_get_key(value);
        const auto known = std::find_if(storedKeys.cbegin(), storedKeys.cend(),
            [key](const char *name) { return plist_key_val_compare(key, name) == 0; });
        if (known == storedKeys.cend()) {
            continue;
        }
        uint64_t length = 0;
        const char *text = plist_get_string_ptr(value, &length);
        result.insert(QString::fromLatin1(*known), QString::fromUtf8(text, static_cast<qsizetype>(length)));
    }
    return result;
}

// The binary form, or nothing when the library could not produce it.
QByteArray serialise(const QHash<QString, QString> &values)
{
    const PlistHandle root(plist_new_dict(), plist_free);
    for (auto it = values.constBegin(); it != values.constEnd(); ++it) {
        plist_dict_set_item(
            root.get(), it.key().toUtf8().constData(), plist_new_string(it.value().toUtf8().constData()));
    }
    char *data = nullptr;
    uint32_t length = 0;
    plist_to_bin(root.get(), &data, &length);
    if (!data) {
        return {};
    }
    QByteArray bytes(data, length);
    plist_to_bin_free(data);
    return bytes;
}
} // namespace

KeychainService::KeychainService(const QString &directory, const QString &service)
    : m_storageFile(QDir(directory).filePath(u"credentials.plist"_s))
{
    QDir().mkpath(directory);
    QFile::setPermissions(directory, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (auto stored = readCredentials(m_storageFile)) {
        m_cache = std::move(*stored);
    }
    removeLegacyKeychainEntries(service);
}

std::optional<QString> KeychainService::value(const QString &key) const
{
    const auto it = m_cache.constFind(key);
    if (it == m_cache.constEnd()) {
        return std::nullopt;
    }
    return *it;
}

void KeychainService::setValue(const QString &value, const QString &key)
{
    m_cache.insert(key, value);
    writeToDisk();
}

void KeychainService::deleteAll()
{
    m_cache.clear();
    QFile::remove(m_storageFile);
    removeLegacyKeychainEntries(u"mirevon.Tamlo"_s);
}

bool KeychainService::writeToDisk()
{
    const QByteArray bytes = serialise(m_cache);
    if (bytes.isEmpty()) {
        return false;
    }
    // The session token lies in plain text, so the file must never be readable by others, not
    // even for a moment. An atomic save copies the permissions of the file it replaces and
    // creates its temporary file owner-only when there is one; so the first write makes an empty
    // owner-only file to replace.
    if (!QFile::exists(m_storageFile)) {
        QFile placeholder(m_storageFile);
        if (!placeholder.open(QIODevice::WriteOnly | QIODevice::NewOnly, ownerOnly)) {
            return false;
        }
    }
    QSaveFile file(m_storageFile);
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(ownerOnly)) {
        return false;
    }
    // commit() does not notice a failed final flush (a full disk), so flush first.
    if (file.write(bytes) != bytes.size() || !file.flush() || !file.commit()) {
        return false;
    }
    return QFile::setPermissions(m_storageFile, ownerOnly);
}

void KeychainService::removeLegacyKeychainEntries(const QString &service)
{
    // Earlier versions elsewhere kept the session in a system keychain under the service id and
    // under "mirevon.tamlo". Nothing was ever stored that way on this platform.
    Q_UNUSED(service);
}
