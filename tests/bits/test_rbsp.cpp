// Emulation-prevention removal against the plain move-the-rest-down
// algorithm the readers were built on, and insertion against the H.264
// rules, room bounds included.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "bits/rbsp.h"

namespace {

using Bytes = std::vector<uint8_t>;

bool removable(uint8_t b, const qrv::RemovableBytes &rule)
{
    for (size_t i = 0; i < rule.count; ++i)
        if (rule.bytes[i] == b)
            return true;
    return false;
}

// The algorithm as first written: on each removal the rest of the buffer
// moves down one byte; quadratic, obviously right.
size_t movingModel(Bytes &d, const qrv::RemovableBytes &rule)
{
    size_t removed = 0;
    const size_t n = d.size();
    for (size_t c = rule.firstCandidate; c < n;) {
        if (d[c - 2] == 0 && d[c - 1] == 0 && removable(d[c], rule)) {
            std::memmove(d.data() + c, d.data() + c + 1, n - c - 1);
            ++removed;
            c += rule.skipAfterRemoval;
        } else {
            ++c;
        }
    }
    return removed;
}

// Random units rich in 00 00 03 / 00 00 0C runs, and their edges.
Bytes randomUnit(std::mt19937 &rng)
{
    static const uint8_t pieces[][3] = {{0, 0, 3}, {0, 0, 0x0C}, {0, 0, 0}, {0, 3, 0}, {0, 0, 1}};
    Bytes u(rng() % 40);
    for (size_t i = 0; i < u.size(); ++i) {
        const unsigned pick = rng() % 8;
        if (pick < 5 && i + 3 <= u.size()) {
            std::memcpy(&u[i], pieces[pick], 3);
            i += 2;
        } else {
            u[i] = pick == 5 ? 0 : pick == 6 ? 3 : uint8_t(rng());
        }
    }
    return u;
}

TEST(Unescape, OnePassEqualsMovingTheRestDown)
{
    std::mt19937 rng(7);
    for (const qrv::RemovableBytes &rule :
         {qrv::kRemoveEmulation, qrv::kRemoveEmulationPps, qrv::kCleanSei}) {
        for (int round = 0; round < 200000; ++round) {
            const Bytes input = randomUnit(rng);
            Bytes expected = input;
            const size_t expectedCount = movingModel(expected, rule);
            Bytes got = input;
            ASSERT_EQ(qrv::removeEmulationPrevention(got.data(), got.size(), rule), expectedCount);
            ASSERT_EQ(got, expected)
                << "rule " << rule.firstCandidate << "/" << rule.skipAfterRemoval;
        }
    }
}

TEST(Unescape, KeptRulesDifferWhereTheyAlwaysHave)
{
    // The byte that slides in after a removal: the readers skip it and the
    // one after, the SEI cleaning examines the one after.
    Bytes reader = {9, 9, 9, 0, 0, 3, 0, 3, 0xAA};
    EXPECT_EQ(qrv::removeEmulationPrevention(reader.data(), reader.size(), qrv::kRemoveEmulation),
              1u);
    EXPECT_EQ(reader, (Bytes{9, 9, 9, 0, 0, 0, 3, 0xAA, 0xAA}));
    Bytes sei = {0, 0, 3, 0, 3, 0xAA};
    EXPECT_EQ(qrv::removeEmulationPrevention(sei.data(), sei.size(), qrv::kCleanSei), 2u);
    EXPECT_EQ(sei, (Bytes{0, 0, 0, 0xAA, 0xAA, 0xAA}));
}

// The standard's unescape, for checking what the escape writes.
Bytes unescaped(const Bytes &e)
{
    Bytes out;
    int zeros = 0;
    for (uint8_t b : e) {
        if (zeros >= 2 && b == 3) {
            zeros = 0;
            continue;
        }
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return out;
}

TEST(Escape, InsertsWhereNeededAndRoundTrips)
{
    const Bytes cases[][2] = {
        {{0, 0, 0}, {0, 0, 3, 0, 3}},
        {{0, 0, 1, 0, 0, 2}, {0, 0, 3, 1, 0, 0, 3, 2}},
        {{0, 0, 4, 0, 0}, {0, 0, 4, 0, 0, 3}},
        {{0, 0, 0, 0}, {0, 0, 3, 0, 0, 3}},
        {{5, 0, 0, 3, 0}, {5, 0, 0, 3, 3, 0, 3}},
        {{}, {}},
    };
    for (const auto &c : cases) {
        Bytes out(c[1].size());
        EXPECT_EQ(qrv::escapedSize(c[0].data(), c[0].size()), c[1].size());
        EXPECT_EQ(qrv::escapeRbsp(c[0].data(), c[0].size(), out.data(), out.size()), c[1].size());
        EXPECT_EQ(out, c[1]);
    }
    std::mt19937 rng(11);
    for (int round = 0; round < 20000; ++round) {
        const Bytes payload = randomUnit(rng);
        const size_t size = qrv::escapedSize(payload.data(), payload.size());
        Bytes out(size);
        ASSERT_EQ(qrv::escapeRbsp(payload.data(), payload.size(), out.data(), size), size);
        for (size_t i = 2; i < out.size(); ++i)
            ASSERT_FALSE(out[i - 2] == 0 && out[i - 1] == 0 && out[i] < 3) << i;
        ASSERT_TRUE(out.empty() || out.back() != 0);
        Bytes back = unescaped(out);
        if (back.size() == payload.size() + 1 && back.back() == 3)
            back.pop_back(); // a closing 03 after a single 00 is data to the unescape
        ASSERT_EQ(back, payload);
    }
}

TEST(Escape, NeverWritesPastItsRoom)
{
    const Bytes payload = {0, 0, 1, 7, 0, 0, 0};
    const size_t size = qrv::escapedSize(payload.data(), payload.size());
    for (size_t room = 0; room < size; ++room) {
        // Exactly `room` bytes on the heap: a write past them faults under ASan.
        std::unique_ptr<uint8_t[]> out(new uint8_t[room + (room == 0)]);
        EXPECT_EQ(qrv::escapeRbsp(payload.data(), payload.size(), out.get(), room), qrv::kNoRoom);
    }
}

} // namespace
