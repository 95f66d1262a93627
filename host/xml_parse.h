/* Parsing XML text with TinyXML without letting it read past the text.
 *
 * In UTF-8 mode TinyXML steps over a whole multi-byte character at once,
 * so a text ending inside one makes it read up to three bytes past the
 * terminating zero. Every text is therefore parsed from a buffer that has
 * zero bytes after it; the parse results are those of the text alone. */
#ifndef QRVUTIL_HOST_XML_PARSE_H
#define QRVUTIL_HOST_XML_PARSE_H

#include <tinyxml.h>

#include <cstddef>

namespace qrv::host {

/* Zero bytes a parsed text is followed by: its terminator and the longest
 * step past it that a character can take. */
constexpr size_t kXmlPadding = 4;

/* Parses the `length` bytes at `text` (which need not be terminated) into
 * `doc` as TiXmlDocument::Parse does, from a private copy followed by
 * kXmlPadding zeros. `stop` (when not null) receives the offset at which the
 * parser stopped: `length` when it read everything, less when character
 * data follows the last top-level node, 0 after an error. Returns false,
 * with `doc` untouched, when the copy cannot be allocated. */
bool parseXmlCopy(TiXmlDocument *doc, const char *text, size_t length, TiXmlEncoding encoding,
                  size_t *stop = nullptr);

/* Loads a file into `doc` with the same results as TiXmlDocument::LoadFile:
 * the path becomes the document's value; a file that cannot be opened
 * leaves the document as it was, anything else clears it first; line ends
 * are normalised (CR LF and lone CR become LF) up to the first zero byte;
 * then the text is parsed. The file is read through the host's file
 * services; a bare name is taken in the working directory, as TinyXML and
 * SaveFile take it. Returns true when the document loaded without error. */
bool loadXmlFile(TiXmlDocument *doc, const char *path, TiXmlEncoding encoding);

} // namespace qrv::host

#endif
