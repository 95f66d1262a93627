// The unit iterator: general framing against a byte-by-byte split, and the
// kept framing options on the cases that tell them apart.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "bits/units.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Spans = std::vector<std::pair<uint64_t, uint64_t>>; // payload, size

Spans walkAll(const Bytes &b, qrv::UnitRules rules = {}, bool *overran = nullptr)
{
    qrv::UnitIterator it(b.data(), b.size(), rules);
    Spans spans;
    for (qrv::Unit u; it.next(&u);)
        spans.emplace_back(u.payload, u.size);
    if (overran)
        *overran = it.overran();
    return spans;
}

// Start-code split done plainly: every 00 00 01, widened to 4 bytes by one
// zero in front.
Spans splitModel(const Bytes &b)
{
    std::vector<std::pair<uint64_t, uint64_t>> codes; // start, size
    for (uint64_t i = 0; i + 3 <= b.size(); ++i) {
        if (b[i] == 0 && b[i + 1] == 0 && b[i + 2] == 1) {
            const bool four = i > 0 && b[i - 1] == 0 &&
                              (codes.empty() || codes.back().first + codes.back().second < i);
            codes.emplace_back(four ? i - 1 : i, four ? 4 : 3);
            i += 2;
        }
    }
    Spans spans;
    for (size_t k = 0; k < codes.size(); ++k) {
        const uint64_t payload = codes[k].first + codes[k].second;
        const uint64_t end = k + 1 < codes.size() ? codes[k + 1].first : b.size();
        spans.emplace_back(payload, end - payload);
    }
    return spans;
}

TEST(UnitIterator, StartCodesOfThreeAndFourBytesSplitAsByHand)
{
    std::mt19937 rng(1);
    for (int round = 0; round < 50000; ++round) {
        Bytes b = rng() % 2 ? Bytes{0, 0, 1} : Bytes{0, 0, 0, 1};
        const unsigned n = 20 + rng() % 150;
        for (unsigned i = 0; i < n; ++i)
            b.push_back(rng() % 3 ? uint8_t(rng() % 2) : uint8_t(rng()));
        qrv::UnitIterator it(b.data(), b.size());
        ASSERT_EQ(it.framing(), qrv::UnitFraming::startCodes);
        ASSERT_EQ(walkAll(b), splitModel(b));
    }
}

TEST(UnitIterator, LeadingZerosBelongToTheFirstCode)
{
    const Bytes b = {0, 0, 0, 0, 0, 1, 0x09, 0xF0, 0, 0, 1, 0x67, 0};
    EXPECT_EQ(walkAll(b), (Spans{{6, 2}, {11, 2}}));
    // One zero and a 01 is no code: that buffer is length framed.
    qrv::UnitIterator it(b.data() + 4, b.size() - 4);
    EXPECT_EQ(it.framing(), qrv::UnitFraming::lengths);
}

TEST(UnitIterator, LengthFramingStopsAtAnOverrun)
{
    const Bytes b = {0, 0, 0, 2, 0x67, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0x68};
    bool overran = true;
    EXPECT_EQ(walkAll(b, {}, &overran), (Spans{{4, 2}, {10, 0}, {14, 1}}));
    EXPECT_FALSE(overran);
    for (const Bytes &cut : {Bytes(b.begin(), b.end() - 1), Bytes(b.begin(), b.begin() + 8)}) {
        walkAll(cut, {}, &overran);
        EXPECT_TRUE(overran) << cut.size();
    }
    EXPECT_TRUE(walkAll({}).empty());
}

TEST(UnitIterator, KeptFramingOptions)
{
    qrv::UnitRules kept;
    kept.kept = true;
    // A lone 00 00 01 is data, and the last start-code unit is never taken.
    const Bytes codes = {0, 0, 0, 1, 0x67, 0, 0, 1, 9, 0, 0, 0, 1, 0x68, 7, 7};
    bool overran = false;
    EXPECT_EQ(walkAll(codes, kept, &overran), (Spans{{4, 5}}));
    EXPECT_TRUE(overran);
    // Fewer than five bytes at a field end the walk quietly.
    EXPECT_EQ(walkAll({0, 0, 0, 2, 0x67, 5, 0, 0, 0, 9}, kept, &overran), (Spans{{4, 2}}));
    EXPECT_FALSE(overran);

    // The first length serves every unit; a measured start code too.
    qrv::UnitRules stride = kept;
    stride.firstLengthStride = true;
    const Bytes lengths = {0, 0, 0, 2, 0x67, 0xAA, 0, 0, 0, 3, 0x68, 1, 2, 0, 0, 0, 1, 0x65, 0xBB};
    EXPECT_EQ(walkAll(lengths, kept), (Spans{{4, 2}, {10, 3}}));
    EXPECT_EQ(walkAll(lengths, stride), (Spans{{4, 2}, {10, 2}, {16, 2}}));
    const Bytes measured = {0, 0, 0, 1, 0x67, 0xAA, 0, 0, 0, 1, 0x68, 0xBB, 0, 0, 0, 1, 9};
    EXPECT_EQ(walkAll(measured, stride), (Spans{{4, 2}, {10, 2}}));

    // After a type-0 unit the walk steps one byte on from its field, then
    // over the zeros there, each lengthening the unit it then steps over.
    qrv::UnitRules resync = kept;
    resync.zeroTypeResync = true;
    const Bytes zeros = {0, 0, 0, 2, 0x00, 0xAA, 1, 2, 3, 4, 5, 0, 0, 0, 2, 0x09, 0xF0};
    EXPECT_EQ(walkAll(zeros, resync), (Spans{{4, 2}, {15, 2}}));
    EXPECT_EQ(walkAll(zeros, kept), (Spans{{4, 2}}));
}

} // namespace
