/* vidGetSignalFormat: the signal format of a measured raster and rate. The
 * rules run in a fixed order and the first that answers wins; their odd
 * corners (proxies mapped to 1080-line codes, 30 fps NTSC rasters mapped to
 * the 29.97 codes, 23.98 psf against 24/25 interlaced) are what files and
 * peers already carry. */
#include <qrvutil/video.h>

#include <math.h>

#include <initializer_list>

#include "video/video_internal.h"

namespace qrv::video {
namespace {

/* Families (scan, height and width tokens) of the codes the rules return;
 * the rate code is OR-ed in. */
constexpr uint32_t k1035i = 0x1310b200u;
constexpr uint32_t k1080i = 0x1380b200u;
constexpr uint32_t k1080P = 0x2380b200u;
constexpr uint32_t k1080psf = 0x4380b200u;
constexpr uint32_t k720P = 0x22109000u;
constexpr uint32_t k2048x1080P = 0x2380c000u;
constexpr uint32_t k2048x1080psf = 0x4380c000u;
constexpr uint32_t k2048x1536P = 0x2500c000u;
constexpr uint32_t k2048x1536psf = 0x4500c000u;
constexpr uint32_t k2048x1556P = 0x2510c000u;
constexpr uint32_t k2048x1556psf = 0x4510c000u;
constexpr uint32_t k3840x2160P = 0x2640f000u;
constexpr uint32_t k4096x2160P = 0x26410000u;
constexpr uint32_t k7680x4320P = 0x2650b600u;
constexpr uint32_t k8192x4320P = 0x2650b800u;

/* Whole standard-definition codes. */
constexpr uint32_t kNtsc = 0x1100401du;
constexpr uint32_t kNtscCcir601 = 0x1120421du;
constexpr uint32_t kPal = 0x11a04019u;
constexpr uint32_t kPalCcir601 = 0x11a04219u;

/* Rate codes. */
constexpr uint32_t kR1498 = 14, kR15 = 15, kR2398 = 23, kR24 = 24, kR25 = 25, kR2997 = 29,
                   kR30 = 30, kR4795 = 47, kR48 = 48, kR50 = 50, kR5994 = 59, kR60 = 60;
constexpr uint32_t kRateUnrecognised = 256;

constexpr uint32_t kScanInterlaced = 1;
constexpr uint32_t kScanProgressive = 2;

/* Generic codes: rate codes an interlaced code may carry (others become
 * kRateUnrecognised), and the widths and rate codes that are always
 * progressive. */
constexpr uint32_t kInterlacedRateCodes[] = {5,  6,  7,  10, 14, 15, 23, 24, 25,  29,
                                             30, 47, 48, 50, 59, 60, 71, 72, 100, 119};
constexpr uint32_t kProgressiveWidths[] = {800, 1024, 1400, 1600, 2048};
constexpr uint32_t kProgressiveRateCodes[] = {23, 24, 47, 48};

constexpr uint32_t kNoMatch = 0; /* never a code the rules return */

struct Picture {
    double fps;
    uint32_t w;
    uint32_t h;
    bool progressive;
};

bool isAny(uint32_t v, std::initializer_list<uint32_t> values)
{
    for (uint32_t x : values)
        if (x == v)
            return true;
    return false;
}

bool between(uint32_t v, uint32_t low, uint32_t high) { return v >= low && v <= high; }

bool isHdWidth(uint32_t w) { return isAny(w, {1280, 1440, 1920}); }

/* Coded heights of 1080-line pictures. */
bool is1080Height(uint32_t h) { return isAny(h, {1080, 1088, 1092, 1112}); }

bool is720Height(uint32_t h) { return between(h, 720, 740); }

uint32_t pick(bool progressive, uint32_t ifProgressive, uint32_t otherwise)
{
    return progressive ? ifProgressive : otherwise;
}

/* The UHD codes by width: 4320 lines and more are 7680 or else 8192 wide,
 * 2160 and more are 3840 or else 4096 wide. */
uint32_t byWidth(const Picture &p, uint32_t rate)
{
    if (p.h >= 4320)
        return (p.w == 7680 ? k7680x4320P : k8192x4320P) | rate;
    if (p.h >= 2160)
        return (p.w == 3840 ? k3840x2160P : k4096x2160P) | rate;
    return kNoMatch;
}

/* Film scans at 14.98 and 15 fps. */
uint32_t filmScanCode(const Picture &p)
{
    if (p.w != 2048)
        return kNoMatch;
    uint32_t rate = kNoMatch;
    if (p.fps >= 14 && p.fps < 15)
        rate = kR1498;
    else if (p.fps >= 15 && p.fps < 16)
        rate = kR15;
    else
        return kNoMatch;
    if (p.h == 1536)
        return k2048x1536P | rate;
    if (p.h > 1555)
        return k2048x1556P | rate;
    return kNoMatch;
}

uint32_t code25(const Picture &p)
{
    if (!(p.fps > 24.9 && p.fps < 25.1))
        return kNoMatch;
    if (p.h < 626 && isAny(p.w, {360, 720}))
        return kPalCcir601;
    if (is720Height(p.h))
        return k720P | kR25;
    if (p.w == 640)
        return kPal;
    if (isAny(p.h, {1035, 1036}) && isHdWidth(p.w))
        return k1080i | kR25;
    if (isHdWidth(p.w) && is1080Height(p.h))
        return pick(p.progressive, k1080P, k1080i) | kR25;
    if (p.w == 2048 && (is1080Height(p.h) || p.h == 1114))
        return k2048x1080P | kR25;
    return byWidth(p, kR25);
}

uint32_t code24(const Picture &p)
{
    if (!(p.fps >= 24 && p.fps < 25))
        return kNoMatch;
    if (is720Height(p.h))
        return k720P | kR24;
    if (isHdWidth(p.w) && is1080Height(p.h))
        return pick(p.progressive, k1080P, k1080i) | kR24;
    if (p.w == 2048) {
        if (is1080Height(p.h))
            return pick(p.progressive, k2048x1080P, k2048x1080psf) | kR24;
        if (p.h == 1536)
            return pick(p.progressive, k2048x1536P, k2048x1536psf) | kR24;
        if (isAny(p.h, {1556, 1588}))
            return pick(p.progressive, k2048x1556P, k2048x1556psf) | kR24;
    }
    if (const uint32_t uhd = byWidth(p, kR24))
        return uhd;
    /* Every other raster below 1113 lines is taken as 1080-line 24. */
    if (p.h < 1113)
        return pick(p.progressive, k1080P, k1080i) | kR24;
    return kNoMatch;
}

uint32_t code2398(const Picture &p)
{
    if (!(p.fps >= 23 && p.fps < 24))
        return kNoMatch;
    if (is720Height(p.h))
        return k720P | kR2398;
    if (!is1080Height(p.h)) {
        if (const uint32_t uhd = byWidth(p, kR2398))
            return uhd;
        if (p.w == 2048 && p.h == 1536)
            return k2048x1536P | kR2398;
        if (p.w == 2048 && isAny(p.h, {1556, 1588}))
            return k2048x1556P | kR2398;
        return kNoMatch;
    }
    /* At 23.98 non-progressive 1080-line material is psf, not interlaced. */
    if (p.w == 2048)
        return pick(p.progressive, k2048x1080P, k2048x1080psf) | kR2398;
    if (isHdWidth(p.w))
        return pick(p.progressive, k1080P, k1080psf) | kR2398;
    return kNoMatch;
}

/* 720 lines, then 1034-1125 lines, then the wide rasters, at a high rate. */
uint32_t highRateRaster(const Picture &p, bool lines1080, uint32_t rate)
{
    if (is720Height(p.h))
        return k720P | rate;
    if (lines1080)
        return k1080P | rate;
    return byWidth(p, rate);
}

/* 47.95 fps and above: 720- and 1080-line pictures are progressive codes
 * whatever the material says. */
uint32_t highRateCode(const Picture &p)
{
    const bool lines1080 = between(p.h, 1034, 1125);
    if (p.fps >= 60)
        return highRateRaster(p, lines1080, kR60);
    if (p.fps >= 59 && p.fps < 60) {
        if (p.w == 2048 && p.h == 1080)
            return k2048x1080P | kR5994;
        return highRateRaster(p, lines1080, kR5994);
    }
    if (p.fps >= 50 && p.fps < 59)
        return highRateRaster(p, lines1080, kR50);
    if (p.fps >= 48 && p.fps < 50)
        return lines1080 ? k1080P | kR48 : kNoMatch;
    if (p.fps >= 47 && p.fps < 48)
        return lines1080 ? k1080P | kR4795 : kNoMatch;
    return kNoMatch;
}

uint32_t code2997(const Picture &p)
{
    if (!(p.fps > 29 && p.fps < 30))
        return kNoMatch;
    if (p.w == 1920 && isAny(p.h, {1035, 1036}))
        return k1035i | kR2997;
    if (between(p.h, 1037, 1124)) {
        if (isHdWidth(p.w))
            return pick(p.progressive, k1080P, k1080i) | kR2997;
        if (p.w == 2048)
            return k2048x1080P | kR2997;
    }
    if (between(p.h, 1080, 1125) && isAny(p.w, {1920, 960}))
        return pick(p.progressive, k1080P, k1080i) | kR2997;
    if (is720Height(p.h) && isAny(p.w, {960, 1280}))
        return k720P | kR2997;
    if (isAny(p.w, {320, 640}))
        return kNtsc;
    if (p.w <= 720 && between(p.h, 480, 512))
        return kNtscCcir601;
    if (const uint32_t uhd = byWidth(p, kR2997))
        return uhd;
    /* Half-size and 576-line proxies of 1080-line material. */
    if (p.w == 960 && p.h == 540)
        return pick(p.progressive, k1080P, k1080i) | kR2997;
    if (p.h == 576 && isAny(p.w, {768, 1024, 1048}))
        return k1080i | kR2997;
    if (p.w == 1024 && p.h == 540)
        return k2048x1080P | kR2997;
    return kNoMatch;
}

uint32_t code30(const Picture &p)
{
    if (!(p.fps >= 30 && p.fps < 30.9))
        return kNoMatch;
    if (isAny(p.h, {1035, 1036}) && isHdWidth(p.w))
        return k1035i | kR30;
    if (between(p.h, 1037, 1124)) {
        if (isHdWidth(p.w))
            return pick(p.progressive, k1080P, k1080i) | kR30;
        if (p.w == 2048)
            return k2048x1080P | kR30;
    }
    if (is720Height(p.h) && isAny(p.w, {960, 1280}))
        return k720P | kR30;
    /* NTSC rasters at 30 fps get the 29.97 codes. */
    if (isAny(p.w, {320, 640}))
        return kNtsc;
    if (isAny(p.w, {352, 360, 704, 720}))
        return kNtscCcir601;
    return byWidth(p, kR30);
}

/* The integer part of the rate, rounded down past the 1000/1001 rates. */
uint32_t genericRateCode(double fps)
{
    if (fps == floor(fps))
        return truncateToU32(fps);
    return truncateToU32(fps - 0.8);
}

bool isInterlacedHeight(uint32_t h)
{
    return isAny(h, {512, 576}) || (h < 720 && isAny(h, {480, 486, 608}));
}

uint32_t genericScan(uint32_t w, uint32_t h, uint32_t rate)
{
    if (isAny(h, {720, 1035, 1036}) || contains(kProgressiveWidths, w) ||
        contains(kProgressiveRateCodes, rate) || between(rate, 61, 99))
        return kScanProgressive;
    return h > 599 ? kScanProgressive : kScanInterlaced;
}

/* Any raster the table has tokens for. The rate code is OR-ed in as it is;
 * rates of 512 fps and above are outside the code's nine bits. */
uint32_t genericCode(const Picture &p)
{
    uint32_t w = p.w;
    const uint32_t h = p.h;
    if (h == 1080 && isAny(w, {1280, 1440}))
        w = 1920;
    else if (w == 960 && h == 720)
        w = 1280;
    const uint32_t widthToken = vidGetTokenFromSize(w);
    const uint32_t heightToken = vidGetTokenFromSize(h);
    if (widthToken == kUnknown || heightToken == kUnknown)
        return QRV_SIGNAL_FORMAT_NONE;
    uint32_t rate = genericRateCode(p.fps);
    uint32_t scan;
    if (isInterlacedHeight(h)) {
        scan = kScanInterlaced;
        if (!contains(kInterlacedRateCodes, rate))
            rate = kRateUnrecognised;
    } else {
        scan = genericScan(w, h, rate);
    }
    return scan << 28 | heightToken << 20 | widthToken << 9 | rate;
}

using Rule = uint32_t (*)(const Picture &);

constexpr Rule kRules[] = {filmScanCode, code25, code24, code2398, highRateCode, code2997, code30};

} // namespace
} // namespace qrv::video

using namespace qrv::video;

unsigned vidGetSignalFormat(unsigned rate, unsigned scale, unsigned width, int height,
                            int progressive)
{
    const Picture picture{framesPerSecond(rate, scale), width, lineCount(height), progressive != 0};
    for (Rule rule : kRules)
        if (const uint32_t code = rule(picture))
            return code;
    return genericCode(picture);
}
