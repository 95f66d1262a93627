/* The default configuration store: the SQLite database "config.sqlite" in
 * the per-user directory, shared by every process of the user.
 *
 * The directory is looked up afresh on every call. Each thread keeps one
 * connection between calls, because opening one costs far more than the
 * statement it runs and a settings load reads a couple of hundred values.
 * Several processes may use the database at once: WAL lets readers run
 * beside a writer, a busy timeout makes writers queue, and every write is
 * one statement in its own transaction, so nothing is ever half-written.
 * synchronous=NORMAL with WAL makes a committed value survive a crash of the
 * process (a power failure may lose the last commits, never corrupt the
 * file). */
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
constexpr char kSetup[] =
    "CREATE TABLE IF NOT EXISTS config_values("
    " key TEXT NOT NULL, name TEXT NOT NULL, type INTEGER NOT NULL,"
    " num INTEGER, text TEXT, PRIMARY KEY(key, name));"
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;";
constexpr char kSelect[] = "SELECT type, num, text FROM config_values WHERE key=?1 AND name=?2";
constexpr char kUpsert[] =
    "INSERT OR REPLACE INTO config_values(key, name, type, num, text) VALUES(?1, ?2, ?3, ?4, ?5)";
constexpr char kDelete[] = "DELETE FROM config_values WHERE key=?1 AND name=?2";

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

std::string databasePath() { return resolveUserPath(kDatabaseName); }

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

/* The connection a thread keeps between calls, closed when the thread ends.
 * It serves only the process that opened it: an SQLite connection must not
 * be carried across fork(), so a child neither uses nor closes its parent's.
 * It serves only the file it was opened on, so a moved per-user directory
 * or a deleted and re-made database gets a connection of its own. Writers
 * set the database up once per connection; readers never create it. */
class KeptConnection {
public:
    KeptConnection() = default;
    ~KeptConnection() { drop(); }
    KeptConnection(const KeptConnection &) = delete;
    KeptConnection &operator=(const KeptConnection &) = delete;

    /* Null when there is no connection for `path` yet. */
    sqlite3 *reuse(const std::string &path) const
    {
        FileId file;
        return db_ && pid_ == getpid() && identify(path.c_str(), &file) && file == file_ ? db_
                                                                                      : nullptr;
    }

    /* False when the file is gone again, and the connection is not kept. */
    bool keep(sqlite3 *db, const std::string &path)
    {
        drop();
        if (!identify(path.c_str(), &file_))
            return false;
        db_ = db;
        pid_ = getpid();
        setUp_ = false;
        return true;
    }

    bool setUp() const { return setUp_; }
    void markSetUp() { setUp_ = true; }

    void drop()
    {
        if (db_ && pid_ == getpid())
            sqlite3_close_v2(db_);
        db_ = nullptr;
    }

private:
    sqlite3 *db_ = nullptr;
    pid_t pid_ = 0;
    FileId file_;
    bool setUp_ = false;
};

thread_local KeptConnection t_kept;

/* The kept connection for one call; open() logs its own failures, and any
 * failure drops the kept connection so that the next call starts afresh. */
class Connection {
public:
    explicit Connection(std::string path) : path_(std::move(path)) {}
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    bool open(bool create)
    {
        db_ = t_kept.reuse(path_);
        if (!db_) {
            const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
            sqlite3 *db = nullptr;
            const int opened = sqlite3_open_v2(path_.c_str(), &db, flags, nullptr);
            db_ = db;
            if (opened != SQLITE_OK || !t_kept.keep(db, path_)) {
                fail("failed to open configuration database");
                sqlite3_close_v2(db);
                return false;
            }
            sqlite3_busy_timeout(db, kBusyTimeoutMs);
        }
        if (create && !t_kept.setUp()) {
            if (!runSetup(db_))
                return fail("failed to prepare configuration database");
            t_kept.markSetUp();
        }
        return true;
    }

    /* A database that another process has created but not yet set up has
     * no table: that is a missing value, not a fault. */
    sqlite3_stmt *prepare(const char *sql, bool *missingTable)
    {
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) == SQLITE_OK)
            return statement;
        if (missingTable && std::strncmp(sqlite3_errmsg(db_), "no such table", 13) == 0)
            *missingTable = true;
        else
            fail("failed to query configuration database");
        return nullptr;
    }

    bool fail(const char *what)
    {
        logError("%s %s: %s", what, path_.c_str(),
                 db_ ? sqlite3_errmsg(db_) : "out of memory");
        t_kept.drop();
        return false;
    }

    sqlite3 *db() const { return db_; }
    const std::string &path() const { return path_; }

private:
    std::string path_;
    sqlite3 *db_ = nullptr;
};

/* Finalises whatever statement it holds. */
struct Statement {
    sqlite3_stmt *handle;
    ~Statement() { sqlite3_finalize(handle); }
};

void bindKey(sqlite3_stmt *statement, const std::string &key, const std::string &name)
{
    sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    sqlite3_bind_text(statement, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
}

/* Prepares `sql` for the value `key`/`name`. Readers and removers never
 * create the database: with no database or no table yet the value is
 * missing, and nothing is logged. */
Found openExisting(Connection &connection, const char *sql, const std::string &key,
                   const std::string &name, Statement *statement)
{
    FileId file;
    if (!identify(connection.path().c_str(), &file))
        return Found::No;
    if (!connection.open(false))
        return Found::Error;
    bool missingTable = false;
    statement->handle = connection.prepare(sql, &missingTable);
    if (!statement->handle)
        return missingTable ? Found::No : Found::Error;
    bindKey(statement->handle, key, name);
    return Found::Yes;
}

}  // namespace

Found SqliteStore::get(const std::string &key, const std::string &name, StoredValue *out)
{
    Connection connection(databasePath());
    Statement select{nullptr};
    const Found opened = openExisting(connection, kSelect, key, name, &select);
    if (opened != Found::Yes)
        return opened;
    const int step = sqlite3_step(select.handle);
    if (step == SQLITE_DONE)
        return Found::No;
    if (step != SQLITE_ROW) {
        connection.fail("failed to read configuration database");
        return Found::Error;
    }
    out->kind = sqlite3_column_int(select.handle, 0) == static_cast<int>(ValueKind::String)
                    ? ValueKind::String
                    : ValueKind::Dword;
    out->number = static_cast<uint32_t>(sqlite3_column_int64(select.handle, 1));
    const unsigned char *text = sqlite3_column_text(select.handle, 2);
    out->text.assign(text ? reinterpret_cast<const char *>(text) : "",
                     static_cast<size_t>(sqlite3_column_bytes(select.handle, 2)));
    return Found::Yes;
}

bool SqliteStore::put(const std::string &key, const std::string &name, const StoredValue &value)
{
    const std::string dir = userDirectory();
    if (!makeDirectories(dir)) {
        logError("failed to create configuration directory %s: %s", dir.c_str(),
                 std::strerror(errno));
        return false;
    }
    Connection connection(databasePath());
    if (!connection.open(true))
        return false;
    Statement upsert{connection.prepare(kUpsert, nullptr)};
    if (!upsert.handle)
        return false;
    bindKey(upsert.handle, key, name);
    sqlite3_bind_int(upsert.handle, 3, static_cast<int>(value.kind));
    if (value.kind == ValueKind::Dword) {
        sqlite3_bind_int64(upsert.handle, 4, value.number);
        sqlite3_bind_null(upsert.handle, 5);
    } else {
        sqlite3_bind_null(upsert.handle, 4);
        sqlite3_bind_text(upsert.handle, 5, value.text.data(), static_cast<int>(value.text.size()),
                          SQLITE_STATIC);
    }
    if (sqlite3_step(upsert.handle) != SQLITE_DONE)
        return connection.fail("failed to write configuration database");
    return true;
}

Found SqliteStore::remove(const std::string &key, const std::string &name)
{
    Connection connection(databasePath());
    Statement erase{nullptr};
    const Found opened = openExisting(connection, kDelete, key, name, &erase);
    if (opened != Found::Yes)
        return opened;
    if (sqlite3_step(erase.handle) != SQLITE_DONE) {
        connection.fail("failed to write configuration database");
        return Found::Error;
    }
    return sqlite3_changes(connection.db()) > 0 ? Found::Yes : Found::No;
}

}  // namespace qrv::host
