/* The configuration-store services: one set of value rules over either
 * kind of store. */
#include "host/config_store.h"
#include "host/host_internal.h"

#include <cstring>

namespace qrv::host {
namespace {

constexpr int kFailed = 1;

/* A read of a value stored with the other type fails: a number is never
 * turned into text or back. A missing value fails without a message; only
 * trouble with the store itself is logged. */
int readDword(ValueStore &store, const std::string &key, const std::string &name, unsigned *value)
{
    StoredValue stored;
    if (store.get(key, name, &stored) != Found::Yes || stored.kind != ValueKind::Dword)
        return kFailed;
    if (value)
        *value = stored.number;
    return 0;
}

/* *size always ends up as the stored length + 1, the size needed. With a
 * buffer, min(length + 1, *size) bytes are written, terminator included;
 * a cut copy still ends in a terminator and the call fails. */
int readString(ValueStore &store, const std::string &key, const std::string &name, char *buffer,
               unsigned *size)
{
    StoredValue stored;
    if (store.get(key, name, &stored) != Found::Yes || stored.kind != ValueKind::String) {
        *size = 0;
        return kFailed;
    }
    const unsigned needed = static_cast<unsigned>(stored.text.size()) + 1;
    if (!buffer) {
        *size = needed;
        return 0;
    }
    const unsigned room = *size;
    *size = needed;
    if (room == 0)
        return kFailed;
    const unsigned copied = needed <= room ? needed - 1 : room - 1;
    std::memcpy(buffer, stored.text.data(), copied);
    buffer[copied] = '\0';
    return copied + 1 == needed ? 0 : kFailed;
}

/* The text ends at its terminator or after *size bytes, whichever comes
 * first; nothing beyond either is read. Callers pass the length + 2. */
int writeString(ValueStore &store, const std::string &key, const std::string &name,
                const char *buffer, const unsigned *size)
{
    StoredValue value;
    value.kind = ValueKind::String;
    value.text.assign(buffer, size ? strnlen(buffer, *size) : std::strlen(buffer));
    if (value.text.size() >= UINT32_MAX)
        return kFailed;
    return store.put(key, name, value) ? 0 : kFailed;
}

/* The store behind `handle`, or null. The default store needs no open or
 * close: its store object is stateless, so the caller's will do. */
ValueStore *storeFor(cfgHandle handle, SqliteStore &defaultStore)
{
    return handle == QRV_CFG_DEFAULT ? &defaultStore : xmlStoreFromHandle(handle);
}

/* Runs `use` with the store behind `handle`, the normalised key and the
 * value name. Every failure, running out of memory included, is kFailed. */
template <typename Use>
int withStore(cfgHandle handle, const char *keyPath, const char *valueName, Use use)
{
    try {
        SqliteStore defaultStore;
        ValueStore *store = storeFor(handle, defaultStore);
        if (!store)
            return kFailed;
        return use(*store, normalizeKeyPath(keyPath), std::string(valueName ? valueName : ""));
    } catch (...) {
        return kFailed;
    }
}

} // namespace

std::string normalizeKeyPath(const char *keyPath)
{
    std::string normal;
    if (!keyPath)
        return normal;
    for (const char *p = keyPath; *p; ++p) {
        if (*p == '\\' && (normal.empty() || normal.back() == '\\'))
            continue;
        normal += *p;
    }
    if (!normal.empty() && normal.back() == '\\')
        normal.pop_back();
    return normal;
}

cfgHandle builtinCfgOpen(const char *path, int flags)
{
    (void)flags;
    try {
        return openXmlStore(path);
    } catch (...) {
        logError("configuration file %s: out of memory", path ? path : "(null)");
        return nullptr;
    }
}

/* Closing the default store is allowed and does nothing. */
int builtinCfgClose(cfgHandle handle, int save)
{
    if (handle == QRV_CFG_DEFAULT)
        return 0;
    ValueStore *store = xmlStoreFromHandle(handle);
    if (!store)
        return kFailed;
    try {
        return closeXmlStore(store, save != 0);
    } catch (...) {
        return kFailed;
    }
}

int builtinCfgValueDword(cfgHandle handle, const char *keyPath, const char *valueName,
                         unsigned *value, int direction)
{
    return withStore(handle, keyPath, valueName,
                     [&](ValueStore &store, const std::string &key, const std::string &name) {
                         if (direction == QRV_CFG_READ)
                             return readDword(store, key, name, value);
                         if (direction != QRV_CFG_WRITE || !value)
                             return kFailed;
                         StoredValue stored;
                         stored.number = *value;
                         return store.put(key, name, stored) ? 0 : kFailed;
                     });
}

int builtinCfgValueString(cfgHandle handle, const char *keyPath, const char *valueName,
                          char *buffer, unsigned *size, int direction)
{
    return withStore(handle, keyPath, valueName,
                     [&](ValueStore &store, const std::string &key, const std::string &name) {
                         if (direction == QRV_CFG_READ)
                             return size ? readString(store, key, name, buffer, size) : kFailed;
                         if (direction != QRV_CFG_WRITE || !buffer)
                             return kFailed;
                         return writeString(store, key, name, buffer, size);
                     });
}

int builtinCfgDeleteValue(cfgHandle handle, const char *keyPath, const char *valueName)
{
    return withStore(handle, keyPath, valueName,
                     [](ValueStore &store, const std::string &key, const std::string &name) {
                         return store.remove(key, name) == Found::Yes ? 0 : kFailed;
                     });
}

/* The default store's group lives with the thread's kept connection; a
 * file's group only counts, as the file is written whole on close. */
int builtinCfgBeginBatch(cfgHandle handle)
{
    SqliteStore defaultStore;
    ValueStore *store = storeFor(handle, defaultStore);
    return store ? store->beginBatch() : QRV_E_ARGUMENT;
}

int builtinCfgEndBatch(cfgHandle handle)
{
    SqliteStore defaultStore;
    ValueStore *store = storeFor(handle, defaultStore);
    return store ? store->endBatch() : QRV_E_ARGUMENT;
}

} // namespace qrv::host
