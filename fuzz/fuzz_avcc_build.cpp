// Building an avcC box from a frame's units.
#include <qrvutil/h264.h>

#include "fuzz_util.h"

namespace {

constexpr size_t kHeader = 14;

uint32_t be16(const uint8_t *p) { return uint32_t{p[0]} << 8 | p[1]; }
uint32_t be32(const uint8_t *p) { return be16(p) << 16 | be16(p + 2); }

// Entries after the header: an SPS entry (2-byte length, bytes), a PPS entry
// (0x01, 2-byte length, bytes), at most one of each, in either order.
bool entriesFill(const uint8_t *box, size_t at, size_t size, bool spsSeen, bool ppsSeen) {
    if (at == size) return true;
    if (!spsSeen && at + 2 <= size && entriesFill(box, at + 2 + be16(box + at), size, true, ppsSeen))
        return true;
    return !ppsSeen && at + 3 <= size && box[at] == 1 &&
           entriesFill(box, at + 3 + be16(box + at + 1), size, spsSeen, true);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 0xFFFF) return 0;  // entry lengths are 16-bit fields
    fuzz::Bytes frame(data, data + size);
    NAL_BUFFER units{};
    units.data = frame.data();
    units.length = static_cast<uint32_t>(size);
    // The most a box can take: its header, and each entry's unit with its
    // length and count bytes, the two units lying apart in the frame.
    fuzz::Bytes box(kHeader + 5 + size);
    const int written = qrvutilGetAvcc(&units, box.data());

    FUZZ_CHECK(written >= static_cast<int>(kHeader) && static_cast<size_t>(written) <= box.size());
    FUZZ_CHECK(fuzz::same(frame.data(), data, size));
    FUZZ_CHECK(be32(box.data()) == static_cast<uint32_t>(written));
    FUZZ_CHECK(fuzz::same(box.data() + 4, "avcC", 4));
    FUZZ_CHECK(box[8] == 1 && box[12] == 0xFF && box[13] == 0xE1);
    FUZZ_CHECK(entriesFill(box.data(), kHeader, static_cast<size_t>(written), false, false));
    if (size < 5) FUZZ_CHECK(written == static_cast<int>(kHeader));

    // A box with entries reads back. (An empty one reads a missing entry
    // length as 0xFFFF set bits: slow, and nothing to learn.)
    if (written == static_cast<int>(kHeader)) return 0;
    fuzz::Unit unit(box.data(), static_cast<size_t>(written));
    kx_bitstream bs = unit.reader();
    SPS_DECODED sps{};
    PPS_DECODED pps{};
    FUZZ_CHECK(qrvutilReadAvcc(&bs, &sps, &pps) == 0);
    return 0;
}
