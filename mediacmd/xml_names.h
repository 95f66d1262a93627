/* Names and limits shared by the MEDIACMD XML writer, reader and validator. */
#ifndef QRVUTIL_MEDIACMD_XML_NAMES_H
#define QRVUTIL_MEDIACMD_XML_NAMES_H

#include <qrvutil/mediacmd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qrv::mediacmd {

/* An attribute set to 1 for a flag. */
struct FlagAttribute {
    const char *name;
    uint32_t flag;
};

/* The flag attributes of the "Cmd" element, in the writer's order. The
 * reader reads override-deferred under its own names (see the reader). */
constexpr FlagAttribute kCmdFlagAttributes[] = {
    {"Deferred", cfDeferred},
    {"OverrideDeferred", cfOverrideDeferred},
    {"Loop", cfLoop},
    {"Trigger", cfTrigger},
    {"Ripple", cfRipple},
    {"Invert", cfInvert},
    {"Test", cfTest},
    {"NoReturn", cfNoReturn},
    {"UseAllIDs", cfUseAllIDs},
    {"UseClipID", cfUseClipID},
    {"NoClipFiles", cfNoClipFiles},
    {"NoTCSpaces", cfNoTCSpaces},
};

/* The attribute of the "Speed" element after its Value. */
constexpr FlagAttribute kSpeedAttributes[] = {{"IsShuttle", cfIsShuttle}};

/* The time attributes of the "CmdAlt" element. */
constexpr FlagAttribute kCmdAltAttributes[] = {
    {"TimeMs", cfTimeMs},
    {"TimeTarget", cfTimeTarget},
    {"TimeHouseClock", cfTimeHouseClock},
};

/* Attributes of Position, Start and End after "IsOffset"; the same flags
 * whichever of the three carries them. */
constexpr FlagAttribute kPointAttributes[] = {
    {"UsingCurrent", cfUsingCurrent},
    {"UsingFrameCount", cfUseFrameCount},
    {"IsFieldCount", cfFields},
};

/* gs identifiers that choose the trailing-area form. */
constexpr uint32_t kGsFrameData = 25;
constexpr uint32_t kGsMetadata = 150;
constexpr uint32_t kGsMetabaseFileName = 162;
constexpr uint32_t kGsMetabaseGetTag = 166;
constexpr uint32_t kGsQrvType = 60002;
constexpr uint32_t kGsPreviewFrame = 1000007;
constexpr uint32_t kGsInsertQueue = 1100001;
constexpr uint32_t kGsXlatQueue = 1100002;

/* Names of the timecode types; a type not listed gets no TcType attribute. */
struct TcTypeName {
    uint32_t code;
    const char *name;
};
constexpr TcTypeName kTcTypeNames[] = {
    {0, "frames"},     {255, "frames"},    {1, "film"},    {2, "non-drop-frame"},
    {4, "drop-frame"}, {8, "pal"},         {16, "50"},     {32, "59.94"},
    {64, "60"},        {128, "film-drop"}, {132, "23.98"},
};

/* Command texts, matched in this order as prefixes of the lower-cased text
 * ("playback" is a play). "terminate" and "abort" are read as ctPlay: that
 * is how peers have always had them read. */
struct CommandWord {
    const char *word;
    uint32_t code;
};
constexpr CommandWord kCommandWords[] = {
    {"stop", ctStop},
    {"pause", ctPause},
    {"play", ctPlay},
    {"record", ctRecord},
    {"recstop", ctRecStop},
    {"eject", ctEject},
    {"transfer", ctTransfer},
    {"insert", ctInsert},
    {"blank", ctBlank},
    {"delete", ctDelete},
    {"trim", ctTrim},
    {"chanselect", ctChanSelect},
    {"getstate", ctGetState},
    {"setstate", ctSetState},
    {"getvalue", ctGetValue},
    {"setvalue", ctSetValue},
    {"valuesupported", ctValueSupported},
    {"error", ctError},
    {"terminate", ctPlay},
    {"abort", ctPlay},
    {"edit", ctEdit},
};

/* Size of the work buffer a command text is matched in. */
constexpr size_t kCommandTextSize = 1024;

/* Reads a command text as the reader does: lower-cased, matched by prefix
 * against kCommandWords in order. Leaves *code alone and returns false when
 * nothing matches. */
bool commandFromText(const char *text, uint32_t *code);

/* TinyXML parses nested elements recursively, so a text that opens more
 * elements than this is not parsed at all: a command document has about
 * twenty, and the bound keeps the parser's stack use small. */
constexpr size_t kMaxOpeningTags = 1024;

inline bool opensFewTags(const char *xml)
{
    size_t tags = 0;
    for (const char *p = std::strchr(xml, '<'); p; p = std::strchr(p + 1, '<'))
        if (p[1] != '/' && ++tags > kMaxOpeningTags)
            return false;
    return true;
}

} // namespace qrv::mediacmd

#endif
