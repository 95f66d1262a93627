#include "host_test_support.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace {

using FilesTest = qrvtest::HostTest;

osHandle openFile(const std::filesystem::path &path, unsigned access, unsigned disposition)
{
    return osCreateFile(path.c_str(), access, QRV_SHARE_READ_WRITE, nullptr, disposition, 0,
                        nullptr);
}

TEST_F(FilesTest, BareNamesLiveInTheUserDirectoryAndCreateNewRefusesExistingFiles)
{
    const auto nested = dir_ / "not" / "yet";
    useDirectory(nested);
    EXPECT_EQ(openFile("bare.bin", QRV_ACCESS_READ, QRV_OPEN_EXISTING), QRV_INVALID_FILE);
    EXPECT_EQ(osGetLastError(), unsigned(ENOENT));

    const osHandle created = openFile("bare.bin", QRV_ACCESS_WRITE, QRV_CREATE_NEW);
    ASSERT_NE(created, QRV_INVALID_FILE);
    EXPECT_NE(osCloseFile(created), 0);
    EXPECT_NE(osFileExists((nested / "bare.bin").c_str()), 0);
    EXPECT_NE(osFileExists("bare.bin"), 0);
    EXPECT_EQ(osFileExists(nested.c_str()), 0);
    EXPECT_EQ(openFile("bare.bin", QRV_ACCESS_WRITE, QRV_CREATE_NEW), QRV_INVALID_FILE);
    EXPECT_EQ(osGetLastError(), unsigned(EEXIST));
    EXPECT_EQ(openFile(nested / "", QRV_ACCESS_READ, QRV_OPEN_EXISTING), QRV_INVALID_FILE);
    EXPECT_EQ(openFile("bare.bin", QRV_ACCESS_READ, 9), QRV_INVALID_FILE);
}

TEST_F(FilesTest, TransfersStopShortOnlyAtTheEndAndPositionsPassFourGigabytes)
{
    std::string content(100000, '\0');
    for (size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 7);
    osHandle file = openFile(dir_ / "data.bin", QRV_ACCESS_READ | QRV_ACCESS_WRITE, QRV_CREATE_NEW);
    ASSERT_NE(file, QRV_INVALID_FILE);
    unsigned done = 0;
    ASSERT_NE(osWriteFile(file, content.data(), unsigned(content.size()), &done, nullptr), 0);
    EXPECT_EQ(done, content.size());
    EXPECT_EQ(osSeek(file, 99990), 99990u);
    std::string tail(50, '\0');
    ASSERT_NE(osReadFile(file, &tail[0], 50, &done, nullptr), 0);
    EXPECT_EQ(done, 10u);
    EXPECT_EQ(tail.substr(0, 10), content.substr(99990));
    ASSERT_NE(osReadFile(file, &tail[0], 50, &done, nullptr), 0);
    EXPECT_EQ(done, 0u);

    const unsigned long long far = 0x140000000ull; // 5 GiB, a hole in most file systems
    ASSERT_EQ(osSeek(file, far), far);
    ASSERT_NE(osWriteFile(file, "z", 1, &done, nullptr), 0);
    unsigned high = 0;
    EXPECT_EQ(osGetFileSize(file, &high), 0x40000001u);
    EXPECT_EQ(high, 1u);
    EXPECT_EQ(osSeek(file, ~0ull), ~0ull);
    EXPECT_NE(osCloseFile(file), 0);
    EXPECT_EQ(osReadFile(file, &tail[0], 1, &done, nullptr), 0);
    EXPECT_EQ(osGetLastError(), unsigned(EBADF));
}

TEST(Paths, SplitAndJoin)
{
    const struct {
        const char *path, *dir, *name, *ext;
    } cases[] = {
        {"/media/clips/take.1.mov", "/media/clips/", "take.1", ".mov"},
        {"/", "/", "", ""},
        {"relative/dir.d/noext", "relative/dir.d/", "noext", ""},
        {"", "", "", ""},
        {"bare.xml", "", "bare", ".xml"},
        {".hidden", "", "", ".hidden"},
    };
    for (const auto &c : cases) {
        char drive[64], dir[64], name[64], ext[64], joined[64];
        std::memset(drive, 'x', sizeof drive);
        osSplitPath(c.path, drive, dir, name, ext);
        EXPECT_STREQ(drive, "");
        EXPECT_STREQ(dir, c.dir) << c.path;
        EXPECT_STREQ(name, c.name) << c.path;
        EXPECT_STREQ(ext, c.ext) << c.path;
        osMakePath(joined, drive, dir, name, ext);
        EXPECT_STREQ(joined, c.path);
    }
    char joined[64];
    osMakePath(joined, nullptr, "/a/b", "clip", "mov");
    EXPECT_STREQ(joined, "/a/b/clip.mov");
}

TEST(Clock, MillisecondsAdvanceAcrossASleep)
{
    const unsigned start = osGetMs();
    osSleepMicroseconds(30000);
    const unsigned elapsed = osGetMs() - start;
    EXPECT_GE(elapsed, 30u);
    EXPECT_LT(elapsed, 5000u);
}

} // namespace
