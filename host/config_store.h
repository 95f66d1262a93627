/* The two kinds of configuration store behind one small interface, so that
 * the value rules (types, the string size protocol) are written once. */
#ifndef QRVUTIL_HOST_CONFIG_STORE_H
#define QRVUTIL_HOST_CONFIG_STORE_H

#include <qrvutil/host.h>

#include <cstdint>
#include <string>

namespace qrv::host {

enum class ValueKind : int { Dword = 0, String = 1 };

struct StoredValue {
    ValueKind kind = ValueKind::Dword;
    uint32_t number = 0;
    std::string text;
};

/* Results of a lookup or removal. */
enum class Found { Yes, No, Error };

class ValueStore {
  public:
    virtual ~ValueStore() = default;
    virtual Found get(const std::string &key, const std::string &name, StoredValue *out) = 0;
    /* true when the value is stored. */
    virtual bool put(const std::string &key, const std::string &name, const StoredValue &value) = 0;
    virtual Found remove(const std::string &key, const std::string &name) = 0;
    /* A group of calls (cfgBeginBatch .. cfgEndBatch); statuses of status.h.
     * Without a transaction of its own a store only counts the nesting. */
    virtual int beginBatch()
    {
        ++batchDepth_;
        return QRV_OK;
    }
    virtual int endBatch()
    {
        if (batchDepth_ == 0)
            return QRV_E_ARGUMENT;
        --batchDepth_;
        return QRV_OK;
    }

  private:
    int batchDepth_ = 0;
};

/* "\a\\b\" and "a\b" name the same key: empty components are dropped. */
std::string normalizeKeyPath(const char *keyPath);

/* The default store, the per-user SQLite database. */
class SqliteStore final : public ValueStore {
  public:
    Found get(const std::string &key, const std::string &name, StoredValue *out) override;
    bool put(const std::string &key, const std::string &name, const StoredValue &value) override;
    Found remove(const std::string &key, const std::string &name) override;
    int beginBatch() override;
    int endBatch() override;
};

/* An XML file opened with cfgOpen(); null (after logging why) on failure. */
ValueStore *openXmlStore(const char *path);
/* The store behind a cfgOpen() handle, or null for anything else. */
ValueStore *xmlStoreFromHandle(cfgHandle handle);
/* Writes back when asked and changed, then frees the store; 0 on success. */
int closeXmlStore(ValueStore *store, bool save);

} // namespace qrv::host

#endif
