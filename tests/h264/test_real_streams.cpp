// Encoded clips (tests/data/h264, made by make_clips.sh) decoded by the
// library and compared field by field with the header trace tables kept
// beside them, except where the library departs from the standard on
// purpose; avcC boxes, framing round trips and runs over damaged copies.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <string>

#include "h264_test_util.h"

namespace {

constexpr const char *kClips[] = {"baseline_cavlc",    "main_cabac_b",   "high_cqm", "mbaff",
                                  "interlaced_frames", "slices4",        "weightp",  "hrd_vui",
                                  "hi444_lossless10",  "long_startcodes"};

Bytes readFile(const std::string &path) // below the test data folder
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/" + path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::istringstream textOf(const Bytes &bytes)
{
    return std::istringstream(std::string(bytes.begin(), bytes.end()));
}

// 32-bit field index by element name ("x", "x[i]", "x[i][j]"); "#fields"
// holds the record's size.
using Layout = std::map<std::string, size_t>;

// Every element's place, read from the records as the public header defines
// them; hdr_parameters members appear as "nal_hrd.<name>".
std::map<std::string, Layout> readLayouts()
{
    std::istringstream in = textOf(readFile("../../include/qrvutil/h264.h"));
    const std::regex define(R"(^#define (\w+) (\d+)$)"), end(R"(^\} (\w+);)");
    const std::regex field(R"(^ +(int32_t|hdr_parameters) (\w+)(?:\[(\w+)\])?(?:\[(\w+)\])?;)");
    std::map<std::string, size_t> defines;
    std::map<std::string, Layout> layouts;
    Layout layout;
    size_t index = 0;
    const auto count = [&](const std::ssub_match &m) {
        return !m.matched ? 1 : defines.count(m) ? defines[m] : std::stoul(m);
    };
    const auto at = [](const std::ssub_match &m, size_t i) {
        return m.matched ? "[" + std::to_string(i) + "]" : "";
    };
    std::smatch m;
    for (std::string line; std::getline(in, line);) {
        if (std::regex_search(line, m, define)) {
            defines[m[1]] = std::stoul(m[2]);
        } else if (std::regex_search(line, m, field) && m[1] == "hdr_parameters") {
            for (const auto &[name, i] : layouts.at("hdr_parameters"))
                layout[m[2].str() + "." + name] = index + i;
            index += layouts.at("hdr_parameters").at("#fields");
        } else if (!m.empty()) { // the int32_t field matched above
            const size_t rows = count(m[3]), cols = count(m[4]);
            for (size_t k = 0; k < rows * cols; ++k)
                layout[m[2].str() + at(m[3], k / cols) + at(m[4], k % cols)] = index + k;
            index += rows * cols;
        } else if (std::regex_search(line, m, end)) {
            layout["#fields"] = index;
            layouts[m[1]] = std::exchange(layout, {});
            index = 0;
        }
    }
    return layouts;
}

using Fields = std::map<std::string, int>;        // by element name
using TraceTable = std::map<std::string, Fields>; // by block

// Trace lines by the record's names. Per-entry weight flags are single
// fields holding the last entry's flag: their index goes, the last line wins.
TraceTable readTable(const std::string &clip)
{
    static const std::map<std::string, std::string> recordNames = {
        {"gaps_in_frame_num_allowed_flag", "gaps_in_frame_num_value_allowed_flag"},
        {"bottom_field_pic_order_in_frame_present_flag", "pic_order_present_flag"},
        {"ref_pic_list_modification_flag_l0", "ref_pic_list_reordering_flag_l0"},
        {"ref_pic_list_modification_flag_l1", "ref_pic_list_reordering_flag_l1"},
        {"modification_of_pic_nums_idc", "reordering_of_pic_nums_idc"}};
    std::istringstream lines = textOf(readFile("h264/" + clip + ".fields"));
    TraceTable table;
    std::string key;
    for (int value = 0; lines >> key >> value;) {
        std::string name = key.substr(key.find('.') + 1);
        if (name.find("_weight_l") != std::string::npos && name.find("_flag[") != std::string::npos)
            name.erase(name.find('['));
        name = recordNames.count(name) ? recordNames.at(name) : name;
        table[key.substr(0, key.find('.'))][name] = value;
    }
    return table;
}

// qrvutilRead_SliceHeader does not read dec_ref_pic_marking, so in a
// reference slice everything from there on comes from the wrong bits.
const std::string kMarkingAndAfter =
    " no_output_of_prior_pics_flag long_term_reference_flag adaptive_ref_pic_marking_mode_flag "
    "memory_management_control_operation difference_of_pic_nums_minus1 long_term_frame_idx "
    "max_long_term_frame_idx_plus1 cabac_init_idc slice_qp_delta sp_for_switch_flag slice_qs_delta "
    "disable_deblocking_filter_idc slice_alpha_c0_offset_div2 slice_beta_offset_div2 "
    "slice_group_change_cycle ";
// qrvutilFix_SliceHeader starts after the NAL header byte.
const std::string kNalHeader = " forbidden_zero_bit nal_ref_idc nal_unit_type ";

template <typename Record>
void expectFields(const Record &record, const Layout &layout, const Fields &fields,
                  const std::string &what, const std::string &skip = "")
{
    const auto *values = reinterpret_cast<const int32_t *>(&record);
    for (const auto &[name, value] : fields) {
        if (name == "slice_index" ||
            skip.find(" " + name.substr(0, name.find('[')) + " ") != std::string::npos)
            continue;
        const auto at = layout.find(name);
        ASSERT_NE(at, layout.end()) << what << ": no field for " << name;
        EXPECT_EQ(values[at->second], value) << what << "." << name;
    }
}

// A stream split into units independently of the library: each 00 00 01
// opens one, and zero bytes before the next code are not part of it.
struct Clip {
    std::vector<Bytes> units;
    long longCodes = 0; // units opened by 00 00 00 01
    Bytes first(int type) const
    {
        for (const Bytes &u : units)
            if ((u[0] & 0x1F) == type)
                return u;
        return {};
    }
};

Clip split(const Bytes &stream)
{
    Clip c;
    std::vector<size_t> starts;
    for (size_t i = 0; i + 3 <= stream.size(); ++i)
        if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1)
            starts.push_back(i + 3);
    for (size_t k = 0; k < starts.size(); ++k) {
        size_t end = k + 1 < starts.size() ? starts[k + 1] - 3 : stream.size();
        while (end > starts[k] && stream[end - 1] == 0)
            --end;
        c.units.emplace_back(stream.begin() + starts[k], stream.begin() + end);
        c.longCodes += starts[k] >= 4 && stream[starts[k] - 4] == 0;
    }
    return c;
}

Bytes clipFile(const std::string &clip, const char *kind)
{
    return readFile("h264/" + clip + kind);
}

TEST(RealStreams, HeadersMatchTheTraceTables)
{
    auto layouts = readLayouts();
    const Layout &sps = layouts["SPS_DECODED"], &pps = layouts["PPS_DECODED"],
                 &slice = layouts["SLICE_HEADER"];
    EXPECT_EQ(sps.at("#fields") * 4, sizeof(SPS_DECODED));
    EXPECT_EQ(pps.at("#fields") * 4, sizeof(PPS_DECODED));
    EXPECT_EQ(slice.at("#fields") * 4, sizeof(SLICE_HEADER));
    int slices = 0;
    for (const std::string name : kClips) {
        const Clip clip = split(clipFile(name, ".h264"));
        const TraceTable table = readTable(name);
        SPS_DECODED s = decodeSps(clip.first(7));
        PPS_DECODED p = decodePps(clip.first(8));
        expectFields(s, sps, table.at("sps"), name + " sps");
        expectFields(p, pps, table.at("pps"), name + " pps");
        // Baseline and Main lie outside the high branch: the library states
        // 4:2:0 and "8" for both depth fields, where the syntax implies 0.
        const bool implied = s.profile_idc == 66 || s.profile_idc == 77;
        EXPECT_TRUE(!implied || (s.chroma_format_idc == 1 && s.bit_depth_luma_minus8 == 8 &&
                                 s.bit_depth_chroma_minus8 == 8))
            << name;
        std::vector<Bytes> sliceUnits;
        std::copy_if(clip.units.begin(), clip.units.end(), std::back_inserter(sliceUnits),
                     [](const Bytes &u) { return (u[0] & 0x1F) >= 1 && (u[0] & 0x1F) <= 5; });
        for (const auto &[block, fields] : table) {
            if (block.rfind("slice", 0) != 0)
                continue;
            Unit unit(sliceUnits.at(size_t(fields.at("slice_index"))));
            const int type = unit.storage[0] & 0x1F, nalRefIdc = (unit.storage[0] >> 5) & 3;
            SLICE_HEADER read{}, fixed{};
            kx_bitstream bs = unit.reader();
            qrvutilRead_SliceHeader(&bs, &read, &s, &p, type);
            expectFields(read, slice, fields, name + " read " + block,
                         nalRefIdc ? kMarkingAndAfter : "");
            // Fix reads the marking too, from the bytes as they are.
            bs = unit.reader();
            bs.bit_pos = 8;
            qrvutilFix_SliceHeader(&bs, &fixed, &s, &p, unsigned(type), nalRefIdc);
            expectFields(fixed, slice, fields, name + " fix " + block, kNalHeader);
            ++slices;
        }
    }
    EXPECT_GE(slices, 30);
}

void expectAvccGives(const Bytes &box, const SPS_DECODED &sps, const PPS_DECODED &pps,
                     const std::string &what)
{
    const AvccRead r(box);
    EXPECT_EQ(r.result, 0) << what;
    EXPECT_TRUE(sameRecord(r.sps, sps) && sameRecord(r.pps, pps)) << what;
}

TEST(RealStreams, FramingsUnitWalkAndAvccBoxesAgreeWithTheClips)
{
    for (const std::string name : kClips) {
        const Bytes stream = clipFile(name, ".h264");
        const Clip clip = split(stream);
        const SPS_DECODED sps = decodeSps(clip.first(7));
        const PPS_DECODED pps = decodePps(clip.first(8));

        // Start codes become the units' lengths, 3-byte ones widened, and back
        // 4-byte start codes throughout.
        Bytes sized = stream;
        sized.resize(2 * stream.size());
        sized.resize(size_t(qrvUtilh264MarkerToSize(sized.data(), int(stream.size()))));
        EXPECT_EQ(sized, framed(clip.units, false)) << name;
        Bytes back = sized;
        EXPECT_EQ(qrvUtilh264SizeToMarker(back.data(), unsigned(back.size())), back.size()) << name;
        EXPECT_EQ(back, framed(clip.units, true)) << name;

        // Only 4-byte codes open units in start-code form, and the last unit
        // is left uncounted; length-prefixed, every unit counts.
        Bytes coded = stream;
        const Walk a = walk(coded), b = walk(sized);
        EXPECT_EQ(a.count, clip.longCodes - 1) << name;
        EXPECT_EQ(b.count, int(clip.units.size())) << name;
        EXPECT_TRUE(sameRecord(a.sps, sps) && sameRecord(b.sps, sps)) << name;
        // CAVLC slice headers leave their next bit in the PPS's last field.
        EXPECT_EQ(b.pps.entropy_coding_mode_flag, pps.entropy_coding_mode_flag) << name;
        EXPECT_TRUE(!pps.entropy_coding_mode_flag || sameRecord(b.pps, pps)) << name;

        // The muxer's box, read directly and by the walk.
        Bytes muxed = clipFile(name, ".avcc"), none;
        expectAvccGives(muxed, sps, pps, name + " muxed");
        const Walk c = walk(none, muxed.data());
        EXPECT_TRUE(sameRecord(c.sps, sps) && sameRecord(c.pps, pps)) << name;

        // The box written for the clip's parameter sets reads back to the same
        // records. They are padded with zero bytes to one length, which the
        // first unit's length must fit as the stride.
        Bytes spsUnit = clip.first(7), ppsUnit = clip.first(8);
        const size_t common = std::max(spsUnit.size(), ppsUnit.size());
        spsUnit.resize(common);
        ppsUnit.resize(common);
        const Bytes written = writeAvcc(framed({spsUnit, ppsUnit}, false));
        ASSERT_EQ(written.size(), 14 + 2 + common + 3 + common) << name;
        expectAvccGives(written, sps, pps, name + " written");
    }
}

// Every decoder over one (possibly damaged) stream and box, in exactly
// sized buffers; only the absence of faults is checked.
void runDecoders(const Bytes &stream, Bytes avcc)
{
    for (const Bytes &bytes : split(stream).units) {
        Unit unit(bytes);
        SPS_DECODED sps{};
        PPS_DECODED pps{};
        SLICE_HEADER sh{};
        kx_bitstream forSps = unit.reader(), forPps = unit.reader(), forSlice = unit.reader();
        qrvutilRead_SPS(&forSps, &sps);
        qrvutilRead_PPS(&forPps, &pps);
        qrvutilRead_SliceHeader(&forSlice, &sh, &sps, &pps, bytes.empty() ? 1 : bytes[0] & 0x1F);
    }
    Bytes sized = stream, coded = stream;
    sized.resize(2 * stream.size());
    sized.resize(size_t(qrvUtilh264MarkerToSize(sized.data(), int(stream.size()))));
    walk(coded);
    walk(sized);
    writeAvcc(sized);
    writeAvcc(stream);
    qrvUtilh264SizeToMarker(sized.data(), unsigned(sized.size()));
    AvccRead{avcc};
    avcc.resize(512); // the walk reads a 512-byte window whatever the size field says
    walk(coded, avcc.data());
}

TEST(RealStreams, DecodersSurviveTruncatedAndBitFlippedCopies)
{
    std::mt19937 rng(1234);
    for (const std::string name : kClips) {
        const Bytes stream = clipFile(name, ".h264"), avcc = clipFile(name, ".avcc");
        for (size_t cut = 0; cut < stream.size(); cut += 1 + rng() % 64)
            runDecoders(Bytes(stream.begin(), stream.begin() + cut),
                        Bytes(avcc.begin(), avcc.begin() + std::min(cut, avcc.size())));
        for (int round = 0; round < 150; ++round) {
            Bytes s = stream, a = avcc;
            for (int flips = 1 + rng() % 16; flips > 0; --flips) {
                // Flips land in the headers near the front more often.
                s[rng() % ((rng() & 1) ? std::min<size_t>(s.size(), 64) : s.size())] ^= uint8_t(
                    1u << (rng() % 8));
                a[rng() % a.size()] ^= uint8_t(1u << (rng() % 8));
            }
            runDecoders(s, a);
        }
    }
}

} // namespace
