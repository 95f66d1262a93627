/*
 * qrvutil disk read cache: one read-ahead block in front of a file opened
 * through the host file services. Small reads at rising positions are served
 * from memory; the block is refilled from 4096-aligned file positions; reads
 * too large for the block go straight to the file. A wait mode follows a file
 * that is still being written, retrying a short read for up to 1.5 seconds.
 */
#ifndef QRVUTIL_DISKCACHE_H
#define QRVUTIL_DISKCACHE_H

#include "export.h"

#ifdef __cplusplus

#include <stdint.h>

/* Read() flags: end-of-file clipping is asked for when (flags &
 * QRV_DISKCACHE_FLAG_MASK) == QRV_DISKCACHE_CLIP_EOF; other bits are ignored. */
#define QRV_DISKCACHE_FLAG_MASK 6u
#define QRV_DISKCACHE_CLIP_EOF 4u

class QRV_API CKXDiskCache {
public:
    CKXDiskCache();
    virtual ~CKXDiskCache();
    CKXDiskCache(const CKXDiskCache &) = delete;
    CKXDiskCache &operator=(const CKXDiskCache &) = delete;

    /* Caches `handle` (owned by the caller, never closed here) through a
     * block of `size` bytes; `wait` retries short reads. Returns 0. */
    int SetHandleAndCacheSize(long long handle, unsigned int size, bool wait);
    /* Reads `size` bytes at `pos` into `buf`; *done (never null) receives the
     * bytes delivered, which fall short of `size` only at the end of the file. Returns 0, a host last-error code, or on a failed refill
     * that code with bit 31 set. */
    unsigned int Read(unsigned char *buf, unsigned long long pos, unsigned int size,
                      unsigned int *done, unsigned int flags);

private:
    unsigned int readAround(unsigned char *buf, unsigned long long pos, unsigned int size,
                            unsigned int *done);
    unsigned int refillLength(unsigned int size, unsigned int flags);
    bool fillBlock(unsigned int length, unsigned int needed, unsigned int started,
                   unsigned int *got, unsigned int *result);

    int64_t m_handle;
    void *m_raw;
    unsigned char *m_block;
    uint32_t m_cacheSize;
    uint64_t m_blockStart;
    uint64_t m_blockEnd;
    bool m_wait;
};

#endif /* __cplusplus */

#endif
