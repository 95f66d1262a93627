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

/* Writes `cmd` as a compact XML text in a block from hostAlloc(), stored in
 * *out. `tcType`'s low byte is the timecode type of the readable texts.
 * Returns 0, or -1 for a command code above 19 (then *out is not touched).
 * May change `cmd`: see MediaCmdToXML(). */
QRV_API int MediaCmdToXMLString(char **out, MEDIACMD *cmd, unsigned tcType);
/* Releases a string from MediaCmdToXMLString() and sets *str to null.
 * Returns 0. */
QRV_API int MediaCmdFreeXMLString(char **str);
/* Initialises `cmd` as initMediaCmd(cmd, ctStop) does, parses `xml` and
 * fills the record from it. `tcType` points to the default timecode type of
 * the texts (null: 4, drop-frame). Returns 0, -1 for a null record, -2 when
 * there is no "MediaCmd" element, -3 when "MediaCmd" is not an element. */
QRV_API int MediaCmdFromXMLString(MEDIACMD *cmd, unsigned *tcType, const char *xml);
/* Says whether `xml` is a command document the reader reads whole and as
 * meant. Returns QRV_OK (0), or a negative status from status.h: QRV_E_SYNTAX
 * (not well-formed, unknown element or attribute, trailing data),
 * QRV_E_RANGE (a value outside what its field takes), QRV_E_TRUNCATED
 * (arbID data shorter than its length), QRV_E_ARGUMENT (null `xml`). */
QRV_API int MediaCmdValidateXMLString(const char *xml, char *reason, uint32_t room);
/* The byte of a two-character hexadecimal pair, by the reader's own rule
 * (only a "0" high digit with a decimal low digit decodes as usual). */
QRV_API unsigned char parseHex(const char *pair);
/* Lower-cases `s` in place with the C library's tolower(). */
QRV_API void make_lower_case(char *s);

QRV_EXTERN_C_END

#ifdef __cplusplus
#include <tinyxml.h>

/* Appends the declaration and the "MediaCmd" root describing `cmd` to the
 * empty `doc`. Returns 0, or -1 for a command code above 19, leaving the
 * document built so far in place. A metabasefilename command whose FileName
 * holds a '$' has that '$' replaced by a zero in `cmd`. */
QRV_API int MediaCmdToXML(TiXmlDocument *doc, MEDIACMD *cmd, unsigned tcType);
/* Fills `cmd` from a copy of `doc`, without initialising it first: fields the
 * document does not mention keep their values and flags are only added.
 * Results as MediaCmdFromXMLString(). */
QRV_API int MediaCmdFromXML(MEDIACMD *cmd, unsigned *tcType, TiXmlDocument doc);
#endif

#endif
