// h264 info (a stream summary) and h264 units (one line per unit).
#include "commands.h"
#include "failure.h"
#include "h264_geometry.h"
#include "h264_stream.h"

#include <CLI/CLI.hpp>

#include <array>

namespace qrvtool {

namespace {

// Counts gathered over the whole stream.
struct StreamCounts {
    std::array<uint64_t, 32> byType{};
    uint64_t accessUnits = 0;
    uint64_t idrPictures = 0;
};

const char *framingName(const UnitReader &reader)
{
    return reader.lengthFramed() ? "length" : "annexb";
}

// Field order of the first picture: its field or, for a frame, which of its
// fields comes first in output order.
const char *fieldOrder(const SPS_DECODED &sps, const SLICE_HEADER *first)
{
    if (sps.frame_mbs_only_flag || !first)
        return "progressive";
    if (first->field_pic_flag)
        return first->bottom_field_flag ? "bb" : "tt";
    const int bottomMinusTop = sps.pic_order_cnt_type == 0 ? first->delta_pic_order_cnt_bottom
                                                           : sps.offset_for_top_to_bottom_field +
                                                                 first->delta_pic_order_cnt[1];
    if (sps.pic_order_cnt_type == 2 || bottomMinusTop == 0)
        return "progressive";
    return bottomMinusTop > 0 ? "tt" : "bb";
}

Json unitCountsJson(const StreamCounts &counts)
{
    Json out = Json::array();
    for (int type = 0; type < 32; ++type) {
        if (counts.byType[type] == 0)
            continue;
        out.push_back({{"nal_unit_type", type},
                       {"name", nalUnitTypeName(type)},
                       {"count", counts.byType[type]}});
    }
    return out;
}

Json colourJson(const SPS_DECODED &sps)
{
    return {{"video_signal_type_present_flag", sps.video_signal_type_present_flag},
            {"video_format", sps.video_format},
            {"video_full_range_flag", sps.video_full_range_flag},
            {"colour_description_present_flag", sps.colour_description_present_flag},
            {"colour_primaries", sps.colour_primaries},
            {"transfer_characteristics", sps.transfer_characteristics},
            {"matrix_coefficients", sps.matrix_coefficients}};
}

Json summaryJson(const std::string &file, const UnitReader &reader, const ParameterSets &sets,
                 const SLICE_HEADER *firstSlice, const StreamCounts &counts)
{
    const SPS_DECODED &sps = *sets.firstSps();
    Json doc;
    doc["file"] = file;
    doc["framing"] = framingName(reader);
    doc["profile_idc"] = sps.profile_idc;
    doc["level_idc"] = sps.level_idc;
    doc["constraint_set_flags"] = {sps.constraint_set0_flag, sps.constraint_set1_flag,
                                   sps.constraint_set2_flag, sps.constraint_set3_flag,
                                   sps.constraint_set4_flag, sps.constraint_set5_flag};
    addGeometry(doc, sps);
    doc["frame_mbs_only_flag"] = sps.frame_mbs_only_flag;
    doc["mb_adaptive_frame_field_flag"] = sps.mb_adaptive_frame_field_flag;
    doc["field_order"] = fieldOrder(sps, firstSlice);
    doc["timing_info_present_flag"] = sps.timing_info_present_flag;
    doc["num_units_in_tick"] = sps.num_units_in_tick;
    doc["time_scale"] = sps.time_scale;
    doc["fixed_frame_rate_flag"] = sps.fixed_frame_rate_flag;
    doc["colour"] = colourJson(sps);
    doc["nal_hrd_parameters_present_flag"] = sps.nal_hrd_parameters_present_flag;
    doc["vcl_hrd_parameters_present_flag"] = sps.vcl_hrd_parameters_present_flag;
    if (const PPS_DECODED *pps = sets.firstPps())
        doc["entropy_coding"] = pps->entropy_coding_mode_flag ? "CABAC" : "CAVLC";
    doc["units"] = unitCountsJson(counts);
    doc["access_units"] = counts.accessUnits;
    doc["idr_pictures"] = counts.idrPictures;
    return doc;
}

// The text form: the unit counts on one line.
void printSummary(const Json &doc)
{
    Json shown = doc;
    std::string counts;
    for (const Json &row : doc["units"])
        counts += (counts.empty() ? "" : ", ") + row["name"].get<std::string>() + " " +
                  row["count"].dump();
    shown["units"] = counts;
    printText(shown);
}

void runInfo(const std::string &path, const Output &output)
{
    InputFile in(path);
    UnitReader reader(in);
    ParameterSets sets(in.name());
    AccessUnitTracker tracker;
    StreamCounts counts;
    SLICE_HEADER first{};
    SLICE_HEADER scratch{};
    bool haveFirst = false;
    bool accessUnitHasSlice = true;
    NalUnit unit;
    while (reader.next(unit)) {
        ++counts.byType[unit.type()];
        if (tracker.opensAccessUnit(unit)) {
            ++counts.accessUnits;
            accessUnitHasSlice = false;
        }
        if (unit.type() == 7)
            sets.addSps(unit);
        if (unit.type() == 8)
            sets.addPps(unit);
        if (!unit.isSlice())
            continue;
        if (!accessUnitHasSlice && unit.type() == 5)
            ++counts.idrPictures;
        accessUnitHasSlice = true;
        if (sets.readSlice(unit, haveFirst ? scratch : first))
            haveFirst = true;
    }
    if (!sets.firstSps())
        throw InputError(in.name(), atByte(0), "no SPS in the stream");
    output.document(summaryJson(in.name(), reader, sets, haveFirst ? &first : nullptr, counts),
                    printSummary);
}

const char *framingOf(const NalUnit &unit)
{
    return unit.framing == 0 ? "length" : unit.framing == 3 ? "start3" : "start4";
}

// One unit's record: framing and header, and the slice header fields when
// the unit is a slice whose parameter sets have been seen.
std::string_view unitJson(FlatRecord &record, const NalUnit &unit, const SLICE_HEADER *slice)
{
    record.number("offset", static_cast<long long>(unit.offset))
        .number("size", unit.size)
        .name("framing", framingOf(unit))
        .number("nal_unit_type", unit.type())
        .name("name", nalUnitTypeName(unit.type()))
        .number("nal_ref_idc", unit.refIdc());
    if (slice) {
        record.number("slice_type", slice->slice_type)
            .name("slice_type_name", sliceTypeName(slice->slice_type))
            .number("first_mb_in_slice", slice->first_mb_in_slice)
            .number("pic_parameter_set_id", slice->pic_parameter_set_id)
            .number("frame_num", slice->frame_num)
            .number("pic_order_cnt_lsb", slice->pic_order_cnt_lsb);
        if (unit.type() == 5)
            record.number("idr_pic_id", slice->idr_pic_id);
    }
    return record.json();
}

std::string unitLine(const NalUnit &unit, const SLICE_HEADER *slice)
{
    char line[256];
    int n = std::snprintf(line, sizeof line, "%10llu %8u %-6s %2d %-22s ref=%d",
                          static_cast<unsigned long long>(unit.offset), unit.size, framingOf(unit),
                          unit.type(), nalUnitTypeName(unit.type()), unit.refIdc());
    if (slice && n > 0 && static_cast<size_t>(n) < sizeof line)
        n += std::snprintf(line + n, sizeof line - static_cast<size_t>(n),
                           " %s first_mb=%d pps=%d frame_num=%d poc_lsb=%d",
                           sliceTypeName(slice->slice_type), slice->first_mb_in_slice,
                           slice->pic_parameter_set_id, slice->frame_num, slice->pic_order_cnt_lsb);
    if (slice && unit.type() == 5 && n > 0 && static_cast<size_t>(n) < sizeof line)
        std::snprintf(line + n, sizeof line - static_cast<size_t>(n), " idr_pic_id=%d",
                      slice->idr_pic_id);
    return line;
}

void runUnits(const std::string &path, const Output &output)
{
    InputFile in(path);
    UnitReader reader(in);
    ParameterSets sets(in.name());
    RecordStream stream(output, {{"file", in.name()}, {"framing", framingName(reader)}}, "units");
    if (!output.json())
        std::printf("%10s %8s %-6s %2s %-22s\n", "offset", "size", "frame", "ty", "name");
    SLICE_HEADER slice{};
    FlatRecord record;
    NalUnit unit;
    uint64_t count = 0;
    while (reader.next(unit)) {
        if (unit.type() == 7)
            sets.addSps(unit);
        if (unit.type() == 8)
            sets.addPps(unit);
        const bool decoded = unit.isSlice() && sets.readSlice(unit, slice);
        const SLICE_HEADER *header = decoded ? &slice : nullptr;
        if (output.json())
            stream.addText(unitJson(record, unit, header), std::string());
        else
            stream.addText(std::string(), unitLine(unit, header));
        ++count;
    }
    stream.finish({{"count", count}});
}

} // namespace

void addH264InfoCommands(CLI::App &h264, Output &output)
{
    static std::string infoPath;
    CLI::App *info = h264.add_subcommand("info", "summarise an H.264 elementary stream");
    info->add_option("FILE", infoPath, "Annex B or length-prefixed stream, - for standard input")
        ->required();
    output.addJsonFlag(info);
    info->callback([&output] { runInfo(infoPath, output); });

    static std::string unitsPath;
    CLI::App *units = h264.add_subcommand("units", "list every unit of an H.264 stream");
    units->add_option("FILE", unitsPath, "Annex B or length-prefixed stream, - for standard input")
        ->required();
    output.addJsonFlag(units);
    units->callback([&output] { runUnits(unitsPath, output); });
}

} // namespace qrvtool
