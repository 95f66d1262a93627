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
#include "status.h"

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
    uint32_t SignalFormat; /* signal-format code */
    uint32_t Width;        /* active pixels per line */
    uint32_t Height;       /* active lines per frame */
    uint32_t Rate;         /* frames per second = Rate / Scale */
    uint32_t Scale;
    uint32_t ScanType;      /* QRV_SCAN_* */
    uint32_t BlankingLines; /* vertical blanking lines of the format, 0 when none is known */
    uint32_t TotalWidth;    /* whole raster: active + blanking */
    uint32_t TotalHeight;
    uint32_t Planes;
    uint32_t BitCount;
    uint32_t Compression; /* four-character code */
    uint32_t SizeImage;   /* bytes per coded picture */
    uint32_t XPelsPerMeter;
    uint32_t YPelsPerMeter;
    uint32_t Pitch; /* bytes per line */
    uint32_t FccHandler;
    uint32_t Quality;
    uint32_t Start;  /* first frame */
    uint32_t Length; /* frames */
    uint32_t Flags;
} QRVVIDEO;

/* A clip's audio stream. */
typedef struct QRVAUDIO {
    uint32_t AudioType; /* format tag */
    uint32_t AudioChannels;
    uint32_t AudioFrequency; /* samples per second */
    uint32_t AudioBits;      /* bits per sample */
    uint32_t SampleSize;     /* bytes per sample frame */
    uint32_t Rate;           /* Rate / Scale as for video */
    uint32_t Scale;
    uint32_t Start;
    uint32_t Length; /* samples */
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

/* The tag table: every named slot as X(constant, slot, value name), in slot
 * order. The value name is the tag's name in a configuration store and in
 * qrvInfoGetDescription(); the constant names the slot as
 * QRVINFO_TEXT_<constant> or QRVINFO_NUM_<constant>. Text slot 80 has no
 * name and is never stored. */
#define QRVINFO_TEXT_TAGS(X)                                            \
    X(FILENAME, 0, "FileName")                                          \
    X(NATIVE_LOCATOR, 1, "NativeLocator")                               \
    X(UNIVERSAL_LOCATOR, 2, "UniversalLocator")                         \
    X(TCP_IP_ADDRESS, 3, "TCP-IPAddress")                               \
    X(SOURCE_LOCATOR, 4, "SourceLocator")                               \
    X(CHANNEL_IDENTIFIER, 5, "ChannelIdentifier")                       \
    X(CHANNEL_NAME, 6, "ChannelName")                                   \
    X(CHANNEL_DESCRIPTION, 7, "ChannelDescription")                     \
    X(TITLE, 8, "Title")                                                \
    X(SUBJECT, 9, "Subject")                                            \
    X(CATEGORY, 10, "Category")                                         \
    X(KEYWORDS, 11, "Keywords")                                         \
    X(RATINGS, 12, "Ratings")                                           \
    X(COMMENTS, 13, "Comments")                                         \
    X(DO_NOT_USE, 14, "DoNotUse")                                       \
    X(OWNER, 15, "Owner")                                               \
    X(EDITOR, 16, "Editor")                                             \
    X(SUPPLIER, 17, "Supplier")                                         \
    X(SOURCE, 18, "Source")                                             \
    X(PROJECT, 19, "Project")                                           \
    X(STATUS, 20, "Status")                                             \
    X(AUTHOR, 21, "Author")                                             \
    X(REVISION_NUMBER, 22, "RevisionNumber")                            \
    X(PRODUCED, 23, "Produced")                                         \
    X(ALBUM, 24, "Album")                                               \
    X(ARTIST, 25, "Artist")                                             \
    X(COMPOSER, 26, "Composer")                                         \
    X(COPYRIGHT, 27, "Copyright")                                       \
    X(CREATION_DATA, 28, "CreationData")                                \
    X(DESCRIPTION, 29, "Description")                                   \
    X(DIRECTOR, 30, "Director")                                         \
    X(DISCLAIMER, 31, "Disclaimer")                                     \
    X(ENCODED_BY, 32, "EncodedBy")                                      \
    X(FULL_NAME, 33, "FullName")                                        \
    X(GENRE, 34, "Genre")                                               \
    X(HOST_COMPUTER, 35, "HostComputer")                                \
    X(INFORMATION, 36, "Information")                                   \
    X(MAKE, 37, "Make")                                                 \
    X(MODEL, 38, "Model")                                               \
    X(ORIGINAL_ARTIST, 39, "OriginalArtist")                            \
    X(ORIGINAL_FORMAT, 40, "OriginalFormat")                            \
    X(PERFORMERS, 41, "Performers")                                     \
    X(PRODUCER, 42, "Producer")                                         \
    X(PRODUCT, 43, "Product")                                           \
    X(SOFTWARE, 44, "Software")                                         \
    X(SPECIAL_PLAYBACK_REQUIREMENTS, 45, "SpecialPlaybackRequirements") \
    X(TRACK, 46, "Track")                                               \
    X(WARNING, 47, "Warning")                                           \
    X(URL, 48, "URL")                                                   \
    X(EDIT_DATA1, 49, "EditData1")                                      \
    X(EDIT_DATA2, 50, "EditData2")                                      \
    X(EDIT_DATA3, 51, "EditData3")                                      \
    X(EDIT_DATA4, 52, "EditData4")                                      \
    X(EDIT_DATA5, 53, "EditData5")                                      \
    X(EDIT_DATA6, 54, "EditData6")                                      \
    X(EDIT_DATA7, 55, "EditData7")                                      \
    X(EDIT_DATA8, 56, "EditData8")                                      \
    X(EDIT_DATA9, 57, "EditData9")                                      \
    X(VERSION_STRING, 58, "VersionString")                              \
    X(MANUFACTURER, 59, "Manufacturer")                                 \
    X(LANGUAGE, 60, "Language")                                         \
    X(FORMAT, 61, "Format")                                             \
    X(INPUT_DEVICE, 62, "InputDevice")                                  \
    X(DEVICE_MODEL_NUM, 63, "DeviceModelNum")                           \
    X(DEVICE_SERIAL_NUM, 64, "DeviceSerialNum")                         \
    X(REEL, 65, "Reel")                                                 \
    X(SHOT, 66, "Shot")                                                 \
    X(TAKE, 67, "Take")                                                 \
    X(SLATE_INFO, 68, "SlateInfo")                                      \
    X(FRAME_ATTRIBUTE, 69, "FrameAttribute")                            \
    X(EPISODE, 70, "Episode")                                           \
    X(SCENE, 71, "Scene")                                               \
    X(DAILY_ROLL, 72, "DailyRoll")                                      \
    X(CAM_ROLL, 73, "CamRoll")                                          \
    X(SOUND_ROLL, 74, "SoundRoll")                                      \
    X(LAB_ROLL, 75, "LabRoll")                                          \
    X(KEY_NUMBER_PREFIX, 76, "KeyNumberPrefix")                         \
    X(INK_NUMBER_PREFIX, 77, "InkNumberPrefix")                         \
    X(PICTURE_ICON, 78, "PictureIcon")                                  \
    X(PROXY_FILE, 79, "ProxyFile")                                      \
    X(IMAGE_INFO, 81, "ImageInfo")                                      \
    X(UMID, 82, "UMID")                                                 \
    X(XML, 83, "XML")                                                   \
    X(NOT_USED_85, 84, "NotUsed_85")                                    \
    X(NOT_USED_86, 85, "NotUsed_86")                                    \
    X(NOT_USED_87, 86, "NotUsed_87")                                    \
    X(NOT_USED_88, 87, "NotUsed_88")                                    \
    X(NOT_USED_89, 88, "NotUsed_89")                                    \
    X(NOT_USED_90, 89, "NotUsed_90")                                    \
    X(NOT_USED_91, 90, "NotUsed_91")                                    \
    X(NOT_USED_92, 91, "NotUsed_92")                                    \
    X(NOT_USED_93, 92, "NotUsed_93")                                    \
    X(NOT_USED_94, 93, "NotUsed_94")                                    \
    X(NOT_USED_95, 94, "NotUsed_95")                                    \
    X(NOT_USED_96, 95, "NotUsed_96")                                    \
    X(NOT_USED_97, 96, "NotUsed_97")                                    \
    X(NOT_USED_98, 97, "NotUsed_98")                                    \
    X(NOT_USED_99, 98, "NotUsed_99")

#define QRVINFO_NUMERIC_TAGS(X)                                  \
    X(TIMECODE, 0, "TimeCode")                                   \
    X(USER_BITS, 1, "UserBits")                                  \
    X(VITC_TIMECODE, 2, "VITCTimeCode")                          \
    X(VITC_USER_BITS, 3, "VITCUserBits")                         \
    X(VITC_EXTRA_DATA, 4, "VITCExtraData")                       \
    X(POSTER_FRAME, 5, "PosterFrame")                            \
    X(A_FRAME, 6, "A-Frame")                                     \
    X(ASPECT_RATIO, 7, "AspectRatio")                            \
    X(ORIGINAL_RATE, 8, "OriginalRate")                          \
    X(ORIGINAL_SCALE, 9, "OriginalScale")                        \
    X(TOTAL_CONVERSIONS, 10, "TotalConversions")                 \
    X(VERSION_NUMBER, 11, "VersionNumber")                       \
    X(FILE_SIZE, 12, "FileSize")                                 \
    X(FILE_DATE, 13, "FileDate")                                 \
    X(FILE_TIME, 14, "FileTime")                                 \
    X(SEQUENCE_NUMBER, 15, "SequenceNumber")                     \
    X(TOTAL_STREAMS, 16, "TotalStreams")                         \
    X(TOTAL_LENGTH, 17, "TotalLength")                           \
    X(FILM_MANUFACTURER_CODE, 18, "FilmManufacturerCode")        \
    X(FILM_TYPE_CODE, 19, "FilmTypeCode")                        \
    X(WHITE_POINT, 20, "WhitePoint")                             \
    X(BLACK_POINT, 21, "BlackPoint")                             \
    X(BLACK_GAIN, 22, "BlackGain")                               \
    X(BREAK_POINT, 23, "BreakPoint")                             \
    X(GAMMA1000, 24, "Gamma1000")                                \
    X(TAG_NUMBER, 25, "TagNumber")                               \
    X(FLAGS, 26, "Flags")                                        \
    X(TIMECODE_TYPE, 27, "TimeCodeType")                         \
    X(LTC_TIMECODE_TYPE, 28, "LTCTimeCodeType")                  \
    X(VITC_TIMECODE_TYPE, 29, "VITCTimeCodeType")                \
    X(PROD_DATE, 30, "ProdDate")                                 \
    X(UNIQUE_ID, 31, "UniqueID")                                 \
    X(CUSTOM_METADATA_BLOCK_TYPE, 32, "CustomMetadataBlockType") \
    X(CUSTOM_METADATA_BLOCK_SIZE, 33, "CustomMetadataBlockSize") \
    X(NORTH_SOUTH_EAST_WEST, 34, "NorthSouthEastWest")           \
    X(LATITUDE, 35, "Latitude")                                  \
    X(LONGITUDE, 36, "Longitude")                                \
    X(EXPOSURE, 37, "Exposure")                                  \
    X(RED_GAIN, 38, "RedGain")                                   \
    X(BLUE_GAIN, 39, "BlueGain")                                 \
    X(WHITE_BALANCE, 40, "WhiteBalance")                         \
    X(MATRIX, 41, "Matrix")                                      \
    X(ISO, 42, "ISO")                                            \
    X(GREEN_GAIN, 43, "GreenGain")                               \
    X(NOT_USED_45, 44, "NumericNotUsed_45")                      \
    X(NOT_USED_46, 45, "NumericNotUsed_46")                      \
    X(NOT_USED_47, 46, "NumericNotUsed_47")                      \
    X(NOT_USED_48, 47, "NumericNotUsed_48")                      \
    X(NOT_USED_49, 48, "NumericNotUsed_49")

#define QRVINFO_TEXT_SLOT_CONSTANT(constant, slot, name) QRVINFO_TEXT_##constant = slot,
#define QRVINFO_NUM_SLOT_CONSTANT(constant, slot, name) QRVINFO_NUM_##constant = slot,
/* QRVINFO_TEXT_TITLE, QRVINFO_NUM_TIMECODE_TYPE, ...: one per named slot. */
enum { QRVINFO_TEXT_TAGS(QRVINFO_TEXT_SLOT_CONSTANT) };
enum { QRVINFO_NUMERIC_TAGS(QRVINFO_NUM_SLOT_CONSTANT) };
#undef QRVINFO_TEXT_SLOT_CONSTANT
#undef QRVINFO_NUM_SLOT_CONSTANT
/* The earlier name of QRVINFO_TEXT_VERSION_STRING. */
#define QRVINFO_TEXT_VERSION QRVINFO_TEXT_VERSION_STRING

/* The descriptive metadata of one clip. Layout is fixed: 99 text pointers,
 * a word, 49 numeric values, then two reserved values. Reset it with
 * qrvInfoDelete() before first and after last use. */
typedef struct QRVINFO {
    /* Null, or a hostAlloc() block owned by the record. */
    char *text[QRVINFO_TEXT_SLOTS];
    uint32_t Reserved;                       /* reset to 0; otherwise untouched */
    uint32_t numeric[QRVINFO_NUMERIC_SLOTS]; /* QRVINFO_NOT_SET when not set */
    uint32_t ReservedMax;                    /* reset to 0x7FFFFFFF; otherwise untouched */
    uint32_t ReservedEnd;                    /* reset to 0; otherwise untouched */
} QRVINFO;

/* Frees every text slot with hostFree() and resets every field: numeric
 * slots to QRVINFO_NOT_SET except TIMECODE, VITC_TIMECODE, POSTER_FRAME and
 * A_FRAME, which start at 0. Also initialises a fresh record, whose text
 * slots must be null or owned (zero the record first). */
QRV_API void qrvInfoDelete(QRVINFO *info);
/* Merges src into dst: the file name and locators (slots 0-2) only fill
 * empty slots and are never replaced; other non-null text slots replace
 * dst's with hostAlloc() copies (the old blocks freed); numeric slots other
 * than QRVINFO_NOT_SET overwrite. src may be dst. Returns 0. */
QRV_API int qrvInfoSet(QRVINFO *dst, const QRVINFO *src);
/* Writes the tag name of `index` into `name` (QRVINFO_DESCRIPTION_SIZE
 * bytes are always enough). Kept display numbering, which hosts store:
 * indexes 0-78 name text slots with "DoNotUse" (slot 14) skipped, so index
 * n >= 14 names slot n + 1 and slots 80-98 have no index; 4097-4129 name
 * numeric slots 0-32 only; 0x10000-0x10022 name stream fields. Returns 0,
 * or -1 after writing "Unk(<index as a signed number>) " for any other. */
QRV_API int qrvInfoGetDescription(unsigned index, char *name);
/* The timecode-type code named by a TcType= attribute anywhere inside
 * `text` (spelled TcType=, tctype= or TCTYPE=, tried in that order; the
 * character after '=' is skipped as the quote, whatever it is). The value is
 * matched by prefix, ignoring case: "frames" 0, "23.98" 132, "film-drop"
 * 128, "film" 1, "pal" 8, "drop-frame" 4, "50" 16, "59.94" 32, "60" 64. Kept:
 * "non-drop-frame" gives 4, the drop-frame code, as clips already carry it.
 * 0 for null text, no attribute or an unknown value; reads nothing past the
 * text's terminator. */
QRV_API unsigned sqrvInfoFindTcType(const char *text);

/* ---- Persistence -------------------------------------------------------------- */

/* Defaults live under the key "Ovalbrook\MetaData\Default" of a configuration
 * store, one value per named tag (its value name from the tag table): text
 * slots as strings, numeric slots as 32-bit values. Text slots 0-4 (file
 * name and locators) and 80 are never stored or loaded; "VersionString" is
 * stored but never loaded. Loading overlays: only values present change the
 * record. Storing mirrors: set slots are written, unset ones (null text,
 * QRVINFO_NOT_SET) deleted. Each load or store is one group of store calls
 * (cfgBeginBatch), so on the default store a record is written all or
 * nothing and read at one moment. These four calls return 0 whatever the
 * store does and log nothing of their own.
 *
 * Seeding (kept: hosts rely on the first run giving the store its defaults):
 * while the default store lacks the switch "XMLDisable" under
 * "Ovalbrook\MetaData", qrvInfoReadReg(info, 1, ...) does not load at all but
 * writes the caller's record into the store as its defaults, so the first
 * read on a new store overwrites whatever defaults it held with the
 * caller's record. Once the switch exists (its value is never looked at),
 * the same call loads. qrvInfoMarkSeeded() writes the switch, for a host
 * that has put its defaults in place by other means. */

/* Loads the values present in the store `handle` (QRV_CFG_DEFAULT or from
 * cfgOpen()) over the record; slot 58 always becomes a fresh 18-byte block
 * holding the library version "6.0.0.173". A text value replaces its slot
 * with a block of the stored size + 4 (the old block freed); one that fails
 * to read leaves the slot null. Absent values leave their slots alone.
 * Returns 0. */
QRV_API int qrvInfoReadRegSet(cfgHandle handle, QRVINFO *info);
/* Mirrors the record into the store `handle`: stored text slots written as
 * strings ("" included), null ones deleted; numeric slots written, or
 * deleted when QRVINFO_NOT_SET. Returns 0. */
QRV_API int qrvInfoWriteRegSet(cfgHandle handle, const QRVINFO *info);
/* With `fromStore`: seeds the default store with the record while it lacks
 * the switch, else loads from it (see Seeding). Then, with `fromUserFile`
 * and an existing "UserMetadata.xml" (per-user directory) that opens,
 * loads from that file over the result and closes it with a save. A file
 * that does not open is skipped without a word. Returns 0. */
QRV_API int qrvInfoReadReg(QRVINFO *info, int fromStore, int fromUserFile);
/* With `toStore`: stores the record into the default store. With
 * `toUserFile`: stores it into "UserMetadata.xml" only when that file
 * already exists (it is never created). Returns 0. */
QRV_API int qrvInfoWriteReg(const QRVINFO *info, int toStore, int toUserFile);
/* Writes the switch "XMLDisable" (value 0) into the default store, so that
 * qrvInfoReadReg loads from then on instead of seeding. Returns QRV_OK, or
 * QRV_E_IO when the store could not be written (the store logs why). */
QRV_API int qrvInfoMarkSeeded(void);

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
