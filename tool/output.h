// The one output layer: every command builds JSON, then prints it either as
// one JSON document (--json, for scripts) or as text for people.
#ifndef QRVTOOL_OUTPUT_H
#define QRVTOOL_OUTPUT_H

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>

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
    // The same with the record already in JSON text (see FlatRecord).
    void addText(std::string_view json, const std::string &line);
    // Closes the array with the fields of `tail` (an object) after it.
    void finish(const Json &tail);

  private:
    const Output &output_;
    bool first_ = true;
};

// A flat JSON object of integers and fixed ASCII names, written straight
// into one reused buffer: the per-unit records of streams that have millions
// of units. Keys and names must need no escaping (the tool's own tables);
// a record holds at most kRoom bytes, far more than the few fields need.
class FlatRecord {
  public:
    template <size_t N>
    FlatRecord &number(const char (&key)[N], long long value)
    {
        openKey(key);
        appendNumber(value);
        return *this;
    }
    template <size_t N>
    FlatRecord &name(const char (&key)[N], const char *value)
    {
        openKey(key);
        appendName(value);
        return *this;
    }
    // The finished object; the next field starts a new one.
    std::string_view json();

  private:
    static constexpr size_t kRoom = 1024;
    // Room for the longest field that one call adds: a key, its quotes and
    // colon, and a 20-digit number or a table name.
    static constexpr size_t kFieldRoom = 128;

    // Inline, so that the copies of fixed-length keys are fixed-length copies.
    template <size_t N>
    void openKey(const char (&key)[N])
    {
        static_assert(N + 8 < kFieldRoom, "key too long");
        makeRoom();
        const char opener = used_ == 0 ? '{' : ',';
        text_[used_++] = opener;
        text_[used_++] = '"';
        std::memcpy(text_ + used_, key, N - 1);
        used_ += N - 1;
        text_[used_++] = '"';
        text_[used_++] = ':';
    }
    void makeRoom() const;
    void appendNumber(long long value);
    void appendName(const char *value);
    char text_[kRoom];
    size_t used_ = 0;
};

} // namespace qrvtool

#endif
