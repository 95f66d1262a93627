// Building avcC boxes from a frame's units: the kept layout and the standard one.
#include <qrvutil/h264.h>

#include <qrvutil/status.h>

#include "fuzz_util.h"

#include <algorithm>

namespace {

constexpr size_t kHeader = 14;

uint32_t be16(const uint8_t *p) { return uint32_t{p[0]} << 8 | p[1]; }
uint32_t be32(const uint8_t *p) { return be16(p) << 16 | be16(p + 2); }

// Entries after the header: an SPS entry (2-byte length, bytes), a PPS entry
// (0x01, 2-byte length, bytes), at most one of each, in either order.
bool entriesFill(const uint8_t *box, size_t at, size_t size, bool spsSeen, bool ppsSeen)
{
    if (at == size)
        return true;
    if (!spsSeen && at + 2 <= size &&
        entriesFill(box, at + 2 + be16(box + at), size, true, ppsSeen))
        return true;
    return !ppsSeen && at + 3 <= size && box[at] == 1 &&
           entriesFill(box, at + 3 + be16(box + at + 1), size, spsSeen, true);
}

int checkGetAvcc(const uint8_t *data, size_t size)
{
    fuzz::Bytes frame(data, data + size);
    NAL_BUFFER units{};
    units.data = frame.data();
    units.length = static_cast<uint32_t>(size);
    // The room asked for first is exactly what is written, and never more
    // than the header and each entry's unit with its length and count bytes
    // (the two units lie apart in the frame).
    const uint32_t room = qrvutilGetAvccRoom(&units);
    FUZZ_CHECK(room >= kHeader && room <= kHeader + 5 + size);
    fuzz::Bytes box(room);
    const int written = qrvutilGetAvcc(&units, box.data());

    FUZZ_CHECK(static_cast<uint32_t>(written) == room);
    FUZZ_CHECK(fuzz::same(frame.data(), data, size));
    FUZZ_CHECK(be32(box.data()) == static_cast<uint32_t>(written));
    FUZZ_CHECK(fuzz::same(box.data() + 4, "avcC", 4));
    FUZZ_CHECK(box[8] == 1 && box[12] == 0xFF && box[13] == 0xE1);
    FUZZ_CHECK(entriesFill(box.data(), kHeader, static_cast<size_t>(written), false, false));
    if (size < 5)
        FUZZ_CHECK(written == static_cast<int>(kHeader));

    // A box with entries reads back. (An empty one reads a missing entry
    // length as 0xFFFF set bits: slow, and nothing to learn.)
    if (written == static_cast<int>(kHeader))
        return 0;
    fuzz::Unit unit(box.data(), static_cast<size_t>(written));
    kx_bitstream bs = unit.reader();
    SPS_DECODED sps{};
    PPS_DECODED pps{};
    FUZZ_CHECK(qrvutilReadAvcc(&bs, &sps, &pps) == 0);
    return 0;
}

// The standard box from the same units: asked-for size, exact room, a
// refusal one byte short that writes nothing, and the fixed header fields.
void checkMakeAvcc(const uint8_t *data, size_t size)
{
    const int needed = qrvutilMakeAvcc(data, static_cast<uint32_t>(size), nullptr, 0);
    if (needed < 0) {
        FUZZ_CHECK(needed == QRV_E_SYNTAX || needed == QRV_E_TRUNCATED || needed == QRV_E_RANGE ||
                   (needed == QRV_E_ARGUMENT && data == nullptr));
        return;
    }
    FUZZ_CHECK(needed >= 7 + 2 + 4 + 1 + 1);
    fuzz::Bytes box(static_cast<size_t>(needed), 0xEE);
    FUZZ_CHECK(qrvutilMakeAvcc(data, static_cast<uint32_t>(size), box.data(), box.size() - 1) ==
               QRV_E_ROOM);
    FUZZ_CHECK(std::all_of(box.begin(), box.end(), [](uint8_t b) { return b == 0xEE; }));
    FUZZ_CHECK(qrvutilMakeAvcc(data, static_cast<uint32_t>(size), box.data(), box.size()) ==
               needed);
    FUZZ_CHECK(be32(box.data()) == static_cast<uint32_t>(needed));
    FUZZ_CHECK(fuzz::same(box.data() + 4, "avcC", 4));
    FUZZ_CHECK(box[8] == 1 && (box[12] & 3) == 3 && (box[13] & 31) >= 1);
    // Its first SPS entry holds the first SPS, whose bytes 1-3 name the profile.
    const uint32_t n = be16(box.data() + 14);
    FUZZ_CHECK(n >= 4 && 16 + n <= box.size());
    FUZZ_CHECK(fuzz::same(box.data() + 9, box.data() + 17, 3));
    FUZZ_CHECK((box[16] & 31) == 7);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 0xFFFF)
        return 0; // entry lengths are 16-bit fields
    checkGetAvcc(data, size);
    checkMakeAvcc(data, size);
    return 0;
}
