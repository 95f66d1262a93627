#include <qrvutil/transport.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <utility>

namespace {

using Pair = std::pair<int32_t, int32_t>;

Pair pairOf(const CQRVPos &p) { return {p.whole, p.fraction}; }

TEST(Speed, SetAssignAndProductsTruncateTowardZero)
{
    CQRVSpeed s;
    EXPECT_EQ(s.Set(1, 2), 32760);
    EXPECT_EQ(s.Set(-1, 3), -21840);
    EXPECT_EQ(s.Set(5, 0), 0x7FFFFFFF);
    EXPECT_EQ(s.Set(65536, 2), 2146959360); // the product needs 64 bits

    const std::pair<double, int32_t> assigned[] = {{0.5, 32760},        {-0.00001, 0},
                                                   {-1.5, -98280},      {1e300, INT32_MAX},
                                                   {-1e300, INT32_MIN}, {NAN, 0}};
    for (const auto &a : assigned) {
        s = a.first;
        EXPECT_EQ(s.value, a.second) << a.first;
    }

    EXPECT_EQ((CQRVSpeed{32760} * CQRVSpeed{32760}).value, 16380);
    EXPECT_EQ((CQRVSpeed{655200} * CQRVSpeed{655200}).value, 6552000);
    EXPECT_EQ((CQRVSpeed{-1} * CQRVSpeed{1}).value, 0);
    EXPECT_EQ((CQRVSpeed{-65520} / CQRVSpeed{131040}).value, -32760);
    EXPECT_EQ((CQRVSpeed{1} / CQRVSpeed{0}).value, 0x7FFFFFFF);

    s = CQRVSpeed{-1};
    EXPECT_EQ(s.Fractionalize(), -1);
    EXPECT_EQ(s.value, 65519);
    s = CQRVSpeed{131041};
    EXPECT_EQ(s.Fractionalize(), 2);
    EXPECT_EQ(s.value, 1);
}

TEST(Position, SettersAndOperatorsFloorTheFraction)
{
    CQRVPos p;
    EXPECT_EQ(pairOf(p), Pair(0, 0));
    p.SetAsFrac(-1, 2);
    EXPECT_EQ(pairOf(p), Pair(-1, 32760));
    p.SetAsFrac(7, 3);
    EXPECT_EQ(pairOf(p), Pair(2, 21840));
    p.SetAsFrac(INT_MIN, -1); // wraps instead of trapping
    EXPECT_EQ(pairOf(p), Pair(INT_MIN, 0));
    p.SetAsFrac(1, 0);
    EXPECT_EQ(pairOf(p), Pair(0x7FFFFFFF, 0));
    p.Set(3, -65521);
    EXPECT_EQ(pairOf(p), Pair(1, 65519));
    p.Set(CQRVSpeed{-32760});
    EXPECT_EQ(pairOf(p), Pair(-1, 32760));

    EXPECT_EQ(pairOf(CQRVPos{2, 65000} + CQRVPos{0, 1000}), Pair(3, 480));
    EXPECT_EQ(pairOf(CQRVPos{0, 0} - CQRVPos{0, 1}), Pair(-1, 65519));
    EXPECT_EQ(pairOf(CQRVPos{INT32_MAX, 65519} + CQRVPos{0, 1}), Pair(INT32_MIN, 0));
    EXPECT_EQ(pairOf(CQRVPos{INT32_MIN, 0} - CQRVPos{1, 0}), Pair(INT32_MAX, 0));
    // Out-of-range fractions are summed in 64 bits.
    EXPECT_EQ(pairOf(CQRVPos{0, INT32_MAX} + CQRVPos{0, INT32_MAX}), Pair(65552, 254));
}

TEST(Counter, RangeAndWrap)
{
    CQRVTransTC tc;
    tc.SetRange(50, 10);
    EXPECT_EQ(tc.rangeStart, 10u);
    EXPECT_EQ(tc.rangeEnd, 50u);
    EXPECT_EQ(tc.rangeLength, 40u);
    tc.SetRange(10, -1);
    EXPECT_EQ(tc.rangeLength, 0xFFFFFFF5u);
    tc.SetRange(7, 7);
    tc.SetTC(-5);
    EXPECT_EQ(tc.position.whole, -5); // no range, no wrapping

    // The unsigned rule; from frame 0 the lift of -99..-1 shows.
    const struct {
        int start, end, frame, wrapped;
    } cases[] = {{100, 200, -5, 191}, {100, 200, -150, 146}, {100, 200, 250, 150},
                 {100, 200, 97, 193}, {0, 100, -5, 95},      {0, 100, -99, 1},
                 {0, 100, -100, 96}};
    for (const auto &c : cases) {
        tc.SetRange(c.start, c.end);
        tc.SetTC(c.frame);
        EXPECT_EQ(tc.position.whole, c.wrapped) << c.frame;
    }
    tc.SetRange(100, 200);
    tc.SetTC(CQRVPos{199, 65525});
    EXPECT_EQ(pairOf(tc.position), Pair(100, 5));
    EXPECT_EQ(tc.stepCounter, 0);
}

TEST(Counter, PlayCountIsCachedButNeverForStill)
{
    CQRVTransTC tc;
    EXPECT_TRUE(tc.playCountStale);
    tc.SetSpeed(CQRVSpeed{16380});
    EXPECT_EQ(tc.position.fraction, 32760);
    EXPECT_EQ(tc.PlayCount(), 2u);
    tc.position.fraction = 0; // not seen until something marks the count stale
    EXPECT_EQ(tc.PlayCount(), 2u);
    tc.SetSpeed(CQRVSpeed{-16380});
    EXPECT_EQ(tc.PlayCount(), 3u);

    tc.SetSpeed(CQRVSpeed{0});
    EXPECT_EQ(tc.PlayCount(), 1u);
    EXPECT_TRUE(tc.playCountStale);
    EXPECT_EQ(tc.cachedPlayCount, 3u);
    tc.SetSpeed(CQRVSpeed{-65520});
    EXPECT_EQ(tc.position.fraction, 0);

    CQRVTransTC2 tc2; // fraction 0 kept: a quarter speed shows the frame four times
    tc2.SetSpeedZero(CQRVSpeed{16380});
    EXPECT_EQ(tc2.PlayCount(), 4u);
    tc2.position.fraction = 100;
    tc2.SetSpeedZero(CQRVSpeed{65520});
    EXPECT_EQ(tc2.position.fraction, 0);
}

TEST(Counter, StepsMoveByPlayCountAndCountCallsOnce)
{
    CQRVTransTC tc;
    tc.SetRange(100, 200);
    tc.SetSpeed(CQRVSpeed{65520});
    tc.SetTC(199);
    EXPECT_EQ((++tc).whole, 100);
    EXPECT_EQ(tc.stepCounter, 1);
    EXPECT_EQ(tc += 3, 103);
    EXPECT_EQ(tc.stepCounter, 2);
    EXPECT_EQ((--tc).whole, 102);
    EXPECT_EQ(tc -= 5, 193);
    EXPECT_EQ(tc.stepCounter, 0);

    // A quarter speed: each step reaches the next distinct frame.
    CQRVTransTC slow;
    slow.SetTC(10);
    slow.SetSpeed(CQRVSpeed{16380});
    ++slow;
    EXPECT_EQ(pairOf(slow.position), Pair(11, 0));
    ++slow;
    EXPECT_EQ(pairOf(slow.position), Pair(12, 0));

    // Reverse speed stepping forward moves back; whole frames wrap.
    CQRVTransTC reverse;
    reverse.SetTC(INT32_MIN);
    reverse.SetSpeed(CQRVSpeed{-65520});
    EXPECT_EQ(reverse += 2, INT32_MAX - 1);
}

} // namespace
