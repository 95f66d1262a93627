// The AAC header targets share one check: a header read from outside bytes
// fits its field widths, and writing it back reproduces exactly the bits it
// was read from, touching no other bit.
#pragma once

#include <qrvutil/aac.h>

#include "fuzz_util.h"

namespace fuzz {

inline int bitOf(const Bytes &b, size_t pos) { return (b[pos >> 3] >> (7 - (pos & 7))) & 1; }

// The first input byte picks the bit at which the header starts (0-7), so
// that unaligned headers are covered; the rest is the stream.
template <typename Record>
void checkHeaderRoundTrip(const uint8_t *data, size_t size, int (*read)(kx_bitstream *, Record *),
                          int (*write)(kx_bitstream *, const Record *),
                          void (*checkRanges)(const Record &))
{
    if (size == 0)
        return;
    const size_t start = data[0] & 7;
    Unit stream(data + 1, size - 1);
    kx_bitstream bs = stream.reader();
    bs.bit_pos = start;
    Record record;
    std::memset(&record, 0xA5, sizeof record);
    FUZZ_CHECK(read(&bs, &record) == 0);
    FUZZ_CHECK(fuzz::same(stream.storage.data(), data + 1, size - 1));
    // A header cut short by the end of the stream holds set bits that were
    // never in it, beyond its fields' widths; only a whole header is checked.
    const size_t end = bs.bit_pos;
    if (end > bs.bit_end)
        return;
    checkRanges(record);

    // Written over the complement of the stream: every header bit comes back,
    // every bit around it stays.
    Bytes out(stream.storage.size());
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<uint8_t>(~stream.storage[i]);
    const Bytes before = out;
    kx_bitstream w{reinterpret_cast<uintptr_t>(out.data()), out.size(), out.size() * 8, start};
    FUZZ_CHECK(write(&w, &record) == 0);
    FUZZ_CHECK(w.bit_pos == end);
    for (size_t bit = 0; bit < out.size() * 8; ++bit)
        FUZZ_CHECK(bitOf(out, bit) ==
                   (bit >= start && bit < end ? bitOf(stream.storage, bit) : bitOf(before, bit)));

    Record again;
    std::memset(&again, 0xA5, sizeof again); // fields not in the stream keep their fill
    kx_bitstream r{reinterpret_cast<uintptr_t>(out.data()), out.size(), out.size() * 8, start};
    FUZZ_CHECK(read(&r, &again) == 0);
    FUZZ_CHECK(r.bit_pos == end);
    FUZZ_CHECK(fuzz::same(&again, &record, sizeof record));
}

} // namespace fuzz
