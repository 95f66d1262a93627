// Picture parameter set reader: one unit, NAL header byte first.
#include <qrvutil/h264.h>

#include "fuzz_util.h"

namespace {

int readPps(fuzz::Unit &unit, PPS_DECODED *pps, kx_bitstream *bs)
{
    std::memset(pps, 0, sizeof *pps);
    *bs = unit.reader();
    return qrvutilRead_PPS(bs, pps);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Unit unit(data, size);
    PPS_DECODED first, second;
    kx_bitstream bs;
    int consumed = readPps(unit, &first, &bs);

    FUZZ_CHECK(size == 0 || fuzz::same(unit.storage.data(), data, size));
    FUZZ_CHECK(bs.buffer == reinterpret_cast<uintptr_t>(unit.storage.data()));
    FUZZ_CHECK(bs.bit_pos % 8 == 0);
    FUZZ_CHECK(consumed == static_cast<int>(bs.bit_pos / 8));

    // The look-ahead decides the optional tail; without it the tail's fields
    // stay cleared. Only the first two 8x8 lists are ever filled.
    FUZZ_CHECK(first.more_rbsp_data == 0 || first.more_rbsp_data == 1);
    if (first.more_rbsp_data == 0)
        FUZZ_CHECK(first.transform_8x8_mode_flag == 0 &&
                   first.pic_scaling_matrix_present_flag == 0 &&
                   first.second_chroma_qp_index_offset == 0);
    for (int list = 2; list < 6; ++list)
        for (int i = 0; i < 64; ++i)
            FUZZ_CHECK(first.ScalingList8x8[list][i] == 0);

    FUZZ_CHECK(readPps(unit, &second, &bs) == consumed);
    FUZZ_CHECK(fuzz::same(&first, &second, sizeof first));
    return 0;
}
