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

QRV_EXTERN_C_END

#endif
