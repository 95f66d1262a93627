/* Rates as exact rate/scale pairs, frame periods and timecode types. */
#include <qrvutil/host.h>
#include <qrvutil/video.h>

#include <math.h>

#include <limits>

#include "video/video_internal.h"

namespace qrv::video {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/* Band into which measured rates are folded: both ends inclusive. */
constexpr double kBandLow = 23.0;
constexpr double kBandHigh = 60.0;

/* Folding windows, tried in order on the running result, each inclusive at
 * both ends: f = f * multiplier / divisor. 15.5 fps becomes 31 and 120
 * becomes 30, as recorders have always counted them. */
struct FoldWindow {
    double low;
    double high;
    double multiplier;
    double divisor;
};

constexpr FoldWindow kFoldWindows[] = {
    {14.0, 15.5, 2.0, 1.0},
    {47.0, 48.5, 1.0, 2.0},
    {71.0, 72.5, 1.0, 3.0},
    {100.0, 120.0, 1.0, 4.0},
};

/* Windows of a folded rate inside the band, first match wins: the canonical
 * pair and the timecode type of each. The upper bound is exclusive; the lower
 * one too where `lowExclusive` says so. */
struct RateWindow {
    double low;
    bool lowExclusive;
    double high;
    RatePair pair;
    uint32_t tcType;
};

constexpr RateWindow kRateWindows[] = {
    {24.9, true, 25.1, k25, kTcPal},      {23.0, false, 24.0, k2398, kTcFilmDrop},
    {24.0, false, 25.0, k24, kTcFilm},    {47.0, false, 49.0, k48, kTcFilm},
    {60.0, false, kInfinity, k60, kTc60}, {59.0, false, kInfinity, k5994, kTc5994},
    {50.0, false, kInfinity, k50, kTc50}, {29.0, true, 30.0, k2997, kTcDrop},
    {30.0, false, 30.9, k30, kTcNonDrop},
};

/* Pair used when a code has no usable rate. */
constexpr RatePair kDefaultPair = k2997;

/* Text form selector handed to tcToString() with the source type. */
constexpr unsigned kTcTextForm = 0x32100;

bool inBand(double f) { return f >= kBandLow && f <= kBandHigh; }

bool inWindow(const RateWindow &w, double f)
{
    const bool aboveLow = w.lowExclusive ? f > w.low : f >= w.low;
    return aboveLow && f < w.high;
}

/* The window of a measured rate, or null when it is not a known rate. */
const RateWindow *findRateWindow(double fps)
{
    const double f = foldRate(fps);
    if (!inBand(f))
        return nullptr;
    for (const auto &w : kRateWindows)
        if (inWindow(w, f))
            return &w;
    return nullptr;
}

void store(const RatePair &pair, unsigned *rate, unsigned *scale)
{
    *rate = pair.rate;
    *scale = pair.scale;
}

/* Pairs given in hundredths or thousandths of a frame: see kScaledRates. */
bool normalizeScaledRate(unsigned *rate, unsigned *scale)
{
    bool listed = false;
    for (const auto &row : kScaledRates) {
        if (*rate < row.first || *rate > row.last)
            continue;
        listed = true;
        if (*scale != 0 && *rate / *scale == row.quotient) {
            store(row.pair, rate, scale);
            return true;
        }
    }
    return listed;
}

void normalizeByQuotient(unsigned *rate, unsigned *scale)
{
    if (*scale == 0)
        return;
    const uint32_t quotient = *rate / *scale;
    for (const auto &qp : kQuotientPairs) {
        if (qp.quotient == quotient) {
            store(qp.pair, rate, scale);
            return;
        }
    }
    if (static_cast<double>(*rate) / *scale == static_cast<double>(quotient)) {
        *rate = quotient;
        *scale = 1;
    }
}

} // namespace

double framesPerSecond(uint32_t rate, uint32_t scale)
{
    if (scale == 0)
        return rate == 0 ? std::numeric_limits<double>::quiet_NaN() : kInfinity;
    return static_cast<double>(rate) / scale;
}

double foldRate(double fps)
{
    double f = fps;
    for (const auto &w : kFoldWindows)
        if (f >= w.low && f <= w.high)
            f = f * w.multiplier / w.divisor;
    return f;
}

uint32_t truncateToU32(double v)
{
    if (!(v > 0.0))
        return 0;
    if (v >= 4294967296.0)
        return UINT32_MAX;
    return static_cast<uint32_t>(v);
}

} // namespace qrv::video

using namespace qrv;
using namespace qrv::video;

int vidRateScale(unsigned code, unsigned *rate, unsigned *scale)
{
    if (code == QRV_SIGNAL_FORMAT_NONE || !rate || !scale)
        return -1;
    if (const NamedFormat *named = findNamedFormat(code)) {
        store(named->pair, rate, scale);
        return 0;
    }
    /* Any rate code is a whole rate until the table says otherwise. */
    const uint32_t rateCode = QRV_SF_RATE_CODE(code);
    *rate = rateCode;
    *scale = 1;
    if (const RateCode *known = findRateCode(rateCode))
        store(known->pair, rate, scale);
    /* 256 is the rate code of an unrecognised rate (see vidGetSignalFormat). */
    return rateCode == 256 ? -1 : 0;
}

int vidRateScale(double fps, unsigned *rate, unsigned *scale)
{
    if (!rate || !scale)
        return -1;
    if (const RateWindow *w = findRateWindow(fps)) {
        store(w->pair, rate, scale);
        return 0;
    }
    *rate = truncateToU32(trunc(foldRate(fps)) * 100.0);
    *scale = 100;
    return 1;
}

int vidNormalizeRateScale(unsigned *rate, unsigned *scale)
{
    if (!rate || !scale)
        return 0;
    if (contains(kWholeRates, *rate)) {
        *scale = 1;
        return 0;
    }
    if (!normalizeScaledRate(rate, scale))
        normalizeByQuotient(rate, scale);
    return 0;
}

int vidRateScaleFromSize(unsigned width, unsigned height, unsigned *rate, unsigned *scale)
{
    if (!rate || !scale)
        return -1;
    if (width <= 720)
        store(height < 513 ? k2997 : k25, rate, scale);
    else if (width <= 1080)
        store(k2997, rate, scale);
    else if (width <= 1828)
        store(k25, rate, scale);
    else if (width <= 1920)
        store(k2997, rate, scale);
    else if (width <= 2048)
        store(height >= 1236 ? k24 : k25, rate, scale);
    else if (width <= 4096)
        store(k24, rate, scale);
    return 0;
}

double vidFramesPerSecD(unsigned code, unsigned rate, unsigned scale)
{
    if (rate != 0 && scale != 0)
        return framesPerSecond(rate, scale);
    unsigned codeRate = 0;
    unsigned codeScale = 0;
    if (vidRateScale(code, &codeRate, &codeScale) != 0)
        return framesPerSecond(kDefaultPair.rate, kDefaultPair.scale);
    return framesPerSecond(codeRate, codeScale);
}

double vidMsPerFrameD(unsigned code, unsigned rate, unsigned scale)
{
    const double fps = vidFramesPerSecD(code, rate, scale);
    return fps > 0.0 ? 1000.0 / fps : kInfinity;
}

unsigned vidMsPerFrame(unsigned code, unsigned rate, unsigned scale)
{
    return truncateToU32(vidMsPerFrameD(code, rate, scale) + 0.5);
}

double vidTCFramesPerSecD(unsigned tcType) { return timecodeType(tcType).fps; }

double vidTCMsPerFrameD(unsigned tcType) { return timecodeType(tcType).msPerFrame; }

unsigned vidTCMsPerFrame(unsigned tcType) { return timecodeType(tcType).msPerFrameRounded; }

unsigned vidGetTCType(double fps)
{
    const RateWindow *w = findRateWindow(fps);
    return w ? w->tcType : kTcNonDrop;
}

unsigned vidGetTCTypeSignalFormat(unsigned code)
{
    const RateCode *known = findRateCode(QRV_SF_RATE_CODE(code));
    return known ? known->tcType : kTcNonDrop;
}

int vidConvertTC(unsigned *frame, unsigned toType, unsigned rate, unsigned scale)
{
    if (!frame)
        return -1;
    const unsigned fromType = vidGetTCType(framesPerSecond(rate, scale));
    if (fromType == toType)
        return 0;
    char text[QRV_TIMECODE_TEXT_SIZE] = {0};
    tcToString(*frame, fromType | kTcTextForm, text);
    text[sizeof text - 1] = '\0';
    unsigned converted = 0;
    if (tcToFrame(text, toType, &converted) != 0)
        return -1;
    /* 59.94 and 60 fps timecode counts frame pairs: the count read back is
     * in pairs, so double it. */
    if (fromType == kTc60 || fromType == kTc5994)
        converted *= 2;
    *frame = converted;
    return 0;
}
