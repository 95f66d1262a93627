/**
 * @file
 * Status codes: the one result convention of the newer calls.
 *
 * A call returns 0 (or a size or count) on success and one of the negative
 * QRV_E_... values below on failure. Calls that can say why also fill a
 * caller's reason buffer with one line of text (QRV_REASON_SIZE bytes are
 * always enough). Older calls keep the results they always had; each
 * header says which convention a call follows.
 */
#ifndef QRVUTIL_STATUS_H
#define QRVUTIL_STATUS_H

#include "export.h"

/** Success. */
#define QRV_OK 0
/** A required pointer is null, or an argument is outside what the call takes. */
#define QRV_E_ARGUMENT (-1)
/** The output does not fit the room the caller gave; nothing was written past it. */
#define QRV_E_ROOM (-2)
/** The input ends before its syntax does. */
#define QRV_E_TRUNCATED (-3)
/** A value lies outside the range its syntax element or field can carry. */
#define QRV_E_RANGE (-4)
/** The input is malformed: not well-formed, an unknown element, trailing data. */
#define QRV_E_SYNTAX (-5)
/** The input is valid but of a kind this library does not handle. */
#define QRV_E_UNSUPPORTED (-6)
/** A memory allocation through the host services failed. */
#define QRV_E_MEMORY (-7)
/** A file or store operation failed; the host log names the file. */
#define QRV_E_IO (-8)

/** Room for any one-line reason a call writes, terminator included. */
#define QRV_REASON_SIZE 256

QRV_EXTERN_C_BEGIN

/** A short constant text naming a status ("room too small", "truncated",
 *  ...); "unknown status" for a value that is not one of the above. Never
 *  null; the text must not be freed. */
QRV_API const char *qrvStatusText(int status);

QRV_EXTERN_C_END

#endif
