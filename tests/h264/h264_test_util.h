// Builders and readers shared by the H.264 tests.
#pragma once

#include <gtest/gtest.h>
#include <qrvutil/h264.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "h264/scanning_internal.h"

using Bytes = std::vector<uint8_t>;

// Writes crafted fields with the library's own writer.
class Bits {
  public:
    Bits &u(int n, uint32_t v)
    {
        WriteBits(at(), n, v);
        return *this;
    }
    Bits &ue(uint32_t v)
    {
        WriteExponentialGolombCode(at(), int32_t(v));
        return *this;
    }
    // The standard se(v) mapping (the library's signed writer has its own).
    Bits &se(int32_t v) { return ue(v <= 0 ? uint32_t(-2 * int64_t(v)) : uint32_t(2 * v - 1)); }
    Bits &stop() // rbsp_stop_one_bit and zero alignment
    {
        for (u(1, 1); bs_.bit_pos % 8;)
            u(1, 0);
        return *this;
    }
    uintptr_t bitPos() const { return bs_.bit_pos; }
    Bytes bytes() const { return {buf_.begin(), buf_.begin() + (bs_.bit_pos + 7) / 8}; }

  private:
    kx_bitstream *at() // the buffer is pointed at afresh, so that copies write their own
    {
        bs_.buffer = uintptr_t(buf_.data());
        return &bs_;
    }
    Bytes buf_ = Bytes(4096, 0);
    kx_bitstream bs_{0, 4096, 4096 * 8, 0};
};

// A unit followed by the one readable byte that every reader may touch.
struct Unit {
    explicit Unit(Bytes b) : size(b.size()), storage(std::move(b)) { storage.push_back(0); }
    kx_bitstream reader() { return {uintptr_t(storage.data()), size, size * 8, 0}; }
    size_t size;
    Bytes storage;
};

template <typename Record>
Record decode(int (*read)(kx_bitstream *, Record *), const Bytes &bytes, int *consumed = nullptr)
{
    Record r{};
    Unit unit(bytes);
    kx_bitstream bs = unit.reader();
    const int n = read(&bs, &r);
    if (consumed)
        *consumed = n;
    EXPECT_EQ(bs.buffer, uintptr_t(unit.storage.data()));
    return r;
}
inline SPS_DECODED decodeSps(const Bytes &unit) { return decode(qrvutilRead_SPS, unit); }
inline PPS_DECODED decodePps(const Bytes &unit) { return decode(qrvutilRead_PPS, unit); }

template <typename Record>
bool sameRecord(const Record &a, const Record &b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

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
        qrv::h264::writeBE32(field.data(), startCodes ? 1 : uint32_t(u.size()));
        out = concat({out, field, u});
    }
    return out;
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
    nb.length = uint32_t(bytes.size());
    Walk w{};
    w.count = qrvutilFindNalUnits(&nb, &w.sps, &w.pps, avcc);
    return w;
}

// qrvutilGetAvcc into room for any box the units can give.
inline Bytes writeAvcc(Bytes units)
{
    NAL_BUFFER nb{};
    nb.data = units.data();
    nb.length = uint32_t(units.size());
    Bytes out(20 + 2 * units.size());
    out.resize(size_t(qrvutilGetAvcc(&nb, out.data())));
    return out;
}

// qrvutilReadAvcc into records filled with a pattern, so that untouched ones
// show.
struct AvccRead {
    SPS_DECODED sps;
    PPS_DECODED pps;
    int result;
    explicit AvccRead(const Bytes &box)
    {
        std::memset(this, 0x5A, sizeof *this);
        Unit unit(box);
        kx_bitstream bs = unit.reader();
        result = qrvutilReadAvcc(&bs, &sps, &pps);
    }
};
template <typename Record>
inline bool untouched(const Record &r)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(&r);
    return std::all_of(bytes, bytes + sizeof r, [](uint8_t b) { return b == 0x5A; });
}
