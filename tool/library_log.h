// The library's log lines, caught instead of printed: error lines become the
// reason of the tool's one-line message, debug lines are command output.
#ifndef QRVTOOL_LIBRARY_LOG_H
#define QRVTOOL_LIBRARY_LOG_H

#include <string>

namespace qrvtool {

// Installs the catching log sink (once, from main()).
void catchLibraryLog();
// The last error line the library logged since the previous call, trimmed;
// empty when there was none.
std::string takeLibraryError();
// The debug lines logged since the previous call, trimmed, one per line.
std::string takeLibraryDebug();

} // namespace qrvtool

#endif
