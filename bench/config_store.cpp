// The default configuration store, each workload next to a baseline run in
// the same process on the same database:
//  - 200 dword reads, as a settings load does, against the same reads each
//    made by a plain SQLite open, one select and a close;
//  - a clip information record written and read back (qrvInfoWriteReg and
//    qrvInfoReadReg), against the same statements, prepared once, in one
//    SQLite transaction with synchronous=FULL.
// Every benchmark runs 7 times; the ratios printed at the end compare the
// best of the 7.
//
// The database lives in a scratch per-user directory under /tmp, made afresh
// for each run. The open/read/close baseline runs first: once the store has
// kept its connection, other opens and closes of the same database get
// cheaper.

#include <qrvutil/clipinfo.h>
#include <qrvutil/host.h>

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr unsigned kValues = 200;
constexpr char kKey[] = "Bench\\Settings";
constexpr int kRepetitions = 7;

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
            qrvInfoMarkSeeded();
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

/* ---- A clip information record ----------------------------------------------- */

constexpr char kRecordKey[] = "Ovalbrook\\MetaData\\Default";

/* Every slot set: text slot n holds "text n", numeric slot n holds n. */
struct FullRecord {
    QRVINFO info{};
    FullRecord()
    {
        qrvInfoDelete(&info);
        for (int slot = 0; slot < QRVINFO_TEXT_SLOTS; ++slot) {
            const std::string text = "text " + std::to_string(slot);
            info.text[slot] = static_cast<char *>(hostAlloc(text.size() + 1));
            std::memcpy(info.text[slot], text.c_str(), text.size() + 1);
        }
        for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
            info.numeric[slot] = static_cast<uint32_t>(slot);
    }
    ~FullRecord() { qrvInfoDelete(&info); }
};

void BM_RecordWriteRead(benchmark::State &state)
{
    database();
    FullRecord record;
    for (auto _ : state) {
        QRVINFO loaded;
        std::memset(&loaded, 0, sizeof loaded);
        qrvInfoDelete(&loaded);
        qrvInfoWriteReg(&record.info, 1, 0);
        qrvInfoReadReg(&loaded, 1, 0);
        if (loaded.numeric[48] != 48)
            state.SkipWithError("record not read back");
        qrvInfoDelete(&loaded);
    }
}

/* The statements a record write and read make, each prepared once, in one
 * transaction: per stored slot one write, then per stored slot the two
 * reads (size, then value) of a load, after the switch's read. */
void BM_SameStatementsOneTransaction(benchmark::State &state)
{
    sqlite3 *db = nullptr;
    sqlite3_open_v2(database().c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_busy_timeout(db, 5000);
    sqlite3_exec(db, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr);
    sqlite3_stmt *upsert = nullptr, *select = nullptr;
    sqlite3_prepare_v2(db,
                       "INSERT OR REPLACE INTO config_values(key, name, type, num, text) "
                       "VALUES(?1, ?2, ?3, ?4, ?5)",
                       -1, &upsert, nullptr);
    sqlite3_prepare_v2(db, "SELECT type, num, text FROM config_values WHERE key=?1 AND name=?2", -1,
                       &select, nullptr);
    FullRecord record;
    std::vector<std::pair<std::string, std::string>> texts; // name, value
    std::vector<std::pair<std::string, uint32_t>> numbers;
    {
        // The names as the store holds them after one record write.
        sqlite3_stmt *names = nullptr;
        sqlite3_prepare_v2(db, "SELECT name, type, num, text FROM config_values WHERE key=?1", -1,
                           &names, nullptr);
        qrvInfoWriteReg(&record.info, 1, 0);
        sqlite3_bind_text(names, 1, "Ovalbrook\\MetaData\\Default", -1, SQLITE_STATIC);
        while (sqlite3_step(names) == SQLITE_ROW) {
            const std::string name = reinterpret_cast<const char *>(sqlite3_column_text(names, 0));
            if (sqlite3_column_int(names, 1) == 1)
                texts.emplace_back(name,
                                   reinterpret_cast<const char *>(sqlite3_column_text(names, 3)));
            else
                numbers.emplace_back(name, static_cast<uint32_t>(sqlite3_column_int64(names, 2)));
        }
        sqlite3_finalize(names);
    }
    auto write = [&](const std::string &name, int type, uint32_t number, const std::string *text) {
        sqlite3_bind_text(upsert, 1, kRecordKey, -1, SQLITE_STATIC);
        sqlite3_bind_text(upsert, 2, name.c_str(), -1, SQLITE_STATIC);
        sqlite3_bind_int(upsert, 3, type);
        if (text) {
            sqlite3_bind_null(upsert, 4);
            sqlite3_bind_text(upsert, 5, text->c_str(), -1, SQLITE_STATIC);
        } else {
            sqlite3_bind_int64(upsert, 4, number);
            sqlite3_bind_null(upsert, 5);
        }
        sqlite3_step(upsert);
        sqlite3_reset(upsert);
    };
    auto read = [&](const char *key, const std::string &name) {
        sqlite3_bind_text(select, 1, key, -1, SQLITE_STATIC);
        sqlite3_bind_text(select, 2, name.c_str(), -1, SQLITE_STATIC);
        if (sqlite3_step(select) != SQLITE_ROW)
            state.SkipWithError("value missing");
        benchmark::DoNotOptimize(sqlite3_column_bytes(select, 2));
        sqlite3_reset(select);
    };
    const std::string seeded = "XMLDisable";
    for (auto _ : state) {
        sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
        for (const auto &[name, text] : texts)
            write(name, 1, 0, &text);
        for (const auto &[name, number] : numbers)
            write(name, 0, number, nullptr);
        read("Ovalbrook\\MetaData", seeded);
        for (const auto &text : texts)
            for (int twice = 0; twice < 2; ++twice)
                read(kRecordKey, text.first);
        for (const auto &number : numbers)
            for (int twice = 0; twice < 2; ++twice)
                read(kRecordKey, number.first);
        if (sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
            state.SkipWithError("commit failed");
    }
    sqlite3_finalize(upsert);
    sqlite3_finalize(select);
    sqlite3_close_v2(db);
}

/* Keeps the best time per iteration of each benchmark over its repetitions. */
class BestOfReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                auto [best, fresh] = best_.emplace(run.run_name.function_name,
                                                   std::numeric_limits<double>::max());
                best->second = std::min(best->second, run.GetAdjustedRealTime());
            }
        ConsoleReporter::ReportRuns(runs);
    }
    void printRatio(const char *what, const char *measured, const char *baseline) const
    {
        auto m = best_.find(measured), b = best_.find(baseline);
        if (m != best_.end() && b != best_.end())
            std::printf("%s: %.3f ms / %.3f ms = %.2f x the baseline (best of %d)\n", what,
                        m->second, b->second, m->second / b->second, kRepetitions);
    }

  private:
    std::map<std::string, double> best_;
};

} // namespace

int main(int argc, char **argv)
{
    for (auto [name, function] :
         {std::pair{"BM_PlainOpenReadClose", BM_PlainOpenReadClose},
          std::pair{"BM_DefaultStoreReads", BM_DefaultStoreReads},
          std::pair{"BM_SameStatementsOneTransaction", BM_SameStatementsOneTransaction},
          std::pair{"BM_RecordWriteRead", BM_RecordWriteRead}})
        benchmark::RegisterBenchmark(name, function)
            ->Unit(benchmark::kMillisecond)
            ->Repetitions(kRepetitions)
            ->ReportAggregatesOnly(false);
    benchmark::Initialize(&argc, argv);
    BestOfReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatio("200 store reads vs open/read/close each", "BM_DefaultStoreReads",
                        "BM_PlainOpenReadClose");
    reporter.printRatio("record write + read vs one transaction, synchronous=FULL",
                        "BM_RecordWriteRead", "BM_SameStatementsOneTransaction");
    benchmark::Shutdown();
    return 0;
}
