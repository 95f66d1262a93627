/*
 * qrvutil AAC headers: the AudioSpecificConfig that describes an AAC stream
 * inside a container, and the 7- or 9-byte ADTS frame header. Fields move
 * between a kx_bitstream and a flat record of 32-bit values, most significant
 * bit first, at the cursor's position. Nothing is validated or computed: what
 * the record holds is written, what the stream holds is read.
 */
#ifndef QRVUTIL_AAC_H
#define QRVUTIL_AAC_H

#include <stdint.h>

#include "bitstream.h"
#include "export.h"

QRV_EXTERN_C_BEGIN

/* AudioSpecificConfig with its GASpecificConfig flags; 28 bytes. */
typedef struct AAC_CONFIG {
    uint32_t audioObjectType;        /* 5 bits; 31 is not an escape here */
    uint32_t samplingFrequencyIndex; /* 4 bits */
    uint32_t samplingFrequency;      /* Hz; in the stream (24 bits) only for index 15 */
    uint32_t channelConfiguration;   /* 4 bits */
    uint32_t frameLengthFlag;        /* 1 bit */
    uint32_t dependsOnCoreCoder;     /* 1 bit; no coreCoderDelay follows */
    uint32_t extensionFlag;          /* 1 bit; nothing further is read */
} AAC_CONFIG;

/* ADTS fixed and variable header, one 32-bit value per field; 64 bytes. */
typedef struct ADTS_HEADER {
    uint32_t syncword;                           /* 12 bits */
    uint32_t ID;                                 /* 1 */
    uint32_t layer;                              /* 2 */
    uint32_t protection_absent;                  /* 1; non-zero: crc_check present */
    uint32_t profile;                            /* 2 */
    uint32_t sampling_frequency_index;           /* 4 */
    uint32_t private_bit;                        /* 1 */
    uint32_t channel_configuration;              /* 3 */
    uint32_t original_copy;                      /* 1 */
    uint32_t home;                               /* 1 */
    uint32_t copyright_identification_bit;       /* 1 */
    uint32_t copyright_identification_start;     /* 1 */
    uint32_t aac_frame_length;                   /* 13 */
    uint32_t adts_buffer_fullness;               /* 11 */
    uint32_t number_of_raw_data_blocks_in_frame; /* 2 */
    uint32_t crc_check;                          /* 16 */
} ADTS_HEADER;

/* Each returns 0. Readers fill every field they reach (all ones past the
 * reader's end); writers touch only the bits they write and check no room. */
QRV_API int qrvutilReadAAC(kx_bitstream *bs, AAC_CONFIG *cfg);
QRV_API int qrvutilWriteAAC(kx_bitstream *bs, const AAC_CONFIG *cfg);
/* crc_check follows the header when protection_absent is NON-zero. */
QRV_API int qrvutilReadADTS(kx_bitstream *bs, ADTS_HEADER *h);
QRV_API int qrvutilWriteADTS(kx_bitstream *bs, const ADTS_HEADER *h);

QRV_EXTERN_C_END

#endif
