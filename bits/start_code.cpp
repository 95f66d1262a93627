// Start-code search. Both directions look for the 01 of a code and then at
// the two bytes before it; only blocks or words that hold a 01 byte are
// looked at closer, so that the scan runs near memory speed on coded video.
#include "bits/start_code.h"

#include <cstddef>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace qrv {

namespace {

bool codeAt(const uint8_t *p)
{
    return p[0] == 0 && p[1] == 0 && p[2] == 1;
}

using Word = std::size_t;
constexpr Word kOnes = ~Word{0} / 0xFF;   // 01 in every byte
constexpr Word kHighs = kOnes * 0x80;     // 80 in every byte

// True when some byte of `w` is 01 (exact: the borrow trick may mark more
// bytes above the first hit, never a word without one).
bool holdsOne(Word w)
{
    const Word x = w ^ kOnes;
    return ((x - kOnes) & ~x & kHighs) != 0;
}

Word loadWord(const uint8_t *p)
{
    Word w;
    std::memcpy(&w, p, sizeof w);
    return w;
}

} // namespace

namespace detail {

const uint8_t *findStartCodePortable(const uint8_t *from, const uint8_t *end)
{
    if (end - from < 3)
        return end;
    // `one` walks the positions where the code's 01 may stand.
    const uint8_t *one = from + 2;
    while (end - one >= static_cast<std::ptrdiff_t>(sizeof(Word))) {
        if (holdsOne(loadWord(one))) {
            for (std::size_t i = 0; i < sizeof(Word); ++i) {
                if (codeAt(one + i - 2))
                    return one + i - 2;
            }
        }
        one += sizeof(Word);
    }
    for (; one < end; ++one) {
        if (codeAt(one - 2))
            return one - 2;
    }
    return end;
}

const uint8_t *findLastStartCodePortable(const uint8_t *begin, const uint8_t *end)
{
    if (end - begin < 3)
        return nullptr;
    // `stop` bounds the positions of the code's 01 from above.
    const uint8_t *stop = end;
    const uint8_t *lowest = begin + 2;
    while (stop - lowest >= static_cast<std::ptrdiff_t>(sizeof(Word))) {
        const uint8_t *word = stop - sizeof(Word);
        if (holdsOne(loadWord(word))) {
            for (std::size_t i = sizeof(Word); i-- > 0;) {
                if (codeAt(word + i - 2))
                    return word + i - 2;
            }
        }
        stop = word;
    }
    while (stop > lowest) {
        --stop;
        if (codeAt(stop - 2))
            return stop - 2;
    }
    return nullptr;
}

} // namespace detail

#if defined(__SSE2__)

namespace {

struct BlockMasks {
    unsigned zeros; // bit i: byte i of the block is 00
    unsigned ones;  // bit i: byte i of the block is 01
};

BlockMasks masksAt(const uint8_t *p)
{
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
    return {static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_setzero_si128()))),
            static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_set1_epi8(1))))};
}

constexpr std::ptrdiff_t kBlock = 16;

} // namespace

const uint8_t *findStartCode(const uint8_t *from, const uint8_t *end)
{
    if (end - from < 3)
        return end;
    // Blocks of positions where the code's 01 may stand; the zeros of the
    // block before carry in for codes that begin in it.
    const uint8_t *one = from + 2;
    unsigned zerosBefore = (from[0] == 0 ? 1u << 14 : 0u) | (from[1] == 0 ? 1u << 15 : 0u);
    while (end - one >= kBlock) {
        const BlockMasks m = masksAt(one);
        if (m.ones != 0) {
            const unsigned hits = m.ones & ((m.zeros << 1) | (zerosBefore >> 15)) &
                                  ((m.zeros << 2) | (zerosBefore >> 14)) & 0xFFFFu;
            if (hits != 0)
                return one + __builtin_ctz(hits) - 2;
        }
        zerosBefore = m.zeros;
        one += kBlock;
    }
    for (; one < end; ++one) {
        if (codeAt(one - 2))
            return one - 2;
    }
    return end;
}

const uint8_t *findLastStartCode(const uint8_t *begin, const uint8_t *end)
{
    if (end - begin < 3)
        return nullptr;
    // Blocks of positions where a code may begin, from the top down; the
    // block above carries in the bytes a code reaches into. The top two
    // bytes of the range cannot begin a code but start the carry.
    const uint8_t *top = end - 2; // codes begin below here
    unsigned zerosAbove = (end[-2] == 0 ? 1u : 0u) | (end[-1] == 0 ? 2u : 0u);
    unsigned onesAbove = (end[-2] == 1 ? 1u : 0u) | (end[-1] == 1 ? 2u : 0u);
    while (top - begin >= kBlock) {
        const uint8_t *block = top - kBlock;
        const BlockMasks m = masksAt(block);
        const unsigned ones = m.ones | (onesAbove << 16);
        if ((ones >> 2) != 0) {
            const unsigned zeros = m.zeros | (zerosAbove << 16);
            const unsigned hits = m.zeros & (zeros >> 1) & (ones >> 2) & 0xFFFFu;
            if (hits != 0)
                return block + (31 - __builtin_clz(hits));
        }
        zerosAbove = m.zeros;
        onesAbove = m.ones;
        top = block;
    }
    while (top > begin) {
        --top;
        if (codeAt(top))
            return top;
    }
    return nullptr;
}

#else

const uint8_t *findStartCode(const uint8_t *from, const uint8_t *end)
{
    return detail::findStartCodePortable(from, end);
}

const uint8_t *findLastStartCode(const uint8_t *begin, const uint8_t *end)
{
    return detail::findLastStartCodePortable(begin, end);
}

#endif

const uint8_t *findLongStartCode(const uint8_t *from, const uint8_t *end)
{
    if (end - from < 4)
        return end;
    for (const uint8_t *at = from + 1; (at = findStartCode(at, end)) != end; at += 3) {
        if (at[-1] == 0)
            return at - 1;
    }
    return end;
}

} // namespace qrv
