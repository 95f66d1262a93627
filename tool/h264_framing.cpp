// h264 tolength and h264 toannexb: whole-file framing conversion with the
// library's in-place converters, one access unit at a time.
#include "access_units.h"
#include "commands.h"
#include "failure.h"
#include "h264_stream.h"

#include <qrvutil/h264.h>

#include <CLI/CLI.hpp>

#include <climits>

namespace qrvtool {

namespace {

enum class Target { kLength, kAnnexB };

void convertAccessUnit(AccessUnit &au, bool lengthInput, Target target, const std::string &file) {
    if (au.bytes.size() > INT_MAX / 2)
        throw InputError(file, atByte(au.offset), "access unit too large to convert");
    if (target == Target::kLength && !lengthInput) {
        // Start codes are all 4 bytes long here: the length stays the same.
        const int length =
            qrvUtilh264MarkerToSize(au.bytes.data(), static_cast<int>(au.bytes.size()));
        au.bytes.resize(static_cast<size_t>(length));
    } else if (target == Target::kAnnexB && lengthInput) {
        const unsigned length =
            qrvUtilh264SizeToMarker(au.bytes.data(), static_cast<unsigned>(au.bytes.size()));
        au.bytes.resize(length);
    }
}

void runConvert(const std::string &inPath, const std::string &outPath, Target target) {
    InputFile in(inPath);
    UnitReader reader(in);
    OutputFile out(outPath);
    ParameterSets sets(in.name());
    const bool lengthInput = reader.lengthFramed();
    forEachAccessUnit(reader, &sets, [&](AccessUnit &au) {
        convertAccessUnit(au, lengthInput, target, in.name());
        out.write(au.bytes.data(), au.bytes.size());
    });
    out.commit();
}

}  // namespace

void addH264FramingCommands(CLI::App &h264, Output &) {
    static std::string lengthIn, lengthOut, annexbIn, annexbOut;
    CLI::App *toLength =
        h264.add_subcommand("tolength", "rewrite start codes as 4-byte unit lengths");
    toLength->add_option("IN", lengthIn, "H.264 stream, - for standard input")->required();
    toLength->add_option("OUT", lengthOut, "output file, - for standard output")->required();
    toLength->callback([] { runConvert(lengthIn, lengthOut, Target::kLength); });

    CLI::App *toAnnexB =
        h264.add_subcommand("toannexb", "rewrite 4-byte unit lengths as start codes");
    toAnnexB->add_option("IN", annexbIn, "H.264 stream, - for standard input")->required();
    toAnnexB->add_option("OUT", annexbOut, "output file, - for standard output")->required();
    toAnnexB->callback([] { runConvert(annexbIn, annexbOut, Target::kAnnexB); });
}

}  // namespace qrvtool
