// Crafted-unit tests of framing conversion, avcC boxes and the unit walk.
// Buffers are sized exactly, so the sanitizer build catches any access
// beyond them.
#include "scanning_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

using namespace scanning_test;
using qrv::h264::writeBE32;

// Parameter sets of a Main profile stream (an emulation prevention byte in
// the SPS), the SPS of a High profile stream, an AUD and a slice.
const Bytes kMainSps = {0x67, 0x4d, 0x40, 0x0a, 0xe8, 0x81, 0x06, 0xd8, 0x08, 0x80, 0x00,
                        0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x19, 0x47, 0x89, 0x12, 0x89};
const Bytes kMainPps = {0x68, 0xeb, 0xe3, 0xcb, 0x20};
const Bytes kHighSps = {0x67, 0x64, 0x00, 0x0b, 0xac, 0xd9, 0x42, 0x84, 0x7e, 0x5c, 0x04, 0x40, 0x00,
                        0x00, 0x03, 0x00, 0x40, 0x00, 0x00, 0x0c, 0xa3, 0xc5, 0x0a, 0x65, 0x80};
const Bytes kAud = {0x09, 0xF0};
const Bytes kSlice = {0x65, 0x88, 0x84, 0x00, 0x77, 0xFF, 0xFE, 0xF7, 0x4E};

// ---- Start codes to length prefixes ----------------------------------------------

// The conversion step by step as stated: find each code, fill the previous
// field, widen a 3-byte code by moving the whole tail up one byte.
int stepwiseMarkerToSize(Bytes &buf, int len)
{
    const auto code = [&](long p, int zeros) {
        return std::all_of(&buf[p], &buf[p + zeros], [](uint8_t b) { return b == 0; }) &&
               buf[p + zeros] == 1;
    };
    long prev = -1, p = 0, end = len;
    while (p < end) {
        const bool last = p > end - 4;
        const bool four = !last && code(p, 3);
        const bool three = !last && !four && (prev < 0 || p != prev + 1) && code(p, 2);
        if (!four && !three && !last) {
            ++p;
            continue;
        }
        const long q = last ? end : p;
        const long field = prev >= 0 ? prev : (last ? 0 : -1);
        if (field >= 0 && field + 4 <= end)
            writeBE32(&buf[field], uint32_t(q - field - 4));
        if (three) {
            std::copy_backward(buf.begin() + q, buf.begin() + end, buf.begin() + end + 1);
            ++len;
        }
        prev = q;
        p = q + 1;
        end = len;
    }
    return len;
}

// Converts the first `len` bytes of `buf` (the rest is spare room).
Bytes toSizes(Bytes buf, size_t len, int *newLen = nullptr)
{
    const int n = qrvUtilh264MarkerToSize(buf.data(), static_cast<int>(len));
    if (newLen)
        *newLen = n;
    buf.resize(std::max(n, 0));
    return buf;
}

TEST(MarkerToSize, WritesUnitLengthsOverStartCodes)
{
    int n = 0;
    EXPECT_EQ(toSizes({0, 0, 0, 1, 0x65, 0xAA, 0xBB}, 7, &n), (Bytes{0, 0, 0, 3, 0x65, 0xAA, 0xBB}));
    EXPECT_EQ(toSizes({0, 0, 1, 0x65, 0xAA, 0xEE}, 5, &n), (Bytes{0, 0, 0, 2, 0x65, 0xAA}));
    EXPECT_EQ(n, 6);
    // A zero in front of a 4-byte code stays in the unit before; the code's
    // own 3-byte tail does not count again; leading bytes are not framed.
    EXPECT_EQ(toSizes({0xAB, 0, 0, 1, 0x67, 0x00, 0, 0, 0, 1, 0x65, 0xEE}, 11),
              (Bytes{0xAB, 0, 0, 0, 2, 0x67, 0x00, 0, 0, 0, 1, 0x65}));
    // A code in the last three bytes stays in its unit; one ending the
    // buffer leaves an empty unit.
    EXPECT_EQ(toSizes({0, 0, 0, 1, 0x65, 0, 0, 1}, 8), (Bytes{0, 0, 0, 4, 0x65, 0, 0, 1}));
    EXPECT_EQ(toSizes({0, 0, 0, 1, 0x65, 0, 0, 0, 1}, 9), (Bytes{0, 0, 0, 1, 0x65, 0, 0, 0, 0}));
    // Without any code the first four bytes take the rest's length; shorter
    // buffers and lengths below 1 are left alone.
    EXPECT_EQ(toSizes({0x65, 1, 2, 3, 4, 5}, 6), (Bytes{0, 0, 0, 2, 4, 5}));
    EXPECT_EQ(toSizes({0x65, 1, 2}, 3), (Bytes{0x65, 1, 2}));
    Bytes one = {9};
    EXPECT_EQ(qrvUtilh264MarkerToSize(one.data(), 0), 0);
    EXPECT_EQ(qrvUtilh264MarkerToSize(one.data(), -5), -5);
}

TEST(MarkerToSize, MatchesStepwiseConversion)
{
    std::mt19937 rng(20240611);
    const uint8_t alphabet[] = {0, 0, 0, 0, 1, 1, 3, 0x65, 0xFF};
    for (int round = 0; round < 20300; ++round) {
        Bytes data;
        if (round < 20000) { // short runs dense with codes
            data.resize(rng() % 48);
            for (auto &b : data)
                b = alphabet[rng() % sizeof alphabet];
        } else { // units of 256 bytes and more: fields holding 00 00 01
            for (int unit = 0; unit < 4; ++unit) {
                data = concat({data, (rng() & 1) ? Bytes{0, 0, 0, 1} : Bytes{0, 0, 1}});
                data.resize(data.size() + ((rng() % 8 == 0) ? 65536 + rng() % 600 : rng() % 700), 0x80);
            }
        }
        Bytes theirs = data;
        theirs.resize(2 * data.size() + 4);
        const int want = stepwiseMarkerToSize(theirs, static_cast<int>(data.size()));
        theirs.resize(want);
        Bytes room = data;
        room.resize(2 * data.size());
        ASSERT_EQ(toSizes(room, data.size()), theirs) << "round " << round;
    }
}

TEST(MarkerToSize, LinearOnStreamsDenseWithShortCodes)
{
    // Two million 3-byte codes: moving the tail once per code would not
    // finish within the test's time limit.
    const size_t units = 2u << 20;
    Bytes buf(units * 5);
    for (size_t i = 0; i < units; ++i) {
        buf[4 * i + 2] = 1;
        buf[4 * i + 3] = 0x09;
    }
    buf = toSizes(buf, units * 4);
    ASSERT_EQ(buf.size(), units * 5);
    for (size_t i = 0; i < units; i += 4099)
        ASSERT_EQ(qrv::h264::readBE32(&buf[5 * i]), 1u) << i;
}

// ---- Length prefixes to start codes ---------------------------------------------

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
        {{0, 0, 0, 2, 9, 16, 0xFF, 0xFF, 0xFF, 0xFF, 0x65}, 11, {0, 0, 0, 1, 9, 16, 0xFF, 0xFF, 0xFF, 0xFF, 0x65}},
        {{0, 0, 0, 3, 9, 16, 17, 0, 0}, 9, {0, 0, 0, 1, 9, 16, 17, 0, 0}},
        {{0, 0}, 2, {0, 0}},
    };
    for (const auto &c : cases) {
        Bytes buf = c.in;
        EXPECT_EQ(qrvUtilh264SizeToMarker(buf.data(), static_cast<unsigned>(buf.size())), c.result);
        EXPECT_EQ(buf, c.out);
    }
}

// ---- Writing avcC -----------------------------------------------------------------

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
    const Bytes sps = {0x67, 0x42, 0xC0, 0x1E, 0xAA, 0xBB};
    EXPECT_EQ(writeAvcc(framed({sps, {0x68, 0xCE, 0x3C, 0x80}, {0x65, 0x88}}, false)),
              concat({boxHeader(31, {0x42, 0xC0, 0x1E}), {0, 6}, sps, {1, 0, 6, 0x68, 0xCE, 0x3C, 0x80, 0, 0}}));
    // Start codes: the first unit is measured and its length kept.
    EXPECT_EQ(writeAvcc(framed({{0x67, 0x42, 0xC0, 0x1E}, {0x68, 0xCE}, {0x65, 0x88, 0x84}}, true)),
              concat({boxHeader(27, {0x42, 0xC0, 0x1E}), {0, 4, 0x67, 0x42, 0xC0, 0x1E, 1, 0, 4, 0x68, 0xCE, 0, 0}}));
    // A measured length of 1 is measured again at the next unit.
    const Bytes box = writeAvcc(framed({{0x09}, {0x67, 0x42, 0xC0, 0x1E}, {0x68, 0xCE}, {0x65}}, true));
    EXPECT_EQ(Bytes(box.begin(), box.begin() + 14), boxHeader(27, {0x42, 0xC0, 0x1E}));
    // A PPS met first is written first; profile bytes past the buffer end
    // read as 0.
    EXPECT_EQ(writeAvcc(framed({{0x68, 1}, {0x67, 0x4D}}, false)),
              concat({boxHeader(23, {0x4D, 0, 0}), {1, 0, 2, 0x68, 1, 0, 2, 0x67, 0x4D}}));
}

// ---- Reading avcC ------------------------------------------------------------------

Bytes avccBox(const std::vector<Bytes> &spsList, const std::vector<Bytes> &ppsList, const Bytes &tail = {})
{
    Bytes box = concat({{0, 0, 0, 0, 'a', 'v', 'c', 'C', 1, 0x4d, 0x40, 0x0a, 0xFF}});
    box.push_back(uint8_t(0xE0 | spsList.size()));
    for (size_t i = 0; i < spsList.size() + ppsList.size(); ++i) {
        if (i == spsList.size())
            box.push_back(uint8_t(ppsList.size()));
        const Bytes &e = i < spsList.size() ? spsList[i] : ppsList[i - spsList.size()];
        box = concat({box, {uint8_t(e.size() >> 8), uint8_t(e.size())}, e});
    }
    if (ppsList.empty())
        box.push_back(0);
    box = concat({box, tail});
    writeBE32(box.data(), static_cast<uint32_t>(box.size()));
    return box;
}

struct AvccRead {
    int result;
    SPS_DECODED sps;
    PPS_DECODED pps;
    uintptr_t bitPos;
    bool spsUntouched, ppsUntouched;
};

// Records start filled with a pattern so that untouched ones show.
AvccRead readAvcc(Bytes box)
{
    kx_bitstream bs = readerOver(box);
    AvccRead r;
    std::memset(&r.sps, 0x5A, sizeof r.sps);
    std::memset(&r.pps, 0x5A, sizeof r.pps);
    const SPS_DECODED spsPattern = r.sps;
    const PPS_DECODED ppsPattern = r.pps;
    r.result = qrvutilReadAvcc(&bs, &r.sps, &r.pps);
    r.bitPos = bs.bit_pos;
    r.spsUntouched = sameRecord(r.sps, spsPattern);
    r.ppsUntouched = sameRecord(r.pps, ppsPattern);
    return r;
}

TEST(ReadAvcc, DecodesTheFirstEntriesOnly)
{
    const AvccRead r = readAvcc(avccBox({kMainSps, kHighSps}, {kMainPps, {0x68, 0xFF}}));
    EXPECT_EQ(r.result, 0);
    EXPECT_TRUE(sameRecord(r.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(r.pps, decodePps(kMainPps)));

    const AvccRead none = readAvcc(avccBox({}, {}));
    EXPECT_TRUE(none.spsUntouched && none.ppsUntouched);

    Bytes zero = avccBox({kMainSps}, {kMainPps});
    std::fill(zero.begin(), zero.begin() + 4, 0);
    const AvccRead refused = readAvcc(zero);
    EXPECT_EQ(refused.result, -1);
    EXPECT_TRUE(refused.spsUntouched && refused.ppsUntouched);

    // A PPS entry of 513 bytes is passed over and its slot stays empty; one
    // of 512 (zero padded) still decodes.
    Bytes longPps = kMainPps;
    longPps.resize(513);
    EXPECT_TRUE(readAvcc(avccBox({kMainSps}, {longPps, kMainPps})).ppsUntouched);
    longPps.resize(512);
    EXPECT_TRUE(sameRecord(readAvcc(avccBox({kMainSps}, {longPps})).pps, decodePps(kMainPps)));
}

TEST(ReadAvcc, HighProfileExtensionIsConsumed)
{
    // chroma_format, two bit depths, one extension entry: 8x8 transform and
    // scaling matrix flags, list 0 present and ending at once (delta -8,
    // bits 000010001), lists 1-7 absent; then a byte that is not read.
    const Bytes extension = {0xFD, 0xF8, 0xF8, 0x01, 0xE1, 0x10, 0x00, 0xAB};
    const size_t extensionBits = 4 * 8 + 2 + 1 + 9 + 7;
    const Bytes high = avccBox({kHighSps}, {kMainPps}, extension);
    EXPECT_EQ(readAvcc(high).bitPos, (high.size() - extension.size()) * 8 + extensionBits);
    // Not for Main profile, nor with fewer than 32 bits left.
    const Bytes main = avccBox({kMainSps}, {kMainPps}, extension);
    EXPECT_EQ(readAvcc(main).bitPos, (main.size() - extension.size()) * 8);
    const Bytes shortTail = avccBox({kHighSps}, {kMainPps}, {0xFD, 0xF8, 0xF8});
    EXPECT_EQ(readAvcc(shortTail).bitPos, (shortTail.size() - 3) * 8);
}

// ---- Walking units -------------------------------------------------------------------

TEST(FindNalUnits, CountsAndDecodesUnitsInBothFramings)
{
    Bytes sized = framed({kHighSps, kAud, kMainSps, kMainPps, kSlice}, false);
    const Walk a = walk(sized);
    EXPECT_EQ(a.count, 5);
    EXPECT_TRUE(sameRecord(a.sps, decodeSps(kMainSps))); // the later SPS wins
    EXPECT_EQ(a.pps.entropy_coding_mode_flag, 1);

    // The last start-code unit is neither counted nor decoded.
    Bytes coded = framed({kAud, kMainPps, kSlice, kMainSps}, true);
    const Walk b = walk(coded);
    EXPECT_EQ(b.count, 3);
    EXPECT_EQ(b.sps.profile_idc, 0);

    // Every field is read afresh, so the framing may change mid-stream.
    Bytes mixed = concat({framed({kAud, kMainSps}, false), framed({kMainPps, kSlice, kAud}, true)});
    const Walk c = walk(mixed);
    EXPECT_EQ(c.count, 4);
    EXPECT_TRUE(sameRecord(c.pps, decodePps(kMainPps)));
}

TEST(FindNalUnits, OverrunningAndZeroTypeUnits)
{
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

// Removal by sliding the tail down once per byte, as stated.
void stepwiseSeiClean(Bytes &unit, uint8_t before)
{
    for (size_t i = 1; i < unit.size(); ++i) {
        const uint8_t older = i >= 2 ? unit[i - 2] : before;
        if (older == 0 && unit[i - 1] == 0 && (unit[i] == 0x03 || unit[i] == 0x0C))
            std::copy(unit.begin() + i + 1, unit.end(), unit.begin() + i);
    }
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

    std::mt19937 rng(7);
    const uint8_t alphabet[] = {0, 0, 0, 3, 3, 0x0C, 0x0C, 1, 0x80};
    for (int round = 0; round < 20000; ++round) {
        Bytes unit(1 + rng() % 24);
        for (auto &b : unit)
            b = alphabet[rng() % sizeof alphabet];
        const uint8_t before = alphabet[rng() % sizeof alphabet];
        Bytes ours = unit;
        qrv::h264::cleanSeiUnit(ours.data(), ours.size(), before);
        stepwiseSeiClean(unit, before);
        ASSERT_EQ(ours, unit) << "round " << round;
    }
}

TEST(FindNalUnits, ReadsAnAvccFirstAndCutsItAt512Bytes)
{
    Bytes none;
    Bytes box = avccBox({kMainSps}, {kMainPps});
    box.shrink_to_fit(); // read no further than its size says
    const Walk w = walk(none, box.data());
    EXPECT_EQ(w.count, 0);
    EXPECT_TRUE(sameRecord(w.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(w.pps, decodePps(kMainPps)));

    // An SPS entry of 520 bytes pushes the PPS past the cut.
    Bytes longSps = kMainSps;
    longSps.resize(520);
    Bytes longBox = avccBox({longSps}, {kMainPps});
    EXPECT_TRUE(sameRecord(readAvcc(longBox).pps, decodePps(kMainPps)));
    const Walk cut = walk(none, longBox.data());
    EXPECT_TRUE(sameRecord(cut.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(cut.pps, PPS_DECODED{}));
}

} // namespace
