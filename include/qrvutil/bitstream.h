/*
 * qrvutil bit reader and writer: a cursor over a caller's byte buffer that
 * reads and writes single bits, fixed-width fields and Exp-Golomb codes, most
 * significant bit first. Shared by the H.264 and AAC header code.
 */
#ifndef QRVUTIL_BITSTREAM_H
#define QRVUTIL_BITSTREAM_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

QRV_EXTERN_C_BEGIN

/* Set up by zeroing, then buffer, byte_size, bit_end = byte_size * 8, bit_pos = 0.
 * Every field is pointer-width.
 *
 * Readers stop at bit_end, but a read at bit_pos == bit_end still reads bit 7
 * of the byte at index bit_end / 8 (for a whole-byte buffer: the byte just
 * after the data), so a buffer handed to the readers needs one readable byte
 * past its data. Past that every read answers -1 (all bits set) and still
 * advances bit_pos: compare bit_pos with bit_end afterwards to detect a
 * truncated field. Writers check nothing; the caller provides room. */
typedef struct kx_bitstream {
    uintptr_t buffer;    /* address of the first byte; not owned */
    uintptr_t byte_size; /* bytes in the buffer (used only to copy it) */
    uintptr_t bit_end;   /* readable bits */
    uintptr_t bit_pos;   /* index of the next bit */
} kx_bitstream;

QRV_STATIC_ASSERT(sizeof(kx_bitstream) == 4 * sizeof(void *),
                  "kx_bitstream: four pointer-width fields");
QRV_STATIC_ASSERT(offsetof(kx_bitstream, bit_pos) == 3 * sizeof(void *), "kx_bitstream.bit_pos");

/* Every call reads or writes at bit_pos and moves it past what it read or
 * wrote; readers read bytes up to index bit_end / 8 (one past the data, see
 * above), writers change only the bits they write and check no room. */

/* One bit: 0 or 1; -1 past the end (bit_pos still advances). */
QRV_API int ReadBit(kx_bitstream *bs);
/* n bits MSB first; 0 for n < 1 (bit_pos unchanged). A past-end bit sets
 * every bit from its place upward; counts above 32 wrap their shifts modulo
 * 32. Truncation is not reported: compare bit_pos with bit_end. */
QRV_API uint32_t ReadBits(kx_bitstream *bs, int32_t n);
/* ue(v). No limit on the zero run but the buffer end; runs of 32 zeros or
 * more wrap in 32 bits. Past the end: the missing 1 counts as read and the
 * suffix bits read as 1. */
QRV_API uint32_t ReadExponentialGolombCode(kx_bitstream *bs);
/* se(v) with the standard mapping (odd codes positive, even negative). */
QRV_API int32_t ReadExponentialGolombCodeSigned(kx_bitstream *bs);
/* The low n bits of value, MSB first (counts above 32 wrap their shifts);
 * nothing for n < 1. Room: n bits from bit_pos, not checked. */
QRV_API void WriteBits(kx_bitstream *bs, int32_t n, uint32_t value);
/* ue(v) of value in 2L - 1 bits (L: bit length of value + 1); values of
 * 0xFFFFFF and above carry 24 extra leading zeros, as every file written by
 * the library does. Room not checked. */
QRV_API void WriteExponentialGolombCode(kx_bitstream *bs, int32_t value);
/* Negative values are written as ue(v) of -2v; values v >= 0 as ue(v) of
 * 2v + 2, so they read back through ReadExponentialGolombCodeSigned as
 * -(v + 1). Peers reading this writer's output undo exactly that. Room not
 * checked. */
QRV_API void WriteExponentialGolombCodeSigned(kx_bitstream *bs, int32_t value);
/* Bits of the ue(v) code of value (meaningful for 0..254); one more than the
 * code takes when value & 0x80, which callers sizing buffers rely on. */
QRV_API int32_t LengthExponentialGolombCode(int32_t value);

QRV_EXTERN_C_END

#endif
