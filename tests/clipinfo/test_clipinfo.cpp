// The clip information record (reset, merge, display names, timecode types
// in free text) and its persistence in the real default store and a real
// "UserMetadata.xml", across processes and across a writer killed midway.
// Child processes are this program run again with QRV_CLIPINFO_CHILD set.
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
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>

namespace {

using Generations = std::set<unsigned>;

char *owned(const std::string &text)
{
    return std::strcpy(static_cast<char *>(hostAlloc(text.size() + 1)), text.c_str());
}

// Generation g of the test metadata (0: an empty record): "g<g>:<slot>"
// texts, slot 13 the empty string (stored as such), and g * 100 + slot
// numbers; with `sparse` every third slot is unset.
struct Record {
    QRVINFO info{};
    explicit Record(unsigned g = 0, bool sparse = false)
    {
        qrvInfoDelete(&info);
        for (int slot = 0; g != 0 && slot < QRVINFO_TEXT_SLOTS; ++slot)
            if (!sparse || slot % 3 != 0)
                info.text[slot] = owned(
                    slot == 13 ? "" : "g" + std::to_string(g) + ":" + std::to_string(slot));
        for (int slot = 0; g != 0 && slot < QRVINFO_NUMERIC_SLOTS; ++slot)
            info.numeric[slot] = sparse && slot % 3 == 0 ? QRVINFO_NOT_SET : g * 100 + slot;
    }
    ~Record() { qrvInfoDelete(&info); }
};

// The generations the slots of a record came from (0: not ours), leaving out
// those never stored.
Generations generationsIn(const QRVINFO &info)
{
    Generations seen;
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        seen.insert(info.numeric[slot] % 100 == unsigned(slot) ? info.numeric[slot] / 100 : 0);
    for (int slot = 5; slot < QRVINFO_TEXT_SLOTS; ++slot)
        if (const char *t = info.text[slot];
            slot != 13 && slot != 80 && slot != QRVINFO_TEXT_VERSION)
            seen.insert(t && std::strstr(t, (":" + std::to_string(slot)).c_str()) ? std::atoi(t + 1)
                                                                                  : 0);
    EXPECT_STREQ(info.text[13], "");
    return seen;
}

// The sanitizer build's leak checker sees any block a reset or merge drops.
TEST(ClipInfo, DeleteResetsAndSetMergesByTheLocatorRule)
{
    Record empty, dst(1), src(2, true);
    EXPECT_EQ(empty.info.numeric[27], QRVINFO_NOT_SET);
    EXPECT_EQ(empty.info.numeric[0] | empty.info.numeric[2] | empty.info.numeric[5] |
                  empty.info.numeric[6],
              0u);
    EXPECT_EQ(empty.info.ReservedMax, 0x7FFFFFFFu);

    hostFree(dst.info.text[1]);
    dst.info.text[1] = nullptr;
    EXPECT_EQ(qrvInfoSet(&dst.info, &src.info), 0);
    EXPECT_EQ(qrvInfoSet(&dst.info, &dst.info), 0); // must not free what it would copy
    EXPECT_STREQ(dst.info.text[2], "g1:2");         // a locator is never replaced,
    EXPECT_STREQ(dst.info.text[1], "g2:1");         // only filled in
    EXPECT_NE(dst.info.text[1], src.info.text[1]);
    EXPECT_STREQ(dst.info.text[8], "g2:8");
    EXPECT_EQ(generationsIn(dst.info), (Generations{1, 2})); // unset source slots keep theirs
    qrvInfoDelete(&dst.info);
    EXPECT_EQ(dst.info.text[8], nullptr);
}

TEST(ClipInfo, DescriptionsUseTheDisplayNumbering)
{
    const std::pair<unsigned, const char *> cases[] = {
        {13, "Comments"},
        {14, "Owner"},
        {44, "SpecialPlaybackRequirements"},
        {78, "ProxyFile"},
        {79, "Unk(79) "},
        {4096, "Unk(4096) "},
        {4097, "TimeCode"},
        {4129, "CustomMetadataBlockType"},
        {4130, "Unk(4130) "},
        {0x1001E, "ResKorvane"},
        {0x10022, "AudioBits"},
        {0x10023, "Unk(65571) "},
        {0x80000000u, "Unk(-2147483648) "},
    };
    for (const auto &[index, name] : cases) {
        // Exactly the documented size, so the sanitizer build sees an overrun.
        std::unique_ptr<char[]> out(new char[QRVINFO_DESCRIPTION_SIZE]);
        EXPECT_EQ(qrvInfoGetDescription(index, out.get()),
                  name[std::strlen(name) - 1] == ' ' ? -1 : 0);
        EXPECT_STREQ(out.get(), name);
    }
}

TEST(ClipInfo, TimecodeTypeFromText)
{
    const std::pair<const char *, unsigned> cases[] = {
        {"TcType=\"non-drop-frame\"", 4},
        {"<clip tctype=xpal>", 8},
        {"TcType=\"FILM\"", 1},
        {"TcType=\"Film-Drop\"", 128},
        {"TCTYPE='23.98'", 132},
        {"TcType=\"59.94\"", 32},
        {"TcType=\"50i\"", 16},
        {"TcType=\"fil", 0},
        {"TcType=", 0},
        {"tcType=\"pal\"", 0},
        {"TCTYPE=\"pal\" tctype=\"film\"", 1},
    };
    EXPECT_EQ(sqrvInfoFindTcType(nullptr), 0u);
    for (const auto &[text, type] : cases) {
        // A block of exactly the text's length, so an overread shows.
        std::unique_ptr<char[]> block(new char[std::strlen(text) + 1]);
        EXPECT_EQ(sqrvInfoFindTcType(std::strcpy(block.get(), text)), type) << text;
    }
}

// A child prints its process id, then stores generations 1, 2, ... up to
// the number it was given (0: for ever), printing each once it is stored.
const bool childMode = [] {
    unsigned last = 0;
    const char *mode = std::getenv("QRV_CLIPINFO_CHILD");
    if (mode == nullptr || std::sscanf(mode, "%u", &last) != 1)
        return false;
    std::printf("%d\n", getpid());
    for (unsigned g = 1; last == 0 || g <= last; ++g) {
        Record r(g);
        qrvInfoWriteReg(&r.info, 1, 0);
        std::printf("%u\n", g);
        std::fflush(stdout);
    }
    std::_Exit(0);
}();

FILE *startChild(unsigned generations)
{
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    return popen(
        ("env QRV_CLIPINFO_CHILD=" + std::to_string(generations) + " '" + self + "'").c_str(), "r");
}

// The last number a child printed before it ended.
unsigned lastPrinted(FILE *child, unsigned last = 0)
{
    for (unsigned n; std::fscanf(child, "%u", &n) == 1;)
        last = n;
    return last;
}

// Each test gets a fresh per-user directory: an empty store and no user file.
class ClipInfoStore : public ::testing::Test {
  protected:
    void SetUp() override
    {
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        setenv("QRVUTIL_CONFIG_DIR", dir.c_str(), 1);
    }
    // Loading from the default store happens only once this switch exists.
    void createSwitch()
    {
        unsigned value = 0;
        cfgValueDword(QRV_CFG_DEFAULT, "Ovalbrook\\MetaData", "XMLDisable", &value, QRV_CFG_WRITE);
    }
    // Loads into an empty record: slots never stored stay null, and the
    // version text is always the library's.
    Generations loaded(int fromUserFile = 0)
    {
        Record r;
        qrvInfoReadReg(&r.info, 1, fromUserFile);
        for (int slot : {0, 1, 2, 3, 4, 80})
            EXPECT_EQ(r.info.text[slot], nullptr) << slot;
        EXPECT_STREQ(r.info.text[QRVINFO_TEXT_VERSION], "6.0.0.173");
        return generationsIn(r.info);
    }
    const std::string dir = std::string(QRV_TEST_TMP_DIR) + "/clipinfo-store/" +
                            ::testing::UnitTest::GetInstance()->current_test_info()->name();
    const std::string userFile = dir + "/UserMetadata.xml";
};

TEST_F(ClipInfoStore, SeedsOverlaysAndWritesAUserFileOnlyWhenItExists)
{
    Record seed(3), sparse(8, true), overlaid(1), inFile(5);
    qrvInfoReadReg(&seed.info, 1, 0); // no switch: the record seeds the store
    EXPECT_STREQ(seed.info.text[QRVINFO_TEXT_VERSION], "g3:58");
    createSwitch();
    EXPECT_EQ(loaded(1), Generations{3}); // no user file: the store alone

    // Unset slots are deleted from the store, so a load keeps older values.
    qrvInfoWriteReg(&sparse.info, 1, 1);
    qrvInfoReadReg(&overlaid.info, 1, 0);
    EXPECT_EQ(generationsIn(overlaid.info), (Generations{1, 8}));
    EXPECT_FALSE(std::filesystem::exists(userFile));

    std::ofstream(userFile) << "<?xml version=\"1.0\"?>\n<Config/>\n"; // an empty store
    qrvInfoWriteReg(&inFile.info, 0, 1);
    EXPECT_EQ(loaded(1), Generations{5});
    EXPECT_EQ(loaded(0), (Generations{0, 8}));
}

TEST_F(ClipInfoStore, AnotherProcessWritesOrIsKilledMidway)
{
    createSwitch();
    FILE *child = startChild(7);
    EXPECT_EQ(lastPrinted(child), 7u);
    ASSERT_EQ(pclose(child), 0);
    EXPECT_EQ(loaded(), Generations{7});

    child = startChild(0);
    unsigned pid = 0, stored = 0;
    ASSERT_EQ(std::fscanf(child, "%u %u %u", &pid, &stored, &stored), 3); // two generations stored
    kill(static_cast<pid_t>(pid), SIGKILL);
    const unsigned last = lastPrinted(child, stored);
    pclose(child);
    // Every slot holds the last finished generation or the one under way.
    for (unsigned g : loaded())
        EXPECT_TRUE(g == last || g == last + 1) << g << " after " << last;
}

// The switch written by qrvInfoMarkSeeded turns the first read into a load.
TEST_F(ClipInfoStore, AMarkedStoreLoadsInsteadOfBeingSeeded)
{
    Record r(3);
    EXPECT_EQ(qrvInfoMarkSeeded(), QRV_OK);
    qrvInfoReadReg(&r.info, 1, 0);
    EXPECT_STREQ(r.info.text[QRVINFO_TEXT_VERSION_STRING], "6.0.0.173"); // loaded, not seeded
    unsigned size = 0;
    EXPECT_NE(cfgValueString(QRV_CFG_DEFAULT, "Ovalbrook\\MetaData\\Default", "Title", nullptr,
                             &size, QRV_CFG_READ),
              0);

    const std::string blocked = dir + "/file";
    std::ofstream(blocked) << "not a directory";
    setenv("QRVUTIL_CONFIG_DIR", (blocked + "/sub").c_str(), 1);
    EXPECT_EQ(qrvInfoMarkSeeded(), QRV_E_IO);
}

// A user file the store cannot read is skipped by loads and stores alike,
// and never rewritten.
TEST_F(ClipInfoStore, AMalformedUserFileIsNeverOverwritten)
{
    Record r(4);
    for (const char *bytes :
         {"<Config><Key Name=\"a\"></Config>", "<Config/>\ntail of an older file"}) {
        std::ofstream(userFile) << bytes;
        qrvInfoWriteReg(&r.info, 0, 1);
        qrvInfoReadReg(&r.info, 0, 1);
        std::ifstream in(userFile);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), bytes);
    }
}

// A writer storing generation after generation is killed at random moments;
// each time the store holds one whole record: the last one acknowledged, or
// the one under way (when the kill came after its commit).
TEST_F(ClipInfoStore, AWriterKilledAgainAndAgainNeverLeavesAHalfWrittenRecord)
{
    createSwitch();
    Record first(1);
    qrvInfoWriteReg(&first.info, 1, 0);
    unsigned whole = 1, next = 2;
    std::minstd_rand random(20261125);
    for (int round = 0; round < 12; ++round) {
        int acks[2];
        ASSERT_EQ(pipe(acks), 0);
        const pid_t writer = fork();
        if (writer == 0) {
            for (unsigned g = next;; ++g) {
                Record r(g);
                qrvInfoWriteReg(&r.info, 1, 0);
                if (write(acks[1], &g, sizeof g) != sizeof g)
                    _exit(1);
            }
        }
        close(acks[1]);
        usleep(2000 + random() % 30000);
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        unsigned underWay = next;
        for (unsigned g; read(acks[0], &g, sizeof g) == sizeof g; underWay = g + 1)
            whole = g;
        close(acks[0]);
        const Generations seen = loaded();
        ASSERT_TRUE(seen == Generations{whole} || seen == Generations{underWay})
            << "round " << round << ": " << seen.size() << " generations, first " << *seen.begin()
            << ", last acknowledged " << whole;
        whole = *seen.begin();
        next = underWay + 1;
    }
}

} // namespace
