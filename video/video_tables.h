/* The signal-format, rate and timecode tables behind the vid... functions. */
#ifndef QRVUTIL_VIDEO_TABLES_H
#define QRVUTIL_VIDEO_TABLES_H

#include <stddef.h>
#include <stdint.h>

#include "host/timecode_types.h"

namespace qrv::video {

constexpr uint32_t kUnknown = 0xFFFFFFFFu;
constexpr uint32_t kNa = kUnknown;

/* Pixel or line count of size token t at index t - 1. Not sorted by size
 * (37 is 988, 38 is 857): codes in files and on the wire carry these tokens. */
// clang-format off
inline constexpr uint32_t kSizeOfToken[128] = {
    /*   1 */ 240, 243, 288, kNa, kNa, kNa, kNa, 320,
    /*   9 */ 352, 360, kNa, kNa, kNa, kNa, kNa, 480,
    /*  17 */ 483, 486, kNa, 496, kNa, 504, 512, kNa,
    /*  25 */ kNa, 576, 600, 608, kNa, kNa, kNa, 640,
    /*  33 */ 720, 768, 800, 864, 988, 857, kNa, 960,
    /*  41 */ 968, 778, 872, kNa, kNa, kNa, kNa, 1024,
    /*  49 */ 1035, 1044, 1052, 1050, kNa, kNa, kNa, 1080,
    /*  57 */ 1088, 1096, kNa, kNa, kNa, 1102, kNa, 1152,
    /*  65 */ 1200, kNa, 1234, kNa, kNa, kNa, kNa, 1280,
    /*  73 */ 1332, kNa, 1400, 1440, kNa, kNa, kNa, 1536,
    /*  81 */ 1556, 1588, kNa, kNa, kNa, 1828, 1714, 1600,
    /*  89 */ 1920, 1782, 7680, 8192, kNa, kNa, kNa, 2048,
    /*  97 */ kNa, kNa, kNa, 2160, 4096, kNa, kNa, 2650,
    /* 105 */ kNa, 2880, 3112, kNa, kNa, kNa, kNa, kNa,
    /* 113 */ kNa, kNa, kNa, kNa, kNa, kNa, kNa, 3840,
    /* 121 */ kNa, kNa, kNa, kNa, kNa, kNa, kNa, 4096,
};
// clang-format on

struct TokenRange {
    uint32_t first;
    uint32_t last;
    uint32_t token;
};

/* The token chosen when a raster is encoded. Deliberately not the inverse of
 * kSizeOfToken (1035 encodes as 48, whose size is 1024; tokens 90, 91, 92,
 * 100, 101, 106 and 120 are never chosen): codes already in files were made
 * by exactly these ranges. */
// clang-format off
inline constexpr TokenRange kTokenRanges[] = {
    {240, 240, 1}, {241, 287, 2}, {288, 319, 3}, {320, 351, 8},
    {352, 359, 9}, {360, 479, 10}, {480, 482, 16}, {483, 485, 17},
    {486, 495, 18}, {496, 503, 20}, {504, 511, 22}, {512, 575, 23},
    {576, 599, 26}, {600, 607, 27}, {608, 639, 28}, {640, 719, 32},
    {720, 767, 33}, {768, 777, 34}, {778, 799, 42}, {800, 856, 35},
    {857, 863, 38}, {864, 871, 36}, {872, 959, 43}, {960, 967, 40},
    {968, 987, 41}, {988, 1023, 37}, {1024, 1035, 48}, {1036, 1043, 49},
    {1044, 1049, 50}, {1050, 1051, 52}, {1052, 1079, 51}, {1080, 1087, 56},
    {1088, 1095, 57}, {1096, 1101, 58}, {1102, 1151, 62}, {1152, 1199, 64},
    {1200, 1233, 65}, {1234, 1279, 67}, {1280, 1331, 72}, {1332, 1399, 73},
    {1400, 1439, 75}, {1440, 1535, 76}, {1536, 1555, 80}, {1556, 1587, 81},
    {1588, 1599, 82}, {1600, 1713, 88}, {1714, 1827, 87}, {1828, 1919, 86},
    {1920, 2047, 89}, {2048, 2649, 96}, {2650, 3111, 104}, {3112, 4095, 107},
    {4096, 8192, 128},
};
// clang-format on

struct RatePair {
    uint32_t rate;
    uint32_t scale;
};

constexpr RatePair k5{5, 1};
constexpr RatePair k1498{15000, 1001};
constexpr RatePair k15{15, 1};
constexpr RatePair k2398{24000, 1001};
constexpr RatePair k24{24, 1};
constexpr RatePair k25{25, 1};
constexpr RatePair k2997{30000, 1001};
constexpr RatePair k30{30, 1};
constexpr RatePair k4795{48000, 1001};
constexpr RatePair k48{48, 1};
constexpr RatePair k50{50, 1};
constexpr RatePair k5994{60000, 1001};
constexpr RatePair k60{60, 1};
constexpr RatePair k7193{72000, 1001};
constexpr RatePair k72{72, 1};
constexpr RatePair k100{100, 1};
constexpr RatePair k11988{120000, 1001};

/* A rate code (bits 0-8 of a signal format): its exact pair, its text in
 * format names, and the timecode type a format of that rate counts in.
 * High rates count in the timecode of their base rate. */
struct RateCode {
    uint32_t code;
    RatePair pair;
    const char *text;
    uint32_t tcType;
};

// clang-format off
inline constexpr RateCode kRateCodes[] = {
    {14, k1498, "14.98", kTcDrop},       {15, k15, "15", kTcNonDrop},
    {23, k2398, "23.98", kTcFilmDrop},   {24, k24, "24", kTcFilm},
    {25, k25, "25", kTcPal},             {29, k2997, "29.97", kTcDrop},
    {30, k30, "30", kTcNonDrop},         {47, k4795, "47.95", kTcFilmDrop},
    {48, k48, "48", kTcFilm},            {50, k50, "50", kTcPal},
    {59, k5994, "59.94", kTcDrop},       {60, k60, "60", kTcNonDrop},
    {71, k7193, "71.93", kTcFilmDrop},   {72, k72, "72", kTcFilm},
    {100, k100, "100", kTcPal},          {119, k11988, "119.88", kTcDrop},
};
// clang-format on

/* A named signal format. fieldHeight is the height of one field for the
 * interlaced codes and 0 for the others. */
struct NamedFormat {
    uint32_t code;
    uint32_t width;
    uint32_t height;
    uint32_t fieldHeight;
    RatePair pair;
    const char *text;
};

/* Rasters here win over the tokens: "PAL" carries a 640 width token and is
 * 720 wide, the 4320-line codes carry a 4096 height token. The scan letter's
 * case, the line-count-first 1080/1035 names and the 3840 name on the first
 * 4096-wide code are the names recorders have always shown; keep them. */
// clang-format off
inline constexpr NamedFormat kNamedFormats[] = {
    {0x1100401d, 640, 480, 240, k2997, "NTSC"},
    {0x1120421d, 720, 486, 243, k2997, "NTSC-CCIR601"},
    {0x11204217, 720, 486, 243, k2398, "NTSC-23.98"},
    {0x2110421d, 720, 483, 0, k2997, "NTSC-P483"},
    {0x2120421e, 720, 486, 0, k30, "NTSC-P30"},
    {0x11a04019, 720, 576, 288, k25, "PAL"},
    {0x11a04219, 720, 576, 288, k25, "PAL-CCIR601"},
    {0x21a04219, 720, 576, 0, k25, "PAL-P25"},
    {0x1310b21d, 1920, 1035, 517, k2997, "1035x1920i@29.97"},
    {0x1310b21e, 1920, 1035, 517, k30, "1035x1920i@30"},
    {0x1380b217, 1920, 1080, 540, k2398, "1080x1920i@23.98"},
    {0x1380b218, 1920, 1080, 540, k24, "1080x1920i@24"},
    {0x1380b219, 1920, 1080, 540, k25, "1080x1920i@25"},
    {0x1380b21d, 1920, 1080, 540, k2997, "1080x1920i@29.97"},
    {0x1380b21e, 1920, 1080, 540, k30, "1080x1920i@30"},
    {0x1380b232, 1920, 1080, 540, k50, "1080x1920p@50B"},
    {0x1380b23b, 1920, 1080, 540, k5994, "1080x1920p@59.94B"},
    {0x1380b23c, 1920, 1080, 540, k60, "1080x1920p@60B"},
    {0x2380b217, 1920, 1080, 0, k2398, "1080x1920P@23.98"},
    {0x2380b218, 1920, 1080, 0, k24, "1080x1920P@24"},
    {0x2380b219, 1920, 1080, 0, k25, "1080x1920P@25"},
    {0x2380b21d, 1920, 1080, 0, k2997, "1080x1920P@29.97"},
    {0x2380b21e, 1920, 1080, 0, k30, "1080x1920P@30"},
    {0x2380b22f, 1920, 1080, 0, k4795, "1080x1920p@47.95"},
    {0x2380b230, 1920, 1080, 0, k48, "1080x1920p@48"},
    {0x2380b232, 1920, 1080, 0, k50, "1080x1920p@50"},
    {0x2380b23b, 1920, 1080, 0, k5994, "1080x1920p@59.94"},
    {0x2380b23c, 1920, 1080, 0, k60, "1080x1920p@60"},
    {0x4380b217, 1920, 1080, 0, k2398, "1080x1920psf@23.98"},
    {0x4380b218, 1920, 1080, 0, k24, "1080x1920psf@24"},
    {0x4380b219, 1920, 1080, 0, k25, "1080x1920psf@25"},
    {0x4380b21d, 1920, 1080, 0, k2997, "1080x1920psf@29.97"},
    {0x4380b21e, 1920, 1080, 0, k30, "1080x1920psf@30"},
    {0x22109019, 1280, 720, 0, k25, "1280x720P@25"},
    {0x2210901d, 1280, 720, 0, k2997, "1280x720P@29.97"},
    {0x2210901e, 1280, 720, 0, k30, "1280x720P@30"},
    {0x22109032, 1280, 720, 0, k50, "1280x720P@50"},
    {0x2210903b, 1280, 720, 0, k5994, "1280x720P@59.94"},
    {0x2210903c, 1280, 720, 0, k60, "1280x720P@60"},
    {0x2380c017, 2048, 1080, 0, k2398, "2048x1080@23.98"},
    {0x2380c018, 2048, 1080, 0, k24, "2048x1080@24"},
    {0x2380c019, 2048, 1080, 0, k25, "2048x1080@25"},
    {0x4380c017, 2048, 1080, 0, k2398, "2048x1080psf@23.98"},
    {0x4380c018, 2048, 1080, 0, k24, "2048x1080psf@24"},
    {0x4380c019, 2048, 1080, 0, k25, "2048x1080psf@25"},
    {0x2510c00e, 2048, 1556, 0, k1498, "2048x1556@14.98"},
    {0x2510c00f, 2048, 1556, 0, k15, "2048x1556@15"},
    {0x2510c017, 2048, 1556, 0, k2398, "2048x1556@23.98"},
    {0x2510c018, 2048, 1556, 0, k24, "2048x1556@24"},
    {0x4510c018, 2048, 1556, 0, k24, "2048x1556psf@24"},
    {0x2500c00e, 2048, 1536, 0, k1498, "2048x1536@14.98"},
    {0x2500c00f, 2048, 1536, 0, k15, "2048x1536@15"},
    {0x2500c017, 2048, 1536, 0, k2398, "2048x1536@23.98"},
    {0x2500c018, 2048, 1536, 0, k24, "2048x1536@24"},
    {0x4500c018, 2048, 1536, 0, k24, "2048x1536psf@24"},
    {0x25710017, 4096, 1714, 0, k2398, "4096x1714@23.98"},
    {0x25710018, 4096, 1714, 0, k24, "4096x1714@24"},
    {0x46b10005, 4096, 3112, 0, k5, "4096x3112@5"},
    {0x26b10017, 4096, 3112, 0, k2398, "4096x3112@23.98"},
    {0x26b10018, 4096, 3112, 0, k24, "4096x3112@24"},
    {0x2640f017, 3840, 2160, 0, k2398, "3840x2160P 23.98fps"},
    {0x2640f018, 3840, 2160, 0, k24, "3840x2160P 24fps"},
    {0x2640f019, 3840, 2160, 0, k25, "3840x2160P 25fps"},
    {0x2640f01d, 3840, 2160, 0, k2997, "3840x2160P 29.97fps"},
    {0x2640f01e, 3840, 2160, 0, k30, "3840x2160P 30fps"},
    {0x2640f03b, 3840, 2160, 0, k5994, "3840x2160P 59.94fps"},
    {0x2640f03c, 3840, 2160, 0, k60, "3840x2160P 60fps"},
    {0x4640f017, 3840, 2160, 0, k2398, "3840x2160psf 23.98fps"},
    {0x4640f018, 3840, 2160, 0, k24, "3840x2160psf 24fps"},
    {0x4640f019, 3840, 2160, 0, k25, "3840x2160psf 25fps"},
    {0x26410017, 4096, 2160, 0, k2398, "3840x2160P 23.98fps"},
    {0x26410018, 4096, 2160, 0, k24, "4096x2160P 24fps"},
    {0x26410019, 4096, 2160, 0, k25, "4096x2160P 25fps"},
    {0x2641001d, 4096, 2160, 0, k2997, "4096x2160P 29.97fps"},
    {0x2641001e, 4096, 2160, 0, k30, "4096x2160P 30fps"},
    {0x26410030, 4096, 2160, 0, k48, "4096x2160P 48fps"},
    {0x26410032, 4096, 2160, 0, k50, "4096x2160P 50fps"},
    {0x2641003b, 4096, 2160, 0, k5994, "4096x2160P 59.94fps"},
    {0x2641003c, 4096, 2160, 0, k60, "4096x2160P 60fps"},
    {0x46410017, 4096, 2160, 0, k2398, "4096x2160psf 23.98fps"},
    {0x46410018, 4096, 2160, 0, k24, "4096x2160psf 24fps"},
    {0x46410019, 4096, 2160, 0, k25, "4096x2160psf 25fps"},
    {0x4641001d, 4096, 2160, 0, k2997, "4096x2160psf 29.97fps"},
    {0x4641001e, 4096, 2160, 0, k30, "4096x2160psf 30fps"},
    {0x2650b617, 7680, 4320, 0, k2398, "7680x4320 23.98fps"},
    {0x2650b618, 7680, 4320, 0, k24, "7680x4320 24fps"},
    {0x2650b619, 7680, 4320, 0, k25, "7680x4320 25fps"},
    {0x2650b61d, 7680, 4320, 0, k2997, "7680x4320 29.97fps"},
    {0x2650b61e, 7680, 4320, 0, k30, "7680x4320 30fps"},
    {0x2650b632, 7680, 4320, 0, k50, "7680x4320 50fps"},
    {0x2650b63b, 7680, 4320, 0, k5994, "7680x4320 59.94fps"},
    {0x2650b63c, 7680, 4320, 0, k60, "7680x4320 60fps"},
    {0x2650b817, 8192, 4320, 0, k2398, "8192x4320 23.98fps"},
    {0x2650b818, 8192, 4320, 0, k24, "8192x4320 24fps"},
    {0x2650b819, 8192, 4320, 0, k25, "8192x4320 25fps"},
    {0x2650b81d, 8192, 4320, 0, k2997, "8192x4320 29.97fps"},
    {0x2650b81e, 8192, 4320, 0, k30, "8192x4320 30fps"},
    {0x2650b832, 8192, 4320, 0, k50, "8192x4320 50fps"},
    {0x2650b83b, 8192, 4320, 0, k5994, "8192x4320 59.94fps"},
    {0x2650b83c, 8192, 4320, 0, k60, "8192x4320 60fps"},
};
// clang-format on

/* The longest name, "4096x2160psf 29.97fps", is 21 characters. */
constexpr size_t kLongestName = 21;

/* vidNormalizeRateScale: rates given in hundredths or thousandths. A rate in
 * [first, last] is decided here alone: the row whose quotient rate / scale
 * matches gives the pair, and no match leaves the pair as it is. 23.976 is
 * kept as 23976/1000 on these paths; stored clips carry that pair. */
struct ScaledRate {
    uint32_t first;
    uint32_t last;
    uint32_t quotient;
    RatePair pair;
};

// clang-format off
inline constexpr ScaledRate kScaledRates[] = {
    {2397, 2398, 23, {23976, 1000}},
    {2400, 2400, 23, k2398},
    {2400, 2400, 24, k24},
    {2996, 2998, 23, k2398},
    {2996, 2998, 29, k2997},
    {3000, 3000, 29, k2997},
    {3000, 3000, 30, k30},
    {23976, 23977, 23, {23976, 1000}},
};
// clang-format on

/* vidNormalizeRateScale: rates that are already whole frames per second and
 * are kept, only the scale becoming 1 (29/1 stays 29/1). */
// clang-format off
inline constexpr uint32_t kWholeRates[] = {10, 15, 23, 24, 25, 29, 30, 59, 60};

/* vidNormalizeRateScale: the canonical pair of any other rate by its
 * integer quotient. */
struct QuotientPair {
    uint32_t quotient;
    RatePair pair;
};
// clang-format on

// clang-format off
inline constexpr QuotientPair kQuotientPairs[] = {
    {23, k2398}, {24, k24}, {25, k25}, {29, k2997}, {30, k30},
    {48, k48},   {50, k50}, {59, k5994}, {60, k60},
};
// clang-format on

} // namespace qrv::video

#endif
