// tc frames, tc text, tc add and tc types: timecode text and frame counts
// through the library's conversions, for every timecode type.
#include "commands.h"
#include "failure.h"
#include "output.h"

#include <qrvutil/host.h>
#include <qrvutil/video.h>

#include <CLI/CLI.hpp>

#include <strings.h>

namespace qrvtool {

namespace {

// Room of tcToString's text.
constexpr size_t kTimecodeTextSize = 16;

struct TimecodeType {
    const char *name;
    unsigned code;
};

// The names media command documents give the timecode types.
constexpr TimecodeType kTimecodeTypes[] = {
    {"frames", 0}, {"film", 1}, {"non-drop-frame", 2}, {"drop-frame", 4}, {"pal", 8}, {"50", 16},
    {"59.94", 32}, {"60", 64},  {"film-drop", 128},    {"23.98", 132},
};

unsigned typeCode(const std::string &name)
{
    for (const TimecodeType &type : kTimecodeTypes)
        if (strcasecmp(type.name, name.c_str()) == 0)
            return type.code;
    throw UsageError("unknown timecode type \"" + name + "\" (see: qrvtool tc types)");
}

std::string timecodeText(unsigned frames, unsigned type)
{
    char text[kTimecodeTextSize];
    tcToString(frames, type, text);
    return text;
}

unsigned framesOf(const std::string &text, unsigned type, const std::string &typeName)
{
    unsigned frames = 0;
    if (tcToFrame(text.c_str(), type, &frames) != 0)
        throw InputError("timecode \"" + text + "\"", "", "not a timecode of type " + typeName);
    return frames;
}

void printResult(const Output &output, const Json &doc, const char *key)
{
    output.document(doc, [key](const Json &d) {
        const Json &v = d.at(key);
        std::puts(v.is_string() ? v.get<std::string>().c_str() : v.dump().c_str());
    });
}

} // namespace

void addTimecodeCommands(CLI::App &tc, Output &output)
{
    static std::string typeName = "drop-frame";
    static std::string text, addText;
    static unsigned frames = 0;
    static long long delta = 0;
    const auto addType = [](CLI::App *command) {
        command->add_option("--type", typeName, "timecode type (see: qrvtool tc types)")
            ->capture_default_str();
    };

    CLI::App *toFrames = tc.add_subcommand("frames", "frame count of a timecode text");
    toFrames->add_option("TIMECODE", text, "for example 01:00:00;00")->required();
    addType(toFrames);
    output.addJsonFlag(toFrames);
    toFrames->callback([&output] {
        const unsigned type = typeCode(typeName);
        printResult(
            output,
            {{"timecode", text}, {"type", typeName}, {"frames", framesOf(text, type, typeName)}},
            "frames");
    });

    CLI::App *toText = tc.add_subcommand("text", "timecode text of a frame count");
    toText->add_option("FRAMES", frames, "frame count")->required();
    addType(toText);
    output.addJsonFlag(toText);
    toText->callback([&output] {
        const unsigned type = typeCode(typeName);
        printResult(
            output,
            {{"frames", frames}, {"type", typeName}, {"timecode", timecodeText(frames, type)}},
            "timecode");
    });

    CLI::App *add = tc.add_subcommand("add", "add (or with a negative count subtract) frames");
    add->add_option("TIMECODE", addText, "for example 00:59:59;29")->required();
    add->add_option("FRAMES", delta, "frames to add")->required()->allow_extra_args(false);
    addType(add);
    output.addJsonFlag(add);
    add->callback([&output] {
        const unsigned type = typeCode(typeName);
        const long long sum = static_cast<long long>(framesOf(addText, type, typeName)) + delta;
        if (sum < 0 || sum > 0xFFFFFFFFll)
            throw InputError("timecode \"" + addText + "\"", "",
                             "the sum leaves the range of frame counts");
        const unsigned result = static_cast<unsigned>(sum);
        printResult(output,
                    {{"timecode", addText},
                     {"frames_added", delta},
                     {"type", typeName},
                     {"frames", result},
                     {"result", timecodeText(result, type)}},
                    "result");
    });

    CLI::App *types = tc.add_subcommand("types", "list the timecode type names");
    output.addJsonFlag(types);
    types->callback([&output] {
        Json list = Json::array();
        for (const TimecodeType &type : kTimecodeTypes)
            list.push_back({{"name", type.name},
                            {"code", type.code},
                            {"frames_per_second", vidTCFramesPerSecD(type.code)}});
        output.document({{"types", list}}, [](const Json &doc) {
            for (const Json &t : doc["types"])
                std::printf("%-15s %3u  %g fps\n", t["name"].get<std::string>().c_str(),
                            t["code"].get<unsigned>(), t["frames_per_second"].get<double>());
        });
    });
}

} // namespace qrvtool
