// h264 sps and h264 pps: every parameter set of a stream, every field.
#include "commands.h"
#include "failure.h"
#include "h264_stream.h"

#include <CLI/CLI.hpp>

namespace qrvtool {

namespace {

// Lists every unit of `type` (7 or 8) decoded by the library's reader.
void runParameterSets(const std::string &path, int type, const Output &output)
{
    InputFile in(path);
    UnitReader reader(in);
    ParameterSets sets(in.name());
    const char *key = type == 7 ? "sps" : "pps";
    RecordStream stream(output, {{"file", in.name()}}, key);
    uint64_t count = 0;
    NalUnit unit;
    while (reader.next(unit)) {
        if (unit.type() != type)
            continue;
        Json record = {{"offset", unit.offset}, {"size", unit.size}};
        record.update(type == 7 ? spsJson(sets.addSps(unit)) : ppsJson(sets.addPps(unit)));
        std::string text;
        if (!output.json()) {
            std::printf("%s at byte %llu (%u bytes):\n", type == 7 ? "SPS" : "PPS",
                        static_cast<unsigned long long>(unit.offset), unit.size);
            printText(record, stdout, 2);
        }
        if (output.json())
            stream.add(record, text);
        ++count;
    }
    if (count == 0)
        throw InputError(in.name(), atByte(0),
                         std::string("no ") + (type == 7 ? "SPS" : "PPS") + " in the stream");
    stream.finish({{"count", count}});
}

} // namespace

void addH264ParameterSetCommands(CLI::App &h264, Output &output)
{
    static std::string spsPath;
    CLI::App *sps = h264.add_subcommand("sps", "print every field of every SPS in a stream");
    sps->add_option("FILE", spsPath, "H.264 stream, - for standard input")->required();
    output.addJsonFlag(sps);
    sps->callback([&output] { runParameterSets(spsPath, 7, output); });

    static std::string ppsPath;
    CLI::App *pps = h264.add_subcommand("pps", "print every field of every PPS in a stream");
    pps->add_option("FILE", ppsPath, "H.264 stream, - for standard input")->required();
    output.addJsonFlag(pps);
    pps->callback([&output] { runParameterSets(ppsPath, 8, output); });
}

} // namespace qrvtool
