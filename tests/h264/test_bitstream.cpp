#include <gtest/gtest.h>

#include <string>

#include "h264/bitstream_internal.h"
#include "test_units.h"

namespace {

struct Writer {
    std::vector<uint8_t> buf = std::vector<uint8_t>(32, 0);
    kx_bitstream bs{reinterpret_cast<uintptr_t>(buf.data()), 32, 256, 0};
    std::string bits() const // written so far, as '0'/'1'
    {
        std::string s;
        for (uintptr_t i = 0; i < bs.bit_pos; ++i)
            s += ((buf[i / 8] >> (7 - i % 8)) & 1) ? '1' : '0';
        return s;
    }
};

TEST(BitReader, ReadsUpToAndIncludingBitEndThenAnswersMinusOne)
{
    Unit one({0xA5}, 0x80);
    kx_bitstream bs = one.reader();
    const int expected[] = {1, 0, 1, 0, 0, 1, 0, 1};
    for (int bit : expected)
        EXPECT_EQ(ReadBit(&bs), bit);
    EXPECT_EQ(ReadBit(&bs), 1); // bit 7 of the byte after the buffer
    EXPECT_EQ(ReadBit(&bs), -1);
    EXPECT_EQ(bs.bit_pos, 10u);
    EXPECT_EQ(IsEndOfStream(&bs), 1);

    bs.bit_pos = 4;
    EXPECT_EQ(PeekBit(&bs, 2), 0);
    EXPECT_EQ(PeekBit(&bs, 4), 1); // at bit_end: answered, not read
    EXPECT_EQ(ReadBits(&bs, 0), 0u);
    EXPECT_EQ(bs.bit_pos, 4u);
    // 0101, the padding bit, then three past-end bits: the last sets them all.
    EXPECT_EQ(ReadBits(&bs, 8), 0xFFFFFFFFu);
    EXPECT_EQ(bs.bit_pos, 12u);
}

TEST(BitReader, CountsAboveThirtyTwoWrapTheirShifts)
{
    Unit five({0x01, 0x00, 0x00, 0x00, 0x40});
    kx_bitstream bs = five.reader();
    // Bit 7 is the 33rd from the right: shift 32 mod 32 = 0. Bit 33: shift 6.
    EXPECT_EQ(ReadBits(&bs, 40), 1u | (1u << 6));
    EXPECT_EQ(bs.bit_pos, 40u);
    // Far past the end the value is all ones and the position still grows.
    EXPECT_EQ(ReadBits(&bs, 0x7FFFFFFF), 0xFFFFFFFFu);
    EXPECT_EQ(bs.bit_pos, 40u + 0x7FFFFFFFu);
}

TEST(BitReader, ExpGolombCodes)
{
    // 1 | 010 | 011 | 00100 | 010 | 011 | 00100
    Unit codes({0xA6, 0x44, 0xC8});
    kx_bitstream bs = codes.reader();
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 0u);
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 1u);
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 2u);
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 3u);
    EXPECT_EQ(ReadExponentialGolombCodeSigned(&bs), 1);
    EXPECT_EQ(ReadExponentialGolombCodeSigned(&bs), -1);
    EXPECT_EQ(ReadExponentialGolombCodeSigned(&bs), 2);

    // Nine zeros (the ninth from the byte after), the missing 1, then nine
    // past-end bits: (1 << 9) + 0xFFFFFFFF - 1.
    Unit zero({0x00}, 0x00);
    bs = zero.reader();
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 510u);
    EXPECT_EQ(bs.bit_pos, 19u);
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 0u); // already past the end
    EXPECT_EQ(bs.bit_pos, 20u);
}

TEST(BitWriter, WritesTheLibrarysCodes)
{
    Writer w;
    WriteExponentialGolombCode(&w.bs, 0);
    EXPECT_EQ(w.bits(), "1");
    w.bs.bit_pos = 0;
    WriteExponentialGolombCode(&w.bs, 254);
    EXPECT_EQ(w.bits(), "0000000" "11111111");
    w.bs.bit_pos = 0;
    WriteExponentialGolombCode(&w.bs, 0xFFFFFF); // top tier: 48 where 24 is due
    EXPECT_EQ(w.bits(), std::string(65, '0') + "0000000" "1" + std::string(24, '0'));

    const std::pair<int32_t, const char *> signedCodes[] = {{-1, "011"}, {0, "011"}, {1, "00101"},
                                                            {-2, "00101"}};
    for (const auto &c : signedCodes) {
        w.bs.bit_pos = 0;
        WriteExponentialGolombCodeSigned(&w.bs, c.first);
        EXPECT_EQ(w.bits(), c.second) << c.first;
    }

    w.buf[0] = 0xFF;
    w.bs.bit_pos = 3;
    WriteBit(&w.bs, 0);
    EXPECT_EQ(w.buf[0], 0xEF);
    WriteBits(&w.bs, 4, 0x5); // overwrites bits 4..7 only
    EXPECT_EQ(w.buf[0], 0xE5);

    EXPECT_EQ(LengthExponentialGolombCode(0), 1);
    EXPECT_EQ(LengthExponentialGolombCode(1), 3);
    EXPECT_EQ(LengthExponentialGolombCode(127), 15);
    EXPECT_EQ(LengthExponentialGolombCode(128), 16);

    const std::pair<int32_t, int> logs[] = {{-5, 0}, {1, 0}, {2, 1}, {3, 2}, {5, 3}, {8, 3}, {9, 4}};
    for (const auto &l : logs)
        EXPECT_EQ(intlog2(l.first), l.second) << l.first;
}

TEST(BitWriter, UnsignedCodesReadBackBelowTheTopTier)
{
    std::vector<uint8_t> buf(64, 0xFF); // the writer must not rely on zeroed room
    kx_bitstream bs{reinterpret_cast<uintptr_t>(buf.data()), 60, 480, 0};
    for (uint32_t v : {0u, 1u, 2u, 126u, 127u, 128u, 254u, 255u, 256u, 0xFFFEu, 0xFFFFu, 0xFFFFFEu}) {
        bs.bit_pos = 0;
        WriteExponentialGolombCode(&bs, static_cast<int32_t>(v));
        const uintptr_t length = bs.bit_pos;
        bs.bit_pos = 0;
        EXPECT_EQ(ReadExponentialGolombCode(&bs), v);
        EXPECT_EQ(bs.bit_pos, length) << v;
    }
}

} // namespace
