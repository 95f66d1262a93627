// Clips and units shared by the writer, insertion and avcC tests.
#pragma once

#include <fstream>
#include <iterator>
#include <string>

#include "h264_test_util.h"

// Every clip of tests/data/h264 (make_clips.sh).
inline const std::vector<std::string> kWriterClips = {
    "baseline_cavlc",    "main_cabac_b",    "high_cqm", "mbaff",
    "interlaced_frames", "slices4",         "weightp",  "hrd_vui",
    "hi444_lossless10",  "long_startcodes", "cqm_jvt",  "hi422_10_crop",
    "hi444_cqm"};

// Kept reader behaviour drops information here: the PPS reader reads 6 + 2
// scaling lists, so the 8x8 chroma lists of this 4:4:4 PPS are left in the
// stream and the fields after them are read from the wrong bits.
inline const std::string kPpsReadShort = "hi444_cqm";

inline Bytes clipBytes(const std::string &clip, const char *kind)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/h264/" + clip + kind, std::ios::binary);
    EXPECT_TRUE(in.good()) << clip << kind;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A unit of a start-code stream: [field, end) with its code, [payload, end)
// its bytes. Zero bytes before the next code belong to that code.
struct ClipUnit {
    size_t field, payload, end;
};

inline std::vector<ClipUnit> unitsOf(const Bytes &s)
{
    std::vector<ClipUnit> units;
    for (size_t i = 0; i + 3 <= s.size(); ++i) {
        if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) {
            const size_t field = i > 0 && s[i - 1] == 0 ? i - 1 : i;
            if (!units.empty()) {
                size_t end = field;
                while (end > units.back().payload && s[end - 1] == 0)
                    --end;
                units.back().end = end;
            }
            units.push_back({field, i + 3, s.size()});
            i += 2;
        }
    }
    return units;
}

inline Bytes bytesOf(const Bytes &s, size_t from, size_t to)
{
    return Bytes(s.begin() + long(from), s.begin() + long(to));
}
inline int typeAt(const Bytes &s, const ClipUnit &u) { return s[u.payload] & 0x1F; }

inline Bytes firstUnit(const Bytes &s, int type)
{
    for (const ClipUnit &u : unitsOf(s))
        if (typeAt(s, u) == type)
            return bytesOf(s, u.payload, u.end);
    return {};
}

// Writes a record with the writer; the unit, or empty on failure (status
// in *status when given).
template <typename Record>
Bytes writeUnit(int (*write)(kx_bitstream *, const Record *), const Record &r,
                int *status = nullptr)
{
    kx_bitstream query{};
    const int size = write(&query, &r);
    if (status)
        *status = size;
    if (size <= 0)
        return {};
    Bytes out(static_cast<size_t>(size));
    kx_bitstream bs{uintptr_t(out.data()), out.size(), out.size() * 8, 0};
    const int written = write(&bs, &r);
    EXPECT_EQ(written, size);
    return out;
}
