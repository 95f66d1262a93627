// The unit walk over a frame. The input is one flag byte; when its low bit is
// set an avcC box follows (one length byte, then the box); the rest is the
// frame, in either framing.
#include <qrvutil/h264.h>

#include "fuzz_util.h"

namespace {

// The walk reads an avcC through a 512-byte window, so a box is handed over
// in a block of that size.
constexpr size_t kAvccWindow = 512;

struct Walk {
    int count;
    fuzz::Bytes frame;
};

Walk walk(const fuzz::Bytes &frame, SPS_DECODED *sps, PPS_DECODED *pps, const uint8_t *avcc)
{
    Walk w{0, frame};
    NAL_BUFFER units{};
    units.data = w.frame.data();
    units.length = static_cast<uint32_t>(w.frame.size());
    w.count = qrvutilFindNalUnits(&units, sps, pps, avcc);
    FUZZ_CHECK(units.data == w.frame.data());
    FUZZ_CHECK(units.length == w.frame.size());
    return w;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Pieces in(data, size);
    const bool withAvcc = in.byte() & 1;
    fuzz::Bytes avcc(kAvccWindow + 1, 0);
    if (withAvcc) {
        fuzz::Bytes box = in.next();
        fuzz::copy(avcc.data(), box.data(), box.size());
    }
    const fuzz::Bytes frame = in.rest();

    SPS_DECODED sps{};
    PPS_DECODED pps{};
    Walk full = walk(frame, &sps, &pps, withAvcc ? avcc.data() : nullptr);
    // Every counted unit takes at least its 4-byte field and the walk stops
    // before a field that would not fit.
    FUZZ_CHECK(full.count >= 0);
    FUZZ_CHECK(static_cast<size_t>(full.count) * 4 < frame.size() || full.count == 0);

    // What the walk decodes does not steer it: without records or a box it
    // walks the same units and cleans the same SEI bytes.
    Walk bare = walk(frame, nullptr, nullptr, nullptr);
    FUZZ_CHECK(bare.count == full.count);
    FUZZ_CHECK(bare.frame == full.frame);
    return 0;
}
