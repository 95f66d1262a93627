// SPS: read, write, read again.
#include "fuzz_ps_roundtrip.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::ParameterSet<SPS_DECODED> sps{qrvutilRead_SPS, qrvutilWrite_SPS,
                                              qrvutilValidate_SPS};
    fuzz::checkRoundTrip(sps, data, size, [](const fuzz::Bytes &) { return true; });
    return 0;
}
