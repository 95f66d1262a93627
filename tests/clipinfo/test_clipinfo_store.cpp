// Clip information in the real default store and a real "UserMetadata.xml",
// across processes and across a writer killed midway. Child processes are
// this program re-executed with QRV_CLIPINFO_CHILD set.
#include <qrvutil/clipinfo.h>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

namespace {

// Generation g of the test metadata: "g<g>:<slot>" texts (slot 13 the empty
// string, which is stored as such) and g * 100 + slot numbers; with `sparse`
// every third slot is unset.
void fill(QRVINFO &info, unsigned g, bool sparse = false)
{
    qrvInfoDelete(&info);
    for (int slot = 0; slot < QRVINFO_TEXT_SLOTS; ++slot) {
        std::string text = slot == 13 ? "" : "g" + std::to_string(g) + ":" + std::to_string(slot);
        if (!sparse || slot % 3 != 0)
            info.text[slot] = std::strcpy(static_cast<char *>(hostAlloc(text.size() + 1)), text.c_str());
    }
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        info.numeric[slot] = sparse && slot % 3 == 0 ? QRVINFO_NOT_SET : g * 100 + slot;
}

struct Record {
    QRVINFO info{};
    explicit Record(unsigned g = 0) { g ? fill(info, g) : qrvInfoDelete(&info); }
    ~Record() { qrvInfoDelete(&info); }
};

// The generations the stored slots of a loaded record came from (0: not
// ours). The version text is always the library's.
std::set<unsigned> generationsIn(const QRVINFO &info)
{
    std::set<unsigned> seen;
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        seen.insert(info.numeric[slot] % 100 == unsigned(slot) ? info.numeric[slot] / 100 : 0);
    for (int slot = 5; slot < QRVINFO_TEXT_SLOTS; ++slot) {
        const char *t = info.text[slot];
        if (slot != 13 && slot != 80 && slot != QRVINFO_TEXT_VERSION)
            seen.insert(t && std::strstr(t, (":" + std::to_string(slot)).c_str()) ? std::atoi(t + 1) : 0);
    }
    EXPECT_STREQ(info.text[13], "");
    EXPECT_STREQ(info.text[QRVINFO_TEXT_VERSION], "6.0.0.173");
    return seen;
}

// Loading from the default store happens only once this switch exists.
void createSwitch()
{
    unsigned value = 0;
    cfgValueDword(QRV_CFG_DEFAULT, "Ovalbrook\\MetaData", "XMLDisable", &value, QRV_CFG_WRITE);
}

std::string userFile()
{
    return std::string(std::getenv("QRVUTIL_CONFIG_DIR")) + "/UserMetadata.xml";
}

// "write G" stores generation G once; "loop" stores generations 1, 2, ...
// for ever, printing each number once it is stored.
struct ChildMode {
    ChildMode()
    {
        const char *mode = std::getenv("QRV_CLIPINFO_CHILD");
        unsigned g = 0;
        if (mode && std::sscanf(mode, "write %u", &g) == 1) {
            Record r(g);
            std::_Exit(qrvInfoWriteReg(&r.info, 1, 0));
        }
        for (g = 1; mode && std::strcmp(mode, "loop") == 0; ++g) {
            Record r(g);
            qrvInfoWriteReg(&r.info, 1, 0);
            std::printf("%u\n", g);
            std::fflush(stdout);
        }
    }
} childMode;

pid_t startChild(const char *mode, FILE **output)
{
    int fds[2];
    if (pipe(fds) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        setenv("QRV_CLIPINFO_CHILD", mode, 1);
        execl("/proc/self/exe", "/proc/self/exe", static_cast<char *>(nullptr));
        std::_Exit(127);
    }
    close(fds[1]);
    *output = fdopen(fds[0], "r");
    return pid;
}

// Each test gets a fresh per-user directory: an empty store and no user file.
class ClipInfoStore : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir_ = std::string(QRV_TEST_TMP_DIR) + "/clipinfo-store/" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name() + "-" + std::to_string(getpid());
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
        setenv("QRVUTIL_CONFIG_DIR", dir_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string dir_;
};

TEST_F(ClipInfoStore, SeedsThenLoadsWhatAnotherProcessWrote)
{
    Record seed(3);
    qrvInfoReadReg(&seed.info, 1, 0); // no switch: the record seeds the store
    EXPECT_STREQ(seed.info.text[QRVINFO_TEXT_VERSION], "g3:58");
    createSwitch();
    Record seeded;
    qrvInfoReadReg(&seeded.info, 1, 0);
    EXPECT_EQ(generationsIn(seeded.info), std::set<unsigned>{3});

    FILE *output = nullptr;
    int status = -1;
    waitpid(startChild("write 7", &output), &status, 0);
    std::fclose(output);
    ASSERT_EQ(status, 0);
    Record loaded;
    qrvInfoReadReg(&loaded.info, 1, 0);
    EXPECT_EQ(generationsIn(loaded.info), std::set<unsigned>{7});
    for (int slot : {0, 1, 2, 3, 4, 80}) // never stored
        EXPECT_EQ(loaded.info.text[slot], nullptr) << slot;

    // Unset slots are deleted from the store, so a load keeps older values.
    Record sparse;
    fill(sparse.info, 8, true);
    qrvInfoWriteReg(&sparse.info, 1, 0);
    Record overlaid(1);
    qrvInfoReadReg(&overlaid.info, 1, 0);
    EXPECT_EQ(generationsIn(overlaid.info), (std::set<unsigned>{1, 8}));
    EXPECT_EQ(overlaid.info.numeric[3], 103u);
    EXPECT_STREQ(overlaid.info.text[7], "g8:7");
}

TEST_F(ClipInfoStore, UserFileIsUsedOnlyWhenItExists)
{
    createSwitch();
    Record inStore(4), inFile(5);
    qrvInfoWriteReg(&inStore.info, 1, 1);
    EXPECT_FALSE(std::filesystem::exists(userFile()));

    std::ofstream(userFile()) << "<?xml version=\"1.0\"?>\n<Config/>\n"; // an empty store
    qrvInfoWriteReg(&inFile.info, 0, 1);
    Record loaded, storeOnly;
    qrvInfoReadReg(&loaded.info, 1, 1);
    qrvInfoReadReg(&storeOnly.info, 1, 0);
    EXPECT_EQ(generationsIn(loaded.info), std::set<unsigned>{5});
    EXPECT_EQ(generationsIn(storeOnly.info), std::set<unsigned>{4});
}

TEST_F(ClipInfoStore, WriterKilledMidwayLeavesEarlierValues)
{
    createSwitch();
    FILE *output = nullptr;
    const pid_t pid = startChild("loop", &output);
    unsigned last = 0;
    while (last < 2 && std::fscanf(output, "%u", &last) == 1) {
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    for (unsigned more; std::fscanf(output, "%u", &more) == 1;)
        last = more;
    std::fclose(output);
    ASSERT_GE(last, 2u);

    // Every slot holds the last finished generation or the one under way.
    Record loaded;
    qrvInfoReadReg(&loaded.info, 1, 0);
    for (unsigned g : generationsIn(loaded.info))
        EXPECT_TRUE(g == last || g == last + 1) << g << " after " << last;
}

} // namespace
