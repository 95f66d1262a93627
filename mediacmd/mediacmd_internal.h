/* Internal interface of the media command model: the per-command tables and
 * the trailing-area helpers shared by the utilities, the debug line and the
 * XML writer and reader. */
#ifndef QRVUTIL_MEDIACMD_INTERNAL_H
#define QRVUTIL_MEDIACMD_INTERNAL_H

#include <qrvutil/mediacmd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qrv::mediacmd {

/* ---- Per-command texts ---------------------------------------------------- */

/* One row per ct code, indexed by the code. `trace` is the debug-line piece
 * (null where the line handles the code itself or has no text); `xml` is the
 * command name of the XML form (null: the code has no XML form). */
struct CommandText {
    const char *trace;
    const char *xml;
};

constexpr CommandText kCommandTexts[] = {
    {"ctStop ", "Stop"},         {"ctPause ", "Pause"},
    {"ctPlay ", "Play"},         {"ctRecord ", "Record"},
    {"ctRecStop ", "RecStop"},   {"ctEject ", "Eject"},
    {"ctTransfer ", "Transfer"}, {"ctInsert ", "Insert"},
    {"ctBlank ", "Blank"},       {"ctDelete ", "Delete"},
    {"ctTrim ", "Trim"},         {"ctChanSelect ", "ChanSelect"},
    {nullptr, "GetState"}, /* never traced */
    {nullptr, "SetState"}, /* never traced */
    {nullptr, "GetValue"}, /* traced with its gs name */
    {"ctSetValue ", "SetValue"}, {"ctValueSupported ", "ValueSupported"},
    {"ctError ", "Error"},       {"ctTerminate ", "Terminate"},
    {"ctAbort ", "Abort"},       {"ctEdit ", nullptr},
    {"ctSwitch ", nullptr},
};
constexpr uint32_t kCommandCount = sizeof kCommandTexts / sizeof kCommandTexts[0];
static_assert(kCommandCount == ctSwitch + 1, "one row per ct code");

/* Highest code that has an XML form. */
constexpr uint32_t kLastXmlCommand = ctAbort;

/* ---- Implied speed ----------------------------------------------------------- */

/* Commands that stop the transport, as bits over codes 0-19: ctStop, ctPause,
 * ctRecStop, ctEject, ctTerminate, ctAbort. */
constexpr uint32_t kStillCommands = 0xC0033;
/* Commands that run it at normal speed: ctPlay, ctRecord. */
constexpr uint32_t kNormalSpeedCommands = 0xC;

/* The speed a command implies when the record gives none; false when the
 * command implies no speed (every code above 19 included). */
constexpr bool impliedSpeed(uint32_t ct, int32_t *speed)
{
    if (ct > ctAbort)
        return false;
    const uint32_t bit = 1u << ct;
    if (bit & kStillCommands) {
        *speed = 0;
        return true;
    }
    if (bit & kNormalSpeedCommands) {
        *speed = MEDIACMD_SPEED_NORMAL;
        return true;
    }
    return false;
}

/* Percent of normal speed, truncated toward zero, as the debug text and the
 * XML form show it. */
constexpr int64_t speedPercent(int32_t speed)
{
    return static_cast<int64_t>(speed) * 100 / MEDIACMD_SPEED_NORMAL;
}

constexpr bool isValueCommand(uint32_t ct)
{
    return ct == ctGetValue || ct == ctSetValue || ct == ctValueSupported;
}

/* Flags that say CmdAlt carries a time or an operand. */
constexpr uint32_t kCmdAltFlags = cfTimeMs | cfTimeTarget | cfTimeHouseClock | cfUseCmdAlt;

/* ---- Trailing area --------------------------------------------------------------- */

constexpr size_t kAreaSize = MEDIACMD_AREA_SIZE;
constexpr size_t kFileNameSize = sizeof(MEDIACMD::FileName);
static_assert(MEDIACMD_AREA_OFFSET + kAreaSize == sizeof(MEDIACMD), "area runs to the end");

/* The shared trailing area (ClipID onwards) as the bytes of the record. */
inline char *area(MEDIACMD *cmd) { return reinterpret_cast<char *>(cmd) + MEDIACMD_AREA_OFFSET; }
inline const char *area(const MEDIACMD *cmd)
{
    return reinterpret_cast<const char *>(cmd) + MEDIACMD_AREA_OFFSET;
}

/* Length of the text at `p`, never looking at more than `limit` bytes. */
inline size_t boundedLength(const char *p, size_t limit)
{
    const void *end = std::memchr(p, 0, limit);
    return end ? static_cast<size_t>(static_cast<const char *>(end) - p) : limit;
}

} // namespace qrv::mediacmd

#endif
