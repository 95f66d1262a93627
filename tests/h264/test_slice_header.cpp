#include <gtest/gtest.h>

#include <qrvutil/h264.h>

#include <cstring>
#include <memory>

#include "test_units.h"

namespace {

struct Records {
    std::unique_ptr<SPS_DECODED> sps = std::make_unique<SPS_DECODED>();
    std::unique_ptr<PPS_DECODED> pps = std::make_unique<PPS_DECODED>();
    std::unique_ptr<SLICE_HEADER> sh = std::make_unique<SLICE_HEADER>();
    Records()
    {
        sps->chroma_format_idc = 1;
        sps->frame_mbs_only_flag = 1;
        sps->log2_max_pic_order_cnt_lsb_minus4 = 2; // frame_num 4 bits, lsb 6
    }
    int read(const std::vector<uint8_t> &bytes, int type)
    {
        *sh = SLICE_HEADER{};
        Unit unit(bytes);
        kx_bitstream bs = unit.reader();
        const int first = qrvutilRead_SliceHeader(&bs, sh.get(), sps.get(), pps.get(), type);
        EXPECT_EQ(std::memcmp(unit.storage.data(), bytes.data(), bytes.size()), 0);
        EXPECT_EQ(bs.buffer, reinterpret_cast<uintptr_t>(unit.storage.data()));
        lastBitPos = bs.bit_pos;
        return first;
    }
    // Runs the in-place fix over `bytes` and returns them as rewritten.
    std::vector<uint8_t> fix(const std::vector<uint8_t> &bytes, unsigned type, int refIdc)
    {
        *sh = SLICE_HEADER{};
        Unit unit(bytes);
        kx_bitstream bs = unit.reader();
        bs.bit_pos = 8;
        EXPECT_EQ(qrvutilFix_SliceHeader(&bs, sh.get(), sps.get(), pps.get(), type, refIdc), 0);
        return {unit.storage.begin(), unit.storage.begin() + unit.size};
    }
    uintptr_t lastBitPos = 0;
};

// NAL header, first_mb_in_slice 5, the type, PPS 0, frame_num 9, lsb 12.
Bits sliceStart(uint8_t nalHeader, uint32_t sliceType)
{
    Bits b;
    b.u(8, nalHeader).ue(5).ue(sliceType).ue(0).u(4, 9).u(6, 12);
    return b;
}

TEST(SliceHeader, CavlcPSliceKeepsLastReorderingAndStoresTrailingBit)
{
    Records r;
    r.pps->deblocking_filter_control_present_flag = 1;
    r.pps->num_ref_idx_l0_default_active_minus1 = 3;
    Bits b = sliceStart(0x01, 5);
    b.u(1, 0).u(1, 1).ue(0).ue(3).ue(0).ue(9).ue(3); // two reorderings, then idc 3
    b.se(-4).ue(0).se(2).se(-1).u(1, 1).stop();
    EXPECT_EQ(r.read(b.bytes(), 1), 5);
    const SLICE_HEADER &sh = *r.sh;
    EXPECT_EQ(sh.nal_unit_type, 1);
    EXPECT_EQ(sh.num_ref_idx_l0_active_minus1, 3); // the PPS default
    EXPECT_EQ(sh.reordering_of_pic_nums_idc, 3);
    EXPECT_EQ(sh.abs_diff_pic_num_minus1, 9);
    EXPECT_EQ(sh.slice_qp_delta, -4);
    EXPECT_EQ(sh.slice_beta_offset_div2, -1);
    EXPECT_EQ(r.pps->rbsp_stop_one_bit, 1);
}

TEST(SliceHeader, MarkingIsReadOnlyByTheFix)
{
    Records r;
    // Reference P slice: marking = adaptive 1, operation 0; then qp -3 and a 0.
    Bits b = sliceStart(0x41, 0);
    b.u(1, 0).u(1, 0).u(1, 1).ue(0).se(-3).u(1, 0).stop();
    r.read(b.bytes(), 1);
    EXPECT_EQ(r.sh->slice_qp_delta, 0); // read from the marking flag
    EXPECT_EQ(r.pps->rbsp_stop_one_bit, 1);
    const auto same = r.fix(b.bytes(), 1, 2);
    EXPECT_EQ(same, b.bytes());
    EXPECT_EQ(r.sh->adaptive_ref_pic_marking_mode_flag, 1);
    EXPECT_EQ(r.sh->slice_qp_delta, -3);
    EXPECT_EQ(r.pps->rbsp_stop_one_bit, 0);
    EXPECT_EQ(r.sh->nal_unit_type, 0); // the fix leaves the NAL header fields
}

TEST(SliceHeader, FixRewritesCabacAlignmentBits)
{
    Records r;
    r.pps->entropy_coding_mode_flag = 1;
    // IDR I slice whose header with marking ends 3 bits before a boundary.
    Bits b;
    b.u(8, 0x65).ue(0).ue(7).ue(0).u(4, 0).ue(1).u(6, 0).u(1, 0).u(1, 0).se(-2);
    ASSERT_EQ(b.bitPos() % 8, 5u);
    const std::size_t last = b.bitPos() / 8;
    b.u(3, 0x3).u(8, 0xA5);
    auto bytes = b.bytes();
    const auto fixed = r.fix(bytes, 5, 3);
    EXPECT_EQ(r.sh->slice_qp_delta, -2);
    bytes[last] = uint8_t((bytes[last] & 0xF8) | 0x4); // 0 1 1 becomes 1 0 0
    EXPECT_EQ(fixed, bytes);

    // The plain reader does not read marking, checks the alignment bits,
    // re-reads the header once on a 0 and ends on the byte boundary.
    EXPECT_EQ(r.read(bytes, 5), 0);
    EXPECT_EQ(r.sh->idr_pic_id, 1);
    EXPECT_EQ(r.lastBitPos % 8, 0u);
}

TEST(SliceHeader, PredictionWeightsBoundedAtSixtyFourAndNotForB)
{
    Records r;
    r.pps->weighted_pred_flag = 1;
    r.pps->weighted_bipred_idc = 1;
    for (uint32_t count : {64u, 70u}) {
        Bits b = sliceStart(0x01, 0);
        b.u(1, 1).ue(count - 1).u(1, 0).ue(6).ue(5);
        for (uint32_t i = 0; i < count; ++i) {
            b.u(1, 1).se(int(i % 7) - 3).se(1 + int(i % 4)).u(1, i == 63);
            if (i == 63)
                b.se(-5).se(6).se(7).se(-8);
        }
        b.se(7).u(1, 1).stop();
        r.read(b.bytes(), 1);
        const SLICE_HEADER &sh = *r.sh;
        EXPECT_EQ(sh.luma_weight_l0[63], 63 % 7 - 3);
        EXPECT_EQ(sh.chroma_offset_l0[63][1], -8);
        EXPECT_EQ(sh.chroma_weight_l0_flag, count == 64 ? 1 : 0);
        EXPECT_EQ(sh.slice_qp_delta, 7) << count;
    }

    // B slices with bi-prediction weights go on from where the table stands.
    Bits b = sliceStart(0x01, 1);
    b.u(1, 1).u(1, 0).u(1, 0).u(1, 0).se(5).u(1, 1).stop();
    r.read(b.bytes(), 1);
    EXPECT_EQ(r.sh->slice_qp_delta, 5);
}

TEST(SliceHeader, ReadsOnlyTheFirst256BytesAndSliceGroupCycleByFloorLog2)
{
    Records r;
    r.pps->weighted_pred_flag = 1;
    Bits b = sliceStart(0x01, 0);
    b.u(1, 1).ue(63).u(1, 0).ue(0).ue(0);
    for (int i = 0; i < 64; ++i)
        b.u(1, 1).se(1000 + i).se(-1000).u(1, 0);
    b.se(1).stop();
    ASSERT_GT(b.bytes().size(), 300u);
    r.read(b.bytes(), 1);
    EXPECT_EQ(r.sh->luma_weight_l0[0], 1000);
    EXPECT_EQ(r.sh->luma_weight_l0[63], 0);
    EXPECT_EQ(r.sh->luma_weight_l0_flag, -1);

    Records g; // IDR I field slice with slice groups of map type 4
    g.sps->frame_mbs_only_flag = 0;
    g.sps->pic_order_cnt_type = 1;
    g.pps->pic_order_present_flag = 1;
    g.pps->redundant_pic_cnt_present_flag = 1;
    g.pps->num_slice_groups_minus1 = 1;
    g.pps->slice_group_map_type = 4;
    g.pps->slice_group_change_rate_minus1 = 4; // floor(log2(0 + 4 + 1)) = 2 bits
    Bits f;
    f.u(8, 0x65).ue(0).ue(2).ue(0).u(4, 3).u(1, 1).u(1, 1).ue(3).se(-2).ue(1).se(0).u(2, 3);
    f.u(1, 1).stop();
    g.read(f.bytes(), 5);
    EXPECT_EQ(g.sh->delta_pic_order_cnt[0], -2);
    EXPECT_EQ(g.sh->redundant_pic_cnt, 1);
    EXPECT_EQ(g.sh->slice_group_change_cycle, 3);
    EXPECT_EQ(g.pps->rbsp_stop_one_bit, 1);
}

} // namespace
