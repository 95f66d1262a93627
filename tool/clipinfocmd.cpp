// clipinfo dump, get and set: the clip information defaults in the default
// store, or in an XML store file.
#include "commands.h"
#include "failure.h"
#include "library_log.h"
#include "output.h"

#include <qrvutil/clipinfo.h>
#include <qrvutil/host.h>

#include <CLI/CLI.hpp>

#include <strings.h>

#include <cstdlib>
#include <cstring>

namespace qrvtool {

namespace {

// Display indexes of the tag names (see qrvInfoGetDescription): text tags
// 0-78 skip the unused slot 14; numeric tags start at 4097.
constexpr unsigned kDescribedTextTags = 79;
constexpr unsigned kUnusedTextSlot = 14;
constexpr unsigned kNumericDescriptionBase = 4097;
constexpr unsigned kDescribedNumericTags = 33;

struct Slot {
    bool numeric = false;
    unsigned index = 0;
};

std::string tagName(unsigned descriptionIndex)
{
    char name[QRVINFO_DESCRIPTION_SIZE];
    if (qrvInfoGetDescription(descriptionIndex, name) != 0)
        return "";
    return name;
}

std::string slotName(const Slot &slot)
{
    if (slot.numeric)
        return slot.index < kDescribedNumericTags ? tagName(kNumericDescriptionBase + slot.index)
                                                  : "";
    if (slot.index == kUnusedTextSlot || slot.index > kDescribedTextTags)
        return "";
    return tagName(slot.index < kUnusedTextSlot ? slot.index : slot.index - 1);
}

// A slot given by tag name ("Title"), "text:N" or "numeric:N".
Slot parseSlot(const std::string &text)
{
    for (const char *prefix : {"text:", "numeric:"}) {
        const size_t length = std::strlen(prefix);
        if (text.compare(0, length, prefix) != 0)
            continue;
        char *end = nullptr;
        const unsigned long index = std::strtoul(text.c_str() + length, &end, 10);
        const bool numeric = prefix[0] == 'n';
        if (*end == '\0' && end != text.c_str() + length &&
            index < (numeric ? QRVINFO_NUMERIC_SLOTS : QRVINFO_TEXT_SLOTS))
            return {numeric, static_cast<unsigned>(index)};
        throw UsageError("slot \"" + text + "\" is out of range");
    }
    for (unsigned i = 0; i < QRVINFO_TEXT_SLOTS; ++i)
        if (strcasecmp(slotName({false, i}).c_str(), text.c_str()) == 0)
            return {false, i};
    for (unsigned i = 0; i < QRVINFO_NUMERIC_SLOTS; ++i)
        if (strcasecmp(slotName({true, i}).c_str(), text.c_str()) == 0)
            return {true, i};
    throw UsageError("no clip information slot is named \"" + text + "\"");
}

// The store that the command works on; an XML file is written back only
// when asked to.
class Store {
  public:
    explicit Store(const std::string &file) : file_(file)
    {
        if (file.empty())
            return;
        handle_ = cfgOpen(file.c_str(), 0);
        if (!handle_) {
            const std::string reason = takeLibraryError();
            throw InputError(file, "", reason.empty() ? "not a store file" : reason);
        }
    }
    ~Store()
    {
        if (handle_ != QRV_CFG_DEFAULT)
            cfgClose(handle_, 0);
    }
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    cfgHandle handle() const { return handle_; }
    std::string name() const { return file_.empty() ? "default store" : file_; }
    void save()
    {
        if (handle_ == QRV_CFG_DEFAULT)
            return;
        const cfgHandle handle = handle_;
        handle_ = QRV_CFG_DEFAULT;
        if (cfgClose(handle, 1) != 0)
            throw InputError(file_, "", "cannot write: " + takeLibraryError());
    }

  private:
    std::string file_;
    cfgHandle handle_ = QRV_CFG_DEFAULT;
};

// The record, loaded from a store and reset when it goes.
struct Record {
    QRVINFO info{};
    explicit Record(Store &store) { qrvInfoReadRegSet(store.handle(), &info); }
    ~Record() { qrvInfoDelete(&info); }
    Record(const Record &) = delete;
    Record &operator=(const Record &) = delete;
};

Json slotJson(const QRVINFO &info, const Slot &slot)
{
    Json j = {{"slot", (slot.numeric ? "numeric:" : "text:") + std::to_string(slot.index)},
              {"name", slotName(slot)}};
    if (slot.numeric) {
        const uint32_t value = info.numeric[slot.index];
        j["value"] = value == QRVINFO_NOT_SET ? Json() : Json(value);
    } else {
        const char *text = info.text[slot.index];
        j["value"] = text ? Json(text) : Json();
    }
    return j;
}

void runDump(const std::string &file, const Output &output)
{
    Store store(file);
    Record record(store);
    Json text = Json::array(), numeric = Json::array();
    for (unsigned i = 0; i < QRVINFO_TEXT_SLOTS; ++i)
        if (record.info.text[i])
            text.push_back(slotJson(record.info, {false, i}));
    for (unsigned i = 0; i < QRVINFO_NUMERIC_SLOTS; ++i)
        if (record.info.numeric[i] != QRVINFO_NOT_SET)
            numeric.push_back(slotJson(record.info, {true, i}));
    output.document(
        {{"store", store.name()}, {"text", text}, {"numeric", numeric}}, [](const Json &doc) {
            for (const char *group : {"text", "numeric"})
                for (const Json &s : doc[group])
                    std::printf("%-12s %-26s %s\n", s["slot"].get<std::string>().c_str(),
                                s["name"].get<std::string>().c_str(),
                                s["value"].is_string() ? s["value"].get<std::string>().c_str()
                                                       : s["value"].dump().c_str());
        });
}

void runGet(const std::string &file, const std::string &slotText, const Output &output)
{
    const Slot slot = parseSlot(slotText);
    Store store(file);
    Record record(store);
    output.document(slotJson(record.info, slot), [](const Json &s) {
        const Json &v = s["value"];
        std::puts(v.is_string() ? v.get<std::string>().c_str() : v.dump().c_str());
    });
}

void setSlot(QRVINFO &info, const Slot &slot, const std::string &value)
{
    if (slot.numeric) {
        char *end = nullptr;
        const unsigned long number = std::strtoul(value.c_str(), &end, 0);
        if (value.empty() || *end != '\0' || number >= QRVINFO_NOT_SET)
            throw UsageError("value \"" + value + "\" is not a number for a numeric slot");
        info.numeric[slot.index] = static_cast<uint32_t>(number);
        return;
    }
    char *text = static_cast<char *>(hostAlloc(value.size() + 1));
    if (!text)
        throw InputError("value", "", "out of memory");
    std::memcpy(text, value.c_str(), value.size() + 1);
    hostFree(info.text[slot.index]);
    info.text[slot.index] = text;
}

void runSet(const std::string &file, const std::string &slotText, const std::string &value)
{
    const Slot slot = parseSlot(slotText);
    Store store(file);
    Record record(store);
    setSlot(record.info, slot, value);
    qrvInfoWriteRegSet(store.handle(), &record.info);
    const std::string reason = takeLibraryError();
    if (!reason.empty())
        throw InputError(store.name(), "", reason);
    store.save();
}

} // namespace

void addClipInfoCommands(CLI::App &clipinfo, Output &output)
{
    static std::string file, getSlot, setSlotName, setValue;
    const auto addFile = [](CLI::App *command) {
        command->add_option("--file", file, "an XML store file instead of the default store");
    };
    CLI::App *dump = clipinfo.add_subcommand("dump", "print every slot that is set");
    addFile(dump);
    output.addJsonFlag(dump);
    dump->callback([&output] { runDump(file, output); });

    CLI::App *get = clipinfo.add_subcommand("get", "print one slot");
    get->add_option("SLOT", getSlot, "tag name (Title), text:N or numeric:N")->required();
    addFile(get);
    output.addJsonFlag(get);
    get->callback([&output] { runGet(file, getSlot, output); });

    CLI::App *set = clipinfo.add_subcommand("set", "store one slot");
    set->add_option("SLOT", setSlotName, "tag name (Title), text:N or numeric:N")->required();
    set->add_option("VALUE", setValue, "text, or a number for a numeric slot")->required();
    addFile(set);
    set->callback([] { runSet(file, setSlotName, setValue); });
}

} // namespace qrvtool
