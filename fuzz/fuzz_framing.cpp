// Both framing conversions, in place: start codes to length prefixes and
// back.
#include <qrvutil/h264.h>

#include "fuzz_util.h"

namespace {

uint32_t be32(const uint8_t *p)
{
    return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}

bool startCodeAt(const fuzz::Bytes &b, size_t at)
{
    return at + 4 <= b.size() && be32(b.data() + at) == 1;
}

// Each 3-byte start code needs one spare byte; counting every 00 00 01
// bounds that from above.
size_t shortCodeBound(const uint8_t *data, size_t size)
{
    size_t n = 0;
    for (size_t i = 0; i + 3 <= size; ++i)
        n += data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
    return n;
}

// Length-prefixed units from offset 0 that end exactly at `size`.
bool chainEndsAt(const fuzz::Bytes &b, size_t size)
{
    size_t at = 0;
    while (at + 4 <= size)
        at += 4 + size_t{be32(b.data() + at)};
    return at == size;
}

void checkSizeToMarker(const uint8_t *data, size_t size)
{
    fuzz::Bytes buf(data, data + size);
    const unsigned valid = qrvUtilh264SizeToMarker(buf.data(), static_cast<unsigned>(size));
    FUZZ_CHECK(valid <= size);
    // The data ends early only at a zero length field.
    if (valid < size)
        FUZZ_CHECK(valid + 4 <= size && be32(data + valid) == 0);
    // Only whole fields are rewritten, each into a 4-byte start code.
    for (size_t i = 0; i < size; ++i) {
        if (buf[i] == data[i])
            continue;
        bool inCode = false;
        for (size_t field = i >= 3 ? i - 3 : 0; field <= i; ++field)
            inCode |= startCodeAt(buf, field);
        FUZZ_CHECK(inCode);
    }
}

void checkMarkerToSize(const uint8_t *data, size_t size)
{
    // The length asked for first is the room the conversion takes, exactly.
    const int asked = qrvUtilh264MarkerToSizeLength(data, static_cast<int>(size));
    const size_t spare = shortCodeBound(data, size);
    FUZZ_CHECK(asked >= static_cast<int>(size) && static_cast<size_t>(asked) <= size + spare);
    fuzz::Bytes buf(static_cast<size_t>(asked));
    fuzz::copy(buf.data(), data, size);
    const int newLen = qrvUtilh264MarkerToSize(buf.data(), static_cast<int>(size));
    FUZZ_CHECK(newLen == asked);
    if (size == 0)
        return;
    buf.resize(static_cast<size_t>(newLen));

    // From a leading 4-byte start code on, every code became the length of
    // the unit behind it: the fields chain up to the new end exactly.
    if (!(size >= 4 && be32(data) == 1))
        return;
    FUZZ_CHECK(chainEndsAt(buf, buf.size()));

    // Turning the lengths back into codes and converting again gives the
    // same units. A first unit of length 1 looks like a start code and is
    // left alone; a zero length ends the data early.
    fuzz::Bytes codes = buf;
    if (be32(codes.data()) == 1)
        return;
    if (qrvUtilh264SizeToMarker(codes.data(), static_cast<unsigned>(codes.size())) != codes.size())
        return;
    fuzz::Bytes again(static_cast<size_t>(
        qrvUtilh264MarkerToSizeLength(codes.data(), static_cast<int>(codes.size()))));
    fuzz::copy(again.data(), codes.data(), codes.size());
    const int againLen = qrvUtilh264MarkerToSize(again.data(), static_cast<int>(codes.size()));
    again.resize(static_cast<size_t>(againLen));
    FUZZ_CHECK(again == buf);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > (1u << 24))
        return 0;
    checkMarkerToSize(data, size);
    checkSizeToMarker(data, size);
    return 0;
}
