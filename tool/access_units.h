// Gathers a stream's units access unit by access unit into one buffer, in
// the stream's own framing (start codes all 4 bytes long), for the library's
// whole-frame calls.
#ifndef QRVTOOL_ACCESS_UNITS_H
#define QRVTOOL_ACCESS_UNITS_H

#include "h264_stream.h"
#include "unit_stream.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace qrvtool {

struct AccessUnit {
    std::vector<uint8_t> bytes; // units with 4-byte start codes, or 4-byte lengths
    uint64_t offset = 0;        // file offset of the first unit
    bool hasIdr = false;
    std::vector<NalUnit> units; // each unit, its data pointing into `bytes`
};

// Calls `handle` with each access unit of `reader`, in order. The buffer
// is reused; the handler may change it. Parameter sets go to `sets` (when
// not null); the slices of the last access unit are decoded there too, since
// a cut file shows in its last slice (InputError).
void forEachAccessUnit(UnitReader &reader, ParameterSets *sets,
                       const std::function<void(AccessUnit &)> &handle);

} // namespace qrvtool

#endif
