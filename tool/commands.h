// Each command family adds its subcommands to the tool's command line.
#ifndef QRVTOOL_COMMANDS_H
#define QRVTOOL_COMMANDS_H

namespace CLI {
class App;
}

namespace qrvtool {

class Output;

void addH264InfoCommands(CLI::App &h264, Output &output);
void addH264ParameterSetCommands(CLI::App &h264, Output &output);
void addH264FramingCommands(CLI::App &h264, Output &output);
void addH264AvccCommands(CLI::App &h264, CLI::App &avcc, Output &output);
void addH264EditCommand(CLI::App &h264, Output &output);
void addH264ValidateCommand(CLI::App &h264, Output &output);
void addAacCommands(CLI::App &aac, Output &output);
void addMediaCmdCommands(CLI::App &mediacmd, Output &output);
void addTimecodeCommands(CLI::App &tc, Output &output);
void addFormatCommand(CLI::App &app, Output &output);
void addClipInfoCommands(CLI::App &clipinfo, Output &output);
void addProjectCommands(CLI::App &project, Output &output);

} // namespace qrvtool

#endif
