// Start-code search, SSE2 and portable forms, against a byte-by-byte scan
// at every length and alignment, on bytes rich in 00 and 01.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "bits/start_code.h"

namespace {

using Find = const uint8_t *(*)(const uint8_t *, const uint8_t *);

const uint8_t *naiveFirst(const uint8_t *from, const uint8_t *end, int codeSize)
{
    for (const uint8_t *p = from; end - p >= codeSize; ++p) {
        if (p[0] == 0 && p[1] == 0 && (codeSize == 3 ? p[2] == 1 : p[2] == 0 && p[3] == 1))
            return p;
    }
    return end;
}

const uint8_t *naiveLast(const uint8_t *begin, const uint8_t *end)
{
    const uint8_t *last = nullptr;
    for (const uint8_t *p = begin; end - p >= 3; ++p)
        if (p[0] == 0 && p[1] == 0 && p[2] == 1)
            last = p;
    return last;
}

TEST(StartCodeSearch, BothFormsAgreeWithAByteScan)
{
    std::mt19937 rng(3);
    std::vector<uint8_t> buf(200);
    for (int round = 0; round < 20000; ++round) {
        // Mostly other bytes, so that codes are sometimes absent.
        const unsigned density = 2 + rng() % 40;
        for (auto &b : buf) {
            const unsigned r = rng() % density;
            b = r == 0 ? 0 : r == 1 ? 1 : uint8_t(2 + rng() % 254);
        }
        const size_t from = rng() % 40;
        const size_t end = from + rng() % (buf.size() - from + 1);
        const uint8_t *f = buf.data() + from;
        const uint8_t *e = buf.data() + end;
        ASSERT_EQ(qrv::findStartCode(f, e), naiveFirst(f, e, 3)) << from << " " << end;
        ASSERT_EQ(qrv::detail::findStartCodePortable(f, e), naiveFirst(f, e, 3));
        ASSERT_EQ(qrv::findLastStartCode(f, e), naiveLast(f, e)) << from << " " << end;
        ASSERT_EQ(qrv::detail::findLastStartCodePortable(f, e), naiveLast(f, e));
        ASSERT_EQ(qrv::findLongStartCode(f, e), naiveFirst(f, e, 4));
    }
}

TEST(StartCodeSearch, CodesAcrossBlockAndWordEdges)
{
    // A code at every offset of a zero-free buffer, found from both sides,
    // and not found once it reaches past either bound.
    for (size_t at = 0; at + 3 <= 80; ++at) {
        std::vector<uint8_t> buf(80, 0x55);
        buf[at] = 0;
        buf[at + 1] = 0;
        buf[at + 2] = 1;
        const uint8_t *b = buf.data();
        EXPECT_EQ(qrv::findStartCode(b, b + 80), b + at);
        EXPECT_EQ(qrv::findLastStartCode(b, b + 80), b + at);
        EXPECT_EQ(qrv::detail::findStartCodePortable(b, b + 80), b + at);
        EXPECT_EQ(qrv::detail::findLastStartCodePortable(b, b + 80), b + at);
        EXPECT_EQ(qrv::findStartCode(b, b + at + 2), b + at + 2);
        EXPECT_EQ(qrv::findLastStartCode(b + at + 1, b + 80), nullptr);
    }
}

} // namespace
