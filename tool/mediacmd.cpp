// mediacmd decode, encode and validate: the XML form of a media command,
// its debug line and a JSON form that encode takes back.
#include "commands.h"
#include "failure.h"
#include "files.h"
#include "library_log.h"
#include "output.h"

#include <qrvutil/mediacmd.h>
#include <qrvutil/mediacmd_xml.h>

#include <CLI/CLI.hpp>
#include <tinyxml.h>

#include <cstring>

namespace qrvtool {

namespace {

// Drop-frame, the reader's own default.
constexpr unsigned kDefaultTcType = 4;

std::string inputName(const std::string &path) { return path == "-" ? "<stdin>" : path; }

// Where a document stops being XML, as the XML library the reader uses sees it.
void requireWellFormed(const std::string &name, const std::string &xml)
{
    TiXmlDocument doc;
    doc.Parse(xml.c_str());
    if (!doc.Error())
        return;
    throw InputError(name, atLine(static_cast<unsigned>(doc.ErrorRow())),
                     std::string("not well-formed XML: ") + doc.ErrorDesc());
}

const char *readerFailure(int status)
{
    switch (status) {
    case -2: return "no MediaCmd element";
    case -3: return "MediaCmd is not an element";
    default: return "the document cannot be read";
    }
}

MEDIACMD readCommand(const std::string &name, const std::string &xml, unsigned &tcType)
{
    if (xml.empty())
        throw InputError(name, atLine(1), "empty document");
    requireWellFormed(name, xml);
    MEDIACMD cmd{};
    tcType = kDefaultTcType;
    const int status = MediaCmdFromXMLString(&cmd, &tcType, xml.c_str());
    if (status != 0)
        throw InputError(name, atLine(1), readerFailure(status));
    return cmd;
}

std::string areaText(const char *area, size_t room)
{
    return std::string(area, strnlen(area, room));
}

Json flagNames(uint32_t flags)
{
    Json names = Json::array();
    char name[MCMD_NAME_MAX];
    for (int bit = 0; bit < 32; ++bit) {
        const uint32_t flag = 1u << bit;
        if ((flags & flag) && cfToString(flag, name) == 0)
            names.push_back(name);
    }
    return names;
}

// Every field of the record; encode reads the same keys back.
Json commandJson(const MEDIACMD &cmd, unsigned tcType)
{
    return {{"tc_type", tcType},
            {"prev", cmd.prev},
            {"next", cmd.next},
            {"list", cmd.list},
            {"struct_size", cmd.StructSize},
            {"channel", cmd.Channel},
            {"cmd", cmd.Cmd},
            {"cmd_flags", cmd.cmdFlags},
            {"cmd_flag_names", flagNames(cmd.cmdFlags)},
            {"speed", cmd.Speed},
            {"video_channels", cmd.VideoChannels},
            {"audio_channels", cmd.AudioChannels},
            {"info_channels", cmd.InfoChannels},
            {"cmd_alt", cmd.CmdAlt},
            {"position", cmd.Position},
            {"start", cmd.Start},
            {"end", cmd.End},
            {"clip_id", areaText(cmd.ClipID, sizeof cmd.ClipID)},
            {"file_name", areaText(cmd.FileName, sizeof cmd.FileName)}};
}

template <typename T>
void take(const Json &doc, const char *key, T &field)
{
    if (doc.contains(key))
        field = doc.at(key).get<T>();
}

void takeText(const Json &doc, const char *key, char *area, size_t room, const std::string &name)
{
    if (!doc.contains(key))
        return;
    const std::string text = doc.at(key).get<std::string>();
    if (text.size() >= room)
        throw InputError(name, std::string("key ") + key,
                         "longer than the record's " + std::to_string(room - 1) + " characters");
    std::memcpy(area, text.c_str(), text.size() + 1);
}

MEDIACMD commandFromJson(const Json &doc, const std::string &name, unsigned &tcType)
{
    if (!doc.is_object() || !doc.contains("cmd"))
        throw InputError(name, atLine(1), "not a media command document (no \"cmd\" key)");
    MEDIACMD cmd;
    initMediaCmd(&cmd, doc.at("cmd").get<uint32_t>());
    tcType = kDefaultTcType;
    take(doc, "tc_type", tcType);
    take(doc, "prev", cmd.prev);
    take(doc, "next", cmd.next);
    take(doc, "list", cmd.list);
    take(doc, "struct_size", cmd.StructSize);
    take(doc, "channel", cmd.Channel);
    take(doc, "cmd_flags", cmd.cmdFlags);
    take(doc, "speed", cmd.Speed);
    take(doc, "video_channels", cmd.VideoChannels);
    take(doc, "audio_channels", cmd.AudioChannels);
    take(doc, "info_channels", cmd.InfoChannels);
    take(doc, "cmd_alt", cmd.CmdAlt);
    take(doc, "position", cmd.Position);
    take(doc, "start", cmd.Start);
    take(doc, "end", cmd.End);
    takeText(doc, "clip_id", cmd.ClipID, sizeof cmd.ClipID, name);
    takeText(doc, "file_name", cmd.FileName, sizeof cmd.FileName, name);
    if (cmd.StructSize > MEDIACMD_SIZE)
        throw InputError(name, "key struct_size", "larger than the record");
    return cmd;
}

void runDecode(const std::string &path, const Output &output)
{
    const std::string name = inputName(path);
    unsigned tcType = 0;
    MEDIACMD cmd = readCommand(name, readWholeText(path), tcType);
    if (output.json()) {
        output.document(commandJson(cmd, tcType));
        return;
    }
    takeLibraryDebug();
    __dbgout_mediacmd(&cmd);
    std::fputs(takeLibraryDebug().c_str(), stdout);
}

void runEncode(const std::string &path)
{
    const std::string name = inputName(path);
    Json doc;
    try {
        doc = Json::parse(readWholeText(path));
    } catch (const Json::parse_error &e) {
        throw InputError(name, atByte(e.byte), "not JSON");
    }
    unsigned tcType = 0;
    MEDIACMD cmd;
    try {
        cmd = commandFromJson(doc, name, tcType);
    } catch (const Json::exception &e) {
        throw InputError(name, atLine(1), std::string("a key has the wrong type: ") + e.what());
    }
    char *xml = nullptr;
    if (MediaCmdToXMLString(&xml, &cmd, tcType) != 0 || !xml)
        throw InputError(name, "key cmd",
                         "no XML form for command code " + std::to_string(cmd.Cmd));
    std::fputs(xml, stdout);
    std::fputc('\n', stdout);
    MediaCmdFreeXMLString(&xml);
}

void runValidate(const std::string &path, const Output &output)
{
    const std::string name = inputName(path);
    unsigned tcType = 0;
    readCommand(name, readWholeText(path), tcType);
    output.document({{"file", name}, {"valid", true}},
                    [&](const Json &) { std::printf("%s: valid media command\n", name.c_str()); });
}

} // namespace

void addMediaCmdCommands(CLI::App &mediacmd, Output &output)
{
    static std::string decodePath, encodePath, validatePath;
    CLI::App *decode = mediacmd.add_subcommand(
        "decode", "read a media command document: its debug line, or JSON with --json");
    decode->add_option("FILE", decodePath, "XML document, - for standard input")->required();
    output.addJsonFlag(decode);
    decode->callback([&output] { runDecode(decodePath, output); });

    CLI::App *encode = mediacmd.add_subcommand("encode",
                                               "write the XML document of a JSON media command");
    encode->add_option("FILE", encodePath, "JSON as decode --json prints it, - for standard input")
        ->required();
    encode->callback([] { runEncode(encodePath); });

    CLI::App *validate = mediacmd.add_subcommand("validate", "check a media command document");
    validate->add_option("FILE", validatePath, "XML document, - for standard input")->required();
    output.addJsonFlag(validate);
    validate->callback([&output] { runValidate(validatePath, output); });
}

} // namespace qrvtool
