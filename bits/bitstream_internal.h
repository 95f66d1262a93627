// Bit reader internals shared by the H.264 and AAC header code (bits/ is the
// layer both build on).
//
// The readers here are the ones the exported ReadBit/ReadBits/... wrap; the
// parameter-set and slice-header readers call them directly so that they
// inline. They behave exactly as the exported functions.
#pragma once

#include <qrvutil/bitstream.h>

#include <cstddef>
#include <cstdint>

// A read at bit_pos == bit_end reads bit 7 of the byte at bit_end / 8, which
// for a whole-byte buffer is the byte just after the data. Readers in peer
// programs behave the same way, so the result is kept; every private copy the
// library reads from carries this many readable bytes after its data.
constexpr std::size_t kBitReaderPadding = 1;

// Bit at bit_pos + n, or 1 from bit_end on (a missing stop bit reads as set).
int PeekBit(kx_bitstream *bs, int32_t n);
// 1 when bit_pos has reached bit_end.
int IsEndOfStream(kx_bitstream *bs);
// Overwrites one bit with b & 1; no room check.
void WriteBit(kx_bitstream *bs, int b);
// Ceiling of log2 for x >= 1; 0 for x <= 1.
int intlog2(int32_t x);

namespace qrv {

// Bits needed for 1..255 (entry 0 counts as one bit), for Exp-Golomb lengths.
struct LenTable {
    int32_t entry[256];
};
constexpr LenTable makeLenTable()
{
    LenTable t{};
    t.entry[0] = 1;
    for (int i = 1; i < 256; ++i) {
        int bits = 0;
        for (int v = i; v != 0; v >>= 1)
            ++bits;
        t.entry[i] = bits;
    }
    return t;
}
inline constexpr LenTable len_table_mini = makeLenTable();

inline const uint8_t *bytesOf(const kx_bitstream *bs)
{
    return reinterpret_cast<const uint8_t *>(bs->buffer);
}

inline int bitAt(const kx_bitstream *bs, uintptr_t pos)
{
    return (bytesOf(bs)[pos >> 3] >> (7 - (pos & 7))) & 1;
}

// Reads up to and including bit_end itself (see kBitReaderPadding); past that
// every read answers -1 and still advances, so callers detect truncation by
// comparing bit_pos with bit_end afterwards.
inline int readBit(kx_bitstream *bs)
{
    const uintptr_t pos = bs->bit_pos++;
    return pos <= bs->bit_end ? bitAt(bs, pos) : -1;
}

// MSB first; a past-end bit (-1) sets every bit from its place upward.
// Counts above 32 wrap their shifts modulo 32.
inline uint32_t readBitCount(kx_bitstream *bs, uint32_t n)
{
    uint32_t value = 0;
    for (uint32_t i = n; i-- > 0;) {
        if (bs->bit_pos > bs->bit_end) {
            // Every remaining bit is -1 and the last lands at shift 0, so the
            // result is all ones; only the position still has to move.
            bs->bit_pos += static_cast<uintptr_t>(i) + 1;
            return 0xFFFFFFFFu;
        }
        value |= static_cast<uint32_t>(readBit(bs)) << (i & 31);
    }
    return value;
}

inline uint32_t readBits(kx_bitstream *bs, int32_t n)
{
    return n < 1 ? 0 : readBitCount(bs, static_cast<uint32_t>(n));
}

// No limit on the zero run but the buffer end; runs of 32 or more wrap.
inline uint32_t readUe(kx_bitstream *bs)
{
    uint32_t zeros = 0;
    bool found = false;
    while (bs->bit_pos <= bs->bit_end) {
        if (readBit(bs) == 1) {
            found = true;
            break;
        }
        ++zeros;
    }
    if (!found)
        ++bs->bit_pos; // the missing leading 1 counts as consumed
    if (zeros == 0)
        return 0;
    const uint32_t info = readBitCount(bs, zeros);
    return (1u << (zeros & 31)) + info - 1u;
}

// Odd codes are positive, even codes negative; the sum wraps in 32 bits.
inline int32_t readSe(kx_bitstream *bs)
{
    const uint32_t code = readUe(bs);
    if (code & 1u)
        return static_cast<int32_t>((code + 1u) / 2u);
    return -static_cast<int32_t>(code / 2u);
}

inline int32_t readFlag(kx_bitstream *bs) { return static_cast<int32_t>(readBits(bs, 1)); }

inline int32_t readU(kx_bitstream *bs, int32_t n) { return static_cast<int32_t>(readBits(bs, n)); }

inline int32_t readUeField(kx_bitstream *bs) { return static_cast<int32_t>(readUe(bs)); }

// Ceil(Log2(n)): 0 for n of 0 or 1. The one ceil-log2 of the library
// (intlog2 is this over signed values).
constexpr int32_t ceilLog2(uint64_t n)
{
    int32_t bits = 0;
    while (bits < 64 && (uint64_t{1} << bits) < n)
        ++bits;
    return bits;
}

inline bool pastEnd(const kx_bitstream *bs) { return bs->bit_pos > bs->bit_end; }

inline void alignToByte(kx_bitstream *bs)
{
    bs->bit_pos = (bs->bit_pos + 7) & ~static_cast<uintptr_t>(7);
}

} // namespace qrv
