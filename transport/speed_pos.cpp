/* Fixed-point speed and position values. */
#include <qrvutil/transport.h>

#include <math.h>
#include <stddef.h>

#include "transport/fixed_point.h"

using qrv::transport::addWrapped;
using qrv::transport::floorSplit;
using qrv::transport::kUnit;
using qrv::transport::wrap32;

static_assert(offsetof(CQRVPos, whole) == 0 && offsetof(CQRVPos, fraction) == 4,
              "CQRVPos keeps whole frames first");

namespace {

/* The 64-bit quotient kept as 32 bits; a zero divisor is the undefined ratio. */
int32_t divideOrUndefined(int64_t numerator, int64_t divisor)
{
    if (divisor == 0)
        return QRV_SPEED_UNDEFINED;
    return wrap32(static_cast<uint64_t>(numerator / divisor));
}

/* Truncation toward zero without leaving the int32 range. */
int32_t truncateSaturated(double v)
{
    if (isnan(v))
        return 0;
    if (v >= 2147483647.0)
        return INT32_MAX;
    if (v <= -2147483648.0)
        return INT32_MIN;
    return static_cast<int32_t>(v);
}

} // namespace

int CQRVSpeed::Set(int num, int den)
{
    value = divideOrUndefined(static_cast<int64_t>(num) * kUnit, den);
    return value;
}

CQRVSpeed &CQRVSpeed::operator=(const double &d)
{
    value = truncateSaturated(d * static_cast<double>(kUnit));
    return *this;
}

int CQRVSpeed::Fractionalize()
{
    const auto split = floorSplit(value);
    value = split.fraction;
    return static_cast<int>(split.whole);
}

CQRVSpeed operator*(const CQRVSpeed &a, const CQRVSpeed &b)
{
    CQRVSpeed result;
    result.value = wrap32(static_cast<uint64_t>(static_cast<int64_t>(a.value) * b.value / kUnit));
    return result;
}

CQRVSpeed operator/(const CQRVSpeed &a, const CQRVSpeed &b)
{
    CQRVSpeed result;
    result.value = divideOrUndefined(static_cast<int64_t>(a.value) * kUnit, b.value);
    return result;
}

void CQRVPos::Normalize()
{
    const auto split = floorSplit(fraction);
    whole = addWrapped(whole, split.whole);
    fraction = split.fraction;
}

void CQRVPos::Set(int w, int frac)
{
    whole = w;
    fraction = frac;
    Normalize();
}

void CQRVPos::Set(const CQRVSpeed &s)
{
    const auto split = floorSplit(s.value);
    whole = static_cast<int32_t>(split.whole);
    fraction = split.fraction;
}

void CQRVPos::SetAsFrac(int num, int den)
{
    if (den == 0) {
        whole = QRV_SPEED_UNDEFINED;
        fraction = 0;
        return;
    }
    /* 64-bit so that INT_MIN / -1 wraps instead of trapping. */
    const int64_t quotient = static_cast<int64_t>(num) / den;
    const int64_t remainder = static_cast<int64_t>(num) % den;
    whole = wrap32(static_cast<uint64_t>(quotient));
    fraction = static_cast<int32_t>(remainder * kUnit / den);
    Normalize();
}

CQRVPos operator+(const CQRVPos &a, const CQRVPos &b)
{
    const auto split = floorSplit(static_cast<int64_t>(a.fraction) + b.fraction);
    CQRVPos result;
    result.whole = addWrapped(addWrapped(a.whole, b.whole), split.whole);
    result.fraction = split.fraction;
    return result;
}

CQRVPos operator-(const CQRVPos &a, const CQRVPos &b)
{
    const auto split = floorSplit(static_cast<int64_t>(a.fraction) - b.fraction);
    CQRVPos result;
    result.whole = addWrapped(addWrapped(a.whole, -static_cast<int64_t>(b.whole)), split.whole);
    result.fraction = split.fraction;
    return result;
}
