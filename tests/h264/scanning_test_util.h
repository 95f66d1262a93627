// Helpers shared by the scanning and real-stream tests.
#ifndef QRVUTIL_TESTS_H264_SCANNING_TEST_UTIL_H
#define QRVUTIL_TESTS_H264_SCANNING_TEST_UTIL_H

#include <qrvutil/h264.h>

#include "h264/scanning_internal.h"

#include <cstring>
#include <vector>

namespace scanning_test {

using Bytes = std::vector<uint8_t>;

inline Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Units behind 4-byte length fields, or behind 4-byte start codes.
inline Bytes framed(const std::vector<Bytes> &units, bool startCodes)
{
    Bytes out;
    for (const Bytes &u : units) {
        Bytes field(4);
        qrv::h264::writeBE32(field.data(), startCodes ? 1 : static_cast<uint32_t>(u.size()));
        out = concat({out, field, u});
    }
    return out;
}

// A reader over `bytes` whose storage has room for the read one byte past
// the end.
inline kx_bitstream readerOver(Bytes &bytes)
{
    const size_t n = bytes.size();
    bytes.reserve(n + 1);
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(bytes.data());
    bs.byte_size = n;
    bs.bit_end = n * 8;
    return bs;
}

template <typename Record, int (*Read)(kx_bitstream *, Record *)>
Record decoded(Bytes unit)
{
    kx_bitstream bs = readerOver(unit);
    Record r{};
    Read(&bs, &r);
    return r;
}
inline SPS_DECODED decodeSps(const Bytes &unit) { return decoded<SPS_DECODED, qrvutilRead_SPS>(unit); }
inline PPS_DECODED decodePps(const Bytes &unit) { return decoded<PPS_DECODED, qrvutilRead_PPS>(unit); }

template <typename Record>
bool sameRecord(const Record &a, const Record &b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

struct Walk {
    int count;
    SPS_DECODED sps;
    PPS_DECODED pps;
};

// qrvutilFindNalUnits over `bytes` (changed in place) with cleared records.
inline Walk walk(Bytes &bytes, const uint8_t *avcc = nullptr)
{
    NAL_BUFFER nb{};
    nb.data = bytes.data();
    nb.length = static_cast<uint32_t>(bytes.size());
    Walk w{};
    w.count = qrvutilFindNalUnits(&nb, &w.sps, &w.pps, avcc);
    return w;
}

// qrvutilGetAvcc into room for any box the units can give.
inline Bytes writeAvcc(Bytes units)
{
    NAL_BUFFER nb{};
    nb.data = units.data();
    nb.length = static_cast<uint32_t>(units.size());
    Bytes out(20 + 2 * units.size());
    out.resize(static_cast<size_t>(qrvutilGetAvcc(&nb, out.data())));
    return out;
}

} // namespace scanning_test

#endif
