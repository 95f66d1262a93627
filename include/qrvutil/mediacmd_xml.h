/*
 * qrvutil media command XML form: a MEDIACMD written as a small XML document
 * or string, and read back.
 *
 * The writer names timecode types and writes times twice (a raw Value
 * attribute and readable text). The reader reads fewer elements than the
 * writer writes and reads some under other names; documents from peers
 * depend on both sides exactly as they are.
 */
#ifndef QRVUTIL_MEDIACMD_XML_H
#define QRVUTIL_MEDIACMD_XML_H

#include "export.h"
#include "mediacmd.h"

QRV_EXTERN_C_BEGIN

/* Writes `cmd` as one compact XML text (no indentation, no line breaks) in a
 * block from hostAlloc(), stored in *out; free it with MediaCmdFreeXMLString().
 * Reads: the record (the trailing area only up to the record's end, whatever
 * StructSize says). Writes: *out, and the record as below.
 * Room: none to give; the block may be larger than the text it holds.
 * `tcType`: its low byte is the timecode type of the readable texts.
 * Results: 0; -1 for a null `cmd` or a command code above 19 (no XML form),
 * *out then not touched. Kept: with a null `out` or no memory for the block
 * the result is still that of the record and *out is not touched.
 * Kept: a metabasefilename command whose FileName holds a '$' has that '$'
 * replaced by a zero in `cmd` (the text after it is written as UniqueID).
 * Kept: ctPlay and ctRecord always carry a Speed element, Value 65520 when
 * cfUseSpeed is clear; frame-count texts of Speed, Start and End are base 25. */
QRV_API int MediaCmdToXMLString(char **out, MEDIACMD *cmd, unsigned tcType);
/* Releases a text from MediaCmdToXMLString() with hostFree() and sets *str
 * to null. A null `str` or *str does nothing. Returns 0 always. */
QRV_API int MediaCmdFreeXMLString(char **str);
/* Initialises `cmd` as initMediaCmd(cmd, ctStop) does, parses the
 * zero-terminated `xml` (never reading past its terminator) and fills the
 * record from the "MediaCmd" element. `tcType` points to the timecode type
 * of texts without a TcType (null: 4, drop-frame).
 * Results: 0; -1 null `cmd`; -2 no "MediaCmd" element (not XML, null `xml`,
 * more than 1024 opening tags); -3 the first node named "MediaCmd" is not an
 * element. Parse errors are not reported: use MediaCmdValidateXMLString().
 * Writes: at most the record; ClipID runs on into FileName up to the
 * record's end, FileName keeps to its 1031 bytes, arbID fills the area only.
 * Kept: the reader is not the writer's inverse. "OverrideDeferred" is not
 * read ("cfOverideDeferred", else "cfOverrideDeferred" is); all three track
 * masks land in VideoChannels; command texts match by prefix and
 * "terminate"/"abort" read as ctPlay; numbers read as sscanf("%d") reads
 * them ("12abc" is 12, "59.94" is 59); arbID hexadecimal decodes by
 * parseHex()'s own rule and sets StructSize to 76 + length. */
QRV_API int MediaCmdFromXMLString(MEDIACMD *cmd, unsigned *tcType, const char *xml);
/* Says whether the zero-terminated `xml` is a command document the reader
 * reads whole and as meant: one "MediaCmd" root holding only the elements
 * and attributes the writer writes or the reader reads, each once, with
 * whole 32-bit integers, flags of 0 or 1, command codes 0 to 21, timecode
 * types 0 to 255 or the writer's names, readable texts where Value is
 * missing, ClipID up to 8 and FileName up to 1030 characters, arbID data of
 * exactly 2 x length upper-case hexadecimal digits.
 * Writes: a one-line reason into `reason` (at most `room` bytes, always
 * terminated when `room` > 0; QRV_REASON_SIZE is enough; null or 0: none),
 * naming the line and column, the element, and what is wrong.
 * Results: QRV_OK (0); QRV_E_SYNTAX not well-formed, unknown element or
 * attribute, repeated element, trailing data after the root; QRV_E_RANGE a
 * value outside its field; QRV_E_TRUNCATED arbID data shorter than its
 * length; QRV_E_ARGUMENT null `xml`; QRV_E_MEMORY no memory. */
QRV_API int MediaCmdValidateXMLString(const char *xml, char *reason, uint32_t room);
/* The byte of a two-character hexadecimal pair (reads 2 bytes; null: 0).
 * Kept: decoded by the reader's own rule, not as usual hexadecimal: a
 * decimal low digit drops the high digit ("1B" is 0x11, "FF" is 0x55); only
 * "0" followed by a decimal digit decodes to its usual value. */
QRV_API unsigned char parseHex(const char *pair);
/* Lower-cases the zero-terminated `s` in place with the C library's
 * tolower(); null or empty does nothing. */
QRV_API void make_lower_case(char *s);

QRV_EXTERN_C_END

#ifdef __cplusplus
#include <tinyxml.h>

/* Appends the declaration and the "MediaCmd" root describing `cmd` to `doc`
 * (pass an empty document); printed compactly it is the text of
 * MediaCmdToXMLString(). Results: 0; -1 for a null argument or a command
 * code above 19, leaving the document built so far (up to Channel) in
 * place. Kept: the '$' rule of MediaCmdToXMLString() changes `cmd` alike. */
QRV_API int MediaCmdToXML(TiXmlDocument *doc, MEDIACMD *cmd, unsigned tcType);
/* Fills `cmd` from a copy of `doc` (taken by value: prefer
 * MediaCmdFromXMLString() for text), without initialising it first: fields
 * the document does not mention keep their values and flags are only added.
 * Results and kept differences as MediaCmdFromXMLString(). */
QRV_API int MediaCmdFromXML(MEDIACMD *cmd, unsigned *tcType, TiXmlDocument doc);
#endif

#endif
