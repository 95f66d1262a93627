#include <qrvutil/video.h>

#include <gtest/gtest.h>

#include <cstdint>

#include "video/video_internal.h"

namespace {

struct Detect {
    unsigned rate, scale, w;
    int h;
    int progressive;
    unsigned code;
};

template <size_t N>
void expectCodes(const Detect (&cases)[N])
{
    for (const Detect &c : cases)
        EXPECT_EQ(vidGetSignalFormat(c.rate, c.scale, c.w, c.h, c.progressive), c.code)
            << std::hex << "expected 0x" << c.code << std::dec << " for " << c.w << "x" << c.h
            << (c.progressive ? "p" : "i") << " at " << c.rate << "/" << c.scale;
}

TEST(DetectFormat, CameraAndFileRasters)
{
    const Detect cases[] = {
        {30000, 1001, 720, 486, 0, 0x1120421d},
        {30000, 1001, 720, 480, 0, 0x1120421d},
        {30000, 1001, 640, 480, 0, 0x1100401d},
        {25, 1, 720, 576, 1, 0x11a04219},
        {25, 1, 640, 576, 0, 0x11a04019},
        {30000, 1001, 1920, 1035, 0, 0x1310b21d},
        // 1080 lines: interlaced material; coded heights and bottom-up images
        {24000, 1001, 1920, 1080, 0, 0x4380b217},
        {24, 1, 1920, 1080, 0, 0x1380b218},
        {25, 1, 1920, 1080, 0, 0x1380b219},
        {30000, 1001, 1920, 1080, 0, 0x1380b21d},
        {30, 1, 1920, 1080, 0, 0x1380b21e},
        {50, 1, 1920, 1080, 0, 0x2380b232},
        {25, 1, 1920, 1088, 1, 0x2380b219},
        {30000, 1001, 1440, -1080, 1, 0x2380b21d},
        // film scans
        {24000, 1001, 2048, 1080, 0, 0x4380c017},
        {15, 1, 2048, 1556, 1, 0x2510c00f},
        {15000, 1001, 2048, 1536, 1, 0x2500c00e},
        {24, 1, 2048, 1556, 0, 0x4510c018},
        {24000, 1001, 4096, 3112, 1, 0x26410017}, // 3112 is "2160 lines and more"
    };
    expectCodes(cases);

    // Progressive families at every rate: each named code must come back.
    const unsigned rates[][3] = {
        {24000, 1001, 0x17}, {24, 1, 0x18}, {25, 1, 0x19}, {30000, 1001, 0x1d}, {30, 1, 0x1e},
        {48000, 1001, 0x2f}, {48, 1, 0x30}, {50, 1, 0x32}, {60000, 1001, 0x3b}, {60, 1, 0x3c}};
    const unsigned families[][3] = {{1920, 1080, 0x2380b200}, {1280, 720, 0x22109000},
                                    {2048, 1080, 0x2380c000}, {3840, 2160, 0x2640f000},
                                    {4096, 2160, 0x26410000}, {7680, 4320, 0x2650b600},
                                    {8192, 4320, 0x2650b800}};
    for (const auto &f : families) {
        for (const auto &r : rates) {
            const unsigned expected = f[2] | r[2];
            if (!qrv::video::findNamedFormat(expected))
                continue;
            // 4096 x 2160 at 48 has a name but no rule: it gets the generic code.
            const unsigned want = expected == 0x26410030u ? 0x26010030u : expected;
            EXPECT_EQ(vidGetSignalFormat(r[0], r[1], f[0], int(f[1]), 1), want)
                << std::hex << expected;
        }
    }
}

TEST(DetectFormat, DeliberateOddities)
{
    const Detect cases[] = {
        // Half-size and 576-line proxies become 1080-line codes.
        {30000, 1001, 960, 540, 0, 0x1380b21d},
        {30000, 1001, 960, 540, 1, 0x2380b21d},
        {30000, 1001, 1048, 576, 1, 0x1380b21d},
        {30000, 1001, 1024, 540, 0, 0x2380c01d},
        // 30 fps NTSC rasters get the 29.97 codes.
        {30, 1, 720, 486, 0, 0x1120421d},
        {30, 1, 704, 480, 1, 0x1120421d},
        {30, 1, 640, 480, 0, 0x1100401d},
        // At 24 every raster under 1113 lines is 1080-line 24.
        {24, 1, 720, 486, 0, 0x1380b218},
        // 2048 wide at 59.94 keeps its width, at 60 it becomes 1920.
        {60000, 1001, 2048, 1080, 1, 0x2380c03b},
        {60, 1, 2048, 1080, 1, 0x2380b23c},
        // Window edges of the 25 and 30 fps rules.
        {2491, 100, 1920, 1080, 1, 0x2380b219},
        {2490, 100, 1920, 1080, 1, 0x2380b218},
        {3089, 100, 1920, 1080, 1, 0x2380b21e},
    };
    expectCodes(cases);
}

TEST(DetectFormat, GenericCodes)
{
    const Detect cases[] = {
        {24000, 1001, 1280, 720, 1, 0x22109017},  // no named 720p at 23.98
        {48, 1, 3840, 2160, 1, 0x2600d630},       // tokens by range: 107 and 96
        {30000, 1001, 800, 600, 0, 0x21b0461d},   // 800 wide is progressive
        {12, 1, 720, 576, 0, 0x11a04300},         // interlaced at an unlisted rate: 256
        {30000, 1001, 1280, 1024, 0, 0x2300901d}, // over 599 lines: progressive
        {100, 1, 720, 540, 0, 0x11704264},        // 540 lines: interlaced
        {61, 1, 720, 540, 0, 0x2170423d},         // rates 61-99 are progressive
        {100, 1, 720, 608, 1, 0x11c04264},        // 608 lines: always interlaced
        {30, 1, 100, 100, 0, 0xF0000000},         // no size token
        {12, 1, 960, 720, 1, 0x2210900c},         // 960 x 720 is tidied to 1280
        {12, 1, 1440, 1080, 0, 0x2380b20c},       // 1440 x 1080 is tidied to 1920
        {25, 1, 1920, INT32_MIN, 0, 0x2650b819},  // "4320 lines and more"
        {12, 1, 1920, INT32_MIN, 0, 0xF0000000},
    };
    expectCodes(cases);
    // Degenerate rates must not trap.
    EXPECT_NE(vidGetSignalFormat(0, 0, 1920, 1080, 1), 0u);
    EXPECT_NE(vidGetSignalFormat(25, 0, 720, 576, 0), 0u);
}

} // namespace
