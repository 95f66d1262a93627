// Crafted-unit tests of framing conversion, avcC boxes and the unit walk.
// Buffers are sized exactly, so the sanitizer build catches any access
// beyond them.
#include <algorithm>
#include <random>

#include "h264_test_util.h"

namespace {

using qrv::h264::writeBE32;

// Parameter sets of a Main profile stream (an emulation prevention byte in
// the SPS), another SPS, an AUD and a slice.
const Bytes kMainSps = {0x67, 0x4d, 0x40, 0x0a, 0xe8, 0x81, 0x06, 0xd8, 0x08, 0x80, 0x00,
                        0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x19, 0x47, 0x89, 0x12, 0x89};
const Bytes kMainPps = {0x68, 0xeb, 0xe3, 0xcb, 0x20};
const Bytes kOtherSps = {0x67, 0x42, 0xC0, 0x1E, 0xAA, 0xBB};
const Bytes kAud = {0x09, 0xF0};
const Bytes kSlice = {0x65, 0x88, 0x84, 0x00, 0x77, 0xFF, 0xFE, 0xF7, 0x4E};

// The conversion step by step as stated: find each code, fill the previous
// field, widen a 3-byte code by moving the whole tail up one byte.
int stepwiseMarkerToSize(Bytes &buf, long len)
{
    const auto code = [&](long p, int zeros) {
        return std::all_of(&buf[p], &buf[p + zeros], [](uint8_t b) { return b == 0; }) &&
               buf[p + zeros] == 1;
    };
    for (long prev = -1, p = 0; p < len;) {
        const bool last = p > len - 4;
        const bool four = !last && code(p, 3);
        const bool three = !last && !four && (prev < 0 || p != prev + 1) && code(p, 2);
        if (!four && !three && !last) {
            ++p;
            continue;
        }
        const long q = last ? len : p;
        const long field = prev >= 0 ? prev : (last ? 0 : -1);
        if (field >= 0 && field + 4 <= len)
            writeBE32(&buf[field], uint32_t(q - field - 4));
        if (three) {
            std::copy_backward(buf.begin() + q, buf.begin() + len, buf.begin() + len + 1);
            ++len;
        }
        prev = q;
        p = q + 1;
    }
    return int(len);
}

// Converts the first `len` bytes of `buf` (the rest is spare room).
Bytes toSizes(Bytes buf, int len)
{
    buf.resize(size_t(std::max(qrvUtilh264MarkerToSize(buf.data(), len), 0)));
    return buf;
}

TEST(MarkerToSize, WritesUnitLengthsOverStartCodes)
{
    EXPECT_EQ(toSizes({0, 0, 0, 1, 0x65, 0xAA, 0xBB}, 7), (Bytes{0, 0, 0, 3, 0x65, 0xAA, 0xBB}));
    EXPECT_EQ(toSizes({0, 0, 1, 0x65, 0xAA, 0xEE}, 5), (Bytes{0, 0, 0, 2, 0x65, 0xAA})); // grown
    // Without any code the first four bytes take the rest's length.
    EXPECT_EQ(toSizes({0x65, 1, 2, 3, 4, 5}, 6), (Bytes{0, 0, 0, 2, 4, 5}));
    uint8_t one = 9;
    EXPECT_EQ(qrvUtilh264MarkerToSize(&one, 0), 0);
    EXPECT_EQ(qrvUtilh264MarkerToSize(&one, -5), -5);
}

TEST(MarkerToSize, MatchesStepwiseConversion)
{
    std::mt19937 rng(20240611);
    const uint8_t alphabet[] = {0, 0, 0, 0, 1, 1, 3, 0x65, 0xFF};
    for (int round = 0; round < 6000; ++round) {
        Bytes data(rng() % 48); // short runs dense with codes
        for (auto &b : data)
            b = alphabet[rng() % sizeof alphabet];
        for (int unit = 0; round % 40 == 0 && unit < 4; ++unit) { // units of 256 bytes and more
            data = concat({data, (rng() & 1) ? Bytes{0, 0, 0, 1} : Bytes{0, 0, 1}});
            data.resize(data.size() + ((rng() % 8 == 0) ? 65536 + rng() % 600 : rng() % 700), 0x80);
        }
        Bytes want = data;
        want.resize(2 * data.size() + 4);
        want.resize(size_t(stepwiseMarkerToSize(want, long(data.size()))));
        Bytes room = data;
        room.resize(2 * data.size());
        ASSERT_EQ(toSizes(room, int(data.size())), want) << "round " << round;
    }
}

TEST(SizeToMarker, StopsAtZeroOrOverrunningLengths)
{
    const struct {
        Bytes in;
        unsigned result;
        Bytes out;
    } cases[] = {
        {{0, 0, 0, 0, 0x65, 1}, 0, {0, 0, 0, 0, 0x65, 1}},
        {{0, 0, 0, 9, 0x65, 1, 2}, 7, {0, 0, 0, 9, 0x65, 1, 2}}, // overrun: untouched
        {{0, 0, 0, 1, 0x65, 1, 2}, 7, {0, 0, 0, 1, 0x65, 1, 2}}, // already start codes
        // A zero field ends the data; earlier conversions stay made, also
        // before an overrunning field or a partial one.
        {{0, 0, 0, 2, 9, 16, 0, 0, 0, 0, 0x65}, 6, {0, 0, 0, 1, 9, 16, 0, 0, 0, 0, 0x65}},
        {{0, 0, 0, 2, 9, 16, 0xFF, 0xFF, 0xFF, 0xFF, 0x65},
         11,
         {0, 0, 0, 1, 9, 16, 0xFF, 0xFF, 0xFF, 0xFF, 0x65}},
        {{0, 0, 0, 3, 9, 16, 17, 0, 0}, 9, {0, 0, 0, 1, 9, 16, 17, 0, 0}},
        {{0, 0}, 2, {0, 0}},
    };
    for (const auto &c : cases) {
        Bytes buf = c.in;
        EXPECT_EQ(qrvUtilh264SizeToMarker(buf.data(), unsigned(buf.size())), c.result);
        EXPECT_EQ(buf, c.out);
    }
}

Bytes boxHeader(size_t size, Bytes profile)
{
    return concat({{0, 0, 0, uint8_t(size), 'a', 'v', 'c', 'C', 1}, profile, {0xFF, 0xE1}});
}

TEST(GetAvcc, HeaderOnlyWhenNoParameterSetIsTaken)
{
    Bytes four = {0, 0, 0, 1};
    NAL_BUFFER nb{};
    nb.data = four.data();
    nb.length = 4;
    Bytes exact(14);
    EXPECT_EQ(qrvutilGetAvcc(&nb, exact.data()), 14);
    EXPECT_EQ(exact, boxHeader(14, {0, 0, 0}));
    // The last start-code unit measures past the end and is never taken.
    EXPECT_EQ(writeAvcc(framed({kMainSps}, true)), boxHeader(14, {0, 0, 0}));
    for (uint32_t len : {0xFFFFFFFFu, 0xFFFFFFFCu, 0x80000000u, 23u}) {
        Bytes huge = framed({kMainSps}, false);
        writeBE32(huge.data(), len);
        EXPECT_EQ(writeAvcc(huge), boxHeader(14, {0, 0, 0})) << len;
    }
}

TEST(GetAvcc, StridesByTheFirstUnitsLength)
{
    // SPS of 6 bytes, PPS of 4: the PPS entry takes 6 bytes, running into
    // the next unit's field.
    EXPECT_EQ(writeAvcc(framed({kOtherSps, {0x68, 0xCE, 0x3C, 0x80}, {0x65, 0x88}}, false)),
              concat({boxHeader(31, {0x42, 0xC0, 0x1E}),
                      {0, 6},
                      kOtherSps,
                      {1, 0, 6, 0x68, 0xCE, 0x3C, 0x80, 0, 0}}));
    // Start codes: the first unit is measured and its length kept.
    EXPECT_EQ(writeAvcc(framed({{0x67, 0x42, 0xC0, 0x1E}, {0x68, 0xCE}, {0x65, 0x88, 0x84}}, true)),
              concat({boxHeader(27, {0x42, 0xC0, 0x1E}),
                      {0, 4, 0x67, 0x42, 0xC0, 0x1E, 1, 0, 4, 0x68, 0xCE, 0, 0}}));
    // A measured length of 1 is measured again at the next unit.
    const Bytes box = writeAvcc(
        framed({{0x09}, {0x67, 0x42, 0xC0, 0x1E}, {0x68, 0xCE}, {0x65}}, true));
    EXPECT_EQ(Bytes(box.begin(), box.begin() + 14), boxHeader(27, {0x42, 0xC0, 0x1E}));
    // A PPS met first is written first; profile bytes past the buffer end
    // read as 0.
    EXPECT_EQ(writeAvcc(framed({{0x68, 1}, {0x67, 0x4D}}, false)),
              concat({boxHeader(23, {0x4D, 0, 0}), {1, 0, 2, 0x68, 1, 0, 2, 0x67, 0x4D}}));
}

Bytes avccBox(const std::vector<Bytes> &spsList, const std::vector<Bytes> &ppsList)
{
    Bytes box = {0,   0, 0,    0,    'a',  'v',  'c',
                 'C', 1, 0x4d, 0x40, 0x0a, 0xFF, uint8_t(0xE0 | spsList.size())};
    for (const auto *list : {&spsList, &ppsList}) {
        if (list == &ppsList)
            box.push_back(uint8_t(ppsList.size()));
        for (const Bytes &e : *list)
            box = concat({box, {uint8_t(e.size() >> 8), uint8_t(e.size())}, e});
    }
    writeBE32(box.data(), uint32_t(box.size()));
    return box;
}

TEST(ReadAvcc, DecodesTheFirstEntriesOnly)
{
    const AvccRead r(avccBox({kMainSps, kOtherSps}, {kMainPps, {0x68, 0xFF}}));
    EXPECT_EQ(r.result, 0);
    EXPECT_TRUE(sameRecord(r.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(r.pps, decodePps(kMainPps)));
    const AvccRead none(avccBox({}, {}));
    EXPECT_TRUE(untouched(none.sps) && untouched(none.pps));

    Bytes zero = avccBox({kMainSps}, {kMainPps});
    std::fill(zero.begin(), zero.begin() + 4, 0);
    const AvccRead refused(zero);
    EXPECT_EQ(refused.result, -1);
    EXPECT_TRUE(untouched(refused.sps) && untouched(refused.pps));

    // A PPS entry of 513 bytes is passed over and its slot stays empty; one
    // of 512 (zero padded) still decodes.
    Bytes longPps = kMainPps;
    longPps.resize(513);
    EXPECT_TRUE(untouched(AvccRead(avccBox({kMainSps}, {longPps, kMainPps})).pps));
    longPps.resize(512);
    EXPECT_TRUE(sameRecord(AvccRead(avccBox({kMainSps}, {longPps})).pps, decodePps(kMainPps)));
}

TEST(FindNalUnits, CountsUnitsOfEitherFramingUntilOneOverruns)
{
    // Fields are read afresh, so the framing may change mid-stream; a later
    // SPS wins, but the last start-code unit is neither counted nor decoded.
    Bytes mixed = concat(
        {framed({kOtherSps, kAud, kMainSps}, false), framed({kMainPps, kSlice, kOtherSps}, true)});
    const Walk w = walk(mixed);
    EXPECT_EQ(w.count, 5);
    EXPECT_TRUE(sameRecord(w.sps, decodeSps(kMainSps)));
    EXPECT_EQ(w.pps.entropy_coding_mode_flag, 1);

    for (uint32_t len : {0xFFFFFFFFu, 0xFFFFFFFBu, 0x80000001u, 7u}) {
        Bytes units = framed({kAud, {0x67, 0x4d, 0x40}}, false);
        writeBE32(units.data() + 6, len);
        EXPECT_EQ(walk(units).count, 1) << len;
    }
    Bytes tiny = {0, 0, 0, 1};
    EXPECT_EQ(walk(tiny).count, 0);

    // An empty unit whose header byte is a zero: the walk moves one byte on,
    // steps over the zero bytes after it, lengthening the unit by as many,
    // which carries it past the AUDs.
    Bytes padded = concat({{0, 0, 0, 0}, framed({kAud, kAud, kAud}, false)});
    EXPECT_EQ(walk(padded).count, 1);
}

TEST(FindNalUnits, CleansSeiUnitsInPlace)
{
    const Bytes sei = {0x06, 0x05, 0x00, 0x00, 0x03, 0x01, 0x00, 0x00, 0x0C, 0x02, 0x80};
    const Bytes cleaned = {0x06, 0x05, 0x00, 0x00, 0x01, 0x00, 0x00, 0x02, 0x80, 0x80, 0x80};
    for (bool startCodes : {false, true}) {
        Bytes units = framed({sei, kAud}, startCodes);
        walk(units);
        EXPECT_EQ(units, framed({cleaned, kAud}, startCodes));
    }
    Bytes last = framed({kAud, sei}, true); // never reached
    walk(last);
    EXPECT_EQ(last, framed({kAud, sei}, true));
}

TEST(FindNalUnits, ReadsAnAvccFirstAndCutsItAt512Bytes)
{
    // An SPS entry of 520 bytes pushes the PPS past the cut.
    Bytes longSps = kMainSps, none;
    longSps.resize(520);
    Bytes box = avccBox({longSps}, {kMainPps});
    EXPECT_TRUE(sameRecord(AvccRead(box).pps, decodePps(kMainPps)));
    const Walk cut = walk(none, box.data());
    EXPECT_EQ(cut.count, 0);
    EXPECT_TRUE(sameRecord(cut.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(cut.pps, PPS_DECODED{}));
}

} // namespace
