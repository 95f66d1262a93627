/* MEDIACMD XML writer: the document that carries a command between programs.
 * One layout serves both outputs: MediaCmdToXML builds a TinyXML tree and
 * MediaCmdToXMLString writes the same text TinyXML would print from it,
 * straight into the block it returns. */
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "mediacmd/mediacmd_internal.h"
#include "mediacmd/xml_names.h"
#include "mediacmd/xml_outputs.h"

using namespace qrv::mediacmd;

namespace {

constexpr bool isFrameCount(uint32_t code) { return code == 0 || code == 255; }

const char *tcTypeName(uint32_t code)
{
    for (const TcTypeName &row : kTcTypeNames)
        if (row.code == code)
            return row.name;
    return nullptr;
}

/* tcToString's form for the readable texts of the chosen timecode type, and
 * the fixed form used for queue positions. */
constexpr uint32_t kTypedTcForm = 0x32100;
constexpr uint32_t kQueueTcForm = 0xB2140;

void reportException(const char *what)
{
    logErrorFormat(0x80000000u, 0, 0, "WARNING(XMLmCmd): %s\n\r", what);
}

/* An integer or timecode text in a small local buffer. */
struct ShortText {
    char text[QRV_INTEGER_TEXT_SIZE] = {};
    size_t length() const { return std::strlen(text); }
};

ShortText integerText(int value, int radix)
{
    ShortText t;
    intToString(value, t.text, radix);
    return t;
}

ShortText timecodeText(int32_t frames, uint32_t form)
{
    static_assert(QRV_TIMECODE_TEXT_SIZE <= QRV_INTEGER_TEXT_SIZE, "one buffer serves both");
    ShortText t;
    tcToString(static_cast<uint32_t>(frames), form, t.text);
    return t;
}

template <class Out>
void textElement(Out &out, const char *name, const char *text, size_t length)
{
    out.open(name);
    out.text(text, length);
    out.close();
}

template <class Out>
void textElement(Out &out, const char *name, const ShortText &text)
{
    textElement(out, name, text.text, text.length());
}

template <class Out>
void valueElement(Out &out, const char *name, int value)
{
    out.open(name);
    out.attribute("Value", value);
    out.close();
}

template <class Out, size_t N>
void flagAttributes(Out &out, uint32_t flags, const FlagAttribute (&rows)[N])
{
    for (const FlagAttribute &row : rows)
        if (flags & row.flag)
            out.attribute(row.name, 1);
}

/* ---- Header elements ---------------------------------------------------------- */

template <class Out>
void writeLinks(Out &out, const MEDIACMD *cmd)
{
    const struct {
        const char *name;
        uint64_t value;
    } links[] = {{"prev", cmd->prev}, {"next", cmd->next}, {"list", cmd->list}};
    /* Only the low 32 bits of a link travel. */
    for (const auto &link : links)
        if (link.value)
            valueElement(out, link.name, static_cast<int>(link.value & 0xFFFFFFFFu));
}

template <class Out>
void writeCommand(Out &out, const MEDIACMD *cmd)
{
    const char *name = kCommandTexts[cmd->Cmd].xml;
    out.open("Cmd");
    out.attribute("Value", static_cast<int>(cmd->Cmd));
    flagAttributes(out, cmd->cmdFlags, kCmdFlagAttributes);
    out.text(name, std::strlen(name));
    out.close();
}

/* ctPlay and ctRecord always say their speed; without cfUseSpeed the value
 * is normal speed but the text still shows the record's own Speed field. */
template <class Out>
void writeSpeed(Out &out, const MEDIACMD *cmd)
{
    const uint32_t flags = cmd->cmdFlags;
    int value = cmd->Speed;
    if (!(flags & cfUseSpeed)) {
        if (!(flags & cfIsShuttle) && cmd->Cmd != ctPlay && cmd->Cmd != ctRecord)
            return;
        value = MEDIACMD_SPEED_NORMAL;
    }
    const ShortText text = integerText(static_cast<int>(speedPercent(cmd->Speed)), 25);
    out.open("Speed");
    out.attribute("Value", value);
    flagAttributes(out, flags, kSpeedAttributes);
    out.text(text.text, text.length());
    out.close();
}

template <class Out>
void writeTracks(Out &out, const MEDIACMD *cmd)
{
    if (!(cmd->cmdFlags & cfUsePresets))
        return;
    valueElement(out, "VideoChannels", static_cast<int>(cmd->VideoChannels));
    valueElement(out, "AudioChannels", static_cast<int>(cmd->AudioChannels));
    valueElement(out, "InfoChannels", static_cast<int>(cmd->InfoChannels));
}

template <class Out>
void writeCmdAlt(Out &out, const MEDIACMD *cmd)
{
    if (!(cmd->cmdFlags & kCmdAltFlags))
        return;
    out.open("CmdAlt");
    out.attribute("Value", static_cast<int>(cmd->CmdAlt));
    flagAttributes(out, cmd->cmdFlags, kCmdAltAttributes);
    out.close();
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

template <class Out>
void writePoint(Out &out, const PointElement &point, uint32_t flags)
{
    const ShortText text = isFrameCount(point.tcCode)
                               ? integerText(point.value, point.frameRadix)
                               : timecodeText(point.value, point.queueForm
                                                               ? kQueueTcForm
                                                               : kTypedTcForm | point.tcCode);
    out.open(point.name);
    out.attribute("Value", point.value);
    if (const char *name = tcTypeName(point.tcCode))
        out.attribute("TcType", name);
    if (flags & point.offsetFlag)
        out.attribute("IsOffset", 1);
    flagAttributes(out, flags, kPointAttributes);
    out.text(text.text, text.length());
    out.close();
}

/* Start and End texts use the queue-position form under different rules;
 * both are kept, as documents already written depend on them. */
template <class Out>
void writePoints(Out &out, const MEDIACMD *cmd, uint32_t tcCode)
{
    const uint32_t flags = cmd->cmdFlags;
    writePoint(out, {"Position", cmd->Position, tcCode, 10, false, cfUsePositionOffset}, flags);
    /* Once Position is a frame count, so are Start and End. */
    if (isFrameCount(tcCode))
        tcCode = 0;
    if (flags & (cfUseStart | cfUseStartOffset)) {
        const bool queue = cmd->CmdAlt >= kGsInsertQueue;
        writePoint(out, {"Start", cmd->Start, tcCode, 25, queue, cfUseStartOffset}, flags);
    }
    if (flags & (cfUseEnd | cfUseEndOffset)) {
        const bool queue = (cmd->CmdAlt == kGsInsertQueue || cmd->CmdAlt == kGsXlatQueue) &&
                           isValueCommand(cmd->Cmd);
        writePoint(out, {"End", cmd->End, tcCode, 25, queue, cfUseEndOffset}, flags);
    }
}

/* ---- Trailing area ------------------------------------------------------------------ */

/* Every read of the area stays inside the record, whatever its bytes say. */

template <class Out>
void writeMetadata(Out &out, const MEDIACMD *cmd)
{
    static constexpr char kReplayCount[] = "REPLAY_COUNT";
    const char *data = area(cmd);
    const size_t tagLength = boundedLength(data, kAreaSize);
    textElement(out, "MetaTag", data, tagLength);
    if (cmd->Speed == 1) {
        /* The value follows the tag and its zero, at End + 1. */
        const int64_t at = static_cast<int64_t>(cmd->End) + 1;
        const bool inside = at >= 0 && at < static_cast<int64_t>(kAreaSize);
        const char *value = inside ? data + at : "";
        textElement(out, "MetaData", value,
                    inside ? boundedLength(value, kAreaSize - static_cast<size_t>(at)) : 0);
    } else {
        textElement(out, "MetaData", integerText(cmd->Start, 10));
    }
    if (tagLength == sizeof kReplayCount - 1 && std::memcmp(data, kReplayCount, tagLength) == 0)
        textElement(out, "PageRequest", integerText(static_cast<int>(cmd->InfoChannels), 10));
}

template <class Out>
void writeChannelName(Out &out, const MEDIACMD *cmd)
{
    textElement(out, "chanName", area(cmd), boundedLength(area(cmd), kAreaSize));
}

/* "length" says StructSize - 76 whatever it is; the bytes written stop at
 * the end of the record. */
template <class Out>
void writeBinary(Out &out, const MEDIACMD *cmd)
{
    const int length = static_cast<int>(cmd->StructSize - MEDIACMD_AREA_OFFSET);
    size_t count = length > 0 ? static_cast<size_t>(length) : 0;
    if (count > kAreaSize)
        count = kAreaSize;
    out.open("arbID");
    out.attribute("Type", "hex");
    out.attribute("length", length);
    out.hexText(reinterpret_cast<const unsigned char *>(area(cmd)), count);
    out.close();
}

/* The ninth byte of the area: zero when ClipID is an ordinary 8-character
 * identifier followed by FileName. */
bool clipIdTerminated(const MEDIACMD *cmd) { return area(cmd)[8] == 0; }

template <class Out>
void writeClipID(Out &out, const MEDIACMD *cmd)
{
    textElement(out, "ClipID", cmd->ClipID, boundedLength(cmd->ClipID, sizeof cmd->ClipID));
}

/* metabasefilename: "name$unique" splits into UniqueID and FileName, and the
 * '$' in the caller's record becomes the name's terminator. */
template <class Out>
void writeMetabaseFileName(Out &out, MEDIACMD *cmd)
{
    if (!clipIdTerminated(cmd))
        return;
    writeClipID(out, cmd);
    size_t length = boundedLength(cmd->FileName, kFileNameSize);
    if (char *dollar = static_cast<char *>(std::memchr(cmd->FileName, '$', length))) {
        textElement(out, "UniqueID", dollar + 1,
                    static_cast<size_t>(cmd->FileName + length - dollar - 1));
        *dollar = 0;
        length = static_cast<size_t>(dollar - cmd->FileName);
    }
    textElement(out, "FileName", cmd->FileName, length);
}

template <class Out>
void writeLongName(Out &out, const MEDIACMD *cmd)
{
    const char *name = area(cmd);
    const size_t length = boundedLength(name, kAreaSize);
    if (length == 0 || length >= cmd->StructSize - 77u)
        return;
    try {
        textElement(out, "FileName", name, length);
    } catch (...) {
        reportException("Exception: MediaCmdToXML() ");
    }
}

template <class Out>
void writeClipAndFile(Out &out, const MEDIACMD *cmd)
{
    writeClipID(out, cmd);
    const size_t length = boundedLength(cmd->FileName, kFileNameSize);
    try {
        if (length == 0) {
            /* A metadata request names its clip twice. */
            if (cmd->CmdAlt == kGsMetadata)
                textElement(out, "FileName", cmd->ClipID,
                            boundedLength(cmd->ClipID, sizeof cmd->ClipID));
        } else if (length < cmd->StructSize - 86u) {
            textElement(out, "FileName", cmd->FileName, length);
        }
    } catch (...) {
        reportException("Exception:  MediaCmdToXML(ClipID) ");
    }
}

template <class Out>
void writeGeneralArea(Out &out, const MEDIACMD *cmd)
{
    if (clipIdTerminated(cmd))
        writeClipAndFile(out, cmd);
    else
        writeLongName(out, cmd);
}

template <class Out>
void writeNamedArea(Out &out, MEDIACMD *cmd)
{
    if (cmd->CmdAlt == kGsMetabaseFileName)
        writeMetabaseFileName(out, cmd);
    else
        writeGeneralArea(out, cmd);
}

template <class Out>
void writeTrailingArea(Out &out, MEDIACMD *cmd)
{
    const uint32_t alt = cmd->CmdAlt;
    if (alt == kGsMetabaseGetTag) {
        writeMetadata(out, cmd);
    } else if (!isValueCommand(cmd->Cmd)) {
        writeNamedArea(out, cmd);
    } else if (alt == kGsQrvType) {
        writeChannelName(out, cmd);
    } else if (alt == kGsFrameData || alt == kGsPreviewFrame) {
        writeBinary(out, cmd);
    } else if (alt > kGsMetabaseGetTag) {
        writeGeneralArea(out, cmd);
    } else {
        writeNamedArea(out, cmd);
    }
}

template <class Out>
int writeDocument(Out &out, MEDIACMD *cmd, unsigned tcType)
{
    out.begin();
    writeLinks(out, cmd);
    valueElement(out, "CmdID", static_cast<int>(cmd->CmdID));
    valueElement(out, "StructSize", static_cast<int>(cmd->StructSize));
    valueElement(out, "Channel", cmd->Channel);
    if (cmd->Cmd > kLastXmlCommand)
        return -1;
    writeCommand(out, cmd);
    writeSpeed(out, cmd);
    writeTracks(out, cmd);
    writeCmdAlt(out, cmd);
    writePoints(out, cmd, tcType & 0xFFu);
    if (cmd->cmdFlags & cfUseClipID)
        writeTrailingArea(out, cmd);
    out.end();
    return 0;
}

/* Room for the longest text a record can give, so that the text is written
 * once, straight into the block returned: the elements before the trailing
 * area with their longest numbers and names (about 1130 bytes at most), and,
 * when the area is written, two area-long texts (a metadata tag and its
 * value) each byte of which may print as six. The block may so be larger
 * than its text; a text that would not fit is never cut (see below). */
constexpr size_t kFixedTextRoom = 3072;
constexpr size_t kAreaTextRoom = TextOutput::escapedRoom(2 * kAreaSize + 2 * QRV_INTEGER_TEXT_SIZE);

size_t textRoom(const MEDIACMD *cmd)
{
    return kFixedTextRoom + (cmd->cmdFlags & cfUseClipID ? kAreaTextRoom : 0);
}

} // namespace

int MediaCmdToXML(TiXmlDocument *doc, MEDIACMD *cmd, unsigned tcType)
{
    if (!doc || !cmd)
        return -1;
    try {
        TreeOutput out(doc);
        return writeDocument(out, cmd, tcType);
    } catch (...) {
        reportException("Exception: MediaCmdToXML() ");
        return -1;
    }
}

/* Without a block to write to (a null `out`, or no memory) the layout still
 * runs, so the record is changed exactly as when the text is written. A text
 * that outgrew its room (which textRoom rules out) is reported and not
 * handed out cut. */
int MediaCmdToXMLString(char **out, MEDIACMD *cmd, unsigned tcType)
{
    if (!cmd)
        return -1;
    const size_t room = textRoom(cmd);
    char *block = out ? static_cast<char *>(hostAlloc(room)) : nullptr;
    TextOutput text(block, block ? room : 0);
    const int status = writeDocument(text, cmd, tcType);
    if (status != 0 || !block) {
        hostFree(block);
        return status;
    }
    if (text.overflowed()) {
        hostFree(block);
        reportException("Exception: MediaCmdToXML() ");
        return -1;
    }
    text.finish(block);
    *out = block;
    return status;
}

int MediaCmdFreeXMLString(char **str)
{
    if (!str)
        return 0;
    if (*str)
        hostFree(*str);
    *str = nullptr;
    return 0;
}
