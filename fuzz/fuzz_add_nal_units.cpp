// Closing SEI units and inserting parameter sets into an access unit. The
// input holds an SPS and a PPS (each one length byte, then the unit; an empty
// one passes no record), a byte of extra room, then the frame.
#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include "fuzz_util.h"

#include <algorithm>

namespace {

struct Frame {
    fuzz::Bytes block; // exactly `capacity` bytes: the sanitizer sees any write beyond
    NAL_BUFFER units;
};

Frame makeFrame(const fuzz::Bytes &bytes, size_t capacity)
{
    Frame f{fuzz::Bytes(capacity, 0xEE), NAL_BUFFER{}};
    fuzz::copy(f.block.data(), bytes.data(), bytes.size());
    std::memset(f.units.storage, 0x5A, sizeof f.units.storage);
    f.units.data = f.block.data();
    f.units.length = static_cast<uint32_t>(bytes.size());
    return f;
}

QRV_NAL_UNIT_COUNTS countsOf(const NAL_BUFFER &units)
{
    QRV_NAL_UNIT_COUNTS c;
    static_assert(sizeof c <= sizeof units.storage, "counts fit the storage");
    std::memcpy(&c, units.storage, sizeof c);
    return c;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Pieces in(data, size);
    const fuzz::Bytes spsBytes = in.next(), ppsBytes = in.next();
    const size_t extra = in.byte();
    const fuzz::Bytes bytes = in.rest();

    SPS_DECODED sps{};
    PPS_DECODED pps{};
    fuzz::Unit spsUnit(spsBytes.data(), spsBytes.size()), ppsUnit(ppsBytes.data(), ppsBytes.size());
    kx_bitstream bs = spsUnit.reader();
    qrvutilRead_SPS(&bs, &sps);
    bs = ppsUnit.reader();
    qrvutilRead_PPS(&bs, &pps);
    const SPS_DECODED *spsArg = spsBytes.empty() ? nullptr : &sps;
    const PPS_DECODED *ppsArg = ppsBytes.empty() ? nullptr : &pps;

    const size_t capacity = bytes.size() + extra;
    Frame frame = makeFrame(bytes, capacity);
    const Frame before = frame;
    const int result = qrvutilAddNalUnits(&frame.units, static_cast<uint32_t>(capacity), spsArg,
                                          ppsArg);
    FUZZ_CHECK(frame.units.data == frame.block.data());
    if (result < 0) {
        // All or nothing: bytes, length and storage exactly as they were.
        FUZZ_CHECK(result == QRV_E_ROOM || result == QRV_E_TRUNCATED || result == QRV_E_RANGE ||
                   (result == QRV_E_ARGUMENT && bytes.empty()));
        FUZZ_CHECK(frame.block == before.block);
        FUZZ_CHECK(frame.units.length == before.units.length);
        FUZZ_CHECK(
            fuzz::same(frame.units.storage, before.units.storage, sizeof frame.units.storage));
        return 0;
    }
    FUZZ_CHECK(static_cast<uint32_t>(result) == frame.units.length &&
               frame.units.length <= capacity);
    FUZZ_CHECK(frame.units.length >= bytes.size());
    const QRV_NAL_UNIT_COUNTS counts = countsOf(frame.units);
    FUZZ_CHECK(counts.inserted_sps <= 1 && counts.inserted_pps <= 1);
    FUZZ_CHECK(counts.closed_sei <= counts.units);
    FUZZ_CHECK(counts.reserved[0] == 0 && counts.reserved[1] == 0 && counts.reserved[2] == 0 &&
               counts.reserved[3] == 0);
    FUZZ_CHECK(!(counts.inserted_sps && !spsArg) && !(counts.inserted_pps && !ppsArg));
    // Nothing past the new length was written.
    FUZZ_CHECK(std::all_of(frame.block.begin() + frame.units.length, frame.block.end(),
                           [](uint8_t b) { return b == 0xEE; }));

    // A second pass has nothing left to do (a record of another kind is
    // refused, never inserted).
    const fuzz::Bytes once(frame.block.begin(), frame.block.begin() + frame.units.length);
    const uint32_t unitsAfter = counts.units + counts.inserted_sps + counts.inserted_pps;
    Frame again = makeFrame(once, capacity);
    const int second = qrvutilAddNalUnits(&again.units, static_cast<uint32_t>(capacity), spsArg,
                                          ppsArg);
    FUZZ_CHECK(second == result);
    FUZZ_CHECK(fuzz::same(again.block.data(), once.data(), once.size()));
    const QRV_NAL_UNIT_COUNTS recount = countsOf(again.units);
    FUZZ_CHECK(recount.units == unitsAfter);
    FUZZ_CHECK(recount.closed_sei == 0 && recount.inserted_sps == 0 && recount.inserted_pps == 0);
    return 0;
}
