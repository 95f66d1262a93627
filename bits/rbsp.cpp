// Emulation-prevention removal and insertion.
#include "bits/rbsp.h"

#include <cstring>

namespace qrv {

namespace {

bool isRemovable(uint8_t byte, const RemovableBytes &rule)
{
    for (std::size_t i = 0; i < rule.count; ++i) {
        if (rule.bytes[i] == byte)
            return true;
    }
    return false;
}

// First index at or after `from` whose two preceding bytes are zero, or size.
// Zero pairs are rare in coded data, so memchr finds the candidates.
std::size_t firstAfterZeroPair(const uint8_t *data, std::size_t size, std::size_t from)
{
    for (std::size_t at = from - 2; at + 2 < size;) {
        const void *hit = std::memchr(data + at, 0, size - 2 - at);
        if (!hit)
            break;
        at = static_cast<std::size_t>(static_cast<const uint8_t *>(hit) - data);
        if (data[at + 1] == 0)
            return at + 2;
        at += 2; // data[at + 1] is not zero: no pair can start before at + 2
    }
    return size;
}

} // namespace

// The result is that of the plain algorithm: walk the candidates, and on each
// removal move the rest of the buffer down one byte, its last byte staying
// where it was. Here the bytes are written once each: `w` is the position
// being decided, `r` the source byte that now stands there (r - w bytes have
// been removed so far), and source positions at or past the end read as the
// last byte, which is what the moves leave behind.
std::size_t removeEmulationPrevention(uint8_t *data, std::size_t size, const RemovableBytes &rule)
{
    if (size <= rule.firstCandidate)
        return 0;
    std::size_t w = firstAfterZeroPair(data, size, rule.firstCandidate);
    if (w >= size)
        return 0;
    const uint8_t last = data[size - 1];
    const auto sourceAt = [&](std::size_t r) { return r < size ? data[r] : last; };
    std::size_t r = w;
    std::size_t examineFrom = w;
    std::size_t removed = 0;
    uint8_t older = data[w - 2];
    uint8_t prior = data[w - 1];
    while (w < size) {
        const uint8_t byte = sourceAt(r);
        if (w >= examineFrom && older == 0 && prior == 0 && isRemovable(byte, rule)) {
            ++r; // the next source byte slides into position w
            ++removed;
            examineFrom = w + rule.skipAfterRemoval;
            continue;
        }
        data[w++] = byte;
        ++r;
        older = prior;
        prior = byte;
    }
    return removed;
}

std::size_t escapedSize(const uint8_t *payload, std::size_t size)
{
    std::size_t total = size;
    int zeros = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const uint8_t byte = payload[i];
        if (zeros >= 2 && byte <= 0x03) {
            ++total;
            zeros = 0;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return total + (size != 0 && payload[size - 1] == 0 ? 1 : 0);
}

std::size_t escapeRbsp(const uint8_t *payload, std::size_t size, uint8_t *out, std::size_t room)
{
    std::size_t w = 0;
    const auto put = [&](uint8_t byte) {
        if (w >= room)
            return false;
        out[w++] = byte;
        return true;
    };
    int zeros = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const uint8_t byte = payload[i];
        if (zeros >= 2 && byte <= 0x03) {
            if (!put(0x03))
                return kNoRoom;
            zeros = 0;
        }
        if (!put(byte))
            return kNoRoom;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    // A payload ending in 00 (cabac_zero_words) gets a closing 03.
    if (size != 0 && payload[size - 1] == 0 && !put(0x03))
        return kNoRoom;
    return w;
}

} // namespace qrv
