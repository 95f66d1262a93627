/**
 * @file
 * Video signal formats and timing.
 *
 * A signal format is one unsigned 32-bit code:
 *   bits 28-31 scan type (QRV_SCAN_* of clipinfo.h: 1 interlaced,
 *              2 progressive, 4 progressive segmented frame, 0 not stated)
 *   bits 20-27 height token, bits 9-19 width token (1-128, see
 *              vidGetSizeFromToken)
 *   bits 0-8   rate code: the integer part of the frame rate
 *              (29 = 29.97, 23 = 23.98, 59 = 59.94 ...)
 * Rates are exact rate/scale pairs (frames per second = rate / scale).
 * Timecode types: 0 frames, 1 film, 2 30 fps non-drop, 4 drop-frame, 8 PAL,
 * 16 50 fps, 32 59.94, 64 60, 128 film-drop, 132 23.98; the timing functions
 * read only the low byte.
 *
 * The tables behind these calls are carried in recorded files and on the
 * wire, so their irregularities are kept; the ones a caller can trip on are
 * listed with each call. Only GetMatrixBySize() keeps process-wide state.
 */
#ifndef QRVUTIL_VIDEO_H
#define QRVUTIL_VIDEO_H

#include "clipinfo.h"
#include "export.h"

/** The code of no signal format. */
#define QRV_SIGNAL_FORMAT_NONE 0xF0000000u

/** Scan type of a signal format code (1, 2, 4 or 0). */
#define QRV_SF_SCAN(code) (((code) >> 28) & 0xFu)
/** Height token of a signal format code. */
#define QRV_SF_HEIGHT_TOKEN(code) (((code) >> 20) & 0xFFu)
/** Width token of a signal format code. */
#define QRV_SF_WIDTH_TOKEN(code) (((code) >> 9) & 0x7FFu)
/** Rate code of a signal format code. */
#define QRV_SF_RATE_CODE(code) ((code)&0x1FFu)
/** A signal format code from its four parts. */
#define QRV_SF_MAKE(scan, heightToken, widthToken, rateCode)                                      \
    (((unsigned)(scan) << 28) | ((unsigned)(heightToken) << 20) | ((unsigned)(widthToken) << 9) | \
     (unsigned)(rateCode))

/** Bytes that vidSignalFormatToStr20() may write, terminator included. */
#define QRV_SIGNAL_FORMAT_TEXT_SIZE 22

/** GetMatrixBySize(): flag asking for the full-range matrix family. */
#define QRV_MATRIX_FULL_RANGE 0x1000u

QRV_EXTERN_C_BEGIN

/* ---- Signal format codes and geometry ------------------------------------- */

/** Pixel or line count of a size token (1-128); 0xFFFFFFFF for any other
 *  token and for unused entries (token 4). The table is not sorted by size
 *  (37 is 988, 38 is 857). */
QRV_API unsigned vidGetSizeFromToken(unsigned token);
/** The token used when a raster of `size` pixels or lines is encoded;
 *  0xFFFFFFFF below 240 and above 8192. Not the inverse of the token table:
 *  1035 gives 48 (1024), 241 gives 2 (243), and tokens 90, 91, 92, 100, 101,
 *  106 and 120 are never produced. */
QRV_API unsigned vidGetTokenFromSize(unsigned size);
/** Raster of a code into *width and *height: 0, or -1 (0xFFFFFFFF) when a
 *  token names no size. A non-zero `field` gives the field height of
 *  interlaced codes (1080i: 540). "PAL" (0x11a04019) answers 720 x 576
 *  although its width token says 640; the 4320-line codes answer 4320 although
 *  their height token says 4096. */
QRV_API int vidImageSize(unsigned code, unsigned *width, unsigned *height, int field);
/** The code's name into `text`, which holds QRV_SIGNAL_FORMAT_TEXT_SIZE (22)
 *  bytes or more: 20 spaces first, then the name over them ("1080x1920P@25",
 *  "NTSC"); an unnamed code is "<w>x<h><scan>@<rate>", ending in "Custom" for
 *  an unknown rate code. The letter case of "P"/"p" differs by family, and
 *  0x26410017 (4096 wide) is named "3840x2160P 23.98fps": both kept, as names
 *  are compared as text. Returns 0. */
QRV_API int vidSignalFormatToStr20(unsigned code, char *text);
/** The signal format of a picture from rate/scale, raster (a negative height
 *  is a bottom-up image of |height| lines) and whether the material is
 *  progressive. Kept mappings a caller may not expect: at 24 fps every raster
 *  below 1113 lines is 1080-line 24; at 23.98 a non-progressive 1080-line
 *  picture is psf, not interlaced; 960 x 540 and 576-line proxies at 29.97
 *  map onto 1080-line codes; 30 fps NTSC rasters get the 29.97 codes.
 *  QRV_SIGNAL_FORMAT_NONE when the raster has no size token. */
QRV_API unsigned vidGetSignalFormat(unsigned rate, unsigned scale, unsigned width, int height,
                                    int progressive);
/** Display aspect ratio as numerator << 16 | denominator (16:9 is 0x100009),
 *  0 when unknown; decided by a short list of rasters. `code` is not used. */
QRV_API unsigned vidGetAspectRatio(unsigned code, unsigned width, int height);
/** Colour matrix code for a picture size: 0/4/6 (video range: up to 720
 *  wide, wider, more than 1125 lines), or 1/5/7 when `flags` has
 *  QRV_MATRIX_FULL_RANGE and the configuration does not force video range.
 *  Not thread-safe on its first call: it reads "ForceVideoRangeMatrix" under
 *  "Ovalbrook\Advanced" once per process, writing a 0 there when it is
 *  missing, and caches it. */
QRV_API int GetMatrixBySize(unsigned width, int height, unsigned flags);
/** Fills SignalFormat, Width, Height, Rate, Scale, ScanType, BlankingLines,
 *  TotalWidth and TotalHeight of `video` from a code; 0, or -1 (record
 *  untouched) when the code has no rate or no raster. */
QRV_API int vidSignalFormatToQRVVid(unsigned code, QRVVIDEO *video);

/* ---- Rates and timing -------------------------------------------------------- */

/** Rate/scale of a signal format code (29.97 codes give 30000/1001). -1 for
 *  QRV_SIGNAL_FORMAT_NONE (nothing written) and for rate code 256 (256/1
 *  written); otherwise 0, an unlisted rate code n giving n/1. */
QRV_API int vidRateScale(unsigned code, unsigned *rate, unsigned *scale);
/** Rewrites a loosely given pair as the canonical one, in place (2997/100
 *  gives 30000/1001). Returns 0. Kept: 23.976 given as 2397-2398 or
 *  23976-23977 becomes 23976/1000, not 24000/1001, and 29/1 stays 29/1, as
 *  stored clips carry these pairs. A zero scale is left as it is unless the
 *  rate alone decides the pair. */
QRV_API int vidNormalizeRateScale(unsigned *rate, unsigned *scale);
/** Default rate/scale for a raster (up to 720 wide: 30000/1001 below 513
 *  lines, else 25/1; ...). -1 for a null pointer; 0 otherwise, with nothing
 *  written for widths above 4096. */
QRV_API int vidRateScaleFromSize(unsigned width, unsigned height, unsigned *rate, unsigned *scale);
/** Frames per second of rate/scale, or of the code when either is 0 (29.97
 *  when the code has no rate). */
QRV_API double vidFramesPerSecD(unsigned code, unsigned rate, unsigned scale);
/** 1000 / vidFramesPerSecD(); +infinity for a rate of 0. */
QRV_API double vidMsPerFrameD(unsigned code, unsigned rate, unsigned scale);
/** vidMsPerFrameD() rounded to the nearest millisecond (saturated). */
QRV_API unsigned vidMsPerFrame(unsigned code, unsigned rate, unsigned scale);
/** Frame rate of a timecode type (any unlisted type acts as 0: 29.97). */
QRV_API double vidTCFramesPerSecD(unsigned tcType);
/** Frame period of a timecode type in milliseconds. Kept: type 2 (30
 *  non-drop) has the 29.97 period, 33.37, although its rate is 30.0. */
QRV_API double vidTCMsPerFrameD(unsigned tcType);
/** vidTCMsPerFrameD() rounded (type 2 also gives 33). */
QRV_API unsigned vidTCMsPerFrame(unsigned tcType);
/** Timecode type of a measured frame rate, after folding 14-15.5, 47-48.5,
 *  71-72.5 and 100-120 fps into 23-60 (so 48.0 gives 1 and 119.88 gives 4);
 *  2 for rates outside the band. */
QRV_API unsigned vidGetTCType(double fps);
/** Timecode type of a signal format code's rate code: high rates count in
 *  the timecode of their base rate, so never 16, 32 or 64. */
QRV_API unsigned vidGetTCTypeSignalFormat(unsigned code);
/** Converts a frame count at rate/scale into the count of the same timecode
 *  in type `toType`, through tcToString() and tcToFrame(); when the source is
 *  59.94 or 60 fps the count read back is doubled. Returns 0, or -1 when
 *  `frame` is null or the timecode text could not be read back (*frame
 *  unchanged). */
QRV_API int vidConvertTC(unsigned *frame, unsigned toType, unsigned rate, unsigned scale);

QRV_EXTERN_C_END

#ifdef __cplusplus
/** Rate/scale of a measured frame rate (pass a double: a plain int argument
 *  would match both overloads): 0 with a canonical pair; 1 with
 *  (integer part) * 100 / 100 when the rate is not a known one (28.0 gives
 *  2800/100); -1 for a null pointer. Rates of 14-15.5, 47-48.5, 71-72.5 and
 *  100-120 fps are first folded into 23-60 (x2, /2, /3, /4), so the pair
 *  describes the folded rate: 119.88 gives 30000/1001. */
QRV_API int vidRateScale(double fps, unsigned *rate, unsigned *scale);
#endif

#endif
