// Sequence parameter set reader.
#include <qrvutil/host.h>

#include <cstring>

#include "h264/syntax.h"

using namespace qrv;

namespace {

void readProfileAndLevel(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->profile_idc = readU(bs, 8);
    sps->constraint_set0_flag = readFlag(bs);
    sps->constraint_set1_flag = readFlag(bs);
    sps->constraint_set2_flag = readFlag(bs);
    sps->constraint_set3_flag = readFlag(bs);
    sps->constraint_set4_flag = readFlag(bs);
    sps->constraint_set5_flag = readFlag(bs);
    sps->reserved_zero_2bits = readU(bs, 2);
    sps->level_idc = readU(bs, 8);
    sps->seq_parameter_set_id = readUeField(bs);
}

void readChromaFormat(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->chroma_format_idc = readUeField(bs);
    if (sps->chroma_format_idc == 3)
        sps->separate_colour_plane_flag = readFlag(bs);
    sps->bit_depth_luma_minus8 = readUeField(bs);
    sps->bit_depth_chroma_minus8 = readUeField(bs);
    sps->qpprime_y_zero_transform_bypass_flag = readFlag(bs);
    sps->seq_scaling_matrix_present_flag = readFlag(bs);
    if (sps->seq_scaling_matrix_present_flag)
        readScalingMatrix(bs, sps->seq_scaling_list_present_flag, sps->ScalingList4x4,
                          sps->ScalingList8x8, sps->chroma_format_idc != 3 ? 8 : 12);
}

// Profiles without the chroma syntax get 4:2:0 and "minus8" depths of 8 (not
// 0): hosts size their sample buffers from these values as stored.
void setImpliedChromaFormat(SPS_DECODED *sps)
{
    sps->chroma_format_idc = 1;
    sps->bit_depth_luma_minus8 = 8;
    sps->bit_depth_chroma_minus8 = 8;
}

// The offsets are read as ue(v) codes, not se(v), and only the last of the
// cycle survives: recorders compare these stored values, so they stay so.
void readPicOrderCntType1(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->delta_pic_order_always_zero_flag = readFlag(bs);
    sps->offset_for_non_ref_pic = readUeField(bs);
    sps->offset_for_top_to_bottom_field = readUeField(bs);
    sps->num_ref_frames_in_pic_order_cnt_cycle = readUeField(bs);
    const int32_t cycle = sps->num_ref_frames_in_pic_order_cnt_cycle;
    for (int32_t i = 0; i < cycle; ++i) {
        if (skipLoopPastEnd(bs, static_cast<uint64_t>(cycle - i), 1)) {
            sps->offset_for_ref_frame = 0;
            break;
        }
        sps->offset_for_ref_frame = readUeField(bs);
    }
}

void readPicOrderCnt(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->log2_max_frame_num_minus4 = readUeField(bs);
    sps->pic_order_cnt_type = readUeField(bs);
    if (sps->pic_order_cnt_type == 0)
        sps->log2_max_pic_order_cnt_lsb_minus4 = readUeField(bs);
    else if (sps->pic_order_cnt_type == 1)
        readPicOrderCntType1(bs, sps);
}

void readFrameGeometry(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->max_num_ref_frames = readUeField(bs);
    sps->gaps_in_frame_num_value_allowed_flag = readFlag(bs);
    sps->pic_width_in_mbs_minus1 = readUeField(bs);
    sps->pic_height_in_map_units_minus1 = readUeField(bs);
    sps->frame_mbs_only_flag = readFlag(bs);
    if (!sps->frame_mbs_only_flag)
        sps->mb_adaptive_frame_field_flag = readFlag(bs);
    sps->direct_8x8_inference_flag = readFlag(bs);
    sps->frame_cropping_flag = readFlag(bs);
    if (sps->frame_cropping_flag) {
        sps->frame_crop_left_offset = readUeField(bs);
        sps->frame_crop_right_offset = readUeField(bs);
        sps->frame_crop_top_offset = readUeField(bs);
        sps->frame_crop_bottom_offset = readUeField(bs);
    }
}

void readAspectRatio(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->aspect_ratio_info_present_flag = readFlag(bs);
    if (!sps->aspect_ratio_info_present_flag)
        return;
    sps->aspect_ratio_idc = readU(bs, 8);
    if (sps->aspect_ratio_idc == kExtendedSar) {
        sps->sar_width = readU(bs, 16);
        sps->sar_height = readU(bs, 16);
    }
}

void readVideoSignalType(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->video_signal_type_present_flag = readFlag(bs);
    if (!sps->video_signal_type_present_flag)
        return;
    sps->video_format = readU(bs, 3);
    sps->video_full_range_flag = readFlag(bs);
    sps->colour_description_present_flag = readFlag(bs);
    if (sps->colour_description_present_flag) {
        sps->colour_primaries = readU(bs, 8);
        sps->transfer_characteristics = readU(bs, 8);
        sps->matrix_coefficients = readU(bs, 8);
    }
}

void readTimingInfo(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->timing_info_present_flag = readFlag(bs);
    if (!sps->timing_info_present_flag)
        return;
    sps->num_units_in_tick = readU(bs, 32);
    sps->time_scale = readU(bs, 32);
    sps->fixed_frame_rate_flag = readFlag(bs);
}

void readHrdBlocks(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->nal_hrd_parameters_present_flag = readFlag(bs);
    if (sps->nal_hrd_parameters_present_flag)
        read_hrd_parameters(&sps->nal_hrd, bs);
    sps->vcl_hrd_parameters_present_flag = readFlag(bs);
    if (sps->vcl_hrd_parameters_present_flag)
        read_hrd_parameters(&sps->vcl_hrd, bs);
    if (sps->nal_hrd_parameters_present_flag || sps->vcl_hrd_parameters_present_flag)
        sps->low_delay_hrd_flag = readFlag(bs);
}

void readBitstreamRestriction(kx_bitstream *bs, SPS_DECODED *sps)
{
    sps->bitstream_restriction_flag = readFlag(bs);
    if (!sps->bitstream_restriction_flag)
        return;
    sps->motion_vectors_over_pic_boundaries_flag = readFlag(bs);
    sps->max_bytes_per_pic_denom = readUeField(bs);
    sps->max_bits_per_mb_denom = readUeField(bs);
    sps->log2_max_mv_length_horizontal = readUeField(bs);
    sps->log2_max_mv_length_vertical = readUeField(bs);
    sps->max_num_reorder_frames = readUeField(bs);
    sps->max_dec_frame_buffering = readUeField(bs);
}

void readVuiParameters(kx_bitstream *bs, SPS_DECODED *sps)
{
    readAspectRatio(bs, sps);
    sps->overscan_info_present_flag = readFlag(bs);
    if (sps->overscan_info_present_flag)
        sps->overscan_appropriate_flag = readFlag(bs);
    readVideoSignalType(bs, sps);
    sps->chroma_loc_info_present_flag = readFlag(bs);
    if (sps->chroma_loc_info_present_flag) {
        sps->chroma_sample_loc_type_top_field = readUeField(bs);
        sps->chroma_sample_loc_type_bottom_field = readUeField(bs);
    }
    readTimingInfo(bs, sps);
    readHrdBlocks(bs, sps);
    sps->pic_struct_present_flag = readFlag(bs);
    readBitstreamRestriction(bs, sps);
}

void readSeqParameterSet(kx_bitstream *bs, SPS_DECODED *sps)
{
    readNalHeader(bs, sps);
    readProfileAndLevel(bs, sps);
    if (hasChromaSyntax(sps->profile_idc))
        readChromaFormat(bs, sps);
    else
        setImpliedChromaFormat(sps);
    readPicOrderCnt(bs, sps);
    readFrameGeometry(bs, sps);
    sps->vui_parameters_present_flag = readFlag(bs);
    if (sps->vui_parameters_present_flag)
        readVuiParameters(bs, sps);
    sps->rbsp_stop_one_bit = readFlag(bs);
    alignToByte(bs);
}

// The private copy, from the host allocator, with the reader's padding.
struct HostCopy {
    uint8_t *bytes = nullptr;
    HostCopy(const uint8_t *src, std::size_t size)
    {
        if (size > SIZE_MAX - kBitReaderPadding)
            return;
        bytes = static_cast<uint8_t *>(hostAlloc(size + kBitReaderPadding));
        if (!bytes)
            return;
        std::memcpy(bytes, src, size);
        std::memset(bytes + size, 0, kBitReaderPadding);
    }
    ~HostCopy() { hostFree(bytes); }
    HostCopy(const HostCopy &) = delete;
    HostCopy &operator=(const HostCopy &) = delete;
};

} // namespace

void qrv::readScalingList(kx_bitstream *bs, int32_t *list, int size)
{
    int32_t lastScale = 8;
    int32_t nextScale = 8;
    for (int j = 0; j < size; ++j) {
        if (nextScale != 0) {
            const int64_t sum = int64_t{lastScale} + readSe(bs) + 256;
            nextScale = static_cast<int32_t>(sum % 256);
        }
        list[j] = nextScale == 0 ? lastScale : nextScale;
        lastScale = list[j];
    }
}

void qrv::readScalingMatrix(kx_bitstream *bs, int32_t *presentFlags, int32_t (*lists4x4)[16],
                            int32_t (*lists8x8)[64], int32_t lists)
{
    for (int32_t i = 0; i < lists; ++i) {
        presentFlags[i] = readFlag(bs);
        if (!presentFlags[i]) // a flag read past the end (-1) counts as present
            continue;
        if (i < 6)
            readScalingList(bs, lists4x4[i], 16);
        else
            readScalingList(bs, lists8x8[i - 6], 64);
    }
}

void read_hrd_parameters(hdr_parameters *hrd, kx_bitstream *bs)
{
    hrd->cpb_cnt_minus1 = readUeField(bs);
    hrd->bit_rate_scale = readU(bs, 4);
    hrd->cpb_size_scale = readU(bs, 4);
    for (int64_t i = 0; i <= hrd->cpb_cnt_minus1; ++i) {
        if (i < QRV_HRD_MAX_CPB) {
            hrd->bit_rate_value_minus1[i] = readUeField(bs);
            hrd->cpb_size_value_minus1[i] = readUeField(bs);
            hrd->cbr_flag[i] = readFlag(bs);
            continue;
        }
        if (skipLoopPastEnd(bs, iterationsLeft(i, hrd->cpb_cnt_minus1), 3))
            break;
        readUe(bs);
        readUe(bs);
        readBits(bs, 1);
    }
    hrd->initial_cpb_removal_delay_length_minus1 = readU(bs, 5);
    hrd->cpb_removal_delay_length_minus1 = readU(bs, 5);
    hrd->dpb_output_delay_length_minus1 = readU(bs, 5);
    hrd->time_offset_length = readU(bs, 5);
}

int qrvutilRead_SPS(kx_bitstream *bs, SPS_DECODED *sps)
{
    if (!sps || !bs || bs->byte_size == 0)
        return 0;
    HostCopy copy(reinterpret_cast<const uint8_t *>(bs->buffer), bs->byte_size);
    if (!copy.bytes)
        return 0;
    removeEmulationPrevention(copy.bytes, bs->byte_size, kRemoveEmulation);
    {
        ReaderOnCopy onCopy(bs, copy.bytes, bs->byte_size);
        readSeqParameterSet(bs, sps);
    }
    return static_cast<int>(bs->bit_pos / 8);
}
