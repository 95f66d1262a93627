// Reading an avcC box from outside bytes.
#include <qrvutil/h264.h>

#include "fuzz_util.h"

namespace {

uint32_t be16(const uint8_t *p) { return uint32_t{p[0]} << 8 | p[1]; }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Unit box(data, size);
    kx_bitstream bs = box.reader();
    SPS_DECODED sps;
    PPS_DECODED pps;
    std::memset(&sps, 0xA5, sizeof sps);
    std::memset(&pps, 0xA5, sizeof pps);
    const SPS_DECODED spsBefore = sps;
    const PPS_DECODED ppsBefore = pps;
    const int result = qrvutilReadAvcc(&bs, &sps, &pps);

    // Only a zero size field is refused, and then nothing is touched. A field
    // cut short by the end of the input reads as set bits, never as zero.
    const bool zeroSize = size >= 4 && data[0] == 0 && data[1] == 0 && data[2] == 0 && data[3] == 0;
    FUZZ_CHECK(result == (zeroSize ? -1 : 0));
    if (zeroSize) {
        FUZZ_CHECK(fuzz::same(&sps, &spsBefore, sizeof sps));
        FUZZ_CHECK(fuzz::same(&pps, &ppsBefore, sizeof pps));
    }
    FUZZ_CHECK(fuzz::same(box.storage.data(), data, size));

    // The first SPS entry decodes exactly as the same bytes read on their own.
    if (!zeroSize && size >= 16 && (data[13] & 31) != 0 && 16 + be16(data + 14) <= size) {
        const uint32_t n = be16(data + 14);
        fuzz::Unit unit(data + 16, n);
        kx_bitstream r = unit.reader();
        SPS_DECODED direct{};
        qrvutilRead_SPS(&r, &direct);
        FUZZ_CHECK(fuzz::same(&sps, &direct, sizeof sps));
    }
    return 0;
}
