// A standard avcC box (AVCDecoderConfigurationRecord with its box header)
// from the parameter-set units of a stream.
#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include <cstring>

#include "h264/ps_syntax.h"
#include "bits/byte_order.h"
#include "bits/nal_types.h"
#include "bits/units.h"

using namespace qrv;

namespace {

constexpr int kMaxSps = 31;  // five bits of numOfSequenceParameterSets
constexpr int kMaxPps = 255; // eight bits of numOfPictureParameterSets
constexpr int kMaxSpsExtension = 255;
constexpr uint64_t kMaxEntry = 0xFFFF; // 16-bit entry lengths

constexpr std::size_t kBoxHeader = 8;     // size and "avcC"
constexpr std::size_t kRecordHeader = 6;  // version, profile, compatibility, level, 2 bytes
constexpr std::size_t kTrailerHeader = 4; // chroma format, two depths, extension count

// Profiles without the chroma and bit-depth trailer: Baseline, Main,
// Extended. Common MP4 muxers write it for every other profile, and boxes
// compare byte for byte with theirs.
constexpr int32_t kProfilesWithoutTrailer[] = {66, 77, 88};

struct Entry {
    uint64_t at;
    uint32_t size;
};

// The distinct units of one kind, in stream order.
template <int Max>
struct EntryList {
    Entry entries[Max];
    int count = 0;

    // 0, or QRV_E_RANGE when the list is full.
    int add(const uint8_t *data, Entry e)
    {
        for (int i = 0; i < count; ++i) {
            if (entries[i].size == e.size &&
                std::memcmp(data + entries[i].at, data + e.at, e.size) == 0)
                return QRV_OK;
        }
        if (count == Max)
            return QRV_E_RANGE;
        entries[count++] = e;
        return QRV_OK;
    }
    std::size_t bytes() const
    {
        std::size_t n = 0;
        for (int i = 0; i < count; ++i)
            n += 2 + entries[i].size;
        return n;
    }
    uint8_t *write(const uint8_t *data, uint8_t *out) const
    {
        for (int i = 0; i < count; ++i) {
            writeBE16(out, entries[i].size);
            std::memcpy(out + 2, data + entries[i].at, entries[i].size);
            out += 2 + entries[i].size;
        }
        return out;
    }
};

struct ParameterSets {
    EntryList<kMaxSps> sps;
    EntryList<kMaxPps> pps;
    EntryList<kMaxSpsExtension> extensions;
};

int collect(const uint8_t *units, uint64_t length, ParameterSets &sets)
{
    UnitIterator walker(units, length);
    for (Unit u; walker.next(&u);) {
        uint64_t size = u.size; // a unit ends at its last non-zero byte
        while (size > 0 && units[u.payload + size - 1] == 0)
            --size;
        if (size == 0)
            continue;
        const uint8_t type = nal::typeOf(units[u.payload]);
        if (type != nal::kSps && type != nal::kPps && type != nal::kSpsExtension)
            continue;
        if (size > kMaxEntry)
            return QRV_E_RANGE;
        const Entry e{u.payload, static_cast<uint32_t>(size)};
        const int status = type == nal::kSps   ? sets.sps.add(units, e)
                           : type == nal::kPps ? sets.pps.add(units, e)
                                               : sets.extensions.add(units, e);
        if (status != QRV_OK)
            return status;
    }
    return walker.overran() ? QRV_E_TRUNCATED : QRV_OK;
}

bool hasTrailer(int32_t profile_idc)
{
    for (int32_t p : kProfilesWithoutTrailer) {
        if (p == profile_idc)
            return false;
    }
    return true;
}

// Chroma format and depths as the SPS states them; profiles whose SPS has no
// such syntax are 4:2:0 8-bit.
void writeTrailerHeader(const uint8_t *sps, uint32_t size, uint8_t *out, int extensions)
{
    SPS_DECODED record{};
    kx_bitstream bs{reinterpret_cast<uintptr_t>(sps), size, uintptr_t{size} * 8, 0};
    qrvutilRead_SPS(&bs, &record);
    const bool stated = hasChromaSyntax(record.profile_idc);
    out[0] = static_cast<uint8_t>(0xFC | (stated ? record.chroma_format_idc & 3 : 1));
    out[1] = static_cast<uint8_t>(0xF8 | (stated ? record.bit_depth_luma_minus8 & 7 : 0));
    out[2] = static_cast<uint8_t>(0xF8 | (stated ? record.bit_depth_chroma_minus8 & 7 : 0));
    out[3] = static_cast<uint8_t>(extensions);
}

} // namespace

int qrvutilMakeAvcc(const uint8_t *units, uint32_t length, uint8_t *out, uint32_t capacity)
{
    if (!units && length != 0)
        return QRV_E_ARGUMENT;
    ParameterSets sets;
    const int status = units ? collect(units, length, sets) : QRV_OK;
    if (status != QRV_OK)
        return status;
    if (sets.sps.count == 0 || sets.sps.entries[0].size < 4)
        return QRV_E_SYNTAX;

    const uint8_t *firstSps = units + sets.sps.entries[0].at;
    const bool trailer = hasTrailer(firstSps[1]);
    const std::size_t size = kBoxHeader + kRecordHeader + sets.sps.bytes() + 1 + sets.pps.bytes() +
                             (trailer ? kTrailerHeader + sets.extensions.bytes() : 0);
    if (size > INT32_MAX)
        return QRV_E_RANGE;
    if (!out)
        return static_cast<int>(size);
    if (size > capacity)
        return QRV_E_ROOM;

    writeBE32(out, static_cast<uint32_t>(size));
    std::memcpy(out + 4, "avcC", 4);
    uint8_t *p = out + kBoxHeader;
    *p++ = 1;           // configurationVersion
    *p++ = firstSps[1]; // AVCProfileIndication
    *p++ = firstSps[2]; // profile_compatibility
    *p++ = firstSps[3]; // AVCLevelIndication
    *p++ = 0xFF;        // reserved, lengthSizeMinusOne = 3
    *p++ = static_cast<uint8_t>(0xE0 | sets.sps.count);
    p = sets.sps.write(units, p);
    *p++ = static_cast<uint8_t>(sets.pps.count);
    p = sets.pps.write(units, p);
    if (trailer) {
        writeTrailerHeader(firstSps, sets.sps.entries[0].size, p, sets.extensions.count);
        sets.extensions.write(units, p + kTrailerHeader);
    }
    return static_cast<int>(size);
}
