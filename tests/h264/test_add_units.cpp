// qrvutilAddNalUnits (closing SEI units, inserting parameter sets) and
// qrvutilMakeAvcc against the clips and the muxer's boxes.
#include <qrvutil/host.h>

#include <memory>

#include "writers_test_util.h"

namespace {

// One frame in a block of exactly `capacity` bytes, so that AddressSanitizer
// sees any write past it.
struct Frame {
    Frame(const Bytes &bytes, size_t capacity) : room(capacity), block(new uint8_t[capacity])
    {
        std::memcpy(block.get(), bytes.data(), bytes.size());
        nb.data = block.get();
        nb.length = uint32_t(bytes.size());
    }
    int add(const SPS_DECODED *sps, const PPS_DECODED *pps)
    {
        return qrvutilAddNalUnits(&nb, uint32_t(room), sps, pps);
    }
    Bytes bytes() const { return Bytes(block.get(), block.get() + nb.length); }
    QRV_NAL_UNIT_COUNTS counts() const
    {
        QRV_NAL_UNIT_COUNTS c;
        std::memcpy(&c, nb.storage, sizeof c);
        return c;
    }
    size_t room;
    std::unique_ptr<uint8_t[]> block;
    NAL_BUFFER nb{};
};

// The clip's first access unit (through its last IDR slice): its units, and
// its bytes as they stand in the clip with units of `drop` taken out and
// the stop byte taken from every SEI unit when `open`.
struct AccessUnit {
    std::vector<Bytes> units;
    Bytes original, stripped;
    AccessUnit(const Bytes &stream, std::initializer_list<int> drop)
    {
        std::vector<ClipUnit> all = unitsOf(stream);
        size_t n = 0;
        for (bool slices = false; n < all.size(); ++n) {
            const int type = typeAt(stream, all[n]);
            if (slices && type != 5)
                break;
            slices |= type == 5;
        }
        for (size_t i = 0; i < n; ++i) {
            const ClipUnit &u = all[i];
            const size_t next = i + 1 < n ? all[i + 1].field : u.end;
            units.push_back(bytesOf(stream, u.payload, u.end));
            original = concat({original, bytesOf(stream, u.field, next)});
            const int type = typeAt(stream, u);
            if (std::count(drop.begin(), drop.end(), type))
                continue;
            const size_t stop = type == 6 ? u.end - 1 : u.end;
            EXPECT_TRUE(type != 6 || stream[stop] == 0x80);
            stripped = concat(
                {stripped, bytesOf(stream, u.field, stop), bytesOf(stream, u.end, next)});
        }
    }
};

std::vector<Bytes> without(std::vector<Bytes> units, std::initializer_list<int> types)
{
    units.erase(std::remove_if(units.begin(), units.end(),
                               [&](const Bytes &u) {
                                   return std::count(types.begin(), types.end(), u[0] & 0x1F) > 0;
                               }),
                units.end());
    for (Bytes &u : units)
        if ((u[0] & 0x1F) == 6)
            u.pop_back(); // the stop byte
    return units;
}

TEST(AddNalUnits, StrippedParameterSetsAndStopBytesComeBack)
{
    for (const std::string &clip : kWriterClips) {
        const Bytes stream = clipBytes(clip, ".h264");
        const SPS_DECODED sps = decodeSps(firstUnit(stream, 7));
        const PPS_DECODED pps = decodePps(firstUnit(stream, 8));
        const AccessUnit au(stream, {7, 8});
        for (bool codes : {true, false}) {
            const Bytes original = codes ? au.original : framed(au.units, false);
            const Bytes stripped = codes ? au.stripped : framed(without(au.units, {7, 8}), false);
            const std::string what = clip + (codes ? " start codes" : " lengths");

            Frame f(stripped, original.size());
            if (clip == kPpsReadShort) { // the PPS as read is one its writer refuses
                EXPECT_EQ(f.add(&sps, &pps), QRV_E_RANGE) << what;
                EXPECT_EQ(f.bytes(), stripped) << what;
                continue;
            }
            EXPECT_EQ(f.add(&sps, &pps), int(original.size())) << what;
            EXPECT_EQ(f.bytes(), original) << what;
            const QRV_NAL_UNIT_COUNTS c = f.counts();
            EXPECT_EQ(c.units, au.units.size() - 2) << what;
            EXPECT_EQ(c.closed_sei,
                      size_t(std::count_if(au.units.begin(), au.units.end(),
                                           [](const Bytes &u) { return (u[0] & 0x1F) == 6; })))
                << what;
            EXPECT_GE(c.closed_sei, 1u) << what;
            EXPECT_EQ(c.inserted_sps + c.inserted_pps, 2u) << what;

            // Done again: nothing left to add.
            EXPECT_EQ(f.add(&sps, &pps), int(original.size())) << what;
            EXPECT_EQ(f.bytes(), original) << what;

            // One byte short: refused, and the frame is as it was.
            Frame tight(stripped, original.size() - 1);
            EXPECT_EQ(tight.add(&sps, &pps), QRV_E_ROOM) << what;
            EXPECT_EQ(tight.bytes(), stripped) << what;
        }
    }
}

const Bytes kAud = {0x09, 0xF0}, kIdr = {0x65, 0x88, 0x84, 0x21}, kSlice = {0x41, 0x9A, 0x02};
const Bytes kOpenSei = {0x06, 0x05, 0x01, 0xAA}, kClosedSei = {0x06, 0x05, 0x01, 0xAA, 0x80};

struct Sets {
    SPS_DECODED sps;
    PPS_DECODED pps;
    Bytes spsUnit, ppsUnit;
    Sets()
    {
        const Bytes s = clipBytes("main_cabac_b", ".h264");
        spsUnit = firstUnit(s, 7);
        ppsUnit = firstUnit(s, 8);
        sps = decodeSps(spsUnit);
        pps = decodePps(ppsUnit);
    }
};

TEST(AddNalUnits, PlacesUnitsAfterTheDelimiterAndLeavesOtherFramesAlone)
{
    const Sets p;
    const auto added = [&](const std::vector<Bytes> &units, const SPS_DECODED *sps,
                           const PPS_DECODED *pps, bool codes) {
        const Bytes in = codes ? framed(units, true) : framed(units, false);
        Frame f(in, in.size() + 200);
        const int n = f.add(sps, pps);
        EXPECT_EQ(n, int(f.nb.length));
        return f.bytes();
    };
    for (bool codes : {true, false}) {
        const auto expect = [&](std::vector<Bytes> units) { return framed(units, codes); };
        EXPECT_EQ(added({kAud, kOpenSei, kIdr}, &p.sps, &p.pps, codes),
                  expect({kAud, p.spsUnit, p.ppsUnit, kClosedSei, kIdr}));
        // A PPS goes after the SPS that is there; an SPS before the PPS.
        EXPECT_EQ(added({kAud, p.spsUnit, kIdr}, &p.sps, &p.pps, codes),
                  expect({kAud, p.spsUnit, p.ppsUnit, kIdr}));
        EXPECT_EQ(added({p.ppsUnit, kClosedSei, kIdr, kIdr}, &p.sps, &p.pps, codes),
                  expect({p.spsUnit, p.ppsUnit, kClosedSei, kIdr, kIdr}));
        // Null records insert nothing; frames without an IDR slice get only
        // their SEI closed.
        EXPECT_EQ(added({kOpenSei, kIdr}, nullptr, &p.pps, codes),
                  expect({p.ppsUnit, kClosedSei, kIdr}));
        EXPECT_EQ(added({kOpenSei, kSlice, kOpenSei}, &p.sps, &p.pps, codes),
                  expect({kClosedSei, kSlice, kClosedSei}));
    }
    // 3-byte codes stay as they are; an inserted unit gets a 4-byte code.
    const Bytes short3 = concat({{0, 0, 1}, kAud, {0, 0, 1}, kIdr});
    Frame f(short3, 64);
    EXPECT_EQ(f.add(&p.sps, nullptr), int(short3.size() + 4 + p.spsUnit.size()));
    EXPECT_EQ(f.bytes(), concat({{0, 0, 1}, kAud, {0, 0, 0, 1}, p.spsUnit, {0, 0, 1}, kIdr}));
}

TEST(AddNalUnits, ClosesSeiOnceWithItsTrailingZerosBehindTheStopByte)
{
    struct Case {
        Bytes open, closedCodes, closedLengths;
    };
    const Case cases[] = {
        // type 1, size 0, then zeros whose escape was placed for the size byte
        {{0x06, 0x01, 0x00, 0x00, 0x03, 0x00},
         {0x06, 0x01, 0x00, 0x80, 0x00, 0x00, 0x00},
         {0x06, 0x01, 0x00, 0x80, 0x00, 0x00, 0x03}},
        // a payload ending in 00 00 keeps them; the escape after it is a zero's
        {{0x06, 0x05, 0x02, 0x00, 0x00, 0x03, 0x00, 0x00},
         {0x06, 0x05, 0x02, 0x00, 0x00, 0x80, 0x00, 0x00, 0x00},
         {0x06, 0x05, 0x02, 0x00, 0x00, 0x80, 0x00, 0x00, 0x03}},
    };
    for (bool codes : {true, false}) {
        for (const Case &c : cases) {
            const Bytes in = framed({c.open, kIdr}, codes);
            const Bytes out = framed({codes ? c.closedCodes : c.closedLengths, kIdr}, codes);
            Frame f(in, in.size() + 1);
            EXPECT_EQ(f.add(nullptr, nullptr), int(out.size()));
            EXPECT_EQ(f.bytes(), out);
            EXPECT_EQ(f.counts().closed_sei, 1u);
            EXPECT_EQ(f.add(nullptr, nullptr), int(out.size())) << "a second call changes nothing";
            EXPECT_EQ(f.bytes(), out);
            EXPECT_EQ(f.counts().closed_sei, 0u);
        }
        // Units that end in their stop byte, zeros after it escaped or not,
        // stay as they are.
        for (const Bytes &closed : {Bytes{0x06, 0x05, 0x01, 0xAA, 0x80, 0x00, 0x00},
                                    Bytes{0x06, 0x05, 0x01, 0x00, 0x80, 0x00, 0x00, 0x03, 0x00},
                                    Bytes{0x06, 0x05, 0x02, 0x00, 0x00, 0x80}}) {
            const Bytes in = framed({closed, kIdr}, codes);
            Frame f(in, in.size() + 8);
            EXPECT_EQ(f.add(nullptr, nullptr), int(in.size()));
            EXPECT_EQ(f.bytes(), in);
        }
    }
    // The fuzzers' frame: a 3-byte code, and the unit's zeros up to its end.
    const Bytes frame = {0x00, 0x00, 0x01, 0x06, 0x01, 0x00, 0x00, 0x03, 0x00};
    Frame f(frame, frame.size() + 3);
    EXPECT_EQ(f.add(nullptr, nullptr), 10);
    EXPECT_EQ(f.bytes(), Bytes({0x00, 0x00, 0x01, 0x06, 0x01, 0x00, 0x80, 0x00, 0x00, 0x00}));
}

TEST(AddNalUnits, EveryFailureLeavesTheFrameAsItWas)
{
    const Sets p;
    const Bytes frame = framed({kOpenSei, kIdr}, false);
    const size_t grown = frame.size() + 1 + 8 + p.spsUnit.size() + p.ppsUnit.size();
    const auto unchanged = [&](Frame &f, int expected, const SPS_DECODED *sps,
                               const PPS_DECODED *pps) {
        std::memset(f.nb.storage, 0x5A, sizeof f.nb.storage);
        EXPECT_EQ(f.add(sps, pps), expected);
        EXPECT_EQ(f.bytes(), frame);
        EXPECT_TRUE(std::all_of(f.nb.storage, f.nb.storage + sizeof f.nb.storage,
                                [](uint8_t b) { return b == 0x5A; }));
    };
    Frame tight(frame, grown - 1);
    unchanged(tight, QRV_E_ROOM, &p.sps, &p.pps);
    SPS_DECODED refused = p.sps;
    refused.vui_parameters_present_flag = refused.nal_hrd_parameters_present_flag = 1;
    refused.nal_hrd.cpb_cnt_minus1 = 8;
    Frame big(frame, grown + 64);
    unchanged(big, QRV_E_RANGE, &refused, &p.pps);
    // A record of another kind would insert a unit of that kind.
    SPS_DECODED ppsKind = p.sps;
    ppsKind.nal_unit_type = 8;
    unchanged(big, QRV_E_RANGE, &ppsKind, &p.pps);
    PPS_DECODED spsKind = p.pps;
    spsKind.nal_unit_type = 7;
    unchanged(big, QRV_E_RANGE, nullptr, &spsKind);

    Bytes last = frame;
    last[last.size() - kIdr.size() - 1] += 1; // the last unit runs past the end
    Frame cut(last, grown + 64);
    EXPECT_EQ(cut.add(&p.sps, &p.pps), QRV_E_TRUNCATED);
    EXPECT_EQ(cut.bytes(), last);
    qrvHostServices noMemory{};
    noMemory.size = sizeof noMemory;
    noMemory.alloc = [](size_t) -> void * { return nullptr; };
    qrvSetHostServices(&noMemory);
    Frame starved(frame, grown + 64);
    unchanged(starved, QRV_E_MEMORY, nullptr, nullptr);
    qrvResetHostServices();

    Frame small(frame, frame.size());
    small.nb.length = uint32_t(frame.size() + 1);
    EXPECT_EQ(small.add(nullptr, nullptr), QRV_E_ARGUMENT);
    EXPECT_EQ(qrvutilAddNalUnits(nullptr, 10, nullptr, nullptr), QRV_E_ARGUMENT);
}

// ---- A standard avcC ----------------------------------------------------------------

Bytes makeAvcc(const Bytes &units, int *status = nullptr)
{
    const int size = qrvutilMakeAvcc(units.data(), uint32_t(units.size()), nullptr, 0);
    if (status)
        *status = size;
    if (size <= 0)
        return {};
    Bytes out(static_cast<size_t>(size));
    EXPECT_EQ(
        qrvutilMakeAvcc(units.data(), uint32_t(units.size()), out.data(), uint32_t(out.size())),
        size);
    return out;
}

TEST(MakeAvcc, EqualsTheMuxersBoxForEveryClip)
{
    for (const std::string &clip : kWriterClips) {
        const Bytes stream = clipBytes(clip, ".h264");
        Bytes muxed = clipBytes(clip, ".avcc");
        if (clip == "long_startcodes") {
            // The muxer keeps the zero_byte of the 4-byte code after the
            // last parameter set inside that PPS; a unit ends before it.
            ASSERT_EQ(muxed.back(), 0);
            muxed.pop_back();
            muxed[3] -= 1;
            muxed[muxed.size() - 6] -= 1; // the PPS entry's length
        }
        EXPECT_EQ(makeAvcc(stream), muxed) << clip;

        // Length framing, and a stream that repeats its parameter sets.
        std::vector<Bytes> units;
        for (const ClipUnit &u : unitsOf(stream))
            units.push_back(bytesOf(stream, u.payload, u.end));
        EXPECT_EQ(makeAvcc(framed(units, false)), muxed) << clip;
        EXPECT_EQ(makeAvcc(concat({stream, stream})), muxed) << clip;
    }
}

TEST(MakeAvcc, RoomAndStatuses)
{
    const Sets p;
    const Bytes units = framed({p.spsUnit, p.ppsUnit, kIdr}, true);
    const Bytes box = makeAvcc(units);
    ASSERT_FALSE(box.empty());
    Bytes out(box.size() - 1, 0xEE);
    EXPECT_EQ(
        qrvutilMakeAvcc(units.data(), uint32_t(units.size()), out.data(), uint32_t(out.size())),
        QRV_E_ROOM);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t b) { return b == 0xEE; }));

    // A second, different PPS follows the first (a Main box: no trailer).
    Bytes other = p.ppsUnit;
    other[1] ^= 0x40;
    const Bytes two = makeAvcc(framed({p.spsUnit, p.ppsUnit, other}, true));
    ASSERT_EQ(two.size(), box.size() + 2 + other.size());
    EXPECT_EQ(two[8 + 6 + 2 + p.spsUnit.size()], 2);

    int status = 0;
    makeAvcc(framed({p.ppsUnit, kIdr}, false), &status);
    EXPECT_EQ(status, QRV_E_SYNTAX);
    Bytes cut = framed({p.spsUnit, p.ppsUnit}, false);
    cut.pop_back();
    makeAvcc(cut, &status);
    EXPECT_EQ(status, QRV_E_TRUNCATED);
    EXPECT_EQ(qrvutilMakeAvcc(nullptr, 4, nullptr, 0), QRV_E_ARGUMENT);
}

} // namespace
