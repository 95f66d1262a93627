// The parameter-set syntax, written once in the standard's order and expanded
// three ways: by the readers (SyntaxReader below), by the writers
// (ps_write.cpp) and by validation (ps_validate.cpp).
//
// Each syntax element is one call on the expansion `io`:
//   io.u(el, field, bits[, max])   fixed-width unsigned
//   io.flag(el, field)             one bit
//   io.ue(el, field[, max])        ue(v)
//   io.se(el, field, min, max)     se(v)
// `el` names the element (and its index) for the reasons that validation and
// the writers give; `max`/`min` are the values the element can carry. The
// reader ignores both and stores what it reads, as it always has.
//
// Where the readers keep a behaviour that the stream does not say, the
// description calls a named step that only the reader acts on:
//   io.implied(field, value)   a value stored for syntax that is absent
//   io.kept(el, field, max)    a count the record keeps less of than the
//                              syntax allows: the writer refuses more
//   io.skipsRest(n, bits)      a loop past the end, finished in one step
//   io.drop...(el)             entries read past the record's arrays
#pragma once

#include <qrvutil/h264.h>

#include <cstdint>

#include "h264/syntax.h"

namespace qrv {

// A syntax element's name and, for arrays, its index.
struct El {
    const char *name;
    int index = -1;
    El(const char *n) : name(n) {} // NOLINT: element names read best bare
    El(const char *n, int64_t i) : name(n), index(static_cast<int>(i)) {}
};

// The largest ue(v) value that reads back: 0xFFFFFFFF needs 32 leading
// zeros, which the reader's code arithmetic wraps to 0.
constexpr uint32_t kUeMax = 0xFFFFFFFEu;

// kChromaSyntaxProfiles, hasChromaSyntax() and kExtendedSar come from
// h264/syntax.h, shared with the geometry helper.

// ---- Shared pieces ----------------------------------------------------------

template <typename IO, typename Rec>
void nalHeaderSyntax(IO &io, Rec *r)
{
    io.u("forbidden_zero_bit", r->forbidden_zero_bit, 1);
    io.u("nal_ref_idc", r->nal_ref_idc, 2);
    io.u("nal_unit_type", r->nal_unit_type, 5);
}

// The scaling matrix of either parameter set: for each of `lists` lists its
// present flag and, when set, the list (4x4 for the first six, 8x8 after).
// A flag read past the end (-1) counts as present.
template <typename IO, typename Flags, typename L4, typename L8>
void scalingMatrixSyntax(IO &io, const char *flagName, Flags *flags, L4 (*lists4x4)[16],
                         L8 (*lists8x8)[64], int32_t lists)
{
    for (int32_t i = 0; i < lists; ++i) {
        io.flag({flagName, i}, flags[i]);
        if (!flags[i])
            continue;
        if (i < 6)
            io.scalingList({"ScalingList4x4", i}, lists4x4[i], 16);
        else
            io.scalingList({"ScalingList8x8", i - 6}, lists8x8[i - 6], 64);
    }
}

// hrd_parameters(). Entries beyond the record's 8 are read and dropped, so
// the fields after the block stay in step with the stream.
template <typename IO, typename Hrd>
void hrdParametersSyntax(IO &io, Hrd *hrd)
{
    io.ue("cpb_cnt_minus1", hrd->cpb_cnt_minus1, 31);
    io.kept("cpb_cnt_minus1", hrd->cpb_cnt_minus1, QRV_HRD_MAX_CPB - 1);
    io.u("bit_rate_scale", hrd->bit_rate_scale, 4);
    io.u("cpb_size_scale", hrd->cpb_size_scale, 4);
    for (int64_t i = 0; i <= hrd->cpb_cnt_minus1; ++i) {
        if (i < QRV_HRD_MAX_CPB) {
            io.ue({"bit_rate_value_minus1", i}, hrd->bit_rate_value_minus1[i]);
            io.ue({"cpb_size_value_minus1", i}, hrd->cpb_size_value_minus1[i]);
            io.flag({"cbr_flag", i}, hrd->cbr_flag[i]);
            continue;
        }
        if (io.skipsRest(iterationsLeft(i, hrd->cpb_cnt_minus1), 3))
            break;
        io.dropUe({"bit_rate_value_minus1", i});
        io.dropUe({"cpb_size_value_minus1", i});
        io.dropBits({"cbr_flag", i}, 1);
    }
    io.u("initial_cpb_removal_delay_length_minus1", hrd->initial_cpb_removal_delay_length_minus1,
         5);
    io.u("cpb_removal_delay_length_minus1", hrd->cpb_removal_delay_length_minus1, 5);
    io.u("dpb_output_delay_length_minus1", hrd->dpb_output_delay_length_minus1, 5);
    io.u("time_offset_length", hrd->time_offset_length, 5);
}

// ---- Sequence parameter set ---------------------------------------------------

template <typename IO, typename Sps>
void profileAndLevelSyntax(IO &io, Sps *sps)
{
    io.u("profile_idc", sps->profile_idc, 8);
    io.flag("constraint_set0_flag", sps->constraint_set0_flag);
    io.flag("constraint_set1_flag", sps->constraint_set1_flag);
    io.flag("constraint_set2_flag", sps->constraint_set2_flag);
    io.flag("constraint_set3_flag", sps->constraint_set3_flag);
    io.flag("constraint_set4_flag", sps->constraint_set4_flag);
    io.flag("constraint_set5_flag", sps->constraint_set5_flag);
    io.u("reserved_zero_2bits", sps->reserved_zero_2bits, 2);
    io.u("level_idc", sps->level_idc, 8);
    io.ue("seq_parameter_set_id", sps->seq_parameter_set_id, 31);
}

template <typename IO, typename Sps>
void chromaFormatSyntax(IO &io, Sps *sps)
{
    if (!hasChromaSyntax(sps->profile_idc)) {
        // Kept: other profiles get 4:2:0 and "minus8" depths of 8 (not 0);
        // hosts size their sample buffers from these values as stored.
        io.implied(sps->chroma_format_idc, 1);
        io.implied(sps->bit_depth_luma_minus8, 8);
        io.implied(sps->bit_depth_chroma_minus8, 8);
        return;
    }
    io.ue("chroma_format_idc", sps->chroma_format_idc, 3);
    if (sps->chroma_format_idc == 3)
        io.flag("separate_colour_plane_flag", sps->separate_colour_plane_flag);
    io.ue("bit_depth_luma_minus8", sps->bit_depth_luma_minus8, 6);
    io.ue("bit_depth_chroma_minus8", sps->bit_depth_chroma_minus8, 6);
    io.flag("qpprime_y_zero_transform_bypass_flag", sps->qpprime_y_zero_transform_bypass_flag);
    io.flag("seq_scaling_matrix_present_flag", sps->seq_scaling_matrix_present_flag);
    if (sps->seq_scaling_matrix_present_flag)
        scalingMatrixSyntax(io, "seq_scaling_list_present_flag", sps->seq_scaling_list_present_flag,
                            sps->ScalingList4x4, sps->ScalingList8x8,
                            sps->chroma_format_idc != 3 ? 8 : 12);
}

// Kept: the type 1 offsets are ue(v) codes, not se(v), and the one
// offset_for_ref_frame field stands for every entry of the cycle (the reader
// keeps the last, the writer repeats it): recorders compare these stored
// values.
template <typename IO, typename Sps>
void picOrderCntType1Syntax(IO &io, Sps *sps)
{
    io.flag("delta_pic_order_always_zero_flag", sps->delta_pic_order_always_zero_flag);
    io.ue("offset_for_non_ref_pic", sps->offset_for_non_ref_pic);
    io.ue("offset_for_top_to_bottom_field", sps->offset_for_top_to_bottom_field);
    io.ue("num_ref_frames_in_pic_order_cnt_cycle", sps->num_ref_frames_in_pic_order_cnt_cycle, 255);
    const int32_t cycle = sps->num_ref_frames_in_pic_order_cnt_cycle;
    for (int32_t i = 0; i < cycle; ++i) {
        if (io.skipsRest(static_cast<uint64_t>(cycle - i), 1)) {
            io.implied(sps->offset_for_ref_frame, 0); // what a past-end ue(v) reads
            break;
        }
        io.ue({"offset_for_ref_frame", i}, sps->offset_for_ref_frame);
    }
}

template <typename IO, typename Sps>
void picOrderCntSyntax(IO &io, Sps *sps)
{
    io.ue("log2_max_frame_num_minus4", sps->log2_max_frame_num_minus4, 12);
    io.ue("pic_order_cnt_type", sps->pic_order_cnt_type, 2);
    if (sps->pic_order_cnt_type == 0)
        io.ue("log2_max_pic_order_cnt_lsb_minus4", sps->log2_max_pic_order_cnt_lsb_minus4, 12);
    else if (sps->pic_order_cnt_type == 1)
        picOrderCntType1Syntax(io, sps);
}

template <typename IO, typename Sps>
void frameGeometrySyntax(IO &io, Sps *sps)
{
    io.ue("max_num_ref_frames", sps->max_num_ref_frames, 16);
    io.flag("gaps_in_frame_num_value_allowed_flag", sps->gaps_in_frame_num_value_allowed_flag);
    io.ue("pic_width_in_mbs_minus1", sps->pic_width_in_mbs_minus1);
    io.ue("pic_height_in_map_units_minus1", sps->pic_height_in_map_units_minus1);
    io.flag("frame_mbs_only_flag", sps->frame_mbs_only_flag);
    if (!sps->frame_mbs_only_flag)
        io.flag("mb_adaptive_frame_field_flag", sps->mb_adaptive_frame_field_flag);
    io.flag("direct_8x8_inference_flag", sps->direct_8x8_inference_flag);
    io.flag("frame_cropping_flag", sps->frame_cropping_flag);
    if (sps->frame_cropping_flag) {
        io.ue("frame_crop_left_offset", sps->frame_crop_left_offset);
        io.ue("frame_crop_right_offset", sps->frame_crop_right_offset);
        io.ue("frame_crop_top_offset", sps->frame_crop_top_offset);
        io.ue("frame_crop_bottom_offset", sps->frame_crop_bottom_offset);
    }
}

template <typename IO, typename Sps>
void aspectRatioSyntax(IO &io, Sps *sps)
{
    io.flag("aspect_ratio_info_present_flag", sps->aspect_ratio_info_present_flag);
    if (!sps->aspect_ratio_info_present_flag)
        return;
    io.u("aspect_ratio_idc", sps->aspect_ratio_idc, 8);
    if (sps->aspect_ratio_idc == kExtendedSar) {
        io.u("sar_width", sps->sar_width, 16);
        io.u("sar_height", sps->sar_height, 16);
    }
}

template <typename IO, typename Sps>
void videoSignalTypeSyntax(IO &io, Sps *sps)
{
    io.flag("video_signal_type_present_flag", sps->video_signal_type_present_flag);
    if (!sps->video_signal_type_present_flag)
        return;
    io.u("video_format", sps->video_format, 3);
    io.flag("video_full_range_flag", sps->video_full_range_flag);
    io.flag("colour_description_present_flag", sps->colour_description_present_flag);
    if (sps->colour_description_present_flag) {
        io.u("colour_primaries", sps->colour_primaries, 8);
        io.u("transfer_characteristics", sps->transfer_characteristics, 8);
        io.u("matrix_coefficients", sps->matrix_coefficients, 8);
    }
}

template <typename IO, typename Sps>
void timingInfoSyntax(IO &io, Sps *sps)
{
    io.flag("timing_info_present_flag", sps->timing_info_present_flag);
    if (!sps->timing_info_present_flag)
        return;
    io.u("num_units_in_tick", sps->num_units_in_tick, 32);
    io.u("time_scale", sps->time_scale, 32);
    io.flag("fixed_frame_rate_flag", sps->fixed_frame_rate_flag);
}

template <typename IO, typename Sps>
void hrdBlocksSyntax(IO &io, Sps *sps)
{
    io.flag("nal_hrd_parameters_present_flag", sps->nal_hrd_parameters_present_flag);
    if (sps->nal_hrd_parameters_present_flag)
        io.hrd(&sps->nal_hrd);
    io.flag("vcl_hrd_parameters_present_flag", sps->vcl_hrd_parameters_present_flag);
    if (sps->vcl_hrd_parameters_present_flag)
        io.hrd(&sps->vcl_hrd);
    if (sps->nal_hrd_parameters_present_flag || sps->vcl_hrd_parameters_present_flag)
        io.flag("low_delay_hrd_flag", sps->low_delay_hrd_flag);
}

template <typename IO, typename Sps>
void bitstreamRestrictionSyntax(IO &io, Sps *sps)
{
    io.flag("bitstream_restriction_flag", sps->bitstream_restriction_flag);
    if (!sps->bitstream_restriction_flag)
        return;
    io.flag("motion_vectors_over_pic_boundaries_flag",
            sps->motion_vectors_over_pic_boundaries_flag);
    io.ue("max_bytes_per_pic_denom", sps->max_bytes_per_pic_denom, 16);
    io.ue("max_bits_per_mb_denom", sps->max_bits_per_mb_denom, 16);
    io.ue("log2_max_mv_length_horizontal", sps->log2_max_mv_length_horizontal, 16);
    io.ue("log2_max_mv_length_vertical", sps->log2_max_mv_length_vertical, 16);
    io.ue("max_num_reorder_frames", sps->max_num_reorder_frames, 16);
    io.ue("max_dec_frame_buffering", sps->max_dec_frame_buffering, 16);
}

template <typename IO, typename Sps>
void vuiParametersSyntax(IO &io, Sps *sps)
{
    aspectRatioSyntax(io, sps);
    io.flag("overscan_info_present_flag", sps->overscan_info_present_flag);
    if (sps->overscan_info_present_flag)
        io.flag("overscan_appropriate_flag", sps->overscan_appropriate_flag);
    videoSignalTypeSyntax(io, sps);
    io.flag("chroma_loc_info_present_flag", sps->chroma_loc_info_present_flag);
    if (sps->chroma_loc_info_present_flag) {
        io.ue("chroma_sample_loc_type_top_field", sps->chroma_sample_loc_type_top_field, 5);
        io.ue("chroma_sample_loc_type_bottom_field", sps->chroma_sample_loc_type_bottom_field, 5);
    }
    timingInfoSyntax(io, sps);
    hrdBlocksSyntax(io, sps);
    io.flag("pic_struct_present_flag", sps->pic_struct_present_flag);
    bitstreamRestrictionSyntax(io, sps);
}

// seq_parameter_set_rbsp(), NAL header byte first.
template <typename IO, typename Sps>
void seqParameterSetSyntax(IO &io, Sps *sps)
{
    nalHeaderSyntax(io, sps);
    profileAndLevelSyntax(io, sps);
    chromaFormatSyntax(io, sps);
    picOrderCntSyntax(io, sps);
    frameGeometrySyntax(io, sps);
    io.flag("vui_parameters_present_flag", sps->vui_parameters_present_flag);
    if (sps->vui_parameters_present_flag)
        vuiParametersSyntax(io, sps);
    io.trailingBits(sps->rbsp_stop_one_bit);
}

// ---- Picture parameter set ------------------------------------------------------

// Loops run to the count the stream gives; entries past the record's arrays
// are read and dropped so the fields after them stay in step.
template <typename IO, typename Pps>
void sliceGroupRunsSyntax(IO &io, Pps *pps)
{
    const int32_t last = pps->num_slice_groups_minus1;
    for (int64_t i = 0; i <= last; ++i) {
        if (i < QRV_PPS_MAX_SLICE_GROUPS) {
            io.ue({"run_length_minus1", i}, pps->run_length_minus1[i]);
            continue;
        }
        if (io.skipsRest(iterationsLeft(i, last), 1))
            break;
        io.dropUe({"run_length_minus1", i});
    }
}

template <typename IO, typename Pps>
void sliceGroupRectanglesSyntax(IO &io, Pps *pps)
{
    const int32_t last = pps->num_slice_groups_minus1;
    for (int64_t i = 0; i <= last; ++i) {
        if (i < QRV_PPS_MAX_SLICE_GROUPS) {
            io.ue({"top_left", i}, pps->top_left[i]);
            io.ue({"bottom_right", i}, pps->bottom_right[i]);
            continue;
        }
        if (io.skipsRest(iterationsLeft(i, last), 2))
            break;
        io.dropUe({"top_left", i});
        io.dropUe({"bottom_right", i});
    }
}

template <typename IO, typename Pps>
void sliceGroupIdsSyntax(IO &io, Pps *pps)
{
    io.ue("pic_size_in_map_units_minus1", pps->pic_size_in_map_units_minus1);
    io.kept("pic_size_in_map_units_minus1", pps->pic_size_in_map_units_minus1,
            QRV_PPS_MAX_SLICE_GROUP_IDS - 1);
    const int32_t bits = ceilLog2(uint64_t(uint32_t(pps->num_slice_groups_minus1)) + 1);
    const int32_t last = pps->pic_size_in_map_units_minus1;
    for (int64_t i = 0; i <= last; ++i) {
        if (i < QRV_PPS_MAX_SLICE_GROUP_IDS) {
            io.u({"slice_group_id", i}, pps->slice_group_id[i], bits,
                 static_cast<uint32_t>(pps->num_slice_groups_minus1));
            continue;
        }
        if (io.skipsRest(iterationsLeft(i, last), static_cast<uint32_t>(bits)))
            break;
        io.dropBits({"slice_group_id", i}, bits);
    }
}

template <typename IO, typename Pps>
void sliceGroupsSyntax(IO &io, Pps *pps)
{
    io.ue("slice_group_map_type", pps->slice_group_map_type, 6);
    switch (pps->slice_group_map_type) {
    case 0: sliceGroupRunsSyntax(io, pps); break;
    case 2: sliceGroupRectanglesSyntax(io, pps); break;
    case 3:
    case 4:
    case 5:
        io.flag("slice_group_change_direction_flag", pps->slice_group_change_direction_flag);
        io.ue("slice_group_change_rate_minus1", pps->slice_group_change_rate_minus1);
        break;
    case 6: sliceGroupIdsSyntax(io, pps); break;
    default: // 1 and unknown types carry nothing more
        break;
    }
}

template <typename IO, typename Pps>
void picDefaultsSyntax(IO &io, Pps *pps)
{
    io.ue("num_ref_idx_l0_default_active_minus1", pps->num_ref_idx_l0_default_active_minus1, 31);
    io.ue("num_ref_idx_l1_default_active_minus1", pps->num_ref_idx_l1_default_active_minus1, 31);
    io.flag("weighted_pred_flag", pps->weighted_pred_flag);
    io.u("weighted_bipred_idc", pps->weighted_bipred_idc, 2, 2);
    io.se("pic_init_qp_minus26", pps->pic_init_qp_minus26, -(26 + 48), 25);
    io.se("pic_init_qs_minus26", pps->pic_init_qs_minus26, -26, 25);
    io.se("chroma_qp_index_offset", pps->chroma_qp_index_offset, -12, 12);
    io.flag("deblocking_filter_control_present_flag", pps->deblocking_filter_control_present_flag);
    io.flag("constrained_intra_pred_flag", pps->constrained_intra_pred_flag);
    io.flag("redundant_pic_cnt_present_flag", pps->redundant_pic_cnt_present_flag);
}

// The optional tail. Kept: six lists plus two per transform flag, whatever
// the chroma format, so the further 8x8 lists of 4:4:4 chroma are not part of
// it. A transform flag read past the end (-1) shortens the loop to four.
template <typename IO, typename Pps>
void picTailSyntax(IO &io, Pps *pps)
{
    io.flag("transform_8x8_mode_flag", pps->transform_8x8_mode_flag);
    io.flag("pic_scaling_matrix_present_flag", pps->pic_scaling_matrix_present_flag);
    if (pps->pic_scaling_matrix_present_flag)
        scalingMatrixSyntax(io, "pic_scaling_list_present_flag", pps->pic_scaling_list_present_flag,
                            pps->ScalingList4x4, pps->ScalingList8x8,
                            6 + 2 * pps->transform_8x8_mode_flag);
    io.se("second_chroma_qp_index_offset", pps->second_chroma_qp_index_offset, -12, 12);
}

// pic_parameter_set_rbsp(), NAL header byte first.
template <typename IO, typename Pps>
void picParameterSetSyntax(IO &io, Pps *pps)
{
    nalHeaderSyntax(io, pps);
    io.ue("pic_parameter_set_id", pps->pic_parameter_set_id, 255);
    io.ue("seq_parameter_set_id", pps->seq_parameter_set_id, 31);
    io.flag("entropy_coding_mode_flag", pps->entropy_coding_mode_flag);
    io.flag("pic_order_present_flag", pps->pic_order_present_flag);
    io.ue("num_slice_groups_minus1", pps->num_slice_groups_minus1, QRV_PPS_MAX_SLICE_GROUPS - 1);
    if (pps->num_slice_groups_minus1 >= 1)
        sliceGroupsSyntax(io, pps);
    picDefaultsSyntax(io, pps);
    if (io.moreRbspData(pps->more_rbsp_data))
        picTailSyntax(io, pps);
    io.trailingBits(pps->rbsp_stop_one_bit);
}

// ---- The readers' expansion -----------------------------------------------------

// Stores what it reads; ranges and names are not its business. Reads past
// the end give all-ones values, as the bit reader does.
struct SyntaxReader {
    kx_bitstream *bs;

    void u(El, int32_t &f, int32_t bits, uint32_t = 0) { f = readU(bs, bits); }
    void flag(El, int32_t &f) { f = readFlag(bs); }
    void ue(El, int32_t &f, uint32_t = kUeMax) { f = readUeField(bs); }
    void se(El, int32_t &f, int32_t, int32_t) { f = readSe(bs); }
    void implied(int32_t &f, int32_t value) { f = value; }
    void kept(El, int32_t, int32_t) {}
    bool skipsRest(uint64_t remaining, uint32_t bits)
    {
        return skipLoopPastEnd(bs, remaining, bits);
    }
    void dropUe(El) { readUe(bs); }
    void dropBits(El, int32_t bits) { readBits(bs, bits); }
    void scalingList(El, int32_t *list, int size) { readScalingList(bs, list, size); }
    void hrd(hdr_parameters *h) { read_hrd_parameters(h, bs); }
    bool moreRbspData(int32_t &more);
    void trailingBits(int32_t &stopBit)
    {
        stopBit = readFlag(bs);
        alignToByte(bs);
    }
};

} // namespace qrv
