// Clip information in the real default store and in a real per-user
// "UserMetadata.xml", across processes and across a writer killed midway.
// Child processes are this program re-executed with QRV_CLIPINFO_CHILD set.
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

constexpr char kDefaultsKey[] = "Ovalbrook\\MetaData\\Default";
constexpr char kMetaDataKey[] = "Ovalbrook\\MetaData";
constexpr char kChildVariable[] = "QRV_CLIPINFO_CHILD";

// Slots that hold a clip's own location, and the unnamed one, are never stored.
bool isStoredText(int slot)
{
    return slot >= 5 && slot != 80;
}

// Every generation of test metadata differs in every slot. One text slot is
// the empty string, which is stored as such (it is not unset).
std::string textFor(unsigned generation, int slot)
{
    return slot == 13 ? "" : "g" + std::to_string(generation) + ":" + std::to_string(slot);
}

uint32_t numberFor(unsigned generation, int slot)
{
    return generation * 100 + static_cast<uint32_t>(slot);
}

// With `sparse`, every third slot is left unset.
void fill(QRVINFO &info, unsigned generation, bool sparse = false)
{
    qrvInfoDelete(&info);
    for (int slot = 0; slot < QRVINFO_TEXT_SLOTS; ++slot) {
        if (sparse && slot % 3 == 0)
            continue;
        const std::string text = textFor(generation, slot);
        info.text[slot] = static_cast<char *>(hostAlloc(text.size() + 1));
        std::memcpy(info.text[slot], text.c_str(), text.size() + 1);
    }
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        info.numeric[slot] = sparse && slot % 3 == 0 ? QRVINFO_NOT_SET : numberFor(generation, slot);
}

struct Record {
    QRVINFO info{};
    Record() { qrvInfoDelete(&info); }
    explicit Record(unsigned generation, bool sparse = false) { fill(info, generation, sparse); }
    ~Record() { qrvInfoDelete(&info); }
};

// The generation each stored slot of a loaded record came from (0 for a slot
// that is not one of ours), the version text aside.
std::set<unsigned> generationsIn(const QRVINFO &info)
{
    std::set<unsigned> seen;
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot) {
        const unsigned generation = info.numeric[slot] / 100;
        seen.insert(numberFor(generation, slot) == info.numeric[slot] ? generation : 0);
    }
    for (int slot = 0; slot < QRVINFO_TEXT_SLOTS; ++slot) {
        if (!isStoredText(slot) || slot == QRVINFO_TEXT_VERSION || slot == 13)
            continue;
        const char *text = info.text[slot];
        const unsigned generation = text && text[0] == 'g' ? std::atoi(text + 1) : 0;
        seen.insert(text && textFor(generation, slot) == text ? generation : 0);
    }
    return seen;
}

std::string orNull(const char *text)
{
    return text ? text : "(null)";
}

void expectLoaded(const QRVINFO &info, unsigned generation)
{
    EXPECT_EQ(generationsIn(info), std::set<unsigned>{generation});
    for (int slot = 0; slot < QRVINFO_TEXT_SLOTS; ++slot) {
        if (!isStoredText(slot)) {
            EXPECT_EQ(info.text[slot], nullptr) << slot;
        }
    }
    ASSERT_NE(info.text[13], nullptr);
    EXPECT_STREQ(info.text[13], "");
    ASSERT_NE(info.text[QRVINFO_TEXT_VERSION], nullptr);
    EXPECT_STREQ(info.text[QRVINFO_TEXT_VERSION], "6.0.0.173");
}

// Loading from the default store happens only once the switch exists.
void setSeededSwitch(bool present)
{
    unsigned value = 0;
    if (present)
        ASSERT_EQ(cfgValueDword(QRV_CFG_DEFAULT, kMetaDataKey, "XMLDisable", &value, QRV_CFG_WRITE), 0);
    else
        cfgDeleteValue(QRV_CFG_DEFAULT, kMetaDataKey, "XMLDisable");
}

std::string userFilePath()
{
    return std::string(std::getenv("QRVUTIL_CONFIG_DIR")) + "/UserMetadata.xml";
}

// An empty store in the layout of the host's configuration files.
void createUserFile()
{
    std::ofstream(userFilePath()) << "<?xml version=\"1.0\"?>\n<Config/>\n";
}

// Child modes: "write G S U" writes generation G once; "loop S U" writes
// generations 1, 2, ... for ever, printing each number once it is written.
// S and U select the default store and the user file.
struct ChildMode {
    ChildMode()
    {
        const char *mode = std::getenv(kChildVariable);
        if (mode == nullptr)
            return;
        unsigned generation = 0;
        int toStore = 0, toUser = 0;
        if (std::sscanf(mode, "write %u %d %d", &generation, &toStore, &toUser) == 3) {
            Record r(generation);
            qrvInfoWriteReg(&r.info, toStore, toUser);
            std::_Exit(0);
        }
        if (std::sscanf(mode, "loop %d %d", &toStore, &toUser) == 2) {
            for (generation = 1;; ++generation) {
                Record r(generation);
                qrvInfoWriteReg(&r.info, toStore, toUser);
                std::printf("%u\n", generation);
                std::fflush(stdout);
            }
        }
        std::_Exit(2);
    }
} childMode;

// Starts this program in a child mode with its standard output on a pipe.
pid_t startChild(const std::string &mode, FILE **output)
{
    int fds[2];
    if (pipe(fds) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], STDOUT_FILENO);
        close(fds[0]);
        close(fds[1]);
        setenv(kChildVariable, mode.c_str(), 1);
        execl("/proc/self/exe", "/proc/self/exe", static_cast<char *>(nullptr));
        std::_Exit(127);
    }
    close(fds[1]);
    *output = fdopen(fds[0], "r");
    return pid;
}

int runChild(const std::string &mode)
{
    FILE *output = nullptr;
    const pid_t pid = startChild(mode, &output);
    int status = -1;
    waitpid(pid, &status, 0);
    if (output)
        std::fclose(output);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs the writer loop until it has finished `completed` generations, kills
// it while it writes the next one, and returns the last generation it
// reported finished.
unsigned killWriterMidway(const std::string &mode, unsigned completed)
{
    FILE *output = nullptr;
    const pid_t pid = startChild(mode, &output);
    unsigned last = 0;
    while (last < completed && std::fscanf(output, "%u", &last) == 1) {
    }
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    for (unsigned more; std::fscanf(output, "%u", &more) == 1;)
        last = more;
    std::fclose(output);
    EXPECT_TRUE(WIFSIGNALED(status));
    return last;
}

// Each test gets a fresh per-user directory, so the default store and the
// user file start out empty.
class ClipInfoStore : public ::testing::Test {
protected:
    void SetUp() override
    {
        const auto *test = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::string(QRV_TEST_TMP_DIR) + "/clipinfo-store/" + test->name() + "-" +
               std::to_string(getpid());
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
        setenv("QRVUTIL_CONFIG_DIR", dir_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }

    std::string dir_;
};

TEST_F(ClipInfoStore, MetadataWrittenByOneProcessLoadsInAnother)
{
    setSeededSwitch(true);
    ASSERT_EQ(runChild("write 7 1 0"), 0);

    Record loaded;
    EXPECT_EQ(qrvInfoReadReg(&loaded.info, 1, 0), 0);
    expectLoaded(loaded.info, 7);

    // The written version text is stored, but a load reports the library's.
    char stored[32] = {};
    unsigned size = sizeof stored;
    EXPECT_EQ(cfgValueString(QRV_CFG_DEFAULT, kDefaultsKey, "VersionString", stored, &size,
                             QRV_CFG_READ),
              0);
    EXPECT_STREQ(stored, "g7:58");

    // Writing mirrors the record: unset slots are deleted, so loading over
    // older values leaves those values in place.
    Record sparse(8, true);
    qrvInfoWriteReg(&sparse.info, 1, 0);
    Record overlaid(1);
    qrvInfoReadReg(&overlaid.info, 1, 0);
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        EXPECT_EQ(overlaid.info.numeric[slot], numberFor(slot % 3 == 0 ? 1 : 8, slot)) << slot;
    for (int slot = 5; slot < QRVINFO_TEXT_SLOTS; ++slot) {
        if (slot != QRVINFO_TEXT_VERSION) {
            EXPECT_EQ(orNull(overlaid.info.text[slot]),
                      textFor(slot % 3 == 0 || slot == 80 ? 1 : 8, slot))
                << slot;
        }
    }
}

TEST_F(ClipInfoStore, StoreWithoutSwitchIsSeededFromTheRecord)
{
    setSeededSwitch(false);
    Record defaults(3);
    EXPECT_EQ(qrvInfoReadReg(&defaults.info, 1, 0), 0);
    EXPECT_STREQ(defaults.info.text[QRVINFO_TEXT_VERSION], "g3:58"); // nothing was loaded
    EXPECT_EQ(cfgValueDword(QRV_CFG_DEFAULT, kMetaDataKey, "XMLDisable", nullptr, QRV_CFG_READ),
              1); // the switch is the host's to create

    setSeededSwitch(true);
    Record loaded;
    qrvInfoReadReg(&loaded.info, 1, 0);
    expectLoaded(loaded.info, 3);
}

int g_userFileOpens;
cfgHandle countingOpen(const char *, int)
{
    ++g_userFileOpens;
    return nullptr;
}

TEST_F(ClipInfoStore, UserFileIsUsedOnlyWhenItExists)
{
    qrvHostServices counting{};
    counting.cfgOpen = countingOpen;
    qrvSetHostServices(&counting);
    Record record(5);
    qrvInfoWriteReg(&record.info, 0, 1);
    Record untouched(6);
    qrvInfoReadReg(&untouched.info, 0, 1);
    qrvResetHostServices();
    EXPECT_EQ(g_userFileOpens, 0);
    EXPECT_FALSE(std::filesystem::exists(userFilePath()));
    EXPECT_EQ(generationsIn(untouched.info), std::set<unsigned>{6});

    // Present: written, and its values override the default store's.
    setSeededSwitch(true);
    Record storeDefaults(4);
    qrvInfoWriteReg(&storeDefaults.info, 1, 0);
    createUserFile();
    qrvInfoWriteReg(&record.info, 0, 1);
    Record loaded;
    qrvInfoReadReg(&loaded.info, 1, 1);
    expectLoaded(loaded.info, 5);
}

TEST_F(ClipInfoStore, WriterKilledMidwayLeavesEarlierValuesInTheStore)
{
    setSeededSwitch(true);
    const unsigned last = killWriterMidway("loop 1 0", 2);
    ASSERT_GE(last, 2u);

    // Every slot holds the last finished generation or the one under way.
    Record loaded;
    qrvInfoReadReg(&loaded.info, 1, 0);
    const std::set<unsigned> seen = generationsIn(loaded.info);
    EXPECT_FALSE(seen.empty());
    for (unsigned generation : seen)
        EXPECT_TRUE(generation == last || generation == last + 1) << generation;
}

TEST_F(ClipInfoStore, WriterKilledMidwayLeavesTheUserFileWhole)
{
    createUserFile();
    const unsigned last = killWriterMidway("loop 0 1", 3);
    ASSERT_GE(last, 3u);

    // The file is replaced whole, so it holds exactly one generation.
    Record loaded;
    qrvInfoReadReg(&loaded.info, 0, 1);
    const std::set<unsigned> seen = generationsIn(loaded.info);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_TRUE(*seen.begin() == last || *seen.begin() == last + 1) << *seen.begin();
}

} // namespace
