// Encoded clips (tests/data/h264, made by make_clips.sh) decoded by the
// library and compared field by field with the tables that a reference
// decoder's header trace gave for them, except where the library departs
// from the standard on purpose; plus avcC boxes, framing round trips and
// runs over damaged copies.
#include <qrvutil/h264.h>

#include "h264/scanning_internal.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char *kClips[] = {"baseline_cavlc", "main_cabac_b",      "high_cqm",
                                  "mbaff",          "interlaced_frames", "slices4",
                                  "weightp",        "hrd_vui",           "hi444_lossless10",
                                  "long_startcodes"};

Bytes readFile(const std::string &name)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/h264/" + name, std::ios::binary);
    EXPECT_TRUE(in.good()) << name;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// ---- The trace tables -------------------------------------------------------------

struct TraceField {
    std::string name; // syntax element, with any [i][j] indices
    int value;
};
using TraceTable = std::map<std::string, std::vector<TraceField>>; // by block

TraceTable readTable(const std::string &clip)
{
    TraceTable table;
    std::istringstream lines(std::string(
        [&] {
            const Bytes raw = readFile(clip + ".fields");
            return std::string(raw.begin(), raw.end());
        }()));
    std::string key;
    int value = 0;
    while (lines >> key >> value) {
        const size_t dot = key.find('.');
        table[key.substr(0, dot)].push_back({key.substr(dot + 1), value});
    }
    return table;
}

// Where each traced syntax element lives in a record: byte offset and the
// array extents (0 for a scalar).
struct Slot {
    const char *name;
    size_t offset;
    size_t rows;
    size_t cols;
};

#define QRV_SLOT_AS(Record, traced, member)                                                    \
    Slot{traced, offsetof(Record, member), std::extent<decltype(Record::member), 0>::value,   \
         std::extent<decltype(Record::member), 1>::value}
#define QRV_SLOT(Record, member) QRV_SLOT_AS(Record, #member, member)
#define QRV_HRD_SLOTS(block)                                                                   \
    QRV_SLOT(SPS_DECODED, block.cpb_cnt_minus1), QRV_SLOT(SPS_DECODED, block.bit_rate_scale),  \
        QRV_SLOT(SPS_DECODED, block.cpb_size_scale),                                           \
        QRV_SLOT(SPS_DECODED, block.bit_rate_value_minus1),                                    \
        QRV_SLOT(SPS_DECODED, block.cpb_size_value_minus1),                                    \
        QRV_SLOT(SPS_DECODED, block.cbr_flag),                                                 \
        QRV_SLOT(SPS_DECODED, block.initial_cpb_removal_delay_length_minus1),                  \
        QRV_SLOT(SPS_DECODED, block.cpb_removal_delay_length_minus1),                          \
        QRV_SLOT(SPS_DECODED, block.dpb_output_delay_length_minus1),                           \
        QRV_SLOT(SPS_DECODED, block.time_offset_length)

const Slot kSpsSlots[] = {
    QRV_SLOT(SPS_DECODED, forbidden_zero_bit),
    QRV_SLOT(SPS_DECODED, nal_ref_idc),
    QRV_SLOT(SPS_DECODED, nal_unit_type),
    QRV_SLOT(SPS_DECODED, profile_idc),
    QRV_SLOT(SPS_DECODED, constraint_set0_flag),
    QRV_SLOT(SPS_DECODED, constraint_set1_flag),
    QRV_SLOT(SPS_DECODED, constraint_set2_flag),
    QRV_SLOT(SPS_DECODED, constraint_set3_flag),
    QRV_SLOT(SPS_DECODED, constraint_set4_flag),
    QRV_SLOT(SPS_DECODED, constraint_set5_flag),
    QRV_SLOT(SPS_DECODED, reserved_zero_2bits),
    QRV_SLOT(SPS_DECODED, level_idc),
    QRV_SLOT(SPS_DECODED, seq_parameter_set_id),
    QRV_SLOT(SPS_DECODED, chroma_format_idc),
    QRV_SLOT(SPS_DECODED, seq_scaling_list_present_flag),
    QRV_SLOT(SPS_DECODED, ScalingList4x4),
    QRV_SLOT(SPS_DECODED, ScalingList8x8),
    QRV_SLOT(SPS_DECODED, separate_colour_plane_flag),
    QRV_SLOT(SPS_DECODED, bit_depth_luma_minus8),
    QRV_SLOT(SPS_DECODED, bit_depth_chroma_minus8),
    QRV_SLOT(SPS_DECODED, qpprime_y_zero_transform_bypass_flag),
    QRV_SLOT(SPS_DECODED, seq_scaling_matrix_present_flag),
    QRV_SLOT(SPS_DECODED, log2_max_frame_num_minus4),
    QRV_SLOT(SPS_DECODED, pic_order_cnt_type),
    QRV_SLOT(SPS_DECODED, log2_max_pic_order_cnt_lsb_minus4),
    QRV_SLOT(SPS_DECODED, delta_pic_order_always_zero_flag),
    QRV_SLOT(SPS_DECODED, max_num_ref_frames),
    QRV_SLOT_AS(SPS_DECODED, "gaps_in_frame_num_allowed_flag", gaps_in_frame_num_value_allowed_flag),
    QRV_SLOT(SPS_DECODED, pic_width_in_mbs_minus1),
    QRV_SLOT(SPS_DECODED, pic_height_in_map_units_minus1),
    QRV_SLOT(SPS_DECODED, frame_mbs_only_flag),
    QRV_SLOT(SPS_DECODED, mb_adaptive_frame_field_flag),
    QRV_SLOT(SPS_DECODED, direct_8x8_inference_flag),
    QRV_SLOT(SPS_DECODED, frame_cropping_flag),
    QRV_SLOT(SPS_DECODED, frame_crop_left_offset),
    QRV_SLOT(SPS_DECODED, frame_crop_right_offset),
    QRV_SLOT(SPS_DECODED, frame_crop_top_offset),
    QRV_SLOT(SPS_DECODED, frame_crop_bottom_offset),
    QRV_SLOT(SPS_DECODED, vui_parameters_present_flag),
    QRV_SLOT(SPS_DECODED, aspect_ratio_info_present_flag),
    QRV_SLOT(SPS_DECODED, aspect_ratio_idc),
    QRV_SLOT(SPS_DECODED, sar_width),
    QRV_SLOT(SPS_DECODED, sar_height),
    QRV_SLOT(SPS_DECODED, overscan_info_present_flag),
    QRV_SLOT(SPS_DECODED, overscan_appropriate_flag),
    QRV_SLOT(SPS_DECODED, video_signal_type_present_flag),
    QRV_SLOT(SPS_DECODED, video_format),
    QRV_SLOT(SPS_DECODED, video_full_range_flag),
    QRV_SLOT(SPS_DECODED, colour_description_present_flag),
    QRV_SLOT(SPS_DECODED, colour_primaries),
    QRV_SLOT(SPS_DECODED, transfer_characteristics),
    QRV_SLOT(SPS_DECODED, matrix_coefficients),
    QRV_SLOT(SPS_DECODED, chroma_loc_info_present_flag),
    QRV_SLOT(SPS_DECODED, chroma_sample_loc_type_top_field),
    QRV_SLOT(SPS_DECODED, chroma_sample_loc_type_bottom_field),
    QRV_SLOT(SPS_DECODED, timing_info_present_flag),
    QRV_SLOT(SPS_DECODED, num_units_in_tick),
    QRV_SLOT(SPS_DECODED, time_scale),
    QRV_SLOT(SPS_DECODED, fixed_frame_rate_flag),
    QRV_SLOT(SPS_DECODED, nal_hrd_parameters_present_flag),
    QRV_SLOT(SPS_DECODED, vcl_hrd_parameters_present_flag),
    QRV_HRD_SLOTS(nal_hrd),
    QRV_HRD_SLOTS(vcl_hrd),
    QRV_SLOT(SPS_DECODED, low_delay_hrd_flag),
    QRV_SLOT(SPS_DECODED, pic_struct_present_flag),
    QRV_SLOT(SPS_DECODED, bitstream_restriction_flag),
    QRV_SLOT(SPS_DECODED, motion_vectors_over_pic_boundaries_flag),
    QRV_SLOT(SPS_DECODED, max_bytes_per_pic_denom),
    QRV_SLOT(SPS_DECODED, max_bits_per_mb_denom),
    QRV_SLOT(SPS_DECODED, log2_max_mv_length_horizontal),
    QRV_SLOT(SPS_DECODED, log2_max_mv_length_vertical),
    QRV_SLOT(SPS_DECODED, max_num_reorder_frames),
    QRV_SLOT(SPS_DECODED, max_dec_frame_buffering),
    QRV_SLOT(SPS_DECODED, rbsp_stop_one_bit),
};

const Slot kPpsSlots[] = {
    QRV_SLOT(PPS_DECODED, forbidden_zero_bit),
    QRV_SLOT(PPS_DECODED, nal_ref_idc),
    QRV_SLOT(PPS_DECODED, nal_unit_type),
    QRV_SLOT(PPS_DECODED, pic_parameter_set_id),
    QRV_SLOT(PPS_DECODED, seq_parameter_set_id),
    QRV_SLOT(PPS_DECODED, entropy_coding_mode_flag),
    QRV_SLOT_AS(PPS_DECODED, "bottom_field_pic_order_in_frame_present_flag", pic_order_present_flag),
    QRV_SLOT(PPS_DECODED, num_slice_groups_minus1),
    QRV_SLOT(PPS_DECODED, num_ref_idx_l0_default_active_minus1),
    QRV_SLOT(PPS_DECODED, num_ref_idx_l1_default_active_minus1),
    QRV_SLOT(PPS_DECODED, weighted_pred_flag),
    QRV_SLOT(PPS_DECODED, weighted_bipred_idc),
    QRV_SLOT(PPS_DECODED, pic_init_qp_minus26),
    QRV_SLOT(PPS_DECODED, pic_init_qs_minus26),
    QRV_SLOT(PPS_DECODED, chroma_qp_index_offset),
    QRV_SLOT(PPS_DECODED, deblocking_filter_control_present_flag),
    QRV_SLOT(PPS_DECODED, constrained_intra_pred_flag),
    QRV_SLOT(PPS_DECODED, redundant_pic_cnt_present_flag),
    QRV_SLOT(PPS_DECODED, transform_8x8_mode_flag),
    QRV_SLOT(PPS_DECODED, pic_scaling_matrix_present_flag),
    QRV_SLOT(PPS_DECODED, pic_scaling_list_present_flag),
    QRV_SLOT(PPS_DECODED, ScalingList4x4),
    QRV_SLOT(PPS_DECODED, ScalingList8x8),
    QRV_SLOT(PPS_DECODED, second_chroma_qp_index_offset),
    QRV_SLOT(PPS_DECODED, rbsp_stop_one_bit),
};

const Slot kSliceSlots[] = {
    QRV_SLOT(SLICE_HEADER, forbidden_zero_bit),
    QRV_SLOT(SLICE_HEADER, nal_ref_idc),
    QRV_SLOT(SLICE_HEADER, nal_unit_type),
    QRV_SLOT(SLICE_HEADER, first_mb_in_slice),
    QRV_SLOT(SLICE_HEADER, slice_type),
    QRV_SLOT(SLICE_HEADER, pic_parameter_set_id),
    QRV_SLOT(SLICE_HEADER, frame_num),
    QRV_SLOT(SLICE_HEADER, field_pic_flag),
    QRV_SLOT(SLICE_HEADER, bottom_field_flag),
    QRV_SLOT(SLICE_HEADER, idr_pic_id),
    QRV_SLOT(SLICE_HEADER, pic_order_cnt_lsb),
    QRV_SLOT(SLICE_HEADER, delta_pic_order_cnt_bottom),
    QRV_SLOT(SLICE_HEADER, delta_pic_order_cnt),
    QRV_SLOT(SLICE_HEADER, redundant_pic_cnt),
    QRV_SLOT(SLICE_HEADER, direct_spatial_mv_pred_flag),
    QRV_SLOT(SLICE_HEADER, num_ref_idx_active_override_flag),
    QRV_SLOT(SLICE_HEADER, num_ref_idx_l0_active_minus1),
    QRV_SLOT(SLICE_HEADER, num_ref_idx_l1_active_minus1),
    QRV_SLOT(SLICE_HEADER, cabac_init_idc),
    QRV_SLOT(SLICE_HEADER, slice_qp_delta),
    QRV_SLOT(SLICE_HEADER, sp_for_switch_flag),
    QRV_SLOT(SLICE_HEADER, slice_qs_delta),
    QRV_SLOT(SLICE_HEADER, disable_deblocking_filter_idc),
    QRV_SLOT(SLICE_HEADER, slice_alpha_c0_offset_div2),
    QRV_SLOT(SLICE_HEADER, slice_beta_offset_div2),
    QRV_SLOT(SLICE_HEADER, slice_group_change_cycle),
    QRV_SLOT(SLICE_HEADER, luma_log2_weight_denom),
    QRV_SLOT(SLICE_HEADER, chroma_log2_weight_denom),
    QRV_SLOT(SLICE_HEADER, luma_weight_l0_flag),
    QRV_SLOT(SLICE_HEADER, luma_weight_l0),
    QRV_SLOT(SLICE_HEADER, luma_offset_l0),
    QRV_SLOT(SLICE_HEADER, chroma_weight_l0_flag),
    QRV_SLOT(SLICE_HEADER, chroma_weight_l0),
    QRV_SLOT(SLICE_HEADER, chroma_offset_l0),
    QRV_SLOT(SLICE_HEADER, luma_weight_l1_flag),
    QRV_SLOT(SLICE_HEADER, luma_weight_l1),
    QRV_SLOT(SLICE_HEADER, luma_offset_l1),
    QRV_SLOT(SLICE_HEADER, chroma_weight_l1_flag),
    QRV_SLOT(SLICE_HEADER, chroma_weight_l1),
    QRV_SLOT(SLICE_HEADER, chroma_offset_l1),
    QRV_SLOT_AS(SLICE_HEADER, "ref_pic_list_modification_flag_l0", ref_pic_list_reordering_flag_l0),
    QRV_SLOT_AS(SLICE_HEADER, "ref_pic_list_modification_flag_l1", ref_pic_list_reordering_flag_l1),
    QRV_SLOT_AS(SLICE_HEADER, "modification_of_pic_nums_idc", reordering_of_pic_nums_idc),
    QRV_SLOT(SLICE_HEADER, long_term_pic_num),
    QRV_SLOT(SLICE_HEADER, abs_diff_pic_num_minus1),
    QRV_SLOT(SLICE_HEADER, no_output_of_prior_pics_flag),
    QRV_SLOT(SLICE_HEADER, long_term_reference_flag),
    QRV_SLOT(SLICE_HEADER, adaptive_ref_pic_marking_mode_flag),
    QRV_SLOT(SLICE_HEADER, memory_management_control_operation),
    QRV_SLOT(SLICE_HEADER, difference_of_pic_nums_minus1),
    QRV_SLOT(SLICE_HEADER, long_term_frame_idx),
    QRV_SLOT(SLICE_HEADER, max_long_term_frame_idx_plus1),
};

// Departures of the slice readers, as element names.
// The per-entry weight flags are single fields holding the last entry's flag.
constexpr const char *kLastEntryFlags[] = {"luma_weight_l0_flag", "chroma_weight_l0_flag",
                                           "luma_weight_l1_flag", "chroma_weight_l1_flag"};
// qrvutilRead_SliceHeader does not read dec_ref_pic_marking, so in a
// reference slice everything from the marking on is read from the wrong
// bits; qrvutilFix_SliceHeader reads it.
constexpr const char *kMarkingAndAfter[] = {
    "no_output_of_prior_pics_flag", "long_term_reference_flag", "adaptive_ref_pic_marking_mode_flag",
    "memory_management_control_operation", "difference_of_pic_nums_minus1", "long_term_frame_idx",
    "max_long_term_frame_idx_plus1", "cabac_init_idc", "slice_qp_delta", "sp_for_switch_flag",
    "slice_qs_delta", "disable_deblocking_filter_idc", "slice_alpha_c0_offset_div2",
    "slice_beta_offset_div2", "slice_group_change_cycle"};
// Fields that qrvutilFix_SliceHeader does not fill (it starts after the NAL
// header byte), and the tables' own unit ordinal.
constexpr const char *kNalHeader[] = {"forbidden_zero_bit", "nal_ref_idc", "nal_unit_type"};
constexpr const char *kNotSyntax[] = {"slice_index"};

template <size_t N>
bool listed(const char *const (&names)[N], const std::string &name)
{
    for (const char *n : names)
        if (name == n)
            return true;
    return false;
}

// Splits "name[i][j]" and finds its place in the record.
bool locate(const Slot *slots, size_t count, const std::string &traced, size_t *offset,
            std::string *error)
{
    const std::string base = traced.substr(0, traced.find('['));
    std::vector<size_t> index;
    for (size_t at = traced.find('['); at != std::string::npos; at = traced.find('[', at + 1))
        index.push_back(std::stoul(traced.substr(at + 1)));
    for (size_t i = 0; i < count; ++i) {
        const Slot &s = slots[i];
        if (base != s.name)
            continue;
        const size_t dims = (s.rows ? 1 : 0) + (s.cols ? 1 : 0);
        if (dims == 0 && !index.empty() && !listed(kLastEntryFlags, base)) {
            *error = "index on a scalar field: " + traced;
            return false;
        }
        if (dims != 0 && index.size() != dims) {
            *error = "wrong index count: " + traced;
            return false;
        }
        size_t element = 0;
        if (dims == 1)
            element = index[0];
        if (dims == 2)
            element = index[0] * s.cols + index[1];
        if ((dims >= 1 && index[0] >= s.rows) || (dims == 2 && index[1] >= s.cols)) {
            *error = "index out of range: " + traced;
            return false;
        }
        *offset = s.offset + element * sizeof(int32_t);
        return true;
    }
    *error = "no record field for " + traced;
    return false;
}

template <typename Record, size_t N>
void expectFields(const Record &record, const Slot (&slots)[N],
                  const std::vector<TraceField> &fields, const std::string &what,
                  bool (*skip)(const std::string &base))
{
    // Later lines win, so a per-entry flag compares as its last entry.
    std::map<size_t, TraceField> expected;
    for (const TraceField &f : fields) {
        const std::string base = f.name.substr(0, f.name.find('['));
        if (listed(kNotSyntax, base) || (skip && skip(base)))
            continue;
        size_t offset = 0;
        std::string error;
        ASSERT_TRUE(locate(slots, N, f.name, &offset, &error)) << what << ": " << error;
        expected[offset] = f;
    }
    ASSERT_FALSE(expected.empty()) << what;
    for (const auto &[offset, f] : expected) {
        int32_t got = 0;
        std::memcpy(&got, reinterpret_cast<const uint8_t *>(&record) + offset, sizeof got);
        EXPECT_EQ(got, f.value) << what << "." << f.name;
    }
}

// ---- Units of a clip, split independently of the library -------------------------

struct Unit {
    size_t at; // first byte (the NAL header)
    size_t size;
};

std::vector<Unit> splitAnnexB(const Bytes &s)
{
    std::vector<size_t> starts;
    for (size_t i = 0; i + 3 <= s.size(); ++i)
        if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1)
            starts.push_back(i + 3);
    std::vector<Unit> units;
    for (size_t k = 0; k < starts.size(); ++k) {
        size_t end = k + 1 < starts.size() ? starts[k + 1] - 3 : s.size();
        while (end > starts[k] && s[end - 1] == 0) // zeros before the next code
            --end;
        units.push_back({starts[k], end - starts[k]});
    }
    return units;
}

Bytes unitBytes(const Bytes &stream, const Unit &u)
{
    return Bytes(stream.begin() + u.at, stream.begin() + u.at + u.size);
}

kx_bitstream readerOver(Bytes &unit)
{
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(unit.data());
    bs.byte_size = unit.size();
    bs.bit_end = unit.size() * 8;
    return bs;
}

struct Clip {
    std::string name;
    Bytes stream;
    std::vector<Unit> units;
    TraceTable table;

    std::vector<Unit> ofType(uint8_t type) const
    {
        std::vector<Unit> out;
        for (const Unit &u : units)
            if ((stream[u.at] & 0x1F) == type)
                out.push_back(u);
        return out;
    }
    std::vector<Unit> slices() const
    {
        std::vector<Unit> out;
        for (const Unit &u : units)
            if ((stream[u.at] & 0x1F) >= 1 && (stream[u.at] & 0x1F) <= 5)
                out.push_back(u);
        return out;
    }
    Bytes firstOf(uint8_t type) const { return unitBytes(stream, ofType(type).at(0)); }
};

Clip loadClip(const std::string &name)
{
    Clip c{name, readFile(name + ".h264"), {}, readTable(name)};
    c.units = splitAnnexB(c.stream);
    return c;
}

SPS_DECODED decodeSps(Bytes unit)
{
    kx_bitstream bs = readerOver(unit);
    SPS_DECODED sps{};
    qrvutilRead_SPS(&bs, &sps);
    return sps;
}

PPS_DECODED decodePps(Bytes unit)
{
    kx_bitstream bs = readerOver(unit);
    PPS_DECODED pps{};
    qrvutilRead_PPS(&bs, &pps);
    return pps;
}

template <typename Record>
bool sameRecord(const Record &a, const Record &b)
{
    return std::memcmp(&a, &b, sizeof(Record)) == 0;
}

constexpr int32_t kHighBranchProfiles[] = {83, 86, 100, 110, 118, 122, 128, 244, 44};

bool isHighBranch(int32_t profile)
{
    for (int32_t p : kHighBranchProfiles)
        if (p == profile)
            return true;
    return false;
}

// ---- Field comparisons ---------------------------------------------------------------

TEST(RealStreams, ParameterSetsMatchTheTraceTables)
{
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        const SPS_DECODED sps = decodeSps(clip.firstOf(7));
        const PPS_DECODED pps = decodePps(clip.firstOf(8));
        expectFields(sps, kSpsSlots, clip.table.at("sps"), clip.name + " sps", nullptr);
        expectFields(pps, kPpsSlots, clip.table.at("pps"), clip.name + " pps", nullptr);

        // Departure: outside the high branch the library states 4:2:0 and
        // "8" for both depth fields, where the syntax implies 0.
        if (!isHighBranch(sps.profile_idc)) {
            EXPECT_EQ(sps.chroma_format_idc, 1) << name;
            EXPECT_EQ(sps.bit_depth_luma_minus8, 8) << name;
            EXPECT_EQ(sps.bit_depth_chroma_minus8, 8) << name;
        }
    }
}

TEST(RealStreams, SliceHeadersMatchTheTraceTables)
{
    size_t compared = 0;
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        const std::vector<Unit> slices = clip.slices();
        for (const auto &[block, fields] : clip.table) {
            if (block.rfind("slice", 0) != 0)
                continue;
            const std::string what = clip.name + " " + block;
            int index = -1;
            for (const TraceField &f : fields)
                if (f.name == "slice_index")
                    index = f.value;
            ASSERT_GE(index, 0) << what;
            Bytes unit = unitBytes(clip.stream, slices.at(index));
            const int nalType = unit[0] & 0x1F;
            const int nalRefIdc = (unit[0] >> 5) & 3;

            SPS_DECODED sps = decodeSps(clip.firstOf(7));
            PPS_DECODED pps = decodePps(clip.firstOf(8));
            SLICE_HEADER read{};
            kx_bitstream bs = readerOver(unit);
            qrvutilRead_SliceHeader(&bs, &read, &sps, &pps, nalType);
            if (nalRefIdc == 0)
                expectFields(read, kSliceSlots, fields, what + " read", nullptr);
            else
                expectFields(read, kSliceSlots, fields, what + " read",
                             [](const std::string &b) { return listed(kMarkingAndAfter, b); });

            // Fix reads the marking; it works on the bytes as they are.
            Bytes copy = unit;
            SLICE_HEADER fixed{};
            kx_bitstream fb = readerOver(copy);
            fb.bit_pos = 8;
            qrvutilFix_SliceHeader(&fb, &fixed, &sps, &pps, static_cast<unsigned>(nalType),
                                   nalRefIdc);
            expectFields(fixed, kSliceSlots, fields, what + " fix",
                         [](const std::string &b) { return listed(kNalHeader, b); });
            ++compared;
        }
    }
    EXPECT_GE(compared, 30u);
}

// ---- The unit walk over whole clips -------------------------------------------------

Bytes lengthPrefixed(const Bytes &stream, const std::vector<Unit> &units)
{
    Bytes out;
    for (const Unit &u : units) {
        Bytes field(4);
        qrv::h264::writeBE32(field.data(), static_cast<uint32_t>(u.size));
        out.insert(out.end(), field.begin(), field.end());
        out.insert(out.end(), stream.begin() + u.at, stream.begin() + u.at + u.size);
    }
    return out;
}

struct Walk {
    int count;
    SPS_DECODED sps;
    PPS_DECODED pps;
};

Walk walk(Bytes bytes, const uint8_t *avcc = nullptr)
{
    NAL_BUFFER nb{};
    nb.data = bytes.data();
    nb.length = static_cast<uint32_t>(bytes.size());
    Walk w{};
    w.count = qrvutilFindNalUnits(&nb, &w.sps, &w.pps, avcc);
    return w;
}

TEST(RealStreams, UnitWalkCountsAndDecodesEveryClip)
{
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        const SPS_DECODED sps = decodeSps(clip.firstOf(7));
        PPS_DECODED pps = decodePps(clip.firstOf(8));

        // Both framings reach the same SPS. In start-code form only 4-byte
        // codes open units, and the last unit is left uncounted.
        int longCodes = 0;
        for (const Unit &u : clip.units)
            longCodes += u.at >= 4 && clip.stream[u.at - 4] == 0;
        const Walk coded = walk(clip.stream);
        const Walk sized = walk(lengthPrefixed(clip.stream, clip.units));
        EXPECT_EQ(coded.count, longCodes - 1) << name;
        EXPECT_EQ(sized.count, static_cast<int>(clip.units.size())) << name;
        EXPECT_TRUE(sameRecord(coded.sps, sps)) << name;
        EXPECT_TRUE(sameRecord(sized.sps, sps)) << name;

        // Departure: a CAVLC slice header leaves its next bit in the PPS
        // record's last field, so the walk's PPS carries the last slice's.
        if (!pps.entropy_coding_mode_flag) {
            SPS_DECODED s = sps;
            SLICE_HEADER scratch{};
            Bytes last = unitBytes(clip.stream, clip.slices().back());
            kx_bitstream bs = readerOver(last);
            qrvutilRead_SliceHeader(&bs, &scratch, &s, &pps, last[0] & 0x1F);
        }
        EXPECT_TRUE(sameRecord(sized.pps, pps)) << name;
    }
}

// ---- avcC -------------------------------------------------------------------------------

TEST(RealStreams, MuxerAvccDecodesToTheStreamsParameterSets)
{
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        const SPS_DECODED sps = decodeSps(clip.firstOf(7));
        const PPS_DECODED pps = decodePps(clip.firstOf(8));
        Bytes box = readFile(std::string(name) + ".avcc");
        ASSERT_EQ(qrv::h264::readBE32(box.data()), box.size()) << name;

        Bytes padded = box;
        padded.push_back(0);
        kx_bitstream bs = readerOver(padded);
        bs.byte_size = box.size();
        bs.bit_end = box.size() * 8;
        SPS_DECODED boxSps{};
        PPS_DECODED boxPps{};
        EXPECT_EQ(qrvutilReadAvcc(&bs, &boxSps, &boxPps), 0) << name;
        EXPECT_TRUE(sameRecord(boxSps, sps)) << name;
        EXPECT_TRUE(sameRecord(boxPps, pps)) << name;

        const Walk w = walk({}, box.data());
        EXPECT_EQ(w.count, 0);
        EXPECT_TRUE(sameRecord(w.sps, sps)) << name;
        EXPECT_TRUE(sameRecord(w.pps, pps)) << name;
    }
}

Bytes writeAvcc(Bytes units)
{
    NAL_BUFFER nb{};
    nb.data = units.data();
    nb.length = static_cast<uint32_t>(units.size());
    Bytes out(20 + 2 * units.size());
    out.resize(static_cast<size_t>(qrvutilGetAvcc(&nb, out.data())));
    return out;
}

TEST(RealStreams, WrittenAvccReadsBackToTheSameRecords)
{
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        Bytes spsUnit = clip.firstOf(7);
        Bytes ppsUnit = clip.firstOf(8);
        const SPS_DECODED sps = decodeSps(spsUnit);
        const PPS_DECODED pps = decodePps(ppsUnit);

        // Units padded with zero bytes to one length, so that the first
        // unit's length fits both as the stride.
        const size_t common = std::max(spsUnit.size(), ppsUnit.size());
        spsUnit.resize(common);
        ppsUnit.resize(common);
        Bytes box = writeAvcc(lengthPrefixed(
            [&] {
                Bytes both = spsUnit;
                both.insert(both.end(), ppsUnit.begin(), ppsUnit.end());
                return both;
            }(),
            {{0, common}, {common, common}}));
        ASSERT_EQ(box.size(), 14 + 2 + common + 3 + common) << name;

        box.push_back(0);
        kx_bitstream bs = readerOver(box);
        bs.byte_size = box.size() - 1;
        bs.bit_end = bs.byte_size * 8;
        SPS_DECODED backSps{};
        PPS_DECODED backPps{};
        EXPECT_EQ(qrvutilReadAvcc(&bs, &backSps, &backPps), 0);
        EXPECT_TRUE(sameRecord(backSps, sps)) << name;
        EXPECT_TRUE(sameRecord(backPps, pps)) << name;
    }
}

TEST(RealStreams, AvccOfAFrameStridesByItsSps)
{
    // The clips open with SPS, PPS, SEI, slice: the SPS entry is exact and
    // the PPS entry takes the SPS's length of bytes from the PPS on.
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        const Unit sps = clip.units.at(0);
        const Unit pps = clip.units.at(1);
        ASSERT_EQ(clip.stream[sps.at] & 0x1F, 7) << name;
        ASSERT_EQ(clip.stream[pps.at] & 0x1F, 8) << name;
        ASSERT_EQ(sps.at, 4u) << name; // 4-byte start code first
        const Bytes box = writeAvcc(clip.stream);
        Bytes expected = {0, 0};
        expected[1] = static_cast<uint8_t>(sps.size);
        const Bytes spsBytes = unitBytes(clip.stream, sps);
        expected.insert(expected.end(), spsBytes.begin(), spsBytes.end());
        expected.insert(expected.end(), {1, 0, static_cast<uint8_t>(sps.size)});
        expected.insert(expected.end(), clip.stream.begin() + pps.at,
                        clip.stream.begin() + pps.at + sps.size);
        ASSERT_EQ(box.size(), 14 + expected.size()) << name;
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), box.begin() + 14)) << name;
        EXPECT_TRUE(std::equal(box.begin() + 9, box.begin() + 12, spsBytes.begin() + 1)) << name;
    }
}

// ---- Framing round trips ----------------------------------------------------------------

TEST(RealStreams, LengthPrefixesConvertBackToStartCodes)
{
    const Bytes original = readFile("long_startcodes.h264");
    const std::vector<Unit> units = splitAnnexB(original);
    Bytes buf = original;
    ASSERT_EQ(qrvUtilh264MarkerToSize(buf.data(), static_cast<int>(buf.size())),
              static_cast<int>(original.size()));
    EXPECT_EQ(buf, lengthPrefixed(original, units));
    EXPECT_EQ(qrvUtilh264SizeToMarker(buf.data(), static_cast<unsigned>(buf.size())),
              original.size());
    EXPECT_EQ(buf, original);

    // The same clip with 3-byte codes widens to the 4-byte one.
    Bytes shortCodes = readFile("slices4.h264");
    const size_t shortLen = shortCodes.size();
    shortCodes.resize(original.size());
    EXPECT_EQ(qrvUtilh264MarkerToSize(shortCodes.data(), static_cast<int>(shortLen)),
              static_cast<int>(original.size()));
    qrvUtilh264SizeToMarker(shortCodes.data(), static_cast<unsigned>(shortCodes.size()));
    EXPECT_EQ(shortCodes, original);
}

// ---- Damaged copies -------------------------------------------------------------------------

// Every decoder over one (possibly damaged) stream, in exactly sized
// buffers; only the absence of faults is checked.
void runDecoders(const Bytes &stream, const Bytes &avcc)
{
    walk(stream);
    for (const Unit &u : splitAnnexB(stream)) {
        Bytes unit = unitBytes(stream, u);
        unit.reserve(1); // an empty unit still has an address
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

    size_t shortCodes = 0;
    for (size_t i = 2; i < stream.size(); ++i)
        shortCodes += stream[i] == 1 && stream[i - 1] == 0 && stream[i - 2] == 0;
    Bytes sized = stream;
    sized.resize(stream.size() + shortCodes);
    const int len = qrvUtilh264MarkerToSize(sized.data(), static_cast<int>(stream.size()));
    ASSERT_LE(static_cast<size_t>(len), sized.size());
    sized.resize(static_cast<size_t>(len));
    walk(sized);
    writeAvcc(sized);
    writeAvcc(stream);
    qrvUtilh264SizeToMarker(sized.data(), static_cast<unsigned>(sized.size()));

    // The box as the walk reads it: a 512-byte window whatever its size field.
    Bytes window = avcc;
    window.resize(512);
    walk(stream, window.data());
    Bytes padded = avcc;
    padded.push_back(0);
    kx_bitstream bs = readerOver(padded);
    bs.byte_size = avcc.size();
    bs.bit_end = avcc.size() * 8;
    SPS_DECODED sps{};
    PPS_DECODED pps{};
    qrvutilReadAvcc(&bs, &sps, &pps);
}

TEST(RealStreams, DecodersSurviveTruncatedAndBitFlippedCopies)
{
    std::mt19937 rng(1234);
    for (const char *name : kClips) {
        const Clip clip = loadClip(name);
        const Bytes avcc = readFile(std::string(name) + ".avcc");

        std::vector<size_t> cuts;
        for (const Unit &u : clip.units)
            for (size_t d : {0, 1, 2, 5, 9})
                cuts.push_back(std::min(clip.stream.size(), u.at + d));
        for (size_t at = 0; at < clip.stream.size(); at += 211)
            cuts.push_back(at);
        for (size_t cut : cuts) {
            runDecoders(Bytes(clip.stream.begin(), clip.stream.begin() + cut),
                        Bytes(avcc.begin(), avcc.begin() + std::min(cut, avcc.size())));
            if (HasFatalFailure())
                return;
        }

        for (int round = 0; round < 150; ++round) {
            Bytes stream = clip.stream;
            Bytes box = avcc;
            const int flips = 1 + static_cast<int>(rng() % 16);
            for (int i = 0; i < flips; ++i) {
                // Flips land in the headers near the front more often.
                const size_t span = (rng() & 1) ? std::min<size_t>(stream.size(), 64) : stream.size();
                stream[rng() % span] ^= static_cast<uint8_t>(1u << (rng() % 8));
                box[rng() % box.size()] ^= static_cast<uint8_t>(1u << (rng() % 8));
            }
            runDecoders(stream, box);
            if (HasFatalFailure())
                return;
        }
    }
}

} // namespace
