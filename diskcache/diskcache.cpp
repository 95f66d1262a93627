// Disk read cache: one read-ahead block over a caller's file.

#include <qrvutil/diskcache.h>
#include <qrvutil/host.h>

#include <cstddef>

namespace {

// Refills start at 4096-aligned file positions: whole sectors and pages.
constexpr uint64_t kRefillAlignMask = 4095;
// The block sits on a 1024-byte boundary inside its allocation, which is this
// much larger than the block.
constexpr uintptr_t kBlockAlign = 1024;
constexpr size_t kAllocSlack = 2048;
// A read bypasses the block when it is larger than the block less this much:
// the read may start anywhere in its first 4096 bytes and must still fit.
constexpr uint32_t kBypassMargin = 4096;
// Wait mode gives a growing file this long, in ms, polling at this interval.
constexpr unsigned kWaitLimitMs = 1499;
constexpr unsigned kRetrySleepUs = 2000;
constexpr unsigned kFailedRefillBit = 0x80000000u;

unsigned smaller(uint64_t a, unsigned b) { return a < b ? static_cast<unsigned>(a) : b; }

} // namespace

// The handle and the wait flag start out invalid and clear so that a read
// before SetHandleAndCacheSize fails cleanly instead of using garbage.
CKXDiskCache::CKXDiskCache()
    : m_handle(QRV_INVALID_FILE), m_raw(nullptr), m_block(nullptr), m_cacheSize(0), m_blockStart(0),
      m_blockEnd(0), m_wait(false)
{
}

CKXDiskCache::~CKXDiskCache()
{
    if (m_raw != nullptr)
        hostFree(m_raw);
}

// A failed allocation leaves no block, so every read then bypasses the cache.
// The block is cleared once so that it never holds stale heap contents.
int CKXDiskCache::SetHandleAndCacheSize(long long handle, unsigned int size, bool wait)
{
    m_handle = handle;
    m_wait = wait;
    hostFree(m_raw);
    m_raw = nullptr;
    m_block = nullptr;
    m_cacheSize = 0;
    size_t bytes = static_cast<size_t>(size) + kAllocSlack;
    if (bytes > size)
        m_raw = hostAlloc(bytes); // not taken when 32-bit size_t wraps
    if (m_raw != nullptr) {
        unsigned char *raw = static_cast<unsigned char *>(m_raw);
        m_block = raw +
                  ((kBlockAlign - reinterpret_cast<uintptr_t>(raw) % kBlockAlign) % kBlockAlign);
        m_cacheSize = size;
        hostZeroMemory(m_block, size);
    }
    m_blockStart = m_blockEnd = 0;
    return 0;
}

unsigned int CKXDiskCache::Read(unsigned char *buf, unsigned long long pos, unsigned int size,
                                unsigned int *done, unsigned int flags)
{
    *done = 0;
    // Unsigned on purpose: a block below 4096 bytes never bypasses.
    if (m_block == nullptr || size > m_cacheSize - kBypassMargin)
        return readAround(buf, pos, size, done);

    uint64_t next = pos;
    if (m_blockStart <= pos && pos < m_blockEnd) {
        uint64_t available = m_blockEnd - pos;
        // Strictly inside: a read ending exactly at the block end goes on to
        // a refill that reads nothing and empties the block. Kept as is.
        if (size < available) {
            hostCopyMemory(buf, m_block + (pos - m_blockStart), size);
            *done = size;
            return 0;
        }
        *done = static_cast<unsigned>(available);
        hostCopyMemory(buf, m_block + (pos - m_blockStart), *done);
        next = m_blockEnd;
    }

    // A block smaller than a page cannot reach every byte from the page
    // start; what it cannot hold of the file goes straight to the file, as
    // an oversized read does, so a read falls short only at the end of the
    // file. Beyond the end the refill below runs as it always has.
    if ((next & kRefillAlignMask) + (size - *done) > m_cacheSize && insideFile(next)) {
        unsigned got = 0;
        unsigned result = readAround(buf + *done, next, size - *done, &got);
        *done += got;
        return result;
    }

    m_blockStart = next & ~kRefillAlignMask;
    if (osSeek(m_handle, m_blockStart) != m_blockStart)
        logError("Diskcache seek failed 0x%08X ", osGetLastError());
    unsigned started = osGetMs();
    unsigned length = refillLength(size, flags);

    unsigned result = 0;
    unsigned got = 0;
    if (*done < size &&
        !fillBlock(length, neededBytes(next, size - *done, length), started, &got, &result)) {
        // The block no longer holds its old range; keeping the old end would
        // serve bytes that are not there.
        m_blockEnd = m_blockStart;
        unsigned code = osGetLastError();
        return code != 0 ? code | kFailedRefillBit : 0;
    }
    m_blockEnd = m_blockStart + got;

    // Only bytes the refill produced are handed out: past the end of the
    // file *done stops short of `size`.
    uint64_t valid = m_blockEnd > next ? m_blockEnd - next : 0;
    unsigned count = smaller(valid, size - *done);
    hostCopyMemory(buf + *done, m_block + (next - m_blockStart), count);
    *done += count;
    return result;
}

// Straight to the file, leaving the block as it was.
unsigned int CKXDiskCache::readAround(unsigned char *buf, unsigned long long pos, unsigned int size,
                                      unsigned int *done)
{
    logError("\nCDCR-ReadOversized(Pos=%llu,Size=%d", pos, static_cast<int>(size));
    osSeek(m_handle, pos);
    unsigned got = 0;
    int ok = osReadFile(m_handle, buf, size, &got, nullptr);
    *done = got < size ? got : size;
    return ok ? 0 : osGetLastError();
}

bool CKXDiskCache::insideFile(uint64_t position) const
{
    unsigned long long fileSize = 0;
    return osGetFileSizeEx(m_handle, &fileSize) && position < fileSize;
}

// Bytes a refill asks for: the whole block, unless end-of-file clipping is
// asked for and the file ends inside the block.
unsigned int CKXDiskCache::refillLength(unsigned int size, unsigned int flags)
{
    if ((flags & QRV_DISKCACHE_FLAG_MASK) != QRV_DISKCACHE_CLIP_EOF)
        return m_cacheSize;
    unsigned long long fileSize = 0;
    if (!osGetFileSizeEx(m_handle, &fileSize))
        return m_cacheSize;
    bool beyondStart = fileSize >= m_blockStart;
    if (beyondStart && fileSize - m_blockStart >= m_cacheSize)
        return m_cacheSize;
    if (!beyondStart || fileSize - m_blockStart < size) {
        logError("\nCDCR-ReadPastEOF(Pos=%llu,Size=%d",
                 static_cast<unsigned long long>(m_blockStart), static_cast<int>(size));
        return size;
    }
    unsigned toEnd = static_cast<unsigned>(fileSize - m_blockStart);
    logError("\nCDCR-ReadToEOF(Pos=%llu,Size=%d", static_cast<unsigned long long>(m_blockStart),
             static_cast<int>(toEnd));
    return toEnd;
}

// Block bytes, counted from the block start, that end the refill. Wait mode
// follows a file that is still being written, so it waits for every byte up
// to the end of the read (or of a clipped refill). A single read keeps its
// old test, the count still missing: at the end of a file it is what lets a
// short tail through, and callers depend on it.
unsigned int CKXDiskCache::neededBytes(uint64_t next, unsigned int missing,
                                       unsigned int length) const
{
    if (!m_wait)
        return missing;
    uint64_t upTo = (next - m_blockStart) + missing;
    if (length > m_cacheSize)
        length = m_cacheSize;
    return upTo < length ? static_cast<unsigned>(upTo) : length;
}

// Reads until `needed` bytes have arrived. Each attempt reads after the bytes
// already got, so a retried refill holds the file's bytes in order from the
// block start. A failing attempt leaves its last-error code in *result even
// when a later attempt succeeds.
bool CKXDiskCache::fillBlock(unsigned length, unsigned needed, unsigned started, unsigned *got,
                             unsigned *result)
{
    // The refill never runs past the block, whatever length clipping chose.
    if (length > m_cacheSize)
        length = m_cacheSize;
    for (;;) {
        unsigned want = length - *got;
        unsigned count = 0;
        if (osReadFile(m_handle, m_block + *got, want, &count, nullptr))
            *got += count < want ? count : want;
        else
            *result = osGetLastError();
        if (*got >= needed)
            return true;
        if (!m_wait || osGetMs() - started > kWaitLimitMs)
            return false;
        osSleepMicroseconds(kRetrySleepUs);
    }
}
