#include "output.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <cstring>
#include <stdexcept>

namespace qrvtool {

void Output::addJsonFlag(CLI::App *command)
{
    command->add_flag("--json", json_, "print one JSON document on standard output");
}

void Output::document(const Json &doc, const std::function<void(const Json &)> &text) const
{
    if (json_) {
        std::fputs(doc.dump(2).c_str(), stdout);
        std::fputc('\n', stdout);
    } else if (text) {
        text(doc);
    } else {
        printText(doc);
    }
}

namespace {

std::string scalarText(const Json &value)
{
    if (value.is_string())
        return value.get<std::string>();
    return value.dump();
}

bool allScalars(const Json &array)
{
    for (const Json &item : array)
        if (item.is_structured())
            return false;
    return true;
}

} // namespace

void printText(const Json &doc, std::FILE *out, int indent)
{
    const std::string pad(static_cast<size_t>(indent), ' ');
    for (auto it = doc.begin(); it != doc.end(); ++it) {
        const Json &value = it.value();
        const std::string key = doc.is_object() ? it.key() : std::string("-");
        if (value.is_object()) {
            std::fprintf(out, "%s%s:\n", pad.c_str(), key.c_str());
            printText(value, out, indent + 2);
        } else if (value.is_array() && allScalars(value)) {
            std::string joined;
            for (const Json &item : value)
                joined += (joined.empty() ? "" : " ") + scalarText(item);
            std::fprintf(out, "%s%s: %s\n", pad.c_str(), key.c_str(), joined.c_str());
        } else if (value.is_array()) {
            std::fprintf(out, "%s%s:\n", pad.c_str(), key.c_str());
            for (const Json &item : value) {
                std::fprintf(out, "%s  -\n", pad.c_str());
                printText(item, out, indent + 4);
            }
        } else {
            std::fprintf(out, "%s%s: %s\n", pad.c_str(), key.c_str(), scalarText(value).c_str());
        }
    }
}

RecordStream::RecordStream(const Output &output, const Json &head, const char *key)
    : output_(output)
{
    if (!output_.json())
        return;
    std::string text = head.dump();
    text.pop_back(); // reopen the object
    text += (head.empty() ? "\"" : ",\"") + std::string(key) + "\":[";
    std::fputs(text.c_str(), stdout);
}

void RecordStream::add(const Json &record, const std::string &line)
{
    addText(output_.json() ? record.dump() : std::string(), line);
}

void RecordStream::addText(std::string_view json, const std::string &line)
{
    if (output_.json()) {
        fwrite_unlocked(first_ ? "\n" : ",\n", 1, first_ ? 1 : 2, stdout);
        fwrite_unlocked(json.data(), 1, json.size(), stdout);
    } else {
        std::fputs(line.c_str(), stdout);
        std::fputc('\n', stdout);
    }
    first_ = false;
}

void RecordStream::finish(const Json &tail)
{
    if (!output_.json())
        return;
    std::string text = "\n]";
    for (auto it = tail.begin(); it != tail.end(); ++it)
        text += "," + Json(it.key()).dump() + ":" + it.value().dump();
    text += "}\n";
    std::fputs(text.c_str(), stdout);
}

void FlatRecord::makeRoom() const
{
    if (kRoom - used_ < 2 * kFieldRoom)
        throw std::length_error("record longer than its buffer");
}

void FlatRecord::appendNumber(long long value)
{
    const auto result = std::to_chars(text_ + used_, text_ + used_ + kFieldRoom / 2, value);
    used_ = static_cast<size_t>(result.ptr - text_);
}

void FlatRecord::appendName(const char *value)
{
    const size_t length = strnlen(value, kFieldRoom - 2);
    text_[used_++] = '"';
    std::memcpy(text_ + used_, value, length);
    used_ += length;
    text_[used_++] = '"';
}

std::string_view FlatRecord::json()
{
    makeRoom();
    if (used_ == 0)
        text_[used_++] = '{';
    text_[used_++] = '}';
    const std::string_view finished(text_, used_);
    used_ = 0;
    return finished;
}

} // namespace qrvtool
