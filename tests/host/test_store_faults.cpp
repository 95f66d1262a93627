/* What the configuration stores promise under load and faults, tried at
 * length: many processes writing at once, writers killed again and again,
 * saves killed midway. Slow: ctest runs these under the label "slow". */
#include "host_test_support.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using StoreFaults = qrvtest::HostTest;

constexpr char kKey[] = "Faults";

int writeNumber(cfgHandle store, unsigned name, unsigned value)
{
    return cfgValueDword(store, kKey, std::to_string(name).c_str(), &value, QRV_CFG_WRITE);
}

bool holds(cfgHandle store, unsigned name, unsigned value)
{
    unsigned stored = ~value;
    return cfgValueDword(store, kKey, std::to_string(name).c_str(), &stored, QRV_CFG_READ) == 0 &&
           stored == value;
}

int exitStatus(pid_t pid)
{
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
}

/* Value i written alone, or in a group of ten when `grouped`. */
int writeValues(unsigned first, unsigned count, bool grouped)
{
    int failures = 0;
    for (unsigned i = first; i < first + count; ++i) {
        const bool opens = grouped && (i - first) % 10 == 0;
        const bool closes = grouped && ((i - first) % 10 == 9 || i + 1 == first + count);
        if (opens)
            failures |= cfgBeginBatch(QRV_CFG_DEFAULT);
        failures |= writeNumber(QRV_CFG_DEFAULT, i, i);
        if (closes)
            failures |= cfgEndBatch(QRV_CFG_DEFAULT);
    }
    return failures;
}

TEST_F(StoreFaults, EightProcessesWritingAtOnceLoseNothing)
{
    constexpr unsigned kWriters = 8, kEach = 200;
    std::vector<pid_t> writers;
    for (unsigned w = 0; w < kWriters; ++w) {
        const pid_t pid = fork();
        if (pid == 0)
            _exit(writeValues(w * kEach, kEach, w % 2 == 1) == 0 ? 0 : 1);
        writers.push_back(pid);
    }
    for (pid_t writer : writers)
        EXPECT_EQ(exitStatus(writer), 0);
    for (unsigned i = 0; i < kWriters * kEach; ++i)
        ASSERT_TRUE(holds(QRV_CFG_DEFAULT, i, i)) << i;
    EXPECT_TRUE(qrvtest::capturedLines.empty());
}

/* The writer acknowledges each value (or group) through a pipe once its
 * call has returned; every acknowledged value must be there after the kill,
 * and the store must still open and take writes. */
TEST_F(StoreFaults, AWriterKilledAgainAndAgainLosesNoAcknowledgedValue)
{
    std::minstd_rand random(7);
    std::vector<unsigned> acknowledged;
    unsigned next = 0;
    for (int round = 0; round < 40; ++round) {
        int acks[2];
        ASSERT_EQ(pipe(acks), 0);
        const pid_t writer = fork();
        if (writer == 0) {
            for (unsigned i = next;; i += 5) {
                const bool grouped = i / 5 % 2 == 1;
                if (writeValues(i, 5, grouped) != 0 || write(acks[1], &i, sizeof i) != sizeof i)
                    _exit(1);
            }
        }
        close(acks[1]);
        usleep(1000 + random() % 20000);
        kill(writer, SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(exitStatus(writer)));
        for (unsigned i; read(acks[0], &i, sizeof i) == sizeof i; next = i + 10)
            acknowledged.push_back(i);
        close(acks[0]);
        for (unsigned i : acknowledged)
            for (unsigned v = i; v < i + 5; ++v)
                ASSERT_TRUE(holds(QRV_CFG_DEFAULT, v, v)) << "round " << round << ", value " << v;
        ASSERT_EQ(writeNumber(QRV_CFG_DEFAULT, 1u << 31, unsigned(round)), 0);
    }
    EXPECT_GT(acknowledged.size(), 40u);
    EXPECT_TRUE(qrvtest::capturedLines.empty());
}

/* A generation of the file: two numbers and a long text that all say g, so
 * that a file mixing two saves shows. */
void writeGeneration(cfgHandle store, unsigned g)
{
    const std::string text(256 * 1024 + g % 1000, char('a' + g % 26));
    unsigned size = unsigned(text.size()) + 2;
    writeNumber(store, 1, g);
    cfgValueString(store, kKey, "Text", const_cast<char *>(text.c_str()), &size, QRV_CFG_WRITE);
    writeNumber(store, 2, g);
}

unsigned generationIn(cfgHandle store)
{
    unsigned g = 0, size = 0;
    cfgValueDword(store, kKey, "1", &g, QRV_CFG_READ);
    EXPECT_TRUE(holds(store, 2, g)) << g;
    cfgValueString(store, kKey, "Text", nullptr, &size, QRV_CFG_READ);
    std::string text(size, '\0');
    EXPECT_EQ(cfgValueString(store, kKey, "Text", &text[0], &size, QRV_CFG_READ), 0);
    EXPECT_EQ(text.c_str(), std::string(256 * 1024 + g % 1000, char('a' + g % 26))) << g;
    return g;
}

TEST_F(StoreFaults, AKillDuringASaveLeavesTheOldFileOrTheNewOneAndNoTemporary)
{
    std::ofstream(dir_ / "UserMetadata.xml") << "<?xml version=\"1.0\"?>\n<Config/>\n";
    cfgHandle store = cfgOpen("UserMetadata.xml", 0);
    writeGeneration(store, 1);
    ASSERT_EQ(cfgClose(store, 1), 0);
    std::minstd_rand random(11);
    unsigned next = 2, whole = 1;
    int killedSaves = 0;
    for (int round = 0; round < 30; ++round) {
        int acks[2];
        ASSERT_EQ(pipe(acks), 0);
        const pid_t writer = fork();
        if (writer == 0) {
            for (unsigned g = next;; ++g) {
                cfgHandle file = cfgOpen("UserMetadata.xml", 0);
                writeGeneration(file, g);
                if (!file || cfgClose(file, 1) != 0 || write(acks[1], &g, sizeof g) != sizeof g)
                    _exit(1);
            }
        }
        close(acks[1]);
        usleep(random() % 30000);
        kill(writer, SIGKILL);
        EXPECT_TRUE(WIFSIGNALED(exitStatus(writer)));
        unsigned underWay = next;
        for (unsigned g; read(acks[0], &g, sizeof g) == sizeof g; underWay = g + 1)
            whole = g;
        close(acks[0]);

        killedSaves += std::distance(std::filesystem::directory_iterator(dir_), {}) > 1;
        store = cfgOpen("UserMetadata.xml", 0);
        ASSERT_NE(store, nullptr) << "round " << round;
        const unsigned g = generationIn(store);
        EXPECT_TRUE(g == whole || g == underWay) << g << " after " << whole;
        EXPECT_EQ(cfgClose(store, 0), 0);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_), {}), 1)
            << "a temporary outlived the next open";
        whole = g;
        next = underWay + 1;
    }
    EXPECT_GT(killedSaves, 0) << "no kill landed inside a save";
    EXPECT_TRUE(qrvtest::capturedLines.empty());
}

} // namespace
