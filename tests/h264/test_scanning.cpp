// Crafted-unit tests of framing conversion, avcC boxes and the unit walk.
// Buffers are sized exactly, so the sanitizer build catches any access
// beyond them.
#include <qrvutil/h264.h>

#include "h264/scanning_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Parameter sets of a Main profile 128x96 stream (with an emulation
// prevention byte in the SPS) and the SPS of a High profile stream.
const Bytes kMainSps = {0x67, 0x4d, 0x40, 0x0a, 0xe8, 0x81, 0x06, 0xd8, 0x08, 0x80, 0x00,
                        0x00, 0x03, 0x00, 0x80, 0x00, 0x00, 0x19, 0x47, 0x89, 0x12, 0x89};
const Bytes kMainPps = {0x68, 0xeb, 0xe3, 0xcb, 0x20};
const Bytes kHighSps = {0x67, 0x64, 0x00, 0x0b, 0xac, 0xd9, 0x42, 0x84, 0x7e,
                        0x5c, 0x04, 0x40, 0x00, 0x00, 0x03, 0x00, 0x40, 0x00,
                        0x00, 0x0c, 0xa3, 0xc5, 0x0a, 0x65, 0x80};

Bytes lengthPrefixed(const std::vector<Bytes> &units)
{
    Bytes out;
    for (const Bytes &u : units) {
        const uint32_t n = static_cast<uint32_t>(u.size());
        out.insert(out.end(), {uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)});
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

Bytes startCoded(const std::vector<Bytes> &units)
{
    Bytes out;
    for (const Bytes &u : units) {
        out.insert(out.end(), {0, 0, 0, 1});
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

NAL_BUFFER nalBuffer(Bytes &bytes)
{
    NAL_BUFFER nb{};
    nb.data = bytes.data();
    nb.length = static_cast<uint32_t>(bytes.size());
    return nb;
}

SPS_DECODED decodeSps(const Bytes &unit)
{
    Bytes padded = unit;
    padded.resize(unit.size() + 8);
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(padded.data());
    bs.byte_size = unit.size();
    bs.bit_end = unit.size() * 8;
    SPS_DECODED sps{};
    qrvutilRead_SPS(&bs, &sps);
    return sps;
}

PPS_DECODED decodePps(const Bytes &unit)
{
    Bytes padded = unit;
    padded.resize(unit.size() + 8);
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(padded.data());
    bs.byte_size = unit.size();
    bs.bit_end = unit.size() * 8;
    PPS_DECODED pps{};
    qrvutilRead_PPS(&bs, &pps);
    return pps;
}

template <typename Record>
bool sameRecord(const Record &a, const Record &b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

// ---- Start codes to length prefixes ----------------------------------------------

// The conversion step by step as stated: find each code, fill the previous
// field, widen a 3-byte code by moving the whole tail up one byte.
int stepwiseMarkerToSize(Bytes &buf, int len)
{
    if (len < 1)
        return len;
    const auto code4 = [&](long p) {
        return buf[p] == 0 && buf[p + 1] == 0 && buf[p + 2] == 0 && buf[p + 3] == 1;
    };
    const auto code3 = [&](long p) { return buf[p] == 0 && buf[p + 1] == 0 && buf[p + 2] == 1; };
    const auto put = [&](long at, long v) {
        for (int i = 0; i < 4; ++i)
            buf[at + i] = uint8_t(uint32_t(v) >> (24 - 8 * i));
    };
    long prev = -1;
    long p = 0;
    long end = len;
    while (p < end) {
        const bool last = p > end - 4;
        const bool four = !last && code4(p);
        const bool three = !last && !four && (prev < 0 || p != prev + 1) && code3(p);
        if (!four && !three && !last) {
            ++p;
            continue;
        }
        const long q = last ? end : p;
        const long field = prev >= 0 ? prev : (last ? 0 : -1);
        if (field >= 0 && field + 4 <= end)
            put(field, q - field - 4);
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

int convert(Bytes &buf, size_t dataLen)
{
    return qrvUtilh264MarkerToSize(buf.data(), static_cast<int>(dataLen));
}

TEST(MarkerToSize, WritesUnitLengthsOverStartCodes)
{
    Bytes four = {0, 0, 0, 1, 0x65, 0xAA, 0xBB};
    EXPECT_EQ(convert(four, 7), 7);
    EXPECT_EQ(four, (Bytes{0, 0, 0, 3, 0x65, 0xAA, 0xBB}));

    Bytes three = {0, 0, 1, 0x65, 0xAA, 0xEE}; // last byte is the spare one
    EXPECT_EQ(convert(three, 5), 6);
    EXPECT_EQ(three, (Bytes{0, 0, 0, 2, 0x65, 0xAA}));

    // Mixed codes; a zero byte in front of a 4-byte code stays in the unit
    // before it, and the code's own 3-byte tail does not count again.
    Bytes mixed = {0, 0, 0, 1, 0x67, 0x11, 0, 0, 1, 0x68, 0x22, 0x00,
                   0, 0, 0, 1, 0x65, 0x33, 0xEE};
    EXPECT_EQ(convert(mixed, 18), 19);
    EXPECT_EQ(mixed, (Bytes{0, 0, 0, 2, 0x67, 0x11, 0, 0, 0, 3, 0x68, 0x22, 0x00,
                            0, 0, 0, 2, 0x65, 0x33}));

    // A code in the last three bytes stays in the unit; one ending the
    // buffer exactly leaves an empty unit.
    Bytes tail3 = {0, 0, 0, 1, 0x65, 0, 0, 1};
    EXPECT_EQ(convert(tail3, 8), 8);
    EXPECT_EQ(tail3, (Bytes{0, 0, 0, 4, 0x65, 0, 0, 1}));
    Bytes tail4 = {0, 0, 0, 1, 0x65, 0, 0, 0, 1};
    EXPECT_EQ(convert(tail4, 9), 9);
    EXPECT_EQ(tail4, (Bytes{0, 0, 0, 1, 0x65, 0, 0, 0, 0}));
}

TEST(MarkerToSize, BuffersWithoutStartCodes)
{
    Bytes plain = {0x65, 1, 2, 3, 4, 5};
    EXPECT_EQ(convert(plain, 6), 6);
    EXPECT_EQ(plain, (Bytes{0, 0, 0, 2, 4, 5}));

    Bytes shortBuf = {0x65, 1, 2}; // no room for a field: left alone
    EXPECT_EQ(convert(shortBuf, 3), 3);
    EXPECT_EQ(shortBuf, (Bytes{0x65, 1, 2}));

    Bytes none = {9};
    EXPECT_EQ(qrvUtilh264MarkerToSize(none.data(), 0), 0);
    EXPECT_EQ(qrvUtilh264MarkerToSize(none.data(), -5), -5);
    EXPECT_EQ(none, Bytes{9});

    // Leading bytes before the first code are not framed.
    Bytes lead = {0xAB, 0xCD, 0, 0, 1, 0x41, 0x42, 0xEE};
    EXPECT_EQ(convert(lead, 7), 8);
    EXPECT_EQ(lead, (Bytes{0xAB, 0xCD, 0, 0, 0, 2, 0x41, 0x42}));
}

TEST(MarkerToSize, MatchesStepwiseConversionOnRandomStreams)
{
    std::mt19937 rng(20240611);
    const uint8_t alphabet[] = {0, 0, 0, 0, 1, 1, 3, 0x65, 0xFF};
    for (int round = 0; round < 20000; ++round) {
        const size_t len = rng() % 48;
        Bytes data(len);
        for (auto &b : data)
            b = alphabet[rng() % sizeof alphabet];
        const size_t spare = len; // at most one widening per byte
        Bytes ours(data), theirs(data);
        ours.resize(len + spare, 0x5A);
        theirs.resize(len + spare + 4, 0x5A);
        const int got = convert(ours, len);
        const int want = stepwiseMarkerToSize(theirs, static_cast<int>(len));
        ASSERT_EQ(got, want) << "round " << round;
        ASSERT_TRUE(std::equal(ours.begin(), ours.begin() + got, theirs.begin())) << "round " << round;
    }
}

TEST(MarkerToSize, MatchesStepwiseConversionWithLongUnits)
{
    // Unit lengths from 256 up put 00 00 01 and 00 01 into the fields.
    std::mt19937 rng(99);
    for (int round = 0; round < 300; ++round) {
        Bytes data;
        for (int unit = 0; unit < 4; ++unit) {
            const size_t payload = (rng() % 8 == 0) ? 65536 + rng() % 600 : rng() % 700;
            if (rng() & 1)
                data.push_back(0);
            data.insert(data.end(), {0, 0, 1});
            for (size_t i = 0; i < payload; ++i)
                data.push_back(static_cast<uint8_t>(0x80 | (rng() & 0x7F)));
        }
        Bytes ours(data), theirs(data);
        ours.resize(data.size() + 4);
        theirs.resize(data.size() + 8);
        const int got = convert(ours, data.size());
        const int want = stepwiseMarkerToSize(theirs, static_cast<int>(data.size()));
        ASSERT_EQ(got, want) << "round " << round;
        ASSERT_TRUE(std::equal(ours.begin(), ours.begin() + got, theirs.begin())) << "round " << round;
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
    ASSERT_EQ(convert(buf, units * 4), static_cast<int>(units * 5));
    for (size_t i = 0; i < units; i += 4099)
        ASSERT_EQ(qrv::h264::readBE32(&buf[5 * i]), 1u) << i;
    EXPECT_EQ(buf[5 * units - 1], 0x09);
}

// ---- Length prefixes to start codes ---------------------------------------------

unsigned toMarkers(Bytes &buf)
{
    return qrvUtilh264SizeToMarker(buf.data(), static_cast<unsigned>(buf.size()));
}

TEST(SizeToMarker, StopsAtZeroOrOverrunningLengths)
{
    Bytes zero = {0, 0, 0, 0, 0x65, 1};
    EXPECT_EQ(toMarkers(zero), 0u);

    const Bytes big = {0, 0, 0, 9, 0x65, 1, 2};
    Bytes overrun = big;
    EXPECT_EQ(toMarkers(overrun), 7u);
    EXPECT_EQ(overrun, big);

    const Bytes coded = {0, 0, 0, 1, 0x65, 1, 2};
    Bytes already = coded;
    EXPECT_EQ(toMarkers(already), 7u);
    EXPECT_EQ(already, coded);

    // A zero field ends the data after the units before it, converted.
    Bytes midZero = {0, 0, 0, 2, 0x09, 0x10, 0, 0, 0, 0, 0x65};
    EXPECT_EQ(toMarkers(midZero), 6u);
    EXPECT_EQ(midZero, (Bytes{0, 0, 0, 1, 0x09, 0x10, 0, 0, 0, 0, 0x65}));

    // Conversions made before an overrunning length stay made.
    Bytes partial = {0, 0, 0, 2, 0x09, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x65};
    EXPECT_EQ(toMarkers(partial), 11u);
    EXPECT_EQ(partial, (Bytes{0, 0, 0, 1, 0x09, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x65}));

    // Two bytes left after a unit are no field: the walk ends there.
    Bytes loose = {0, 0, 0, 3, 0x09, 0x10, 0x11, 0, 0};
    EXPECT_EQ(toMarkers(loose), 9u);
    EXPECT_EQ(loose, (Bytes{0, 0, 0, 1, 0x09, 0x10, 0x11, 0, 0}));

    Bytes tiny = {0, 0};
    EXPECT_EQ(toMarkers(tiny), 2u);
    EXPECT_EQ(qrvUtilh264SizeToMarker(tiny.data(), 0), 0u);
}

TEST(SizeToMarker, UndoesMarkerToSizeForLongStartCodes)
{
    const Bytes original = startCoded({kMainSps, kMainPps, {0x06, 0x05, 0x01, 0x00, 0x80},
                                       {0x65, 0x88, 0x00, 0x00, 0x00, 0x00, 0x7F}});
    Bytes buf = original;
    ASSERT_EQ(convert(buf, buf.size()), static_cast<int>(original.size()));
    EXPECT_EQ(qrv::h264::readBE32(buf.data()), kMainSps.size());
    EXPECT_EQ(toMarkers(buf), original.size());
    EXPECT_EQ(buf, original);
}

// ---- Writing avcC -----------------------------------------------------------------

Bytes avccOf(Bytes &units, size_t room)
{
    NAL_BUFFER nb = nalBuffer(units);
    Bytes out(room);
    const int size = qrvutilGetAvcc(&nb, out.data());
    EXPECT_GE(size, 14);
    EXPECT_LE(static_cast<size_t>(size), room);
    out.resize(std::min<size_t>(size, room));
    return out;
}

Bytes concat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes &p : parts)
        out.insert(out.end(), p.begin(), p.end());
    return out;
}

const Bytes kEmptyBox = {0, 0, 0, 14, 'a', 'v', 'c', 'C', 1, 0, 0, 0, 0xFF, 0xE1};

TEST(GetAvcc, HeaderOnlyWhenNoParameterSetIsTaken)
{
    Bytes four = {0, 0, 0, 1};
    EXPECT_EQ(avccOf(four, 14), kEmptyBox);

    // In start-code form the last unit measures past the end and is never
    // taken, even when it is the only SPS.
    Bytes lastSps = startCoded({kMainSps});
    EXPECT_EQ(avccOf(lastSps, 14), kEmptyBox);

    // Lengths that overrun the buffer end the walk.
    for (uint32_t len : {0xFFFFFFFFu, 0xFFFFFFFCu, 0x80000000u, 23u}) {
        Bytes huge = lengthPrefixed({kMainSps});
        qrv::h264::writeBE32(huge.data(), len);
        EXPECT_EQ(avccOf(huge, 14), kEmptyBox) << len;
    }
}

TEST(GetAvcc, WritesFirstSpsAndPpsInStreamOrder)
{
    Bytes units = lengthPrefixed({kMainSps, kMainSps, kMainSps});
    units[4 + kMainSps.size() + 4] = 0x68; // second unit becomes a PPS of the same length
    const Bytes pps(units.begin() + 8 + kMainSps.size(), units.begin() + 8 + 2 * kMainSps.size());
    const Bytes box = avccOf(units, 64);
    const uint8_t len = uint8_t(kMainSps.size());
    EXPECT_EQ(box, concat({{0, 0, 0, uint8_t(14 + 2 + len + 3 + len), 'a', 'v', 'c', 'C', 1,
                            0x4d, 0x40, 0x0a, 0xFF, 0xE1, 0, len},
                           kMainSps,
                           {1, 0, len},
                           pps}));

    // A PPS met first is written first; the SPS bytes still fill 9-11.
    Bytes ppsFirst = lengthPrefixed({{0x68, 1, 2, 3}, {0x67, 0x64, 0x00, 0x1E}});
    EXPECT_EQ(avccOf(ppsFirst, 64),
              concat({{0, 0, 0, 14 + 3 + 4 + 2 + 4, 'a', 'v', 'c', 'C', 1, 0x64, 0x00, 0x1E, 0xFF,
                       0xE1, 1, 0, 4, 0x68, 1, 2, 3, 0, 4, 0x67, 0x64, 0x00, 0x1E}}));
}

TEST(GetAvcc, StridesByTheFirstUnitsLength)
{
    // SPS of 6 bytes, PPS of 4, slice of 2: the second unit is taken to be 6
    // bytes long too, so the PPS entry runs into the next unit's field.
    const Bytes sps = {0x67, 0x42, 0xC0, 0x1E, 0xAA, 0xBB};
    Bytes units = lengthPrefixed({sps, {0x68, 0xCE, 0x3C, 0x80}, {0x65, 0x88}});
    EXPECT_EQ(avccOf(units, 64),
              concat({{0, 0, 0, 14 + 2 + 6 + 3 + 6, 'a', 'v', 'c', 'C', 1, 0x42, 0xC0, 0x1E, 0xFF,
                       0xE1, 0, 6},
                      sps,
                      {1, 0, 6, 0x68, 0xCE, 0x3C, 0x80, 0x00, 0x00}}));

    // Start codes: the first unit is measured, and that length is then
    // kept; a PPS shorter than the SPS before the last unit takes the
    // stride's bytes.
    Bytes coded = startCoded({{0x67, 0x42, 0xC0, 0x1E}, {0x68, 0xCE}, {0x65, 0x88, 0x84}});
    EXPECT_EQ(avccOf(coded, 64),
              concat({{0, 0, 0, 14 + 2 + 4 + 3 + 4, 'a', 'v', 'c', 'C', 1, 0x42, 0xC0, 0x1E, 0xFF,
                       0xE1, 0, 4, 0x67, 0x42, 0xC0, 0x1E, 1, 0, 4, 0x68, 0xCE, 0, 0}}));

    // A measured length of 1 is measured again at the next unit.
    Bytes ones = startCoded({{0x09}, {0x67, 0x42, 0xC0, 0x1E}, {0x68, 0xCE}, {0x65}});
    const Bytes box = avccOf(ones, 64);
    ASSERT_EQ(box.size(), 14u + 2 + 4 + 3 + 4);
    EXPECT_EQ(Bytes(box.begin() + 9, box.begin() + 12), (Bytes{0x42, 0xC0, 0x1E}));
}

TEST(GetAvcc, ProfileBytesOfAShortSpsStayInTheBuffer)
{
    // Stride 2: the SPS unit is 67 4D and the buffer ends there.
    Bytes units = lengthPrefixed({{0x09, 0x10}, {0x67, 0x4D}});
    const Bytes box = avccOf(units, 64);
    ASSERT_EQ(box.size(), 14u + 2 + 2);
    EXPECT_EQ(Bytes(box.begin() + 9, box.begin() + 12), (Bytes{0x4D, 0, 0}));
}

// ---- Reading avcC ------------------------------------------------------------------

Bytes avccBox(const std::vector<Bytes> &spsList, const std::vector<Bytes> &ppsList,
              const Bytes &tail = {})
{
    Bytes body = {1, 0x4d, 0x40, 0x0a, 0xFF, uint8_t(0xE0 | spsList.size())};
    for (const Bytes &s : spsList) {
        body.insert(body.end(), {uint8_t(s.size() >> 8), uint8_t(s.size())});
        body.insert(body.end(), s.begin(), s.end());
    }
    body.push_back(uint8_t(ppsList.size()));
    for (const Bytes &p : ppsList) {
        body.insert(body.end(), {uint8_t(p.size() >> 8), uint8_t(p.size())});
        body.insert(body.end(), p.begin(), p.end());
    }
    body.insert(body.end(), tail.begin(), tail.end());
    Bytes box(body.size() + 8);
    qrv::h264::writeBE32(box.data(), static_cast<uint32_t>(box.size()));
    std::memcpy(&box[4], "avcC", 4);
    std::copy(body.begin(), body.end(), box.begin() + 8);
    return box;
}

struct AvccRead {
    int result;
    SPS_DECODED sps;
    PPS_DECODED pps;
    uintptr_t bitPos;
};

// Records start filled with a pattern so that untouched ones show.
AvccRead readAvcc(const Bytes &box)
{
    Bytes padded = box;
    padded.push_back(0); // the reader may look one byte past its end
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(padded.data());
    bs.byte_size = box.size();
    bs.bit_end = box.size() * 8;
    AvccRead r;
    std::memset(&r.sps, 0x5A, sizeof r.sps);
    std::memset(&r.pps, 0x5A, sizeof r.pps);
    r.result = qrvutilReadAvcc(&bs, &r.sps, &r.pps);
    r.bitPos = bs.bit_pos;
    return r;
}

bool untouched(const void *record, size_t size)
{
    const auto *p = static_cast<const uint8_t *>(record);
    return std::all_of(p, p + size, [](uint8_t b) { return b == 0x5A; });
}

TEST(ReadAvcc, DecodesTheFirstEntries)
{
    const AvccRead r = readAvcc(avccBox({kMainSps, kHighSps}, {kMainPps, {0x68, 0xFF}}));
    EXPECT_EQ(r.result, 0);
    EXPECT_TRUE(sameRecord(r.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(r.pps, decodePps(kMainPps)));
    EXPECT_EQ(r.sps.profile_idc, 77);

    const AvccRead none = readAvcc(avccBox({}, {}));
    EXPECT_EQ(none.result, 0);
    EXPECT_TRUE(untouched(&none.sps, sizeof none.sps));
    EXPECT_TRUE(untouched(&none.pps, sizeof none.pps));
}

TEST(ReadAvcc, ZeroBoxSizeIsRefused)
{
    Bytes box = avccBox({kMainSps}, {kMainPps});
    std::fill(box.begin(), box.begin() + 4, 0);
    const AvccRead r = readAvcc(box);
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(r.bitPos, 32u);
    EXPECT_TRUE(untouched(&r.sps, sizeof r.sps));
    EXPECT_TRUE(untouched(&r.pps, sizeof r.pps));
}

TEST(ReadAvcc, LongPpsEntriesArePassedOver)
{
    Bytes longPps = kMainPps;
    longPps.resize(513);
    const AvccRead skipped = readAvcc(avccBox({kMainSps}, {longPps, kMainPps}));
    EXPECT_TRUE(sameRecord(skipped.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(untouched(&skipped.pps, sizeof skipped.pps)); // the first slot stays empty

    longPps.resize(512); // still decoded: the padding is trailing zeros
    const AvccRead kept = readAvcc(avccBox({kMainSps}, {longPps}));
    EXPECT_TRUE(sameRecord(kept.pps, decodePps(kMainPps)));
}

TEST(ReadAvcc, HighProfileExtensionIsConsumed)
{
    // chroma_format, two bit depths, one extension entry: 8x8 transform and
    // scaling matrix flags, list 0 present and ending at once (delta -8,
    // bits 000010001), lists 1-7 absent; then a byte that is not read.
    const Bytes extension = {0xFD, 0xF8, 0xF8, 0x01, 0xE1, 0x10, 0x00, 0xAB};
    const size_t extensionBits = 4 * 8 + 2 + 1 + 9 + 7;
    const Bytes high = avccBox({kHighSps}, {kMainPps}, extension);
    const size_t headerBits = (high.size() - extension.size()) * 8;
    EXPECT_EQ(readAvcc(high).bitPos, headerBits + extensionBits);

    const Bytes main = avccBox({kMainSps}, {kMainPps}, extension);
    EXPECT_EQ(readAvcc(main).bitPos, (main.size() - extension.size()) * 8);

    // Fewer than 32 bits left: not read.
    const Bytes shortTail = avccBox({kHighSps}, {kMainPps}, {0xFD, 0xF8, 0xF8});
    EXPECT_EQ(readAvcc(shortTail).bitPos, (shortTail.size() - 3) * 8);
}

// ---- Walking units -------------------------------------------------------------------

struct Walk {
    int count;
    SPS_DECODED sps;
    PPS_DECODED pps;
};

Walk walk(Bytes &units, const uint8_t *avcc = nullptr)
{
    NAL_BUFFER nb = nalBuffer(units);
    Walk w{};
    w.count = qrvutilFindNalUnits(&nb, &w.sps, &w.pps, avcc);
    return w;
}

const Bytes kAud = {0x09, 0xF0};
const Bytes kIdrSlice = {0x65, 0x88, 0x84, 0x00, 0x77, 0xFF, 0xFE, 0xF7, 0x4E};

TEST(FindNalUnits, CountsAndDecodesUnitsInBothFramings)
{
    Bytes sized = lengthPrefixed({kAud, kMainSps, kMainPps, kIdrSlice});
    const Walk a = walk(sized);
    EXPECT_EQ(a.count, 4);
    EXPECT_TRUE(sameRecord(a.sps, decodeSps(kMainSps)));
    EXPECT_EQ(a.sps.level_idc, 10);
    EXPECT_EQ(a.pps.entropy_coding_mode_flag, 1);

    // The last start-code unit is neither counted nor decoded.
    Bytes coded = startCoded({kAud, kMainPps, kIdrSlice, kMainSps});
    const Walk b = walk(coded);
    EXPECT_EQ(b.count, 3);
    EXPECT_EQ(b.sps.profile_idc, 0);
    EXPECT_EQ(b.pps.entropy_coding_mode_flag, 1);

    // Every field is read afresh, so the framing may change mid-stream.
    Bytes mixed = concat({lengthPrefixed({kAud, kMainSps}), startCoded({kMainPps, kIdrSlice, kAud})});
    const Walk c = walk(mixed);
    EXPECT_EQ(c.count, 4);
    EXPECT_EQ(c.sps.profile_idc, 77);
    EXPECT_EQ(c.pps.entropy_coding_mode_flag, 1);
}

TEST(FindNalUnits, LaterParameterSetsReplaceEarlierOnes)
{
    Bytes units = lengthPrefixed({kHighSps, {0x68, 0xCE, 0x3C, 0x80}, kMainSps, kMainPps});
    const Walk w = walk(units);
    EXPECT_EQ(w.count, 4);
    EXPECT_TRUE(sameRecord(w.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(w.pps, decodePps(kMainPps)));
}

TEST(FindNalUnits, OverrunningUnitsEndTheWalkUncounted)
{
    for (uint32_t len : {0xFFFFFFFFu, 0xFFFFFFFBu, 0x80000001u, 7u}) {
        Bytes units = lengthPrefixed({kAud, {0x67, 0x4d, 0x40}});
        qrv::h264::writeBE32(units.data() + 6, len);
        EXPECT_EQ(walk(units).count, 1) << len;
    }
    Bytes tiny = {0, 0, 0, 1};
    EXPECT_EQ(walk(tiny).count, 0);
    NAL_BUFFER empty{};
    EXPECT_EQ(qrvutilFindNalUnits(&empty, nullptr, nullptr, nullptr), 0);
}

TEST(FindNalUnits, ZeroTypeUnitsStepOverZeroBytes)
{
    // An empty unit (zero field) whose header byte is the next zero byte:
    // the walk moves one byte on, steps over the following zero bytes and
    // lengthens the unit by as many, which carries it past the AUD.
    Bytes units = concat({{0, 0, 0, 0}, lengthPrefixed({kAud, kAud, kAud})});
    EXPECT_EQ(walk(units).count, 1);

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
    Bytes sized = lengthPrefixed({sei, kAud});
    EXPECT_EQ(walk(sized).count, 2);
    EXPECT_EQ(sized, lengthPrefixed({cleaned, kAud}));

    Bytes coded = startCoded({sei, kAud});
    EXPECT_EQ(walk(coded).count, 1);
    EXPECT_EQ(coded, startCoded({cleaned, kAud}));

    // The last SEI of a start-code stream is never reached.
    Bytes last = startCoded({kAud, sei});
    walk(last);
    EXPECT_EQ(last, startCoded({kAud, sei}));
}

TEST(FindNalUnits, SeiCleaningMatchesStepwiseRemoval)
{
    std::mt19937 rng(7);
    const uint8_t alphabet[] = {0, 0, 0, 3, 3, 0x0C, 0x0C, 1, 0x80};
    for (int round = 0; round < 20000; ++round) {
        Bytes unit(1 + rng() % 24);
        for (auto &b : unit)
            b = alphabet[rng() % sizeof alphabet];
        const uint8_t before = alphabet[rng() % sizeof alphabet];
        Bytes ours = unit, theirs = unit;
        qrv::h264::cleanSeiUnit(ours.data(), ours.size(), before);
        stepwiseSeiClean(theirs, before);
        ASSERT_EQ(ours, theirs) << "round " << round;
    }
}

TEST(FindNalUnits, ReadsAnAvccFirstAndCutsItAt512Bytes)
{
    Bytes box = avccBox({kMainSps}, {kMainPps});
    Bytes none;
    const Walk w = walk(none, box.data());
    EXPECT_EQ(w.count, 0);
    EXPECT_TRUE(sameRecord(w.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(w.pps, decodePps(kMainPps)));

    // An SPS entry padded to 520 bytes pushes the PPS past the cut.
    Bytes longSps = kMainSps;
    longSps.resize(520);
    Bytes longBox = avccBox({longSps}, {kMainPps});
    EXPECT_TRUE(sameRecord(readAvcc(longBox).pps, decodePps(kMainPps)));
    const Walk cut = walk(none, longBox.data());
    EXPECT_TRUE(sameRecord(cut.sps, decodeSps(kMainSps)));
    EXPECT_TRUE(sameRecord(cut.pps, PPS_DECODED{}));

    // A box shorter than its reading window is not read beyond its size.
    Bytes exact = avccBox({kMainSps}, {kMainPps});
    exact.shrink_to_fit();
    const Walk small = walk(none, exact.data());
    EXPECT_EQ(small.sps.profile_idc, 77);
}

} // namespace
