// Sequence parameter set reader: one unit, NAL header byte first.
#include <qrvutil/h264.h>

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
    return 0;
}
