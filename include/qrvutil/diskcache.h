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
    /* An empty cache without a block: until SetHandleAndCacheSize every
     * Read goes straight to the (invalid) handle and fails there. */
    CKXDiskCache();
    /* Frees the block; the file handle is the caller's and stays open. */
    virtual ~CKXDiskCache();
    CKXDiskCache(const CKXDiskCache &) = delete;
    CKXDiskCache &operator=(const CKXDiskCache &) = delete;

    /* Caches `handle` (owned by the caller, never closed here) through a
     * block of `size` bytes, allocated with hostAlloc as size + 2048 bytes
     * and placed on a 1024-byte boundary; any earlier block is freed and the
     * new one starts empty. `wait` makes Read retry short refills for a file
     * that is still being written. Always returns 0: when the allocation
     * fails there is no block and every Read goes straight to the file. */
    int SetHandleAndCacheSize(long long handle, unsigned int size, bool wait);

    /* Reads `size` bytes at file position `pos` into `buf`, which has room
     * for `size` bytes; *done (never null) receives the bytes delivered.
     *
     * Reads larger than the block less 4096 bytes, and reads inside the file
     * that a block smaller than 4096 bytes cannot hold from the page start,
     * go straight to the file and leave the block as it was (each logs
     * "\nCDCR-ReadOversized(Pos=%llu,Size=%d"). Other reads are served from
     * the block, which is refilled from the 4096-aligned position at or
     * below the first byte it lacks.
     *
     * With (flags & QRV_DISKCACHE_FLAG_MASK) == QRV_DISKCACHE_CLIP_EOF a
     * refill asks only for the bytes up to the end of the file (logging
     * "\nCDCR-ReadToEOF" or "\nCDCR-ReadPastEOF").
     *
     * In wait mode a short refill is retried every 2 ms, each retry reading
     * on after the bytes already got, until every requested byte (or every
     * byte of a clipped refill) is there or 1.5 s have passed.
     *
     * *done falls short of `size` only at the end of the file or when a
     * read fails. Returns 0 on success; a host last-error code when a
     * straight read fails; when a refill fails, that code with bit 31 set,
     * or 0 when the host reports no code (then *done holds only the bytes
     * the block already had).
     *
     * Kept as they are, since callers depend on them: a read that ends
     * exactly at the block end goes on to a refill that reads nothing and
     * empties the block; outside wait mode a refill succeeds once it got as
     * many bytes as the read still missed, counted from the page start, so
     * near the end of the file a read either gets the short tail with
     * result 0 or fails as above, depending on where in its page it starts;
     * a refill that succeeds after a failed attempt returns that attempt's
     * error code with every byte delivered; a failed seek before a refill is
     * logged ("Diskcache seek failed 0x%08X ") and the read carries on. */
    unsigned int Read(unsigned char *buf, unsigned long long pos, unsigned int size,
                      unsigned int *done, unsigned int flags);

  private:
    unsigned int readAround(unsigned char *buf, unsigned long long pos, unsigned int size,
                            unsigned int *done);
    unsigned int refillLength(unsigned int size, unsigned int flags);
    bool insideFile(uint64_t position) const;
    unsigned int neededBytes(uint64_t next, unsigned int missing, unsigned int length) const;
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
