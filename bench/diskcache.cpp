// Sequential small reads of a 256 MiB file through CKXDiskCache against one
// pread() per step, in the same process; prints the time ratio per step size.
//
// The file is created in /tmp on the first run and kept for later runs. Both
// readers see it through the page cache, so the ratio measures per-read cost
// (a system call per step against a memory copy per step plus one refill per
// block), not the disk.

#include <qrvutil/diskcache.h>
#include <qrvutil/host.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr char kFilePath[] = "/tmp/qrvutil-bench-diskcache-256m.bin";
constexpr unsigned long long kFileSize = 256ull << 20;
constexpr unsigned kCacheSize = 1u << 20;
constexpr unsigned kSteps[] = {188, 4096};

bool ensureFile()
{
    struct stat st;
    if (stat(kFilePath, &st) == 0 && static_cast<unsigned long long>(st.st_size) == kFileSize)
        return true;
    FILE *out = std::fopen(kFilePath, "wb");
    if (out == nullptr)
        return false;
    std::vector<unsigned char> chunk(1 << 20);
    unsigned seed = 12345;
    for (unsigned long long written = 0; written < kFileSize; written += chunk.size()) {
        for (unsigned char &byte : chunk)
            byte = static_cast<unsigned char>((seed = seed * 1103515245u + 12345u) >> 24);
        if (std::fwrite(chunk.data(), 1, chunk.size(), out) != chunk.size())
            break;
    }
    return std::fclose(out) == 0;
}

// Reads the whole file in `step`-byte pieces per iteration; both readers
// share this loop so that only the read itself differs between them.
template <typename ReadStep>
void readSequentially(benchmark::State &state, unsigned step, ReadStep readStep)
{
    std::vector<unsigned char> buf(step);
    bool ok = true;
    for (auto _ : state) {
        for (unsigned long long pos = 0; ok && pos + step <= kFileSize; pos += step) {
            ok = readStep(buf.data(), pos);
            benchmark::DoNotOptimize(buf.data());
        }
        if (!ok) {
            state.SkipWithError("short read");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(kFileSize));
}

void readThroughCache(benchmark::State &state, unsigned step)
{
    osHandle file = osCreateFile(kFilePath, QRV_ACCESS_READ, QRV_SHARE_READ_WRITE, nullptr,
                                 QRV_OPEN_EXISTING, 0, nullptr);
    if (file == QRV_INVALID_FILE)
        return state.SkipWithError("cannot open the test file");
    CKXDiskCache cache;
    cache.SetHandleAndCacheSize(file, kCacheSize, false);
    readSequentially(state, step, [&](unsigned char *buf, unsigned long long pos) {
        unsigned done = 0;
        return cache.Read(buf, pos, step, &done, 0) == 0 && done == step;
    });
    osCloseFile(file);
}

void readWithPread(benchmark::State &state, unsigned step)
{
    int fd = open(kFilePath, O_RDONLY);
    if (fd < 0)
        return state.SkipWithError("cannot open the test file");
    readSequentially(state, step, [&](unsigned char *buf, unsigned long long pos) {
        return pread(fd, buf, step, static_cast<off_t>(pos)) == static_cast<ssize_t>(step);
    });
    close(fd);
}

struct Times {
    double real, cpu;
};

// Keeps each run's times per iteration so main() can print the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    RatioReporter() : ConsoleReporter(OO_Tabular) {}
    void ReportRuns(const std::vector<Run> &runs) override
    {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                times[run.benchmark_name()] = {run.GetAdjustedRealTime(), run.GetAdjustedCPUTime()};
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, Times> times;
};

} // namespace

int main(int argc, char **argv)
{
    if (!ensureFile()) {
        std::fprintf(stderr, "cannot create %s\n", kFilePath);
        return 1;
    }
    for (unsigned step : kSteps) {
        std::string suffix = std::to_string(step);
        benchmark::RegisterBenchmark(("pread/" + suffix).c_str(), readWithPread, step)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("cache/" + suffix).c_str(), readThroughCache, step)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    for (unsigned step : kSteps) {
        std::string suffix = std::to_string(step);
        auto pread = reporter.times.find("pread/" + suffix);
        auto cached = reporter.times.find("cache/" + suffix);
        if (pread != reporter.times.end() && cached != reporter.times.end())
            std::printf("%u-byte steps: pread time / CKXDiskCache time = %.2f (real), %.2f (CPU)\n",
                        step, pread->second.real / cached->second.real,
                        pread->second.cpu / cached->second.cpu);
    }
    benchmark::Shutdown();
    return 0;
}
