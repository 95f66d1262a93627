// Emulation prevention: the one removal and the one insertion routine of the
// library. Every reader that unescapes a unit, and every writer that escapes
// one, goes through these.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qrv {

// How a unit is unescaped in place. Each family of readers has always done
// it its own way and recorded files decode by those ways, so each keeps its
// rule (the constants below); all of them run through the one routine.
struct RemovableBytes {
    const uint8_t *bytes; // bytes dropped when they follow 00 00
    std::size_t count;
    std::size_t firstCandidate;   // lowest index whose byte may be dropped
    std::size_t skipAfterRemoval; // positions not examined after a removal,
                                  // the one the next byte slides into included
};

inline constexpr uint8_t kEmulationBytes[] = {0x03};
// Picture parameter sets and SEI also drop 0C: units written by older
// recorders carry it.
inline constexpr uint8_t kEmulationBytesPps[] = {0x03, 0x0C};

// Parameter sets and slice headers: 00 00 patterns are looked for from index
// 3 on (a pattern in the first three bytes keeps its byte), and the byte
// after a removed one only starts a new zero run.
inline constexpr RemovableBytes kRemoveEmulation{kEmulationBytes, 1, 5, 2};
inline constexpr RemovableBytes kRemoveEmulationPps{kEmulationBytesPps, 2, 5, 2};
// SEI cleaning, applied from the byte before the unit (the last byte of its
// framing field, which counts as a preceding byte): every position after the
// NAL header is a candidate, the byte that slides into a cleared position is
// not examined itself but counts as a preceding byte for the next one.
inline constexpr RemovableBytes kCleanSei{kEmulationBytesPps, 2, 2, 1};

// Removes every removable byte that follows two zero bytes, by the rule
// given, in one pass. The size does not shrink: the freed positions at the
// end repeat the unit's last byte, once per removal, exactly as if the rest
// of the unit had been moved down one byte per removal. Readers that run to
// the unit's end see those bytes, and peers depend on the values read there.
// Returns the number of bytes removed.
std::size_t removeEmulationPrevention(uint8_t *data, std::size_t size, const RemovableBytes &rule);

// Bytes that escapeRbsp writes for this payload: one 03 more after every
// 00 00 that is followed by a byte of 03 or less, and one more at the end
// when the payload ends in 00.
std::size_t escapedSize(const uint8_t *payload, std::size_t size);

// Writes `payload` with emulation-prevention bytes inserted to `out`, which
// has `room` bytes: 03 after every 00 00 that is followed by a byte of 03 or
// less (the zero run starts again after the inserted byte), and a final 03
// when the payload ends in 00. Returns the bytes written, or kNoRoom when the
// result does not fit; nothing is ever written at or past out + room (bytes
// before it may have been written). `out` must not overlap `payload`.
inline constexpr std::size_t kNoRoom = SIZE_MAX;
std::size_t escapeRbsp(const uint8_t *payload, std::size_t size, uint8_t *out, std::size_t room);

} // namespace qrv
