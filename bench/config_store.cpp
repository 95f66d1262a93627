// 200 dword reads from the default configuration store, as a settings load
// does, against the same reads each made by a plain SQLite open, one select
// and a close, in the same process and on the same database.
//
// The database lives in a scratch per-user directory under /tmp, made afresh
// for each run. The baseline runs first: once the store has kept its
// connection, other opens and closes of the same database get cheaper.

#include <qrvutil/host.h>

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

constexpr unsigned kValues = 200;
constexpr char kKey[] = "Bench\\Settings";

std::string valueName(unsigned i) { return "Value" + std::to_string(i); }

/* Points the per-user directory at a fresh scratch directory and fills the
 * store; returns the database path. */
const std::string &database()
{
    static const std::string path = [] {
        char dir[] = "/tmp/qrvutil-bench-config-XXXXXX";
        if (!mkdtemp(dir))
            std::abort();
        setenv("QRVUTIL_CONFIG_DIR", dir, 1);
        // Filled by a child, so that the baseline runs while no connection
        // of this process is open, as a lone program's settings load does.
        const pid_t child = fork();
        if (child == 0) {
            for (unsigned i = 0; i < kValues; ++i)
                cfgValueDword(QRV_CFG_DEFAULT, kKey, valueName(i).c_str(), &i, QRV_CFG_WRITE);
            std::exit(0);
        }
        waitpid(child, nullptr, 0);
        return std::string(dir) + "/config.sqlite";
    }();
    return path;
}

void BM_PlainOpenReadClose(benchmark::State &state)
{
    const std::string &path = database();
    std::string names[kValues];
    for (unsigned i = 0; i < kValues; ++i)
        names[i] = valueName(i);
    for (auto _ : state) {
        for (const std::string &name : names) {
            sqlite3 *db = nullptr;
            sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
            sqlite3_busy_timeout(db, 5000);
            sqlite3_stmt *select = nullptr;
            sqlite3_prepare_v2(db, "SELECT num FROM config_values WHERE key=?1 AND name=?2", -1,
                               &select, nullptr);
            sqlite3_bind_text(select, 1, kKey, -1, SQLITE_STATIC);
            sqlite3_bind_text(select, 2, name.c_str(), -1, SQLITE_STATIC);
            if (sqlite3_step(select) != SQLITE_ROW)
                state.SkipWithError("value missing");
            benchmark::DoNotOptimize(sqlite3_column_int64(select, 0));
            sqlite3_finalize(select);
            sqlite3_close_v2(db);
        }
    }
}

void BM_DefaultStoreReads(benchmark::State &state)
{
    database();
    std::string names[kValues];
    for (unsigned i = 0; i < kValues; ++i)
        names[i] = valueName(i);
    for (auto _ : state) {
        for (const std::string &name : names) {
            unsigned value = 0;
            if (cfgValueDword(QRV_CFG_DEFAULT, kKey, name.c_str(), &value, QRV_CFG_READ) != 0)
                state.SkipWithError("value missing");
            benchmark::DoNotOptimize(value);
        }
    }
}

BENCHMARK(BM_PlainOpenReadClose)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DefaultStoreReads)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
