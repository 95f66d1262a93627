// Every field of the decoded parameter-set records, in record order, under
// the syntax element names the records use.
#include "h264_stream.h"

namespace qrvtool {

namespace {

template <typename T, size_t N>
Json list(const T (&values)[N])
{
    Json out = Json::array();
    for (const T &value : values)
        out.push_back(value);
    return out;
}

template <typename T, size_t N, size_t M>
Json list(const T (&values)[N][M])
{
    Json out = Json::array();
    for (const auto &row : values)
        out.push_back(list(row));
    return out;
}

Json hrdJson(const hdr_parameters &h)
{
    Json j;
#define FIELD(name) j[#name] = h.name
    FIELD(cpb_cnt_minus1);
    FIELD(bit_rate_scale);
    FIELD(cpb_size_scale);
    j["bit_rate_value_minus1"] = list(h.bit_rate_value_minus1);
    j["cpb_size_value_minus1"] = list(h.cpb_size_value_minus1);
    j["cbr_flag"] = list(h.cbr_flag);
    FIELD(initial_cpb_removal_delay_length_minus1);
    FIELD(cpb_removal_delay_length_minus1);
    FIELD(dpb_output_delay_length_minus1);
    FIELD(time_offset_length);
#undef FIELD
    return j;
}

} // namespace

Json spsJson(const SPS_DECODED &s)
{
    Json j;
#define FIELD(name) j[#name] = s.name
#define LIST(name) j[#name] = list(s.name)
    FIELD(forbidden_zero_bit);
    FIELD(nal_ref_idc);
    FIELD(nal_unit_type);
    FIELD(profile_idc);
    FIELD(constraint_set0_flag);
    FIELD(constraint_set1_flag);
    FIELD(constraint_set2_flag);
    FIELD(constraint_set3_flag);
    FIELD(constraint_set4_flag);
    FIELD(constraint_set5_flag);
    FIELD(reserved_zero_2bits);
    FIELD(level_idc);
    FIELD(seq_parameter_set_id);
    FIELD(chroma_format_idc);
    LIST(seq_scaling_list_present_flag);
    LIST(ScalingList4x4);
    LIST(UseDefaultScalingMatrix4x4Flag);
    LIST(ScalingList8x8);
    LIST(UseDefaultScalingMatrix8x8Flag);
    FIELD(separate_colour_plane_flag);
    FIELD(bit_depth_luma_minus8);
    FIELD(bit_depth_chroma_minus8);
    FIELD(qpprime_y_zero_transform_bypass_flag);
    FIELD(seq_scaling_matrix_present_flag);
    FIELD(log2_max_frame_num_minus4);
    FIELD(pic_order_cnt_type);
    FIELD(log2_max_pic_order_cnt_lsb_minus4);
    FIELD(delta_pic_order_always_zero_flag);
    FIELD(offset_for_non_ref_pic);
    FIELD(offset_for_top_to_bottom_field);
    FIELD(num_ref_frames_in_pic_order_cnt_cycle);
    FIELD(offset_for_ref_frame);
    FIELD(max_num_ref_frames);
    FIELD(gaps_in_frame_num_value_allowed_flag);
    FIELD(pic_width_in_mbs_minus1);
    FIELD(pic_height_in_map_units_minus1);
    FIELD(frame_mbs_only_flag);
    FIELD(mb_adaptive_frame_field_flag);
    FIELD(direct_8x8_inference_flag);
    FIELD(frame_cropping_flag);
    FIELD(frame_crop_left_offset);
    FIELD(frame_crop_right_offset);
    FIELD(frame_crop_top_offset);
    FIELD(frame_crop_bottom_offset);
    FIELD(vui_parameters_present_flag);
    FIELD(aspect_ratio_info_present_flag);
    FIELD(aspect_ratio_idc);
    FIELD(sar_width);
    FIELD(sar_height);
    FIELD(overscan_info_present_flag);
    FIELD(overscan_appropriate_flag);
    FIELD(video_signal_type_present_flag);
    FIELD(video_format);
    FIELD(video_full_range_flag);
    FIELD(colour_description_present_flag);
    FIELD(colour_primaries);
    FIELD(transfer_characteristics);
    FIELD(matrix_coefficients);
    FIELD(chroma_loc_info_present_flag);
    FIELD(chroma_sample_loc_type_top_field);
    FIELD(chroma_sample_loc_type_bottom_field);
    FIELD(timing_info_present_flag);
    FIELD(num_units_in_tick);
    FIELD(time_scale);
    FIELD(fixed_frame_rate_flag);
    FIELD(nal_hrd_parameters_present_flag);
    FIELD(vcl_hrd_parameters_present_flag);
    j["nal_hrd"] = hrdJson(s.nal_hrd);
    j["vcl_hrd"] = hrdJson(s.vcl_hrd);
    FIELD(low_delay_hrd_flag);
    FIELD(pic_struct_present_flag);
    FIELD(bitstream_restriction_flag);
    FIELD(motion_vectors_over_pic_boundaries_flag);
    FIELD(max_bytes_per_pic_denom);
    FIELD(max_bits_per_mb_denom);
    FIELD(log2_max_mv_length_horizontal);
    FIELD(log2_max_mv_length_vertical);
    FIELD(max_num_reorder_frames);
    FIELD(max_dec_frame_buffering);
    FIELD(rbsp_stop_one_bit);
#undef LIST
#undef FIELD
    return j;
}

Json ppsJson(const PPS_DECODED &p)
{
    Json j;
#define FIELD(name) j[#name] = p.name
#define LIST(name) j[#name] = list(p.name)
    FIELD(forbidden_zero_bit);
    FIELD(nal_ref_idc);
    FIELD(nal_unit_type);
    FIELD(pic_parameter_set_id);
    FIELD(seq_parameter_set_id);
    FIELD(entropy_coding_mode_flag);
    FIELD(pic_order_present_flag);
    FIELD(num_slice_groups_minus1);
    FIELD(slice_group_map_type);
    LIST(run_length_minus1);
    LIST(top_left);
    LIST(bottom_right);
    FIELD(slice_group_change_direction_flag);
    FIELD(slice_group_change_rate_minus1);
    FIELD(pic_size_in_map_units_minus1);
    LIST(slice_group_id);
    FIELD(num_ref_idx_l0_default_active_minus1);
    FIELD(num_ref_idx_l1_default_active_minus1);
    FIELD(weighted_pred_flag);
    FIELD(weighted_bipred_idc);
    FIELD(pic_init_qp_minus26);
    FIELD(pic_init_qs_minus26);
    FIELD(chroma_qp_index_offset);
    FIELD(deblocking_filter_control_present_flag);
    FIELD(constrained_intra_pred_flag);
    FIELD(redundant_pic_cnt_present_flag);
    FIELD(more_rbsp_data);
    FIELD(transform_8x8_mode_flag);
    FIELD(pic_scaling_matrix_present_flag);
    LIST(pic_scaling_list_present_flag);
    LIST(ScalingList4x4);
    LIST(UseDefaultScalingMatrix4x4Flag);
    LIST(ScalingList8x8);
    LIST(UseDefaultScalingMatrix8x8Flag);
    FIELD(second_chroma_qp_index_offset);
    FIELD(rbsp_stop_one_bit);
#undef LIST
#undef FIELD
    return j;
}

} // namespace qrvtool
