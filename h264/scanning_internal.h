/* Internal helpers shared by unit scanning (nal_units.cpp) and the avcC
 * reader and writer (avcc.cpp). */
#ifndef QRVUTIL_H264_SCANNING_INTERNAL_H
#define QRVUTIL_H264_SCANNING_INTERNAL_H

#include <cstddef>
#include <cstdint>

namespace qrv::h264 {

inline uint32_t readBE32(const uint8_t *p)
{
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

inline void writeBE32(uint8_t *p, uint32_t v)
{
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

inline void writeBE16(uint8_t *p, uint32_t v)
{
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
}

/* The 4-byte field value that marks a unit as start-code framed. */
constexpr uint32_t kStartCodeField = 1;

/* Index of the first 00 00 00 01 lying wholly in [from, end), or `end`. */
uint64_t findStartCode(const uint8_t *data, uint64_t from, uint64_t end);

/* Length of the start-code framed unit whose field is at `field`: up to the
 * next 4-byte start code, or, when none follows, the distance from the field
 * to `end` (so the unit overruns the buffer by four bytes and is never
 * taken). */
uint64_t startCodeUnitLength(const uint8_t *data, uint64_t field, uint64_t end);

} // namespace qrv::h264

#endif
