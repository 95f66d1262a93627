// Encoded clips (tests/data/h264, made by make_clips.sh) decoded by the
// library and compared field by field with the header trace tables kept
// beside them, except where the library departs from the standard on
// purpose; avcC boxes, framing round trips and runs over damaged copies.
#include "scanning_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>

namespace {

using namespace scanning_test;

constexpr const char *kClips[] = {"baseline_cavlc", "main_cabac_b", "high_cqm", "mbaff",
                                  "interlaced_frames", "slices4", "weightp", "hrd_vui",
                                  "hi444_lossless10", "long_startcodes"};

Bytes readFile(const std::string &name)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/h264/" + name, std::ios::binary);
    EXPECT_TRUE(in.good()) << name;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// ---- Record layouts by the trace's element names ----------------------------------

// Every 32-bit field of a record in order, "name[rows][cols]" for arrays and
// "-" for fields that no trace names. Checked against the record size, so a
// field out of place shows as a failure.
std::string hrd(const std::string &block)
{
    std::istringstream names("cpb_cnt_minus1 bit_rate_scale cpb_size_scale bit_rate_value_minus1[8] "
                             "cpb_size_value_minus1[8] cbr_flag[8] initial_cpb_removal_delay_length_minus1 "
                             "cpb_removal_delay_length_minus1 dpb_output_delay_length_minus1 time_offset_length");
    std::string out;
    for (std::string name; names >> name;)
        out += block + "." + name + " ";
    return out;
}
const std::string kScaling = "ScalingList4x4[6][16] -[6] ScalingList8x8[6][64] -[6] ";
const std::string kSpsLayout =
    "forbidden_zero_bit nal_ref_idc nal_unit_type profile_idc constraint_set0_flag constraint_set1_flag "
    "constraint_set2_flag constraint_set3_flag constraint_set4_flag constraint_set5_flag reserved_zero_2bits "
    "level_idc seq_parameter_set_id chroma_format_idc seq_scaling_list_present_flag[12] " + kScaling +
    "separate_colour_plane_flag bit_depth_luma_minus8 bit_depth_chroma_minus8 "
    "qpprime_y_zero_transform_bypass_flag seq_scaling_matrix_present_flag log2_max_frame_num_minus4 "
    "pic_order_cnt_type log2_max_pic_order_cnt_lsb_minus4 delta_pic_order_always_zero_flag "
    "offset_for_non_ref_pic offset_for_top_to_bottom_field num_ref_frames_in_pic_order_cnt_cycle "
    "offset_for_ref_frame max_num_ref_frames gaps_in_frame_num_allowed_flag pic_width_in_mbs_minus1 "
    "pic_height_in_map_units_minus1 frame_mbs_only_flag mb_adaptive_frame_field_flag "
    "direct_8x8_inference_flag frame_cropping_flag frame_crop_left_offset frame_crop_right_offset "
    "frame_crop_top_offset frame_crop_bottom_offset vui_parameters_present_flag "
    "aspect_ratio_info_present_flag aspect_ratio_idc sar_width sar_height overscan_info_present_flag "
    "overscan_appropriate_flag video_signal_type_present_flag video_format video_full_range_flag "
    "colour_description_present_flag colour_primaries transfer_characteristics matrix_coefficients "
    "chroma_loc_info_present_flag chroma_sample_loc_type_top_field chroma_sample_loc_type_bottom_field "
    "timing_info_present_flag num_units_in_tick time_scale fixed_frame_rate_flag "
    "nal_hrd_parameters_present_flag vcl_hrd_parameters_present_flag " + hrd("nal_hrd") + hrd("vcl_hrd") +
    "low_delay_hrd_flag pic_struct_present_flag bitstream_restriction_flag "
    "motion_vectors_over_pic_boundaries_flag max_bytes_per_pic_denom max_bits_per_mb_denom "
    "log2_max_mv_length_horizontal log2_max_mv_length_vertical max_num_reorder_frames "
    "max_dec_frame_buffering rbsp_stop_one_bit";
const std::string kPpsLayout =
    "forbidden_zero_bit nal_ref_idc nal_unit_type pic_parameter_set_id seq_parameter_set_id "
    "entropy_coding_mode_flag bottom_field_pic_order_in_frame_present_flag num_slice_groups_minus1 "
    "slice_group_map_type run_length_minus1[8] top_left[8] bottom_right[8] "
    "slice_group_change_direction_flag slice_group_change_rate_minus1 pic_size_in_map_units_minus1 "
    "slice_group_id[256] num_ref_idx_l0_default_active_minus1 num_ref_idx_l1_default_active_minus1 "
    "weighted_pred_flag weighted_bipred_idc pic_init_qp_minus26 pic_init_qs_minus26 chroma_qp_index_offset "
    "deblocking_filter_control_present_flag constrained_intra_pred_flag redundant_pic_cnt_present_flag "
    "more_rbsp_data transform_8x8_mode_flag pic_scaling_matrix_present_flag "
    "pic_scaling_list_present_flag[12] " + kScaling + "second_chroma_qp_index_offset rbsp_stop_one_bit";
// Weight flags are single fields (the last entry's flag): no index.
const std::string kSliceLayout =
    "forbidden_zero_bit nal_ref_idc nal_unit_type first_mb_in_slice slice_type pic_parameter_set_id "
    "frame_num field_pic_flag bottom_field_flag idr_pic_id pic_order_cnt_lsb delta_pic_order_cnt_bottom "
    "delta_pic_order_cnt[2] redundant_pic_cnt direct_spatial_mv_pred_flag num_ref_idx_active_override_flag "
    "num_ref_idx_l0_active_minus1 num_ref_idx_l1_active_minus1 -[5] cabac_init_idc slice_qp_delta "
    "sp_for_switch_flag slice_qs_delta disable_deblocking_filter_idc slice_alpha_c0_offset_div2 "
    "slice_beta_offset_div2 slice_group_change_cycle luma_log2_weight_denom chroma_log2_weight_denom "
    "luma_weight_l0_flag luma_weight_l0[64] luma_offset_l0[64] chroma_weight_l0_flag chroma_weight_l0[64][2] "
    "chroma_offset_l0[64][2] luma_weight_l1_flag luma_weight_l1[64] luma_offset_l1[64] chroma_weight_l1_flag "
    "chroma_weight_l1[64][2] chroma_offset_l1[64][2] ref_pic_list_modification_flag_l0 "
    "ref_pic_list_modification_flag_l1 modification_of_pic_nums_idc long_term_pic_num "
    "abs_diff_pic_num_minus1 no_output_of_prior_pics_flag long_term_reference_flag "
    "adaptive_ref_pic_marking_mode_flag memory_management_control_operation difference_of_pic_nums_minus1 "
    "- long_term_frame_idx max_long_term_frame_idx_plus1";

struct Slot {
    size_t index; // in 32-bit fields
    size_t cols;  // 0 for scalars and lists
};
using Layout = std::map<std::string, Slot>;

Layout parseLayout(const std::string &text, size_t recordSize)
{
    Layout layout;
    std::istringstream tokens(text);
    size_t index = 0;
    for (std::string token; tokens >> token;) {
        size_t rows = 1, cols = 0;
        const size_t open = token.find('[');
        if (open != std::string::npos) {
            rows = std::stoul(token.substr(open + 1));
            const size_t second = token.find('[', open + 1);
            cols = second == std::string::npos ? 0 : std::stoul(token.substr(second + 1));
        }
        layout[token.substr(0, open)] = {index, cols};
        index += rows * (cols ? cols : 1);
    }
    EXPECT_EQ(index * 4, recordSize) << text.substr(0, 40);
    return layout;
}

// ---- Trace tables and the library's departures -----------------------------------

using TraceTable = std::map<std::string, std::vector<std::pair<std::string, int>>>; // by block

TraceTable readTable(const std::string &clip)
{
    const Bytes raw = readFile(clip + ".fields");
    std::istringstream lines(std::string(raw.begin(), raw.end()));
    TraceTable table;
    std::string key;
    for (int value = 0; lines >> key >> value;)
        table[key.substr(0, key.find('.'))].emplace_back(key.substr(key.find('.') + 1), value);
    return table;
}

// qrvutilRead_SliceHeader does not read dec_ref_pic_marking, so in a
// reference slice everything from there on comes from the wrong bits.
const std::string kMarkingAndAfter =
    " no_output_of_prior_pics_flag long_term_reference_flag adaptive_ref_pic_marking_mode_flag "
    "memory_management_control_operation difference_of_pic_nums_minus1 long_term_frame_idx "
    "max_long_term_frame_idx_plus1 cabac_init_idc slice_qp_delta sp_for_switch_flag slice_qs_delta "
    "disable_deblocking_filter_idc slice_alpha_c0_offset_div2 slice_beta_offset_div2 slice_group_change_cycle ";
// qrvutilFix_SliceHeader starts after the NAL header byte.
const std::string kNalHeader = " forbidden_zero_bit nal_ref_idc nal_unit_type ";

bool isWeightFlag(const std::string &base)
{
    return base.find("_weight_l") != std::string::npos && base.rfind("_flag") == base.size() - 5;
}

template <typename Record>
void expectFields(const Record &record, const Layout &layout,
                  const std::vector<std::pair<std::string, int>> &fields, const std::string &what,
                  const std::string &skip = "")
{
    const auto *values = reinterpret_cast<const int32_t *>(&record);
    const auto baseOf = [](const std::string &name) { return name.substr(0, name.find('[')); };
    int compared = 0;
    for (size_t k = 0; k < fields.size(); ++k) {
        const auto &[name, value] = fields[k];
        const std::string base = baseOf(name);
        if (base == "slice_index" || skip.find(" " + base + " ") != std::string::npos)
            continue;
        const auto slot = layout.find(base);
        ASSERT_NE(slot, layout.end()) << what << ": no field for " << name;
        size_t index = slot->second.index;
        if (isWeightFlag(base)) {
            // A single field holding the last entry's flag.
            if (std::any_of(fields.begin() + k + 1, fields.end(),
                            [&](const auto &f) { return baseOf(f.first) == base; }))
                continue;
        } else if (name.size() > base.size()) {
            const size_t second = name.find('[', base.size() + 1);
            const size_t row = std::stoul(name.substr(base.size() + 1));
            index += slot->second.cols ? row * slot->second.cols + std::stoul(name.substr(second + 1)) : row;
        }
        EXPECT_EQ(values[index], value) << what << "." << name;
        ++compared;
    }
    EXPECT_GT(compared, 0) << what;
}

// ---- Clips split into units independently of the library ---------------------------

struct Clip {
    std::string name;
    Bytes stream;
    std::vector<Bytes> units;
    std::vector<bool> longCode; // opened by 00 00 00 01
    TraceTable table;

    Bytes first(int type) const
    {
        for (const Bytes &u : units)
            if ((u[0] & 0x1F) == type)
                return u;
        return {};
    }
};

Clip splitClip(const std::string &name, const Bytes &stream)
{
    Clip c{name, stream, {}, {}, {}};
    std::vector<size_t> starts;
    for (size_t i = 0; i + 3 <= stream.size(); ++i)
        if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1)
            starts.push_back(i + 3);
    for (size_t k = 0; k < starts.size(); ++k) {
        size_t end = k + 1 < starts.size() ? starts[k + 1] - 3 : stream.size();
        while (end > starts[k] && stream[end - 1] == 0) // zeros before the next code
            --end;
        c.units.emplace_back(stream.begin() + starts[k], stream.begin() + end);
        c.longCode.push_back(starts[k] >= 4 && stream[starts[k] - 4] == 0);
    }
    return c;
}

Clip loadClip(const std::string &name)
{
    Clip c = splitClip(name, readFile(name + ".h264"));
    c.table = readTable(name);
    return c;
}

constexpr int32_t kHighBranchProfiles[] = {83, 86, 100, 110, 118, 122, 128, 244, 44};

TEST(RealStreams, HeadersMatchTheTraceTables)
{
    const Layout sps = parseLayout(kSpsLayout, sizeof(SPS_DECODED));
    const Layout pps = parseLayout(kPpsLayout, sizeof(PPS_DECODED));
    const Layout slice = parseLayout(kSliceLayout, sizeof(SLICE_HEADER));
    int slices = 0;
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        SPS_DECODED s = decodeSps(clip.first(7));
        PPS_DECODED p = decodePps(clip.first(8));
        expectFields(s, sps, clip.table.at("sps"), clip.name + " sps");
        expectFields(p, pps, clip.table.at("pps"), clip.name + " pps");
        // Outside the high branch the library states 4:2:0 and "8" for both
        // depth fields, where the syntax implies 0.
        const bool high = std::count(std::begin(kHighBranchProfiles), std::end(kHighBranchProfiles),
                                     s.profile_idc) != 0;
        EXPECT_TRUE(high || (s.chroma_format_idc == 1 && s.bit_depth_luma_minus8 == 8 &&
                             s.bit_depth_chroma_minus8 == 8)) << name;

        std::vector<Bytes> sliceUnits;
        for (const Bytes &u : clip.units)
            if ((u[0] & 0x1F) >= 1 && (u[0] & 0x1F) <= 5)
                sliceUnits.push_back(u);
        for (const auto &[block, fields] : clip.table) {
            if (block.rfind("slice", 0) != 0)
                continue;
            const std::string what = clip.name + " " + block;
            Bytes unit = sliceUnits.at(std::find_if(fields.begin(), fields.end(), [](const auto &f) {
                                           return f.first == "slice_index";
                                       })->second);
            const int nalRefIdc = (unit[0] >> 5) & 3;
            SLICE_HEADER read{}, fixed{};
            kx_bitstream bs = readerOver(unit);
            qrvutilRead_SliceHeader(&bs, &read, &s, &p, unit[0] & 0x1F);
            expectFields(read, slice, fields, what + " read", nalRefIdc ? kMarkingAndAfter : "");
            // Fix reads the marking too, from the bytes as they are.
            bs = readerOver(unit);
            bs.bit_pos = 8;
            qrvutilFix_SliceHeader(&bs, &fixed, &s, &p, unit[0] & 0x1Fu, nalRefIdc);
            expectFields(fixed, slice, fields, what + " fix", kNalHeader);
            ++slices;
        }
    }
    EXPECT_GE(slices, 30);
}

TEST(RealStreams, UnitWalkAndAvccBoxesGiveTheClipsParameterSets)
{
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        const SPS_DECODED sps = decodeSps(clip.first(7));
        const PPS_DECODED pps = decodePps(clip.first(8));

        // Only 4-byte codes open units in start-code form, and the last unit
        // is left uncounted; length-prefixed, every unit counts.
        Bytes coded = clip.stream;
        Bytes sized = framed(clip.units, false);
        const Walk a = walk(coded), b = walk(sized);
        EXPECT_EQ(a.count, std::count(clip.longCode.begin(), clip.longCode.end(), true) - 1) << name;
        EXPECT_EQ(b.count, static_cast<int>(clip.units.size())) << name;
        EXPECT_TRUE(sameRecord(a.sps, sps) && sameRecord(b.sps, sps)) << name;
        // CAVLC slice headers leave their next bit in the PPS's last field.
        EXPECT_EQ(b.pps.entropy_coding_mode_flag, pps.entropy_coding_mode_flag) << name;
        EXPECT_TRUE(!pps.entropy_coding_mode_flag || sameRecord(b.pps, pps)) << name;

        // The muxer's box, read directly and by the walk.
        Bytes muxed = readFile(std::string(name) + ".avcc");
        kx_bitstream bs = readerOver(muxed);
        SPS_DECODED boxSps{};
        PPS_DECODED boxPps{};
        EXPECT_EQ(qrvutilReadAvcc(&bs, &boxSps, &boxPps), 0) << name;
        EXPECT_TRUE(sameRecord(boxSps, sps) && sameRecord(boxPps, pps)) << name;
        Bytes none;
        const Walk c = walk(none, muxed.data());
        EXPECT_TRUE(sameRecord(c.sps, sps) && sameRecord(c.pps, pps)) << name;

        // The box written for the clip's parameter sets reads back to the same
        // records. They are padded with zero bytes to one length, which the
        // first unit's length must fit as the stride.
        Bytes spsUnit = clip.first(7), ppsUnit = clip.first(8);
        const size_t common = std::max(spsUnit.size(), ppsUnit.size());
        spsUnit.resize(common);
        ppsUnit.resize(common);
        Bytes written = writeAvcc(framed({spsUnit, ppsUnit}, false));
        ASSERT_EQ(written.size(), 14 + 2 + common + 3 + common) << name;
        bs = readerOver(written);
        EXPECT_EQ(qrvutilReadAvcc(&bs, &boxSps, &boxPps), 0);
        EXPECT_TRUE(sameRecord(boxSps, sps) && sameRecord(boxPps, pps)) << name;
    }
}

TEST(RealStreams, LengthPrefixesConvertBackToStartCodes)
{
    const Bytes original = readFile("long_startcodes.h264");
    Bytes buf = original;
    ASSERT_EQ(qrvUtilh264MarkerToSize(buf.data(), static_cast<int>(buf.size())), static_cast<int>(original.size()));
    EXPECT_EQ(buf, framed(loadClip("long_startcodes").units, false));
    EXPECT_EQ(qrvUtilh264SizeToMarker(buf.data(), static_cast<unsigned>(buf.size())), original.size());
    EXPECT_EQ(buf, original);

    // The same clip with 3-byte codes widens to the 4-byte one.
    Bytes shortCodes = readFile("slices4.h264");
    const int shortLen = static_cast<int>(shortCodes.size());
    shortCodes.resize(original.size());
    EXPECT_EQ(qrvUtilh264MarkerToSize(shortCodes.data(), shortLen), static_cast<int>(original.size()));
    qrvUtilh264SizeToMarker(shortCodes.data(), static_cast<unsigned>(shortCodes.size()));
    EXPECT_EQ(shortCodes, original);
}

// Every decoder over one (possibly damaged) stream and box, in exactly
// sized buffers; only the absence of faults is checked.
void runDecoders(const Bytes &stream, Bytes avcc)
{
    const Clip clip = splitClip("damaged", stream);
    for (Bytes unit : clip.units) {
        SPS_DECODED sps{};
        PPS_DECODED pps{};
        SLICE_HEADER sh{};
        kx_bitstream bs = readerOver(unit);
        qrvutilRead_SPS(&bs, &sps);
        bs = readerOver(unit);
        qrvutilRead_PPS(&bs, &pps);
        bs = readerOver(unit);
        qrvutilRead_SliceHeader(&bs, &sh, &sps, &pps, unit.empty() ? 1 : unit[0] & 0x1F);
    }
    Bytes sized = stream;
    sized.resize(2 * stream.size());
    sized.resize(static_cast<size_t>(qrvUtilh264MarkerToSize(sized.data(), static_cast<int>(stream.size()))));
    Bytes coded = stream;
    walk(coded);
    walk(sized);
    writeAvcc(sized);
    writeAvcc(stream);
    qrvUtilh264SizeToMarker(sized.data(), static_cast<unsigned>(sized.size()));

    kx_bitstream bs = readerOver(avcc);
    SPS_DECODED sps{};
    PPS_DECODED pps{};
    qrvutilReadAvcc(&bs, &sps, &pps);
    avcc.resize(512); // the walk reads a 512-byte window whatever the size field says
    walk(coded, avcc.data());
}

TEST(RealStreams, DecodersSurviveTruncatedAndBitFlippedCopies)
{
    std::mt19937 rng(1234);
    for (const char *name : kClips) {
        const Bytes stream = readFile(std::string(name) + ".h264");
        const Bytes avcc = readFile(std::string(name) + ".avcc");
        for (size_t cut = 0; cut < stream.size(); cut += 1 + rng() % 64)
            runDecoders(Bytes(stream.begin(), stream.begin() + cut),
                        Bytes(avcc.begin(), avcc.begin() + std::min(cut, avcc.size())));
        for (int round = 0; round < 150; ++round) {
            Bytes s = stream, a = avcc;
            for (int flips = 1 + rng() % 16; flips > 0; --flips) {
                // Flips land in the headers near the front more often.
                s[rng() % ((rng() & 1) ? std::min<size_t>(s.size(), 64) : s.size())] ^= uint8_t(1u << (rng() % 8));
                a[rng() % a.size()] ^= uint8_t(1u << (rng() % 8));
            }
            runDecoders(s, a);
        }
    }
}

} // namespace
