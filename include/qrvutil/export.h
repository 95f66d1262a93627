/* qrvutil: symbol export and linkage macros shared by every public header. */
#ifndef QRVUTIL_EXPORT_H
#define QRVUTIL_EXPORT_H

/* The library is built with hidden visibility; QRV_API marks what hosts call. */
#define QRV_API __attribute__((visibility("default")))

/* Functions whose signatures use only C types have C linkage. */
#ifdef __cplusplus
#define QRV_EXTERN_C_BEGIN extern "C" {
#define QRV_EXTERN_C_END }
#else
#define QRV_EXTERN_C_BEGIN
#define QRV_EXTERN_C_END
#endif

#endif
