// Streaming H.264 units out of a file of any size in bounded memory: Annex B
// start codes (3 or 4 bytes) or 4-byte big-endian unit lengths, told apart
// by the first bytes of the file. Only the framing is found here; every
// syntax inside a unit is read by the library.
#ifndef QRVTOOL_UNIT_STREAM_H
#define QRVTOOL_UNIT_STREAM_H

#include "files.h"

#include <cstdint>
#include <vector>

namespace qrvtool {

// The 4-byte big-endian unit length field.
inline uint32_t bigEndian32(const uint8_t *p)
{
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}
inline void putBigEndian32(uint8_t *p, uint32_t value)
{
    p[0] = static_cast<uint8_t>(value >> 24);
    p[1] = static_cast<uint8_t>(value >> 16);
    p[2] = static_cast<uint8_t>(value >> 8);
    p[3] = static_cast<uint8_t>(value);
}

struct NalUnit {
    uint64_t offset = 0;           // file offset of the framing (start code or length)
    unsigned framing = 0;          // 3 or 4: start-code bytes; 0: 4-byte length field
    const uint8_t *data = nullptr; // NAL header byte first; readable bytes follow
    uint32_t size = 0;
    // Zero bytes after the unit that are not part of the next start code
    // (trailing_zero_8bits); they are not counted in `size`.
    uint32_t trailingZeros = 0;

    int type() const { return data[0] & 0x1F; }
    int refIdc() const { return (data[0] >> 5) & 3; }
    bool isSlice() const { return type() >= 1 && type() <= 5; }
};

class UnitReader {
  public:
    explicit UnitReader(InputFile &in);
    bool lengthFramed() const { return lengthFramed_; }
    // The next unit; false at the end of the file. The unit's bytes stay valid
    // until the next call. Throws InputError for framing that breaks off.
    bool next(NalUnit &unit);
    uint64_t position() const { return base_ + start_; }

  private:
    bool fill(); // false when nothing more could be read
    void requireBytes(size_t count);
    bool nextAnnexB(NalUnit &unit);
    bool nextLengthFramed(NalUnit &unit);
    size_t findStartCode(size_t from);
    void checkHeader(const NalUnit &unit) const;

    InputFile &in_;
    std::vector<uint8_t> buffer_;
    size_t start_ = 0;  // first byte not yet handed out
    size_t end_ = 0;    // valid bytes in buffer_
    uint64_t base_ = 0; // file offset of buffer_[0]
    bool eof_ = false;
    bool lengthFramed_ = false;
    Progress progress_;
};

// Tells where access units begin, from unit types and the first macroblock
// of each slice (a picture's first slice starts at macroblock 0).
class AccessUnitTracker {
  public:
    // True when `unit` opens a new access unit (always for the first unit).
    bool opensAccessUnit(const NalUnit &unit);

  private:
    bool seenUnit_ = false;
    bool pictureOpen_ = false; // a slice has been seen in the current access unit
    bool prefixOpen_ = false;  // units that precede the next picture's slices have been seen
};

// first_mb_in_slice of a slice unit, read with the library's bit reader.
uint32_t firstMbInSlice(const NalUnit &unit);

} // namespace qrvtool

#endif
