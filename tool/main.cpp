// qrvtool: the library's knowledge at the command line. Every answer comes
// from the library's own calls; this program only reads files, parses the
// command line and prints.
#include "commands.h"
#include "failure.h"
#include "library_log.h"
#include "output.h"
#include "version_text.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

int main(int argc, char **argv)
{
    using namespace qrvtool;
    catchLibraryLog();
    // Unit listings run to millions of lines: write them in large blocks.
    static char outputBuffer[1 << 20];
    std::setvbuf(stdout, outputBuffer, _IOFBF, sizeof outputBuffer);
    CLI::App app{"qrvtool: H.264, AAC, media commands, timecodes, signal formats, clip "
                 "information and projects, as the qrvutil library reads them",
                 "qrvtool"};
    app.require_subcommand(1);
    app.set_version_flag("--version", libraryVersionText(), "print the library's version");
    Output output;

    CLI::App *h264 = app.add_subcommand("h264", "H.264 elementary streams")->require_subcommand(1);
    CLI::App *avcc =
        app.add_subcommand("avcc", "avcC decoder configuration boxes")->require_subcommand(1);
    addH264InfoCommands(*h264, output);
    addH264ParameterSetCommands(*h264, output);
    addH264FramingCommands(*h264, output);
    addH264AvccCommands(*h264, *avcc, output);
    addH264EditCommand(*h264, output);
    addH264ValidateCommand(*h264, output);
    addAacCommands(*app.add_subcommand("aac", "AAC headers")->require_subcommand(1), output);
    addMediaCmdCommands(
        *app.add_subcommand("mediacmd", "media command documents")->require_subcommand(1), output);
    addTimecodeCommands(
        *app.add_subcommand("tc", "timecode text and frame counts")->require_subcommand(1), output);
    addFormatCommand(app, output);
    addClipInfoCommands(
        *app.add_subcommand("clipinfo", "clip information defaults")->require_subcommand(1),
        output);
    addProjectCommands(*app.add_subcommand("project", "project documents")->require_subcommand(1),
                       output);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        const int status = app.exit(e);
        return status == 0 ? kExitOk : kExitUsage;
    } catch (const FindingsReported &) {
        std::fflush(stdout);
        return kExitBadInput;
    } catch (const InputError &e) {
        std::fflush(stdout);
        std::fprintf(stderr, "qrvtool: %s\n", e.what());
        return kExitBadInput;
    } catch (const UsageError &e) {
        std::fflush(stdout);
        std::fprintf(stderr, "qrvtool: %s\n", e.what());
        return kExitUsage;
    } catch (const std::exception &e) {
        std::fprintf(stderr, "qrvtool: %s\n", e.what());
        return kExitBadInput;
    }
    return std::fflush(stdout) == 0 ? kExitOk : kExitBadInput;
}
