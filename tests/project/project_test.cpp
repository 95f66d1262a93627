// Project documents written to and read from real files through the built-in
// host services.

#include <qrvutil/project.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void spit(const fs::path &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::string get(int (CKXProjectToXML::*getter)(char *), CKXProjectToXML &project)
{
    char out[QRV_PROJECT_PATH_MAX];
    (project.*getter)(out);
    return out;
}

// A fresh directory per test, with a "media" folder that the lists live in.
class Project : public ::testing::Test {
  protected:
    void SetUp() override
    {
        fs::remove_all(dir);
        fs::create_directories(dir / "media");
    }

    fs::path dir = fs::path(QRV_TEST_TMP_DIR) / "project" /
                   ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::string xmlName = (dir / "show.xml").string(),
                clipName = (dir / "media" / "reel.clp").string();
    std::string edlName = (dir / "media" / "cut.edl").string();
};

TEST_F(Project, NewDocumentAndSettings)
{
    CKXProjectToXML project;
    project.SetXMLName(xmlName.data());
    EXPECT_EQ(project.SaveXMLFile(), 1);
    EXPECT_EQ(slurp(xmlName),
              "<?xml version=\"1.0\" ?>\n<ClipList />\n<EdlList />\n<Settings />\n");

    char rate[] = "Rate", odd[] = "Odd", big[] = "Big", none[] = "None", text[] = "12abc";
    project.SetConfigDWORD(rate, 30);
    project.SetConfigString(odd, text);
    project.SetConfigDWORD(big, 4000000000u); // stored as "-294967296"
    char out[16] = "untouched";
    project.GetConfigString(none, out);
    EXPECT_STREQ(out, "untouched");
    project.GetConfigString(rate, out);
    EXPECT_STREQ(out, "30");
    EXPECT_EQ(project.GetConfigDWORD(odd), 12u);
    EXPECT_EQ(project.GetConfigDWORD(none), 0u);
    EXPECT_EQ(project.GetConfigDWORD(big), 4000000000u);

    std::string longName(2000, 'x'); // cut to fit the object's buffer
    project.SetXMLName(longName.data());
    EXPECT_EQ(get(&CKXProjectToXML::GetXMLName, project), longName.substr(0, 1023));
}

// The clip list was moved next to the project and edited there; the EDL is
// gone. Loading finds the first and recreates the second from its copy.
TEST_F(Project, MovedListsAreFoundAndLostOnesRecreated)
{
    const std::string clipText = "reel 1\r\n\"A\" & <B>\t'c'\n\xc3\xa9\n",
                      edlText = "001  AX V C\n";
    spit(clipName, clipText);
    spit(edlName, edlText);
    {
        CKXProjectToXML project;
        project.SetXMLName(xmlName.data());
        project.SetClipFile(clipName.data());
        project.SetEDLName(edlName.data());
        ASSERT_EQ(project.SaveXMLFile(), 1);
    }
    fs::remove_all(dir / "media");
    spit(dir / "reel.clp", "edited after the move\n");
    CKXProjectToXML project;
    EXPECT_EQ(project.LoadXMLFile(xmlName.data()), 1);
    EXPECT_EQ(get(&CKXProjectToXML::GetClipFile, project), (dir / "reel.clp").string());
    EXPECT_EQ(get(&CKXProjectToXML::GetEDLName, project), (dir / "cut.edl").string());
    EXPECT_EQ(slurp(dir / "reel.clp"), "edited after the move\n");
    EXPECT_EQ(slurp(dir / "cut.edl"), edlText);

    fs::remove(dir / "reel.clp");
    EXPECT_EQ(project.LoadXMLFile(xmlName.data()), 1);
    EXPECT_EQ(slurp(dir / "reel.clp"), clipText);
}

// A loaded file may lack elements: they read as empty, and a setter creates
// them in file order.
TEST_F(Project, LoadedDocumentsWithoutSomeElements)
{
    spit(xmlName, "<?xml version=\"1.0\" ?>\n<Settings Rate=\"25\" />\n");
    spit(edlName, "x");
    CKXProjectToXML project;
    ASSERT_EQ(project.LoadXMLFile(xmlName.data()), 1);
    EXPECT_EQ(get(&CKXProjectToXML::GetClipFile, project), "");
    char scan[] = "Scan", value[] = "i";
    project.SetEDLName(edlName.data());
    project.SetConfigString(scan, value); // goes to the loaded Settings
    ASSERT_EQ(project.SaveXMLFile(), 1);
    EXPECT_EQ(slurp(xmlName), "<?xml version=\"1.0\" ?>\n<EdlList EdlName=\"" + edlName +
                                  "\" Data=\"x\" />\n<Settings Rate=\"25\" Scan=\"i\" />\n");
    std::string missing = (dir / "absent.xml").string();
    EXPECT_EQ(project.LoadXMLFile(missing.data()), 0);
}

} // namespace
