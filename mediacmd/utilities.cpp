/* Record utilities: initialisation, masked copy, implied defaults, track-mask
 * picking, four-character codes and speed arithmetic. */
#include <qrvutil/mediacmd.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "mediacmd/mediacmd_internal.h"

using qrv::mediacmd::impliedSpeed;
using qrv::mediacmd::isValueCommand;
using qrv::mediacmd::kCmdAltFlags;

namespace {

constexpr uint32_t kAllTracks = 0xFFFFFFFFu;

/* Flags a copy keeps only when the source has them too: they describe when
 * and how this one command runs, not what it operates on. */
constexpr uint32_t kPerCommandFlags = cfDeferred | cfOverrideDeferred | cfTimeMs | cfTimeTarget |
                                      cfTimeHouseClock | cfUseAllIDs | cfNoClipFiles |
                                      cfNoTCSpaces | cfLoop | cfRipple | cfInvert | cfTest |
                                      cfNoReturn;
static_assert(kPerCommandFlags == 0xF060D00Fu, "per-command flag set");

constexpr uint32_t kPositionFlags = cfUsePosition | cfUsePositionOffset;
constexpr uint32_t kStartFlags = cfUseStart | cfUseStartOffset;
constexpr uint32_t kEndFlags = cfUseEnd | cfUseEndOffset;

/* The longest FileName a copy moves. Kept at 1027 (not the field's 1030) so
 * copies behave as they always have between peers. */
constexpr uint32_t kFileNameCopyLimit = 1027;

void setAllTracks(MEDIACMD *cmd)
{
    cmd->VideoChannels = kAllTracks;
    cmd->AudioChannels = kAllTracks;
    cmd->InfoChannels = kAllTracks;
}

/* strncpy's result, written as a loop so that a record copied onto itself
 * stays well defined. */
void copyPadded(char *dst, const char *src, size_t count)
{
    size_t i = 0;
    for (; i < count && src[i]; ++i)
        dst[i] = src[i];
    for (; i < count; ++i)
        dst[i] = 0;
}

void copySpeed(MEDIACMD *dst, const MEDIACMD *src)
{
    int32_t speed = 0;
    if (src->cmdFlags & cfUseSpeed) {
        dst->Speed = src->Speed;
        dst->cmdFlags |= cfUseSpeed;
    } else if (impliedSpeed(src->Cmd, &speed)) {
        dst->Speed = speed;
        dst->cmdFlags |= cfUseSpeed;
    } else {
        dst->Speed = MEDIACMD_SPEED_UNSET;
    }
}

void copyPoints(MEDIACMD *dst, const MEDIACMD *src)
{
    dst->Position = src->Position;
    dst->cmdFlags |= src->cmdFlags & kPositionFlags;
    dst->Start = src->Start;
    dst->cmdFlags = (dst->cmdFlags & ~kStartFlags) | (src->cmdFlags & kStartFlags);
    dst->End = src->End;
    dst->cmdFlags = (dst->cmdFlags & ~kEndFlags) | (src->cmdFlags & kEndFlags);
}

/* ClipID's eight characters (its ninth byte untouched), then FileName bounded
 * by both records' StructSize. The sizes are subtracted as unsigned numbers,
 * and the destination's bound is measured from ClipID (-76), not FileName:
 * both kept, as peers rely on it. The 1027 cap keeps every size inside the
 * two records. */
void copyClip(MEDIACMD *dst, const MEDIACMD *src)
{
    copyPadded(dst->ClipID, src->ClipID, 8);
    uint32_t count = src->StructSize - 85u;
    const uint32_t dstRoom = dst->StructSize - MEDIACMD_AREA_OFFSET;
    if (dstRoom < count)
        count = dstRoom;
    if (kFileNameCopyLimit < count)
        count = kFileNameCopyLimit;
    copyPadded(dst->FileName, src->FileName, count);
}

int caseFold(int c, bool upper) { return upper ? std::toupper(c) : std::tolower(c); }

/* Folds each byte through the C library. Bytes are handed over as unsigned
 * char values, the range the C library defines; the result byte is the same
 * as for the byte taken as a signed char. */
unsigned foldFourcc(unsigned fourcc, bool upper)
{
    unsigned result = 0;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        const int byte = static_cast<int>((fourcc >> shift) & 0xFFu);
        result |= (static_cast<unsigned>(caseFold(byte, upper)) & 0xFFu) << shift;
    }
    return result;
}

/* speedReps keeps its state across calls and callers: one transport at a
 * time. */
struct RepeatState {
    int32_t lastSpeed = 0;
    double factor = 0.0;
    double accumulator = 0.0;
};
RepeatState gRepeat;

double wholePart(double x) { return std::trunc(x); }
double fractionPart(double x) { return x - std::trunc(x); }

unsigned fastRepeats(unsigned *counter)
{
    gRepeat.accumulator += fractionPart(gRepeat.factor);
    if (!counter)
        return 1;
    *counter += static_cast<unsigned>(wholePart(gRepeat.factor));
    if (gRepeat.accumulator > 1.0) {
        *counter += 1;
        gRepeat.accumulator = fractionPart(gRepeat.accumulator);
    }
    return 1;
}

unsigned slowRepeats(unsigned *counter)
{
    if (counter)
        *counter += 1;
    /* Only a first call that says "same speed as last time" finds no factor:
     * there is no speed to hold the field at, so it repeats nothing. */
    if (gRepeat.factor == 0.0)
        return 0;
    const double r = 1.0 / gRepeat.factor;
    const unsigned n = static_cast<unsigned>(wholePart(r));
    gRepeat.accumulator += r - n;
    if (gRepeat.accumulator > 1.0) {
        gRepeat.accumulator = fractionPart(gRepeat.accumulator);
        return n + 1;
    }
    return n;
}

} // namespace

void initMediaCmd(MEDIACMD *cmd, unsigned ctCode)
{
    if (!cmd)
        return;
    std::memset(cmd, 0, sizeof *cmd);
    cmd->CmdID = MEDIACMD_ID;
    cmd->StructSize = MEDIACMD_SIZE;
    cmd->Channel = -1;
    cmd->Speed = MEDIACMD_SPEED_UNSET;
    setAllTracks(cmd);
    cmd->CmdAlt = 0xFFFFFFFFu;
    cmd->Position = -1;
    cmd->Start = -1;
    cmd->End = -1;
    cmd->Cmd = ctCode;
}

void copyMediaCmd(MEDIACMD *dst, const MEDIACMD *src, unsigned flagMask)
{
    if (!dst || !src)
        return;
    const uint32_t srcFlags = src->cmdFlags;
    dst->CmdID = MEDIACMD_ID;
    dst->Channel = src->Channel;
    dst->Cmd = src->Cmd;

    dst->cmdFlags |= flagMask & srcFlags;
    dst->cmdFlags &= ~(kPerCommandFlags & ~srcFlags);

    if (!(srcFlags & cfUsePresets))
        setAllTracks(dst);
    copySpeed(dst, src);
    if (srcFlags & cfUsePresets) {
        dst->VideoChannels = src->VideoChannels;
        dst->AudioChannels = src->AudioChannels;
        dst->InfoChannels = src->InfoChannels;
        dst->cmdFlags |= cfUsePresets;
    }
    if ((srcFlags & kCmdAltFlags) || isValueCommand(src->Cmd)) {
        dst->CmdAlt = src->CmdAlt;
        dst->cmdFlags |= srcFlags & kCmdAltFlags;
    }
    copyPoints(dst, src);
    if (srcFlags & cfUseClipID)
        copyClip(dst, src);
}

/* Returns the record's flags, as they stand after the fix. */
unsigned fixMediaCmd(MEDIACMD *cmd, int flagMask)
{
    if (!cmd)
        return 0;
    const uint32_t effective = flagMask ? cmd->cmdFlags & static_cast<uint32_t>(flagMask)
                                        : cmd->cmdFlags;
    if (!(effective & cfUsePresets))
        setAllTracks(cmd);
    int32_t speed = 0;
    if ((effective & cfUseSpeed) || !impliedSpeed(cmd->Cmd, &speed))
        return cmd->cmdFlags;
    cmd->Speed = speed;
    cmd->cmdFlags |= cfUseSpeed;
    return cmd->cmdFlags;
}

unsigned findChannel(unsigned mask, unsigned *rest, unsigned n)
{
    unsigned seen = 0;
    for (unsigned bit = 0; bit < 32; ++bit) {
        if (!(mask & (1u << bit)))
            continue;
        if (seen++ == n) {
            if (rest)
                *rest = mask & ~(1u << bit);
            return bit;
        }
    }
    if (rest)
        *rest = mask;
    return 0xFFFFFFFFu;
}

unsigned isolateChannel(unsigned mask, unsigned n)
{
    const unsigned bit = findChannel(mask, nullptr, n);
    return bit < 32 ? 1u << bit : 0;
}

unsigned totalChannels(unsigned mask)
{
    unsigned count = 0;
    for (; mask; mask &= mask - 1)
        ++count;
    return count;
}

unsigned fourccToUpper(unsigned fourcc) { return foldFourcc(fourcc, true); }

unsigned fourccToLower(unsigned fourcc) { return foldFourcc(fourcc, false); }

/* One call per output field. The factor is measured against half of normal
 * speed (32760), and the accumulator rolls over only when strictly above
 * 1.0: both are how field cadences have always been produced, so kept. */
unsigned speedReps(unsigned *counter, int speed)
{
    if (speed == 0)
        return 0;
    if (speed != MEDIACMD_SPEED_UNSET && speed != gRepeat.lastSpeed) {
        gRepeat.lastSpeed = speed;
        gRepeat.factor = std::fabs(static_cast<double>(speed)) / (MEDIACMD_SPEED_NORMAL / 2.0);
        gRepeat.accumulator = 0.0;
    }
    /* Reverse speeds always take the slow path. */
    if (gRepeat.lastSpeed >= MEDIACMD_SPEED_NORMAL)
        return fastRepeats(counter);
    return slowRepeats(counter);
}

unsigned speedRate(int speed)
{
    const double r = std::fabs(static_cast<double>(speed)) / MEDIACMD_SPEED_NORMAL;
    const unsigned whole = static_cast<unsigned>(wholePart(r));
    const unsigned fraction = static_cast<unsigned>(fractionPart(r) * 65536.0) & 0xFFFFu;
    return (whole << 16) | fraction;
}
