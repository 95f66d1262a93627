/* MEDIACMD XML reader. It is not the writer's inverse: it reads fewer
 * elements, reads some attributes under other names and decodes hexadecimal
 * its own way. Peers' documents are read exactly so; keep every difference. */
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstring>

#include "host/xml_parse.h"
#include "mediacmd/mediacmd_internal.h"
#include "mediacmd/xml_names.h"

using namespace qrv::mediacmd;
using qrv::host::parseXmlCopy;

namespace {

/* ---- Attribute values -------------------------------------------------------- */

/* An attribute value read as the C library's sscanf("%d") reads it, which is
 * how documents in circulation have always been read: leading white space,
 * an optional sign, then at least one digit; anything after the digits is
 * ignored ("12abc" is 12, "59.94" is 59). The digits are taken as a long,
 * saturating at its limits, and the long's low 32 bits are the value, so a
 * number outside 32 bits reads differently on 32- and 64-bit builds, as it
 * always has. */
bool readInteger(const char *text, int *value)
{
    const unsigned char *p = reinterpret_cast<const unsigned char *>(text);
    while (*p == ' ' || (*p >= '\t' && *p <= '\r'))
        ++p;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    if (*p < '0' || *p > '9')
        return false;
    const unsigned long limit = negative ? static_cast<unsigned long>(LONG_MAX) + 1u
                                         : static_cast<unsigned long>(LONG_MAX);
    unsigned long magnitude = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        const unsigned digit = *p - '0';
        magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
    }
    const unsigned long asLong = negative ? 0ul - magnitude : magnitude;
    *value = static_cast<int>(static_cast<uint32_t>(asLong));
    return true;
}

/* What one pass over an element's attributes found: the values the steps
 * read themselves, and the flags of flag attributes that read as a non-zero
 * integer ("0" and "abc" set nothing). */
struct Attributes {
    const char *value = nullptr;
    const char *tcType = nullptr;
    const char *length = nullptr;
    const char *overideDeferred = nullptr;
    const char *overrideDeferred = nullptr;
    uint32_t flags = 0;
};

/* The flag attributes one element kind reads. */
struct FlagRows {
    const FlagAttribute *rows;
    size_t count;
    uint32_t offsetFlag; /* the flag "IsOffset" sets; 0 when not read */
    uint32_t unread;     /* a row's flag that is not read under its name */
};

template <size_t N>
constexpr FlagRows flagRows(const FlagAttribute (&rows)[N], uint32_t offsetFlag = 0,
                            uint32_t unread = 0)
{
    return {rows, N, offsetFlag, unread};
}
constexpr FlagRows kNoFlags = {nullptr, 0, 0, 0};

bool sameName(const char *a, const char *b) { return a[0] == b[0] && std::strcmp(a, b) == 0; }

uint32_t flagOf(const FlagRows &rows, const char *name)
{
    if (rows.offsetFlag && sameName(name, "IsOffset"))
        return rows.offsetFlag;
    for (size_t i = 0; i < rows.count; ++i)
        if (rows.rows[i].flag != rows.unread && sameName(name, rows.rows[i].name))
            return rows.rows[i].flag;
    return 0;
}

/* A flag attribute adds its flag when it reads as a non-zero integer. */
void addFlag(const char *text, uint32_t flag, uint32_t *flags)
{
    int value = 0;
    if (text && readInteger(text, &value) && value)
        *flags |= flag;
}

Attributes readAttributes(const TiXmlElement *element, const FlagRows &rows)
{
    Attributes found;
    for (const TiXmlAttribute *a = element->FirstAttribute(); a; a = a->Next()) {
        const char *name = a->Name();
        const char *text = a->Value();
        if (sameName(name, "Value"))
            found.value = text;
        else if (sameName(name, "TcType"))
            found.tcType = text;
        else if (sameName(name, "length"))
            found.length = text;
        else if (sameName(name, "cfOverideDeferred"))
            found.overideDeferred = text;
        else if (sameName(name, "cfOverrideDeferred"))
            found.overrideDeferred = text;
        else if (const uint32_t flag = flagOf(rows, name))
            addFlag(text, flag, &found.flags);
    }
    return found;
}

bool readValue(const char *text, int *value) { return text && readInteger(text, value); }

template <typename Field>
void storeValue(const Attributes &found, Field *field)
{
    int value = 0;
    if (readValue(found.value, &value))
        *field = static_cast<Field>(value);
}

/* ---- The root's children ------------------------------------------------------- */

/* The children the reader reads. Each is the first child node of its name
 * (comments and texts included) and is read only when that node is an
 * element. */
enum Child {
    kPrev,
    kNext,
    kList,
    kCmdID,
    kStructSize,
    kChannel,
    kCmd,
    kSpeed,
    kVideoChannels,
    kAudioChannels,
    kInfoChannels,
    kCmdAlt,
    kPosition,
    kStart,
    kEnd,
    kClipID,
    kFileName,
    kArbID,
    kChildCount
};
constexpr const char *kChildNames[kChildCount] = {
    "prev",     "next",  "list",          "CmdID",         "StructSize",   "Channel",
    "Cmd",      "Speed", "VideoChannels", "AudioChannels", "InfoChannels", "CmdAlt",
    "Position", "Start", "End",           "ClipID",        "FileName",     "arbID"};

struct Children {
    const TiXmlElement *element[kChildCount] = {};
};

/* One pass over the root's children. */
Children findChildren(const TiXmlElement *root)
{
    Children found;
    bool seen[kChildCount] = {};
    size_t left = kChildCount;
    for (const TiXmlNode *node = root->FirstChild(); node && left; node = node->NextSibling()) {
        const char *name = node->Value();
        for (size_t i = 0; i < kChildCount; ++i) {
            if (seen[i] || !sameName(name, kChildNames[i]))
                continue;
            seen[i] = true;
            --left;
            found.element[i] = node->ToElement();
            break;
        }
    }
    return found;
}

/* ---- Steps, in the order they apply ------------------------------------------------ */

/* Links keep their high halves: only the low 32 bits travel. */
void readLinks(const Children &children, MEDIACMD *cmd)
{
    uint64_t MEDIACMD::*const links[] = {&MEDIACMD::prev, &MEDIACMD::next, &MEDIACMD::list};
    for (size_t i = 0; i < 3; ++i) {
        const TiXmlElement *element = children.element[kPrev + i];
        if (!element)
            continue;
        uint32_t low = static_cast<uint32_t>(cmd->*links[i]);
        storeValue(readAttributes(element, kNoFlags), &low);
        cmd->*links[i] = (cmd->*links[i] & ~uint64_t{0xFFFFFFFFu}) | low;
    }
}

template <typename Field>
void readPlainValue(const TiXmlElement *element, Field *field)
{
    if (element)
        storeValue(readAttributes(element, kNoFlags), field);
}

/* Override-deferred is read under "cfOverideDeferred" (so spelt by peers)
 * and, only when that does not read, "cfOverrideDeferred"; the writer's own
 * "OverrideDeferred" is not read. */
void readCommand(const TiXmlElement *element, MEDIACMD *cmd)
{
    if (!element)
        return;
    const Attributes found = readAttributes(element,
                                            flagRows(kCmdFlagAttributes, 0, cfOverrideDeferred));
    int value = 0;
    if (readValue(found.value, &value))
        cmd->Cmd = static_cast<uint32_t>(value);
    else if (const char *text = element->GetText())
        commandFromText(text, &cmd->Cmd);
    cmd->cmdFlags |= found.flags;
    int overide = 0;
    if (readValue(found.overideDeferred, &overide)) {
        if (overide)
            cmd->cmdFlags |= cfOverrideDeferred;
    } else {
        addFlag(found.overrideDeferred, cfOverrideDeferred, &cmd->cmdFlags);
    }
}
/* The Speed text is not read: Value alone carries the speed. */
void readSpeed(const TiXmlElement *element, MEDIACMD *cmd)
{
    if (!element)
        return;
    const Attributes found = readAttributes(element, flagRows(kSpeedAttributes));
    storeValue(found, &cmd->Speed);
    cmd->cmdFlags |= cfUseSpeed | found.flags;
}

/* All three track masks are read into VideoChannels, so the last one present
 * wins and AudioChannels and InfoChannels keep what they held: documents in
 * circulation are read so. */
void readTracks(const Children &children, MEDIACMD *cmd)
{
    for (const Child child : {kVideoChannels, kAudioChannels, kInfoChannels}) {
        const TiXmlElement *element = children.element[child];
        if (!element)
            continue;
        storeValue(readAttributes(element, kNoFlags), &cmd->VideoChannels);
        cmd->cmdFlags |= cfUsePresets;
    }
}

void readCmdAlt(const TiXmlElement *element, MEDIACMD *cmd)
{
    if (!element)
        return;
    const Attributes found = readAttributes(element, flagRows(kCmdAltAttributes));
    storeValue(found, &cmd->CmdAlt);
    cmd->cmdFlags |= cfUseCmdAlt | found.flags;
}

struct PointReader {
    Child child;
    int32_t MEDIACMD::*field;
    uint32_t useFlag;
    uint32_t offsetFlag;
    bool typeCarriesOn; /* a TcType here stays in force for later elements */
};
constexpr PointReader kPointReaders[] = {
    {kPosition, &MEDIACMD::Position, cfUsePosition, cfUsePositionOffset, true},
    {kStart, &MEDIACMD::Start, cfUseStart, cfUseStartOffset, true},
    {kEnd, &MEDIACMD::End, cfUseEnd, cfUseEndOffset, false},
};

/* A point's Value wins; without one its text is read as timecode of the
 * working type, which a TcType attribute may change. */
void readPoint(const TiXmlElement *element, const PointReader &point, unsigned *workingType,
               MEDIACMD *cmd)
{
    const Attributes found = readAttributes(element, flagRows(kPointAttributes, point.offsetFlag));
    cmd->cmdFlags |= point.useFlag;
    int value = 0;
    if (readValue(found.value, &value)) {
        cmd->*point.field = value;
    } else {
        unsigned type = *workingType;
        int named = 0;
        if (readValue(found.tcType, &named)) {
            type = static_cast<unsigned>(named);
            if (point.typeCarriesOn)
                *workingType = type;
        }
        unsigned frames = 0;
        const char *text = element->GetText();
        if (text && tcToFrame(text, type | 0x100u, &frames) == 0)
            cmd->*point.field = static_cast<int32_t>(frames);
    }
    cmd->cmdFlags |= found.flags;
}

void readPoints(const Children &children, unsigned workingType, MEDIACMD *cmd)
{
    for (const PointReader &point : kPointReaders)
        if (const TiXmlElement *element = children.element[point.child])
            readPoint(element, point, &workingType, cmd);
}

const char *elementText(const TiXmlElement *element)
{
    const char *text = element->GetText();
    return text ? text : "";
}

/* Copies a text into the record at `dst`, at most `room` - 1 bytes and a
 * terminator. */
void storeText(char *dst, size_t room, const char *text)
{
    const size_t length = boundedLength(text, room - 1);
    std::memcpy(dst, text, length);
    dst[length] = 0;
}

/* A ClipID longer than 8 characters runs on into FileName, as peers expect,
 * but stops at the end of the record; FileName then starts empty. */
void readClipAndFile(const Children &children, MEDIACMD *cmd)
{
    if (const TiXmlElement *element = children.element[kClipID]) {
        storeText(area(cmd), kAreaSize, elementText(element));
        cmd->FileName[0] = 0;
    }
    if (const TiXmlElement *element = children.element[kFileName])
        storeText(cmd->FileName, kFileNameSize, elementText(element));
}

/* Binary data: "length" bytes from pairs of text characters. Only the pairs
 * present are decoded and only the area is filled, but StructSize always
 * becomes 76 + length. */
void readBinary(const TiXmlElement *element, MEDIACMD *cmd)
{
    if (!element)
        return;
    int length = 0;
    readValue(readAttributes(element, kNoFlags).length, &length);
    const char *text = elementText(element);
    size_t count = length > 0 ? static_cast<size_t>(length) : 0;
    if (count > kAreaSize)
        count = kAreaSize;
    const size_t pairs = boundedLength(text, 2 * count) / 2;
    if (count > pairs)
        count = pairs;
    char *data = area(cmd);
    for (size_t i = 0; i < count; ++i)
        data[i] = static_cast<char>(parseHex(text + 2 * i));
    cmd->StructSize = MEDIACMD_AREA_OFFSET + static_cast<uint32_t>(length);
}

/* Reads the document where it lies: one pass finds the children, then each
 * step reads its own element in one pass over its attributes. */
int readDocument(MEDIACMD *cmd, unsigned *tcType, const TiXmlDocument &doc)
{
    if (!cmd)
        return -1;
    const TiXmlNode *node = doc.FirstChild("MediaCmd");
    if (!node)
        return -2;
    const TiXmlElement *root = node->ToElement();
    if (!root)
        return -3;
    const Children children = findChildren(root);
    readLinks(children, cmd);
    readPlainValue(children.element[kCmdID], &cmd->CmdID);
    readPlainValue(children.element[kStructSize], &cmd->StructSize);
    readPlainValue(children.element[kChannel], &cmd->Channel);
    readCommand(children.element[kCmd], cmd);
    readSpeed(children.element[kSpeed], cmd);
    readTracks(children, cmd);
    readCmdAlt(children.element[kCmdAlt], cmd);
    /* Texts without a TcType are drop-frame unless the caller says. */
    readPoints(children, tcType ? *tcType : 4u, cmd);
    readClipAndFile(children, cmd);
    readBinary(children.element[kArbID], cmd);
    return 0;
}

} // namespace

int MediaCmdFromXML(MEDIACMD *cmd, unsigned *tcType, TiXmlDocument doc)
{
    return readDocument(cmd, tcType, doc);
}

int MediaCmdFromXMLString(MEDIACMD *cmd, unsigned *tcType, const char *xml)
{
    initMediaCmd(cmd, ctStop);
    if (!cmd)
        return -1;
    try {
        TiXmlDocument doc;
        /* Parse errors are not checked: they leave no root. The text is
         * parsed from a copy with zero bytes after it, so that a text ending
         * inside a multi-byte character is not read past. */
        if (xml && opensFewTags(xml))
            parseXmlCopy(&doc, xml, std::strlen(xml), TIXML_DEFAULT_ENCODING);
        return readDocument(cmd, tcType, doc);
    } catch (...) {
        logErrorFormat(0x80000000u, 0, 0, "WARNING(XMLmCmd): %s\n\r",
                       "Exception: MediaCmdFromXML() ");
        return -2;
    }
}

namespace qrv::mediacmd {

bool commandFromText(const char *text, uint32_t *code)
{
    char work[kCommandTextSize];
    const size_t length = boundedLength(text, sizeof work - 1);
    std::memcpy(work, text, length);
    work[length] = 0;
    make_lower_case(work);
    for (const CommandWord &row : kCommandWords) {
        if (std::strncmp(work, row.word, std::strlen(row.word)) == 0) {
            *code = row.code;
            return true;
        }
    }
    return false;
}

} // namespace qrv::mediacmd

unsigned char parseHex(const char *pair)
{
    if (!pair)
        return 0;
    /* Taken as signed 8-bit values, all arithmetic modulo 256. The high
     * digit is dropped for a decimal low digit and letters are offset from
     * 'A' alone: decoded so on purpose, as peers' binary data is. */
    const int high = static_cast<signed char>(pair[0]);
    const int low = static_cast<signed char>(pair[1]);
    unsigned a = static_cast<unsigned>(high) * 16u;
    if (high > '9')
        a -= 16u;
    if (low <= '9')
        return static_cast<unsigned char>(low - '0');
    return static_cast<unsigned char>(a + static_cast<unsigned>(low - 'A'));
}

void make_lower_case(char *s)
{
    if (!s)
        return;
    for (; *s; ++s)
        *s = static_cast<char>(std::tolower(static_cast<unsigned char>(*s)));
}
