/* Fixed-point helpers shared by the speed, position and counter classes. */
#ifndef QRVUTIL_TRANSPORT_FIXED_POINT_H
#define QRVUTIL_TRANSPORT_FIXED_POINT_H

#include <qrvutil/transport.h>

#include <stdint.h>

namespace qrv::transport {

constexpr int64_t kUnit = QRV_TRANSPORT_UNIT;

struct Split {
    int64_t whole;    /* floor(v / 65520) */
    int32_t fraction; /* 0..65519 */
};

/* The one floor split: v = 65520 * whole + fraction with fraction in
 * 0..65519. Truncating division, then the remainder is moved up by one frame
 * when negative. */
constexpr Split floorSplit(int64_t v)
{
    int64_t q = v / kUnit;
    int64_t r = v - kUnit * q;
    if (r < 0) {
        q -= 1;
        r += kUnit;
    }
    return Split{q, static_cast<int32_t>(r)};
}

/* Whole-frame counts wrap in 32 bits, as the position's storage does. */
constexpr int32_t wrap32(uint64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(v)); }

constexpr int32_t addWrapped(int32_t a, int64_t b)
{
    return wrap32(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

} // namespace qrv::transport

#endif
