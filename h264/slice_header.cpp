// Slice header reader and the in-place CABAC alignment fix.
#include <cmath>
#include <cstring>

#include "h264/syntax.h"

using namespace qrv;

namespace {

// Slice headers are read from a copy of at most this many leading bytes of
// the unit; a header never reaches further in the streams recorded.
constexpr std::size_t kSliceCopyBytes = 256;

bool isPOrSp(int32_t kind) { return kind == kSliceP || kind == kSliceSP; }

bool hasRefLists(int32_t kind) { return kind == kSliceP || kind == kSliceSP || kind == kSliceB; }

bool isIOrSi(int32_t kind) { return kind == kSliceI || kind == kSliceSI; }

// The fields before the header that depend on the picture structure.
void readFrameAndField(kx_bitstream *bs, SLICE_HEADER *sh, const SPS_DECODED *sps)
{
    if (sps->separate_colour_plane_flag == 1)
        readBits(bs, 2); // colour_plane_id: the record has no place for it
    sh->frame_num = readU(bs, static_cast<int32_t>(uint32_t(sps->log2_max_frame_num_minus4) + 4));
    if (!sps->frame_mbs_only_flag) {
        sh->field_pic_flag = readFlag(bs);
        if (sh->field_pic_flag)
            sh->bottom_field_flag = readFlag(bs);
    }
}

void readPicOrderCnt(kx_bitstream *bs, SLICE_HEADER *sh, const SPS_DECODED *sps,
                     const PPS_DECODED *pps)
{
    const bool bottomDelta = pps->pic_order_present_flag && !sh->field_pic_flag;
    if (sps->pic_order_cnt_type == 0) {
        const uint32_t bits = uint32_t(sps->log2_max_pic_order_cnt_lsb_minus4) + 4;
        sh->pic_order_cnt_lsb = readU(bs, static_cast<int32_t>(bits));
        if (bottomDelta)
            sh->delta_pic_order_cnt_bottom = readSe(bs);
    }
    if (sps->pic_order_cnt_type == 1 && !sps->delta_pic_order_always_zero_flag) {
        sh->delta_pic_order_cnt[0] = readSe(bs);
        if (bottomDelta)
            sh->delta_pic_order_cnt[1] = readSe(bs);
    }
}

// Absent counts take the picture parameter set's defaults.
void readRefIdxOverride(kx_bitstream *bs, SLICE_HEADER *sh, const PPS_DECODED *pps, int32_t kind)
{
    sh->num_ref_idx_active_override_flag = readFlag(bs);
    if (!sh->num_ref_idx_active_override_flag) {
        sh->num_ref_idx_l0_active_minus1 = pps->num_ref_idx_l0_default_active_minus1;
        sh->num_ref_idx_l1_active_minus1 = pps->num_ref_idx_l1_default_active_minus1;
        return;
    }
    sh->num_ref_idx_l0_active_minus1 = readUeField(bs);
    if (kind == kSliceB)
        sh->num_ref_idx_l1_active_minus1 = readUeField(bs);
}

void readQuantAndDeblocking(kx_bitstream *bs, SLICE_HEADER *sh, const PPS_DECODED *pps,
                            int32_t kind)
{
    if (pps->entropy_coding_mode_flag && !isIOrSi(kind))
        sh->cabac_init_idc = readUeField(bs);
    sh->slice_qp_delta = readSe(bs);
    if (kind == kSliceSP || kind == kSliceSI) {
        if (kind == kSliceSP)
            sh->sp_for_switch_flag = readFlag(bs);
        sh->slice_qs_delta = readSe(bs);
    }
    if (pps->deblocking_filter_control_present_flag) {
        sh->disable_deblocking_filter_idc = readUeField(bs);
        if (sh->disable_deblocking_filter_idc != 1) {
            sh->slice_alpha_c0_offset_div2 = readSe(bs);
            sh->slice_beta_offset_div2 = readSe(bs);
        }
    }
}

// floor(log2(x + y + 1)) over the PPS's map-unit count and change rate,
// summed in floating point. Recorded streams and peers size the field this
// way (not by the ceiling of the rate-divided count), so it is kept.
int32_t sliceGroupChangeCycleBits(const PPS_DECODED *pps)
{
    const double sum = double(pps->pic_size_in_map_units_minus1) +
                       double(pps->slice_group_change_rate_minus1) + 1.0;
    if (!(sum >= 1.0))
        return 0; // nothing to read for a count that is not positive
    return static_cast<int32_t>(std::floor(std::log2(sum)));
}

void readSliceGroupChangeCycle(kx_bitstream *bs, SLICE_HEADER *sh, const PPS_DECODED *pps)
{
    const int32_t type = pps->slice_group_map_type;
    if (pps->num_slice_groups_minus1 > 0 && type >= 3 && type <= 5)
        sh->slice_group_change_cycle = readU(bs, sliceGroupChangeCycleBits(pps));
}

// first_mb_in_slice through slice_group_change_cycle. Marking is read only
// when `markingRefIdc` is not 0 (the in-place fix; the plain reader never
// reads it and goes on with the fields after it as they stand).
void readSliceHeaderFields(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps,
                           uint32_t nal_unit_type, int32_t markingRefIdc)
{
    sh->first_mb_in_slice = readUeField(bs);
    sh->slice_type = readUeField(bs);
    sh->pic_parameter_set_id = readUeField(bs);
    readFrameAndField(bs, sh, sps);
    if (nal_unit_type == nal::kSliceIdr)
        sh->idr_pic_id = readUeField(bs);
    readPicOrderCnt(bs, sh, sps, pps);
    if (pps->redundant_pic_cnt_present_flag)
        sh->redundant_pic_cnt = readUeField(bs);
    const int32_t kind = sliceKind(sh->slice_type);
    if (kind == kSliceB)
        sh->direct_spatial_mv_pred_flag = readFlag(bs);
    if (hasRefLists(kind))
        readRefIdxOverride(bs, sh, pps, kind);
    if (nal_unit_type != nal::kSliceExtension)
        read_ref_pic_list_reordering(bs, sh);
    // Weighted bi-prediction tables of B slices are not read: the fields
    // after them are taken from where the table stands, as peers do.
    if (pps->weighted_pred_flag && isPOrSp(kind))
        read_pred_weight_table(bs, sh, sps, pps);
    if (markingRefIdc != 0)
        read_dec_ref_pic_marking(bs, sh, nal_unit_type);
    readQuantAndDeblocking(bs, sh, pps, kind);
    readSliceGroupChangeCycle(bs, sh, pps);
}

// One pass of the plain reader from bit 0. A CAVLC header is followed by one
// bit that lands in the PPS record's last field; hosts look for it there.
void readSliceUnit(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps,
                   int nal_unit_type)
{
    bs->bit_pos = 0;
    readNalHeader(bs, sh);
    readSliceHeaderFields(bs, sh, sps, pps, static_cast<uint32_t>(nal_unit_type), 0);
    if (!pps->entropy_coding_mode_flag)
        pps->rbsp_stop_one_bit = readFlag(bs);
}

// cabac_alignment_one_bit up to the byte boundary. The first 0 bit sends
// the whole header through the reader once more; a second 0 ends the check.
void checkCabacAlignment(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps,
                         int nal_unit_type)
{
    bool reparsed = false;
    while ((bs->bit_pos & 7) != 0) {
        if (readBit(bs) != 0)
            continue;
        if (reparsed)
            break;
        reparsed = true;
        readSliceUnit(bs, sh, sps, pps, nal_unit_type);
    }
    alignToByte(bs);
}

// Rewrites the alignment bits as 1 then 0s, in the caller's buffer. Bits at
// or past the reader's end are stepped over, never written.
void rewriteCabacAlignment(kx_bitstream *bs)
{
    int bit = 1;
    while ((bs->bit_pos & 7) != 0) {
        if (bs->bit_pos < bs->bit_end)
            WriteBit(bs, bit);
        else
            ++bs->bit_pos;
        bit = 0;
    }
}

struct WeightList {
    int32_t *lumaFlag;
    int32_t *lumaWeight;
    int32_t *lumaOffset;
    int32_t *chromaFlag;
    int32_t (*chromaWeight)[2];
    int32_t (*chromaOffset)[2];
};

// An entry beyond the record's 64 is read for its length and its values
// dropped; the flags are single fields and take every entry's flag.
void readWeightEntry(kx_bitstream *bs, const WeightList &list, int64_t i, bool chroma)
{
    const bool keep = i < QRV_MAX_REF_IDX;
    *list.lumaFlag = readFlag(bs);
    if (*list.lumaFlag) { // 1, or -1 when read past the end
        const int32_t weight = readSe(bs);
        const int32_t offset = readSe(bs);
        if (keep) {
            list.lumaWeight[i] = weight;
            list.lumaOffset[i] = offset;
        }
    }
    if (!chroma)
        return;
    *list.chromaFlag = readFlag(bs);
    for (int j = 0; *list.chromaFlag && j < 2; ++j) {
        const int32_t weight = readSe(bs);
        const int32_t offset = readSe(bs);
        if (keep) {
            list.chromaWeight[i][j] = weight;
            list.chromaOffset[i][j] = offset;
        }
    }
}

// Past the end an entry costs a -1 flag and two se(v) bits for luma, the
// same again plus two more se(v) for chroma.
void readWeightList(kx_bitstream *bs, const WeightList &list, int32_t last, bool chroma)
{
    const uint32_t bitsPastEnd = chroma ? 8 : 3;
    for (int64_t i = 0; i <= last; ++i) {
        if (i >= QRV_MAX_REF_IDX && skipLoopPastEnd(bs, iterationsLeft(i, last), bitsPastEnd)) {
            *list.lumaFlag = -1;
            if (chroma)
                *list.chromaFlag = -1;
            break;
        }
        readWeightEntry(bs, list, i, chroma);
    }
}

// Iterations overwrite the same fields until idc 3, or until the reader
// reaches its end (a truncated unit would otherwise read idc 0 forever).
void readReorderingLoop(kx_bitstream *bs, SLICE_HEADER *sh)
{
    do {
        sh->reordering_of_pic_nums_idc = readUeField(bs);
        const int32_t idc = sh->reordering_of_pic_nums_idc;
        if (idc == 0 || idc == 1)
            sh->abs_diff_pic_num_minus1 = readUeField(bs);
        else if (idc == 2)
            sh->long_term_pic_num = readUeField(bs);
    } while (sh->reordering_of_pic_nums_idc != 3 && !IsEndOfStream(bs));
}

// Both lists share the iteration fields; only the flag is per list.
void readReorderingList(kx_bitstream *bs, SLICE_HEADER *sh, int32_t *flag)
{
    *flag = readFlag(bs);
    if (*flag)
        readReorderingLoop(bs, sh);
}

void readMemoryManagementLoop(kx_bitstream *bs, SLICE_HEADER *sh)
{
    do {
        sh->memory_management_control_operation = readUeField(bs);
        const int32_t op = sh->memory_management_control_operation;
        if (op == 1 || op == 3)
            sh->difference_of_pic_nums_minus1 = readUeField(bs);
        if (op == 2)
            sh->mmco_long_term_pic_num = readUeField(bs);
        if (op == 3 || op == 6)
            sh->long_term_frame_idx = readUeField(bs);
        if (op == 4)
            sh->max_long_term_frame_idx_plus1 = readUeField(bs);
    } while (sh->memory_management_control_operation != 0 && !IsEndOfStream(bs));
}

bool recordsPresent(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps)
{
    return bs && sh && sps && pps;
}

} // namespace

void read_ref_pic_list_reordering(kx_bitstream *bs, SLICE_HEADER *sh)
{
    const int32_t kind = sliceKind(sh->slice_type);
    if (isIOrSi(kind))
        return;
    readReorderingList(bs, sh, &sh->ref_pic_list_reordering_flag_l0);
    if (kind == kSliceB)
        readReorderingList(bs, sh, &sh->ref_pic_list_reordering_flag_l1);
}

void read_pred_weight_table(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps)
{
    (void)pps; // counts come from the slice header, defaults included
    const bool chroma = sps->chroma_format_idc != 0;
    sh->luma_log2_weight_denom = readUeField(bs);
    if (chroma)
        sh->chroma_log2_weight_denom = readUeField(bs);
    const WeightList l0{&sh->luma_weight_l0_flag,   sh->luma_weight_l0,   sh->luma_offset_l0,
                        &sh->chroma_weight_l0_flag, sh->chroma_weight_l0, sh->chroma_offset_l0};
    readWeightList(bs, l0, sh->num_ref_idx_l0_active_minus1, chroma);
    if (sliceKind(sh->slice_type) != kSliceB)
        return;
    const WeightList l1{&sh->luma_weight_l1_flag,   sh->luma_weight_l1,   sh->luma_offset_l1,
                        &sh->chroma_weight_l1_flag, sh->chroma_weight_l1, sh->chroma_offset_l1};
    readWeightList(bs, l1, sh->num_ref_idx_l1_active_minus1, chroma);
}

void read_dec_ref_pic_marking(kx_bitstream *bs, SLICE_HEADER *sh, unsigned nal_unit_type)
{
    if (nal_unit_type == nal::kSliceIdr) {
        sh->no_output_of_prior_pics_flag = readFlag(bs);
        sh->long_term_reference_flag = readFlag(bs);
        return;
    }
    sh->adaptive_ref_pic_marking_mode_flag = readFlag(bs);
    if (sh->adaptive_ref_pic_marking_mode_flag)
        readMemoryManagementLoop(bs, sh);
}

int qrvutilRead_SliceHeader(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps,
                            int nal_unit_type)
{
    if (!recordsPresent(bs, sh, sps, pps))
        return 0;
    uint8_t copy[kSliceCopyBytes + kBitReaderPadding] = {};
    const std::size_t size = bs->byte_size < kSliceCopyBytes ? bs->byte_size : kSliceCopyBytes;
    if (size != 0)
        std::memcpy(copy, reinterpret_cast<const uint8_t *>(bs->buffer), size);
    removeEmulationPrevention(copy, size, kRemoveEmulation);
    ReaderOnCopy onCopy(bs, copy, size);
    readSliceUnit(bs, sh, sps, pps, nal_unit_type);
    if (pps->entropy_coding_mode_flag)
        checkCabacAlignment(bs, sh, sps, pps, nal_unit_type);
    return sh->first_mb_in_slice;
}

int qrvutilFix_SliceHeader(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps,
                           unsigned nal_unit_type, int nal_ref_idc)
{
    if (!recordsPresent(bs, sh, sps, pps))
        return 0;
    readSliceHeaderFields(bs, sh, sps, pps, nal_unit_type, nal_ref_idc);
    if (pps->entropy_coding_mode_flag)
        rewriteCabacAlignment(bs);
    else
        pps->rbsp_stop_one_bit = readFlag(bs);
    return 0;
}

int qrvutilWrite_SliceHeader(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps,
                             int nal_unit_type)
{
    (void)bs;
    (void)sh;
    (void)sps;
    (void)pps;
    (void)nal_unit_type;
    return 0;
}
