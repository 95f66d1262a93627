// The disk read cache over an in-memory file served through replaced host
// services: the clock only moves when the cache sleeps, so wait-mode runs
// take no real time.

#include <qrvutil/diskcache.h>
#include <qrvutil/host.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

// A 2 MiB file; while the clock is below growAtMs only `visible` bytes exist.
struct FakeFile {
    std::string bytes;
    size_t visible = 0;
    unsigned growAtMs = 0, maxChunk = ~0u, lastError = 0, clockMs = 0, lastAsked = 0, reads = 0;
    unsigned long long position = 0, lastSeek = 0;
    Lines log;
    size_t growBytesPerMs = 0; // a file being written: `visible` grows with the clock
    size_t readable() const
    {
        if (clockMs >= growAtMs)
            return bytes.size();
        return std::min(bytes.size(), visible + growBytesPerMs * clockMs);
    }
} fake;

class DiskCache : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fake = FakeFile();
        for (size_t i = 0; i < (2u << 20); ++i)
            fake.bytes += static_cast<char>(i * 7 + i / 251);
        qrvHostServices s = {};
        s.size = sizeof s;
        s.osReadFile = [](osHandle, void *to, unsigned count, unsigned *done, void *) {
            ++fake.reads;
            fake.lastAsked = count;
            size_t left = fake.position < fake.readable() ? fake.readable() - fake.position : 0;
            *done = static_cast<unsigned>(std::min<size_t>({count, fake.maxChunk, left}));
            std::memcpy(to, fake.bytes.data() + fake.position, *done);
            fake.position += *done;
            return 1;
        };
        s.osSeek = [](osHandle, unsigned long long to) {
            return fake.position = fake.lastSeek = to;
        };
        s.osGetFileSizeEx = [](osHandle, unsigned long long *size) {
            return (*size = fake.readable()), 1;
        };
        s.osGetLastError = [] { return fake.lastError; };
        s.osGetMs = [] { return fake.clockMs; };
        s.osSleepMicroseconds = [](unsigned us) { fake.clockMs += us / 1000; };
        s.logLine = [](int, const char *line) { fake.log.emplace_back(line); };
        qrvSetHostServices(&s);
    }
    void TearDown() override { qrvResetHostServices(); }

    unsigned read(unsigned long long pos, unsigned size, unsigned flags = 0)
    {
        return cache.Read(buf.data(), pos, size, &done, flags);
    }
    bool delivered(unsigned long long pos, unsigned count) const
    {
        return std::memcmp(buf.data(), fake.bytes.data() + pos, count) == 0;
    }

    CKXDiskCache cache;
    std::vector<unsigned char> buf = std::vector<unsigned char>(2u << 20);
    unsigned done = 0;
};

TEST_F(DiskCache, BypassesLargeReadsAndRefillsFromAlignedPositions)
{
    EXPECT_EQ(read(10, 100), 0u); // before setup every read bypasses
    EXPECT_TRUE(delivered(10, 100));
    cache.SetHandleAndCacheSize(7, 1 << 20, false);
    EXPECT_EQ(read(0, (1 << 20) - 4095), 0u);
    EXPECT_EQ(fake.log, (Lines{"\nCDCR-ReadOversized(Pos=10,Size=100",
                               "\nCDCR-ReadOversized(Pos=0,Size=1044481"}));

    // The largest read the block serves: a refill from 4096, copied out from 904.
    EXPECT_EQ(read(5000, (1 << 20) - 4096), 0u);
    EXPECT_EQ(fake.lastSeek, 4096u);
    EXPECT_EQ(done, (1u << 20) - 4096);
    EXPECT_TRUE(delivered(5000, done));
    EXPECT_EQ(read(5100, 100), 0u); // a hit
    const unsigned long long end = 4096 + (1 << 20);
    EXPECT_EQ(read(end - 100, 100), 0u); // ends on the block end: a seek, no read, an empty block
    EXPECT_TRUE(delivered(end - 100, 100));
    EXPECT_EQ(fake.lastSeek, end);
    EXPECT_EQ(fake.reads, 3u);
    EXPECT_EQ(read(end - 200, 50), 0u); // no longer a hit
    EXPECT_EQ(fake.reads, 4u);
    EXPECT_EQ(fake.log.size(), 2u);
}

TEST_F(DiskCache, ClipsRefillsAtEndOfFile)
{
    fake.bytes.resize(6000);
    cache.SetHandleAndCacheSize(7, 1 << 20, false);
    EXPECT_EQ(read(5000, 100, 6), 0u); // bits 1 and 2 both set: no clipping
    EXPECT_EQ(fake.lastAsked, 1u << 20);
    cache.SetHandleAndCacheSize(7, 1 << 20, false);
    EXPECT_EQ(read(5000, 100, 4), 0u);
    EXPECT_EQ(fake.lastAsked, 1904u);
    EXPECT_TRUE(delivered(5000, 100));
    EXPECT_EQ(read(5950, 100, 4), 0u); // only bytes that exist are delivered
    EXPECT_EQ(done, 50u);

    cache.SetHandleAndCacheSize(7, 1024, false); // a past-EOF length beyond the block stays in it
    EXPECT_EQ(read(8192, 3000, 4), 0u);
    EXPECT_EQ(fake.lastAsked, 1024u);
    std::string toEnd = "\nCDCR-ReadToEOF(Pos=4096,Size=1904";
    EXPECT_EQ(fake.log, (Lines{toEnd, toEnd, "\nCDCR-ReadPastEOF(Pos=8192,Size=3000"}));
}

TEST_F(DiskCache, WaitModeFollowsAGrowingFileAndTimesOut)
{
    cache.SetHandleAndCacheSize(7, 8192, true);
    fake.visible = 0;
    fake.growAtMs = 40;
    EXPECT_EQ(read(0, 100), 0u);
    EXPECT_TRUE(delivered(0, 100));
    EXPECT_EQ(fake.clockMs, 40u);
    EXPECT_EQ(fake.reads, 21u);

    fake.maxChunk = 1000; // each retry reads on after the bytes already got
    EXPECT_EQ(read(8192 + 500, 3000), 0u);
    EXPECT_EQ(done, 3000u);
    EXPECT_TRUE(delivered(8192 + 500, 3000));

    fake.growAtMs = ~0u;
    fake.lastError = 11;
    unsigned started = fake.clockMs;
    EXPECT_EQ(read(20000, 100), 0x8000000Bu);
    EXPECT_EQ(fake.clockMs - started, 1500u);
}

// A writer appends 1316 bytes every 2 ms (one retry sleep) while a reader
// follows it in reads of assorted sizes: every byte must be the file's own.
TEST_F(DiskCache, WaitModeDeliversAGrowingFileByteForByte)
{
    fake.growAtMs = ~0u;
    fake.growBytesPerMs = 1316 / 2;
    fake.maxChunk = 4000;
    cache.SetHandleAndCacheSize(7, 64 << 10, true);
    std::vector<unsigned char> got;
    const unsigned sizes[] = {188, 1316, 7, 4096, 30000, 1};
    for (unsigned i = 0; got.size() < fake.bytes.size(); ++i) {
        unsigned want = std::min<size_t>(sizes[i % 6], fake.bytes.size() - got.size());
        ASSERT_EQ(read(got.size(), want), 0u) << "at " << got.size();
        ASSERT_EQ(done, want);
        got.insert(got.end(), buf.begin(), buf.begin() + want);
    }
    EXPECT_EQ(std::memcmp(got.data(), fake.bytes.data(), got.size()), 0);
    EXPECT_TRUE(fake.log.empty());
}

// A block smaller than a page reaches only its first bytes from the page
// start; reads it cannot hold go straight to the file.
TEST_F(DiskCache, TinyBlockServesUnreachableReadsFromTheFile)
{
    cache.SetHandleAndCacheSize(7, 1024, false);
    EXPECT_EQ(read(4096 + 100, 200), 0u); // inside the block's reach
    EXPECT_TRUE(delivered(4096 + 100, 200));
    EXPECT_EQ(read(4096 + 2000, 100), 0u); // beyond it
    EXPECT_EQ(done, 100u);
    EXPECT_TRUE(delivered(4096 + 2000, 100));
    EXPECT_EQ(read(4096 + 1000, 100), 0u); // partly within the block, partly beyond
    EXPECT_EQ(done, 100u);
    EXPECT_TRUE(delivered(4096 + 1000, 100));
    EXPECT_EQ(read(4096 + 300, 100), 0u); // the block was left as it was: a hit
    EXPECT_TRUE(delivered(4096 + 300, 100));
    EXPECT_EQ(fake.reads, 3u);
    EXPECT_EQ(fake.log, (Lines{"\nCDCR-ReadOversized(Pos=6096,Size=100",
                               "\nCDCR-ReadOversized(Pos=5120,Size=76"}));
}

} // namespace
