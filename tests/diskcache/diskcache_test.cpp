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

struct FakeFile {
    std::string bytes;
    size_t visible = 0;           // readable before the clock reaches growAtMs
    unsigned growAtMs = 0;
    unsigned long long position = 0, lastSeek = 0;
    unsigned long long seekSkew = 0;  // osSeek lands this far past the target
    unsigned maxChunk = ~0u;          // longest transfer one read returns
    unsigned failCode = 0, lastError = 0, clockMs = 0, lastAsked = 0;
    int reads = 0;
    std::vector<std::string> log;

    size_t readable() const { return clockMs >= growAtMs ? bytes.size() : visible; }
};
FakeFile fake;

unsigned long long fakeSeek(osHandle, unsigned long long to) {
    fake.lastSeek = to;
    return fake.position = to + fake.seekSkew;
}
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
int fakeSize(osHandle, unsigned long long *size) { return *size = fake.readable(), 1; }
unsigned fakeLastError() { return fake.lastError; }
unsigned fakeMs() { return fake.clockMs; }
void fakeSleep(unsigned us) { fake.clockMs += us / 1000; }
void fakeLog(int, const char *line) { fake.log.emplace_back(line); }

class DiskCache : public ::testing::Test {
protected:
    void SetUp() override {
        fake = FakeFile();
        fake.bytes.resize(2 << 20);
        for (size_t i = 0; i < fake.bytes.size(); ++i) fake.bytes[i] = static_cast<char>(i * 7 + i / 251);
        fake.visible = fake.bytes.size();
        qrvHostServices s = {};
        s.osSeek = fakeSeek;
        s.osReadFile = fakeRead;
        s.osGetFileSizeEx = fakeSize;
        s.osGetLastError = fakeLastError;
        s.osGetMs = fakeMs;
        s.osSleepMicroseconds = fakeSleep;
        s.logLine = fakeLog;
        qrvSetHostServices(&s);
        buf.assign(2 << 20, 0);
    }
    void TearDown() override { qrvResetHostServices(); }

    unsigned read(unsigned long long pos, unsigned size, unsigned flags = 0) {
        return cache.Read(buf.data(), pos, size, &done, flags);
    }
    bool delivered(unsigned long long pos, unsigned count) const {
        return std::memcmp(buf.data(), fake.bytes.data() + pos, count) == 0;
    }

    CKXDiskCache cache;
    std::vector<unsigned char> buf;
    unsigned done = 0;
};

TEST_F(DiskCache, BypassesReadsTooLargeForTheBlockAndBeforeSetup) {
    EXPECT_EQ(read(10, 100), 0u);
    EXPECT_EQ(done, 100u);
    EXPECT_TRUE(delivered(10, 100));
    cache.SetHandleAndCacheSize(7, 1 << 20, false);
    EXPECT_EQ(read(0, (1 << 20) - 4095), 0u);
    EXPECT_TRUE(delivered(0, done));
    EXPECT_EQ(read(0, (1 << 20) - 4096), 0u);
    EXPECT_EQ(fake.log, (std::vector<std::string>{"\nCDCR-ReadOversized(Pos=10,Size=100",
                                                  "\nCDCR-ReadOversized(Pos=0,Size=1044481"}));
    EXPECT_TRUE(delivered(0, done));
    fake.failCode = 5;
    EXPECT_EQ(read(0, 1 << 20), 5u);  // a bypass failure carries no refill mark
}

TEST_F(DiskCache, RefillsFromAlignedBlockServesHitsAndEmptiesOnExactEnd) {
    cache.SetHandleAndCacheSize(7, 8192, false);
    EXPECT_EQ(read(5000, 100), 0u);
    EXPECT_EQ(fake.lastSeek, 4096u);
    EXPECT_TRUE(delivered(5000, 100));
    EXPECT_EQ(read(5100, 100), 0u);
    EXPECT_TRUE(delivered(5100, 100));
    EXPECT_EQ(fake.reads, 1);
    EXPECT_EQ(read(12188, 100), 0u);  // ends on the block end: seek, no read
    EXPECT_TRUE(delivered(12188, 100));
    EXPECT_EQ(fake.lastSeek, 12288u);
    EXPECT_EQ(fake.reads, 1);
    EXPECT_EQ(read(12100, 200), 0u);  // the block is now empty
    EXPECT_EQ(fake.reads, 2);
    EXPECT_EQ(read(16300, 200), 0u);  // straddles: part hit, part refill
    EXPECT_EQ(done, 200u);
    EXPECT_TRUE(delivered(16300, 200));
    EXPECT_EQ(fake.reads, 3);
    EXPECT_TRUE(fake.log.empty());
}

TEST_F(DiskCache, ClipsRefillsAtEndOfFile) {
    fake.bytes.resize(6000);
    fake.visible = 6000;
    cache.SetHandleAndCacheSize(7, 1 << 20, false);
    EXPECT_EQ(read(5000, 100, 6), 0u);  // bits 1 and 2 both set: no clipping
    EXPECT_EQ(fake.lastAsked, 1u << 20);
    EXPECT_EQ(read(100000, 100, 4 | 1), 0u);  // failed, but no last-error code
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(read(5000, 100, 4), 0u);
    EXPECT_EQ(fake.lastAsked, 1904u);
    EXPECT_TRUE(delivered(5000, 100));
    EXPECT_EQ(read(5950, 100, 4), 0u);  // only bytes that exist are delivered
    EXPECT_EQ(done, 50u);
    EXPECT_EQ(read(4096, 1904, 4), 0u);  // reaching the end exactly is not past it
    std::string toEnd = "\nCDCR-ReadToEOF(Pos=4096,Size=1904";
    EXPECT_EQ(fake.log, (std::vector<std::string>{"\nCDCR-ReadPastEOF(Pos=98304,Size=100", toEnd,
                                                  toEnd, toEnd}));
    CKXDiskCache small;  // past-EOF length beyond a small block stays in it
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
    EXPECT_EQ(fake.log, std::vector<std::string>{"Diskcache seek failed 0x00000016 "});
    EXPECT_TRUE(delivered(5016, 100));  // the read went on from where it landed
    fake.seekSkew = 0;

    fake.failCode = 5;
    EXPECT_EQ(read(12200, 200), 0x80000005u);
    EXPECT_EQ(done, 88u);  // the part that was a hit stays delivered
    EXPECT_EQ(read(100, 100), 0x80000005u);
    fake.failCode = 0;
    fake.lastError = 0;
    EXPECT_EQ(read(5000, 100), 0u);
    EXPECT_EQ(fake.reads, 4);  // the failed refills left nothing to hit
    EXPECT_TRUE(delivered(5000, 100));

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

    // Each retry reads into the block's start again, so the newest bytes
    // land at offset 0.
    fake.maxChunk = 1000;
    EXPECT_EQ(read(8192, 3000), 0u);
    EXPECT_EQ(done, 3000u);
    EXPECT_TRUE(delivered(8192 + 2000, 1000));

    fake.growAtMs = ~0u;
    fake.visible = 0;
    fake.lastError = 11;
    unsigned before = fake.clockMs;
    EXPECT_EQ(read(20000, 100), 0x8000000Bu);
    EXPECT_EQ(fake.clockMs - before, 1500u);
}

}  // namespace
