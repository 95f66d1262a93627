/* Debug text: one readable line per media command, and one timecode. */
#include <qrvutil/host.h>
#include <qrvutil/mediacmd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "mediacmd/mediacmd_internal.h"

using qrv::mediacmd::area;
using qrv::mediacmd::boundedLength;
using qrv::mediacmd::kAreaSize;
using qrv::mediacmd::kCommandCount;
using qrv::mediacmd::kCommandTexts;
using qrv::mediacmd::kFileNameSize;
using qrv::mediacmd::speedPercent;

namespace {

/* The line is assembled piece by piece: each piece is formatted into a
 * 1024-byte buffer and appended to a 4096-byte line. Both are bounded, so a
 * FileName near its full length is cut rather than overflowing. */
class TraceLine {
  public:
    void add(const char *format, ...) __attribute__((format(printf, 2, 3)))
    {
        char piece[1024];
        va_list args;
        va_start(args, format);
        std::vsnprintf(piece, sizeof piece, format, args);
        va_end(args);
        append(piece);
    }

    void append(const char *text)
    {
        size_t length = std::strlen(text);
        const size_t room = sizeof line_ - 1 - used_;
        if (length > room)
            length = room;
        std::memcpy(line_ + used_, text, length);
        used_ += length;
        line_[used_] = 0;
    }

    const char *text() const { return line_; }

  private:
    char line_[4096] = {};
    size_t used_ = 0;
};

/* Position, Start and End pieces: printed when their flag is set. */
struct PointPiece {
    uint32_t flag;
    const char *format;
    int32_t MEDIACMD::*field;
};
constexpr PointPiece kPointPieces[] = {
    {cfUsePosition, "UsePosition (%d) ", &MEDIACMD::Position},
    {cfUseStart, "Use Start (%d) ", &MEDIACMD::Start},
    {cfUseStartOffset, "UseStartOffset (%d) ", &MEDIACMD::Start},
    {cfUseEnd, "UseEnd (%d) ", &MEDIACMD::End},
    {cfUseEndOffset, "UseEndOffset (%d) ", &MEDIACMD::End},
};

void addCommand(TraceLine &line, const MEDIACMD &cmd)
{
    if (cmd.Cmd >= kCommandCount)
        return;
    if (cmd.Cmd == ctGetValue) {
        char name[MCMD_NAME_MAX];
        /* A named value closes its parenthesis with no blank after it. */
        if (gsToString(cmd.CmdAlt, name) == 0)
            line.add("ctGetValue(%s)", name);
        else
            line.add("ctGetValue(%d, 0x%X) ", static_cast<int>(cmd.CmdAlt), cmd.CmdAlt);
        return;
    }
    if (kCommandTexts[cmd.Cmd].trace)
        line.append(kCommandTexts[cmd.Cmd].trace);
}

const char *cmdAltLabel(uint32_t flags)
{
    const bool ms = flags & cfTimeMs;
    if (ms && (flags & cfTimeTarget))
        return "CmdTarget: ";
    if (ms && (flags & cfTimeHouseClock))
        return "CmdHouse: ";
    if (ms)
        return "CmdTime: ";
    return "CmdAlt: ";
}

void addFlags(TraceLine &line, const MEDIACMD &cmd)
{
    const uint32_t flags = cmd.cmdFlags;
    if (flags & cfDeferred)
        line.append("Deferred ");
    if (flags & cfUseSpeed)
        line.add("UseSpeed (%ld) ", static_cast<long>(speedPercent(cmd.Speed)));
    for (const PointPiece &piece : kPointPieces)
        if (flags & piece.flag)
            line.add(piece.format, cmd.*piece.field);
    if (flags & cfUseCmdAlt) {
        line.append(cmdAltLabel(flags));
        line.add("(%d) ", static_cast<int>(cmd.CmdAlt));
    }
    /* The track masks go out with cfUsePosition, not cfUsePresets: readers of
     * existing traces expect them there. */
    if (flags & cfUsePosition)
        line.add("UsePresets: V(%d)A(%d)I(%d) ", static_cast<int>(cmd.VideoChannels),
                 static_cast<int>(cmd.AudioChannels), static_cast<int>(cmd.InfoChannels));
    if (flags & cfUseClipID) {
        /* ClipID may run on into FileName; neither is read past the record. */
        const char *clip = area(&cmd);
        line.add("UseClipId: (%.*s)(%.*s) ", static_cast<int>(boundedLength(clip, kAreaSize)), clip,
                 static_cast<int>(boundedLength(cmd.FileName, kFileNameSize)), cmd.FileName);
    }
}

} // namespace

void __dbgout_mediacmd(MEDIACMD *cmd)
{
    /* ctGetState and ctSetState are left out of the trace on purpose. */
    if (!cmd || cmd->Cmd == ctGetState || cmd->Cmd == ctSetState)
        return;
    try {
        TraceLine line;
        line.add("qrv-Chan%1d ", static_cast<int>(cmd->Channel));
        addCommand(line, *cmd);
        addFlags(line, *cmd);
        logDebug(line.text());
    } catch (...) {
        logErrorFormat(0x80000000u, 0, 0, "WARNING(vuMCmd): %s\n\r",
                       "Exception: outputing mediacmd to string");
    }
}

int __dbgout_tc(unsigned frames, int tcType)
{
    const unsigned type = static_cast<unsigned>(tcType) & 0xFFu;
    /* Type 0 has no timecode rate of its own: show it as non-drop-frame. */
    const unsigned flags = type ? (type | 0x10100u) : 0x10102u;
    char text[QRV_TIMECODE_TEXT_SIZE] = {};
    tcToString(frames, flags, text);
    return logDebug(text);
}
