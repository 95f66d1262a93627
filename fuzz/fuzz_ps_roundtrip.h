// Read, write, read again: the parameter-set writers emit what the readers
// accept, so a record read from outside bytes that the writer takes comes
// back field for field, and the written unit writes again to itself.
#pragma once

#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include "fuzz_util.h"

#include <algorithm>

namespace fuzz {

template <typename Record>
struct ParameterSet {
    int (*read)(kx_bitstream *, Record *);
    int (*write)(kx_bitstream *, const Record *);
    int (*validate)(const uint8_t *, uint32_t, char *, uint32_t);
};

// The readers unescape 00 00 03 only where it begins at byte 3 or later
// (kept: recorded units depend on it), so a unit whose escape the writer put
// earlier, which only a profile or id field of 0 gives, does not read back.
inline bool escapedEarly(const Bytes &unit)
{
    for (size_t i = 0; i < 3 && i + 2 < unit.size(); ++i)
        if (unit[i] == 0 && unit[i + 1] == 0 && unit[i + 2] == 3)
            return true;
    return false;
}

template <typename Record>
Record readUnit(const ParameterSet<Record> &ps, const uint8_t *data, size_t size)
{
    Record r;
    std::memset(&r, 0, sizeof r);
    Unit unit(data, size);
    kx_bitstream bs = unit.reader();
    ps.read(&bs, &r);
    return r;
}

// Writes `record` into a block of exactly the size the writer asks for, and
// checks that one byte less is refused without a byte written.
template <typename Record>
Bytes writeUnit(const ParameterSet<Record> &ps, const Record &record, int *status)
{
    kx_bitstream query{};
    const int needed = ps.write(&query, &record);
    *status = needed;
    if (needed < 0) {
        FUZZ_CHECK(needed == QRV_E_RANGE);
        return {};
    }
    FUZZ_CHECK(needed >= 2);
    Bytes unit(static_cast<size_t>(needed), 0xEE);
    kx_bitstream bs{reinterpret_cast<uintptr_t>(unit.data()), unit.size() - 1,
                    (unit.size() - 1) * 8, 0};
    FUZZ_CHECK(ps.write(&bs, &record) == QRV_E_ROOM);
    FUZZ_CHECK(std::all_of(unit.begin(), unit.end(), [](uint8_t b) { return b == 0xEE; }));
    bs = kx_bitstream{reinterpret_cast<uintptr_t>(unit.data()), unit.size(), unit.size() * 8, 0};
    FUZZ_CHECK(ps.write(&bs, &record) == needed);
    FUZZ_CHECK(bs.bit_pos == unit.size() * 8);
    return unit;
}

// Validation answers with a known status and a terminated reason that fits.
template <typename Record>
int validate(const ParameterSet<Record> &ps, const uint8_t *data, size_t size)
{
    char reason[48];
    std::memset(reason, 'x', sizeof reason);
    const int status = ps.validate(data, static_cast<uint32_t>(size), reason, sizeof reason);
    FUZZ_CHECK(status == 0 || status == QRV_E_TRUNCATED || status == QRV_E_RANGE ||
               status == QRV_E_SYNTAX || status == QRV_E_UNSUPPORTED);
    FUZZ_CHECK(std::memchr(reason, 0, sizeof reason) != nullptr);
    return status;
}

// Byte patterns that never stand inside a well-formed unit: 00 00 00,
// 00 00 01 and 00 00 02, and an escape 00 00 03 followed by a byte above 03.
inline bool malformedEscaping(const uint8_t *data, size_t size)
{
    for (size_t i = 0; i + 2 < size; ++i) {
        if (data[i] != 0 || data[i + 1] != 0)
            continue;
        if (data[i + 2] <= 2 || (data[i + 2] == 3 && i + 3 < size && data[i + 3] > 3))
            return true;
    }
    return false;
}

// `comparable` says whether the written unit reads back exactly (the PPS
// reader drops a 0C after 00 00 that its writer escaped).
template <typename Record>
void checkRoundTrip(const ParameterSet<Record> &ps, const uint8_t *data, size_t size,
                    bool (*comparable)(const Bytes &))
{
    const bool valid = validate(ps, data, size) == 0 && !malformedEscaping(data, size);
    Record first = readUnit(ps, data, size);
    int status = 0;
    const Bytes unit = writeUnit(ps, first, &status);
    // A unit the strict check passes has a record the writer takes.
    if (valid)
        FUZZ_CHECK(status > 0);
    if (status < 0)
        return;
    if (escapedEarly(unit))
        return;
    FUZZ_CHECK(validate(ps, unit.data(), unit.size()) == 0 || !valid);
    if (!comparable(unit))
        return;

    Record second = readUnit(ps, unit.data(), unit.size());
    // The stop bit is the writer's own, whatever the input held there.
    first.rbsp_stop_one_bit = second.rbsp_stop_one_bit;
    FUZZ_CHECK(same(&first, &second, sizeof first));
    int again = 0;
    FUZZ_CHECK(writeUnit(ps, second, &again) == unit);
}

} // namespace fuzz
