// Start codes to lengths against the conversion as first written (one byte
// at a time, moving the rest up at each 3-byte code), and the room queries
// against what the calls write, in heap blocks of exactly that room so that
// AddressSanitizer catches any byte beyond.
#include <dirent.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>

#include "h264_test_util.h"

namespace {

// The conversion step by step: a 3-byte code right after the previous
// marker is the tail of that marker, codes in the last three bytes are not
// markers, a stream without a code gets its first four bytes overwritten.
size_t markerToSizeModel(Bytes &b, size_t len)
{
    const auto at = [&](size_t p, std::initializer_list<uint8_t> code) {
        return p + code.size() <= len && std::equal(code.begin(), code.end(), b.begin() + long(p));
    };
    bool havePrev = false;
    size_t prev = 0;
    for (size_t p = 0; p < len;) {
        const bool four = at(p, {0, 0, 0, 1});
        const bool three = at(p, {0, 0, 1}) && !(havePrev && p == prev + 1);
        const bool last = p + 4 > len;
        if (!four && !three && !last) {
            ++p;
            continue;
        }
        const size_t q = last ? len : p;
        if (havePrev || (last && len >= 4)) // a shorter stream has no room for a field
            qrv::h264::writeBE32(&b[havePrev ? prev : 0], uint32_t(q - (havePrev ? prev : 0) - 4));
        if (!last && three && !four) {
            b.insert(b.begin() + long(q), 0);
            b.pop_back();
            ++len;
        }
        havePrev = true;
        prev = q;
        p = q + 1;
    }
    return len;
}

Bytes readBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<Bytes> everyClip()
{
    std::vector<Bytes> clips;
    const std::string dir = std::string(QRV_TEST_DATA_DIR) + "/h264/";
    std::unique_ptr<DIR, int (*)(DIR *)> d(opendir(dir.c_str()), closedir);
    for (dirent *e; d && (e = readdir(d.get()));) {
        const std::string name = e->d_name;
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".h264") == 0)
            clips.push_back(readBytes(dir + name));
    }
    EXPECT_GE(clips.size(), 10u);
    return clips;
}

// Random streams: units of random bytes rich in 00 and 01 behind 3- and
// 4-byte codes, sometimes with stray leading bytes or none at all.
Bytes randomStream(std::mt19937 &rng)
{
    Bytes s;
    if (rng() % 4 == 0)
        s.push_back(uint8_t(rng() % 3));
    const unsigned units = rng() % 6;
    for (unsigned u = 0; u < units; ++u) {
        if (rng() % 2)
            s.push_back(0);
        s.insert(s.end(), {0, 0, 1});
        const unsigned size = rng() % 12;
        for (unsigned i = 0; i < size; ++i)
            s.push_back(rng() % 3 ? uint8_t(rng() % 3) : uint8_t(rng()));
    }
    return s;
}

// Each clip as recorded, and with every other 4-byte code made a 3-byte one.
std::vector<Bytes> clipStreams()
{
    std::vector<Bytes> streams;
    for (const Bytes &clip : everyClip()) {
        streams.push_back(clip);
        Bytes mixed;
        bool shorten = false;
        for (size_t i = 0; i < clip.size(); ++i) {
            if (i + 4 <= clip.size() && clip[i] == 0 && clip[i + 1] == 0 && clip[i + 2] == 0 &&
                clip[i + 3] == 1 && (shorten = !shorten))
                continue; // drop the leading zero
            mixed.push_back(clip[i]);
        }
        streams.push_back(mixed);
    }
    return streams;
}

// Converts in a heap block of exactly the queried length and compares with
// the model.
void checkMarkerToSize(const Bytes &stream)
{
    const int len = int(stream.size());
    const int room = qrvUtilh264MarkerToSizeLength(stream.data(), len);
    ASSERT_GE(room, len);
    std::unique_ptr<uint8_t[]> block(new uint8_t[size_t(room) + (room == 0)]);
    std::copy(stream.begin(), stream.end(), block.get());
    ASSERT_EQ(qrvUtilh264MarkerToSize(block.get(), len), room);

    Bytes model = stream;
    model.resize(size_t(room) + 1);
    ASSERT_EQ(markerToSizeModel(model, stream.size()), size_t(room));
    ASSERT_EQ(Bytes(block.get(), block.get() + room), Bytes(model.begin(), model.begin() + room));
}

TEST(MarkerToSize, SameBytesAsTheStepwiseConversionInExactlyTheQueriedRoom)
{
    for (const Bytes &stream : clipStreams())
        checkMarkerToSize(stream);
    std::mt19937 rng(5);
    for (int round = 0; round < 30000; ++round)
        checkMarkerToSize(randomStream(rng));
    // More markers than the conversion remembers from its first pass.
    Bytes many;
    while (many.size() < 40000)
        many = concat({many, randomStream(rng)});
    checkMarkerToSize(many);
    EXPECT_EQ(qrvUtilh264MarkerToSizeLength(nullptr, 0), 0);
    EXPECT_EQ(qrvUtilh264MarkerToSizeLength(nullptr, -3), -3);
}

// qrvutilGetAvcc into a heap block of exactly the queried room.
void checkAvccRoom(Bytes units)
{
    NAL_BUFFER nb{};
    nb.data = units.data();
    nb.length = uint32_t(units.size());
    const uint32_t room = qrvutilGetAvccRoom(&nb);
    std::unique_ptr<uint8_t[]> out(new uint8_t[room]);
    ASSERT_EQ(uint32_t(qrvutilGetAvcc(&nb, out.get())), room);
}

TEST(AvccRoom, ExactlyWhatTheBoxTakesInEitherFramingAndOnFuzzedUnits)
{
    for (const Bytes &clip : everyClip()) {
        checkAvccRoom(clip);
        // Length-prefixed, where every field is read.
        Bytes lengths = clip;
        lengths.resize(size_t(qrvUtilh264MarkerToSizeLength(clip.data(), int(clip.size()))));
        qrvUtilh264MarkerToSize(lengths.data(), int(clip.size()));
        checkAvccRoom(lengths);
    }
    // The start-code stride: the first unit's length serves the PPS after
    // it, so the PPS entry is as long as the SPS unit.
    const Bytes sps = {0x67, 0x42, 0, 0x1E, 0xAB, 0xCD, 0xEF};
    const Bytes pps = {0x68, 0xCE};
    Bytes stream = concat({framed({sps, pps}, true), {0, 0, 0, 1, 0x65, 0x88, 0x84, 0, 0}});
    NAL_BUFFER nb{};
    nb.data = stream.data();
    nb.length = uint32_t(stream.size());
    EXPECT_EQ(qrvutilGetAvccRoom(&nb), 14u + 2 + sps.size() + 3 + sps.size());
    checkAvccRoom(stream);

    std::mt19937 rng(9);
    for (int round = 0; round < 30000; ++round) {
        Bytes units;
        const unsigned n = rng() % 5;
        for (unsigned u = 0; u < n; ++u) {
            Bytes unit(1 + rng() % 10);
            for (auto &b : unit)
                b = uint8_t(rng() % 4 == 0 ? 0 : rng());
            unit[0] = uint8_t(rng() % 2 ? 0x67 : 0x68);
            units = concat({units, framed({unit}, rng() % 2 == 0)});
        }
        if (!units.empty() && rng() % 3 == 0)
            units.resize(rng() % units.size()); // cut anywhere
        checkAvccRoom(units);
    }
    EXPECT_EQ(qrvutilGetAvccRoom(nullptr), 14u);
}

} // namespace
