/* The transport position counter: steps by the speed, wraps in a range. */
#include <qrvutil/transport.h>

#include <stddef.h>

#include "transport/fixed_point.h"

using qrv::transport::addWrapped;
using qrv::transport::floorSplit;
using qrv::transport::kUnit;
using qrv::transport::wrap32;

static_assert(offsetof(CQRVTransTC, rangeStart) == 0, "layout");
static_assert(offsetof(CQRVTransTC, rangeEnd) == 4, "layout");
static_assert(offsetof(CQRVTransTC, rangeLength) == 8, "layout");
static_assert(offsetof(CQRVTransTC, position) == 12, "layout");
static_assert(offsetof(CQRVTransTC, speed) == 20, "layout");
static_assert(offsetof(CQRVTransTC, playCountStale) == 24, "layout");
static_assert(offsetof(CQRVTransTC, stepCounter) == 28, "layout");
static_assert(offsetof(CQRVTransTC, cachedPlayCount) == 32, "layout");

namespace {

/* Positions just below zero (-99..-1) are lifted by one range length before
 * wrapping; anything lower wraps as its unsigned value. Kept exactly so:
 * transports built on this counter depend on where such positions land. */
constexpr uint32_t kLiftFrom = 0xFFFFFF9Du;

constexpr int32_t kHalfFrame = static_cast<int32_t>(kUnit / 2);

bool isNormalPlay(const CQRVSpeed &s) { return s.value == kUnit || s.value == -kUnit; }

} // namespace

void CQRVTransTC::SetRange(int a, int b)
{
    const bool ordered = a < b || b == -1;
    rangeStart = static_cast<uint32_t>(ordered ? a : b);
    rangeEnd = static_cast<uint32_t>(ordered ? b : a);
    rangeLength = rangeEnd - rangeStart;
}

void CQRVTransTC::SetTC(const CQRVPos &p)
{
    position = p;
    position.Normalize();
    playCountStale = true;
    Wrap();
    stepCounter = 0;
}

void CQRVTransTC::SetTC(int frame)
{
    position.whole = frame;
    position.fraction = 0;
    stepCounter = 0;
    Wrap();
    playCountStale = true;
}

void CQRVTransTC::SetSpeed(const CQRVSpeed &s)
{
    speed = s;
    playCountStale = true;
    position.fraction = isNormalPlay(s) ? 0 : kHalfFrame;
}

void CQRVTransTC2::SetSpeedZero(const CQRVSpeed &s)
{
    speed = s;
    playCountStale = true;
    if (isNormalPlay(s))
        position.fraction = 0;
}

void CQRVTransTC::Modulo() { Wrap(); }

uint32_t CQRVTransTC::PlayCount()
{
    if (!playCountStale)
        return cachedPlayCount;
    const int64_t s = speed.value;
    const int64_t f = position.fraction;
    /* Still and fast speeds show every frame once; the cache stays stale so
     * that the count is worked out again once the speed changes. */
    if (s == 0 || s >= kUnit || s <= -kUnit)
        return 1;
    const int64_t k = s > 0 ? (kUnit - 1 - f) / s : f / -s;
    cachedPlayCount = static_cast<uint32_t>((k < 0 ? -k : k) + 1);
    playCountStale = false;
    return cachedPlayCount;
}

void CQRVTransTC::Step(int n, bool forward)
{
    const uint32_t count = PlayCount();
    /* A 32-bit product, as the counter has always used. */
    const uint32_t product = static_cast<uint32_t>(speed.value) * count * static_cast<uint32_t>(n);
    const auto delta = floorSplit(static_cast<int32_t>(product));
    const int64_t sign = forward ? 1 : -1;
    position.whole = addWrapped(position.whole, sign * delta.whole);
    const auto moved = floorSplit(position.fraction + sign * delta.fraction);
    position.whole = addWrapped(position.whole, moved.whole);
    position.fraction = moved.fraction;
    Wrap();
    /* One per call, however many play counts the call moved. */
    stepCounter = addWrapped(stepCounter, sign);
    playCountStale = true;
}

void CQRVTransTC::Wrap()
{
    if (rangeLength == 0)
        return;
    uint32_t frame = static_cast<uint32_t>(position.whole);
    if (frame >= kLiftFrom)
        frame += rangeLength;
    frame = (frame - rangeStart) % rangeLength + rangeStart;
    position.whole = wrap32(frame);
    position.Normalize();
    playCountStale = true;
}

CQRVPos &CQRVTransTC::operator++()
{
    Step(1, true);
    return position;
}

CQRVPos &CQRVTransTC::operator--()
{
    Step(1, false);
    return position;
}

int CQRVTransTC::operator+=(int n)
{
    Step(n, true);
    return position.whole;
}

int CQRVTransTC::operator-=(int n)
{
    Step(n, false);
    return position.whole;
}
