// A hostile 1 MiB unit, 67 followed by 00 00 03 repeated, through the
// parameter-set readers and the unit walk: each removes about 350 000
// emulation-prevention bytes. Baseline: a copy of the same bytes, which
// every reader makes first anyway.
#include <qrvutil/h264.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kUnitBytes = size_t{1} << 20;

// The unit itself; `framed` puts a 4-byte start code before it and one
// after, so that the walk measures and decodes it.
Bytes hostileUnit(bool framed)
{
    Bytes b;
    if (framed)
        b = {0, 0, 0, 1};
    b.push_back(0x67);
    while (b.size() < kUnitBytes + (framed ? 4 : 0)) {
        b.push_back(0);
        b.push_back(0);
        b.push_back(3);
    }
    if (framed)
        b.insert(b.end(), {0, 0, 0, 1, 0x09, 0xF0});
    return b;
}

void BM_CopyBaseline(benchmark::State &state)
{
    const Bytes unit = hostileUnit(false);
    Bytes copy(unit.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), unit.data(), unit.size());
        benchmark::DoNotOptimize(copy.data());
        benchmark::ClobberMemory();
    }
}

template <typename Record, int (*Read)(kx_bitstream *, Record *)>
void readUnit(benchmark::State &state)
{
    const Bytes unit = hostileUnit(false);
    for (auto _ : state) {
        kx_bitstream bs{reinterpret_cast<uintptr_t>(unit.data()), unit.size(), unit.size() * 8, 0};
        Record record{};
        benchmark::DoNotOptimize(Read(&bs, &record));
    }
}

void BM_ReadSps(benchmark::State &state) { readUnit<SPS_DECODED, qrvutilRead_SPS>(state); }
void BM_ReadPps(benchmark::State &state) { readUnit<PPS_DECODED, qrvutilRead_PPS>(state); }

void BM_FindNalUnits(benchmark::State &state)
{
    const Bytes stream = hostileUnit(true);
    Bytes work(stream.size());
    for (auto _ : state) {
        state.PauseTiming();
        work = stream;
        state.ResumeTiming();
        NAL_BUFFER units{};
        units.data = work.data();
        units.length = static_cast<uint32_t>(work.size());
        SPS_DECODED sps{};
        PPS_DECODED pps{};
        benchmark::DoNotOptimize(qrvutilFindNalUnits(&units, &sps, &pps, nullptr));
    }
}

BENCHMARK(BM_CopyBaseline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadSps)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadPps)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindNalUnits)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
