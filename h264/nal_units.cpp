// Unit framing conversion (start codes <-> 4-byte length prefixes) and the
// unit walk that decodes parameter sets and slice headers of a frame.
#include <qrvutil/h264.h>
#include <qrvutil/host.h>

#include "bits/nal_types.h"
#include "bits/rbsp.h"
#include "bits/start_code.h"
#include "bits/units.h"
#include "h264/scanning_internal.h"

#include <algorithm>
#include <cstring>

namespace {

using qrv::h264::readBE32;
using qrv::h264::writeBE32;

// ---- Start codes to length prefixes -----------------------------------------

enum class Marker { none, long4, short3 };

// Which start code, if any, ends with the 01 at `one`; `*start` gets its
// first byte. A 3-byte code right after a zero byte is the tail of a 4-byte
// code and does not count again. A 3-byte code starting in the last three
// bytes is no marker: it stays inside the unit before it (a 4-byte code
// there cannot fit). Whether a byte starts a code depends only on the bytes
// around it, so the markers can be found in either direction.
Marker markerEndingAt(const uint8_t *b, uint64_t one, uint64_t len, uint64_t *start)
{
    if (one < 2 || b[one - 1] != 0 || b[one - 2] != 0)
        return Marker::none;
    if (one >= 3 && b[one - 3] == 0) {
        *start = one - 3;
        return Marker::long4;
    }
    if (one + 2 > len) // a 3-byte code must leave four bytes from its start
        return Marker::none;
    *start = one - 2;
    return Marker::short3;
}

// The markers the forward pass met, and the last of them remembered, so that
// the way back finds those without a search. Only a stream with more
// markers than this searches again, below the ones remembered. A fixed
// block on the stack: the conversion allocates nothing.
constexpr uint64_t kRememberedMarkers = 1024;

struct MarkerLog {
    uint64_t all = 0;
    uint64_t short3 = 0;
    uint64_t recent[kRememberedMarkers]; // start * 2 + (3-byte code)

    uint64_t remembered() const { return std::min(all, kRememberedMarkers); }
};

// Every marker ends a 00 00 01, so only those are looked at.
void countMarkers(const uint8_t *b, uint64_t len, MarkerLog *log)
{
    const uint8_t *end = b + len;
    for (const uint8_t *code = b; (code = qrv::findStartCode(code, end)) != end; code += 3) {
        uint64_t start = 0;
        const Marker kind = markerEndingAt(b, static_cast<uint64_t>(code - b) + 2, len, &start);
        if (kind == Marker::none)
            continue;
        const bool short3 = kind == Marker::short3;
        log->recent[log->all % kRememberedMarkers] = start * 2 + (short3 ? 1 : 0);
        ++log->all;
        log->short3 += short3 ? 1 : 0;
    }
}

// The next marker down from the top: first the remembered ones, then by
// searching below `below`. False when there is none.
bool nextMarkerDown(const uint8_t *b, uint64_t len, const MarkerLog &log, uint64_t *taken,
                    uint64_t below, uint64_t *start, Marker *kind)
{
    if (*taken < log.remembered()) {
        const uint64_t entry = log.recent[(log.all - 1 - *taken) % kRememberedMarkers];
        ++*taken;
        *start = entry / 2;
        *kind = entry % 2 ? Marker::short3 : Marker::long4;
        return true;
    }
    while (below >= 3) {
        const uint8_t *code = qrv::findLastStartCode(b, b + below);
        if (!code)
            return false;
        const uint64_t one = static_cast<uint64_t>(code - b) + 2;
        *kind = markerEndingAt(b, one, len, start);
        if (*kind != Marker::none)
            return true;
        below = one; // a code that is no marker: go on below its 01
    }
    return false;
}

// Widens every 3-byte code and writes each unit's length over its code, from
// the last marker back to the first, so that every byte moves once.
void widenAndFrame(uint8_t *b, uint64_t len, const MarkerLog &log)
{
    uint64_t shift = log.short3;
    uint64_t segmentEnd = len;
    uint64_t nextField = len + log.short3; // new end, then each later field
    uint64_t taken = 0;
    uint64_t start = 0;
    Marker kind = Marker::none;
    // Below each marker, since the field written over it may hold 00 00 01.
    for (uint64_t below = len; nextMarkerDown(b, len, log, &taken, below, &start, &kind);
         below = start) {
        std::memmove(b + start + shift, b + start, static_cast<size_t>(segmentEnd - start));
        // A widened code keeps its leading 00 twice: the field starts one
        // byte before the moved code.
        const uint64_t field = kind == Marker::short3 ? start + shift - 1 : start + shift;
        writeBE32(b + field, static_cast<uint32_t>(nextField - field - 4));
        nextField = field;
        segmentEnd = start;
        if (kind == Marker::short3)
            --shift;
    }
}

// ---- Walking units --------------------------------------------------------------

constexpr size_t kAvccReadLimit = 512; // longer boxes are read as if cut here
constexpr size_t kReaderPad = 8;       // the bit reader may touch one byte past its end

constexpr uint32_t kStartCodeField = 1; // 00 00 00 01 read as a 4-byte field

kx_bitstream readerOver(const uint8_t *unit, uint64_t len)
{
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(unit);
    bs.byte_size = static_cast<uintptr_t>(len);
    bs.bit_end = static_cast<uintptr_t>(len * 8);
    return bs;
}

// The box is read through a padded private copy so that neither the
// 512-byte window nor the reader's look past its end can leave the caller's
// box, whose own size field says how far it reaches.
void readLeadingAvcc(const uint8_t *avcc, SPS_DECODED *sps, PPS_DECODED *pps)
{
    uint8_t box[kAvccReadLimit + kReaderPad] = {};
    const uint64_t declared = readBE32(avcc);
    const size_t extent = static_cast<size_t>(std::clamp<uint64_t>(declared, 4, kAvccReadLimit));
    std::memcpy(box, avcc, extent);
    kx_bitstream bs = readerOver(box, kAvccReadLimit);
    qrvutilReadAvcc(&bs, sps, pps);
}

struct WalkRecords {
    SPS_DECODED *sps;
    PPS_DECODED *pps;
};

void decodeUnit(uint8_t *unit, uint64_t len, const WalkRecords &rec)
{
    const uint8_t type = qrv::nal::typeOf(unit[0]);
    kx_bitstream bs = readerOver(unit, len);
    if (qrv::nal::isSlice(type)) {
        SLICE_HEADER scratch{};
        qrvutilRead_SliceHeader(&bs, &scratch, rec.sps, rec.pps, type);
    } else if (type == qrv::nal::kSps) {
        *rec.sps = SPS_DECODED{};
        qrvutilRead_SPS(&bs, rec.sps);
    } else if (type == qrv::nal::kPps) {
        // Cleared first: the tail look-ahead starts from the record's value.
        *rec.pps = PPS_DECODED{};
        qrvutilRead_PPS(&bs, rec.pps);
    } else if (type == qrv::nal::kSei) {
        // Only the cleaning is kept from SEI handling: the message parse
        // that follows it moves a read position and returns nothing.
        // The byte before the unit (the last of its field) counts as a
        // preceding byte for the first position examined.
        qrv::removeEmulationPrevention(unit - 1, static_cast<size_t>(len) + 1, qrv::kCleanSei);
    }
}

} // namespace

QRV_EXTERN_C_BEGIN

// Kept as peers expect it: zero bytes before a 4-byte code stay in the unit
// before it, leading bytes before the first code are not framed, and a
// buffer without any code has its first four bytes overwritten with the
// length of the rest.
QRV_API int qrvUtilh264MarkerToSize(unsigned char *buf, int len)
{
    if (len < 1 || !buf)
        return len;
    const uint64_t n = static_cast<uint64_t>(len);
    MarkerLog markers;
    countMarkers(buf, n, &markers);
    if (markers.all == 0) {
        // No start code: the first four bytes become a length covering the
        // rest, as if a code stood there. Shorter buffers have no room.
        if (n >= 4)
            writeBE32(buf, static_cast<uint32_t>(n - 4));
        return len;
    }
    widenAndFrame(buf, n, markers);
    // The caller sized the buffer for the widening; the length wraps as an
    // int only beyond what an int-sized buffer can hold.
    return static_cast<int>(static_cast<uint32_t>(n + markers.short3));
}

QRV_API int qrvUtilh264MarkerToSizeLength(const unsigned char *buf, int len)
{
    if (len < 1 || !buf)
        return len;
    const uint64_t n = static_cast<uint64_t>(len);
    MarkerLog markers;
    countMarkers(buf, n, &markers);
    return static_cast<int>(static_cast<uint32_t>(n + markers.short3));
}

QRV_API unsigned qrvUtilh264SizeToMarker(unsigned char *buf, unsigned len)
{
    if (len == 0 || !buf)
        return len;
    if (len >= 4 && readBE32(buf) == kStartCodeField)
        return len;
    uint64_t at = 0;
    while (at + 4 <= len) {
        const uint32_t unitLen = readBE32(buf + at);
        if (unitLen == 0)
            return static_cast<unsigned>(at); // the data ends before this field
        if (unitLen >= len - at)
            return len; // an overrunning length ends the walk; earlier codes stay
        writeBE32(buf + at, kStartCodeField);
        at += 4 + uint64_t{unitLen};
    }
    return len;
}

QRV_API int qrvutilFindNalUnits(NAL_BUFFER *units, SPS_DECODED *sps, PPS_DECODED *pps,
                                const unsigned char *avcc)
{
    // Null records are replaced by scratch ones so that slice headers can
    // still be read; nothing of them reaches the caller.
    SPS_DECODED scratchSps{};
    PPS_DECODED scratchPps{};
    const WalkRecords rec{sps ? sps : &scratchSps, pps ? pps : &scratchPps};
    if (avcc)
        readLeadingAvcc(avcc, rec.sps, rec.pps);
    if (!units || !units->data)
        return 0;

    // Kept framing: 4-byte fields, each read afresh (start code or length);
    // the last unit in start-code form is never taken (see bits/units.h).
    qrv::UnitRules rules;
    rules.kept = true;
    rules.zeroTypeResync = true;
    qrv::UnitIterator walk(units->data, units->length, rules);
    int count = 0;
    for (qrv::Unit u; walk.next(&u); ++count) {
        uint8_t *unit = units->data + u.payload;
        // Units of type 0 only move the walk (the iterator resynchronises).
        if (qrv::nal::typeOf(unit[0]) != qrv::nal::kUnspecified)
            decodeUnit(unit, u.size, rec); // unit[-1] is the last byte of its field
    }
    return count;
}

QRV_EXTERN_C_END
