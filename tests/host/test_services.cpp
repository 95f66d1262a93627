/* The host-services table: which layouts are taken, and how groups of store
 * calls reach a host's store and the built-in one. */
#include "host_test_support.h"

#include <qrvutil/clipinfo.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace {

using ServicesTest = qrvtest::HostTest;

std::string g_trace;

/* A host store that only records which calls reach it. */
int traceDword(cfgHandle, const char *, const char *, unsigned *, int direction)
{
    g_trace += direction == QRV_CFG_READ ? 'r' : 'w';
    return 1;
}
int traceString(cfgHandle, const char *, const char *, char *, unsigned *, int direction)
{
    g_trace += direction == QRV_CFG_READ ? 'r' : 'w';
    return 1;
}
int traceDelete(cfgHandle, const char *, const char *)
{
    g_trace += 'd';
    return 1;
}
int traceBegin(cfgHandle) { return g_trace += '(', QRV_OK; }
int traceEnd(cfgHandle) { return g_trace += ')', QRV_OK; }

void keepLine(int level, const char *line) { qrvtest::capturedLines.emplace_back(level, line); }

qrvHostServices tracingStore(uint32_t size)
{
    qrvHostServices s{};
    s.size = size;
    s.logLine = keepLine;
    s.cfgValueDword = traceDword;
    s.cfgValueString = traceString;
    s.cfgDeleteValue = traceDelete;
    s.cfgBeginBatch = traceBegin;
    s.cfgEndBatch = traceEnd;
    return s;
}

/* The store calls a record load and store make, with or without groups. */
void storeAndLoadARecord()
{
    QRVINFO info{};
    qrvInfoDelete(&info);
    g_trace.clear();
    qrvInfoWriteRegSet(QRV_CFG_DEFAULT, &info);
    qrvInfoReadRegSet(QRV_CFG_DEFAULT, &info);
    qrvInfoDelete(&info);
}

constexpr uint32_t kOldSize = offsetof(qrvHostServices, cfgBeginBatch);

TEST_F(ServicesTest, ATableOfAnUnknownSizeIsRefusedWithAnErrorAndChangesNothing)
{
    g_trace.clear();
    for (uint32_t size : {0u, kOldSize - 4, uint32_t(sizeof(qrvHostServices)) + 8}) {
        qrvtest::capturedLines.clear();
        qrvHostServices s = tracingStore(size);
        s.logLine = nullptr;
        EXPECT_EQ(qrvSetHostServices(&s), QRV_E_ARGUMENT) << size;
        ASSERT_EQ(qrvtest::capturedLines.size(), 1u) << size;
        EXPECT_NE(qrvtest::capturedLines[0].second.find(std::to_string(size) + " bytes"),
                  std::string::npos);
        // The fixture's sink is still in force, and the built-in store.
        EXPECT_NE(cfgDeleteValue(QRV_CFG_DEFAULT, "K", "V"), 0);
        EXPECT_EQ(g_trace, "");
    }
}

TEST_F(ServicesTest, AHostsBatchEntriesFrameEachRecordStoreAndLoad)
{
    qrvHostServices s = tracingStore(sizeof s);
    ASSERT_EQ(qrvSetHostServices(&s), QRV_OK);
    storeAndLoadARecord();
    // Slots 0-4 and 80 are never stored; the version text is never loaded.
    const size_t storedText = QRVINFO_TEXT_SLOTS - 6, numeric = QRVINFO_NUMERIC_SLOTS;
    const size_t middle = g_trace.find(")(");
    ASSERT_NE(middle, std::string::npos) << g_trace;
    EXPECT_EQ(g_trace.front(), '(');
    EXPECT_EQ(g_trace.back(), ')');
    const std::string stores = g_trace.substr(1, middle - 1);
    EXPECT_EQ(stores.find_first_not_of("dw"), std::string::npos) << g_trace;
    EXPECT_EQ(stores.size(), storedText + numeric);
    EXPECT_EQ(g_trace.substr(middle + 2), std::string(storedText - 1 + numeric, 'r') + ")");
}

/* An older table is read only up to its size: whatever lies beyond it is
 * not taken for batch entries, and a host store without them gets single
 * calls, not the built-in store's groups. */
TEST_F(ServicesTest, AnOlderTableIsTakenAndItsStoreGetsUngroupedCalls)
{
    qrvHostServices s = tracingStore(kOldSize);
    ASSERT_EQ(qrvSetHostServices(&s), QRV_OK);
    storeAndLoadARecord();
    EXPECT_EQ(g_trace.find_first_of("()"), std::string::npos) << g_trace;
    EXPECT_FALSE(g_trace.empty());
    EXPECT_EQ(cfgEndBatch(QRV_CFG_DEFAULT), QRV_OK);

    // Without a store of its own, an older table keeps the built-in groups.
    s = tracingStore(kOldSize);
    s.cfgValueDword = nullptr, s.cfgValueString = nullptr, s.cfgDeleteValue = nullptr;
    ASSERT_EQ(qrvSetHostServices(&s), QRV_OK);
    EXPECT_EQ(cfgEndBatch(QRV_CFG_DEFAULT), QRV_E_ARGUMENT);
    EXPECT_TRUE(qrvtest::capturedLines.empty());
}

int exitStatus(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

unsigned readNumber(const char *name, unsigned missing = ~0u)
{
    unsigned value = missing;
    cfgValueDword(QRV_CFG_DEFAULT, "Group", name, &value, QRV_CFG_READ);
    return value;
}

void writeNumber(const char *name, unsigned value)
{
    EXPECT_EQ(cfgValueDword(QRV_CFG_DEFAULT, "Group", name, &value, QRV_CFG_WRITE), 0);
}

/* Another process (a child) sees a group's writes only once the outermost
 * group ends, and none of them when the writer dies inside it. */
TEST_F(ServicesTest, TheDefaultStoreCommitsAGroupWholeAtItsOutermostEnd)
{
    auto seenElsewhere = [](const char *name) {
        const pid_t child = fork();
        if (child == 0)
            _exit(readNumber(name, 99) == 99 ? 0 : 1);
        return WEXITSTATUS(exitStatus(child)) == 1;
    };
    writeNumber("Before", 1);
    ASSERT_EQ(cfgBeginBatch(QRV_CFG_DEFAULT), QRV_OK);
    ASSERT_EQ(cfgBeginBatch(QRV_CFG_DEFAULT), QRV_OK);
    writeNumber("A", 1);
    EXPECT_EQ(cfgDeleteValue(QRV_CFG_DEFAULT, "Group", "Before"), 0);
    EXPECT_EQ(readNumber("A"), 1u); // the group reads its own writes
    ASSERT_EQ(cfgEndBatch(QRV_CFG_DEFAULT), QRV_OK);
    EXPECT_FALSE(seenElsewhere("A"));
    EXPECT_TRUE(seenElsewhere("Before"));
    ASSERT_EQ(cfgEndBatch(QRV_CFG_DEFAULT), QRV_OK);
    EXPECT_TRUE(seenElsewhere("A"));
    EXPECT_FALSE(seenElsewhere("Before"));
    EXPECT_EQ(cfgEndBatch(QRV_CFG_DEFAULT), QRV_E_ARGUMENT);

    const pid_t writer = fork();
    if (writer == 0) {
        cfgBeginBatch(QRV_CFG_DEFAULT);
        writeNumber("A", 2);
        writeNumber("B", 2);
        kill(getpid(), SIGKILL);
    }
    EXPECT_TRUE(WIFSIGNALED(exitStatus(writer)));
    EXPECT_EQ(readNumber("A"), 1u);
    EXPECT_EQ(readNumber("B"), ~0u);

    EXPECT_EQ(cfgBeginBatch(nullptr), QRV_E_ARGUMENT);
    EXPECT_TRUE(qrvtest::capturedLines.empty());
}

} // namespace
