#include <qrvutil/host.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

namespace {

std::string tc(unsigned frames, unsigned flags)
{
    char text[16];
    std::memset(text, 'x', sizeof text);
    const int length = tcToString(frames, flags, text);
    EXPECT_EQ(static_cast<size_t>(length), std::strlen(text));
    return text;
}

TEST(Timecode, MatchesReferenceTexts)
{
    struct Case {
        unsigned type;
        unsigned frames;
        const char *text;
    };
    const Case cases[] = {
        {4, 0, "00:00:00;00"},       {4, 1799, "00:00:59;29"},     {4, 1800, "00:01:00;02"},
        {4, 3597, "00:01:59;29"},    {4, 3598, "00:02:00;02"},     {4, 17981, "00:09:59;29"},
        {4, 17982, "00:10:00;00"},   {4, 107892, "01:00:00;00"},   {4, 2589407, "23:59:59;29"},
        {32, 3599, "00:00:59;59"},   {32, 3600, "00:01:00;04"},    {32, 35964, "00:10:00;00"},
        {32, 215784, "01:00:00;00"}, {2, 108000, "01:00:00:00"},   {1, 86399, "00:59:59:23"},
        {8, 90024, "01:00:00:24"},   {16, 180049, "01:00:00:49"},  {64, 216059, "01:00:00:59"},
        {128, 24, "00:00:01:00"},    {132, 2073600, "24:00:00:00"}, {0, 123456, "123456"},
        {3, 42, "42"},               {1, 0xFFFFFFFFu, "49710:16:10:15"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(tc(c.frames, c.type), c.text) << "type " << c.type << " frames " << c.frames;
    // The form bits the library passes choose nothing; 0xB2140 is 60 fps.
    EXPECT_EQ(tc(1800, 0x32100 | 4), "00:01:00;02");
    EXPECT_EQ(tc(1800, 0x10100 | 4), "00:01:00;02");
    EXPECT_EQ(tc(216000, 0xB2140), "01:00:00:00");
    EXPECT_EQ(tc(77, 0x10102), "00:00:02:17");
}

TEST(Timecode, EveryTypeRoundTripsWithinFifteenCharacters)
{
    const unsigned types[] = {0, 1, 2, 3, 4, 8, 16, 32, 64, 128, 132, 255};
    const unsigned counts[] = {0,      1,      2,          3,          1798,       1799,
                               1800,   1801,   17981,      17982,      107891,     107892,
                               215783, 215784, 0x7FFFFFFF, 0xFFFFFFFD, 0xFFFFFFFE, 0xFFFFFFFF};
    for (unsigned type : types) {
        for (unsigned frames : counts) {
            const std::string text = tc(frames, type | 0x32100);
            EXPECT_LE(text.size(), 15u);
            unsigned back = 0;
            ASSERT_EQ(tcToFrame(text.c_str(), type | 0x100, &back), 0) << text;
            EXPECT_EQ(back, frames) << "type " << type << " " << text;
        }
    }
    // Every frame across the first ten-minute cycles of both drop rates.
    for (unsigned type : {4u, 32u}) {
        for (unsigned frames = 0; frames < 80000; ++frames) {
            unsigned back = 0;
            ASSERT_EQ(tcToFrame(tc(frames, type).c_str(), type, &back), 0);
            ASSERT_EQ(back, frames) << tc(frames, type);
        }
    }
}

TEST(Timecode, ReadsShortFormsAndRefusesBadText)
{
    struct Case {
        const char *text;
        unsigned type;
        unsigned frames;
    };
    const Case good[] = {
        {"00:00:01:05", 2, 35},  {"01:05", 2, 35},       {"1.5", 8, 30},
        {"02:00;02", 4, 3598},   {"10:00:00", 4, 17982}, {"01:00:00:00", 4, 107892},
        {"01;00;00;00", 4, 107892}, {"1800", 4, 1800},   {" 7 ", 0, 7},
        {"90:00", 1, 2160},      {"4294967295", 0, 0xFFFFFFFF},
    };
    for (const Case &c : good) {
        unsigned frames = 0;
        EXPECT_EQ(tcToFrame(c.text, c.type, &frames), 0) << c.text;
        EXPECT_EQ(frames, c.frames) << c.text;
    }
    const Case bad[] = {
        {"", 2, 0},          {"ab", 2, 0},          {"1::2", 2, 0},        {"1:2:3:4:5", 2, 0},
        {"00:60:00:00", 2, 0}, {"00:00:60:00", 2, 0}, {"00:00:00:30", 2, 0}, {"00:01:00;01", 4, 0},
        {"00:01:00;03", 32, 0}, {"1:02", 0, 0},       {"4294967296", 0, 0},  {"49710:16:10:16", 1, 0},
        {"12 34", 2, 0},     {"1:", 2, 0},
    };
    for (const Case &c : bad) {
        unsigned frames = 1234;
        EXPECT_EQ(tcToFrame(c.text, c.type, &frames), -1) << c.text;
        EXPECT_EQ(frames, 1234u) << c.text;
    }
}

TEST(IntToString, EveryRadixWithSign)
{
    struct Case {
        int value;
        int radix;
        const char *text;
    };
    const Case cases[] = {
        {0, 10, "0"}, {-1, 10, "-1"}, {INT_MAX, 10, "2147483647"}, {INT_MIN, 10, "-2147483648"},
        {INT_MIN, 2, "-10000000000000000000000000000000"}, {-255, 16, "-ff"}, {35, 36, "z"},
        {100, 25, "40"}, {-7, 3, "-21"}, {5, 1, ""}, {5, 37, ""},
    };
    for (const Case &c : cases) {
        // Exactly the size the header promises suffices.
        char buffer[34];
        EXPECT_EQ(intToString(c.value, buffer, c.radix), buffer);
        EXPECT_STREQ(buffer, c.text) << c.value << " radix " << c.radix;
    }
}

}  // namespace
