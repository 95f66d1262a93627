// Iteration over the NAL units of a buffer, in either framing.
//
//   qrv::UnitIterator it(data, length);            // general rules
//   qrv::Unit u;
//   while (it.next(&u)) use(data + u.payload, u.size);
//   if (it.overran()) ...                           // a unit ran past length
//
// General rules (the default UnitRules): the framing is decided once, from
// the buffer's start. A buffer that begins with 00 00 01 or 00 00 00 01 is
// start-code framed (further zero bytes in front of the first code belong
// to it, leading_zero_8bits): every unit runs from after its code (3 or 4
// bytes, field to payload) to the next code, the last one to the end of the
// buffer; a zero byte in front of a 00 00 01 makes it a 4-byte code, further
// zero bytes before it stay at the end of the unit before
// (trailing_zero_8bits). Any other buffer is
// framed by 4-byte big-endian lengths; a length field or unit that would run
// past the end stops the walk with overran() set. Units may be empty.
//
// Kept rules (UnitRules::kept), the framing that qrvutilFindNalUnits and
// qrvutilGetAvcc have always read, and that recorded streams depend on:
// every unit begins with a 4-byte field; a field of 1 (00 00 00 01) is a
// start code and its unit runs to the next 00 00 00 01 (a lone 00 00 01 is
// data), or, when none follows, to four bytes past the end, so that the last
// start-code unit of a buffer is never taken; any other value is the unit's
// length. The walk ends when fewer than 5 bytes remain at a field, or at a
// unit that runs past the end (overran()). Two further options of the kept
// rules:
//   firstLengthStride  the length found for the first unit serves every
//                      later unit too (later fields are not read) unless it
//                      is itself 1, in which case each unit is measured to
//                      the next 4-byte code again;
//   zeroTypeResync     after a unit of type 0 the walk moves on one byte from
//                      its field and, when that field began with a zero, over
//                      every further zero byte, each one lengthening the
//                      unit by one before it is stepped over.
#pragma once

#include <cstdint>

namespace qrv {

struct Unit {
    uint64_t field;   // offset of its start code or length field
    uint64_t payload; // offset of its NAL header byte
    uint64_t size;    // bytes from payload on
};

enum class UnitFraming : uint8_t { startCodes, lengths };

struct UnitRules {
    bool kept = false;
    bool firstLengthStride = false; // with kept
    bool zeroTypeResync = false;    // with kept
};

class UnitIterator {
  public:
    UnitIterator(const uint8_t *data, uint64_t length, UnitRules rules = {});

    // The next unit, or false at the end of the walk.
    bool next(Unit *unit);
    // The walk stopped at a unit (or a field) that runs past the end.
    bool overran() const { return overran_; }
    // The framing the general rules found (lengths for an empty buffer).
    UnitFraming framing() const { return framing_; }

  private:
    bool nextGeneral(Unit *unit);
    bool nextKept(Unit *unit);
    uint64_t keptLength(uint64_t field);

    const uint8_t *data_;
    uint64_t length_;
    UnitRules rules_;
    UnitFraming framing_ = UnitFraming::lengths;
    uint64_t pos_ = 0;
    uint64_t stride_ = 0;
    bool overran_ = false;
};

} // namespace qrv
