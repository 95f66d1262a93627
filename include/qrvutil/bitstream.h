/*
 * qrvutil bit reader and writer: a cursor over a caller's byte buffer that
 * reads and writes single bits, fixed-width fields and Exp-Golomb codes, most
 * significant bit first. Shared by the H.264 and AAC header code.
 */
#ifndef QRVUTIL_BITSTREAM_H
#define QRVUTIL_BITSTREAM_H

#include <stdint.h>

#include "export.h"

QRV_EXTERN_C_BEGIN

/* Set up by zeroing, then buffer, byte_size, bit_end = byte_size * 8, bit_pos = 0.
 * Every field is pointer-width. */
typedef struct kx_bitstream {
    uintptr_t buffer;    /* address of the first byte; not owned */
    uintptr_t byte_size; /* bytes in the buffer (used only to copy it) */
    uintptr_t bit_end;   /* readable bits */
    uintptr_t bit_pos;   /* index of the next bit */
} kx_bitstream;

QRV_API int ReadBit(kx_bitstream *bs);
QRV_API uint32_t ReadBits(kx_bitstream *bs, int32_t n);
QRV_API uint32_t ReadExponentialGolombCode(kx_bitstream *bs);
QRV_API int32_t ReadExponentialGolombCodeSigned(kx_bitstream *bs);
QRV_API void WriteBits(kx_bitstream *bs, int32_t n, uint32_t value);
QRV_API void WriteExponentialGolombCode(kx_bitstream *bs, int32_t value);
QRV_API void WriteExponentialGolombCodeSigned(kx_bitstream *bs, int32_t value);
QRV_API int32_t LengthExponentialGolombCode(int32_t value);

QRV_EXTERN_C_END

#endif
