#include "host_test_support.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

namespace {

using ConfigTest = qrvtest::HostTest;

constexpr char kKey[] = "Ovalbrook\\MetaData\\Default";
const std::string kOddText = "  <a & \"b\" 'c'>\n\t\x01\xe9 end  ";

std::string fileBytes(const std::filesystem::path &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

ino_t inodeOf(const std::filesystem::path &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

/* Library callers pass the length + 2 as the size. */
int writeText(cfgHandle store, const char *key, const char *name, const char *text,
              unsigned size = 0)
{
    size = size ? size : unsigned(std::strlen(text)) + 2;
    return cfgValueString(store, key, name, const_cast<char *>(text), &size, QRV_CFG_WRITE);
}

int writeNumber(cfgHandle store, const char *key, const char *name, unsigned value)
{
    return cfgValueDword(store, key, name, &value, QRV_CFG_WRITE);
}

int readNumber(cfgHandle store, const char *key, const char *name, unsigned *value)
{
    return cfgValueDword(store, key, name, value, QRV_CFG_READ);
}

/* Reads a string the way the library does: ask the size, then read into a
 * block of size + 4. */
std::string readText(cfgHandle store, const char *key, const char *name)
{
    unsigned size = 0;
    if (cfgValueString(store, key, name, nullptr, &size, QRV_CFG_READ) != 0)
        return "<missing>";
    std::string buffer(size + 4, '#');
    if (cfgValueString(store, key, name, &buffer[0], &size, QRV_CFG_READ) != 0)
        return "<failed>";
    return buffer.c_str();
}

/* The rules both kinds of store share. */
void checkValueRules(cfgHandle store)
{
    unsigned number = 0;
    EXPECT_EQ(readText(store, kKey, "Missing"), "<missing>");
    ASSERT_EQ(writeNumber(store, kKey, "Count", 0xFFFFFFFEu), 0);
    EXPECT_EQ(readNumber(store, "\\Ovalbrook\\\\MetaData\\Default\\", "Count", &number), 0);
    EXPECT_EQ(number, 0xFFFFFFFEu);
    EXPECT_EQ(readNumber(store, kKey, "Count", nullptr), 0);

    ASSERT_EQ(writeText(store, kKey, "Title", kOddText.c_str()), 0);
    EXPECT_EQ(readText(store, kKey, "Title"), kOddText);
    ASSERT_EQ(writeText(store, kKey, "Empty", ""), 0);
    unsigned size = 77;
    EXPECT_EQ(cfgValueString(store, kKey, "Empty", nullptr, &size, QRV_CFG_READ), 0);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(readText(store, kKey, "Empty"), "");

    // The text ends at its terminator: nothing past it is read (the
    // sanitizer build checks the exact-size block).
    std::unique_ptr<char[]> exact(new char[3]{'h', 'i', '\0'});
    ASSERT_EQ(writeText(store, kKey, "Exact", exact.get(), 4), 0);
    ASSERT_EQ(writeText(store, kKey, "Short", "abcdef", 5), 0);
    EXPECT_EQ(readText(store, kKey, "Exact"), "hi");
    EXPECT_EQ(readText(store, kKey, "Short"), "abcde");

    // A small buffer gets a cut, terminated copy and the size needed.
    char small[4] = {'#', '#', '#', '#'};
    size = 3;
    EXPECT_NE(cfgValueString(store, kKey, "Short", small, &size, QRV_CFG_READ), 0);
    EXPECT_STREQ(small, "ab");
    EXPECT_EQ(small[3], '#');
    EXPECT_EQ(size, 6u);

    // Types never convert.
    EXPECT_NE(readNumber(store, kKey, "Title", &number), 0);
    EXPECT_NE(readNumber(store, kKey, "Title", nullptr), 0);
    EXPECT_EQ(readText(store, kKey, "Count"), "<missing>");
    ASSERT_EQ(writeText(store, kKey, "Count", "now text"), 0);
    EXPECT_EQ(readText(store, kKey, "Count"), "now text");

    EXPECT_EQ(cfgDeleteValue(store, kKey, "Count"), 0);
    EXPECT_NE(cfgDeleteValue(store, kKey, "Count"), 0);
    EXPECT_EQ(readText(store, kKey, "Count"), "<missing>");
    EXPECT_EQ(readText(store, "Ovalbrook\\MetaData", "Title"), "<missing>");
}

TEST_F(ConfigTest, DefaultStoreFollowsTheValueRulesAndIsCreatedOnFirstWrite)
{
    useDirectory(dir_ / "store");
    EXPECT_NE(readNumber(QRV_CFG_DEFAULT, kKey, "Count", nullptr), 0);
    EXPECT_NE(cfgDeleteValue(QRV_CFG_DEFAULT, kKey, "Count"), 0);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "store"));
    checkValueRules(QRV_CFG_DEFAULT);
    EXPECT_TRUE(std::filesystem::exists(dir_ / "store" / "config.sqlite"));
    EXPECT_TRUE(qrvtest::capturedLines.empty());
}

TEST_F(ConfigTest, XmlFileFollowsTheValueRulesAndIsWrittenBackOnlyWhenChangedAndAskedTo)
{
    const auto file = dir_ / "UserMetadata.xml";
    std::ofstream(file) << "<?xml version=\"1.0\"?>\n<!-- kept -->\n<Config/>\n";
    cfgHandle store = cfgOpen("UserMetadata.xml", 0);
    ASSERT_NE(store, nullptr);
    checkValueRules(store);
    ASSERT_EQ(cfgClose(store, 1), 0);
    const std::string saved = fileBytes(file);
    EXPECT_NE(saved.find("<!-- kept -->"), std::string::npos);
    const ino_t inode = inodeOf(file);

    // Read back by full path; the same text written again is no change.
    store = cfgOpen(file.c_str(), 0);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(readText(store, kKey, "Title"), kOddText);
    EXPECT_EQ(readText(store, kKey, "Empty"), "");
    EXPECT_EQ(writeText(store, kKey, "Title", kOddText.c_str()), 0);
    EXPECT_EQ(cfgClose(store, 1), 0);
    EXPECT_EQ(inodeOf(file), inode);

    // A change is written only when asked, replacing the file whole.
    for (int save : {0, 1}) {
        store = cfgOpen("UserMetadata.xml", 0);
        EXPECT_EQ(writeNumber(store, "A", "N", 6), 0);
        EXPECT_EQ(cfgClose(store, save), 0);
        EXPECT_EQ(fileBytes(file) == saved, save == 0);
    }
    EXPECT_NE(inodeOf(file), inode);
    EXPECT_NE(fileBytes(file).find("Data=\"6\""), std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 1);
}

TEST_F(ConfigTest, UnreadableXmlFilesAreRefusedAndLeftUntouched)
{
    const char *refused[] = {"<Config><Key Name=\"a\"></Config>", "<Other/>", "<Config/><Config/>",
                             ""};
    const auto file = dir_ / "bad.xml";
    auto &lines = qrvtest::capturedLines;
    for (const char *bytes : refused) {
        std::ofstream(file) << bytes;
        lines.clear();
        EXPECT_EQ(cfgOpen("bad.xml", 0), nullptr) << bytes;
        ASSERT_EQ(lines.size(), 1u) << bytes;
        EXPECT_NE(lines[0].second.find(file.string()), std::string::npos) << bytes;
        EXPECT_EQ(fileBytes(file), bytes);
    }
    lines.clear();
    EXPECT_EQ(cfgOpen("absent.xml", 0), nullptr);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].second.find("absent.xml"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "absent.xml"));
}

int exitStatus(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

TEST_F(ConfigTest, TwoProcessesWritingAtOnceLoseNothing)
{
    constexpr unsigned kEach = 150;
    pid_t writers[2];
    for (unsigned w = 0; w < 2; ++w)
        if ((writers[w] = fork()) == 0) {
            int failures = 0;
            for (unsigned i = w * kEach; i < (w + 1) * kEach; ++i)
                failures |= writeNumber(QRV_CFG_DEFAULT, "Race", std::to_string(i).c_str(), i);
            _exit(failures == 0 ? 0 : 1);
        }
    for (pid_t writer : writers)
        EXPECT_EQ(exitStatus(writer), 0);
    for (unsigned i = 0; i < 2 * kEach; ++i) {
        unsigned number = ~0u;
        EXPECT_EQ(readNumber(QRV_CFG_DEFAULT, "Race", std::to_string(i).c_str(), &number), 0);
        EXPECT_EQ(number, i);
    }
}

TEST_F(ConfigTest, AWrittenValueSurvivesAKilledWriter)
{
    const pid_t child = fork();
    if (child == 0) {
        writeText(QRV_CFG_DEFAULT, kKey, "Title", "before the crash");
        kill(getpid(), SIGKILL);
    }
    EXPECT_TRUE(WIFSIGNALED(exitStatus(child)));
    EXPECT_EQ(readText(QRV_CFG_DEFAULT, kKey, "Title"), "before the crash");
}

TEST_F(ConfigTest, TheDirectoryMayMoveOrBeEmptiedBetweenCalls)
{
    unsigned number = 0;
    useDirectory(dir_ / "first");
    EXPECT_EQ(writeNumber(QRV_CFG_DEFAULT, "K", "V", 1), 0);
    useDirectory(dir_ / "second");
    EXPECT_NE(readNumber(QRV_CFG_DEFAULT, "K", "V", &number), 0);
    EXPECT_EQ(writeNumber(QRV_CFG_DEFAULT, "K", "V", 2), 0);
    useDirectory(dir_ / "first");
    EXPECT_EQ(readNumber(QRV_CFG_DEFAULT, "K", "V", &number), 0);
    EXPECT_EQ(number, 1u);
    EXPECT_TRUE(std::filesystem::exists(dir_ / "second" / "config.sqlite"));
    // A database deleted between calls is gone, and the next write makes a
    // new one at the same path.
    std::filesystem::remove_all(dir_ / "first");
    EXPECT_NE(readNumber(QRV_CFG_DEFAULT, "K", "V", &number), 0);
    EXPECT_EQ(writeNumber(QRV_CFG_DEFAULT, "K", "V", 3), 0);
    EXPECT_TRUE(std::filesystem::exists(dir_ / "first" / "config.sqlite"));
}

} // namespace
