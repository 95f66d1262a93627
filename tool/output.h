// The one output layer: every command builds JSON, then prints it either as
// one JSON document (--json, for scripts) or as text for people.
#ifndef QRVTOOL_OUTPUT_H
#define QRVTOOL_OUTPUT_H

#include <nlohmann/json.hpp>

#include <cstdio>
#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace qrvtool {

using Json = nlohmann::ordered_json;

class Output {
public:
    // Adds --json to a command that prints; the flag is read when it runs.
    void addJsonFlag(CLI::App *command);
    bool json() const { return json_; }

    // Prints a whole document. In text form each key is one "key: value" line
    // (nested objects indented); `text` replaces that rendering when given.
    void document(const Json &doc, const std::function<void(const Json &)> &text = {}) const;

private:
    bool json_ = false;
};

// The generic text rendering of a document, one "key: value" per line.
void printText(const Json &doc, std::FILE *out = stdout, int indent = 0);

// A document whose one large array is written record by record, so that a
// stream of any size prints in bounded memory:
//   {"file": ..., "<key>": [ {record}, ... ], <tail fields>}
class RecordStream {
public:
    RecordStream(const Output &output, const Json &head, const char *key);
    // `line` is the record's text form.
    void add(const Json &record, const std::string &line);
    // Closes the array with the fields of `tail` (an object) after it.
    void finish(const Json &tail);

private:
    const Output &output_;
    bool first_ = true;
};

}  // namespace qrvtool

#endif
