// h264 validate: one finding per line, by stable rule name.
#include "commands.h"
#include "failure.h"

#include <CLI/CLI.hpp>

namespace qrvtool {

void addH264ValidateCommand(CLI::App &h264, Output &) {
    static std::string in;
    CLI::App *validate = h264.add_subcommand("validate", "check a stream");
    validate->add_option("FILE", in, "H.264 stream")->required();
    validate->callback([] { throw UsageError("h264 validate: not available in this build"); });
}

}  // namespace qrvtool
