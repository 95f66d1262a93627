/* Signal format codes: size tokens, rasters, names, aspect ratio and colour
 * matrix. */
#include <qrvutil/host.h>
#include <qrvutil/video.h>

#include <stdio.h>
#include <string.h>

#include "video/video_internal.h"

namespace qrv::video {

namespace {

constexpr uint32_t kInterlacedBit = 0x10000000u;

/* Scan letter of unnamed codes by scan nibble; a space for the others. */
constexpr char kScanLetters[16] = {' ', 'i', 'P', ' ', 's', ' ', ' ', ' ',
                                   ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};

/* Width of the blank lead-in written before the name. */
constexpr size_t kTextPadding = 20;

constexpr bool namesFit()
{
    for (const auto &f : kNamedFormats) {
        size_t n = 0;
        while (f.text[n] != '\0')
            ++n;
        if (n > kLongestName)
            return false;
    }
    return kLongestName + 1 <= QRV_SIGNAL_FORMAT_TEXT_SIZE;
}
static_assert(namesFit(), "every name fits the caller's text buffer");

/* Display aspect ratios, numerator << 16 | denominator. */
constexpr uint32_t kAspect4x3 = 0x40003u;
constexpr uint32_t kAspect16x9 = 0x100009u;
constexpr uint32_t kAspect239x100 = 0xEF0064u;
constexpr uint32_t kAspect185x100 = 0xB90064u;
constexpr uint32_t kAspect256x135 = 0x1000087u;

struct RasterAspect {
    uint32_t height;
    uint32_t width;
    uint32_t aspect;
};

/* Rasters of 626 lines and more that have a known shape; any other raster of
 * that height is unknown. */
constexpr RasterAspect kRasterAspects[] = {
    {720, 1280, kAspect16x9},     {720, 960, kAspect16x9},      {858, 2048, kAspect239x100},
    {1080, 1280, kAspect16x9},    {1080, 1440, kAspect16x9},    {1080, 1920, kAspect16x9},
    {1080, 3840, kAspect16x9},    {1080, 1998, kAspect185x100}, {1080, 2048, kAspect256x135},
    {1080, 4096, kAspect256x135}, {2160, 4096, kAspect256x135}, {2160, 3840, kAspect16x9},
};

/* Colour matrix codes of one family by picture size. */
struct MatrixFamily {
    int standard; /* up to 720 pixels wide */
    int high;     /* wider */
    int large;    /* more than 1125 lines */
};

constexpr MatrixFamily kVideoRangeMatrices = {0, 4, 6};
constexpr MatrixFamily kFullRangeMatrices = {1, 5, 7};
constexpr uint32_t kLargePictureLines = 1125;
constexpr uint32_t kStandardWidthMax = 720;

constexpr char kMatrixKey[] = "Ovalbrook\\Advanced";
constexpr char kMatrixValue[] = "ForceVideoRangeMatrix";
constexpr uint32_t kMatrixNotRead = 0xFFFFFFFFu;
constexpr uint32_t kForceVideoRange = 1;

/* The one process-wide setting: read from the store on first use. */
uint32_t g_forcedMatrix = kMatrixNotRead;

uint32_t forcedMatrixSetting()
{
    if (g_forcedMatrix == kMatrixNotRead) {
        g_forcedMatrix = 0;
        if (cfgValueDword(QRV_CFG_DEFAULT, kMatrixKey, kMatrixValue, &g_forcedMatrix,
                          QRV_CFG_READ) != 0) {
            /* Seed the store so that the setting is there to be edited. */
            g_forcedMatrix = 0;
            cfgValueDword(QRV_CFG_DEFAULT, kMatrixKey, kMatrixValue, &g_forcedMatrix,
                          QRV_CFG_WRITE);
        }
    }
    return g_forcedMatrix;
}

/* Vertical blanking of a format, matched by code or by height and scan. */
constexpr uint32_t kAny = 0xFFFFFFFFu;

struct Blanking {
    uint32_t code;
    uint32_t height;
    uint32_t scan;
    uint32_t lines;
};

constexpr Blanking kBlanking[] = {
    {0x1100401du, kAny, kAny, 34}, /* NTSC */
    {0x1120421du, kAny, kAny, 34}, /* NTSC-CCIR601 */
    {kAny, 576, kAny, 45},         {kAny, 1035, kAny, 78}, {kAny, 1080, QRV_SCAN_INTERLACED, 40},
};

bool matches(uint32_t want, uint32_t have) { return want == kAny || want == have; }

uint32_t blankingLines(uint32_t code, uint32_t height)
{
    for (const auto &b : kBlanking)
        if (matches(b.code, code) && matches(b.height, height) &&
            matches(b.scan, QRV_SF_SCAN(code)))
            return b.lines;
    return 0;
}

int sizeAsText(uint32_t size) { return size == kUnknown ? -1 : static_cast<int>(size); }

} // namespace

void resetMatrixSetting() { g_forcedMatrix = kMatrixNotRead; }

} // namespace qrv::video

using namespace qrv::video;

unsigned vidGetSizeFromToken(unsigned token)
{
    if (token < 1 || token > 128)
        return kUnknown;
    return kSizeOfToken[token - 1];
}

unsigned vidGetTokenFromSize(unsigned size)
{
    for (const auto &r : kTokenRanges)
        if (size >= r.first && size <= r.last)
            return r.token;
    return kUnknown;
}

int vidImageSize(unsigned code, unsigned *width, unsigned *height, int field)
{
    if (!width || !height)
        return -1;
    if (const NamedFormat *named = findNamedFormat(code)) {
        *width = named->width;
        *height = field && named->fieldHeight ? named->fieldHeight : named->height;
        return 0;
    }
    *width = vidGetSizeFromToken(QRV_SF_WIDTH_TOKEN(code));
    *height = vidGetSizeFromToken(QRV_SF_HEIGHT_TOKEN(code));
    if (*width == kUnknown || *height == kUnknown)
        return -1;
    if ((code & kInterlacedBit) && field)
        *height >>= 1;
    return 0;
}

int vidSignalFormatToStr20(unsigned code, char *text)
{
    if (!text)
        return -1;
    memset(text, ' ', kTextPadding);
    text[kTextPadding] = '\0';
    if (const NamedFormat *named = findNamedFormat(code)) {
        memcpy(text, named->text, strlen(named->text) + 1);
        return 0;
    }
    /* At most "8192x8192i@119.88" (17 characters); the bound is the buffer. */
    const RateCode *rate = findRateCode(QRV_SF_RATE_CODE(code));
    snprintf(text, QRV_SIGNAL_FORMAT_TEXT_SIZE, "%dx%d%c@%s",
             sizeAsText(vidGetSizeFromToken(QRV_SF_WIDTH_TOKEN(code))),
             sizeAsText(vidGetSizeFromToken(QRV_SF_HEIGHT_TOKEN(code))),
             kScanLetters[QRV_SF_SCAN(code)], rate ? rate->text : "Custom");
    return 0;
}

unsigned vidGetAspectRatio(unsigned code, unsigned width, int height)
{
    (void)code;
    const uint32_t h = lineCount(height);
    if (h >= 480 && h <= 525)
        return kAspect4x3;
    if (h >= 526 && h <= 625)
        return width >= 640 && width <= 800 ? kAspect4x3 : 0;
    for (const auto &r : kRasterAspects)
        if (r.height == h && r.width == width)
            return r.aspect;
    return 0;
}

int GetMatrixBySize(unsigned width, int height, unsigned flags)
{
    const uint32_t forced = forcedMatrixSetting();
    const bool fullRange = (flags & QRV_MATRIX_FULL_RANGE) && forced != kForceVideoRange;
    const MatrixFamily &family = fullRange ? kFullRangeMatrices : kVideoRangeMatrices;
    if (lineCount(height) > kLargePictureLines)
        return family.large;
    return width <= kStandardWidthMax ? family.standard : family.high;
}

int vidSignalFormatToQRVVid(unsigned code, QRVVIDEO *video)
{
    unsigned rate = 0, scale = 0, width = 0, height = 0;
    if (!video || vidRateScale(code, &rate, &scale) != 0 ||
        vidImageSize(code, &width, &height, 0) != 0)
        return -1;
    const uint32_t blanking = blankingLines(code, height);
    video->SignalFormat = code;
    video->Width = width;
    video->Height = height;
    video->Rate = rate;
    video->Scale = scale;
    video->ScanType = QRV_SF_SCAN(code);
    video->BlankingLines = blanking;
    video->TotalWidth = width;
    video->TotalHeight = height + blanking;
    return 0;
}
