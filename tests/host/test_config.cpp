#include "host_test_support.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace {

using qrvtest::HostTest;
using qrvtest::loggedContaining;
using ConfigTest = HostTest;

constexpr char kKey[] = "Ovalbrook\\MetaData\\Default";

std::string fileBytes(const std::filesystem::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void writeFile(const std::filesystem::path &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

ino_t inodeOf(const std::filesystem::path &path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

int writeText(cfgHandle store, const char *key, const char *name, const char *text)
{
    unsigned size = unsigned(std::strlen(text)) + 2;
    return cfgValueString(store, key, name, const_cast<char *>(text), &size, QRV_CFG_WRITE);
}

int writeNumber(cfgHandle store, const char *key, const char *name, unsigned value)
{
    return cfgValueDword(store, key, name, &value, QRV_CFG_WRITE);
}

/* Reads a string the way the library does: ask the size, then read into a
 * block of size + 4. */
std::string readText(cfgHandle store, const char *key, const char *name, int *result)
{
    unsigned size = 0;
    *result = cfgValueString(store, key, name, nullptr, &size, QRV_CFG_READ);
    if (*result != 0)
        return "<missing>";
    std::string buffer(size + 4, '#');
    *result = cfgValueString(store, key, name, &buffer[0], &size, QRV_CFG_READ);
    return buffer.c_str();
}

/* The rules both kinds of store share. */
void checkValueRules(cfgHandle store)
{
    int result = 0;
    unsigned number = 0;
    EXPECT_EQ(readText(store, kKey, "Missing", &result), "<missing>");

    ASSERT_EQ(writeNumber(store, kKey, "Count", 0xFFFFFFFEu), 0);
    EXPECT_EQ(cfgValueDword(store, "\\Ovalbrook\\\\MetaData\\Default\\", "Count", &number, QRV_CFG_READ), 0);
    EXPECT_EQ(number, 0xFFFFFFFEu);
    EXPECT_EQ(cfgValueDword(store, kKey, "Count", nullptr, QRV_CFG_READ), 0);

    const std::string odd = "  <a & \"b\" 'c'>\n\t\x01\xe9 end  ";
    ASSERT_EQ(writeText(store, kKey, "Title", odd.c_str()), 0);
    EXPECT_EQ(readText(store, kKey, "Title", &result), odd);
    EXPECT_EQ(result, 0);
    ASSERT_EQ(writeText(store, kKey, "Empty", ""), 0);
    unsigned size = 77;
    EXPECT_EQ(cfgValueString(store, kKey, "Empty", nullptr, &size, QRV_CFG_READ), 0);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(readText(store, kKey, "Empty", &result), "");

    // The text ends at its terminator: nothing past it is read (the
    // sanitizer build checks the exact-size block).
    std::unique_ptr<char[]> exact(new char[3]{'h', 'i', '\0'});
    size = 4;
    ASSERT_EQ(cfgValueString(store, kKey, "Exact", exact.get(), &size, QRV_CFG_WRITE), 0);
    size = 5;
    ASSERT_EQ(cfgValueString(store, kKey, "Short", const_cast<char *>("abcdef"), &size, QRV_CFG_WRITE), 0);
    EXPECT_EQ(readText(store, kKey, "Exact", &result), "hi");
    EXPECT_EQ(readText(store, kKey, "Short", &result), "abcde");

    // A small buffer gets a cut, terminated copy and the size needed.
    char small[4] = {'#', '#', '#', '#'};
    size = 3;
    EXPECT_NE(cfgValueString(store, kKey, "Short", small, &size, QRV_CFG_READ), 0);
    EXPECT_STREQ(small, "ab");
    EXPECT_EQ(small[3], '#');
    EXPECT_EQ(size, 6u);

    // Types never convert.
    EXPECT_NE(cfgValueDword(store, kKey, "Title", &number, QRV_CFG_READ), 0);
    EXPECT_NE(cfgValueDword(store, kKey, "Title", nullptr, QRV_CFG_READ), 0);
    EXPECT_EQ(readText(store, kKey, "Count", &result), "<missing>");
    ASSERT_EQ(writeText(store, kKey, "Count", "now text"), 0);
    EXPECT_EQ(readText(store, kKey, "Count", &result), "now text");

    EXPECT_EQ(cfgDeleteValue(store, kKey, "Count"), 0);
    EXPECT_NE(cfgDeleteValue(store, kKey, "Count"), 0);
    EXPECT_EQ(readText(store, kKey, "Count", &result), "<missing>");
    EXPECT_EQ(readText(store, "Ovalbrook\\MetaData", "Title", &result), "<missing>");
}

TEST_F(ConfigTest, DefaultStoreFollowsTheValueRulesAndIsCreatedOnFirstWrite)
{
    const auto database = dir_ / "store" / "config.sqlite";
    useDirectory(dir_ / "store");
    unsigned number = 0;
    EXPECT_NE(cfgValueDword(QRV_CFG_DEFAULT, kKey, "Count", &number, QRV_CFG_READ), 0);
    EXPECT_NE(cfgDeleteValue(QRV_CFG_DEFAULT, kKey, "Count"), 0);
    EXPECT_FALSE(std::filesystem::exists(database));
    checkValueRules(QRV_CFG_DEFAULT);
    EXPECT_TRUE(std::filesystem::exists(database));
    EXPECT_TRUE(qrvtest::capturedLines().empty());
}

TEST_F(ConfigTest, XmlFileFollowsTheValueRulesAndKeepsThemAcrossSaves)
{
    const auto file = dir_ / "UserMetadata.xml";
    writeFile(file, "<?xml version=\"1.0\"?>\n<!-- kept -->\n<Config/>\n");
    cfgHandle store = cfgOpen("UserMetadata.xml", 0);
    ASSERT_NE(store, nullptr);
    checkValueRules(store);
    ASSERT_EQ(cfgClose(store, 1), 0);
    EXPECT_NE(fileBytes(file).find("<!-- kept -->"), std::string::npos);

    store = cfgOpen(file.c_str(), 0);
    ASSERT_NE(store, nullptr);
    int result = 0;
    EXPECT_EQ(readText(store, kKey, "Title", &result), "  <a & \"b\" 'c'>\n\t\x01\xe9 end  ");
    EXPECT_EQ(readText(store, kKey, "Empty", &result), "");
    EXPECT_EQ(cfgClose(store, 1), 0);
}

TEST_F(ConfigTest, XmlFileIsWrittenBackOnlyWhenChangedAndAskedTo)
{
    const auto file = dir_ / "UserMetadata.xml";
    writeFile(file, "<Config><Key Name=\"A\"><Value Name=\"N\" Type=\"dword\" Data=\"5\"/></Key></Config>");
    const std::string original = fileBytes(file);
    const ino_t inode = inodeOf(file);

    cfgHandle store = cfgOpen("UserMetadata.xml", 0);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(writeNumber(store, "A", "N", 5), 0);
    EXPECT_EQ(cfgClose(store, 1), 0);
    EXPECT_EQ(inodeOf(file), inode);

    store = cfgOpen("UserMetadata.xml", 0);
    EXPECT_EQ(writeNumber(store, "A", "N", 6), 0);
    EXPECT_EQ(cfgClose(store, 0), 0);
    EXPECT_EQ(fileBytes(file), original);

    store = cfgOpen("UserMetadata.xml", 0);
    EXPECT_EQ(writeNumber(store, "A", "N", 6), 0);
    EXPECT_EQ(cfgClose(store, 1), 0);
    EXPECT_NE(inodeOf(file), inode);
    EXPECT_NE(fileBytes(file).find("Data=\"6\""), std::string::npos);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 1);
}

TEST_F(ConfigTest, UnreadableXmlFilesAreRefusedAndLeftUntouched)
{
    const char *refused[] = {"<Config><Key Name=\"a\"></Config>", "<Other/>", "<Config/><Config/>", ""};
    const auto file = dir_ / "bad.xml";
    for (const char *bytes : refused) {
        writeFile(file, bytes);
        qrvtest::capturedLines().clear();
        EXPECT_EQ(cfgOpen("bad.xml", 0), nullptr) << bytes;
        EXPECT_TRUE(loggedContaining(file.string())) << bytes;
        EXPECT_EQ(fileBytes(file), bytes);
    }
    qrvtest::capturedLines().clear();
    EXPECT_EQ(cfgOpen("absent.xml", 0), nullptr);
    EXPECT_TRUE(loggedContaining("absent.xml"));
    EXPECT_FALSE(std::filesystem::exists(dir_ / "absent.xml"));
}

/* Runs `body` in a child process and returns its wait status. */
template <typename Body>
pid_t spawn(Body body)
{
    const pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    return pid;
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
    auto writer = [](unsigned first) {
        return [first] {
            int failures = 0;
            for (unsigned i = first; i < first + kEach; ++i)
                failures += writeNumber(QRV_CFG_DEFAULT, "Race", std::to_string(i).c_str(), i) != 0;
            return failures == 0 ? 0 : 1;
        };
    };
    const pid_t a = spawn(writer(0));
    const pid_t b = spawn(writer(kEach));
    EXPECT_EQ(exitStatus(a), 0);
    EXPECT_EQ(exitStatus(b), 0);
    for (unsigned i = 0; i < 2 * kEach; ++i) {
        unsigned number = ~0u;
        EXPECT_EQ(cfgValueDword(QRV_CFG_DEFAULT, "Race", std::to_string(i).c_str(), &number, QRV_CFG_READ), 0);
        EXPECT_EQ(number, i);
    }
}

TEST_F(ConfigTest, AWrittenValueSurvivesAKilledWriter)
{
    const pid_t child = spawn([] {
        writeText(QRV_CFG_DEFAULT, kKey, "Title", "before the crash");
        kill(getpid(), SIGKILL);
        return 0;
    });
    const int status = exitStatus(child);
    EXPECT_TRUE(WIFSIGNALED(status));
    int result = 0;
    EXPECT_EQ(readText(QRV_CFG_DEFAULT, kKey, "Title", &result), "before the crash");
}

TEST_F(ConfigTest, TheDirectoryMayMoveOrBeEmptiedBetweenCalls)
{
    useDirectory(dir_ / "first");
    EXPECT_EQ(writeNumber(QRV_CFG_DEFAULT, "K", "V", 1), 0);
    useDirectory(dir_ / "second");
    unsigned number = 0;
    EXPECT_NE(cfgValueDword(QRV_CFG_DEFAULT, "K", "V", &number, QRV_CFG_READ), 0);
    EXPECT_EQ(writeNumber(QRV_CFG_DEFAULT, "K", "V", 2), 0);
    useDirectory(dir_ / "first");
    EXPECT_EQ(cfgValueDword(QRV_CFG_DEFAULT, "K", "V", &number, QRV_CFG_READ), 0);
    EXPECT_EQ(number, 1u);
    EXPECT_TRUE(std::filesystem::exists(dir_ / "second" / "config.sqlite"));
    // A database deleted between calls is gone, and the next write makes a
    // new one at the same path.
    std::filesystem::remove_all(dir_ / "first");
    EXPECT_NE(cfgValueDword(QRV_CFG_DEFAULT, "K", "V", &number, QRV_CFG_READ), 0);
    EXPECT_EQ(writeNumber(QRV_CFG_DEFAULT, "K", "V", 3), 0);
    EXPECT_TRUE(std::filesystem::exists(dir_ / "first" / "config.sqlite"));
}

}  // namespace
