// h264 edit: parameter sets rewritten with the library's writers, parameter
// sets repeated before IDR pictures and SEI messages closed by the library's
// unit insertion; every slice byte is left alone.
#include "access_units.h"
#include "commands.h"
#include "failure.h"
#include "h264_stream.h"

#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <array>
#include <optional>

namespace qrvtool {

namespace {

constexpr int kExtendedSar = 255;
constexpr int kUnspecifiedVideoFormat = 5;

struct Edits {
    std::string sar, colour, range, fps, level;
    bool repeatParameterSets = false;
    bool closeSei = false;
};

// The edits as SPS field values, checked before any file is touched.
struct SpsChanges {
    std::optional<std::pair<unsigned, unsigned>> sar;
    std::optional<std::array<unsigned, 3>> colour;
    std::optional<bool> fullRange;
    std::optional<std::pair<unsigned, unsigned>> fps;
    std::optional<unsigned> level;
};

std::pair<unsigned, unsigned> parsePair(const std::string &text, char separator, const char *option)
{
    unsigned a = 0, b = 0;
    char sep = 0, extra = 0;
    if (std::sscanf(text.c_str(), "%u%c%u%c", &a, &sep, &b, &extra) != 3 || sep != separator ||
        b == 0)
        throw UsageError(std::string(option) + ": \"" + text + "\" is not of the form N" +
                         separator + "M");
    return {a, b};
}

SpsChanges parseEdits(const Edits &e)
{
    SpsChanges c;
    if (!e.sar.empty())
        c.sar = parsePair(e.sar, ':', "--sar");
    if (!e.colour.empty()) {
        std::array<unsigned, 3> v{};
        char extra = 0;
        if (std::sscanf(e.colour.c_str(), "%u,%u,%u%c", &v[0], &v[1], &v[2], &extra) != 3 ||
            v[0] > 255 || v[1] > 255 || v[2] > 255)
            throw UsageError("--colour: \"" + e.colour +
                             "\" is not PRIMARIES,TRANSFER,MATRIX (0-255)");
        c.colour = v;
    }
    if (!e.range.empty())
        c.fullRange = e.range == "full";
    if (!e.fps.empty()) {
        c.fps = parsePair(e.fps, '/', "--fps");
        if (c.fps->first == 0 || c.fps->first > 0x7FFFFFFFu / 2)
            throw UsageError("--fps: the rate is out of range");
    }
    if (!e.level.empty()) {
        // "4.1" or "41": level_idc is ten times the level number.
        double number = 0;
        char extra = 0;
        if (std::sscanf(e.level.c_str(), "%lf%c", &number, &extra) != 1 || number <= 0 ||
            number > 25.5)
            throw UsageError("--level: \"" + e.level + "\" is not a level");
        c.level = static_cast<unsigned>(
            e.level.find('.') != std::string::npos || number < 10 ? number * 10 + 0.5 : number);
    }
    return c;
}

void applyChanges(SPS_DECODED &sps, const SpsChanges &c)
{
    const auto needVui = [&sps] { sps.vui_parameters_present_flag = 1; };
    const auto needSignalType = [&] {
        needVui();
        if (!sps.video_signal_type_present_flag)
            sps.video_format = kUnspecifiedVideoFormat;
        sps.video_signal_type_present_flag = 1;
    };
    if (c.sar) {
        needVui();
        sps.aspect_ratio_info_present_flag = 1;
        sps.aspect_ratio_idc = kExtendedSar;
        sps.sar_width = static_cast<int32_t>(c.sar->first);
        sps.sar_height = static_cast<int32_t>(c.sar->second);
    }
    if (c.colour) {
        needSignalType();
        sps.colour_description_present_flag = 1;
        sps.colour_primaries = static_cast<int32_t>((*c.colour)[0]);
        sps.transfer_characteristics = static_cast<int32_t>((*c.colour)[1]);
        sps.matrix_coefficients = static_cast<int32_t>((*c.colour)[2]);
    }
    if (c.fullRange) {
        needSignalType();
        sps.video_full_range_flag = *c.fullRange ? 1 : 0;
    }
    if (c.fps) {
        // One VUI tick is a field period: frames per second = time_scale / (2 x tick).
        needVui();
        sps.timing_info_present_flag = 1;
        sps.time_scale = static_cast<int32_t>(2 * c.fps->first);
        sps.num_units_in_tick = static_cast<int32_t>(c.fps->second);
        sps.fixed_frame_rate_flag = 1;
    }
    if (c.level)
        sps.level_idc = static_cast<int32_t>(*c.level);
}

template <typename Record>
std::vector<uint8_t> writeUnit(const Record &record, int (*writer)(kx_bitstream *, const Record *),
                               const std::string &file, uint64_t offset, const char *what)
{
    kx_bitstream sizing{};
    const int size = writer(&sizing, &record);
    std::vector<uint8_t> unit(size > 0 ? static_cast<size_t>(size) : 0);
    kx_bitstream bs = unitReader(unit.data(), static_cast<uint32_t>(unit.size()));
    const int written = size > 0 ? writer(&bs, &record) : size;
    if (written < 0)
        throw InputError(file, atByte(offset),
                         std::string("cannot write the edited ") + what + ": " +
                             qrvStatusText(written));
    unit.resize(static_cast<size_t>(written));
    return unit;
}

void appendFramed(std::vector<uint8_t> &out, const uint8_t *unit, size_t size, bool lengthFramed)
{
    if (lengthFramed) {
        out.insert(out.end(), {static_cast<uint8_t>(size >> 24), static_cast<uint8_t>(size >> 16),
                               static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)});
    } else {
        out.insert(out.end(), {0, 0, 0, 1});
    }
    out.insert(out.end(), unit, unit + size);
}

class Editor {
  public:
    Editor(const Edits &edits, const std::string &file, bool lengthFramed)
        : changes_(parseEdits(edits)), edits_(edits), file_(file), lengthFramed_(lengthFramed)
    {
    }

    // Rewrites the parameter sets of one access unit, then lets the library
    // repeat them before an IDR picture and close its SEI messages.
    void edit(AccessUnit &au)
    {
        std::vector<uint8_t> out;
        out.reserve(au.bytes.size() + 1024);
        for (const NalUnit &unit : au.units) {
            const uint64_t offset = au.offset + unit.offset;
            if (unit.type() == 7) {
                SPS_DECODED sps{};
                kx_bitstream bs = unitReader(unit.data, unit.size);
                qrvutilRead_SPS(&bs, &sps);
                applyChanges(sps, changes_);
                lastSps_ = sps;
                const std::vector<uint8_t> bytes = writeUnit(sps, qrvutilWrite_SPS, file_, offset,
                                                             "SPS");
                appendFramed(out, bytes.data(), bytes.size(), lengthFramed_);
            } else if (unit.type() == 8) {
                PPS_DECODED pps{};
                kx_bitstream bs = unitReader(unit.data, unit.size);
                qrvutilRead_PPS(&bs, &pps);
                lastPps_ = pps;
                const std::vector<uint8_t> bytes = writeUnit(pps, qrvutilWrite_PPS, file_, offset,
                                                             "PPS");
                appendFramed(out, bytes.data(), bytes.size(), lengthFramed_);
            } else {
                appendFramed(out, unit.data, unit.size, lengthFramed_);
            }
        }
        if (edits_.repeatParameterSets || edits_.closeSei)
            insertAndClose(out, au.offset);
        au.bytes.swap(out);
    }

  private:
    void insertAndClose(std::vector<uint8_t> &frameBytes, uint64_t offset)
    {
        const bool repeat = edits_.repeatParameterSets;
        // Room for both parameter sets with their framing and a stop byte per unit.
        const size_t room = frameBytes.size() + 2 * 4 + 2 * 1024 + frameBytes.size() / 4 + 64;
        const size_t used = frameBytes.size();
        frameBytes.resize(room);
        NAL_BUFFER frame{};
        frame.data = frameBytes.data();
        frame.length = static_cast<uint32_t>(used);
        const int length = qrvutilAddNalUnits(&frame, static_cast<uint32_t>(room),
                                              repeat && lastSps_ ? &*lastSps_ : nullptr,
                                              repeat && lastPps_ ? &*lastPps_ : nullptr);
        if (length < 0)
            throw InputError(file_, atByte(offset),
                             std::string("cannot complete the access unit: ") +
                                 qrvStatusText(length));
        frameBytes.resize(static_cast<size_t>(length));
    }

    SpsChanges changes_;
    Edits edits_;
    std::string file_;
    bool lengthFramed_;
    std::optional<SPS_DECODED> lastSps_;
    std::optional<PPS_DECODED> lastPps_;
};

void runEdit(const std::string &inPath, const std::string &outPath, const Edits &edits)
{
    InputFile in(inPath);
    UnitReader reader(in);
    Editor editor(edits, in.name(), reader.lengthFramed());
    OutputFile out(outPath);
    ParameterSets sets(in.name());
    forEachAccessUnit(reader, &sets, [&](AccessUnit &au) {
        editor.edit(au);
        out.write(au.bytes.data(), au.bytes.size());
    });
    out.commit();
}

} // namespace

void addH264EditCommand(CLI::App &h264, Output &)
{
    static std::string in, out;
    static Edits edits;
    CLI::App *edit = h264.add_subcommand(
        "edit", "rewrite a stream's parameter sets; slices are copied unchanged");
    edit->add_option("IN", in, "H.264 stream, - for standard input")->required();
    edit->add_option("OUT", out, "output file, - for standard output")->required();
    edit->add_option("--sar", edits.sar, "sample aspect ratio W:H");
    edit->add_option("--colour", edits.colour,
                     "colour_primaries,transfer_characteristics,matrix_coefficients");
    edit->add_option("--range", edits.range, "video range")
        ->check(CLI::IsMember({"full", "limited"}));
    edit->add_option("--fps", edits.fps, "frame rate NUM/DEN (VUI timing)");
    edit->add_option("--level", edits.level, "level, for example 4.1");
    edit->add_flag("--repeat-ps", edits.repeatParameterSets,
                   "SPS and PPS before every IDR picture that lacks them (also closes SEI)");
    edit->add_flag("--close-sei", edits.closeSei,
                   "give every SEI without a stop bit its stop byte");
    edit->callback([] { runEdit(in, out, edits); });
}

} // namespace qrvtool
