/*
 * qrvutil media command model: the MEDIACMD record by which a controller tells
 * a recording or playback channel what to do, its three vocabularies (command
 * codes, command flags, state-value identifiers), record utilities and the
 * debug text form.
 */
#ifndef QRVUTIL_MEDIACMD_H
#define QRVUTIL_MEDIACMD_H

#include <stddef.h>
#include <stdint.h>

#include "export.h"

QRV_EXTERN_C_BEGIN

/* ---- The record ------------------------------------------------------------- */

#define MEDIACMD_ID 0xFA250200u       /* CmdID of every valid record */
#define MEDIACMD_SIZE 1116u           /* bytes in a record, on every build */
#define MEDIACMD_AREA_OFFSET 76u      /* ClipID: start of the shared trailing area */
#define MEDIACMD_AREA_SIZE 1040u       /* ClipID to the end of the record */
#define MEDIACMD_SPEED_UNSET 0x7FFFFFFF
#define MEDIACMD_SPEED_NORMAL 65520   /* one times normal forward play */

/* The layout is fixed (peers exchange it by size): 4-byte packing, 64-bit links. */
#pragma pack(push, 4)
typedef struct MEDIACMD {
    uint64_t prev;           /* opaque links; only their low 32 bits travel in XML */
    uint64_t next;
    uint64_t list;
    uint32_t CmdID;          /* always MEDIACMD_ID */
    uint32_t StructSize;     /* valid bytes in the record; bounds every area copy */
    int32_t Channel;         /* -1 = not set */
    uint32_t Cmd;            /* ct code */
    uint32_t cmdFlags;       /* OR of cf flags */
    int32_t Speed;           /* 65520 = normal play; 0x7FFFFFFF = not given */
    uint32_t VideoChannels;  /* track masks */
    uint32_t AudioChannels;
    uint32_t InfoChannels;
    uint32_t CmdAlt;         /* gs identifier, or the time the command takes effect */
    int32_t Position;        /* frames, or an offset, per the cf flags */
    int32_t Start;
    int32_t End;
    char ClipID[9];          /* from here to StructSize: one shared trailing area */
    char FileName[1031];
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

/* One (value, name) row of a vocabulary; names are lower case. */
typedef struct mcmdXlat {
    uint32_t value;
    const char *name;
} mcmdXlat;

#define MCMD_GS_ROWS 394
#define MCMD_FLAG_ROWS 34
#define MCMD_NAME_MAX 31 /* longest gs name and its terminator */

/* The state-value identifiers (gs), in table order. */
QRV_API extern const mcmdXlat mcmdGSXlat[MCMD_GS_ROWS];
/* The command flags (cf), in table order; three values have two names. */
QRV_API extern const mcmdXlat mcmdFLAGXlat[MCMD_FLAG_ROWS];
/* A writable table of the same shape for callers; all zero at load and never
 * read or filled by the library. */
QRV_API extern mcmdXlat mcmdGSStringXlat[MCMD_GS_ROWS];

/* Lookups: 0 on success, -1 when not found (the output is then untouched).
 * Values match exactly; names match in full, ignoring ASCII case; the first
 * matching row wins. A null output only tests membership. */
QRV_API int gsToString(unsigned value, char *name);
QRV_API int gsFromString(const char *name, unsigned *value);
QRV_API int cfToString(unsigned flag, char *name);
QRV_API int cfFromString(const char *name, unsigned *flag);

/* ---- Utilities -------------------------------------------------------------------- */

/* Clears the record and sets its defaults for command `ctCode`. */
QRV_API void initMediaCmd(MEDIACMD *cmd, unsigned ctCode);
/* Copies `src` into the initialised `dst` under `flagMask`. */
QRV_API void copyMediaCmd(MEDIACMD *dst, const MEDIACMD *src, unsigned flagMask);
/* Fills in implied track masks and speed; returns the resulting flags. */
QRV_API unsigned fixMediaCmd(MEDIACMD *cmd, int flagMask);
/* Index of the n-th set bit (from 0) of `mask`, or -1; *rest gets the mask
 * without that bit. */
QRV_API unsigned findChannel(unsigned mask, unsigned *rest, unsigned n);
/* The n-th set bit of `mask` alone, or 0. */
QRV_API unsigned isolateChannel(unsigned mask, unsigned n);
/* Number of set bits. */
QRV_API unsigned totalChannels(unsigned mask);
/* Case-folds the four bytes of a four-character code. */
QRV_API unsigned fourccToUpper(unsigned fourcc);
QRV_API unsigned fourccToLower(unsigned fourcc);
/* Frame repeat count for one output field at `speed` (keeps process-wide
 * state: one transport at a time). */
QRV_API unsigned speedReps(unsigned *counter, int speed);
/* |speed| as a 16.16 fixed-point multiple of normal speed. */
QRV_API unsigned speedRate(int speed);

/* ---- Debug text ---------------------------------------------------------------------- */

/* Writes one readable line describing `cmd` through logDebug(). */
QRV_API void __dbgout_mediacmd(MEDIACMD *cmd);
/* Writes one timecode through logDebug(); returns what logDebug() returns. */
QRV_API int __dbgout_tc(unsigned frames, int tcType);

QRV_EXTERN_C_END

#endif
