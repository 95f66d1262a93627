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

struct FakeFile {
    std::string bytes;
    size_t visible = 0;  // readable until the clock reaches growAtMs
    unsigned growAtMs = 0, maxChunk = ~0u, failCode = 0, lastError = 0, clockMs = 0, lastAsked = 0;
    unsigned long long position = 0, lastSeek = 0, seekSkew = 0;
    int reads = 0;
    Lines log;
    size_t readable() const { return clockMs >= growAtMs ? bytes.size() : visible; }
} fake;

int fakeRead(osHandle, void *buffer, unsigned count, unsigned *done, void *) {
    ++fake.reads;
    fake.lastAsked = count;
    *done = 0;
    if (fake.failCode != 0) {
        fake.lastError = fake.failCode;
        return 0;
    }
    size_t left = fake.position < fake.readable() ? fake.readable() - fake.position : 0;
    *done = static_cast<unsigned>(std::min<size_t>({count, fake.maxChunk, left}));
    std::memcpy(buffer, fake.bytes.data() + fake.position, *done);
    fake.position += *done;
    return 1;
}

class DiskCache : public ::testing::Test {
protected:
    void SetUp() override {
        fake = FakeFile();
        for (size_t i = 0; i < (2u << 20); ++i) fake.bytes += static_cast<char>(i * 7 + i / 251);
        fake.visible = fake.bytes.size();
        qrvHostServices s = {};
        s.osReadFile = fakeRead;
        s.osSeek = [](osHandle, unsigned long long to) { return fake.position = (fake.lastSeek = to) + fake.seekSkew; };
        s.osGetFileSizeEx = [](osHandle, unsigned long long *size) { return (*size = fake.readable()), 1; };
        s.osGetLastError = [] { return fake.lastError; };
        s.osGetMs = [] { return fake.clockMs; };
        s.osSleepMicroseconds = [](unsigned us) { fake.clockMs += us / 1000; };
        s.logLine = [](int, const char *line) { fake.log.emplace_back(line); };
        qrvSetHostServices(&s);
    }
    void TearDown() override { qrvResetHostServices(); }

    unsigned read(unsigned long long pos, unsigned size, unsigned flags = 0) {
        return cache.Read(buf.data(), pos, size, &done, flags);
    }
    bool delivered(unsigned long long pos, unsigned count) const {
        return std::memcmp(buf.data(), fake.bytes.data() + pos, count) == 0;
    }

    CKXDiskCache cache;
    std::vector<unsigned char> buf = std::vector<unsigned char>(2u << 20);
    unsigned done = 0;
};

TEST_F(DiskCache, BypassesReadsTooLargeForTheBlockAndBeforeSetup) {
    EXPECT_EQ(read(10, 100), 0u);
    EXPECT_TRUE(delivered(10, 100));
    cache.SetHandleAndCacheSize(7, 1 << 20, false);
    EXPECT_EQ(read(0, (1 << 20) - 4095), 0u);
    EXPECT_EQ(read(0, (1 << 20) - 4096), 0u);
    EXPECT_TRUE(delivered(0, done));
    EXPECT_EQ(fake.log, (Lines{"\nCDCR-ReadOversized(Pos=10,Size=100", "\nCDCR-ReadOversized(Pos=0,Size=1044481"}));
    fake.failCode = 5;
    EXPECT_EQ(read(0, 1 << 20), 5u);  // a bypass failure carries no refill mark
}

TEST_F(DiskCache, RefillsFromAlignedBlockServesHitsAndEmptiesOnExactEnd) {
    cache.SetHandleAndCacheSize(7, 8192, false);
    EXPECT_EQ(read(5000, 100), 0u);
    EXPECT_EQ(fake.lastSeek, 4096u);
    EXPECT_TRUE(delivered(5000, 100));
    EXPECT_EQ(read(5100, 100), 0u);
    EXPECT_EQ(read(12188, 100), 0u);  // ends on the block end: seek, no read
    EXPECT_TRUE(delivered(12188, 100));
    EXPECT_EQ(fake.lastSeek, 12288u);
    EXPECT_EQ(fake.reads, 1);
    EXPECT_EQ(read(12100, 200), 0u);  // the block is now empty
    EXPECT_EQ(read(16300, 200), 0u);  // straddles: part hit, part refill
    EXPECT_TRUE(delivered(16300, done));
    EXPECT_EQ(done, 200u);
    EXPECT_EQ(fake.reads, 3);
}

TEST_F(DiskCache, ClipsRefillsAtEndOfFile) {
    fake.bytes.resize(fake.visible = 6000);
    cache.SetHandleAndCacheSize(7, 1 << 20, false);
    EXPECT_EQ(read(5000, 100, 6), 0u);  // bits 1 and 2 both set: no clipping
    EXPECT_EQ(fake.lastAsked, 1u << 20);
    EXPECT_EQ(read(100000, 100, 4 | 1), 0u);  // failed, but no last-error code
    EXPECT_EQ(read(5000, 100, 4), 0u);
    EXPECT_EQ(fake.lastAsked, 1904u);
    EXPECT_TRUE(delivered(5000, 100));
    EXPECT_EQ(read(5950, 100, 4), 0u);  // only bytes that exist are delivered
    EXPECT_EQ(done, 50u);
    EXPECT_EQ(read(4096, 1904, 4), 0u);  // reaching the end exactly is not past it
    std::string toEnd = "\nCDCR-ReadToEOF(Pos=4096,Size=1904";
    EXPECT_EQ(fake.log, (Lines{"\nCDCR-ReadPastEOF(Pos=98304,Size=100", toEnd, toEnd, toEnd}));

    CKXDiskCache small;  // a past-EOF length beyond a small block stays in it
    small.SetHandleAndCacheSize(7, 1024, false);
    small.Read(buf.data(), 8192, 3000, &done, 4);
    EXPECT_EQ(fake.lastAsked, 1024u);
    EXPECT_EQ(small.Read(buf.data(), 6000, 100, &done, 0), 0u);
    EXPECT_EQ(done, 0u);  // the block never held position 6000
}

TEST_F(DiskCache, ReportsSeekAndReadFaults) {
    cache.SetHandleAndCacheSize(7, 8192, false);
    fake.seekSkew = 16;
    fake.lastError = 0x16;
    EXPECT_EQ(read(5000, 100), 0u);
    EXPECT_EQ(fake.log, Lines{"Diskcache seek failed 0x00000016 "});
    EXPECT_TRUE(delivered(5016, 100));  // the read went on from where it landed
    fake.seekSkew = 0;

    fake.failCode = 5;
    EXPECT_EQ(read(12200, 200), 0x80000005u);
    EXPECT_EQ(done, 88u);  // the part that was a hit stays delivered
    EXPECT_EQ(read(100, 100), 0x80000005u);
    fake.failCode = fake.lastError = 0;
    EXPECT_EQ(read(5000, 100), 0u);
    EXPECT_EQ(fake.reads, 4);  // the failed refills left nothing to hit

    fake.maxChunk = 1000;  // short: only 96 of the 100 bytes after offset 904
    EXPECT_EQ(read(20480 + 904, 100), 0u);
    EXPECT_EQ(done, 96u);
    EXPECT_EQ(read(40960, 3000), 0u);  // without wait mode a short read fails
    EXPECT_EQ(done, 0u);
}

TEST_F(DiskCache, WaitModeFollowsAGrowingFileAndTimesOut) {
    cache.SetHandleAndCacheSize(7, 8192, true);
    fake.visible = 0;
    fake.growAtMs = 40;
    EXPECT_EQ(read(0, 100), 0u);
    EXPECT_TRUE(delivered(0, 100));
    EXPECT_EQ(fake.clockMs, 40u);
    EXPECT_EQ(fake.reads, 21);

    fake.maxChunk = 1000;  // each retry reads into the block's start again
    EXPECT_EQ(read(8192, 3000), 0u);
    EXPECT_EQ(done, 3000u);
    EXPECT_TRUE(delivered(8192 + 2000, 1000));

    fake.growAtMs = ~0u;
    fake.lastError = 11;
    unsigned started = fake.clockMs;
    EXPECT_EQ(read(20000, 100), 0x8000000Bu);
    EXPECT_EQ(fake.clockMs - started, 1500u);
}

}  // namespace
