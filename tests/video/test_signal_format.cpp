#include <qrvutil/host.h>
#include <qrvutil/video.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "video/video_internal.h"

namespace {

std::string nameOf(unsigned code)
{
    char text[QRV_SIGNAL_FORMAT_TEXT_SIZE + 1];
    memset(text, '#', sizeof text);
    EXPECT_EQ(vidSignalFormatToStr20(code, text), 0);
    EXPECT_EQ(text[QRV_SIGNAL_FORMAT_TEXT_SIZE], '#') << "wrote past the buffer";
    return text;
}

TEST(SizeTokens, TableAndEncodingRangesAreKeptAsIs)
{
    for (unsigned token : {0u, 4u, 129u})
        EXPECT_EQ(vidGetSizeFromToken(token), 0xFFFFFFFFu) << token;
    EXPECT_EQ(vidGetTokenFromSize(239), 0xFFFFFFFFu);
    EXPECT_EQ(vidGetTokenFromSize(1035), 48u);
    EXPECT_EQ(vidGetTokenFromSize(8193), 0xFFFFFFFFu);

    // Every size from 240 to 8192 has a token no larger than itself (except
    // 241 and 242, which take 243's).
    std::set<unsigned> produced;
    for (unsigned size = 240; size <= 8192; ++size) {
        const unsigned token = vidGetTokenFromSize(size);
        ASSERT_NE(vidGetSizeFromToken(token), 0xFFFFFFFFu) << size;
        EXPECT_TRUE(size < 243 || vidGetSizeFromToken(token) <= size) << size;
        produced.insert(token);
    }
    // An entry's own size encodes to it, except for these kept exceptions;
    // 90, 91, 92, 100, 101, 106 and 120 are never produced at all.
    const std::map<unsigned, unsigned> elsewhere = {{49, 48},  {90, 87},   {91, 128},  {92, 128},
                                                    {100, 96}, {101, 128}, {106, 104}, {120, 107}};
    for (unsigned token = 1; token <= 128; ++token) {
        const unsigned size = vidGetSizeFromToken(token);
        if (size == 0xFFFFFFFFu)
            continue;
        const auto it = elsewhere.find(token);
        EXPECT_EQ(vidGetTokenFromSize(size), it == elsewhere.end() ? token : it->second) << token;
        EXPECT_EQ(produced.count(token), token == 49 || it == elsewhere.end() ? 1u : 0u) << token;
    }
}

TEST(NamedFormats, NameRasterRateAndScanAgree)
{
    std::set<unsigned> codes;
    for (const auto &row : qrv::video::kNamedFormats) {
        SCOPED_TRACE(row.text);
        EXPECT_TRUE(codes.insert(row.code).second) << "code listed twice";
        EXPECT_EQ(nameOf(row.code), row.text);

        unsigned w = 0, h = 0, rate = 0, scale = 0, fieldH = 0;
        ASSERT_EQ(vidImageSize(row.code, &w, &h, 0), 0);
        ASSERT_EQ(vidImageSize(row.code, &w, &fieldH, 1), 0);
        ASSERT_EQ(vidRateScale(row.code, &rate, &scale), 0);
        const unsigned scan = QRV_SF_SCAN(row.code);
        EXPECT_EQ(fieldH, scan == 1 ? h / 2 : h);
        EXPECT_EQ(QRV_SF_RATE_CODE(row.code), rate / scale) << "rate code is the integer part";
        // Rasters agree with the tokens, except the two kinds the tokens cannot say.
        if (row.code != 0x11a04019u && h != 4320) {
            EXPECT_EQ(w, vidGetSizeFromToken(QRV_SF_WIDTH_TOKEN(row.code)));
            EXPECT_EQ(h, vidGetSizeFromToken(QRV_SF_HEIGHT_TOKEN(row.code)));
        }

        // The name spells raster, scan and rate: "1080x1920P@25", "4096x2160psf 25fps".
        unsigned a = 0, b = 0;
        char letters[8] = "";
        const char *rateText = strpbrk(row.text, "@ ");
        if (sscanf(row.text, "%ux%u%7[a-zA-Z]", &a, &b, letters) < 2 || !rateText) {
            EXPECT_LE(w, 720u) << "only the standard-definition names spell no raster";
            continue;
        }
        const std::string scanText = letters;
        const double fps = atof(rateText + 1);
        EXPECT_NEAR(fps, double(rate) / scale, 0.006);
        const bool linesFirst = b == 1920; // the 1080- and 1035-line names
        EXPECT_EQ(linesFirst ? b : row.code == 0x26410017u ? 4096 : a, w); // 3840 name kept
        EXPECT_EQ(linesFirst ? a : b, h);
        unsigned nameScan = 2;
        if (scanText == "i" || row.text[strlen(row.text) - 1] == 'B')
            nameScan = 1;
        else if (scanText == "psf" || row.code == 0x46b10005u) // "4096x3112@5" is psf
            nameScan = 4;
        EXPECT_EQ(nameScan, scan);
        // Capital P, except for 1080-line rates above 30.
        const bool capital = fps < 31 || h != 1080;
        EXPECT_TRUE(scanText != (capital ? "p" : "P"));
    }
}

TEST(NamedFormats, UnnamedCodesAreSpelledFromTokens)
{
    EXPECT_EQ(nameOf(0x2380b219u), "1080x1920P@25");
    EXPECT_EQ(nameOf(0x2380c03bu), "2048x1080P@59.94");
    EXPECT_EQ(nameOf(0x2380b263u), "1920x1080P@Custom"); // rate code 99
    EXPECT_EQ(nameOf(0x42109077u), "1280x720s@119.88");
    EXPECT_EQ(nameOf(0x00000000u), "-1x-1 @Custom");
    EXPECT_EQ(nameOf(0x15c0b877u), "8192x8192i@119.88");
    EXPECT_EQ(nameOf(0x4641001du), "4096x2160psf 29.97fps"); // the longest name

    // Short names keep the blank lead-in after their terminator.
    char text[QRV_SIGNAL_FORMAT_TEXT_SIZE];
    vidSignalFormatToStr20(0x11a04019u, text);
    EXPECT_EQ(std::string(text, 21), std::string("PAL\0", 4) + std::string(16, ' ') + '\0');
}

TEST(ImageSize, ExplicitRastersAndFieldHeights)
{
    // named rows are swept above; these are the explicit and generic cases
    const unsigned cases[][4] = {{0x1380b219u, 1, 1920, 540},  {0x11a04019u, 0, 720, 576},
                                 {0x23409618u, 0, 1400, 1050}, {0x2650b63cu, 0, 7680, 4320},
                                 {0x1120421eu, 1, 720, 243},   {0x2120421du, 1, 720, 486}};
    for (const auto &c : cases) {
        unsigned w = 0, h = 0;
        EXPECT_EQ(vidImageSize(c[0], &w, &h, int(c[1])), 0);
        EXPECT_EQ(w, c[2]) << std::hex << c[0];
        EXPECT_EQ(h, c[3]) << std::hex << c[0];
    }
    unsigned w = 0, h = 0;
    EXPECT_EQ(vidImageSize(QRV_SIGNAL_FORMAT_NONE, &w, &h, 0), -1);
    EXPECT_EQ(vidImageSize(0x2380081du, &w, &h, 0), -1); // width token 4 is unused
}

TEST(Geometry, AspectRatioByRaster)
{
    const int cases[][3] = {
        {720, 479, 0},           {720, 525, 0x40003},     {720, 576, 0x40003},     {960, 576, 0},
        {1280, 720, 0x100009},   {1024, 720, 0},          {2048, 858, 0xEF0064},   {1920, 1035, 0},
        {1920, -1080, 0x100009}, {1998, 1080, 0xB90064},  {2048, 1080, 0x1000087}, {1920, 1088, 0},
        {3840, 2160, 0x100009},  {4096, 2160, 0x1000087}, {7680, 4320, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(vidGetAspectRatio(0, unsigned(c[0]), c[1]), unsigned(c[2]))
            << c[0] << "x" << c[1];
}

TEST(Geometry, MatrixSettingIsSeededOnceAndCached)
{
    const char *key = "Ovalbrook\\Advanced";
    const char *value = "ForceVideoRangeMatrix";
    cfgDeleteValue(QRV_CFG_DEFAULT, key, value);
    qrv::video::resetMatrixSetting();

    EXPECT_EQ(GetMatrixBySize(1920, 1080, 0), 4);
    unsigned stored = 0xFFFF;
    ASSERT_EQ(cfgValueDword(QRV_CFG_DEFAULT, key, value, &stored, QRV_CFG_READ), 0);
    EXPECT_EQ(stored, 0u);

    const int sizes[][4] = {{720, 486, 0, 0},   {721, 576, 0, 4},      {1920, 1125, 0, 4},
                            {720, -1126, 0, 6}, {720, 486, 0x1000, 1}, {3840, 2160, 0x1000, 7}};
    for (const auto &s : sizes)
        EXPECT_EQ(GetMatrixBySize(unsigned(s[0]), s[1], unsigned(s[2])), s[3])
            << s[0] << "x" << s[1];

    // Forcing video range takes effect on the next process (or reset) only.
    stored = 1;
    ASSERT_EQ(cfgValueDword(QRV_CFG_DEFAULT, key, value, &stored, QRV_CFG_WRITE), 0);
    EXPECT_EQ(GetMatrixBySize(1280, 720, 0x1000), 5);
    qrv::video::resetMatrixSetting();
    EXPECT_EQ(GetMatrixBySize(1280, 720, 0x1000), 4);
    EXPECT_EQ(GetMatrixBySize(3840, 2160, 0x1000), 6);
    cfgDeleteValue(QRV_CFG_DEFAULT, key, value);
    qrv::video::resetMatrixSetting();
}

TEST(Geometry, VideoRecordFromCode)
{
    // code, width, height, rate, scale, scan, blanking lines
    const unsigned cases[][7] = {
        {0x1120421du, 720, 486, 30000, 1001, 1, 34},   {0x11204217u, 720, 486, 24000, 1001, 1, 0},
        {0x11a04019u, 720, 576, 25, 1, 1, 45},         {0x1310b21eu, 1920, 1035, 30, 1, 1, 78},
        {0x1380b23bu, 1920, 1080, 60000, 1001, 1, 40}, {0x4380b217u, 1920, 1080, 24000, 1001, 4, 0},
    };
    for (const auto &c : cases) {
        QRVVIDEO v;
        memset(&v, 0xAB, sizeof v);
        ASSERT_EQ(vidSignalFormatToQRVVid(c[0], &v), 0);
        const unsigned got[] = {v.SignalFormat, v.Width,    v.Height,       v.Rate,
                                v.Scale,        v.ScanType, v.BlankingLines};
        EXPECT_EQ(std::vector<unsigned>(got, got + 7), std::vector<unsigned>(c, c + 7));
        EXPECT_EQ(v.TotalWidth, c[1]);
        EXPECT_EQ(v.TotalHeight, c[2] + c[6]);
        EXPECT_EQ(v.Planes, 0xABABABABu) << "fields after the raster are left alone";
    }
    QRVVIDEO v{};
    EXPECT_EQ(vidSignalFormatToQRVVid(QRV_SIGNAL_FORMAT_NONE, &v), -1);
    EXPECT_EQ(vidSignalFormatToQRVVid(0x11a04300u, &v), -1); // unrecognised rate
    EXPECT_EQ(vidSignalFormatToQRVVid(0x2380081du, &v), -1); // unknown width
    EXPECT_EQ(v.Width, 0u);
}

} // namespace
