// Closing SEI units and inserting parameter sets into one access unit.
#include <qrvutil/h264.h>
#include <qrvutil/host.h>
#include <qrvutil/status.h>

#include <algorithm>
#include <cstring>

#include "bits/byte_order.h"
#include "bits/nal_types.h"
#include "bits/units.h"
#include "h264/syntax.h"

using namespace qrv;

namespace {

// rbsp_trailing_bits of a byte-aligned chain: the stop bit and seven zeros.
constexpr uint8_t kStopByte = 0x80;
constexpr uint8_t kExtensionByte = 0xFF;
constexpr uint32_t kFieldBytes = 4; // a 4-byte start code or length
constexpr uint32_t kStartCodeField = 1;

// A unit as this routine sees it: framing from `prefix` (a 4-byte code's
// zero_byte included), bytes [payload, end) without trailing zero bytes.
struct UnitSpan {
    uint64_t prefix;
    uint64_t payload;
    uint64_t end;
    uint64_t full; // end with the unit's trailing zero bytes
    uint8_t type;
};

class Units {
  public:
    Units(const uint8_t *data, uint64_t length) : data_(data), length_(length), it_(data, length) {}
    bool startCodes() const { return it_.framing() == UnitFraming::startCodes; }
    bool overran() const { return it_.overran(); }
    bool next(UnitSpan &s)
    {
        Unit u;
        if (!it_.next(&u))
            return false;
        uint64_t end = u.payload + u.size;
        while (end > u.payload && data_[end - 1] == 0)
            --end;
        // A zero_byte in front of the next 00 00 01 may be the last payload
        // byte of a unit that lost its stop byte; SEI closing looks at it.
        uint64_t full = u.payload + u.size;
        if (startCodes() && length_ - full >= 4 && readBE32(data_ + full) == kStartCodeField)
            ++full;
        s = {u.field, u.payload, end, full,
             end > u.payload ? nal::typeOf(data_[u.payload]) : nal::kUnspecified};
        return true;
    }

  private:
    const uint8_t *data_;
    uint64_t length_;
    UnitIterator it_;
};

bool allZero(const uint8_t *p, std::size_t from, std::size_t n)
{
    for (std::size_t i = from; i < n; ++i)
        if (p[i] != 0)
            return false;
    return true;
}

constexpr std::size_t kNoStopByte = SIZE_MAX;

// Walks sei_message()s (payloadType and payloadSize with their FF extension
// bytes, then the payload) over the unescaped RBSP after the header byte.
// Returns where the chain ends when nothing but zero bytes follows it (the
// stop byte goes there), or kNoStopByte for a closed chain or one that does
// not parse.
std::size_t openChainEnd(const uint8_t *p, std::size_t n)
{
    for (std::size_t i = 0, messages = 0;; ++messages) {
        if (allZero(p, i, n))
            return messages ? i : kNoStopByte;
        if (messages && p[i] == kStopByte && allZero(p, i + 1, n))
            return kNoStopByte;
        while (i < n && p[i] == kExtensionByte)
            ++i; // payloadType
        if (i++ == n)
            return kNoStopByte;
        uint64_t size = 0;
        while (i < n && p[i] == kExtensionByte) {
            size += kExtensionByte;
            ++i;
        }
        if (i == n)
            return kNoStopByte;
        size += p[i++];
        if (size > n - i)
            return kNoStopByte;
        i += static_cast<std::size_t>(size);
    }
}

// Where in an SEI unit (offset from its header byte, in its bytes as they
// stand) the stop byte goes, into *at: kNoStopByte when it has one or its
// messages do not parse (such a unit is left as it is). Trailing zero bytes
// count as part of the unit here: a message's payload may end in 00. The
// stop byte goes right after the chain's last byte, so in front of any
// escape that follows it: the bytes from *at on are zeros and escapes only.
// QRV_OK, or QRV_E_MEMORY when no copy could be made.
int seiStopByteAt(const uint8_t *unit, uint64_t size, std::size_t *at)
{
    *at = kNoStopByte;
    if (size < 2)
        return QRV_OK;
    PrivateCopy copy(unit, static_cast<std::size_t>(size));
    if (!copy.bytes)
        return QRV_E_MEMORY;
    const std::size_t n = static_cast<std::size_t>(size);
    const std::size_t removed = removeEmulationPrevention(copy.bytes, n, kRemoveEmulationStandard);
    const std::size_t end = openChainEnd(copy.bytes + 1, n - 1 - removed);
    if (end != kNoStopByte)
        *at = escapedOffset(unit, n, end) + 1; // the chain's last byte is RBSP byte `end`
    return QRV_OK;
}

enum class EditKind : uint8_t { StopByte, Sps, Pps };

struct Edit {
    uint64_t at;      // offset in the frame as given
    uint64_t field;   // a closed SEI's length field (length framing)
    uint64_t tailEnd; // a closed SEI's end, its trailing zero bytes included
    uint32_t size;    // bytes inserted
    EditKind kind;
};

struct Plan {
    bool startCodes = false;
    uint64_t spsAt = UINT64_MAX; // where an SPS goes, or none
    uint64_t ppsAt = UINT64_MAX;
    uint32_t spsSize = 0; // the units' sizes, framing excluded
    uint32_t ppsSize = 0;
    QRV_NAL_UNIT_COUNTS counts{};
    uint32_t edits = 0;
    uint64_t growth = 0;
};

// Where a parameter set would go before the first slice: after any access
// unit delimiter; a PPS with an SPS already there goes right after that SPS.
struct Layout {
    bool idr = false;
    bool spsBeforeSlice = false;
    bool ppsBeforeSlice = false;
    uint64_t afterDelimiter = UINT64_MAX;
    uint64_t afterLastSps = UINT64_MAX;
};

int survey(const uint8_t *data, uint64_t length, Layout &layout, Plan &plan)
{
    Units walker(data, length);
    plan.startCodes = walker.startCodes();
    bool sliceSeen = false;
    bool spsJustSeen = false;
    for (UnitSpan u; walker.next(u);) {
        ++plan.counts.units;
        const uint8_t type = u.type;
        if (spsJustSeen && !sliceSeen)
            layout.afterLastSps = u.prefix;
        spsJustSeen = type == nal::kSps && !sliceSeen;
        if (type != nal::kAccessUnitDelimiter && layout.afterDelimiter == UINT64_MAX)
            layout.afterDelimiter = u.prefix;
        layout.idr |= type == nal::kSliceIdr;
        layout.spsBeforeSlice |= type == nal::kSps && !sliceSeen;
        layout.ppsBeforeSlice |= type == nal::kPps && !sliceSeen;
        sliceSeen |= nal::isSlice(type);
        std::size_t stop = kNoStopByte;
        if (type == nal::kSei &&
            seiStopByteAt(data + u.payload, u.full - u.payload, &stop) != QRV_OK)
            return QRV_E_MEMORY;
        if (stop != kNoStopByte) {
            ++plan.counts.closed_sei;
            ++plan.edits;
            plan.growth += 1;
        }
    }
    return walker.overran() ? QRV_E_TRUNCATED : QRV_OK;
}

// The size a writer gives, or its failure.
template <typename Record>
int unitSize(int (*write)(kx_bitstream *, const Record *), const Record *record)
{
    kx_bitstream query{};
    return write(&query, record);
}

int planInsertions(const Layout &layout, const SPS_DECODED *sps, const PPS_DECODED *pps, Plan &plan)
{
    if (!layout.idr)
        return QRV_OK;
    if (sps && !layout.spsBeforeSlice) {
        if (sps->nal_unit_type != nal::kSps)
            return QRV_E_RANGE; // a unit of another kind would stand in its place
        const int size = unitSize(qrvutilWrite_SPS, sps);
        if (size < 0)
            return size;
        plan.spsSize = static_cast<uint32_t>(size);
        plan.spsAt = layout.afterDelimiter;
        plan.counts.inserted_sps = 1;
    }
    if (pps && !layout.ppsBeforeSlice) {
        if (pps->nal_unit_type != nal::kPps)
            return QRV_E_RANGE;
        const int size = unitSize(qrvutilWrite_PPS, pps);
        if (size < 0)
            return size;
        plan.ppsSize = static_cast<uint32_t>(size);
        plan.ppsAt = layout.spsBeforeSlice && layout.afterLastSps != UINT64_MAX
                         ? layout.afterLastSps
                         : layout.afterDelimiter;
        plan.counts.inserted_pps = 1;
    }
    plan.edits += plan.counts.inserted_sps + plan.counts.inserted_pps;
    plan.growth += (plan.counts.inserted_sps ? kFieldBytes + plan.spsSize : 0) +
                   (plan.counts.inserted_pps ? kFieldBytes + plan.ppsSize : 0);
    return QRV_OK;
}

// The edits in frame order; an SPS and a PPS at one place stand SPS first,
// and a stop byte at the end of a unit comes before units inserted there.
// QRV_OK when exactly the planned edits were found.
int listEdits(const uint8_t *data, uint64_t length, const Plan &plan, Edit *edits)
{
    uint32_t n = 0;
    const auto add = [&](const Edit &e) {
        if (n < plan.edits)
            edits[n] = e;
        ++n;
    };
    Units walker(data, length);
    for (UnitSpan u; walker.next(u);) {
        if (u.prefix == plan.spsAt)
            add({u.prefix, 0, 0, kFieldBytes + plan.spsSize, EditKind::Sps});
        if (u.prefix == plan.ppsAt)
            add({u.prefix, 0, 0, kFieldBytes + plan.ppsSize, EditKind::Pps});
        if (u.type != nal::kSei)
            continue;
        std::size_t stop = kNoStopByte;
        if (seiStopByteAt(data + u.payload, u.full - u.payload, &stop) != QRV_OK)
            return QRV_E_MEMORY;
        if (stop != kNoStopByte)
            add({u.payload + stop, u.prefix, u.full, 1, EditKind::StopByte});
    }
    return n == plan.edits ? QRV_OK : QRV_E_MEMORY;
}

void writeInserted(uint8_t *at, const Edit &e, bool startCodes, const SPS_DECODED *sps,
                   const PPS_DECODED *pps)
{
    if (e.kind == EditKind::StopByte) {
        *at = kStopByte;
        return;
    }
    const uint32_t unit = e.size - kFieldBytes;
    writeBE32(at, startCodes ? kStartCodeField : unit);
    kx_bitstream bs{reinterpret_cast<uintptr_t>(at + kFieldBytes), unit, uintptr_t{unit} * 8, 0};
    if (e.kind == EditKind::Sps)
        qrvutilWrite_SPS(&bs, sps);
    else
        qrvutilWrite_PPS(&bs, pps);
}

// The zero bytes a closed SEI unit ends in, behind its new stop byte. An
// escape among them was placed for the zeros before it and would read as
// data after the stop byte, so they are written again: plain zeros between
// start-coded units (they end no unit), and with an escape after every two
// zeros inside a length-framed unit. No byte next to the stop byte (80) can
// form 00 00 0x with it.
void rewriteTrailingZeros(uint8_t *tail, uint64_t size, bool startCodes)
{
    for (uint64_t i = 0; i < size; ++i)
        tail[i] = !startCodes && i % 3 == 2 ? kEmulationBytes[0] : 0x00;
}

// From the last edit to the first: each byte of the frame moves once, to its
// final place, and the inserted bytes fill the gaps left behind.
void applyEdits(uint8_t *data, uint64_t length, const Plan &plan, const Edit *edits,
                const SPS_DECODED *sps, const PPS_DECODED *pps)
{
    uint64_t end = length;
    uint64_t shift = plan.growth;
    for (uint32_t i = plan.edits; i-- > 0;) {
        const Edit &e = edits[i];
        if (e.kind == EditKind::StopByte) // bytes from `end` on have moved already
            rewriteTrailingZeros(data + e.at, std::min(e.tailEnd, end) - e.at, plan.startCodes);
        std::memmove(data + e.at + shift, data + e.at, static_cast<std::size_t>(end - e.at));
        shift -= e.size;
        writeInserted(data + e.at + shift, e, plan.startCodes, sps, pps);
        if (e.kind == EditKind::StopByte && !plan.startCodes) // not moved yet
            writeBE32(data + e.field, readBE32(data + e.field) + 1);
        end = e.at;
    }
}

} // namespace

int qrvutilAddNalUnits(NAL_BUFFER *frame, uint32_t capacity, const SPS_DECODED *sps,
                       const PPS_DECODED *pps)
{
    if (!frame || !frame->data || frame->length > capacity)
        return QRV_E_ARGUMENT;
    uint8_t *data = frame->data;
    const uint64_t length = frame->length;
    Layout layout;
    Plan plan;
    int status = survey(data, length, layout, plan);
    if (status == QRV_OK)
        status = planInsertions(layout, sps, pps, plan);
    if (status != QRV_OK)
        return status;
    if (length + plan.growth > capacity)
        return QRV_E_ROOM;
    if (length + plan.growth > INT32_MAX)
        return QRV_E_RANGE;
    if (plan.edits != 0) {
        auto *edits = static_cast<Edit *>(hostAlloc(sizeof(Edit) * plan.edits));
        if (!edits)
            return QRV_E_MEMORY;
        status = listEdits(data, length, plan, edits);
        if (status == QRV_OK)
            applyEdits(data, length, plan, edits, sps, pps);
        hostFree(edits);
        if (status != QRV_OK)
            return status;
    }
    frame->length = static_cast<uint32_t>(length + plan.growth);
    std::memcpy(frame->storage, &plan.counts, sizeof plan.counts);
    return static_cast<int>(frame->length);
}
