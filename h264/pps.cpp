// Picture parameter set reader.
#include <cstring>
#include <memory>
#include <new>

#include "h264/syntax.h"

using namespace qrv;

namespace {

// Loops run to the count the stream gives; entries past the record's arrays
// are read and dropped so the fields after them stay in step.
void readSliceGroupRuns(kx_bitstream *bs, PPS_DECODED *pps)
{
    const int32_t last = pps->num_slice_groups_minus1;
    for (int64_t i = 0; i <= last; ++i) {
        if (i < QRV_PPS_MAX_SLICE_GROUPS) {
            pps->run_length_minus1[i] = readUeField(bs);
            continue;
        }
        if (skipLoopPastEnd(bs, iterationsLeft(i, last), 1))
            break;
        readUe(bs);
    }
}

void readSliceGroupRectangles(kx_bitstream *bs, PPS_DECODED *pps)
{
    const int32_t last = pps->num_slice_groups_minus1;
    for (int64_t i = 0; i <= last; ++i) {
        if (i < QRV_PPS_MAX_SLICE_GROUPS) {
            pps->top_left[i] = readUeField(bs);
            pps->bottom_right[i] = readUeField(bs);
            continue;
        }
        if (skipLoopPastEnd(bs, iterationsLeft(i, last), 2))
            break;
        readUe(bs);
        readUe(bs);
    }
}

void readSliceGroupIds(kx_bitstream *bs, PPS_DECODED *pps)
{
    pps->pic_size_in_map_units_minus1 = readUeField(bs);
    const int32_t bits = ceilLog2(uint64_t(uint32_t(pps->num_slice_groups_minus1)) + 1);
    const int32_t last = pps->pic_size_in_map_units_minus1;
    for (int64_t i = 0; i <= last; ++i) {
        if (i < QRV_PPS_MAX_SLICE_GROUP_IDS) {
            pps->slice_group_id[i] = readU(bs, bits);
            continue;
        }
        if (skipLoopPastEnd(bs, iterationsLeft(i, last), static_cast<uint32_t>(bits)))
            break;
        readBits(bs, bits);
    }
}

void readSliceGroups(kx_bitstream *bs, PPS_DECODED *pps)
{
    pps->slice_group_map_type = readUeField(bs);
    switch (pps->slice_group_map_type) {
    case 0:
        readSliceGroupRuns(bs, pps);
        break;
    case 2:
        readSliceGroupRectangles(bs, pps);
        break;
    case 3:
    case 4:
    case 5:
        pps->slice_group_change_direction_flag = readFlag(bs);
        pps->slice_group_change_rate_minus1 = readUeField(bs);
        break;
    case 6:
        readSliceGroupIds(bs, pps);
        break;
    default: // 1 and unknown types carry nothing more
        break;
    }
}

void readDefaults(kx_bitstream *bs, PPS_DECODED *pps)
{
    pps->num_ref_idx_l0_default_active_minus1 = readUeField(bs);
    pps->num_ref_idx_l1_default_active_minus1 = readUeField(bs);
    pps->weighted_pred_flag = readFlag(bs);
    pps->weighted_bipred_idc = readU(bs, 2);
    pps->pic_init_qp_minus26 = readSe(bs);
    pps->pic_init_qs_minus26 = readSe(bs);
    pps->chroma_qp_index_offset = readSe(bs);
    pps->deblocking_filter_control_present_flag = readFlag(bs);
    pps->constrained_intra_pred_flag = readFlag(bs);
    pps->redundant_pic_cnt_present_flag = readFlag(bs);
}

// Stands in for more_rbsp_data(): peeks the seven bits after the current one
// (the current bit itself is never looked at) while they lie before the end,
// and keeps the last bit peeked. Peers decide on the optional tail this same
// way, so a tail that starts with eight 0 bits is taken as absent. A record
// that comes in with the field already set skips the look.
void lookAheadForTail(kx_bitstream *bs, PPS_DECODED *pps)
{
    if (pps->more_rbsp_data != 0)
        return;
    for (int32_t n = 1; n <= 7 && bs->bit_pos + static_cast<uintptr_t>(n) < bs->bit_end; ++n) {
        pps->more_rbsp_data = PeekBit(bs, n);
        if (pps->more_rbsp_data == 1)
            break;
    }
}

void readTail(kx_bitstream *bs, PPS_DECODED *pps)
{
    pps->transform_8x8_mode_flag = readFlag(bs);
    pps->pic_scaling_matrix_present_flag = readFlag(bs);
    // Six lists plus two per transform flag, whatever the chroma format: the
    // 8x8 lists of 4:4:4 chroma are not read here. A transform flag read past
    // the end (-1) shortens the loop to four lists.
    if (pps->pic_scaling_matrix_present_flag)
        readScalingMatrix(bs, pps->pic_scaling_list_present_flag, pps->ScalingList4x4,
                          pps->ScalingList8x8, 6 + 2 * pps->transform_8x8_mode_flag);
    pps->second_chroma_qp_index_offset = readSe(bs);
}

void readPicParameterSet(kx_bitstream *bs, PPS_DECODED *pps)
{
    readNalHeader(bs, pps);
    pps->pic_parameter_set_id = readUeField(bs);
    pps->seq_parameter_set_id = readUeField(bs);
    pps->entropy_coding_mode_flag = readFlag(bs);
    pps->pic_order_present_flag = readFlag(bs);
    pps->num_slice_groups_minus1 = readUeField(bs);
    if (pps->num_slice_groups_minus1 >= 1)
        readSliceGroups(bs, pps);
    readDefaults(bs, pps);
    lookAheadForTail(bs, pps);
    if (pps->more_rbsp_data != 0)
        readTail(bs, pps);
    pps->rbsp_stop_one_bit = readFlag(bs);
    alignToByte(bs);
}

} // namespace

int qrvutilRead_PPS(kx_bitstream *bs, PPS_DECODED *pps)
{
    if (!pps || !bs)
        return 0;
    const std::size_t size = bs->byte_size;
    if (size > SIZE_MAX - kBitReaderPadding)
        return 0;
    std::unique_ptr<uint8_t[]> copy(new (std::nothrow) uint8_t[size + kBitReaderPadding]);
    if (!copy)
        return 0;
    if (size != 0)
        std::memcpy(copy.get(), reinterpret_cast<const uint8_t *>(bs->buffer), size);
    std::memset(copy.get() + size, 0, kBitReaderPadding);
    removeEmulationPrevention(copy.get(), size, kRemoveEmulationPps);
    {
        ReaderOnCopy onCopy(bs, copy.get(), size);
        readPicParameterSet(bs, pps);
    }
    return static_cast<int>(bs->bit_pos / 8);
}
