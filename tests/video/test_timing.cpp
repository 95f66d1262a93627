#include <qrvutil/host.h>
#include <qrvutil/video.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace {

using Pair = std::pair<unsigned, unsigned>;

TEST(RateScale, CodesGiveExactPairs)
{
    unsigned rate = 7, scale = 7;
    EXPECT_EQ(vidRateScale(QRV_SIGNAL_FORMAT_NONE, &rate, &scale), -1);
    EXPECT_EQ(rate, 7u); // nothing written
    EXPECT_EQ(vidRateScale(0x11a04300u, &rate, &scale), -1);
    EXPECT_EQ(Pair(rate, scale), Pair(256, 1));

    // rate codes outside the table are whole rates: 5, 300, 0
    const unsigned cases[][3] = {{0x23801077u, 120000, 1001},
                                 {0x23801005u, 5, 1},
                                 {0x2380112cu, 300, 1},
                                 {0x23801000u, 0, 1}};
    for (const auto &c : cases) {
        EXPECT_EQ(vidRateScale(c[0], &rate, &scale), 0) << std::hex << c[0];
        EXPECT_EQ(Pair(rate, scale), Pair(c[1], c[2])) << std::hex << c[0];
    }
}

TEST(RateScale, MeasuredRatesFoldIntoTheBand)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // fps, rate, scale, result, timecode type
    const std::tuple<double, unsigned, unsigned, int, unsigned> cases[] = {
        {29.97, 30000, 1001, 0, 4},
        {28.0, 2800, 100, 1, 2},
        {59.94, 60000, 1001, 0, 32},
        {119.88, 30000, 1001, 0, 4},
        {12.0, 1200, 100, 1, 2},
        {48.0, 24, 1, 0, 1},
        // window edges: inclusive at both ends, run in order
        {14.0, 2800, 100, 1, 2},
        {15.5, 3100, 100, 1, 2},
        {15.0, 30, 1, 0, 2},
        {47.0, 24000, 1001, 0, 128},
        {48.5, 24, 1, 0, 1},
        {48.6, 48, 1, 0, 1},
        {71.0, 24000, 1001, 0, 128},
        {72.5, 24, 1, 0, 1},
        {72.6, 7200, 100, 1, 2},
        {100.0, 25, 1, 0, 8},
        {120.0, 30, 1, 0, 2},
        {120.1, 12000, 100, 1, 2},
        {23.0, 24000, 1001, 0, 128},
        {24.95, 25, 1, 0, 8},
        {24.9, 24, 1, 0, 1},
        {25.1, 2500, 100, 1, 2},
        {50.0, 50, 1, 0, 16},
        {60.0, 60, 1, 0, 64},
        {60.001, 6000, 100, 1, 2},
        {30.9, 3000, 100, 1, 2},
        {-5.0, 0, 100, 1, 2},
        {nan, 0, 100, 1, 2},
        {1e30, 0xFFFFFFFF, 100, 1, 2},
    };
    for (const auto &c : cases) {
        const double fps = std::get<0>(c);
        unsigned rate = 0, scale = 0;
        const int result = vidRateScale(fps, &rate, &scale);
        EXPECT_EQ(std::make_tuple(rate, scale, result, vidGetTCType(fps)),
                  std::make_tuple(std::get<1>(c), std::get<2>(c), std::get<3>(c), std::get<4>(c)))
            << fps;
    }
    unsigned rate = 0;
    EXPECT_EQ(vidRateScale(25.0, &rate, nullptr), -1);
}

TEST(RateScale, NormalizeLooselyGivenPairs)
{
    const unsigned cases[][4] = {
        {2997, 100, 30000, 1001}, {23976, 1000, 23976, 1000}, {29, 1, 29, 1},
        {29, 2, 29, 1},           {2397, 100, 23976, 1000},   {2398, 50, 2398, 50},
        {2400, 100, 24, 1},       {2400, 101, 24000, 1001},   {2997, 125, 24000, 1001},
        {3000, 100, 30, 1},       {3000, 101, 30000, 1001},   {23977, 1000, 23976, 1000},
        {50000, 1000, 50, 1},     {60000, 1001, 60000, 1001}, {120000, 1001, 120000, 1001},
        {200, 2, 100, 1},         {48000, 1001, 48000, 1001}, {10, 0, 10, 1},
        {5000, 0, 5000, 0},       {2997, 0, 2997, 0},
    };
    for (const auto &c : cases) {
        unsigned rate = c[0], scale = c[1];
        EXPECT_EQ(vidNormalizeRateScale(&rate, &scale), 0);
        EXPECT_EQ(Pair(rate, scale), Pair(c[2], c[3])) << c[0] << "/" << c[1];
    }
}

TEST(RateScale, DefaultPairByRaster)
{
    const unsigned cases[][4] = {
        {720, 512, 30000, 1001},   {720, 513, 25, 1},         {721, 576, 30000, 1001},
        {1080, 1080, 30000, 1001}, {1081, 1080, 25, 1},       {1828, 1080, 25, 1},
        {1829, 1080, 30000, 1001}, {1920, 1080, 30000, 1001}, {2048, 1235, 25, 1},
        {2048, 1236, 24, 1},       {4096, 2160, 24, 1},       {4097, 2160, 7, 7}};
    for (const auto &c : cases) {
        unsigned rate = 7, scale = 7;
        EXPECT_EQ(vidRateScaleFromSize(c[0], c[1], &rate, &scale), 0);
        EXPECT_EQ(Pair(rate, scale), Pair(c[2], c[3])) << c[0] << "x" << c[1];
    }
    EXPECT_EQ(vidRateScaleFromSize(720, 486, nullptr, nullptr), -1);
}

TEST(FrameTiming, PeriodsOfPairsAndCodes)
{
    EXPECT_DOUBLE_EQ(vidFramesPerSecD(0, 25, 1), 25.0);
    EXPECT_DOUBLE_EQ(vidFramesPerSecD(0x2380b21du, 0, 1), 30000.0 / 1001);
    EXPECT_DOUBLE_EQ(vidFramesPerSecD(0x11a04300u, 0, 0), 29.97002997002997); // rate code 256
    EXPECT_DOUBLE_EQ(vidFramesPerSecD(QRV_SIGNAL_FORMAT_NONE, 0, 0), 29.97002997002997);
    EXPECT_DOUBLE_EQ(vidMsPerFrameD(0x22109032u, 0, 0), 20.0);
    EXPECT_EQ(vidMsPerFrame(0x2380b23bu, 0, 0), 17u);
    EXPECT_EQ(vidMsPerFrame(0, 24000, 1001), 42u);
    EXPECT_EQ(vidMsPerFrame(0, 1, 0xFFFFFFFFu), 0xFFFFFFFFu);   // saturates
    EXPECT_TRUE(std::isinf(vidMsPerFrameD(0x23801000u, 0, 0))); // rate code 0
    EXPECT_EQ(vidMsPerFrame(0x23801000u, 0, 0), 0xFFFFFFFFu);
}

TEST(FrameTiming, TimecodeTypeTable)
{
    const std::pair<unsigned, double> rates[] = {{0, 30000.0 / 1001},
                                                 {1, 24},
                                                 {2, 30},
                                                 {4, 30000.0 / 1001},
                                                 {8, 25},
                                                 {16, 50},
                                                 {32, 60000.0 / 1001},
                                                 {64, 60},
                                                 {128, 24000.0 / 1001},
                                                 {132, 24000.0 / 1001},
                                                 {3, 30000.0 / 1001}};
    for (const auto &r : rates) {
        const unsigned type = r.first | 0x3200; // flags above the low byte are ignored
        EXPECT_DOUBLE_EQ(vidTCFramesPerSecD(type), r.second) << r.first;
        // Non-drop 30 keeps the 29.97 period.
        const double period = r.first == 2 ? 1001.0 / 30 : 1000.0 / r.second;
        EXPECT_NEAR(vidTCMsPerFrameD(type), period, 1e-12) << r.first;
        EXPECT_EQ(vidTCMsPerFrame(type), unsigned(period + 0.5)) << r.first;
    }
}

TEST(FrameTiming, TimecodeTypeOfFormatUsesBaseRate)
{
    // rate codes 0..511; high rates count in the timecode of their base rate
    std::map<unsigned, std::set<unsigned>> byType;
    for (unsigned rateCode = 0; rateCode < 512; ++rateCode)
        byType[vidGetTCTypeSignalFormat(0x2380b000u | rateCode)].insert(rateCode);
    EXPECT_EQ(byType[4], (std::set<unsigned>{14, 29, 59, 119}));
    EXPECT_EQ(byType[128], (std::set<unsigned>{23, 47, 71}));
    EXPECT_EQ(byType[1], (std::set<unsigned>{24, 48, 72}));
    EXPECT_EQ(byType[8], (std::set<unsigned>{25, 50, 100}));
    EXPECT_EQ(byType[2].size(), 512u - 13);
    EXPECT_EQ(byType.size(), 5u);
}

TEST(FrameTiming, ConvertTimecodeBetweenTypes)
{
    unsigned frame = 100;
    EXPECT_EQ(vidConvertTC(&frame, 8, 25, 1), 0); // same type: untouched
    EXPECT_EQ(frame, 100u);
    EXPECT_EQ(vidConvertTC(&frame, 2, 25, 1), 0); // 00:00:04:00 at 30
    EXPECT_EQ(frame, 120u);
    frame = 120;
    EXPECT_EQ(vidConvertTC(&frame, 8, 30, 1), 0);
    EXPECT_EQ(frame, 100u);
    frame = 120; // 00:00:02:00 at 60, read at 30 and doubled
    EXPECT_EQ(vidConvertTC(&frame, 2, 60, 1), 0);
    EXPECT_EQ(frame, 120u);
    EXPECT_EQ(vidConvertTC(nullptr, 2, 25, 1), -1);
}

} // namespace
