/* MEDIACMD XML reader. It is not the writer's inverse: it reads fewer
 * elements, reads some attributes under other names and decodes hexadecimal
 * its own way. Peers' documents are read exactly so; keep every difference. */
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>

#include <cctype>
#include <cstdint>
#include <cstring>

#include "mediacmd/mediacmd_internal.h"
#include "mediacmd/xml_names.h"

using namespace qrv::mediacmd;

namespace {

/* Command texts, matched in this order as prefixes of the lower-cased text
 * ("playback" is a play). "terminate" and "abort" are read as ctPlay: that
 * is how peers have always had them read. */
struct CommandWord {
    const char *word;
    uint32_t code;
};
constexpr CommandWord kCommandWords[] = {
    {"stop", ctStop},         {"pause", ctPause},
    {"play", ctPlay},         {"record", ctRecord},
    {"recstop", ctRecStop},   {"eject", ctEject},
    {"transfer", ctTransfer}, {"insert", ctInsert},
    {"blank", ctBlank},       {"delete", ctDelete},
    {"trim", ctTrim},         {"chanselect", ctChanSelect},
    {"getstate", ctGetState}, {"setstate", ctSetState},
    {"getvalue", ctGetValue}, {"setvalue", ctSetValue},
    {"valuesupported", ctValueSupported}, {"error", ctError},
    {"terminate", ctPlay},    {"abort", ctPlay},
    {"edit", ctEdit},
};

/* Size of the work buffer a command text is matched in. */
constexpr size_t kCommandTextSize = 1024;

/* TinyXML parses nested elements recursively, so a text that opens more
 * elements than this is not parsed at all: a command document has about
 * twenty, and the bound keeps the parser's stack use small. */
constexpr size_t kMaxOpeningTags = 1024;

bool opensFewTags(const char *xml) {
    size_t tags = 0;
    for (const char *p = std::strchr(xml, '<'); p; p = std::strchr(p + 1, '<'))
        if (p[1] != '/' && ++tags > kMaxOpeningTags) return false;
    return true;
}

const TiXmlElement *childElement(const TiXmlElement *root, const char *name) {
    const TiXmlNode *node = root->FirstChild(name);
    return node ? node->ToElement() : nullptr;
}

bool readInt(const TiXmlElement *element, const char *name, int *value) {
    return element->QueryIntAttribute(name, value) == TIXML_SUCCESS;
}

/* A flag attribute adds its flag when it reads as a non-zero integer.
 * Returns whether it read at all. */
bool readFlag(const TiXmlElement *element, const char *name, uint32_t flag, uint32_t *flags) {
    int value = 0;
    if (!readInt(element, name, &value)) return false;
    if (value) *flags |= flag;
    return true;
}

template <size_t N>
void readFlags(const TiXmlElement *element, const FlagAttribute (&rows)[N], uint32_t *flags) {
    for (const FlagAttribute &row : rows) readFlag(element, row.name, row.flag, flags);
}

void readValue(const TiXmlElement *element, uint32_t *field) {
    int value = 0;
    if (readInt(element, "Value", &value)) *field = static_cast<uint32_t>(value);
}

void readValue(const TiXmlElement *element, int32_t *field) {
    int value = 0;
    if (readInt(element, "Value", &value)) *field = value;
}

template <typename Field>
void readChildValue(const TiXmlElement *root, const char *name, Field *field) {
    if (const TiXmlElement *element = childElement(root, name)) readValue(element, field);
}

/* Links keep their high halves: only the low 32 bits travel. */
void readLinks(const TiXmlElement *root, MEDIACMD *cmd) {
    uint64_t MEDIACMD::*const links[] = {&MEDIACMD::prev, &MEDIACMD::next, &MEDIACMD::list};
    const char *const names[] = {"prev", "next", "list"};
    for (size_t i = 0; i < 3; ++i) {
        uint32_t low = static_cast<uint32_t>(cmd->*links[i]);
        readChildValue(root, names[i], &low);
        cmd->*links[i] = (cmd->*links[i] & ~uint64_t{0xFFFFFFFFu}) | low;
    }
}

void commandFromText(const char *text, uint32_t *code) {
    char work[kCommandTextSize];
    const size_t length = boundedLength(text, sizeof work - 1);
    std::memcpy(work, text, length);
    work[length] = 0;
    make_lower_case(work);
    for (const CommandWord &row : kCommandWords) {
        if (std::strncmp(work, row.word, std::strlen(row.word)) == 0) {
            *code = row.code;
            return;
        }
    }
}

/* Override-deferred is read under "cfOverideDeferred" (so spelt by peers)
 * and, only when that does not read, "cfOverrideDeferred"; the writer's own
 * "OverrideDeferred" is not read. */
void readOverrideDeferred(const TiXmlElement *element, uint32_t *flags) {
    if (!readFlag(element, "cfOverideDeferred", cfOverrideDeferred, flags))
        readFlag(element, "cfOverrideDeferred", cfOverrideDeferred, flags);
}

void readCommand(const TiXmlElement *root, MEDIACMD *cmd) {
    const TiXmlElement *element = childElement(root, "Cmd");
    if (!element) return;
    int value = 0;
    if (readInt(element, "Value", &value))
        cmd->Cmd = static_cast<uint32_t>(value);
    else if (const char *text = element->GetText())
        commandFromText(text, &cmd->Cmd);
    for (const FlagAttribute &row : kCmdFlagAttributes) {
        if (row.flag == cfOverrideDeferred)
            readOverrideDeferred(element, &cmd->cmdFlags);
        else
            readFlag(element, row.name, row.flag, &cmd->cmdFlags);
    }
}

/* The Speed text is not read: Value alone carries the speed. */
void readSpeed(const TiXmlElement *root, MEDIACMD *cmd) {
    const TiXmlElement *element = childElement(root, "Speed");
    if (!element) return;
    readValue(element, &cmd->Speed);
    cmd->cmdFlags |= cfUseSpeed;
    readFlag(element, "IsShuttle", cfIsShuttle, &cmd->cmdFlags);
}

/* All three track masks are read into VideoChannels, so the last one present
 * wins and AudioChannels and InfoChannels keep what they held: documents in
 * circulation are read so. */
void readTracks(const TiXmlElement *root, MEDIACMD *cmd) {
    for (const char *name : {"VideoChannels", "AudioChannels", "InfoChannels"}) {
        const TiXmlElement *element = childElement(root, name);
        if (!element) continue;
        readValue(element, &cmd->VideoChannels);
        cmd->cmdFlags |= cfUsePresets;
    }
}

void readCmdAlt(const TiXmlElement *root, MEDIACMD *cmd) {
    const TiXmlElement *element = childElement(root, "CmdAlt");
    if (!element) return;
    readValue(element, &cmd->CmdAlt);
    cmd->cmdFlags |= cfUseCmdAlt;
    readFlags(element, kCmdAltAttributes, &cmd->cmdFlags);
}

struct PointReader {
    const char *name;
    int32_t MEDIACMD::*field;
    uint32_t useFlag;
    uint32_t offsetFlag;
    bool typeCarriesOn; /* a TcType here stays in force for later elements */
};
constexpr PointReader kPointReaders[] = {
    {"Position", &MEDIACMD::Position, cfUsePosition, cfUsePositionOffset, true},
    {"Start", &MEDIACMD::Start, cfUseStart, cfUseStartOffset, true},
    {"End", &MEDIACMD::End, cfUseEnd, cfUseEndOffset, false},
};

/* A point's Value wins; without one its text is read as timecode of the
 * working type, which a TcType attribute may change. */
void readPoint(const TiXmlElement *element, const PointReader &point, unsigned *workingType,
               MEDIACMD *cmd) {
    cmd->cmdFlags |= point.useFlag;
    int value = 0;
    if (readInt(element, "Value", &value)) {
        cmd->*point.field = value;
    } else {
        unsigned type = *workingType;
        int named = 0;
        if (readInt(element, "TcType", &named)) {
            type = static_cast<unsigned>(named);
            if (point.typeCarriesOn) *workingType = type;
        }
        unsigned frames = 0;
        const char *text = element->GetText();
        if (text && tcToFrame(text, type | 0x100u, &frames) == 0)
            cmd->*point.field = static_cast<int32_t>(frames);
    }
    readFlag(element, "IsOffset", point.offsetFlag, &cmd->cmdFlags);
    readFlags(element, kPointAttributes, &cmd->cmdFlags);
}

void readPoints(const TiXmlElement *root, unsigned workingType, MEDIACMD *cmd) {
    for (const PointReader &point : kPointReaders)
        if (const TiXmlElement *element = childElement(root, point.name))
            readPoint(element, point, &workingType, cmd);
}

const char *elementText(const TiXmlElement *element) {
    const char *text = element->GetText();
    return text ? text : "";
}

/* Copies a text into the record at `dst`, at most `room` - 1 bytes and a
 * terminator. */
void storeText(char *dst, size_t room, const char *text) {
    const size_t length = boundedLength(text, room - 1);
    std::memcpy(dst, text, length);
    dst[length] = 0;
}

/* A ClipID longer than 8 characters runs on into FileName, as peers expect,
 * but stops at the end of the record; FileName then starts empty. */
void readClipAndFile(const TiXmlElement *root, MEDIACMD *cmd) {
    if (const TiXmlElement *element = childElement(root, "ClipID")) {
        storeText(area(cmd), kAreaSize, elementText(element));
        cmd->FileName[0] = 0;
    }
    if (const TiXmlElement *element = childElement(root, "FileName"))
        storeText(cmd->FileName, kFileNameSize, elementText(element));
}

/* Binary data: "length" bytes from pairs of text characters. Only the pairs
 * present are decoded and only the area is filled, but StructSize always
 * becomes 76 + length. */
void readBinary(const TiXmlElement *root, MEDIACMD *cmd) {
    const TiXmlElement *element = childElement(root, "arbID");
    if (!element) return;
    int length = 0;
    readInt(element, "length", &length);
    const char *text = elementText(element);
    size_t count = length > 0 ? static_cast<size_t>(length) : 0;
    if (count > kAreaSize) count = kAreaSize;
    const size_t pairs = boundedLength(text, 2 * count) / 2;
    if (count > pairs) count = pairs;
    char *data = area(cmd);
    for (size_t i = 0; i < count; ++i) data[i] = static_cast<char>(parseHex(text + 2 * i));
    cmd->StructSize = MEDIACMD_AREA_OFFSET + static_cast<uint32_t>(length);
}

int readDocument(MEDIACMD *cmd, unsigned *tcType, const TiXmlDocument &doc) {
    const TiXmlNode *node = doc.FirstChild("MediaCmd");
    if (!node) return -2;
    const TiXmlElement *root = node->ToElement();
    if (!root) return -3;
    readLinks(root, cmd);
    readChildValue(root, "CmdID", &cmd->CmdID);
    readChildValue(root, "StructSize", &cmd->StructSize);
    readChildValue(root, "Channel", &cmd->Channel);
    readCommand(root, cmd);
    readSpeed(root, cmd);
    readTracks(root, cmd);
    readCmdAlt(root, cmd);
    /* Texts without a TcType are drop-frame unless the caller says. */
    readPoints(root, tcType ? *tcType : 4u, cmd);
    readClipAndFile(root, cmd);
    readBinary(root, cmd);
    return 0;
}

}  // namespace

int MediaCmdFromXML(MEDIACMD *cmd, unsigned *tcType, TiXmlDocument doc) {
    if (!cmd) return -1;
    return readDocument(cmd, tcType, doc);
}

int MediaCmdFromXMLString(MEDIACMD *cmd, unsigned *tcType, const char *xml) {
    initMediaCmd(cmd, ctStop);
    if (!cmd) return -1;
    try {
        TiXmlDocument doc;
        /* Parse errors are not checked: they leave no root. */
        if (xml && opensFewTags(xml)) doc.Parse(xml);
        return MediaCmdFromXML(cmd, tcType, doc);
    } catch (...) {
        logErrorFormat(0x80000000u, 0, 0, "WARNING(XMLmCmd): %s\n\r",
                       "Exception: MediaCmdFromXML() ");
        return -2;
    }
}

unsigned char parseHex(const char *pair) {
    if (!pair) return 0;
    /* Taken as signed 8-bit values, all arithmetic modulo 256. The high
     * digit is dropped for a decimal low digit and letters are offset from
     * 'A' alone: decoded so on purpose, as peers' binary data is. */
    const int high = static_cast<signed char>(pair[0]);
    const int low = static_cast<signed char>(pair[1]);
    unsigned a = static_cast<unsigned>(high) * 16u;
    if (high > '9') a -= 16u;
    if (low <= '9') return static_cast<unsigned char>(low - '0');
    return static_cast<unsigned char>(a + static_cast<unsigned>(low - 'A'));
}

void make_lower_case(char *s) {
    if (!s) return;
    for (; *s; ++s) *s = static_cast<char>(std::tolower(static_cast<unsigned char>(*s)));
}
