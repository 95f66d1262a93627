#include "access_units.h"

namespace qrvtool {

namespace {

void appendUnit(AccessUnit &au, const NalUnit &unit)
{
    static constexpr uint8_t kStartCode[4] = {0, 0, 0, 1};
    if (unit.framing == 0) {
        uint8_t length[4];
        putBigEndian32(length, unit.size);
        au.bytes.insert(au.bytes.end(), length, length + 4);
    } else {
        // Every unit gets a 4-byte code: the converter then never has to widen
        // a 3-byte one by moving the rest of the access unit.
        au.bytes.insert(au.bytes.end(), kStartCode, kStartCode + 4);
    }
    NalUnit kept = unit;
    kept.data = nullptr; // set once the buffer stops moving
    kept.offset = au.bytes.size();
    au.units.push_back(kept);
    au.bytes.insert(au.bytes.end(), unit.data, unit.data + unit.size);
    if (unit.type() == 5)
        au.hasIdr = true;
}

void pointUnitsIntoBuffer(AccessUnit &au)
{
    for (NalUnit &unit : au.units)
        unit.data = au.bytes.data() + unit.offset;
}

void checkLastSlices(AccessUnit &au, ParameterSets &sets, uint64_t fileOffset)
{
    SLICE_HEADER header{};
    for (NalUnit unit : au.units) {
        if (!unit.isSlice())
            continue;
        unit.offset = fileOffset + unit.offset - 4;
        sets.readSlice(unit, header);
    }
}

} // namespace

void forEachAccessUnit(UnitReader &reader, ParameterSets *sets,
                       const std::function<void(AccessUnit &)> &handle)
{
    AccessUnitTracker tracker;
    AccessUnit au;
    NalUnit unit;
    while (reader.next(unit)) {
        if (tracker.opensAccessUnit(unit) && !au.bytes.empty()) {
            pointUnitsIntoBuffer(au);
            handle(au);
            au.bytes.clear();
            au.units.clear();
            au.hasIdr = false;
        }
        if (au.bytes.empty())
            au.offset = unit.offset;
        if (sets && unit.type() == 7)
            sets->addSps(unit);
        if (sets && unit.type() == 8)
            sets->addPps(unit);
        appendUnit(au, unit);
    }
    if (au.bytes.empty())
        return;
    pointUnitsIntoBuffer(au);
    if (sets)
        checkLastSlices(au, *sets, au.offset);
    handle(au);
}

} // namespace qrvtool
