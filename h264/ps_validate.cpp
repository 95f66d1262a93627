// Parameter-set validation: the syntax of ps_syntax.h expanded as a strict
// reader that stops at the first element that does not make sense and says
// which one and where.
#include <qrvutil/status.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "bits/nal_types.h"
#include "h264/ps_syntax.h"

using namespace qrv;

namespace {

// Bit offset in the unit as given (emulation-prevention bytes counted) of a
// bit offset in its unescaped form.
uint64_t unitBitOffset(const uint8_t *unit, std::size_t size, std::size_t rbspSize,
                       uint64_t rbspBit)
{
    const uint64_t byte = rbspBit / 8;
    if (byte >= rbspSize)
        return uint64_t{size} * 8 + (rbspBit - uint64_t{rbspSize} * 8);
    return uint64_t{escapedOffset(unit, size, static_cast<std::size_t>(byte))} * 8 + rbspBit % 8;
}

class Reason {
  public:
    Reason(char *text, uint32_t room) : text_(text), room_(room)
    {
        if (text_ && room_)
            text_[0] = '\0';
    }
    template <typename... Args>
    void say(const char *format, Args... args)
    {
        if (!text_ || !room_)
            return;
        if constexpr (sizeof...(Args) == 0)
            std::snprintf(text_, room_, "%s", format);
        else
            std::snprintf(text_, room_, format, args...);
    }

  private:
    char *text_;
    uint32_t room_;
};

} // namespace

namespace qrv {

// Reads the unescaped unit strictly: the unit ending inside an element, a
// value out of its range or trailing data stop the check; later calls do
// nothing and every loop ends.
class SyntaxChecker {
  public:
    SyntaxChecker(const uint8_t *rbsp, std::size_t rbspSize, const uint8_t *unit,
                  std::size_t unitSize, Reason &reason)
        : rbsp_(rbsp), bitEnd_(uint64_t{rbspSize} * 8), unit_(unit), unitSize_(unitSize),
          reason_(reason)
    {
    }
    int status() const { return status_; }

    void u(El el, int32_t &f, int32_t bits, uint32_t max = UINT32_MAX)
    {
        uint64_t v = 0;
        if (take(el, bits, v) && inRange(el, v, 0, max))
            f = static_cast<int32_t>(v);
    }
    void flag(El el, int32_t &f) { u(el, f, 1); }
    void ue(El el, int32_t &f, uint32_t max = kUeMax)
    {
        uint64_t v = 0;
        if (takeUe(el, v) && inRange(el, v, 0, max))
            f = static_cast<int32_t>(v);
    }
    void se(El el, int32_t &f, int32_t min, int32_t max)
    {
        uint64_t code = 0;
        if (!takeUe(el, code))
            return;
        const int64_t v = code & 1 ? int64_t((code + 1) / 2) : -int64_t(code / 2);
        if (v < min || v > max)
            fail(QRV_E_RANGE, el, elementAt_, "%" PRId64 " is outside %d..%d", v, min, max);
        else
            f = static_cast<int32_t>(v);
    }
    void implied(int32_t &f, int32_t value) { f = value; }
    void kept(El el, int32_t f, int32_t max)
    {
        if (status_ == QRV_OK && f > max)
            fail(QRV_E_UNSUPPORTED, el, elementAt_, "%d is more than the readers keep (%d)", f,
                 max);
    }
    bool skipsRest(uint64_t, uint32_t) { return status_ != QRV_OK; }
    void dropUe(El el)
    {
        int32_t ignored = 0;
        ue(el, ignored);
    }
    void dropBits(El el, int32_t bits)
    {
        int32_t ignored = 0;
        u(el, ignored, bits);
    }
    // scaling_list(): delta_scale in -128..127, read while nextScale is not 0.
    void scalingList(El, int32_t *list, int size)
    {
        int32_t lastScale = 8;
        int32_t nextScale = 8;
        for (int j = 0; j < size && status_ == QRV_OK; ++j) {
            if (nextScale != 0) {
                int32_t delta = 0;
                se({"delta_scale", j}, delta, -128, 127);
                nextScale = (lastScale + delta + 256) % 256;
            }
            list[j] = nextScale == 0 ? lastScale : nextScale;
            lastScale = list[j];
        }
    }
    void hrd(hdr_parameters *h) { hrdParametersSyntax(*this, h); }
    // more_rbsp_data(): anything but the trailing bits left.
    bool moreRbspData(int32_t &more)
    {
        if (status_ != QRV_OK)
            return false;
        uint64_t lastOne = bitEnd_;
        for (uint64_t b = bitEnd_; b-- > pos_;) {
            if (bit(b)) {
                lastOne = b;
                break;
            }
        }
        more = lastOne != bitEnd_ && pos_ < lastOne;
        return more != 0;
    }
    void trailingBits(int32_t &stopBit)
    {
        uint64_t v = 0;
        if (!take("rbsp_stop_one_bit", 1, v))
            return;
        if (v != 1) {
            fail(QRV_E_SYNTAX, "rbsp_stop_one_bit", elementAt_, "0 where the stop bit belongs");
            return;
        }
        stopBit = 1;
        while (pos_ % 8 != 0) {
            if (take("rbsp_alignment_zero_bit", 1, v) && v != 0) {
                fail(QRV_E_SYNTAX, "rbsp_alignment_zero_bit", elementAt_,
                     "1 where a zero bit belongs");
                return;
            }
        }
        if (status_ == QRV_OK && pos_ < bitEnd_)
            fail(QRV_E_SYNTAX, "rbsp_trailing_bits", pos_, "data follows them");
    }

    template <typename... Args>
    void fail(int status, El el, uint64_t rbspBit, const char *what, Args... args)
    {
        if (status_ != QRV_OK)
            return;
        status_ = status;
        char detail[160];
        if constexpr (sizeof...(Args) == 0)
            std::snprintf(detail, sizeof detail, "%s", what);
        else
            std::snprintf(detail, sizeof detail, what, args...);
        const uint64_t at = unitBitOffset(unit_, unitSize_, static_cast<std::size_t>(bitEnd_ / 8),
                                          rbspBit);
        if (el.index >= 0)
            reason_.say("%s[%d]: %s at bit %" PRIu64, el.name, el.index, detail, at);
        else
            reason_.say("%s: %s at bit %" PRIu64, el.name, detail, at);
    }

  private:
    int bit(uint64_t at) const { return (rbsp_[at >> 3] >> (7 - (at & 7))) & 1; }

    bool take(El el, int32_t bits, uint64_t &v)
    {
        if (status_ != QRV_OK)
            return false;
        elementAt_ = pos_;
        if (bitEnd_ - pos_ < static_cast<uint64_t>(bits)) {
            fail(QRV_E_TRUNCATED, el, elementAt_, "the unit ends inside it");
            return false;
        }
        v = 0;
        for (int32_t i = 0; i < bits; ++i)
            v = (v << 1) | static_cast<uint64_t>(bit(pos_++));
        return true;
    }
    bool takeUe(El el, uint64_t &v)
    {
        if (status_ != QRV_OK)
            return false;
        elementAt_ = pos_;
        int32_t zeros = 0;
        while (pos_ < bitEnd_ && bit(pos_) == 0) {
            ++zeros;
            ++pos_;
        }
        if (pos_ == bitEnd_) {
            fail(QRV_E_TRUNCATED, el, elementAt_, "the unit ends inside it");
            return false;
        }
        if (zeros > 31) {
            fail(QRV_E_RANGE, el, elementAt_,
                 "its code has %d leading zeros, more than 32 bits carry", zeros);
            return false;
        }
        const uint64_t start = elementAt_;
        uint64_t info = 0;
        if (!take(el, zeros + 1, info))
            return false;
        elementAt_ = start;
        v = info - 1; // (1 << zeros) + the info bits - 1
        return true;
    }
    bool inRange(El el, uint64_t v, uint64_t min, uint64_t max)
    {
        if (v >= min && v <= max)
            return true;
        fail(QRV_E_RANGE, el, elementAt_, "%" PRIu64 " is outside %" PRIu64 "..%" PRIu64, v, min,
             max);
        return false;
    }

    const uint8_t *rbsp_;
    uint64_t bitEnd_;
    uint64_t pos_ = 0;
    uint64_t elementAt_ = 0;
    const uint8_t *unit_;
    std::size_t unitSize_;
    Reason &reason_;
    int status_ = QRV_OK;
};

} // namespace qrv

namespace {

// Byte index of the first `byte` after 00 00 from `from` on, or size.
std::size_t findAfterZeroPair(const uint8_t *unit, std::size_t size, std::size_t from, uint8_t byte)
{
    for (std::size_t i = from < 2 ? 2 : from; i < size; ++i) {
        if (unit[i] == byte && unit[i - 1] == 0 && unit[i - 2] == 0)
            return i;
    }
    return size;
}

// Byte patterns no unit holds as given: 00 00 followed by 00, 01 or 02 (a
// start code would be found there), or an escape 00 00 03 followed by a
// byte above 03. QRV_OK, or QRV_E_SYNTAX naming the byte.
int checkEscaping(const uint8_t *unit, std::size_t size, Reason &reason)
{
    const uint8_t escape = kEmulationBytes[0];
    for (std::size_t i = 2; i < size; ++i) {
        if (unit[i - 2] != 0 || unit[i - 1] != 0 || unit[i] > escape)
            continue;
        if (unit[i] < escape) {
            reason.say(
                "emulation_prevention_three_byte: missing from 00 00 %02X at byte %zu at bit %zu",
                unit[i], i - 2, (i - 2) * 8);
            return QRV_E_SYNTAX;
        }
        if (i + 1 < size && unit[i + 1] > escape) {
            reason.say("emulation_prevention_three_byte: followed by %02X at byte %zu at bit %zu",
                       unit[i + 1], i, i * 8);
            return QRV_E_SYNTAX;
        }
    }
    return QRV_OK;
}

void explainDifference(Reason &reason, const SPS_DECODED &, const SPS_DECODED &, const uint8_t *,
                       std::size_t)
{
    reason.say("seq_parameter_set_rbsp: the SPS reader reads this unit differently (kept reading "
               "rules) at bit 0");
}

void explainDifference(Reason &reason, const PPS_DECODED &read, const PPS_DECODED &checked,
                       const uint8_t *unit, std::size_t size)
{
    // Kept: the PPS reader also drops a 0C after 00 00 (older recorders
    // wrote it as emulation prevention).
    const std::size_t at = findAfterZeroPair(unit, size, 5, 0x0C);
    if (at < size)
        reason.say("pic_parameter_set_rbsp: 00 00 0C, which the PPS reader drops, at bit %zu",
                   at * 8);
    else if (read.more_rbsp_data != checked.more_rbsp_data)
        reason.say("more_rbsp_data: the PPS reader finds a tail in the repeated last byte of its "
                   "unescaped copy (kept reading rule) at bit %zu",
                   size * 8 - 8);
    else
        reason.say(
            "pic_parameter_set_rbsp: the PPS reader reads this unit differently (kept reading "
            "rules) at bit 0");
}

template <typename Record, typename Expand>
int validateUnit(const uint8_t *unit, uint32_t size, char *reasonText, uint32_t room, uint8_t type,
                 int (*read)(kx_bitstream *, Record *), Expand expand)
{
    Reason reason(reasonText, room);
    if (!unit) {
        reason.say("no unit given");
        return QRV_E_ARGUMENT;
    }
    if (size == 0) {
        reason.say("forbidden_zero_bit: the unit ends inside it at bit 0");
        return QRV_E_TRUNCATED;
    }
    if (unit[0] & 0x80) {
        reason.say("forbidden_zero_bit: 1 at bit 0");
        return QRV_E_SYNTAX;
    }
    if (nal::typeOf(unit[0]) != type) {
        reason.say("nal_unit_type: %d where %d belongs at bit 3", nal::typeOf(unit[0]), type);
        return QRV_E_SYNTAX;
    }
    const int escaping = checkEscaping(unit, size, reason);
    if (escaping != QRV_OK)
        return escaping;
    PrivateCopy copy(unit, size);
    if (!copy.bytes) {
        reason.say("no memory for a copy of the unit");
        return QRV_E_MEMORY;
    }
    const std::size_t removed = removeEmulationPrevention(copy.bytes, size,
                                                          kRemoveEmulationStandard);
    Record record{};
    SyntaxChecker io(copy.bytes, size - removed, unit, size, reason);
    expand(io, &record);
    if (io.status() != QRV_OK)
        return io.status();
    // The readers start looking for emulation prevention at byte 5.
    // A unit may be shorter than that: never look past its end.
    const std::size_t head = size < 5 ? size : 5;
    const std::size_t early = findAfterZeroPair(unit, head, 3, 0x03);
    if (early < head) {
        io.fail(QRV_E_UNSUPPORTED, "emulation_prevention_three_byte", (early - 1) * 8,
                "the readers keep a 03 this early in the unit");
        return io.status();
    }
    // The library's reader, with its kept reading rules, must come to the
    // same record.
    Record reread{};
    kx_bitstream bs{reinterpret_cast<uintptr_t>(unit), size, uintptr_t{size} * 8, 0};
    read(&bs, &reread);
    if (std::memcmp(&reread, &record, sizeof record) != 0) {
        explainDifference(reason, reread, record, unit, size);
        return QRV_E_UNSUPPORTED;
    }
    return QRV_OK;
}

} // namespace

int qrvutilValidate_SPS(const uint8_t *unit, uint32_t size, char *reason, uint32_t room)
{
    return validateUnit<SPS_DECODED>(
        unit, size, reason, room, nal::kSps, qrvutilRead_SPS,
        [](SyntaxChecker &io, SPS_DECODED *r) { seqParameterSetSyntax(io, r); });
}

int qrvutilValidate_PPS(const uint8_t *unit, uint32_t size, char *reason, uint32_t room)
{
    return validateUnit<PPS_DECODED>(
        unit, size, reason, room, nal::kPps, qrvutilRead_PPS,
        [](SyntaxChecker &io, PPS_DECODED *r) { picParameterSetSyntax(io, r); });
}
