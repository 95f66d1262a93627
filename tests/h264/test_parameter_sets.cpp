#include <gtest/gtest.h>

#include <qrvutil/h264.h>

#include <cstring>
#include <memory>

#include "h264/syntax.h"
#include "test_units.h"

namespace {

template <typename Record>
std::unique_ptr<Record> decode(int (*read)(kx_bitstream *, Record *), const std::vector<uint8_t> &bytes,
                               int *consumed = nullptr)
{
    auto record = std::make_unique<Record>();
    Unit unit(bytes);
    kx_bitstream bs = unit.reader();
    const int n = read(&bs, record.get());
    if (consumed)
        *consumed = n;
    EXPECT_EQ(bs.buffer, reinterpret_cast<uintptr_t>(unit.storage.data()));
    return record;
}

std::vector<uint8_t> mainSps()
{
    Bits b;
    b.u(8, 0x67).u(8, 77).u(8, 0x40).u(8, 40).ue(0);
    b.ue(2).ue(0).ue(4);                   // frame_num bits, POC type 0 and its lsb bits
    b.ue(3).u(1, 0).ue(119).ue(67);        // refs, gaps, 1920 x 1088
    b.u(1, 1).u(1, 1).u(1, 1).ue(0).ue(0).ue(0).ue(4); // frame only, 8x8, crop bottom 4
    b.u(1, 0).stop();                      // no VUI
    return b.bytes();
}

// High profile: a scaling list that ends early, POC type 1 with offsets, and
// a VUI whose NAL HRD has ten entries (two more than the record holds).
std::vector<uint8_t> highSps()
{
    Bits b;
    b.u(8, 0x67).u(8, 100).u(8, 0).u(8, 41).ue(1);
    b.ue(1).ue(0).ue(0).u(1, 0).u(1, 1); // 4:2:0, 8-bit, matrix present
    b.u(1, 1).se(8).se(-16);             // list 0: 16, then nextScale 0 ends the deltas
    b.u(7, 0);                           // lists 1..7 absent
    b.ue(0).ue(1).u(1, 0).se(-1).se(2).ue(2).se(-1).se(2); // POC type 1
    b.ue(4).u(1, 0).ue(79).ue(44).u(1, 0).u(1, 1).u(1, 1).u(1, 0);
    b.u(1, 1).u(1, 1).u(8, 255).u(16, 4).u(16, 3).u(1, 0);       // VUI, extended SAR
    b.u(1, 1).u(3, 5).u(1, 0).u(1, 1).u(8, 1).u(8, 1).u(8, 1).u(1, 0);
    b.u(1, 1).u(32, 1).u(32, 50).u(1, 1);                        // timing
    b.u(1, 1).ue(9).u(4, 3).u(4, 4);                             // NAL HRD
    for (uint32_t i = 0; i < 10; ++i)
        b.ue(100 + i).ue(200 + i).u(1, i & 1);
    b.u(5, 23).u(5, 23).u(5, 23).u(5, 24).u(1, 0).u(1, 0).u(1, 1);
    b.u(1, 1).u(1, 1).ue(0).ue(0).ue(16).ue(16).ue(2).ue(4).stop();
    return b.bytes();
}

TEST(SequenceParameterSet, MainProfileImpliesChromaAndDepthOfEight)
{
    int consumed = -1;
    const auto rbsp = mainSps();
    auto sps = decode(qrvutilRead_SPS, rbsp, &consumed);
    EXPECT_EQ(consumed, int(rbsp.size()));
    EXPECT_EQ(sps->chroma_format_idc, 1);
    EXPECT_EQ(sps->bit_depth_luma_minus8, 8);
    EXPECT_EQ(sps->bit_depth_chroma_minus8, 8);
    EXPECT_EQ(sps->frame_crop_bottom_offset, 4);
    EXPECT_EQ(sps->rbsp_stop_one_bit, 1);

    Unit unit(rbsp);
    kx_bitstream bs = unit.reader();
    EXPECT_EQ(qrvutilRead_SPS(&bs, nullptr), 0);
    bs.byte_size = 0;
    EXPECT_EQ(qrvutilRead_SPS(&bs, sps.get()), 0);
    EXPECT_EQ(bs.bit_pos, 0u);
}

TEST(SequenceParameterSet, HighProfileWithKeptDepartures)
{
    const auto rbsp = highSps();
    int consumed = -1;
    auto sps = decode(qrvutilRead_SPS, rbsp, &consumed);
    EXPECT_EQ(consumed, int(rbsp.size()));
    EXPECT_EQ(sps->bit_depth_luma_minus8, 0);
    for (int j = 0; j < 16; ++j)
        EXPECT_EQ(sps->ScalingList4x4[0][j], 16) << j;
    // POC offsets are ue(v) codes: se -1 and 2 are codes 2 and 3.
    EXPECT_EQ(sps->offset_for_non_ref_pic, 2);
    EXPECT_EQ(sps->offset_for_top_to_bottom_field, 3);
    EXPECT_EQ(sps->offset_for_ref_frame, 3);
    EXPECT_EQ(sps->nal_hrd.cpb_cnt_minus1, 9);
    EXPECT_EQ(sps->nal_hrd.bit_rate_value_minus1[7], 107);
    EXPECT_EQ(sps->nal_hrd.cbr_flag[7], 1);
    EXPECT_EQ(sps->nal_hrd.time_offset_length, 24); // in step after the dropped entries
    EXPECT_EQ(sps->max_dec_frame_buffering, 4);

    // The same unit with emulation prevention decodes to the same record.
    const auto escaped = escape(rbsp);
    ASSERT_GT(escaped.size(), rbsp.size());
    auto again = decode(qrvutilRead_SPS, escaped, &consumed);
    EXPECT_EQ(consumed, int(rbsp.size()));
    EXPECT_EQ(std::memcmp(sps.get(), again.get(), sizeof(SPS_DECODED)), 0);

    // A pattern inside bytes 0-2 keeps its 03 (read as reserved_zero_2bits).
    auto early = decode(qrvutilRead_SPS, {0x00, 0x00, 0x03, 0x1E, 0x80});
    EXPECT_EQ(early->reserved_zero_2bits, 3);
}

TEST(EmulationPrevention, StartsAtByteThreeAndRepeatsTheLastByte)
{
    uint8_t sps[] = {0, 0, 3, 9, 0, 0, 3, 0, 0, 3, 7};
    EXPECT_EQ(qrv::removeEmulationPrevention(sps, sizeof sps, qrv::kRemoveEmulation), 2u);
    const uint8_t spsWant[] = {0, 0, 3, 9, 0, 0, 0, 0, 7, 7, 7};
    EXPECT_EQ(std::memcmp(sps, spsWant, sizeof sps), 0);

    uint8_t twelve[] = {1, 2, 3, 4, 0, 0, 0x0C, 5};
    EXPECT_EQ(qrv::removeEmulationPrevention(twelve, sizeof twelve, qrv::kRemoveEmulation), 0u);
    EXPECT_EQ(qrv::removeEmulationPrevention(twelve, sizeof twelve, qrv::kRemoveEmulationPps), 1u);
    const uint8_t twelveWant[] = {1, 2, 3, 4, 0, 0, 5, 5};
    EXPECT_EQ(std::memcmp(twelve, twelveWant, sizeof twelve), 0);
}

Bits ppsHead(bool cabac)
{
    Bits b;
    b.u(8, 0x68).ue(0).ue(0).u(1, cabac).u(1, 0).ue(0);
    b.ue(2).ue(0).u(1, 0).u(2, 0).se(-3).se(0).se(-2).u(1, 1).u(1, 0).u(1, 0);
    return b;
}

TEST(PictureParameterSet, OptionalTailByLookAhead)
{
    int consumed = -1;
    const auto plain = ppsHead(true).stop().bytes();
    auto pps = decode(qrvutilRead_PPS, plain, &consumed);
    EXPECT_EQ(consumed, int(plain.size()));
    EXPECT_EQ(pps->more_rbsp_data, 0);
    EXPECT_EQ(pps->transform_8x8_mode_flag, 0);
    EXPECT_EQ(pps->rbsp_stop_one_bit, 1);

    auto high = decode(qrvutilRead_PPS, ppsHead(true).u(1, 1).u(1, 0).se(-2).stop().bytes());
    EXPECT_EQ(high->more_rbsp_data, 1);
    EXPECT_EQ(high->second_chroma_qp_index_offset, -2);

    // A tail starting 0 with seven 0 bits after it is taken as absent, and
    // its first bit lands in rbsp_stop_one_bit.
    auto hidden = decode(qrvutilRead_PPS, ppsHead(true).u(1, 0).u(1, 0).se(-32).stop().bytes());
    EXPECT_EQ(hidden->more_rbsp_data, 0);
    EXPECT_EQ(hidden->second_chroma_qp_index_offset, 0);
    EXPECT_EQ(hidden->rbsp_stop_one_bit, 0);

    // A record that arrives with more_rbsp_data set reads a tail unasked.
    PPS_DECODED preset{};
    preset.more_rbsp_data = 1;
    Unit unit(plain);
    kx_bitstream bs = unit.reader();
    qrvutilRead_PPS(&bs, &preset);
    EXPECT_EQ(preset.transform_8x8_mode_flag, 1);
}

TEST(PictureParameterSet, ScalingMatrixAndBoundedSliceGroups)
{
    Bits b = ppsHead(false);
    b.u(1, 1).u(1, 1).u(6, 0).u(1, 1).se(2); // 8x8 list 0: 10, then 11..73
    for (int j = 1; j < 64; ++j)
        b.se(1);
    b.u(1, 0).se(3).stop();
    auto pps = decode(qrvutilRead_PPS, b.bytes());
    EXPECT_EQ(pps->ScalingList8x8[0][0], 10);
    EXPECT_EQ(pps->ScalingList8x8[0][63], 73);
    EXPECT_EQ(pps->second_chroma_qp_index_offset, 3);

    Bits runs; // ten groups: two runs more than the record holds
    runs.u(8, 0x68).ue(0).ue(0).u(1, 0).u(1, 0).ue(9).ue(0);
    for (uint32_t i = 0; i < 10; ++i)
        runs.ue(i);
    runs.ue(5).ue(0).u(1, 0).u(2, 0).se(0).se(0).se(0).u(3, 0).stop();
    pps = decode(qrvutilRead_PPS, runs.bytes());
    EXPECT_EQ(pps->run_length_minus1[7], 7);
    EXPECT_EQ(pps->num_ref_idx_l0_default_active_minus1, 5);

    Bits ids; // 300 map units of 3 groups, 2 bits each
    ids.u(8, 0x68).ue(0).ue(0).u(1, 0).u(1, 0).ue(2).ue(6).ue(299);
    for (uint32_t i = 0; i < 300; ++i)
        ids.u(2, i % 3);
    ids.ue(5).ue(0).u(1, 0).u(2, 0).se(0).se(0).se(0).u(3, 0).stop();
    pps = decode(qrvutilRead_PPS, ids.bytes());
    EXPECT_EQ(pps->slice_group_id[254], 2);
    EXPECT_EQ(pps->slice_group_id[255], 0);
    EXPECT_EQ(pps->num_ref_idx_l0_default_active_minus1, 5);
}

TEST(SequenceParameterSet, CountOfBillionsInATruncatedUnitEndsAtOnce)
{
    Bits cycle;
    cycle.u(8, 0x67).u(8, 66).u(8, 0).u(8, 30).ue(0).ue(0).ue(1).u(1, 0).ue(0).ue(0);
    cycle.u(30, 0).u(31, 0x7FFFFFFF); // ue(0x7FFFFFFE)
    int consumed = 0;
    auto sps = decode(qrvutilRead_SPS, escape(cycle.bytes()), &consumed);
    EXPECT_EQ(sps->num_ref_frames_in_pic_order_cnt_cycle, 0x7FFFFFFE);
    EXPECT_GT(consumed, 0x7FFFFFFE / 8);
}

} // namespace
