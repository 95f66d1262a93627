/* The default configuration store: the SQLite database "config.sqlite" in
 * the per-user directory, shared by every process of the user.
 *
 * The directory is looked up afresh on every call. Each thread keeps one
 * connection between calls, with its statements prepared once, because
 * opening a connection and preparing a statement cost far more than the
 * statement itself, and a settings load reads a couple of hundred values.
 * Several processes may use the database at once: WAL lets readers run
 * beside a writer, a busy timeout makes writers queue, and every write is
 * one statement in its own transaction, so nothing is ever half-written.
 * A group of calls (cfgBeginBatch .. cfgEndBatch) is one transaction
 * instead, begun by the group's first call: BEGIN IMMEDIATE when that call
 * writes, so that a writer queues for the lock before it reads anything,
 * and a plain BEGIN when it reads. synchronous=NORMAL with WAL makes a
 * committed value survive a crash of the process (a power failure may lose
 * the last commits, never corrupt the file). */
/* Without it a 32-bit stat() fails on files with 64-bit inode numbers. */
#define _FILE_OFFSET_BITS 64

#include "host/config_store.h"
#include "host/host_internal.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qrv::host {
namespace {

constexpr char kDatabaseName[] = "config.sqlite";
constexpr int kBusyTimeoutMs = 5000;

/* The table is made before the switch to WAL, so that the switch is
 * written into the database file itself. A database made in WAL mode stays
 * an empty file until its first checkpoint, which a kept connection may
 * put off for long; another process would take that empty file for a
 * database still to be set up and fail to switch it while the first one
 * holds it open. */
constexpr char kSetup[] = "CREATE TABLE IF NOT EXISTS config_values("
                          " key TEXT NOT NULL, name TEXT NOT NULL, type INTEGER NOT NULL,"
                          " num INTEGER, text TEXT, PRIMARY KEY(key, name));"
                          "PRAGMA journal_mode=WAL;"
                          "PRAGMA synchronous=NORMAL;";

enum Query { kSelect, kUpsert, kDelete, kQueryCount };
constexpr const char *kQuerySql[kQueryCount] = {
    "SELECT type, num, text FROM config_values WHERE key=?1 AND name=?2",
    "INSERT OR REPLACE INTO config_values(key, name, type, num, text) VALUES(?1, ?2, ?3, ?4, ?5)",
    "DELETE FROM config_values WHERE key=?1 AND name=?2",
};

/* The switch to WAL may meet a lock that another process holds for a
 * moment while it opens or sets up the same database; SQLite reports that
 * at once instead of waiting. The setup changes nothing when repeated. */
constexpr int kSetupAttempts = 3;

bool runSetup(sqlite3 *db)
{
    int result = SQLITE_BUSY;
    for (int attempt = 0; attempt < kSetupAttempts && result == SQLITE_BUSY; ++attempt)
        result = sqlite3_exec(db, kSetup, nullptr, nullptr, nullptr);
    return result == SQLITE_OK;
}

/* The file a connection was opened on. */
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId &other) const
    {
        return device == other.device && inode == other.inode;
    }
};

bool identify(const char *path, FileId *id)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return false;
    *id = {info.st_dev, info.st_ino};
    return true;
}

/* What the transaction of the thread's open group, if any, has done. */
enum class Grouped { Nothing, Reading, Writing };

/* The connection a thread keeps between calls, closed when the thread ends.
 * It serves only the process that opened it: an SQLite connection must not
 * be carried across fork(), so a child forgets its parent's without using
 * or closing it. It serves only the file it was opened on, so a moved
 * per-user directory or a deleted and re-made database gets a connection of
 * its own; inside a group's transaction it stays on the file the group
 * began on. Writers set the database up once per connection; readers never
 * create it. */
class KeptConnection {
  public:
    KeptConnection() = default;
    ~KeptConnection() { drop(); }
    KeptConnection(const KeptConnection &) = delete;
    KeptConnection &operator=(const KeptConnection &) = delete;

    void claimForThisProcess()
    {
        if (db_ && pid_ != getpid())
            forget();
    }

    bool serves(const FileId &file) const { return db_ && file == file_; }

    void keep(sqlite3 *db, const FileId &file, const std::string &path)
    {
        drop();
        db_ = db;
        file_ = file;
        path_ = path;
        pid_ = getpid();
    }

    /* The statement for `query`, prepared on first use. Null with
     * *missingTable set when the database has no table yet. */
    sqlite3_stmt *statement(Query query, bool *missingTable)
    {
        sqlite3_stmt *&kept = statements_[query];
        if (!kept && sqlite3_prepare_v3(db_, kQuerySql[query], -1, SQLITE_PREPARE_PERSISTENT, &kept,
                                        nullptr) != SQLITE_OK) {
            kept = nullptr;
            *missingTable = std::strncmp(sqlite3_errmsg(db_), "no such table", 13) == 0;
        }
        return kept;
    }

    /* Logs a failure. Outside a group the connection is dropped, so that
     * the next call starts afresh; inside one it is kept, because closing
     * it would throw away what the group has written so far. */
    bool fail(const char *what)
    {
        logError("%s %s: %s", what, path_.c_str(), sqlite3_errmsg(db_));
        if (grouped_ == Grouped::Nothing)
            drop();
        return false;
    }

    void drop()
    {
        if (db_ && pid_ == getpid()) {
            for (sqlite3_stmt *&statement : statements_)
                sqlite3_finalize(statement);
            sqlite3_close_v2(db_);
        }
        forget();
    }

    sqlite3 *db() const { return db_; }
    bool setUp() const { return setUp_; }
    void markSetUp() { setUp_ = true; }

    /* Groups nest; the count belongs to the thread, not to the connection. */
    int depth = 0;
    Grouped grouped_ = Grouped::Nothing;

  private:
    void forget()
    {
        db_ = nullptr;
        for (sqlite3_stmt *&statement : statements_)
            statement = nullptr;
        setUp_ = false;
        grouped_ = Grouped::Nothing;
    }

    sqlite3 *db_ = nullptr;
    sqlite3_stmt *statements_[kQueryCount] = {};
    pid_t pid_ = 0;
    FileId file_;
    std::string path_;
    bool setUp_ = false;
};

thread_local KeptConnection t_kept;

sqlite3 *openDatabase(const std::string &path, bool create, std::string *error)
{
    const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
    sqlite3 *db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, flags, nullptr) == SQLITE_OK)
        return db;
    *error = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close_v2(db);
    return nullptr;
}

/* Opens the database and keeps the connection. The per-user directory is
 * made only when a writer's open fails, so the common call never touches
 * it. */
bool openKept(const std::string &path, bool create)
{
    t_kept.drop();
    std::string error;
    sqlite3 *db = openDatabase(path, create, &error);
    if (!db && create) {
        const std::string dir = userDirectory();
        if (!makeDirectories(dir)) {
            logError("failed to create configuration directory %s: %s", dir.c_str(),
                     std::strerror(errno));
            return false;
        }
        db = openDatabase(path, create, &error);
    }
    FileId file;
    if (db && !identify(path.c_str(), &file)) {
        error = "the file went away while it was opened";
        sqlite3_close_v2(db);
        db = nullptr;
    }
    if (!db) {
        logError("failed to open configuration database %s: %s", path.c_str(), error.c_str());
        return false;
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    t_kept.keep(db, file, path);
    return true;
}

/* Brings the kept connection to the database of the current per-user
 * directory, checking the file's identity with one stat (none inside a
 * group's transaction). Readers never create anything: with no database
 * they get Found::No and nothing is logged. */
Found connect(bool create)
{
    t_kept.claimForThisProcess();
    if (t_kept.grouped_ != Grouped::Nothing)
        return Found::Yes;
    const std::string path = resolveUserPath(kDatabaseName);
    FileId file;
    const bool exists = identify(path.c_str(), &file);
    if (!exists && !create)
        return Found::No;
    if (!(exists && t_kept.serves(file)) && !openKept(path, create))
        return Found::Error;
    if (create && !t_kept.setUp()) {
        if (!runSetup(t_kept.db()))
            return t_kept.fail("failed to prepare configuration database"), Found::Error;
        t_kept.markSetUp();
    }
    return Found::Yes;
}

/* Inside a group, the group's first call begins its transaction: a writer
 * takes the write lock at once, a reader takes a snapshot. A transaction
 * that SQLite rolled back by itself after an error fails the rest of the
 * group, whose writes would otherwise commit one by one. */
bool joinGroup(bool write)
{
    sqlite3 *db = t_kept.db();
    if (t_kept.depth == 0)
        return true;
    if (t_kept.grouped_ != Grouped::Nothing && sqlite3_get_autocommit(db)) {
        logError("configuration database %s: the group's transaction was rolled back",
                 sqlite3_db_filename(db, "main"));
        return false;
    }
    if (t_kept.grouped_ == Grouped::Nothing) {
        if (sqlite3_exec(db, write ? "BEGIN IMMEDIATE" : "BEGIN", nullptr, nullptr, nullptr) !=
            SQLITE_OK)
            return t_kept.fail("failed to begin a transaction in configuration database");
        t_kept.grouped_ = Grouped::Reading;
    }
    if (write)
        t_kept.grouped_ = Grouped::Writing;
    return true;
}

/* A kept statement for one call, bound to the value's key, and reset when
 * the call ends: a statement left stepping would hold its snapshot open. */
class Use {
  public:
    Use() = default;
    Use(const Use &) = delete;
    Use &operator=(const Use &) = delete;
    ~Use()
    {
        if (statement_)
            sqlite3_reset(statement_);
    }

    /* Readers and removers get Found::No, unlogged, from a database that
     * another process has created but not yet set up. */
    Found prepare(Query query, const std::string &key, const std::string &name, bool write)
    {
        if (!joinGroup(write))
            return Found::Error;
        bool missingTable = false;
        statement_ = t_kept.statement(query, &missingTable);
        if (!statement_) {
            if (missingTable && query != kUpsert)
                return Found::No;
            t_kept.fail("failed to query configuration database");
            return Found::Error;
        }
        sqlite3_bind_text(statement_, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
        sqlite3_bind_text(statement_, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
        return Found::Yes;
    }

    sqlite3_stmt *operator*() const { return statement_; }

  private:
    sqlite3_stmt *statement_ = nullptr;
};

} // namespace

Found SqliteStore::get(const std::string &key, const std::string &name, StoredValue *out)
{
    Found found = connect(false);
    Use select;
    if (found == Found::Yes)
        found = select.prepare(kSelect, key, name, false);
    if (found != Found::Yes)
        return found;
    const int step = sqlite3_step(*select);
    if (step == SQLITE_DONE)
        return Found::No;
    if (step != SQLITE_ROW) {
        t_kept.fail("failed to read configuration database");
        return Found::Error;
    }
    out->kind = sqlite3_column_int(*select, 0) == static_cast<int>(ValueKind::String)
                    ? ValueKind::String
                    : ValueKind::Dword;
    out->number = static_cast<uint32_t>(sqlite3_column_int64(*select, 1));
    const unsigned char *text = sqlite3_column_text(*select, 2);
    out->text.assign(text ? reinterpret_cast<const char *>(text) : "",
                     static_cast<size_t>(sqlite3_column_bytes(*select, 2)));
    return Found::Yes;
}

bool SqliteStore::put(const std::string &key, const std::string &name, const StoredValue &value)
{
    Use upsert;
    if (connect(true) != Found::Yes || upsert.prepare(kUpsert, key, name, true) != Found::Yes)
        return false;
    sqlite3_bind_int(*upsert, 3, static_cast<int>(value.kind));
    if (value.kind == ValueKind::Dword) {
        sqlite3_bind_int64(*upsert, 4, value.number);
        sqlite3_bind_null(*upsert, 5);
    } else {
        sqlite3_bind_null(*upsert, 4);
        sqlite3_bind_text(*upsert, 5, value.text.data(), static_cast<int>(value.text.size()),
                          SQLITE_STATIC);
    }
    if (sqlite3_step(*upsert) != SQLITE_DONE)
        return t_kept.fail("failed to write configuration database");
    return true;
}

Found SqliteStore::remove(const std::string &key, const std::string &name)
{
    Found found = connect(false);
    Use erase;
    if (found == Found::Yes)
        found = erase.prepare(kDelete, key, name, true);
    if (found != Found::Yes)
        return found;
    if (sqlite3_step(*erase) != SQLITE_DONE) {
        t_kept.fail("failed to write configuration database");
        return Found::Error;
    }
    return sqlite3_changes(t_kept.db()) > 0 ? Found::Yes : Found::No;
}

int SqliteStore::beginBatch()
{
    t_kept.claimForThisProcess();
    ++t_kept.depth;
    return QRV_OK;
}

/* A group that only read ends its snapshot; one that wrote commits. */
int SqliteStore::endBatch()
{
    t_kept.claimForThisProcess();
    if (t_kept.depth == 0)
        return QRV_E_ARGUMENT;
    if (--t_kept.depth > 0 || t_kept.grouped_ == Grouped::Nothing)
        return QRV_OK;
    sqlite3 *db = t_kept.db();
    const bool lost = sqlite3_get_autocommit(db) != 0;
    const bool committed = !lost &&
                           sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK;
    if (!committed) {
        logError("failed to commit to configuration database %s: %s",
                 sqlite3_db_filename(db, "main"),
                 lost ? "the transaction was rolled back" : sqlite3_errmsg(db));
        if (!lost)
            sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    t_kept.grouped_ = Grouped::Nothing;
    return committed ? QRV_OK : QRV_E_IO;
}

} // namespace qrv::host
