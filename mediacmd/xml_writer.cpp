/* MEDIACMD XML writer: the document that carries a command between programs. */
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "mediacmd/mediacmd_internal.h"
#include "mediacmd/xml_names.h"

using namespace qrv::mediacmd;

namespace {

constexpr char kComment[] = " Korvane MEDIACMD xml structure version 1,0 ";

/* Names of the timecode types; a type not listed gets no TcType attribute. */
struct TcTypeName {
    uint32_t code;
    const char *name;
};
constexpr TcTypeName kTcTypeNames[] = {
    {0, "frames"},   {255, "frames"},  {1, "film"},   {2, "non-drop-frame"},
    {4, "drop-frame"}, {8, "pal"},     {16, "50"},    {32, "59.94"},
    {64, "60"},      {128, "film-drop"}, {132, "23.98"},
};

constexpr bool isFrameCount(uint32_t code) { return code == 0 || code == 255; }

const char *tcTypeName(uint32_t code) {
    for (const TcTypeName &row : kTcTypeNames)
        if (row.code == code) return row.name;
    return nullptr;
}

/* tcToString's form for the readable texts of the chosen timecode type, and
 * the fixed form used for queue positions. */
constexpr uint32_t kTypedTcForm = 0x32100;
constexpr uint32_t kQueueTcForm = 0xB2140;

void reportException(const char *what) {
    logErrorFormat(0x80000000u, 0, 0, "WARNING(XMLmCmd): %s\n\r", what);
}

TiXmlElement *addElement(TiXmlElement *parent, const char *name) {
    auto *element = new TiXmlElement(name);
    parent->LinkEndChild(element);
    return element;
}

TiXmlElement *addTextElement(TiXmlElement *parent, const char *name, const std::string &text) {
    TiXmlElement *element = addElement(parent, name);
    element->LinkEndChild(new TiXmlText(text));
    return element;
}

void addValueElement(TiXmlElement *parent, const char *name, int value) {
    addElement(parent, name)->SetAttribute("Value", value);
}

template <size_t N>
void setFlagAttributes(TiXmlElement *element, uint32_t flags, const FlagAttribute (&rows)[N]) {
    for (const FlagAttribute &row : rows)
        if (flags & row.flag) element->SetAttribute(row.name, 1);
}

std::string integerText(int value, int radix) {
    char text[QRV_INTEGER_TEXT_SIZE] = {};
    intToString(value, text, radix);
    return text;
}

std::string timecodeText(int32_t frames, uint32_t form) {
    char text[QRV_TIMECODE_TEXT_SIZE] = {};
    tcToString(static_cast<uint32_t>(frames), form, text);
    return text;
}

/* Text of the bytes [p, p + limit) up to their first zero. */
std::string boundedText(const char *p, size_t limit) {
    return std::string(p, boundedLength(p, limit));
}

/* ---- Header elements ---------------------------------------------------------- */

void writeLinks(TiXmlElement *root, const MEDIACMD *cmd) {
    const struct {
        const char *name;
        uint64_t value;
    } links[] = {{"prev", cmd->prev}, {"next", cmd->next}, {"list", cmd->list}};
    /* Only the low 32 bits of a link travel. */
    for (const auto &link : links)
        if (link.value) addValueElement(root, link.name, static_cast<int>(link.value & 0xFFFFFFFFu));
}

void writeCommand(TiXmlElement *root, const MEDIACMD *cmd) {
    TiXmlElement *element = addTextElement(root, "Cmd", kCommandTexts[cmd->Cmd].xml);
    element->SetAttribute("Value", static_cast<int>(cmd->Cmd));
    setFlagAttributes(element, cmd->cmdFlags, kCmdFlagAttributes);
}

/* ctPlay and ctRecord always say their speed; without cfUseSpeed the value
 * is normal speed but the text still shows the record's own Speed field. */
void writeSpeed(TiXmlElement *root, const MEDIACMD *cmd) {
    const uint32_t flags = cmd->cmdFlags;
    int value = cmd->Speed;
    if (!(flags & cfUseSpeed)) {
        if (!(flags & cfIsShuttle) && cmd->Cmd != ctPlay && cmd->Cmd != ctRecord) return;
        value = MEDIACMD_SPEED_NORMAL;
    }
    TiXmlElement *element = addTextElement(root, "Speed", integerText(static_cast<int>(speedPercent(cmd->Speed)), 25));
    element->SetAttribute("Value", value);
    if (flags & cfIsShuttle) element->SetAttribute("IsShuttle", 1);
}

void writeTracks(TiXmlElement *root, const MEDIACMD *cmd) {
    if (!(cmd->cmdFlags & cfUsePresets)) return;
    addValueElement(root, "VideoChannels", static_cast<int>(cmd->VideoChannels));
    addValueElement(root, "AudioChannels", static_cast<int>(cmd->AudioChannels));
    addValueElement(root, "InfoChannels", static_cast<int>(cmd->InfoChannels));
}

void writeCmdAlt(TiXmlElement *root, const MEDIACMD *cmd) {
    if (!(cmd->cmdFlags & kCmdAltFlags)) return;
    TiXmlElement *element = addElement(root, "CmdAlt");
    element->SetAttribute("Value", static_cast<int>(cmd->CmdAlt));
    setFlagAttributes(element, cmd->cmdFlags, kCmdAltAttributes);
}

/* ---- Position, Start and End ------------------------------------------------------ */

struct PointElement {
    const char *name;
    int32_t value;
    uint32_t tcCode;     /* timecode type of the readable text */
    int frameRadix;      /* intToString radix of a frame-count text */
    bool queueForm;      /* text in the fixed queue-position form */
    uint32_t offsetFlag; /* flag written as IsOffset */
};

void writePoint(TiXmlElement *root, const PointElement &point, uint32_t flags) {
    std::string text;
    if (isFrameCount(point.tcCode))
        text = integerText(point.value, point.frameRadix);
    else
        text = timecodeText(point.value, point.queueForm ? kQueueTcForm : kTypedTcForm | point.tcCode);
    TiXmlElement *element = addTextElement(root, point.name, text);
    element->SetAttribute("Value", point.value);
    if (const char *name = tcTypeName(point.tcCode)) element->SetAttribute("TcType", name);
    if (flags & point.offsetFlag) element->SetAttribute("IsOffset", 1);
    setFlagAttributes(element, flags, kPointAttributes);
}

/* Start and End texts use the queue-position form under different rules;
 * both are kept, as documents already written depend on them. */
void writePoints(TiXmlElement *root, const MEDIACMD *cmd, uint32_t tcCode) {
    const uint32_t flags = cmd->cmdFlags;
    writePoint(root, {"Position", cmd->Position, tcCode, 10, false, cfUsePositionOffset}, flags);
    /* Once Position is a frame count, so are Start and End. */
    if (isFrameCount(tcCode)) tcCode = 0;
    if (flags & (cfUseStart | cfUseStartOffset)) {
        const bool queue = cmd->CmdAlt >= kGsInsertQueue;
        writePoint(root, {"Start", cmd->Start, tcCode, 25, queue, cfUseStartOffset}, flags);
    }
    if (flags & (cfUseEnd | cfUseEndOffset)) {
        const bool queue = (cmd->CmdAlt == kGsInsertQueue || cmd->CmdAlt == kGsXlatQueue) &&
                           isValueCommand(cmd->Cmd);
        writePoint(root, {"End", cmd->End, tcCode, 25, queue, cfUseEndOffset}, flags);
    }
}

/* ---- Trailing area ------------------------------------------------------------------ */

/* Every read of the area stays inside the record, whatever its bytes say. */

void writeMetadata(TiXmlElement *root, const MEDIACMD *cmd) {
    const char *data = area(cmd);
    const std::string tag = boundedText(data, kAreaSize);
    addTextElement(root, "MetaTag", tag);
    if (cmd->Speed == 1) {
        /* The value follows the tag and its zero, at End + 1. */
        const int64_t at = static_cast<int64_t>(cmd->End) + 1;
        const bool inside = at >= 0 && at < static_cast<int64_t>(kAreaSize);
        addTextElement(root, "MetaData",
                       inside ? boundedText(data + at, kAreaSize - static_cast<size_t>(at)) : "");
    } else {
        addTextElement(root, "MetaData", integerText(cmd->Start, 10));
    }
    if (tag == "REPLAY_COUNT")
        addTextElement(root, "PageRequest", integerText(static_cast<int>(cmd->InfoChannels), 10));
}

void writeChannelName(TiXmlElement *root, const MEDIACMD *cmd) {
    addTextElement(root, "chanName", boundedText(area(cmd), kAreaSize));
}

/* hostAlloc'd text, released however the element building ends. */
struct HostText {
    char *text;
    ~HostText() { hostFree(text); }
};

void writeBinary(TiXmlElement *root, const MEDIACMD *cmd) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    const int length = static_cast<int>(cmd->StructSize - MEDIACMD_AREA_OFFSET);
    size_t count = length > 0 ? static_cast<size_t>(length) : 0;
    if (count > kAreaSize) count = kAreaSize;
    HostText hex{static_cast<char *>(hostAlloc(count * 2 + 4))};
    TiXmlElement *element = addElement(root, "arbID");
    element->SetAttribute("Type", "hex");
    element->SetAttribute("length", length);
    if (!hex.text) return;
    const auto *bytes = reinterpret_cast<const unsigned char *>(area(cmd));
    for (size_t i = 0; i < count; ++i) {
        hex.text[2 * i] = kDigits[bytes[i] >> 4];
        hex.text[2 * i + 1] = kDigits[bytes[i] & 0xF];
    }
    hex.text[2 * count] = 0;
    element->LinkEndChild(new TiXmlText(hex.text));
}

/* The ninth byte of the area: zero when ClipID is an ordinary 8-character
 * identifier followed by FileName. */
bool clipIdTerminated(const MEDIACMD *cmd) { return area(cmd)[8] == 0; }

/* metabasefilename: "name$unique" splits into UniqueID and FileName, and the
 * '$' in the caller's record becomes the name's terminator. */
void writeMetabaseFileName(TiXmlElement *root, MEDIACMD *cmd) {
    if (!clipIdTerminated(cmd)) return;
    addTextElement(root, "ClipID", boundedText(cmd->ClipID, sizeof cmd->ClipID));
    size_t length = boundedLength(cmd->FileName, kFileNameSize);
    if (char *dollar = static_cast<char *>(std::memchr(cmd->FileName, '$', length))) {
        addTextElement(root, "UniqueID", std::string(dollar + 1, cmd->FileName + length));
        *dollar = 0;
        length = static_cast<size_t>(dollar - cmd->FileName);
    }
    addTextElement(root, "FileName", std::string(cmd->FileName, length));
}

void writeLongName(TiXmlElement *root, const MEDIACMD *cmd) {
    const char *name = area(cmd);
    const size_t length = boundedLength(name, kAreaSize);
    if (length == 0 || length >= cmd->StructSize - 77u) return;
    try {
        addTextElement(root, "FileName", std::string(name, length));
    } catch (...) {
        reportException("Exception: MediaCmdToXML() ");
    }
}

void writeClipAndFile(TiXmlElement *root, const MEDIACMD *cmd) {
    addTextElement(root, "ClipID", boundedText(cmd->ClipID, sizeof cmd->ClipID));
    const size_t length = boundedLength(cmd->FileName, kFileNameSize);
    try {
        if (length == 0) {
            /* A metadata request names its clip twice. */
            if (cmd->CmdAlt == kGsMetadata)
                addTextElement(root, "FileName", boundedText(cmd->ClipID, sizeof cmd->ClipID));
        } else if (length < cmd->StructSize - 86u) {
            addTextElement(root, "FileName", std::string(cmd->FileName, length));
        }
    } catch (...) {
        reportException("Exception:  MediaCmdToXML(ClipID) ");
    }
}

void writeGeneralArea(TiXmlElement *root, const MEDIACMD *cmd) {
    if (clipIdTerminated(cmd))
        writeClipAndFile(root, cmd);
    else
        writeLongName(root, cmd);
}

void writeNamedArea(TiXmlElement *root, MEDIACMD *cmd) {
    if (cmd->CmdAlt == kGsMetabaseFileName)
        writeMetabaseFileName(root, cmd);
    else
        writeGeneralArea(root, cmd);
}

void writeTrailingArea(TiXmlElement *root, MEDIACMD *cmd) {
    const uint32_t alt = cmd->CmdAlt;
    if (alt == kGsMetabaseGetTag) {
        writeMetadata(root, cmd);
    } else if (!isValueCommand(cmd->Cmd)) {
        writeNamedArea(root, cmd);
    } else if (alt == kGsQrvType) {
        writeChannelName(root, cmd);
    } else if (alt == kGsFrameData || alt == kGsPreviewFrame) {
        writeBinary(root, cmd);
    } else if (alt > kGsMetabaseGetTag) {
        writeGeneralArea(root, cmd);
    } else {
        writeNamedArea(root, cmd);
    }
}

int buildDocument(TiXmlDocument *doc, MEDIACMD *cmd, unsigned tcType) {
    doc->LinkEndChild(new TiXmlDeclaration("1.0", "iso-8859-1", ""));
    auto *root = new TiXmlElement("MediaCmd");
    doc->LinkEndChild(root);
    root->LinkEndChild(new TiXmlComment(kComment));
    writeLinks(root, cmd);
    addValueElement(root, "CmdID", static_cast<int>(cmd->CmdID));
    addValueElement(root, "StructSize", static_cast<int>(cmd->StructSize));
    addValueElement(root, "Channel", cmd->Channel);
    if (cmd->Cmd > kLastXmlCommand) return -1;
    writeCommand(root, cmd);
    writeSpeed(root, cmd);
    writeTracks(root, cmd);
    writeCmdAlt(root, cmd);
    writePoints(root, cmd, tcType & 0xFFu);
    if (cmd->cmdFlags & cfUseClipID) writeTrailingArea(root, cmd);
    return 0;
}

}  // namespace

int MediaCmdToXML(TiXmlDocument *doc, MEDIACMD *cmd, unsigned tcType) {
    if (!doc || !cmd) return -1;
    try {
        return buildDocument(doc, cmd, tcType);
    } catch (...) {
        reportException("Exception: MediaCmdToXML() ");
        return -1;
    }
}

int MediaCmdToXMLString(char **out, MEDIACMD *cmd, unsigned tcType) {
    try {
        TiXmlDocument doc;
        const int status = MediaCmdToXML(&doc, cmd, tcType);
        if (status != 0) return status;
        std::string text;
        text << doc;
        if (text.empty() || !out) return status;
        auto *block = static_cast<char *>(hostAlloc(text.size() + 1));
        if (!block) return status;
        std::memcpy(block, text.c_str(), text.size() + 1);
        *out = block;
        return status;
    } catch (...) {
        reportException("Exception: MediaCmdToXML() ");
        return -1;
    }
}

int MediaCmdFreeXMLString(char **str) {
    if (!str) return 0;
    if (*str) hostFree(*str);
    *str = nullptr;
    return 0;
}
