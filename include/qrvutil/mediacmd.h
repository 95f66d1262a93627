/**
 * @file
 * The media command model: the MEDIACMD record by which a controller tells a
 * recording or playback channel what to do, its three vocabularies (command
 * codes ct, command flags cf, state-value identifiers gs), record utilities
 * and the debug text form.
 *
 * Results follow the library's older convention: 0 or a value on success,
 * -1 (0xFFFFFFFF for unsigned results) when a name or value is not found.
 * Every call here except speedReps() works only on the caller's records.
 */
#ifndef QRVUTIL_MEDIACMD_H
#define QRVUTIL_MEDIACMD_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"
#include "transport.h"

QRV_EXTERN_C_BEGIN

/* ---- The record ------------------------------------------------------------- */

#define MEDIACMD_ID 0xFA250200u         /**< CmdID of every valid record */
#define MEDIACMD_SIZE 1116u             /**< bytes in a record, on every build */
#define MEDIACMD_AREA_OFFSET 76u        /**< ClipID: start of the shared trailing area */
#define MEDIACMD_AREA_SIZE 1040u        /**< ClipID to the end of the record */
#define MEDIACMD_SPEED_UNSET 0x7FFFFFFF /**< Speed not given ("as before" for speedReps()) */
#define MEDIACMD_SPEED_NORMAL QRV_TRANSPORT_UNIT /**< one times normal forward play: 65520 */

/**
 * One command. The layout is fixed (peers exchange it by size): 4-byte
 * packing, 64-bit links, 1116 bytes on 32-bit and 64-bit builds.
 * The bytes from ClipID to StructSize are one shared area: ClipID and
 * FileName for most commands, free-form data (a returned value, binary data)
 * for others; nothing guarantees a terminator inside it.
 */
#pragma pack(push, 4)
typedef struct MEDIACMD {
    uint64_t prev;          /**< opaque link; only its low 32 bits travel in XML */
    uint64_t next;          /**< opaque link, as prev */
    uint64_t list;          /**< opaque link, as prev */
    uint32_t CmdID;         /**< always MEDIACMD_ID */
    uint32_t StructSize;    /**< valid bytes in the record; bounds every area copy */
    int32_t Channel;        /**< channel the command is for; -1 = not set */
    uint32_t Cmd;           /**< ct code */
    uint32_t cmdFlags;      /**< OR of cf flags */
    int32_t Speed;          /**< 65520 = normal play, 0 = still; 0x7FFFFFFF = not given */
    uint32_t VideoChannels; /**< bit mask of the video tracks the command touches */
    uint32_t AudioChannels; /**< bit mask of the audio tracks */
    uint32_t InfoChannels;  /**< bit mask of the info (timecode, data) tracks */
    uint32_t CmdAlt;        /**< gs identifier of a value command, or when the command acts */
    int32_t Position;       /**< frames, or an offset (cfUsePosition, cfUsePositionOffset) */
    int32_t Start;          /**< frames, or an offset (cfUseStart, cfUseStartOffset) */
    int32_t End;            /**< frames, or an offset (cfUseEnd, cfUseEndOffset) */
    char ClipID[9];         /**< up to 8 characters and a terminator; starts the shared area */
    char FileName[1031];    /**< to the end of the record */
} MEDIACMD;
#pragma pack(pop)

/* Peers exchange the record by size and offset: hold them on every build. */
QRV_STATIC_ASSERT(sizeof(MEDIACMD) == 1116, "MEDIACMD is 1116 bytes");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, prev) == 0, "prev at 0");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, next) == 8, "next at 8");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, list) == 16, "list at 16");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, CmdID) == 24, "CmdID at 24");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, StructSize) == 28, "StructSize at 28");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, Channel) == 32, "Channel at 32");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, Cmd) == 36, "Cmd at 36");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, cmdFlags) == 40, "cmdFlags at 40");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, Speed) == 44, "Speed at 44");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, VideoChannels) == 48, "VideoChannels at 48");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, AudioChannels) == 52, "AudioChannels at 52");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, InfoChannels) == 56, "InfoChannels at 56");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, CmdAlt) == 60, "CmdAlt at 60");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, Position) == 64, "Position at 64");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, Start) == 68, "Start at 68");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, End) == 72, "End at 72");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, ClipID) == MEDIACMD_AREA_OFFSET, "ClipID at 76");
QRV_STATIC_ASSERT(offsetof(MEDIACMD, FileName) == 85, "FileName at 85");

/* ---- Command codes (ct) ------------------------------------------------------- */

/** Command codes, the values of MEDIACMD.Cmd. */
enum {
    ctStop = 0,
    ctPause = 1,
    ctPlay = 2,
    ctRecord = 3,
    ctRecStop = 4,
    ctEject = 5,
    ctTransfer = 6,
    ctInsert = 7,
    ctBlank = 8,
    ctDelete = 9,
    ctTrim = 10,
    ctChanSelect = 11,
    ctGetState = 12,
    ctSetState = 13,
    ctGetValue = 14,
    ctSetValue = 15,
    ctValueSupported = 16,
    ctError = 17,
    ctTerminate = 18,
    ctAbort = 19,
    ctEdit = 20,
    ctSwitch = 21
};

/* ---- Command flags (cf) --------------------------------------------------------- */

/* The bits of MEDIACMD.cmdFlags. Bit 0x04000000 has no name. */

#define cfDeferred 0x00000001u
#define cfOverrideDeferred 0x40000000u
#define cfTimeMs 0x00000002u
#define cfTimeTarget 0x00000004u
#define cfTimeHouseClock 0x00000008u
#define cfUseSpeed 0x00000010u
#define cfUsePresets 0x00000020u
#define cfUsePosition 0x00000040u
#define cfUsePositionOffset 0x00000080u
#define cfUseStart 0x00000100u
#define cfUseStartOffset 0x00000200u
#define cfUseEnd 0x00000400u
#define cfUseEndOffset 0x00000800u
#define cfUseAllIDs 0x00001000u
#define cfUseClipID 0x00002000u
/* Three bits carry two meanings each, chosen by the command they travel with. */
#define cfCopy 0x00004000u
#define cfNoClipFiles 0x00004000u
#define cfConvert 0x00008000u
#define cfNoTCSpaces 0x00008000u
#define cfUseCmdAlt 0x00010000u
#define cfIsShuttle 0x00020000u
#define cfUsingCurrent 0x00040000u
#define cfUseFrameCount 0x00080000u
#define cfFields 0x00100000u
#define cfRipple 0x00200000u
#define cfLoop 0x00400000u
#define cfTrigger 0x00800000u
#define cfPreview 0x01000000u
#define cfRemoteCommand 0x02000000u
#define cfSecondField 0x08000000u
#define cfUseNextField 0x08000000u
#define cfInvert 0x10000000u
#define cfTest 0x20000000u
#define cfNoReturn 0x80000000u

/* ---- Vocabulary tables ------------------------------------------------------------ */

/** One (value, name) row of a vocabulary; names are lower case. */
typedef struct mcmdXlat {
    uint32_t value;
    const char *name;
} mcmdXlat;

#define MCMD_GS_ROWS 394  /**< rows of mcmdGSXlat and mcmdGSStringXlat */
#define MCMD_FLAG_ROWS 34 /**< rows of mcmdFLAGXlat */
#define MCMD_NAME_MAX 31  /**< room for any gs or cf name and its terminator */

/** The state-value identifiers (gs), in table order: not sorted (64012
 *  stands before 64011), no value twice. */
QRV_API extern const mcmdXlat mcmdGSXlat[MCMD_GS_ROWS];
/** The command flags (cf), in table order; 0x4000, 0x8000 and 0x08000000
 *  have two names each, the first of which the lookups by value give. */
QRV_API extern const mcmdXlat mcmdFLAGXlat[MCMD_FLAG_ROWS];
/** A writable table of the same shape for callers; all zero at load and
 *  never read or filled by the library. */
QRV_API extern mcmdXlat mcmdGSStringXlat[MCMD_GS_ROWS];

/* The four lookups scan their table from the first row and stop at the
 * first hit. Not found: -1, and the output is untouched. A null output only
 * tests membership. */

/** Name of a gs value into `name` (MCMD_NAME_MAX bytes, terminator
 *  included). Returns 0, or -1 for a value without a name (0, 35, ...). */
QRV_API int gsToString(unsigned value, char *name);
/** Value of a gs name; the whole name must match, ignoring ASCII case
 *  ("QRVVERSION" gives 60000, "tcx" nothing). Returns 0, or -1 for an
 *  unknown, empty or null name. */
QRV_API int gsFromString(const char *name, unsigned *value);
/** Name of one cf flag into `name` (MCMD_NAME_MAX bytes). The argument is one
 *  flag, not a mask (0x3 is not found); a shared bit gives its first name
 *  ("copy", "convert", "secondfield"). Returns 0 or -1. */
QRV_API int cfToString(unsigned flag, char *name);
/** Flag of a cf name, as gsFromString() ("noclipfiles" gives 0x4000).
 *  Returns 0 or -1. */
QRV_API int cfFromString(const char *name, unsigned *flag);

/* ---- Utilities -------------------------------------------------------------------- */

/* The implied speed of a command, used by copyMediaCmd() and fixMediaCmd():
 * 0 for ctStop, ctPause, ctRecStop, ctEject, ctTerminate and ctAbort, 65520
 * for ctPlay and ctRecord, none for every other code. */

/** Makes `cmd` a fresh record for command `ctCode`: all 1116 bytes zeroed,
 *  then CmdID, StructSize = 1116, Channel = -1, Speed = 0x7FFFFFFF, the track
 *  masks, CmdAlt, Position, Start and End = all ones. A null `cmd` is ignored. */
QRV_API void initMediaCmd(MEDIACMD *cmd, unsigned ctCode);
/** Copies `src` into `dst`, which must be initialised (its StructSize bounds
 *  the copy). Channel, Cmd, Position, Start, End and their flags are always
 *  copied, whatever `flagMask`; other flags of `src` pass only through
 *  `flagMask`, and flags `dst` already had stay unless they are per-command
 *  flags that `src` lacks.
 *  - A `src` without cfUseSpeed gives `dst` its command's implied speed with
 *    cfUseSpeed, or Speed 0x7FFFFFFF when there is none.
 *  - A `src` without cfUsePresets sets all of `dst`'s track masks.
 *  - With cfUseClipID, ClipID is copied as 8 characters (the ninth byte of
 *    `dst` is not written) and FileName as at most min(src StructSize - 85,
 *    dst StructSize - 76, 1027) characters, zero-padded but not terminated
 *    when that many are used; kept: hosts size their records by these bounds.
 *  Null records are ignored. */
QRV_API void copyMediaCmd(MEDIACMD *dst, const MEDIACMD *src, unsigned flagMask);
/** Fills in what a record implies: all track masks when the effective flags
 *  (cmdFlags AND `flagMask`, or all of cmdFlags when `flagMask` is 0) lack
 *  cfUsePresets; the command's implied speed, if it has one, with cfUseSpeed
 *  when they lack cfUseSpeed.
 *  Returns the record's flags afterwards (0 for a null record). */
QRV_API unsigned fixMediaCmd(MEDIACMD *cmd, int flagMask);
/** Index (0-31) of the n-th set bit of `mask`, counting from n = 0 at bit 0
 *  upward; *rest (when not null) gets `mask` without that bit. With n or fewer
 *  bits set: 0xFFFFFFFF, and *rest gets `mask` unchanged. */
QRV_API unsigned findChannel(unsigned mask, unsigned *rest, unsigned n);
/** The n-th set bit of `mask` alone (counted as findChannel()), or 0. */
QRV_API unsigned isolateChannel(unsigned mask, unsigned n);
/** Number of set bits of `mask`. */
QRV_API unsigned totalChannels(unsigned mask);
/** Upper-cases each of the four bytes of a four-character code with the C
 *  library's toupper() ("avc1" becomes "AVC1"). */
QRV_API unsigned fourccToUpper(unsigned fourcc);
/** Lower-cases each of the four bytes with tolower(). */
QRV_API unsigned fourccToLower(unsigned fourcc);
/** How far a field counter moves for one output field at transport `speed`
 *  (65520 = normal). Call once per field.
 *  - Not thread-safe: keeps the last speed and a cadence accumulator for the
 *    whole process, so it serves one transport at a time.
 *  - Speed 0 returns 0 and changes nothing; 0x7FFFFFFF means "as last time".
 *  - At normal speed or faster (forward): adds speed / 32760 fields to
 *    *counter (fractions carried over calls) and returns 1; 65520 adds 2.
 *  - Slower, or in reverse: adds 1 to *counter and returns how many times the
 *    field is shown (16380 returns 2); the first call with 0x7FFFFFFF
 *    returns 0.
 *  `counter` may be null. */
QRV_API unsigned speedReps(unsigned *counter, int speed);
/** |speed| / 65520 in 16.16 fixed point: 65520 gives 0x10000, 32760 gives
 *  0x8000, -131040 gives 0x20000. */
QRV_API unsigned speedRate(int speed);

/* ---- Debug text ---------------------------------------------------------------------- */

/** Writes one readable line describing `cmd` through logDebug(), such as
 *  "qrv-Chan1 ctPlay UseSpeed (100) ". Kept quirks that log readers rely on:
 *  - ctGetState and ctSetState write nothing at all.
 *  - The track masks print when cfUsePosition is set, not cfUsePresets.
 *  - A named ctGetValue prints "ctGetValue(tc)" with no blank after it.
 *  The line is cut at 4095 characters; an exception is logged, not thrown. */
QRV_API void __dbgout_mediacmd(MEDIACMD *cmd);
/** Writes the timecode text of `frames` through logDebug(): the low byte of
 *  `tcType` is the timecode type; type 0 prints as non-drop-frame. Returns
 *  what logDebug() returns. */
QRV_API int __dbgout_tc(unsigned frames, int tcType);

QRV_EXTERN_C_END

#endif
