/* The XML file store against what goes wrong around it: a file with bytes
 * after its root element, and temporaries left by a save that was killed. */
#include "host_test_support.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace {

using ConfigFileTest = qrvtest::HostTest;

std::string fileBytes(const std::filesystem::path &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::filesystem::path &path, const std::string &bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::set<std::string> filesIn(const std::filesystem::path &dir)
{
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(dir))
        names.insert(entry.path().filename().string());
    return names;
}

/* What a shorter file written over a longer one without truncation leaves,
 * junk, and bytes hidden behind a zero byte: each would be lost by the next
 * save, so each file is refused whole. */
TEST_F(ConfigFileTest, AFileWithAnythingAfterItsRootElementIsRefusedAndLeftUntouched)
{
    const std::string kStore = "<?xml version=\"1.0\"?>\n<Config>\n  <Value Name=\"A\" "
                               "Type=\"dword\" Data=\"1\"/>\n</Config>\n";
    const std::string refused[] = {
        kStore + "ype=\"dword\" Data=\"2\"/>\n  </Key>\n</Config>\n",
        "<Config/>junk",
        "<Config/>\n<!-- a comment is fine -->\n tail",
        std::string("<Config/>\n\0<Value/>", 19),
    };
    const auto file = dir_ / "tail.xml";
    auto &lines = qrvtest::capturedLines;
    for (const std::string &bytes : refused) {
        writeBytes(file, bytes);
        lines.clear();
        EXPECT_EQ(cfgOpen("tail.xml", 0), nullptr) << bytes;
        ASSERT_EQ(lines.size(), 1u) << bytes;
        EXPECT_NE(lines[0].second.find(file.string()), std::string::npos) << lines[0].second;
        EXPECT_EQ(fileBytes(file), bytes);
    }
    // Trailing blanks and comments after the root are part of a good file.
    writeBytes(file, kStore + "<!-- end -->\n \t\r\n");
    cfgHandle store = cfgOpen("tail.xml", 0);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(cfgClose(store, 1), 0);
}

/* A temporary that another process is writing is locked by it; that is how
 * a live one is told from one left by a killed save. */
TEST_F(ConfigFileTest, StaleTemporariesGoWhenTheStoreIsOpenedOrSavedLiveOnesStay)
{
    const auto file = dir_ / "UserMetadata.xml";
    writeBytes(file, "<?xml version=\"1.0\"?>\n<Config/>\n");
    const std::set<std::string> kept = {"UserMetadata.xml",         "UserMetadata.xml.bak",
                                        "UserMetadata.xml.Ab12345", "UserMetadata.xml.Ab-123",
                                        "Other.xml.Ab1234",         "UserMetadata.xml.Li4ve0"};
    for (const std::string &name : kept)
        if (name != "UserMetadata.xml")
            writeBytes(dir_ / name, "<Config/>");
    const int live = open((dir_ / "UserMetadata.xml.Li4ve0").c_str(), O_RDONLY);
    ASSERT_EQ(flock(live, LOCK_EX), 0);
    writeBytes(dir_ / "UserMetadata.xml.aB3xZ9", "<?xml version=\"1.0\"?>\n<Conf");

    cfgHandle store = cfgOpen("UserMetadata.xml", 0);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(filesIn(dir_), kept);

    writeBytes(dir_ / "UserMetadata.xml.Zz0000", "");
    unsigned one = 1;
    EXPECT_EQ(cfgValueDword(store, "K", "V", &one, QRV_CFG_WRITE), 0);
    EXPECT_EQ(cfgClose(store, 1), 0);
    EXPECT_EQ(filesIn(dir_), kept);
    EXPECT_TRUE(qrvtest::capturedLines.empty());
    close(live);
}

} // namespace
