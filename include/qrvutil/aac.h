/**
 * @file
 * AAC headers: the AudioSpecificConfig that describes an AAC stream inside a
 * container, and the 7- or 9-byte ADTS frame header. Fields move between a
 * kx_bitstream and a flat record of 32-bit values, most significant bit
 * first, at the cursor's position, which is left after the last field.
 * Nothing is validated or computed (no syncword check, no frame length, no
 * CRC): what the record holds is written, what the stream holds is read.
 */
#ifndef QRVUTIL_AAC_H
#define QRVUTIL_AAC_H

#include <stddef.h>
#include <stdint.h>

#include "bitstream.h"
#include "export.h"

QRV_EXTERN_C_BEGIN

/** AudioSpecificConfig with its GASpecificConfig flags; 28 bytes. */
typedef struct AAC_CONFIG {
    uint32_t audioObjectType;        /**< 5 bits; 31 is not an escape here */
    uint32_t samplingFrequencyIndex; /**< 4 bits */
    uint32_t samplingFrequency;      /**< Hz; in the stream (24 bits) only for index 15 */
    uint32_t channelConfiguration;   /**< 4 bits */
    uint32_t frameLengthFlag;        /**< 1 bit */
    uint32_t dependsOnCoreCoder;     /**< 1 bit; no coreCoderDelay follows */
    uint32_t extensionFlag;          /**< 1 bit; nothing further is read */
} AAC_CONFIG;

QRV_STATIC_ASSERT(sizeof(AAC_CONFIG) == 28, "AAC_CONFIG is seven 32-bit fields");
QRV_STATIC_ASSERT(offsetof(AAC_CONFIG, audioObjectType) == 0, "AAC_CONFIG.audioObjectType");
QRV_STATIC_ASSERT(offsetof(AAC_CONFIG, samplingFrequencyIndex) == 4,
                  "AAC_CONFIG.samplingFrequencyIndex");
QRV_STATIC_ASSERT(offsetof(AAC_CONFIG, samplingFrequency) == 8, "AAC_CONFIG.samplingFrequency");
QRV_STATIC_ASSERT(offsetof(AAC_CONFIG, channelConfiguration) == 12,
                  "AAC_CONFIG.channelConfiguration");
QRV_STATIC_ASSERT(offsetof(AAC_CONFIG, frameLengthFlag) == 16, "AAC_CONFIG.frameLengthFlag");
QRV_STATIC_ASSERT(offsetof(AAC_CONFIG, dependsOnCoreCoder) == 20, "AAC_CONFIG.dependsOnCoreCoder");
QRV_STATIC_ASSERT(offsetof(AAC_CONFIG, extensionFlag) == 24, "AAC_CONFIG.extensionFlag");

/** ADTS fixed and variable header, one 32-bit value per field; 64 bytes. */
typedef struct ADTS_HEADER {
    uint32_t syncword;                           /**< 12 bits */
    uint32_t ID;                                 /**< 1 */
    uint32_t layer;                              /**< 2 */
    uint32_t protection_absent;                  /**< 1; non-zero: crc_check present */
    uint32_t profile;                            /**< 2 */
    uint32_t sampling_frequency_index;           /**< 4 */
    uint32_t private_bit;                        /**< 1 */
    uint32_t channel_configuration;              /**< 3 */
    uint32_t original_copy;                      /**< 1 */
    uint32_t home;                               /**< 1 */
    uint32_t copyright_identification_bit;       /**< 1 */
    uint32_t copyright_identification_start;     /**< 1 */
    uint32_t aac_frame_length;                   /**< 13 */
    uint32_t adts_buffer_fullness;               /**< 11 */
    uint32_t number_of_raw_data_blocks_in_frame; /**< 2 */
    uint32_t crc_check;                          /**< 16 */
} ADTS_HEADER;

/* Every field is a 32-bit value in stream order. */
QRV_STATIC_ASSERT(sizeof(ADTS_HEADER) == 64, "ADTS_HEADER is sixteen 32-bit fields");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, syncword) == 0, "ADTS_HEADER.syncword");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, ID) == 4, "ADTS_HEADER.ID");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, layer) == 8, "ADTS_HEADER.layer");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, protection_absent) == 12, "ADTS_HEADER.protection_absent");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, profile) == 16, "ADTS_HEADER.profile");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, sampling_frequency_index) == 20,
                  "ADTS_HEADER.sampling_frequency_index");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, private_bit) == 24, "ADTS_HEADER.private_bit");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, channel_configuration) == 28,
                  "ADTS_HEADER.channel_configuration");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, original_copy) == 32, "ADTS_HEADER.original_copy");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, home) == 36, "ADTS_HEADER.home");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, copyright_identification_bit) == 40,
                  "ADTS_HEADER.copyright_identification_bit");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, copyright_identification_start) == 44,
                  "ADTS_HEADER.copyright_identification_start");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, aac_frame_length) == 48, "ADTS_HEADER.aac_frame_length");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, adts_buffer_fullness) == 52,
                  "ADTS_HEADER.adts_buffer_fullness");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, number_of_raw_data_blocks_in_frame) == 56,
                  "ADTS_HEADER.number_of_raw_data_blocks_in_frame");
QRV_STATIC_ASSERT(offsetof(ADTS_HEADER, crc_check) == 60, "ADTS_HEADER.crc_check");

/* Readers fill every field they reach; a field read past the reader's
 * bit_end comes out as all ones. Writers set or clear only the bits they
 * write, from bit_pos on, and check no room: the caller's buffer must hold
 * the 2 to 9 bytes. All four return 0 whatever the input. */

/** Reads an AudioSpecificConfig (16 bits, 40 with index 15). The frequency
 *  comes from the index (0-12), is 0 for the reserved 13 and 14, and the
 *  24-bit value for 15. Returns 0. */
QRV_API int qrvutilReadAAC(kx_bitstream *bs, AAC_CONFIG *cfg);
/** Writes an AudioSpecificConfig; samplingFrequency is written (24 bits) only
 *  for index 15 and otherwise ignored. Returns 0. */
QRV_API int qrvutilWriteAAC(kx_bitstream *bs, const AAC_CONFIG *cfg);
/** Reads an ADTS header: 7 bytes, 9 with crc_check. Kept: crc_check follows
 *  when protection_absent is NON-zero, the opposite of the standard's rule;
 *  recorded streams were written so. Returns 0. */
QRV_API int qrvutilReadADTS(kx_bitstream *bs, ADTS_HEADER *h);
/** Writes an ADTS header, with crc_check under the same rule as the reader;
 *  the syncword is written as the record holds it. Returns 0. */
QRV_API int qrvutilWriteADTS(kx_bitstream *bs, const ADTS_HEADER *h);

QRV_EXTERN_C_END

#endif
