/*
 * qrvutil H.264 headers: decoded sequence and picture parameter sets, slice
 * headers, unit framing conversion (start codes and 4-byte length prefixes)
 * and avcC decoder configuration boxes.
 *
 * Every record is plain data of fixed layout; recorded files and peers built
 * with the library depend on the field order, so it never changes. Callers
 * allocate the records and clear them before a read.
 */
#ifndef QRVUTIL_H264_H
#define QRVUTIL_H264_H

#include <stddef.h>
#include <stdint.h>

#include "bitstream.h"
#include "export.h"
#include "status.h"

QRV_EXTERN_C_BEGIN

/* ---- Sequence parameter set ------------------------------------------------ */

/* Number of entries kept per HRD array (the syntax allows 32; streams seen by
 * the recorders never use more than a few, and the record layout is fixed). */
#define QRV_HRD_MAX_CPB 8

/* One HRD parameter block: 31 signed 32-bit fields. */
typedef struct hdr_parameters {
    int32_t cpb_cnt_minus1;
    int32_t bit_rate_scale;
    int32_t cpb_size_scale;
    int32_t bit_rate_value_minus1[QRV_HRD_MAX_CPB];
    int32_t cpb_size_value_minus1[QRV_HRD_MAX_CPB];
    int32_t cbr_flag[QRV_HRD_MAX_CPB];
    int32_t initial_cpb_removal_delay_length_minus1;
    int32_t cpb_removal_delay_length_minus1;
    int32_t dpb_output_delay_length_minus1;
    int32_t time_offset_length;
} hdr_parameters;

/* A decoded sequence parameter set, NAL header byte included. Fields whose
 * syntax is absent keep the value they had (0 in a cleared record). */
typedef struct SPS_DECODED {
    int32_t forbidden_zero_bit;
    int32_t nal_ref_idc;
    int32_t nal_unit_type;

    int32_t profile_idc;
    int32_t constraint_set0_flag;
    int32_t constraint_set1_flag;
    int32_t constraint_set2_flag;
    int32_t constraint_set3_flag;
    int32_t constraint_set4_flag;
    int32_t constraint_set5_flag;
    int32_t reserved_zero_2bits;
    int32_t level_idc;
    int32_t seq_parameter_set_id;

    int32_t chroma_format_idc;
    int32_t seq_scaling_list_present_flag[12];
    int32_t ScalingList4x4[6][16];
    int32_t UseDefaultScalingMatrix4x4Flag[6]; /* never filled */
    int32_t ScalingList8x8[6][64];
    int32_t UseDefaultScalingMatrix8x8Flag[6]; /* never filled */

    int32_t separate_colour_plane_flag;
    int32_t bit_depth_luma_minus8;
    int32_t bit_depth_chroma_minus8;
    int32_t qpprime_y_zero_transform_bypass_flag;
    int32_t seq_scaling_matrix_present_flag;

    int32_t log2_max_frame_num_minus4;
    int32_t pic_order_cnt_type;
    int32_t log2_max_pic_order_cnt_lsb_minus4;
    int32_t delta_pic_order_always_zero_flag;
    int32_t offset_for_non_ref_pic;
    int32_t offset_for_top_to_bottom_field;
    int32_t num_ref_frames_in_pic_order_cnt_cycle;
    int32_t offset_for_ref_frame; /* the last value of the cycle only */

    int32_t max_num_ref_frames;
    int32_t gaps_in_frame_num_value_allowed_flag;
    int32_t pic_width_in_mbs_minus1;
    int32_t pic_height_in_map_units_minus1;
    int32_t frame_mbs_only_flag;
    int32_t mb_adaptive_frame_field_flag;
    int32_t direct_8x8_inference_flag;
    int32_t frame_cropping_flag;
    int32_t frame_crop_left_offset;
    int32_t frame_crop_right_offset;
    int32_t frame_crop_top_offset;
    int32_t frame_crop_bottom_offset;

    int32_t vui_parameters_present_flag;
    int32_t aspect_ratio_info_present_flag;
    int32_t aspect_ratio_idc;
    int32_t sar_width;
    int32_t sar_height;
    int32_t overscan_info_present_flag;
    int32_t overscan_appropriate_flag;
    int32_t video_signal_type_present_flag;
    int32_t video_format;
    int32_t video_full_range_flag;
    int32_t colour_description_present_flag;
    int32_t colour_primaries;
    int32_t transfer_characteristics;
    int32_t matrix_coefficients;
    int32_t chroma_loc_info_present_flag;
    int32_t chroma_sample_loc_type_top_field;
    int32_t chroma_sample_loc_type_bottom_field;
    int32_t timing_info_present_flag;
    int32_t num_units_in_tick;
    int32_t time_scale;
    int32_t fixed_frame_rate_flag;
    int32_t nal_hrd_parameters_present_flag;
    int32_t vcl_hrd_parameters_present_flag;

    hdr_parameters nal_hrd;
    hdr_parameters vcl_hrd;

    int32_t low_delay_hrd_flag;
    int32_t pic_struct_present_flag;
    int32_t bitstream_restriction_flag;
    int32_t motion_vectors_over_pic_boundaries_flag;
    int32_t max_bytes_per_pic_denom;
    int32_t max_bits_per_mb_denom;
    int32_t log2_max_mv_length_horizontal;
    int32_t log2_max_mv_length_vertical;
    int32_t max_num_reorder_frames;
    int32_t max_dec_frame_buffering;
    int32_t rbsp_stop_one_bit;
} SPS_DECODED;

/* ---- Picture parameter set -------------------------------------------------- */

#define QRV_PPS_MAX_SLICE_GROUPS 8
#define QRV_PPS_MAX_SLICE_GROUP_IDS 256

/* A decoded picture parameter set, NAL header byte included. */
typedef struct PPS_DECODED {
    int32_t forbidden_zero_bit;
    int32_t nal_ref_idc;
    int32_t nal_unit_type;

    int32_t pic_parameter_set_id;
    int32_t seq_parameter_set_id;
    int32_t entropy_coding_mode_flag;
    int32_t pic_order_present_flag; /* bottom_field_pic_order_in_frame_present_flag */
    int32_t num_slice_groups_minus1;
    int32_t slice_group_map_type;

    int32_t run_length_minus1[QRV_PPS_MAX_SLICE_GROUPS];
    int32_t top_left[QRV_PPS_MAX_SLICE_GROUPS];
    int32_t bottom_right[QRV_PPS_MAX_SLICE_GROUPS];
    int32_t slice_group_change_direction_flag;
    int32_t slice_group_change_rate_minus1;
    int32_t pic_size_in_map_units_minus1;
    int32_t slice_group_id[QRV_PPS_MAX_SLICE_GROUP_IDS];

    int32_t num_ref_idx_l0_default_active_minus1;
    int32_t num_ref_idx_l1_default_active_minus1;
    int32_t weighted_pred_flag;
    int32_t weighted_bipred_idc;
    int32_t pic_init_qp_minus26;
    int32_t pic_init_qs_minus26;
    int32_t chroma_qp_index_offset;
    int32_t deblocking_filter_control_present_flag;
    int32_t constrained_intra_pred_flag;
    int32_t redundant_pic_cnt_present_flag;

    /* 1 when the optional tail (8x8 transform, scaling matrix) is present. A
     * non-zero value on entry to the reader makes it read the tail unasked. */
    int32_t more_rbsp_data;

    int32_t transform_8x8_mode_flag;
    int32_t pic_scaling_matrix_present_flag;
    int32_t pic_scaling_list_present_flag[12];
    int32_t ScalingList4x4[6][16];
    int32_t UseDefaultScalingMatrix4x4Flag[6]; /* never filled */
    int32_t ScalingList8x8[6][64];             /* entries 0 and 1 only */
    int32_t UseDefaultScalingMatrix8x8Flag[6]; /* never filled */
    int32_t second_chroma_qp_index_offset;

    /* Also receives the bit after a CAVLC slice header (see the slice readers). */
    int32_t rbsp_stop_one_bit;
} PPS_DECODED;

/* ---- Slice header ------------------------------------------------------------ */

#define QRV_MAX_REF_IDX 64

/* A decoded slice header. Per-entry weight flags hold the last entry's flag;
 * reordering and marking hold the last loop iteration only. */
typedef struct SLICE_HEADER {
    int32_t forbidden_zero_bit; /* the three NAL header fields are filled by */
    int32_t nal_ref_idc;        /* qrvutilRead_SliceHeader only */
    int32_t nal_unit_type;

    int32_t first_mb_in_slice;
    int32_t slice_type; /* as coded, 0-9 */
    int32_t pic_parameter_set_id;
    int32_t frame_num;
    int32_t field_pic_flag;
    int32_t bottom_field_flag;
    int32_t idr_pic_id;
    int32_t pic_order_cnt_lsb;
    int32_t delta_pic_order_cnt_bottom;
    int32_t delta_pic_order_cnt[2];
    int32_t redundant_pic_cnt;
    int32_t direct_spatial_mv_pred_flag;
    int32_t num_ref_idx_active_override_flag;
    int32_t num_ref_idx_l0_active_minus1;
    int32_t num_ref_idx_l1_active_minus1;

    int32_t reserved[5]; /* no reader writes these; kept for the layout */

    int32_t cabac_init_idc;
    int32_t slice_qp_delta;
    int32_t sp_for_switch_flag;
    int32_t slice_qs_delta;
    int32_t disable_deblocking_filter_idc;
    int32_t slice_alpha_c0_offset_div2;
    int32_t slice_beta_offset_div2;
    int32_t slice_group_change_cycle;

    int32_t luma_log2_weight_denom;
    int32_t chroma_log2_weight_denom;
    int32_t luma_weight_l0_flag;
    int32_t luma_weight_l0[QRV_MAX_REF_IDX];
    int32_t luma_offset_l0[QRV_MAX_REF_IDX];
    int32_t chroma_weight_l0_flag;
    int32_t chroma_weight_l0[QRV_MAX_REF_IDX][2];
    int32_t chroma_offset_l0[QRV_MAX_REF_IDX][2];
    int32_t luma_weight_l1_flag;
    int32_t luma_weight_l1[QRV_MAX_REF_IDX];
    int32_t luma_offset_l1[QRV_MAX_REF_IDX];
    int32_t chroma_weight_l1_flag;
    int32_t chroma_weight_l1[QRV_MAX_REF_IDX][2];
    int32_t chroma_offset_l1[QRV_MAX_REF_IDX][2];

    int32_t ref_pic_list_reordering_flag_l0;
    int32_t ref_pic_list_reordering_flag_l1;
    int32_t reordering_of_pic_nums_idc;
    int32_t long_term_pic_num;
    int32_t abs_diff_pic_num_minus1;

    int32_t no_output_of_prior_pics_flag;
    int32_t long_term_reference_flag;
    int32_t adaptive_ref_pic_marking_mode_flag;
    int32_t memory_management_control_operation;
    int32_t difference_of_pic_nums_minus1;
    int32_t mmco_long_term_pic_num; /* long_term_pic_num of the marking syntax */
    int32_t long_term_frame_idx;
    int32_t max_long_term_frame_idx_plus1;
} SLICE_HEADER;

/* ---- Unit stream --------------------------------------------------------------- */

/* Bytes of storage at the head of NAL_BUFFER. They belong to the routine that
 * appends parameter-set units to a frame (its bookkeeping of the block behind
 * `data`); scanning and avcC never read or write them. */
#define QRV_NAL_BUFFER_STORAGE 32

/* What qrvutilAddNalUnits leaves in the leading storage on success. */
typedef struct QRV_NAL_UNIT_COUNTS {
    uint32_t units;        /* units in the frame as it was given */
    uint32_t closed_sei;   /* SEI units that got their stop byte */
    uint32_t inserted_sps; /* 0 or 1 */
    uint32_t inserted_pps; /* 0 or 1 */
    uint32_t reserved[4];  /* 0 */
} QRV_NAL_UNIT_COUNTS;

/* A frame's unit stream: `length` valid bytes at `data`. Packed, so `data`
 * follows the leading storage with no gap on every build. */
typedef struct __attribute__((packed)) NAL_BUFFER {
    uint8_t storage[QRV_NAL_BUFFER_STORAGE];
    uint8_t *data;
    uint32_t reserved; /* not used by scanning or avcC */
    uint32_t length;
} NAL_BUFFER;

/* ---- Layout checks: the same on 32-bit and 64-bit builds ------------------------- */

QRV_STATIC_ASSERT(sizeof(hdr_parameters) == 31 * 4, "hdr_parameters is 31 fields");
QRV_STATIC_ASSERT(offsetof(hdr_parameters, cbr_flag) == 19 * 4, "hdr_parameters.cbr_flag");
QRV_STATIC_ASSERT(sizeof(SPS_DECODED) == 639 * 4, "SPS_DECODED is 639 fields");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, chroma_format_idc) == 13 * 4, "SPS chroma_format_idc");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, ScalingList8x8) == 128 * 4, "SPS ScalingList8x8");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, separate_colour_plane_flag) == 518 * 4, "SPS bit depths");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, log2_max_frame_num_minus4) == 523 * 4, "SPS frame_num");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, max_num_ref_frames) == 531 * 4, "SPS ref frames");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, vui_parameters_present_flag) == 543 * 4, "SPS VUI");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, nal_hrd) == 566 * 4, "SPS NAL HRD");
QRV_STATIC_ASSERT(offsetof(SPS_DECODED, low_delay_hrd_flag) == 628 * 4, "SPS tail");
QRV_STATIC_ASSERT(sizeof(PPS_DECODED) == 811 * 4, "PPS_DECODED is 811 fields");
QRV_STATIC_ASSERT(offsetof(PPS_DECODED, run_length_minus1) == 9 * 4, "PPS slice groups");
QRV_STATIC_ASSERT(offsetof(PPS_DECODED, slice_group_id) == 36 * 4, "PPS slice_group_id");
QRV_STATIC_ASSERT(offsetof(PPS_DECODED, num_ref_idx_l0_default_active_minus1) == 292 * 4,
                  "PPS ref idx defaults");
QRV_STATIC_ASSERT(offsetof(PPS_DECODED, more_rbsp_data) == 302 * 4, "PPS more_rbsp_data");
QRV_STATIC_ASSERT(offsetof(PPS_DECODED, pic_scaling_list_present_flag) == 305 * 4,
                  "PPS scaling block");
QRV_STATIC_ASSERT(offsetof(PPS_DECODED, second_chroma_qp_index_offset) == 809 * 4,
                  "PPS second chroma offset");
QRV_STATIC_ASSERT(sizeof(SLICE_HEADER) == 819 * 4, "SLICE_HEADER is 819 fields");
QRV_STATIC_ASSERT(offsetof(SLICE_HEADER, reserved) == 19 * 4, "SLICE_HEADER unused fields");
QRV_STATIC_ASSERT(offsetof(SLICE_HEADER, cabac_init_idc) == 24 * 4, "SLICE_HEADER cabac");
QRV_STATIC_ASSERT(offsetof(SLICE_HEADER, luma_log2_weight_denom) == 32 * 4, "SLICE_HEADER weights");
QRV_STATIC_ASSERT(offsetof(SLICE_HEADER, luma_weight_l1_flag) == 420 * 4, "SLICE_HEADER list 1");
QRV_STATIC_ASSERT(offsetof(SLICE_HEADER, ref_pic_list_reordering_flag_l0) == 806 * 4,
                  "SLICE_HEADER reordering");
QRV_STATIC_ASSERT(offsetof(SLICE_HEADER, no_output_of_prior_pics_flag) == 811 * 4,
                  "SLICE_HEADER marking");
QRV_STATIC_ASSERT(offsetof(NAL_BUFFER, data) == QRV_NAL_BUFFER_STORAGE, "NAL_BUFFER.data");
QRV_STATIC_ASSERT(sizeof(QRV_NAL_UNIT_COUNTS) == QRV_NAL_BUFFER_STORAGE, "NAL_BUFFER bookkeeping");
QRV_STATIC_ASSERT(offsetof(QRV_NAL_UNIT_COUNTS, inserted_pps) == 12, "QRV_NAL_UNIT_COUNTS");
QRV_STATIC_ASSERT(offsetof(NAL_BUFFER, reserved) == QRV_NAL_BUFFER_STORAGE + sizeof(void *),
                  "NAL_BUFFER unused field");
QRV_STATIC_ASSERT(offsetof(NAL_BUFFER, length) == QRV_NAL_BUFFER_STORAGE + sizeof(void *) + 4,
                  "NAL_BUFFER.length");
QRV_STATIC_ASSERT(sizeof(NAL_BUFFER) == QRV_NAL_BUFFER_STORAGE + sizeof(void *) + 8,
                  "NAL_BUFFER is packed");

/* ---- Parameter sets -------------------------------------------------------------- */

/* Both readers take `bs` set up over one unit (buffer at the NAL header byte,
 * byte_size = unit length, bit_end = 8 * byte_size, bit_pos = 0), read from a
 * private de-emulated copy, and return the bytes consumed (bit_pos / 8 after
 * the final byte alignment). They return 0 for a null record; the SPS reader
 * also for a zero byte_size. On return bs->buffer is the caller's pointer
 * again and bs->bit_pos is where the read stopped. */
QRV_API int qrvutilRead_SPS(kx_bitstream *bs, SPS_DECODED *sps);
QRV_API int qrvutilRead_PPS(kx_bitstream *bs, PPS_DECODED *pps);

/* ---- Parameter-set writers ------------------------------------------------------- */

/* Each writes one complete NAL unit without framing: the header byte from the
 * record's forbidden_zero_bit, nal_ref_idc and nal_unit_type, the RBSP with
 * emulation-prevention bytes inserted, and rbsp_trailing_bits. `bs` is set up
 * as for the readers: the unit goes at `buffer`, which has `byte_size` bytes
 * of room; on success bit_pos is left after the unit. With `buffer` null
 * nothing is written and the size the unit needs is returned.
 *
 * Returns the unit's size in bytes, or
 *   QRV_E_ARGUMENT  `bs` or the record is null;
 *   QRV_E_ROOM      the unit does not fit `byte_size` (nothing is written);
 *   QRV_E_RANGE     a field holds a value its syntax element cannot carry:
 *                   outside the element's range (chroma_format_idc above 3,
 *                   num_ref_frames_in_pic_order_cnt_cycle above 255, an se(v)
 *                   beyond its limits, a flag other than 0 or 1 such as the -1
 *                   a reader stores for a flag read past the end, a scaling
 *                   list entry outside 1..255) or past what the record keeps
 *                   (cpb_cnt_minus1 of 8 or more, pic_size_in_map_units_minus1
 *                   of 256 or more).
 * Nothing is written at or past `byte_size`, and nothing at all on failure.
 *
 * Fields read: exactly the syntax elements that the record's own flags and
 * counts make present, in the order the readers read them. rbsp_stop_one_bit
 * is not read. The writers emit what the readers accept:
 *   SPS: the chroma block (chroma_format_idc ... scaling lists) only for the
 *        profiles whose syntax has it, so the reader's implied 4:2:0 and depth
 *        values of other profiles are not read; for pic_order_cnt_type 1 the
 *        offsets are written as ue(v) codes, as the reader reads them, and the
 *        one kept offset_for_ref_frame is written for every cycle entry.
 *   PPS: the tail from transform_8x8_mode_flag on is written whenever
 *        more_rbsp_data is 1 (which must be 0 or 1), even when all of it is
 *        0; its scaling matrix has 6 + 2 x transform_8x8_mode_flag lists, as
 *        the reader reads it.
 *   Scaling lists are delta-coded from their stored entries: deltas in
 *   -128..127, ending early with the delta that makes nextScale 0 when the
 *   repeated tail would cost at least as many bits; a list of eights is
 *   written as the single delta -8 that it was read from.
 * A written unit reads back to the same record over every field the syntax
 * carries, except where the PPS reader's kept reading rules read it
 * otherwise: it drops a 0C after 00 00 (older recorders' units carry it),
 * and in a unit that holds an emulation-prevention byte it may take the
 * repeated last byte of its unescaped copy for the optional tail.
 * qrvutilValidate_PPS names such a unit (QRV_E_UNSUPPORTED).
 * Two more ways a written unit reads back otherwise, both kept reading rules:
 * - an escape the writer places in bytes 3-4 stays in the readers' copy
 *   (they look for escapes from byte 5 on): a zeroed SPS record is written
 *   00 00 00 03 00 FB 04 and does not read back as written;
 * - a PPS whose unit holds an escape can read back with more_rbsp_data 1,
 *   the reader's copy repeating its last byte once per escape removed. */
QRV_API int qrvutilWrite_SPS(kx_bitstream *bs, const SPS_DECODED *sps);
QRV_API int qrvutilWrite_PPS(kx_bitstream *bs, const PPS_DECODED *pps);

/* ---- Parameter-set validation ----------------------------------------------------- */

/* Check one unit (NAL header byte first, emulation-prevention bytes in place,
 * `size` bytes) against the syntax as the standard has it. Return 0 for a
 * valid unit, else a negative status with a one-line reason in `reason`
 * (`room` bytes, always terminated and cut to fit; null or 0 for none) that
 * names the syntax element and the bit offset in the unit where the input
 * stops making sense:
 *   QRV_E_ARGUMENT     `unit` is null;
 *   QRV_E_TRUNCATED    the unit ends inside an element;
 *   QRV_E_RANGE        an element's value is outside its range;
 *   QRV_E_SYNTAX       not a unit of this kind (nal_unit_type, forbidden bit),
 *                      a stop bit missing or data after rbsp_trailing_bits,
 *                      00 00 00/01/02 anywhere in the unit or 00 00 03
 *                      followed by a byte above 03 (the reason names the
 *                      byte: "at byte N at bit 8N");
 *   QRV_E_UNSUPPORTED  valid, but this library's reader (qrvutilRead_SPS or
 *                      qrvutilRead_PPS, kept reading rules) comes to another
 *                      record or keeps less of it: more than 8 HRD entries,
 *                      more than 256 slice group ids, a 03 after 00 00 in
 *                      bytes 3-4, a PPS holding 00 00 0C, a PPS whose
 *                      emulation-prevention byte makes the reader see a tail.
 * A 4:4:4 PPS with 8x8 scaling lists for chroma is checked as the PPS reader
 * reads it (6 + 2 x transform_8x8_mode_flag lists) and so fails. The readers
 * themselves are unchanged: they still read whatever they are given. */
QRV_API int qrvutilValidate_SPS(const uint8_t *unit, uint32_t size, char *reason, uint32_t room);
QRV_API int qrvutilValidate_PPS(const uint8_t *unit, uint32_t size, char *reason, uint32_t room);

/* ---- Slice headers ------------------------------------------------------------------ */

/* Decodes a slice unit's header (NAL header byte included) from a private
 * copy of at most its first 256 bytes. Returns first_mb_in_slice. May store
 * one bit into pps->rbsp_stop_one_bit. */
QRV_API int qrvutilRead_SliceHeader(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps,
                                    PPS_DECODED *pps, int nal_unit_type);
/* Reads a slice header in the caller's buffer (the reader standing after the
 * NAL header byte), then rewrites a CABAC header's alignment bits in place as
 * 1 followed by zeros. Returns 0. */
QRV_API int qrvutilFix_SliceHeader(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps,
                                   PPS_DECODED *pps, unsigned nal_unit_type, int nal_ref_idc);
/* Writes nothing and returns 0; present so that hosts linking it keep working. */
QRV_API int qrvutilWrite_SliceHeader(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps,
                                     PPS_DECODED *pps, int nal_unit_type);

/* ---- Unit framing and avcC -------------------------------------------------------------- */

/* Framing read by qrvutilGetAvcc and qrvutilFindNalUnits (kept: recorded
 * streams depend on it): every unit begins with a 4-byte big-endian field; a
 * field of 1 (00 00 00 01) is a start code whose unit runs to the next
 * 00 00 00 01, any other value is the unit's length.
 * - A 3-byte start code (00 00 01) is not a code here: it stays inside the
 *   unit before it.
 * - In start-code form the last unit has no code after it and is never taken
 *   (not decoded, not counted, not written to a box).
 * - A walk stops when fewer than 5 bytes remain at a field, or at a unit that
 *   would run past `length`. */

/* Start codes (3 or 4 bytes) to 4-byte big-endian length prefixes, in place.
 * Reads and writes buf[0 .. result); room: `len` plus one byte per 3-byte
 * start code, which qrvUtilh264MarkerToSizeLength tells. Returns the new
 * length; a `len` below 1 (or a null buf) is returned unchanged.
 * - A 3-byte code is widened to 4 bytes; a 3-byte code in the last three
 *   bytes is no code and stays in the unit before it.
 * - Zero bytes before a 4-byte code stay at the end of the unit before it.
 * - Bytes before the first code are not framed (they keep their place).
 * - A stream with no code at all has its first four bytes overwritten with
 *   len - 4, as if a code stood there (streams shorter than 4 bytes stay). */
QRV_API int qrvUtilh264MarkerToSize(unsigned char *buf, int len);
/* The length qrvUtilh264MarkerToSize will return for these bytes: `len` plus
 * one per 3-byte start code that it widens, which is also the room it needs.
 * Reads `len` bytes, writes none; a `len` below 1 is returned unchanged. */
QRV_API int qrvUtilh264MarkerToSizeLength(const unsigned char *buf, int len);
/* 4-byte length prefixes to 4-byte start codes, in place; writes only the
 * fields, needs no room beyond `len`. Returns the length of the valid data:
 * - `len` untouched when the buffer already begins with 00 00 00 01;
 * - the offset of a zero length field (the data counts as ending there);
 * - `len` when a length runs past the end: fields before it stay converted. */
QRV_API unsigned qrvUtilh264SizeToMarker(unsigned char *buf, unsigned len);
/* Writes an avcC box (box header included) for the first SPS and the first
 * PPS unit in `units` to `out`, and returns its size. Reads units->data and
 * units->length only. Room: exactly qrvutilGetAvccRoom(units) bytes, which
 * is 14, plus 2 + n for the SPS entry and 3 + n for the PPS entry, n being
 * the length the walk takes for that unit (see the stride below), so it can
 * exceed 14 + 3 + SPS + 3 + PPS. Returns 0 when `out` is null.
 * - Stride (kept: peers read boxes written this way): the first unit's length
 *   serves every later unit, whose fields are not read; in start-code form
 *   the first unit is measured to the next 00 00 00 01 and that length then
 *   serves every later unit (a length of 1 is measured again at each unit).
 * - Entries stand in stream order, so a PPS before the SPS is written first.
 * - Byte 13 is 0xE1 (one SPS) and bytes 9-11 are 0 when there is no SPS; no
 *   chroma or bit-depth trailer is written. Fewer than 5 bytes give the
 *   14-byte header alone. */
QRV_API int qrvutilGetAvcc(NAL_BUFFER *units, unsigned char *out);
/* The exact room qrvutilGetAvcc writes for these units (its return value),
 * stride included. Reads the units, writes nothing; 14 for null units. */
QRV_API uint32_t qrvutilGetAvccRoom(const NAL_BUFFER *units);
/* Reads an avcC box at the reader's position; copies its first SPS and PPS
 * to `sps` and `pps` when those are not null (each decoded from a private
 * copy). Returns -1 for a zero box size (records untouched), else 0.
 * - PPS entries of 513 bytes or more are passed over unread.
 * - The high-profile trailer is read past, never returned. */
QRV_API int qrvutilReadAvcc(kx_bitstream *bs, SPS_DECODED *sps, PPS_DECODED *pps);
/* Walks every unit in `units` (framing above), decoding SPS and PPS units
 * into `sps` and `pps` (a later one overwrites an earlier one; null records
 * are replaced by scratch ones) and slice headers into scratch records.
 * When `avcc` is not null its box is read first, as if cut at 512 bytes.
 * Returns the number of units walked.
 * - Writes into units->data: each SEI unit is cleaned in place (every 03 or
 *   0C after two zero bytes removed, the unit's length kept, so its last byte
 *   repeats once per removal).
 * - A unit of type 0 counts, and the walk then moves one byte on from its
 *   field and over any zero bytes there (when the field began with 0). */
QRV_API int qrvutilFindNalUnits(NAL_BUFFER *units, SPS_DECODED *sps, PPS_DECODED *pps,
                                const unsigned char *avcc);

/* ---- Closing SEI and inserting parameter sets ------------------------------------ */

/* Works on one access unit: `frame->length` bytes at `frame->data`, its units
 * framed by 3- or 4-byte start codes or by 4-byte big-endian lengths (one
 * framing per frame, taken from the first unit); `capacity` is the room of the
 * block at `data`.
 *  - Every SEI unit whose message chain (payloadType and payloadSize with
 *    their FF extension bytes, over the unescaped payload) is not followed by
 *    rbsp_trailing_bits gets the stop byte 0x80 right after the chain (a
 *    chain may end in zero bytes, up to the zero_byte of a 4-byte code).
 *    The zero bytes after the chain stay behind the stop byte, written as
 *    plain zeros (start codes) or with an escape after every two zeros
 *    (lengths); a second call changes nothing.
 *  - When the access unit holds an IDR slice (type 5) and no SPS (resp. PPS)
 *    before its first slice, `sps` (resp. `pps`) is written with the writers
 *    above and inserted after any access unit delimiter and before any SEI
 *    and the first slice, SPS before PPS, with a 4-byte start code or a
 *    4-byte length as the frame's framing has it. A null record inserts
 *    nothing of its kind.
 * Returns the new length, also stored in frame->length. On failure the bytes
 * at `data` and `length` are exactly as they were, and it returns
 *   QRV_E_ARGUMENT   `frame` or its data is null, or length > capacity;
 *   QRV_E_ROOM       the result does not fit `capacity`;
 *   QRV_E_TRUNCATED  a unit runs past `length` (an SEI unit whose messages do
 *                    not parse is no failure: it is left as it is);
 *   QRV_E_RANGE      a record to insert whose nal_unit_type is not 7 (SPS)
 *                    resp. 8 (PPS), or that its writer refuses;
 *   QRV_E_MEMORY     the host allocator gave no room for the routine's
 *                    scratch (SEI copies, the list of insertions).
 * Linear in the frame's size: the tail moves once per inserted unit or byte.
 *
 * The leading storage of NAL_BUFFER is this routine's bookkeeping: it reads
 * nothing from it (a zeroed record is fine) and on success leaves there a
 * QRV_NAL_UNIT_COUNTS of this call; on failure the storage is untouched too. */
QRV_API int qrvutilAddNalUnits(NAL_BUFFER *frame, uint32_t capacity, const SPS_DECODED *sps,
                               const PPS_DECODED *pps);

/* ---- A standard avcC ---------------------------------------------------------------- */

/* Builds an avcC box (size and type included, as qrvutilGetAvcc writes) from
 * every SPS, PPS and SPS-extension unit in `units` (`length` bytes, 3- or
 * 4-byte start codes or 4-byte big-endian lengths, one framing throughout),
 * each kind in stream order, a unit equal to an earlier one left out;
 * lengthSizeMinusOne is 3. Profile, compatibility and level are bytes 1-3 of
 * the first SPS. For every profile but Baseline (66), Main (77) and Extended
 * (88) the trailer follows, with chroma format and bit depths from the first
 * SPS (4:2:0 8-bit for profiles whose SPS does not state them) and the
 * SPS-extension units; this is the box common MP4 muxers write. Units behind
 * start codes end before the next start code's zero_byte.
 * Returns the box size; with `out` null, the size needed. Fails with
 *   QRV_E_ARGUMENT   `units` is null while length is not 0;
 *   QRV_E_SYNTAX     no SPS, or a first SPS shorter than 4 bytes;
 *   QRV_E_TRUNCATED  a length field runs past `length`;
 *   QRV_E_RANGE      more than 31 distinct SPS or 255 PPS or SPS extensions,
 *                    or a unit over 65535 bytes;
 *   QRV_E_ROOM       the box does not fit `capacity` (nothing is written).
 * qrvutilGetAvcc keeps its own layout; this call is the standard one. */
QRV_API int qrvutilMakeAvcc(const uint8_t *units, uint32_t length, uint8_t *out, uint32_t capacity);

/* ---- Picture geometry -------------------------------------------------------------- */

/** Room of QRV_H264_GEOMETRY.profile_name, terminator included. */
#define QRV_H264_PROFILE_NAME_SIZE 32
/** Room of QRV_H264_GEOMETRY.level_text, terminator included. */
#define QRV_H264_LEVEL_TEXT_SIZE 8

/** What a decoded SPS says about the pictures, in the units players show.
 *  Fixed layout, the same on 32-bit and 64-bit builds. */
typedef struct QRV_H264_GEOMETRY {
    uint32_t coded_width;  /**< decoded samples before cropping: 16 x macroblocks */
    uint32_t coded_height; /**< likewise; a field-coded map unit counts twice */
    uint32_t width;        /**< after the frame cropping */
    uint32_t height;
    uint32_t crop_left; /**< samples cropped at the left, after the crop-unit scaling */
    uint32_t crop_top;  /**< lines cropped at the top, likewise */
    uint32_t frame_mbs_only_flag;
    uint32_t chroma_format_idc; /**< 0 monochrome, 1 4:2:0, 2 4:2:2, 3 4:4:4 */
    uint32_t bit_depth_luma;    /**< 8 to 14 */
    uint32_t bit_depth_chroma;
    uint32_t sar_num; /**< sample aspect ratio, reduced; 0:0 when unspecified */
    uint32_t sar_den;
    uint32_t fps_num; /**< frame rate, reduced; 0/0 without usable VUI timing */
    uint32_t fps_den;
    char profile_name[QRV_H264_PROFILE_NAME_SIZE];
    char level_text[QRV_H264_LEVEL_TEXT_SIZE];
} QRV_H264_GEOMETRY;

QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, coded_width) == 0, "QRV_H264_GEOMETRY.coded_width");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, coded_height) == 4, "QRV_H264_GEOMETRY.coded_height");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, width) == 8, "QRV_H264_GEOMETRY.width");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, height) == 12, "QRV_H264_GEOMETRY.height");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, crop_left) == 16, "QRV_H264_GEOMETRY.crop_left");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, crop_top) == 20, "QRV_H264_GEOMETRY.crop_top");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, frame_mbs_only_flag) == 24,
                  "QRV_H264_GEOMETRY.frame_mbs_only_flag");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, chroma_format_idc) == 28,
                  "QRV_H264_GEOMETRY.chroma_format_idc");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, bit_depth_luma) == 32,
                  "QRV_H264_GEOMETRY.bit_depth_luma");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, bit_depth_chroma) == 36,
                  "QRV_H264_GEOMETRY.bit_depth_chroma");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, sar_num) == 40, "QRV_H264_GEOMETRY.sar_num");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, sar_den) == 44, "QRV_H264_GEOMETRY.sar_den");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, fps_num) == 48, "QRV_H264_GEOMETRY.fps_num");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, fps_den) == 52, "QRV_H264_GEOMETRY.fps_den");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, profile_name) == 56,
                  "QRV_H264_GEOMETRY.profile_name");
QRV_STATIC_ASSERT(offsetof(QRV_H264_GEOMETRY, level_text) == 88, "QRV_H264_GEOMETRY.level_text");
QRV_STATIC_ASSERT(sizeof(QRV_H264_GEOMETRY) == 96, "QRV_H264_GEOMETRY is 96 bytes");

/** Describes the pictures of a decoded SPS (from qrvutilRead_SPS and friends).
 * Reads `sps` only; writes every field of `g`, or nothing when it fails.
 * Returns QRV_OK; QRV_E_ARGUMENT for a null pointer; QRV_E_UNSUPPORTED for a
 * profile_idc whose SPS the reader does not decode in full (the record's
 * later fields would be guesses: 134, 135, 138, 139, 144 and unknown ones);
 * QRV_E_RANGE for a value the syntax does not allow (chroma_format_idc above
 * 3, a bit depth above 14, an unknown level_idc, cropping that leaves no
 * picture, a size beyond 32 bits).
 * - Profiles without the chroma syntax (Baseline, Main, Extended) are 8-bit
 *   4:2:0: their records hold bit_depth_*_minus8 = 8, which is not a depth.
 * - Cropping is in the standard's crop units: 2 x 2 samples for 4:2:0, 2 x 1
 *   for 4:2:2, 1 x 1 for 4:4:4 and monochrome (or separate colour planes);
 *   the vertical unit doubles when frame_mbs_only_flag is 0.
 * - The SAR is Table E-1's value for aspect_ratio_idc 1-16, sar_width:sar_height
 *   for 255 (Extended_SAR); 0:0 when absent, 0, reserved, or with a zero term.
 * - A VUI tick is one field period, whatever the coding (frames, fields or
 *   MBAFF): fps = time_scale / (2 x num_units_in_tick), so 50 / (2 x 1) is
 *   25/1 and 60000 / (2 x 1001) is 30000/1001, the nominal rate that common
 *   tools report. With fixed_frame_rate_flag 0 the actual rate may vary.
 * - profile_name follows Annex A with the intra and constrained forms
 *   (constraint_set3 on 110, 122, 244; constraint_set1 on 66); Progressive and
 *   Constrained High are named "High". level_text is "1b" for level_idc 9,
 *   and for 11 with constraint_set3 on profiles 66, 77 and 88. */
QRV_API int qrvutilGetGeometry(const SPS_DECODED *sps, QRV_H264_GEOMETRY *g);

QRV_EXTERN_C_END

#endif
