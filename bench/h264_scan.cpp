// Throughput of start-code to length-prefix conversion, of the way back and
// of the unit walk, next to a memchr scan of the same bytes as the baseline.
// The stream is the file named by QRV_BENCH_H264_STREAM (bench/run.sh makes
// a 64 MB x264 stream with four slices a picture, so that 3- and 4-byte
// codes mix), or else at least 32 MB made by repeating the test clips.
#include <qrvutil/h264.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char *kClips[] = {"baseline_cavlc", "main_cabac_b", "high_cqm", "mbaff",
                                  "slices4",        "weightp",      "hrd_vui",  "hi444_lossless10"};
constexpr size_t kStreamBytes = size_t{32} << 20;

Bytes readFile(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

Bytes readClip(const std::string &name)
{
    return readFile(std::string(QRV_TEST_DATA_DIR) + "/h264/" + name + ".h264");
}

const Bytes &annexBStream()
{
    static const Bytes stream = [] {
        if (const char *path = std::getenv("QRV_BENCH_H264_STREAM")) {
            Bytes file = readFile(path);
            if (!file.empty())
                return file;
        }
        std::vector<Bytes> clips;
        for (const char *name : kClips)
            clips.push_back(readClip(name));
        Bytes out;
        while (out.size() < kStreamBytes)
            for (const Bytes &c : clips)
                out.insert(out.end(), c.begin(), c.end());
        return out;
    }();
    return stream;
}

// Room for the widening of every 3-byte code.
size_t spareFor(const Bytes &s)
{
    size_t codes = 0;
    for (size_t i = 2; i < s.size(); ++i)
        codes += s[i] == 1 && s[i - 1] == 0 && s[i - 2] == 0;
    return codes;
}

const Bytes &lengthPrefixedStream()
{
    static const Bytes stream = [] {
        Bytes b = annexBStream();
        const size_t len = b.size();
        b.resize(len + spareFor(b));
        b.resize(static_cast<size_t>(qrvUtilh264MarkerToSize(b.data(), static_cast<int>(len))));
        return b;
    }();
    return stream;
}

void BM_MemchrBaseline(benchmark::State &state)
{
    const Bytes &s = annexBStream();
    for (auto _ : state) {
        size_t ones = 0;
        for (const uint8_t *p = s.data(), *end = p + s.size();
             (p = static_cast<const uint8_t *>(std::memchr(p, 0x01, static_cast<size_t>(end - p))));
             ++p)
            ++ones;
        benchmark::DoNotOptimize(ones);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
}

void BM_MarkerToSize(benchmark::State &state)
{
    const Bytes &s = annexBStream();
    Bytes work(s.size() + spareFor(s));
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(work.data(), s.data(), s.size());
        state.ResumeTiming();
        benchmark::DoNotOptimize(qrvUtilh264MarkerToSize(work.data(), static_cast<int>(s.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
}

// Lengths back to start codes: one dependent load per unit, the limit of
// following the lengths through memory.
void BM_SizeToMarker(benchmark::State &state)
{
    const Bytes &s = lengthPrefixedStream();
    Bytes work(s.size());
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(work.data(), s.data(), s.size());
        state.ResumeTiming();
        benchmark::DoNotOptimize(
            qrvUtilh264SizeToMarker(work.data(), static_cast<unsigned>(s.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
}

void BM_MarkerToSizeLength(benchmark::State &state)
{
    const Bytes &s = annexBStream();
    for (auto _ : state)
        benchmark::DoNotOptimize(
            qrvUtilh264MarkerToSizeLength(s.data(), static_cast<int>(s.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * s.size()));
}

void walkUnits(benchmark::State &state, const Bytes &source)
{
    Bytes work = source; // SEI cleaning writes into the stream
    NAL_BUFFER units{};
    units.data = work.data();
    units.length = static_cast<uint32_t>(work.size());
    SPS_DECODED sps{};
    PPS_DECODED pps{};
    for (auto _ : state)
        benchmark::DoNotOptimize(qrvutilFindNalUnits(&units, &sps, &pps, nullptr));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * work.size()));
}

void BM_FindNalUnitsStartCodes(benchmark::State &state) { walkUnits(state, annexBStream()); }

void BM_FindNalUnitsLengthPrefixed(benchmark::State &state)
{
    walkUnits(state, lengthPrefixedStream());
}

BENCHMARK(BM_MemchrBaseline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkerToSize)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MarkerToSizeLength)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SizeToMarker)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindNalUnitsStartCodes)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindNalUnitsLengthPrefixed)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
