// Search for the Annex B start-code prefix 00 00 01, forward and backward.
// A scan stops only near real codes: the SSE2 form (x86_64, and i386 built
// with SSE2) tests sixteen bytes at a time, the portable form a machine word
// at a time, looking only closer at words that hold a 01 byte.
#pragma once

#include <cstdint>

namespace qrv {

// First byte of the first 00 00 01 lying wholly in [from, end), or `end`.
const uint8_t *findStartCode(const uint8_t *from, const uint8_t *end);

// First byte of the last 00 00 01 lying wholly in [begin, end), or nullptr.
const uint8_t *findLastStartCode(const uint8_t *begin, const uint8_t *end);

// First byte of the first 00 00 00 01 lying wholly in [from, end), or `end`.
// The 4-byte code is the one the kept unit walks look for; a lone 00 00 01
// is data to them.
const uint8_t *findLongStartCode(const uint8_t *from, const uint8_t *end);

namespace detail {
// The word-at-a-time forms, built everywhere so that tests cover them too.
const uint8_t *findStartCodePortable(const uint8_t *from, const uint8_t *end);
const uint8_t *findLastStartCodePortable(const uint8_t *begin, const uint8_t *end);
} // namespace detail

} // namespace qrv
