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

bool codeAt(const uint8_t *p) { return p[0] == 0 && p[1] == 0 && p[2] == 1; }

using Word = std::size_t;
constexpr Word kOnes = ~Word{0} / 0xFF; // 01 in every byte
constexpr Word kHighs = kOnes * 0x80;   // 80 in every byte

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

// Coded video holds a 00 00 pair only every few tens of kilobytes (at start
// codes, emulation-prevention bytes and zero padding), so the search looks
// for pairs, 64 positions at a time, and only then for the 01 after one.
constexpr std::ptrdiff_t kSpan = 64;

// Byte i is 0 exactly when a 00 00 pair begins at p + i.
__m128i pairMaxAt(const uint8_t *p)
{
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 1));
    return _mm_max_epu8(a, b);
}

unsigned zeroBytes(__m128i x)
{
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(x, _mm_setzero_si128())));
}

// Bit i set: a 00 00 pair begins at p + i, for i in 0..63. Reads p..p+64.
uint64_t zeroPairMask(const uint8_t *p)
{
    const __m128i q0 = pairMaxAt(p);
    const __m128i q1 = pairMaxAt(p + 16);
    const __m128i q2 = pairMaxAt(p + 32);
    const __m128i q3 = pairMaxAt(p + 48);
    if (zeroBytes(_mm_min_epu8(_mm_min_epu8(q0, q1), _mm_min_epu8(q2, q3))) == 0)
        return 0;
    return uint64_t{zeroBytes(q0)} | uint64_t{zeroBytes(q1)} << 16 | uint64_t{zeroBytes(q2)} << 32 |
           uint64_t{zeroBytes(q3)} << 48;
}

} // namespace

const uint8_t *findStartCode(const uint8_t *from, const uint8_t *end)
{
    const uint8_t *p = from;
    // Every pair in the span has its third byte inside the range.
    while (end - p >= kSpan + 2) {
        for (uint64_t pairs = zeroPairMask(p); pairs != 0; pairs &= pairs - 1) {
            const uint8_t *at = p + __builtin_ctzll(pairs);
            if (at[2] == 1)
                return at;
        }
        p += kSpan;
    }
    for (; end - p >= 3; ++p) {
        if (codeAt(p))
            return p;
    }
    return end;
}

const uint8_t *findLastStartCode(const uint8_t *begin, const uint8_t *end)
{
    if (end - begin < 3)
        return nullptr;
    // `top` bounds the code starts still to look at from above.
    const uint8_t *top = end - 2;
    while (top - begin >= kSpan) {
        const uint8_t *p = top - kSpan;
        for (uint64_t pairs = zeroPairMask(p); pairs != 0;) {
            const int i = 63 - __builtin_clzll(pairs);
            if (p[i + 2] == 1)
                return p + i;
            pairs &= ~(uint64_t{1} << i);
        }
        top = p;
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
