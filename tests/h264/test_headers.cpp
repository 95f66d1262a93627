// The bit reader and writer at their edges, and crafted parameter sets and
// slice headers for what the clips do not show: the kept departures and the
// bounds of stream-given counts.
#include <string>

#include "h264/syntax.h"
#include "h264_test_util.h"

namespace {

kx_bitstream over(Bytes &bytes, uintptr_t bits)
{
    return {uintptr_t(bytes.data()), bits / 8, bits, 0};
}

TEST(BitReader, ReadsThroughBitEndThenAnswersMinusOne)
{
    Bytes one = {0xA5, 0x00}; // one byte of data and the byte after it
    kx_bitstream bs = over(one, 8);
    for (int bit : {1, 0, 1, 0, 0, 1, 0, 1, 0 /* bit 7 of the byte after */, -1})
        EXPECT_EQ(ReadBit(&bs), bit);
    EXPECT_EQ(bs.bit_pos, 10u);
    EXPECT_EQ(IsEndOfStream(&bs), 1);

    bs.bit_pos = 4;
    EXPECT_EQ(PeekBit(&bs, 2), 0);
    EXPECT_EQ(PeekBit(&bs, 4), 1); // at bit_end: answered 1, not read
    EXPECT_EQ(ReadBits(&bs, 0), 0u);
    EXPECT_EQ(bs.bit_pos, 4u);
    // 0101, the bit at bit_end, then three past-end bits: the last sets all.
    EXPECT_EQ(ReadBits(&bs, 8), 0xFFFFFFFFu);
    EXPECT_EQ(bs.bit_pos, 12u);

    // Counts above 32 wrap their shifts: bit 7 lands at shift 0, bit 33 at 6.
    Bytes five = {0x01, 0x00, 0x00, 0x00, 0x40, 0x00};
    bs = over(five, 40);
    EXPECT_EQ(ReadBits(&bs, 40), 1u | (1u << 6));
    // Far past the end the value is all ones and the position still grows.
    EXPECT_EQ(ReadBits(&bs, 0x7FFFFFFF), 0xFFFFFFFFu);
    EXPECT_EQ(bs.bit_pos, 40u + 0x7FFFFFFFu);
}

TEST(BitReader, ExpGolombCodes)
{
    Bytes codes = {0xA6, 0x44, 0xC8, 0x00}; // 1 010 011 00100 010 011 00100
    kx_bitstream bs = over(codes, 24);
    for (uint32_t v : {0u, 1u, 2u, 3u})
        EXPECT_EQ(ReadExponentialGolombCode(&bs), v);
    for (int32_t v : {1, -1, 2})
        EXPECT_EQ(ReadExponentialGolombCodeSigned(&bs), v);
    // Nine zeros (the ninth from the byte after), the missing 1, then nine
    // past-end bits: (1 << 9) + 0xFFFFFFFF - 1.
    Bytes zero = {0x00, 0x00};
    bs = over(zero, 8);
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 510u);
    EXPECT_EQ(bs.bit_pos, 19u);
    EXPECT_EQ(ReadExponentialGolombCode(&bs), 0u); // already past the end
    EXPECT_EQ(bs.bit_pos, 20u);
}

TEST(BitWriter, WritesTheLibrarysCodes)
{
    Bytes buf(32, 0xFF); // the writers must not rely on zeroed room
    kx_bitstream bs = over(buf, 256);
    const auto written = [&](void (*write)(kx_bitstream *, int32_t), int32_t v) {
        bs.bit_pos = 0;
        write(&bs, v);
        std::string s;
        for (uintptr_t i = 0; i < bs.bit_pos; ++i)
            s += ((buf[i / 8] >> (7 - i % 8)) & 1) ? '1' : '0';
        return s;
    };
    EXPECT_EQ(written(WriteExponentialGolombCode, 0), "1");
    EXPECT_EQ(written(WriteExponentialGolombCode, 254), "000000011111111");
    // The top tier counts 48 where 24 is due: 24 zeros too many.
    EXPECT_EQ(written(WriteExponentialGolombCode, 0xFFFFFF),
              std::string(72, '0') + "1" + std::string(24, '0'));
    const std::pair<int32_t, const char *> signedCodes[] = {
        {-1, "011"}, {0, "011"}, {1, "00101"}, {-2, "00101"}};
    for (const auto &[v, code] : signedCodes)
        EXPECT_EQ(written(WriteExponentialGolombCodeSigned, v), code) << v;

    buf[0] = 0xFF;
    bs.bit_pos = 3;
    WriteBit(&bs, 0);
    EXPECT_EQ(buf[0], 0xEF);
    WriteBits(&bs, 4, 0x5); // overwrites bits 4..7 only
    EXPECT_EQ(buf[0], 0xE5);

    const int32_t lengths[][2] = {{0, 1}, {1, 3}, {127, 15}, {128, 16}};
    for (const auto &l : lengths)
        EXPECT_EQ(LengthExponentialGolombCode(l[0]), l[1]) << l[0];
    const int32_t logs[][2] = {{-5, 0}, {1, 0}, {2, 1}, {3, 2}, {5, 3}, {8, 3}, {9, 4}};
    for (const auto &l : logs)
        EXPECT_EQ(intlog2(l[0]), l[1]) << l[0];
}

// Inserts 03 wherever 00 00 precedes a byte of 3 or less.
Bytes escape(const Bytes &rbsp)
{
    Bytes out;
    for (uint8_t b : rbsp) {
        if (out.size() >= 2 && out.end()[-1] == 0 && out.end()[-2] == 0 && b <= 3)
            out.push_back(0x03);
        out.push_back(b);
    }
    return out;
}

TEST(SequenceParameterSet, HighProfileWithKeptDepartures)
{
    Bits b; // POC type 1 with offsets; a NAL HRD of ten entries, two more than the record holds
    b.u(8, 0x67).u(8, 100).u(8, 0).u(8, 41).ue(1).ue(1).ue(0).ue(0).u(1, 0).u(1, 0); // 4:2:0, 8-bit
    b.ue(0).ue(1).u(1, 0).se(-1).se(2).ue(2).se(-1).se(2);
    b.ue(4).u(1, 0).ue(79).ue(44).u(1, 1).u(1, 1).u(1, 0);
    b.u(1, 1).u(4, 0).u(1, 1).u(32, 1).u(32, 50).u(1, 1); // VUI with timing (zero bytes to escape)
    b.u(1, 1).ue(9).u(4, 3).u(4, 4);
    for (uint32_t i = 0; i < 10; ++i)
        b.ue(100 + i).ue(200 + i).u(1, i & 1);
    b.u(5, 23).u(5, 23).u(5, 23).u(5, 24).u(1, 0).u(1, 0).u(1, 0);
    const Bytes rbsp = b.u(1, 1).u(1, 1).ue(0).ue(0).ue(16).ue(16).ue(2).ue(4).stop().bytes();
    int consumed = -1;
    const SPS_DECODED sps = decode(qrvutilRead_SPS, rbsp, &consumed);
    EXPECT_EQ(consumed, int(rbsp.size()));
    // POC offsets are ue(v) codes: se -1 and 2 are codes 2 and 3.
    EXPECT_EQ(sps.offset_for_non_ref_pic, 2);
    EXPECT_EQ(sps.offset_for_top_to_bottom_field, 3);
    EXPECT_EQ(sps.offset_for_ref_frame, 3);
    EXPECT_EQ(sps.nal_hrd.cpb_cnt_minus1, 9);
    EXPECT_EQ(sps.nal_hrd.bit_rate_value_minus1[7], 107);
    EXPECT_EQ(sps.nal_hrd.cbr_flag[7], 1);
    EXPECT_EQ(sps.nal_hrd.time_offset_length, 24); // in step after the dropped entries
    EXPECT_EQ(sps.max_dec_frame_buffering, 4);

    // The same unit with emulation prevention decodes to the same record;
    // a pattern inside bytes 0-2 keeps its 03 (read as reserved_zero_2bits).
    const Bytes escaped = escape(rbsp);
    ASSERT_GT(escaped.size(), rbsp.size());
    EXPECT_TRUE(sameRecord(decode(qrvutilRead_SPS, escaped, &consumed), sps));
    EXPECT_EQ(consumed, int(rbsp.size()));
    EXPECT_EQ(decodeSps({0x00, 0x00, 0x03, 0x1E, 0x80}).reserved_zero_2bits, 3);

    Unit unit(rbsp);
    kx_bitstream bs = unit.reader();
    EXPECT_EQ(qrvutilRead_SPS(&bs, nullptr), 0);
    bs.byte_size = 0;
    SPS_DECODED cleared{};
    EXPECT_EQ(qrvutilRead_SPS(&bs, &cleared), 0);
    EXPECT_EQ(bs.bit_pos, 0u);
}

TEST(SequenceParameterSet, CountOfBillionsInATruncatedUnitEndsAtOnce)
{
    Bits cycle;
    cycle.u(8, 0x67).u(8, 66).u(8, 0).u(8, 30).ue(0).ue(0).ue(1).u(1, 0).ue(0).ue(0);
    cycle.u(30, 0).u(31, 0x7FFFFFFF); // ue(0x7FFFFFFE)
    int consumed = 0;
    const SPS_DECODED sps = decode(qrvutilRead_SPS, escape(cycle.bytes()), &consumed);
    EXPECT_EQ(sps.num_ref_frames_in_pic_order_cnt_cycle, 0x7FFFFFFE);
    EXPECT_GT(consumed, 0x7FFFFFFE / 8);
}

TEST(EmulationPrevention, StartsAtByteThreeAndRepeatsTheLastByte)
{
    uint8_t sps[] = {0, 0, 3, 9, 0, 0, 3, 0, 0, 3, 7};
    EXPECT_EQ(qrv::removeEmulationPrevention(sps, sizeof sps, qrv::kRemoveEmulation), 2u);
    EXPECT_EQ(Bytes(sps, sps + sizeof sps), (Bytes{0, 0, 3, 9, 0, 0, 0, 0, 7, 7, 7}));
    // 0C is dropped from picture parameter sets only.
    uint8_t twelve[] = {1, 2, 3, 4, 0, 0, 0x0C, 5};
    EXPECT_EQ(qrv::removeEmulationPrevention(twelve, sizeof twelve, qrv::kRemoveEmulation), 0u);
    EXPECT_EQ(qrv::removeEmulationPrevention(twelve, sizeof twelve, qrv::kRemoveEmulationPps), 1u);
    EXPECT_EQ(Bytes(twelve, twelve + sizeof twelve), (Bytes{1, 2, 3, 4, 0, 0, 5, 5}));
}

// A CABAC PPS up to its optional tail; `groups` writes the slice-group syntax.
Bits pps(
    uint32_t groupsMinus1 = 0, void (*groups)(Bits &) = [](Bits &) {})
{
    Bits b;
    groups(b.u(8, 0x68).ue(0).ue(0).u(1, 1).u(1, 0).ue(groupsMinus1));
    b.ue(2).ue(0).u(1, 0).u(2, 0).se(-3).se(0).se(-2).u(1, 1).u(1, 0).u(1, 0);
    return b;
}

TEST(PictureParameterSet, OptionalTailByLookAhead)
{
    int consumed = -1;
    const Bytes plain = pps().stop().bytes();
    PPS_DECODED p = decode(qrvutilRead_PPS, plain, &consumed);
    EXPECT_EQ(consumed, int(plain.size()));
    EXPECT_EQ(p.more_rbsp_data, 0);
    EXPECT_EQ(p.transform_8x8_mode_flag, 0);
    EXPECT_EQ(p.rbsp_stop_one_bit, 1);

    // A tail starting 0 with seven 0 bits after it is taken as absent, and
    // its first bit lands in rbsp_stop_one_bit.
    p = decodePps(pps().u(1, 0).u(1, 0).se(-32).stop().bytes());
    EXPECT_EQ(p.more_rbsp_data, 0);
    EXPECT_EQ(p.second_chroma_qp_index_offset, 0);
    EXPECT_EQ(p.rbsp_stop_one_bit, 0);
    // A record that arrives with more_rbsp_data set reads a tail unasked.
    PPS_DECODED preset{};
    preset.more_rbsp_data = 1;
    Unit unit(plain);
    kx_bitstream bs = unit.reader();
    qrvutilRead_PPS(&bs, &preset);
    EXPECT_EQ(preset.transform_8x8_mode_flag, 1);
}

TEST(PictureParameterSet, SliceGroupListsStopAtTheRecordsEnd)
{
    PPS_DECODED p = decodePps(pps(9,
                                  [](Bits &b) { // ten runs, two more than the record holds
                                      b.ue(0);
                                      for (uint32_t i = 0; i < 10; ++i)
                                          b.ue(i);
                                  })
                                  .stop()
                                  .bytes());
    EXPECT_EQ(p.run_length_minus1[7], 7);
    EXPECT_EQ(p.chroma_qp_index_offset, -2);
    p = decodePps(pps(2,
                      [](Bits &b) { // 300 map units of 3 groups, 2 bits each
                          b.ue(6).ue(299);
                          for (uint32_t i = 0; i < 300; ++i)
                              b.u(2, i % 3);
                      })
                      .stop()
                      .bytes());
    EXPECT_EQ(p.slice_group_id[254], 2);
    EXPECT_EQ(p.slice_group_id[255], 0);
    EXPECT_EQ(p.chroma_qp_index_offset, -2);
}

struct Records {
    SPS_DECODED sps{};
    PPS_DECODED pps{};
    SLICE_HEADER sh{};
    uintptr_t lastBitPos = 0;
    Records()
    {
        sps.chroma_format_idc = 1;
        sps.frame_mbs_only_flag = 1;
        sps.log2_max_pic_order_cnt_lsb_minus4 = 2; // frame_num 4 bits, lsb 6
    }
    // The plain reader, which must leave the caller's bytes alone.
    int read(const Bytes &bytes, int type)
    {
        Unit unit(bytes);
        kx_bitstream bs = unit.reader();
        sh = SLICE_HEADER{};
        const int first = qrvutilRead_SliceHeader(&bs, &sh, &sps, &pps, type);
        EXPECT_EQ(Bytes(unit.storage.begin(), unit.storage.end() - 1), bytes);
        EXPECT_EQ(bs.buffer, uintptr_t(unit.storage.data()));
        lastBitPos = bs.bit_pos;
        return first;
    }
    // The in-place fix; returns the bytes as rewritten.
    Bytes fix(const Bytes &bytes, unsigned type, int refIdc)
    {
        Unit unit(bytes);
        kx_bitstream bs = unit.reader();
        bs.bit_pos = 8;
        sh = SLICE_HEADER{};
        EXPECT_EQ(qrvutilFix_SliceHeader(&bs, &sh, &sps, &pps, type, refIdc), 0);
        return Bytes(unit.storage.begin(), unit.storage.end() - 1);
    }
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
    Bits b = sliceStart(0x01, 5);
    b.u(1, 0).u(1, 1).ue(0).ue(3).ue(0).ue(9).ue(3); // two reorderings, then idc 3
    EXPECT_EQ(r.read(b.se(-4).u(1, 1).stop().bytes(), 1), 5);
    EXPECT_EQ(r.sh.reordering_of_pic_nums_idc, 3);
    EXPECT_EQ(r.sh.abs_diff_pic_num_minus1, 9);
    EXPECT_EQ(r.sh.slice_qp_delta, -4);
    EXPECT_EQ(r.pps.rbsp_stop_one_bit, 1);
}

TEST(SliceHeader, MarkingIsReadOnlyByTheFixWhichRewritesCabacAlignment)
{
    Records r;
    // Reference P slice: marking = adaptive 1, operation 0; then qp -3 and a 0.
    const Bytes p = sliceStart(0x41, 0).u(1, 0).u(1, 0).u(1, 1).ue(0).se(-3).u(1, 0).stop().bytes();
    r.read(p, 1);
    EXPECT_EQ(r.sh.slice_qp_delta, 0); // read from the marking flag
    EXPECT_EQ(r.pps.rbsp_stop_one_bit, 1);
    EXPECT_EQ(r.fix(p, 1, 2), p);
    EXPECT_EQ(r.sh.adaptive_ref_pic_marking_mode_flag, 1);
    EXPECT_EQ(r.sh.slice_qp_delta, -3);
    EXPECT_EQ(r.pps.rbsp_stop_one_bit, 0);
    EXPECT_EQ(r.sh.nal_unit_type, 0); // the fix leaves the NAL header fields

    // CABAC IDR I slice whose header with marking ends 3 bits before a boundary.
    r.pps.entropy_coding_mode_flag = 1;
    Bits b;
    b.u(8, 0x65).ue(0).ue(7).ue(0).u(4, 0).ue(1).u(6, 0).u(1, 0).u(1, 0).se(-2);
    ASSERT_EQ(b.bitPos() % 8, 5u);
    const size_t last = b.bitPos() / 8;
    Bytes bytes = b.u(3, 0x3).u(8, 0xA5).bytes();
    const Bytes fixed = r.fix(bytes, 5, 3);
    EXPECT_EQ(r.sh.slice_qp_delta, -2);
    bytes[last] = uint8_t((bytes[last] & 0xF8) | 0x4); // 0 1 1 becomes 1 0 0
    EXPECT_EQ(fixed, bytes);
    // The plain reader does not read marking, checks the alignment bits,
    // re-reads the header once on a 0 and ends on the byte boundary.
    EXPECT_EQ(r.read(bytes, 5), 0);
    EXPECT_EQ(r.sh.idr_pic_id, 1);
    EXPECT_EQ(r.lastBitPos % 8, 0u);
}

TEST(SliceHeader, PredictionWeightsBoundedAtSixtyFourAndNotForB)
{
    Records r;
    r.pps.weighted_pred_flag = 1;
    r.pps.weighted_bipred_idc = 1;
    for (uint32_t count : {64u, 70u}) {
        Bits b = sliceStart(0x01, 0);
        b.u(1, 1).ue(count - 1).u(1, 0).ue(6).ue(5);
        for (uint32_t i = 0; i < count; ++i) {
            b.u(1, 1).se(int(i % 7) - 3).se(1 + int(i % 4)).u(1, i == 63);
            if (i == 63)
                b.se(-5).se(6).se(7).se(-8);
        }
        r.read(b.se(7).u(1, 1).stop().bytes(), 1);
        EXPECT_EQ(r.sh.luma_weight_l0[63], 63 % 7 - 3);
        EXPECT_EQ(r.sh.chroma_offset_l0[63][1], -8);
        EXPECT_EQ(r.sh.chroma_weight_l0_flag, count == 64 ? 1 : 0);
        EXPECT_EQ(r.sh.slice_qp_delta, 7) << count;
    }
    // B slices with bi-prediction weights go on from where the table stands.
    r.read(sliceStart(0x01, 1).u(1, 1).u(1, 0).u(1, 0).u(1, 0).se(5).u(1, 1).stop().bytes(), 1);
    EXPECT_EQ(r.sh.slice_qp_delta, 5);
}

TEST(SliceHeader, ReadsOnlyTheFirst256BytesAndSliceGroupCycleByFloorLog2)
{
    Records r;
    r.pps.weighted_pred_flag = 1;
    Bits b = sliceStart(0x01, 0);
    b.u(1, 1).ue(63).u(1, 0).ue(0).ue(0);
    for (int i = 0; i < 64; ++i)
        b.u(1, 1).se(1000 + i).se(-1000).u(1, 0);
    ASSERT_GT(b.se(1).stop().bytes().size(), 300u);
    r.read(b.bytes(), 1);
    EXPECT_EQ(r.sh.luma_weight_l0[0], 1000);
    EXPECT_EQ(r.sh.luma_weight_l0[63], 0);
    EXPECT_EQ(r.sh.luma_weight_l0_flag, -1);

    // An I slice with slice groups of map type 4.
    r.pps.num_slice_groups_minus1 = 1;
    r.pps.slice_group_map_type = 4;
    r.pps.slice_group_change_rate_minus1 = 4; // floor(log2(0 + 4 + 1)) = 2 bits
    r.read(sliceStart(0x01, 2).se(0).u(2, 3).u(1, 1).stop().bytes(), 1);
    EXPECT_EQ(r.sh.slice_group_change_cycle, 3);
    EXPECT_EQ(r.pps.rbsp_stop_one_bit, 1);
}

} // namespace
