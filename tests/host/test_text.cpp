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

/* A frame count and its text under a timecode type (the flags word). */
struct TimecodeCase {
    unsigned type;
    unsigned frames;
    const char *text;
};

TEST(Timecode, MatchesReferenceTexts)
{
    // The form bits above the low byte choose nothing; 0xB2140 is 60 fps.
    const TimecodeCase cases[] = {
        {4, 0, "00:00:00;00"},
        {4, 1799, "00:00:59;29"},
        {4, 1800, "00:01:00;02"},
        {4, 3597, "00:01:59;29"},
        {4, 3598, "00:02:00;02"},
        {4, 17981, "00:09:59;29"},
        {4, 17982, "00:10:00;00"},
        {4, 107892, "01:00:00;00"},
        {4, 2589407, "23:59:59;29"},
        {32, 3599, "00:00:59;59"},
        {32, 3600, "00:01:00;04"},
        {32, 35964, "00:10:00;00"},
        {32, 215784, "01:00:00;00"},
        {2, 108000, "01:00:00:00"},
        {1, 86399, "00:59:59:23"},
        {8, 90024, "01:00:00:24"},
        {16, 180049, "01:00:00:49"},
        {64, 216059, "01:00:00:59"},
        {128, 24, "00:00:01:00"},
        {132, 2073600, "24:00:00:00"},
        {0, 123456, "123456"},
        {3, 42, "42"},
        {1, 0xFFFFFFFFu, "49710:16:10:15"},
        {0x32104, 1800, "00:01:00;02"},
        {0x10104, 1800, "00:01:00;02"},
        {0xB2140, 216000, "01:00:00:00"},
        {0x10102, 77, "00:00:02:17"},
    };
    for (const TimecodeCase &c : cases)
        EXPECT_EQ(tc(c.frames, c.type), c.text) << "type " << c.type << " frames " << c.frames;
}

TEST(Timecode, EveryTypeRoundTripsWithinFifteenCharacters)
{
    const unsigned counts[] = {0,      1,      2,          3,          1798,       1799,
                               1800,   1801,   17981,      17982,      107891,     107892,
                               215783, 215784, 0x7FFFFFFF, 0xFFFFFFFD, 0xFFFFFFFE, 0xFFFFFFFF};
    for (unsigned type : {0u, 1u, 2u, 3u, 4u, 8u, 16u, 32u, 64u, 128u, 132u, 255u})
        for (unsigned frames : counts) {
            const std::string text = tc(frames, type | 0x32100);
            EXPECT_LE(text.size(), 15u);
            unsigned back = 0;
            ASSERT_EQ(tcToFrame(text.c_str(), type | 0x100, &back), 0) << text;
            EXPECT_EQ(back, frames) << "type " << type << " " << text;
        }
    // Every frame across the first ten-minute cycles of both drop rates.
    for (unsigned type : {4u, 32u})
        for (unsigned frames = 0; frames < 80000; ++frames) {
            unsigned back = 0;
            ASSERT_EQ(tcToFrame(tc(frames, type).c_str(), type, &back), 0);
            ASSERT_EQ(back, frames) << tc(frames, type);
        }
}

TEST(Timecode, ReadsShortFormsAndRefusesBadText)
{
    const TimecodeCase good[] = {
        {2, 35, "00:00:01:05"},
        {2, 35, "01:05"},
        {8, 30, "1.5"},
        {4, 3598, "02:00;02"},
        {4, 17982, "10:00:00"},
        {4, 107892, "01:00:00:00"},
        {4, 107892, "01;00;00;00"},
        {4, 1800, "1800"},
        {0, 7, " 7 "},
        {1, 2160, "90:00"},
        {0, 0xFFFFFFFF, "4294967295"},
    };
    for (const TimecodeCase &c : good) {
        unsigned frames = 0;
        EXPECT_EQ(tcToFrame(c.text, c.type, &frames), 0) << c.text;
        EXPECT_EQ(frames, c.frames) << c.text;
    }
    const TimecodeCase bad[] = {
        {2, 0, ""},
        {2, 0, "ab"},
        {2, 0, "1::2"},
        {2, 0, "1:2:3:4:5"},
        {2, 0, "00:60:00:00"},
        {2, 0, "00:00:60:00"},
        {2, 0, "00:00:00:30"},
        {4, 0, "00:01:00;01"},
        {2, 0, "1:"},
        {32, 0, "00:01:00;03"},
        {0, 0, "1:02"},
        {0, 0, "4294967296"},
        {2, 0, "12 34"},
        {1, 0, "49710:16:10:16"},
    };
    for (const TimecodeCase &c : bad) {
        unsigned frames = 1234;
        EXPECT_EQ(tcToFrame(c.text, c.type, &frames), -1) << c.text;
        EXPECT_EQ(frames, 1234u) << c.text;
    }
}

TEST(IntToString, EveryRadixWithSign)
{
    const struct {
        int value, radix;
        const char *text;
    } cases[] = {
        {0, 10, "0"},
        {-1, 10, "-1"},
        {INT_MAX, 10, "2147483647"},
        {INT_MIN, 10, "-2147483648"},
        {INT_MIN, 2, "-10000000000000000000000000000000"},
        {-255, 16, "-ff"},
        {35, 36, "z"},
        {100, 25, "40"},
        {-7, 3, "-21"},
        {5, 1, ""},
        {5, 37, ""},
    };
    for (const auto &c : cases) {
        // Exactly the size the header promises suffices.
        char buffer[34];
        EXPECT_EQ(intToString(c.value, buffer, c.radix), buffer);
        EXPECT_STREQ(buffer, c.text) << c.value << " radix " << c.radix;
    }
}

} // namespace
