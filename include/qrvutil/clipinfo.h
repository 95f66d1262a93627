/*
 * qrvutil clip information: the QRVINFO record (locators, descriptive text
 * tags, numeric tags), the stream descriptions that travel with a clip, and
 * their persistence in the configuration store.
 */
#ifndef QRVUTIL_CLIPINFO_H
#define QRVUTIL_CLIPINFO_H

#include <stdint.h>

#include "export.h"
#include "host.h"

QRV_EXTERN_C_BEGIN

/* ---- Stream descriptions ---------------------------------------------------- */

/* Scan types of QRVVIDEO.ScanType (the scan nibble of a signal-format code). */
#define QRV_SCAN_UNSTATED 0u
#define QRV_SCAN_INTERLACED 1u
#define QRV_SCAN_PROGRESSIVE 2u
#define QRV_SCAN_PSF 4u

/* A clip's video stream. vidSignalFormatToQRVVid() fills the first nine fields
 * from a signal-format code; the rest describe the coded pictures. */
typedef struct QRVVIDEO {
    uint32_t SignalFormat;  /* signal-format code */
    uint32_t Width;         /* active pixels per line */
    uint32_t Height;        /* active lines per frame */
    uint32_t Rate;          /* frames per second = Rate / Scale */
    uint32_t Scale;
    uint32_t ScanType;      /* QRV_SCAN_* */
    uint32_t BlankingLines; /* vertical blanking lines of the format, 0 when none is known */
    uint32_t TotalWidth;    /* whole raster: active + blanking */
    uint32_t TotalHeight;
    uint32_t Planes;
    uint32_t BitCount;
    uint32_t Compression;   /* four-character code */
    uint32_t SizeImage;     /* bytes per coded picture */
    uint32_t XPelsPerMeter;
    uint32_t YPelsPerMeter;
    uint32_t Pitch;         /* bytes per line */
    uint32_t FccHandler;
    uint32_t Quality;
    uint32_t Start;         /* first frame */
    uint32_t Length;        /* frames */
    uint32_t Flags;
} QRVVIDEO;

/* A clip's audio stream. */
typedef struct QRVAUDIO {
    uint32_t AudioType;      /* format tag */
    uint32_t AudioChannels;
    uint32_t AudioFrequency; /* samples per second */
    uint32_t AudioBits;      /* bits per sample */
    uint32_t SampleSize;     /* bytes per sample frame */
    uint32_t Rate;           /* Rate / Scale as for video */
    uint32_t Scale;
    uint32_t Start;
    uint32_t Length;         /* samples */
    uint32_t SuggestedBufferSize;
    uint32_t FccHandler;
    uint32_t Quality;
    uint32_t Flags;
} QRVAUDIO;

/* A clip's container (system) stream. */
typedef struct QRVSYSTEM {
    uint32_t FileType;
    uint32_t FccType;
    uint32_t FccHandler;
    uint32_t Flags;
    uint32_t Caps;
    uint32_t Priority;
    uint32_t Language;
    uint32_t Rate;
    uint32_t Scale;
    uint32_t Start;
    uint32_t Length;
    uint32_t InitialFrames;
    uint32_t SuggestedBufferSize;
    uint32_t EditCount;
    uint32_t FormatChangeCount;
    uint32_t DrFlags;
} QRVSYSTEM;

/* ---- Clip information record ------------------------------------------------ */

#define QRVINFO_TEXT_SLOTS 99
#define QRVINFO_NUMERIC_SLOTS 49
/* A numeric slot holding this value is not set. */
#define QRVINFO_NOT_SET 0xFFFFFFFFu
/* qrvInfoGetDescription() never writes more than this, terminator included. */
#define QRVINFO_DESCRIPTION_SIZE 28

/* Text slots with a fixed meaning (the others are named by the tag tables). */
#define QRVINFO_TEXT_FILENAME 0
#define QRVINFO_TEXT_NATIVE_LOCATOR 1
#define QRVINFO_TEXT_UNIVERSAL_LOCATOR 2
#define QRVINFO_TEXT_VERSION 58
/* Numeric slot holding a timecode-type code. */
#define QRVINFO_NUM_TIMECODE_TYPE 27

/* The descriptive metadata of one clip. Layout is fixed: 99 text pointers,
 * a word, 49 numeric values, then two reserved values. Reset it with
 * qrvInfoDelete() before first and after last use. */
typedef struct QRVINFO {
    /* Null, or a hostAlloc() block owned by the record. */
    char *text[QRVINFO_TEXT_SLOTS];
    uint32_t Reserved;   /* reset to 0; otherwise untouched */
    uint32_t numeric[QRVINFO_NUMERIC_SLOTS]; /* QRVINFO_NOT_SET when not set */
    uint32_t ReservedMax; /* reset to 0x7FFFFFFF; otherwise untouched */
    uint32_t ReservedEnd; /* reset to 0; otherwise untouched */
} QRVINFO;

/* Frees every text slot and resets every field; also initialises a fresh
 * record, whose text slots must be null or owned. */
QRV_API void qrvInfoDelete(QRVINFO *info);
/* Merges src into dst: locators 0-2 only fill empty slots, other set text
 * slots replace dst's with copies, set numeric slots overwrite. Returns 0. */
QRV_API int qrvInfoSet(QRVINFO *dst, const QRVINFO *src);
/* Writes the tag name of `index` into `name` (QRVINFO_DESCRIPTION_SIZE
 * bytes). Indexes 0-78 name text tags without the unused "DoNotUse" slot,
 * 4097-4129 numeric slots 0-32, 0x10000-0x10022 stream fields. Returns 0, or
 * -1 after writing "Unk(<index>) " for any other index. */
QRV_API int qrvInfoGetDescription(unsigned index, char *name);
/* The timecode-type code named by a TcType="..." attribute inside `text`;
 * 0 for null text, no attribute or an unknown value. */
QRV_API unsigned sqrvInfoFindTcType(const char *text);

/* ---- Persistence -------------------------------------------------------------- */

/* Loads the values present in a store over the record and sets the version
 * text. `handle` is QRV_CFG_DEFAULT or comes from cfgOpen(). Returns 0. */
QRV_API int qrvInfoReadRegSet(cfgHandle handle, QRVINFO *info);
/* Mirrors the record into a store: set slots are written, unset ones
 * deleted. Returns 0. */
QRV_API int qrvInfoWriteRegSet(cfgHandle handle, const QRVINFO *info);
/* Loads from the default store (or seeds it with the record while
 * "XMLDisable" is missing) and then from an existing "UserMetadata.xml".
 * Returns 0. */
QRV_API int qrvInfoReadReg(QRVINFO *info, int fromStore, int fromUserFile);
/* Writes to the default store and to "UserMetadata.xml" when it already
 * exists. Returns 0. */
QRV_API int qrvInfoWriteReg(const QRVINFO *info, int toStore, int toUserFile);

QRV_EXTERN_C_END

#ifdef __cplusplus
#include <tinyxml.h>

/* Reserved XML writers: they write nothing and return 1. */
QRV_API int XMLFromQRVSystem(QRVSYSTEM *system, TiXmlElement *element);
QRV_API int XMLFromQRVVideo(QRVVIDEO *video, TiXmlElement *element);
QRV_API int XMLFromQRVAudio(QRVAUDIO *audio, TiXmlElement *element);
QRV_API int XMLFromQRVInfo(QRVINFO *info, TiXmlElement *element);
#endif

#endif
