// One error and exit convention for every command: 0 done, 1 bad input (one
// stderr line naming the file, where in it, and what is wrong), 2 usage.
#ifndef QRVTOOL_FAILURE_H
#define QRVTOOL_FAILURE_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace qrvtool {

enum ExitStatus { kExitOk = 0, kExitBadInput = 1, kExitUsage = 2 };

// Bad input: thrown by any command, printed by main() as
// "qrvtool: FILE: WHERE: WHAT" and turned into exit status 1.
class InputError : public std::runtime_error {
  public:
    InputError(const std::string &file, const std::string &where, const std::string &what)
        : std::runtime_error(file + (where.empty() ? "" : ": " + where) + ": " + what)
    {
    }
};

// A check that printed its findings on standard output and now ends the
// program with exit status 1, with nothing more to say on standard error.
class FindingsReported : public std::runtime_error {
  public:
    FindingsReported() : std::runtime_error("findings reported") {}
};

// A request the tool cannot carry out as asked (exit status 2).
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Where-texts for InputError, so every message reads alike.
inline std::string atByte(uint64_t offset) { return "byte " + std::to_string(offset); }
inline std::string atLine(unsigned line) { return "line " + std::to_string(line); }

} // namespace qrvtool

#endif
