// ADTS header reading, and writing back what was read.
#include "fuzz_aac_common.h"

namespace {

void checkRanges(const ADTS_HEADER &h)
{
    const uint32_t widths[] = {12, 1, 2, 1, 2, 4, 1, 3, 1, 1, 1, 1, 13, 11, 2, 16};
    static_assert(sizeof(ADTS_HEADER) == sizeof widths, "one width per field");
    uint32_t fields[16];
    fuzz::copy(fields, &h, sizeof fields);
    // crc_check is read only when protection_absent is set.
    const int count = h.protection_absent ? 16 : 15;
    for (int i = 0; i < count; ++i)
        FUZZ_CHECK(fields[i] < (1u << widths[i]));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::checkHeaderRoundTrip<ADTS_HEADER>(data, size, qrvutilReadADTS, qrvutilWriteADTS,
                                            checkRanges);
    return 0;
}
