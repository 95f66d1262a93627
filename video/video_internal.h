/* Lookups and numeric helpers shared by the signal-format and timing code. */
#ifndef QRVUTIL_VIDEO_INTERNAL_H
#define QRVUTIL_VIDEO_INTERNAL_H

#include <stddef.h>
#include <stdint.h>

#include "video/video_tables.h"

namespace qrv::video {

/* The entry of `table` whose code is `code`, or null. */
template <typename Entry, size_t N>
const Entry *findByCode(const Entry (&table)[N], uint32_t code)
{
    for (const Entry &entry : table)
        if (entry.code == code)
            return &entry;
    return nullptr;
}

/* The named format of `code`, or null. */
inline const NamedFormat *findNamedFormat(uint32_t code) { return findByCode(kNamedFormats, code); }
/* The entry of a rate code (bits 0-8 of a signal format), or null. */
inline const RateCode *findRateCode(uint32_t rateCode) { return findByCode(kRateCodes, rateCode); }

/* rate / scale in double without dividing by zero: a zero scale gives
 * +infinity (or NaN for 0/0), as the IEEE division would. */
double framesPerSecond(uint32_t rate, uint32_t scale);

/* Brings 14-15.5, 47-48.5, 71-72.5 and 100-120 fps into the 23-60 band; the
 * windows are inclusive and tried in this order on the running result. */
double foldRate(double fps);

/* Truncation toward zero into 0..UINT32_MAX: NaN and negatives give 0,
 * values beyond the range saturate. */
uint32_t truncateToU32(double v);

/* Line count of a height that is negative for bottom-up images. */
inline uint32_t lineCount(int height)
{
    const uint32_t u = static_cast<uint32_t>(height);
    return height < 0 ? 0u - u : u;
}

template <size_t N>
bool contains(const uint32_t (&values)[N], uint32_t v)
{
    for (uint32_t x : values)
        if (x == v)
            return true;
    return false;
}

/* Forgets the cached forced-matrix setting so that the next GetMatrixBySize()
 * reads the configuration store again. For tests. */
void resetMatrixSetting();

} // namespace qrv::video

#endif
