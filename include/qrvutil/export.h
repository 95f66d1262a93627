/**
 * @file
 * Symbol export, linkage and layout-check macros shared by every public
 * header.
 */
#ifndef QRVUTIL_EXPORT_H
#define QRVUTIL_EXPORT_H

/** The library is built with hidden visibility; QRV_API marks what hosts
 *  call, and only those symbols are exported (version node QRVUTIL_6). */
#define QRV_API __attribute__((visibility("default")))

/* Functions whose signatures use only C types have C linkage:
 * QRV_EXTERN_C_BEGIN and QRV_EXTERN_C_END wrap them in every header. */
#ifdef __cplusplus
#define QRV_EXTERN_C_BEGIN extern "C" {
#define QRV_EXTERN_C_END }
#else
#define QRV_EXTERN_C_BEGIN
#define QRV_EXTERN_C_END
#endif

/** One compile-time check for record layouts, usable from C11 and C++:
 *  every fixed record's size and offsets are asserted where it is declared. */
#ifdef __cplusplus
#define QRV_STATIC_ASSERT(cond, what) static_assert(cond, what)
#else
#define QRV_STATIC_ASSERT(cond, what) _Static_assert(cond, what)
#endif

#endif
