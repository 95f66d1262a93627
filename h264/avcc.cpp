// avcC decoder configuration boxes: written from the parameter-set units of
// a frame, read back into decoded SPS and PPS records.
#include <qrvutil/h264.h>
#include <qrvutil/host.h>

#include "bits/nal_types.h"
#include "bits/units.h"
#include "h264/scanning_internal.h"

#include <algorithm>
#include <iterator>
#include <cstring>

namespace {

using qrv::h264::readBE32;
using qrv::h264::writeBE16;
using qrv::h264::writeBE32;

// Box header up to the first entry: size (patched at the end), type,
// configurationVersion 1, profile/compatibility/level (patched from the SPS),
// 0xFF (lengthSizeMinusOne 3) and 0xE1 (one SPS), the latter written even
// when no SPS follows: peers read boxes written this way.
constexpr uint8_t kAvccHeader[] = {0, 0, 0, 14, 'a', 'v', 'c', 'C', 1, 0, 0, 0, 0xFF, 0xE1};
constexpr size_t kAvccHeaderSize = sizeof(kAvccHeader);
constexpr size_t kProfileOffset = 9; // three bytes copied from the SPS
constexpr uint8_t kOnePictureParameterSet = 0x01;

// PPS entries this long are passed over; the decoders take no more.
constexpr uint32_t kMaxPpsEntry = 512;
// Room after a copied entry for the reader's look one byte past its end.
constexpr size_t kEntryPad = 8;

// Profiles whose boxes carry the chroma and bit-depth extension.
constexpr int32_t kExtendedProfiles[] = {100, 110, 122, 144};
constexpr int kExtensionListCount4x4 = 6;
constexpr int kExtensionListCount8x8 = 2;

// ---- Writing -------------------------------------------------------------------

// Lays the box out; with a null `out` it only counts the bytes.
struct BoxWriter {
    uint8_t *out;
    uint64_t size;

    void entry(const uint8_t *unit, uint64_t len, bool withCount)
    {
        if (out) {
            uint8_t *at = out + size;
            if (withCount)
                *at++ = kOnePictureParameterSet;
            // The 16-bit length keeps its low bits; the bytes are copied whole.
            writeBE16(at, static_cast<uint32_t>(len));
            std::memcpy(at + 2, unit, static_cast<size_t>(len));
        }
        size += (withCount ? 1 : 0) + 2 + len;
    }
};

// Bytes 1-3 of the SPS unit; any that lie beyond the buffer read as 0.
void copyProfileBytes(const uint8_t *data, uint64_t payload, uint64_t end, uint8_t *dst)
{
    for (uint64_t i = 0; i < 3; ++i) {
        const uint64_t at = payload + 1 + i;
        dst[i] = at < end ? data[at] : 0;
    }
}

// ---- Reading -------------------------------------------------------------------

// Reads `n` bytes from the box into a fresh zeroed buffer (padded for the
// decoders' reader), or only skips them when memory is short.
uint8_t *readEntry(kx_bitstream *bs, uint32_t n)
{
    const size_t size = 2 * size_t{n} + kEntryPad;
    auto *bytes = static_cast<uint8_t *>(hostAlloc(size));
    if (bytes)
        std::memset(bytes, 0, size);
    for (uint32_t i = 0; i < n; ++i) {
        if (bs->bit_pos > bs->bit_end) {
            // Past the end every byte reads as FF; skip the bit-by-bit reads.
            if (bytes)
                std::memset(bytes + i, 0xFF, n - i);
            bs->bit_pos += uintptr_t{n - i} * 8;
            break;
        }
        const uint32_t byte = ReadBits(bs, 8);
        if (bytes)
            bytes[i] = static_cast<uint8_t>(byte);
    }
    return bytes;
}

// Entry lengths are 16-bit fields; a read past the box end yields all-ones
// bits, which are kept to the field's width.
uint32_t readEntryLength(kx_bitstream *bs) { return ReadBits(bs, 16) & 0xFFFF; }

kx_bitstream readerOver(const uint8_t *bytes, uint32_t n)
{
    kx_bitstream r{};
    r.buffer = reinterpret_cast<uintptr_t>(bytes);
    r.byte_size = n;
    r.bit_end = uintptr_t{n} * 8;
    return r;
}

template <typename Record, typename Decode>
bool readParameterSet(kx_bitstream *bs, uint32_t n, Record *record, Decode decode)
{
    uint8_t *bytes = readEntry(bs, n);
    if (!bytes)
        return false;
    if (record) {
        kx_bitstream r = readerOver(bytes, n);
        decode(&r, record);
    }
    hostFree(bytes);
    return record != nullptr;
}

void skipScalingList(kx_bitstream *bs, int size)
{
    uint32_t last = 8;
    uint32_t next = 8;
    for (int j = 0; j < size; ++j) {
        if (next != 0)
            next = (last + static_cast<uint32_t>(ReadExponentialGolombCodeSigned(bs)) + 256) % 256;
        last = next == 0 ? last : next;
    }
}

// One entry of the high-profile extension: transform and scaling-matrix
// flags and the delta-scale lists they announce. Only the position moves.
void skipExtensionEntry(kx_bitstream *bs)
{
    const bool transform8x8 = ReadBits(bs, 1) != 0;
    const bool matrix = ReadBits(bs, 1) != 0;
    if (!matrix)
        return;
    const int lists = kExtensionListCount4x4 + (transform8x8 ? kExtensionListCount8x8 : 0);
    for (int i = 0; i < lists; ++i) {
        if (ReadBits(bs, 1) != 0)
            skipScalingList(bs, i < kExtensionListCount4x4 ? 16 : 64);
    }
}

bool hasExtension(const SPS_DECODED *firstSps)
{
    return firstSps && std::find(std::begin(kExtendedProfiles), std::end(kExtendedProfiles),
                                 firstSps->profile_idc) != std::end(kExtendedProfiles);
}

void skipExtension(kx_bitstream *bs)
{
    ReadBits(bs, 8); // chroma_format
    ReadBits(bs, 8); // bit_depth_luma_minus8
    ReadBits(bs, 8); // bit_depth_chroma_minus8
    const uint32_t entries = ReadBits(bs, 8) & 0xFF;
    for (uint32_t i = 0; i < entries; ++i)
        skipExtensionEntry(bs);
}

// Writes the entries after the box header (when `out` is not null) and
// returns the box size; the SPS's profile bytes go to `profile`.
uint64_t layOutAvcc(const NAL_BUFFER *units, uint8_t *out, uint8_t profile[3])
{
    BoxWriter box{out, kAvccHeaderSize};
    const uint8_t *data = units ? units->data : nullptr;
    const uint64_t end = data ? units->length : 0;
    // Kept framing, and the first field sets the stride: later fields are
    // never read, so every unit is taken to be as long as the first one.
    // Peers depend on the boxes this gives. Only a stride of 1, a start
    // code, is measured again, at each unit, up to the next 4-byte code.
    qrv::UnitRules rules;
    rules.kept = true;
    rules.firstLengthStride = true;
    qrv::UnitIterator walk(data, end, rules);
    bool haveSps = false;
    bool havePps = false;
    for (qrv::Unit u; !(haveSps && havePps) && walk.next(&u);) {
        const uint8_t type = qrv::nal::typeOf(data[u.payload]);
        if (type == qrv::nal::kSps && !haveSps) {
            box.entry(data + u.payload, u.size, false);
            copyProfileBytes(data, u.payload, end, profile);
            haveSps = true;
        } else if (type == qrv::nal::kPps && !havePps) {
            // Written where met, also before the SPS.
            box.entry(data + u.payload, u.size, true);
            havePps = true;
        }
    }
    return box.size;
}

} // namespace

QRV_EXTERN_C_BEGIN

QRV_API int qrvutilGetAvcc(NAL_BUFFER *units, unsigned char *out)
{
    if (!out)
        return 0;
    std::memcpy(out, kAvccHeader, kAvccHeaderSize);
    uint8_t profile[3] = {0, 0, 0};
    const uint64_t size = layOutAvcc(units, out, profile);
    writeBE32(out, static_cast<uint32_t>(size));
    std::memcpy(out + kProfileOffset, profile, sizeof profile);
    return static_cast<int>(size);
}

QRV_API uint32_t qrvutilGetAvccRoom(const NAL_BUFFER *units)
{
    uint8_t profile[3] = {0, 0, 0};
    return static_cast<uint32_t>(layOutAvcc(units, nullptr, profile));
}

QRV_API int qrvutilReadAvcc(kx_bitstream *bs, SPS_DECODED *sps, PPS_DECODED *pps)
{
    if (!bs)
        return -1;
    if (ReadBits(bs, 32) == 0)
        return -1;
    ReadBits(bs, 32); // box type, not checked
    ReadBits(bs, 8);  // configurationVersion
    ReadBits(bs, 8);  // AVCProfileIndication
    ReadBits(bs, 8);  // profile_compatibility
    ReadBits(bs, 8);  // AVCLevelIndication
    ReadBits(bs, 8);  // lengthSizeMinusOne

    // Only the first entry of each list is returned; later entries are read
    // past without decoding, which leaves every output the same.
    SPS_DECODED firstSps{};
    PPS_DECODED firstPps{};
    bool haveSps = false;
    bool havePps = false;

    const uint32_t spsCount = ReadBits(bs, 8) & 0x1F;
    for (uint32_t i = 0; i < spsCount; ++i) {
        const uint32_t n = readEntryLength(bs);
        haveSps |= readParameterSet(bs, n, i == 0 ? &firstSps : nullptr, qrvutilRead_SPS);
    }

    const uint32_t ppsCount = ReadBits(bs, 8) & 0xFF;
    for (uint32_t i = 0; i < ppsCount && bs->bit_pos < bs->bit_end; ++i) {
        const uint32_t n = readEntryLength(bs);
        if (n > kMaxPpsEntry) {
            // Passed over unread; its slot stays empty, so a long first
            // entry leaves no PPS to return.
            bs->bit_pos += uintptr_t{n} * 8;
            continue;
        }
        havePps |= readParameterSet(bs, n, i == 0 ? &firstPps : nullptr, qrvutilRead_PPS);
    }

    if (hasExtension(haveSps ? &firstSps : nullptr) && bs->bit_pos <= bs->bit_end &&
        bs->bit_end - bs->bit_pos >= 32)
        skipExtension(bs);

    if (haveSps && sps)
        *sps = firstSps;
    if (havePps && pps)
        *pps = firstPps;
    return 0;
}

QRV_EXTERN_C_END
