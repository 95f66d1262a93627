// h264 edit: parameter sets rewritten with the library's writers; every
// slice byte is left alone.
#include "commands.h"
#include "failure.h"

#include <CLI/CLI.hpp>

namespace qrvtool {

void addH264EditCommand(CLI::App &h264, Output &) {
    static std::string in, out;
    CLI::App *edit = h264.add_subcommand("edit", "rewrite a stream's parameter sets");
    edit->add_option("IN", in, "H.264 stream")->required();
    edit->add_option("OUT", out, "output file")->required();
    edit->callback([] { throw UsageError("h264 edit: not available in this build"); });
}

}  // namespace qrvtool
