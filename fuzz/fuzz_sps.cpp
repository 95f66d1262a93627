// Sequence parameter set reader: one unit, NAL header byte first.
#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include "fuzz_util.h"

namespace {

// Reads the unit as a host would: a cleared record, a reader over the unit.
int readSps(fuzz::Unit &unit, SPS_DECODED *sps, kx_bitstream *bs)
{
    std::memset(sps, 0, sizeof *sps);
    *bs = unit.reader();
    return qrvutilRead_SPS(bs, sps);
}

bool highProfile(int32_t profile)
{
    for (int32_t p : {83, 86, 100, 110, 118, 122, 128, 244, 44})
        if (p == profile)
            return true;
    return false;
}

// Whatever the reader made, the geometry is described or refused whole:
// a refusal writes nothing, a description is self-consistent.
void checkGeometry(const SPS_DECODED &sps)
{
    QRV_H264_GEOMETRY g, untouched;
    std::memset(&g, 0x5A, sizeof g);
    untouched = g;
    const int status = qrvutilGetGeometry(&sps, &g);
    if (status != QRV_OK) {
        FUZZ_CHECK(status == QRV_E_UNSUPPORTED || status == QRV_E_RANGE);
        FUZZ_CHECK(fuzz::same(&g, &untouched, sizeof g));
        return;
    }
    FUZZ_CHECK(g.coded_width % 16 == 0 && g.coded_height % 16 == 0);
    FUZZ_CHECK(g.width <= g.coded_width && g.height <= g.coded_height);
    FUZZ_CHECK(g.crop_left <= g.coded_width - g.width && g.crop_top <= g.coded_height - g.height);
    FUZZ_CHECK(g.chroma_format_idc <= 3);
    FUZZ_CHECK(g.bit_depth_luma >= 8 && g.bit_depth_luma <= 14);
    FUZZ_CHECK(g.bit_depth_chroma >= 8 && g.bit_depth_chroma <= 14);
    FUZZ_CHECK((g.sar_num == 0) == (g.sar_den == 0));
    FUZZ_CHECK((g.fps_num == 0) == (g.fps_den == 0));
    FUZZ_CHECK(std::memchr(g.profile_name, 0, sizeof g.profile_name) != nullptr);
    FUZZ_CHECK(std::memchr(g.level_text, 0, sizeof g.level_text) != nullptr);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Unit unit(data, size);
    SPS_DECODED first, second;
    kx_bitstream bs;
    int consumed = readSps(unit, &first, &bs);

    // The caller's bytes are read through a private copy and stay as given.
    FUZZ_CHECK(size == 0 || fuzz::same(unit.storage.data(), data, size));
    FUZZ_CHECK(bs.buffer == reinterpret_cast<uintptr_t>(unit.storage.data()));
    if (size == 0) {
        FUZZ_CHECK(consumed == 0);
        return 0;
    }
    FUZZ_CHECK(bs.bit_pos % 8 == 0);
    FUZZ_CHECK(consumed == static_cast<int>(bs.bit_pos / 8));
    FUZZ_CHECK(first.nal_unit_type == (data[0] & 31));

    // Fields that other profiles never read have fixed values.
    if (!highProfile(first.profile_idc)) {
        FUZZ_CHECK(first.chroma_format_idc == 1);
        FUZZ_CHECK(first.bit_depth_luma_minus8 == 8 && first.bit_depth_chroma_minus8 == 8);
        FUZZ_CHECK(first.seq_scaling_matrix_present_flag == 0);
    }

    // Nothing outside the record and the unit influences the result.
    FUZZ_CHECK(readSps(unit, &second, &bs) == consumed);
    FUZZ_CHECK(fuzz::same(&first, &second, sizeof first));
    checkGeometry(first);
    return 0;
}
