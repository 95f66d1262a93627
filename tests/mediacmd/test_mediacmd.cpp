// Vocabulary lookups, record utilities, speed tables and debug lines.
#include <qrvutil/host.h>
#include <qrvutil/mediacmd.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

MEDIACMD fresh(unsigned ct)
{
    MEDIACMD cmd;
    initMediaCmd(&cmd, ct);
    return cmd;
}

TEST(Vocabulary, LookupsScanInTableOrderWithFullLengthCaseInsensitiveNames)
{
    // Shared flag values name their first row; a mask is not a flag; a miss
    // leaves the output alone.
    const struct {
        bool gs;
        unsigned value;
        const char *name;
    } toCases[] = {{true, 0, nullptr},
                   {true, 35, nullptr},
                   {true, 1100017, nullptr},
                   {true, 64011, "wavevectorquality"},
                   {true, 64012, "wavevectorgetdata"},
                   {false, 0x4000, "copy"},
                   {false, 0x8000, "convert"},
                   {false, 0x08000000, "secondfield"},
                   {false, 0x3, nullptr},
                   {false, 0x04000000, nullptr}};
    for (const auto &c : toCases) {
        char name[MCMD_NAME_MAX] = "untouched";
        EXPECT_EQ(c.name ? 0 : -1, (c.gs ? gsToString : cfToString)(c.value, name)) << c.value;
        EXPECT_STREQ(c.name ? c.name : "untouched", name);
    }
    const struct {
        bool gs;
        const char *name;
        int status;
        unsigned value;
    } fromCases[] = {{true, "TC", 0, 1},
                     {true, "Tc", 0, 1},
                     {true, "tc", 0, 1},
                     {true, "tcx", -1, 7},
                     {true, "t", -1, 7},
                     {true, "QRVVERSION", 0, 60000},
                     {false, "noclipfiles", 0, 0x4000},
                     {false, "NoReturn", 0, 0x80000000},
                     {false, "", -1, 7}};
    for (const auto &c : fromCases) {
        unsigned value = 7;
        EXPECT_EQ(c.status, (c.gs ? gsFromString : cfFromString)(c.name, &value)) << c.name;
        EXPECT_EQ(c.value, value) << c.name;
    }
    EXPECT_EQ(0, gsToString(1100016, nullptr));
}

TEST(Vocabulary, EveryGsRowIsReachableByNameAndValue)
{
    char name[MCMD_NAME_MAX];
    for (const mcmdXlat &row : mcmdGSXlat) {
        unsigned value = 0;
        ASSERT_EQ(0, gsFromString(row.name, &value)) << row.name;
        EXPECT_EQ(row.value, value) << row.name;
        ASSERT_EQ(0, gsToString(row.value, name));
        EXPECT_STREQ(row.name, name);
        EXPECT_EQ(0u, mcmdGSStringXlat[&row - mcmdGSXlat].value);
    }
    EXPECT_EQ(64012u, mcmdGSXlat[319].value);
    EXPECT_EQ(64011u, mcmdGSXlat[320].value);
}

TEST(Utilities, FixFillsImpliedSpeedAndTracksUnderTheMask)
{
    MEDIACMD play = fresh(ctPlay);
    play.VideoChannels = 1;
    EXPECT_EQ(cfUseSpeed, fixMediaCmd(&play, 0));
    EXPECT_EQ(MEDIACMD_SPEED_NORMAL, play.Speed);
    EXPECT_EQ(0xFFFFFFFFu, play.VideoChannels);

    MEDIACMD transfer = fresh(ctTransfer);
    transfer.cmdFlags = cfUsePresets;
    transfer.VideoChannels = 1;
    EXPECT_EQ(cfUsePresets, fixMediaCmd(&transfer, 0));
    EXPECT_EQ(1u, transfer.VideoChannels);
    EXPECT_EQ(MEDIACMD_SPEED_UNSET, transfer.Speed);

    // The mask hides the record's own cfUseSpeed, so the implied speed wins.
    MEDIACMD stop = fresh(ctAbort);
    stop.cmdFlags = cfUseSpeed | cfUsePresets;
    stop.Speed = 777;
    stop.AudioChannels = 2;
    EXPECT_EQ(cfUseSpeed | cfUsePresets, fixMediaCmd(&stop, cfUsePresets));
    EXPECT_EQ(0, stop.Speed);
    EXPECT_EQ(2u, stop.AudioChannels);
}

TEST(Utilities, CopyMergesFlagsAndBoundsTheClipCopy)
{
    MEDIACMD src = fresh(ctPlay);
    src.Channel = 4;
    src.Position = 10;
    src.Start = 20;
    src.End = 30;
    src.cmdFlags = cfUsePosition | cfUseStart | cfUseEndOffset | cfLoop | cfPreview;
    MEDIACMD dst = fresh(ctStop);
    dst.cmdFlags = cfDeferred | cfRemoteCommand | cfUseStartOffset | cfUseSpeed;
    copyMediaCmd(&dst, &src, 0);
    EXPECT_EQ(4, dst.Channel);
    EXPECT_EQ(unsigned(ctPlay), dst.Cmd);
    EXPECT_EQ(10, dst.Position);
    EXPECT_EQ(30, dst.End);
    EXPECT_EQ(MEDIACMD_SPEED_NORMAL, dst.Speed);
    // Deferred is per command and src lacks it; cfRemoteCommand stays; Loop
    // and Preview are masked out; the start flags are replaced.
    EXPECT_EQ(cfRemoteCommand | cfUseSpeed | cfUsePosition | cfUseStart | cfUseEndOffset,
              dst.cmdFlags);

    // No speed and none implied: unset, while dst's cfUseSpeed is left.
    src.Cmd = ctTransfer;
    copyMediaCmd(&dst, &src, 0xFFFFFFFF);
    EXPECT_EQ(MEDIACMD_SPEED_UNSET, dst.Speed);
    EXPECT_TRUE(dst.cmdFlags & cfUseSpeed);
    EXPECT_TRUE(dst.cmdFlags & cfLoop);

    // FileName moves at most min(src size - 85, dst size - 76, 1027) bytes;
    // ClipID's ninth byte is never written.
    src.cmdFlags = cfUseClipID;
    std::memset(src.ClipID, 'c', sizeof src.ClipID);
    std::memset(src.FileName, 'f', sizeof src.FileName);
    for (const auto &sizes : {std::make_pair(85u + 3, 1116u), std::make_pair(1116u, 76u + 5),
                              std::make_pair(1116u, 1116u), std::make_pair(0u, 0u)}) {
        src.StructSize = sizes.first;
        dst = fresh(ctStop);
        dst.StructSize = sizes.second;
        dst.ClipID[8] = '9';
        std::memset(dst.FileName, '-', sizeof dst.FileName);
        copyMediaCmd(&dst, &src, 0);
        const size_t expected = std::min({sizes.first - 85u, sizes.second - 76u, 1027u});
        EXPECT_EQ(std::string(8, 'c') + "9", std::string(dst.ClipID, 9));
        EXPECT_EQ(std::string(expected, 'f') + std::string(1031 - expected, '-'),
                  std::string(dst.FileName, sizeof dst.FileName));
    }
}

TEST(Utilities, ChannelMasksAndFourccs)
{
    unsigned rest = 0;
    EXPECT_EQ(3u, findChannel(0b1010, &rest, 1));
    EXPECT_EQ(0b0010u, rest);
    EXPECT_EQ(0xFFFFFFFFu, findChannel(0b1010, &rest, 2));
    EXPECT_EQ(0b1010u, rest);
    EXPECT_EQ(0xFFFFFFFFu, findChannel(0, &rest, 0));
    EXPECT_EQ(31u, findChannel(0x80000001, nullptr, 1));
    EXPECT_EQ(0x80000000u, isolateChannel(0x80000000, 0));
    EXPECT_EQ(0u, isolateChannel(0b1010, 2));
    EXPECT_EQ(32u, totalChannels(0xFFFFFFFF));
    EXPECT_EQ(0u, totalChannels(0));

    const unsigned avc1 = 'a' | 'v' << 8 | 'c' << 16 | '1' << 24;
    const unsigned AVC1 = 'A' | 'V' << 8 | 'C' << 16 | '1' << 24;
    EXPECT_EQ(AVC1, fourccToUpper(avc1));
    EXPECT_EQ(avc1, fourccToLower(AVC1));
    EXPECT_EQ(0xE9FF4141u, fourccToUpper(0xE9FF6141));
}

std::vector<unsigned> repeats(int speed, unsigned *counter, int calls)
{
    std::vector<unsigned> out;
    for (int i = 0; i < calls; ++i)
        out.push_back(speedReps(counter, speed));
    return out;
}

TEST(Speed, RepeatSequencesAndRates)
{
    unsigned counter = 0;
    speedReps(&counter, MEDIACMD_SPEED_UNSET); // first call: no speed yet, must not fault
    EXPECT_EQ(0u, speedReps(&counter, 0));

    counter = 0;
    EXPECT_EQ(std::vector<unsigned>(4, 1), repeats(65520, &counter, 4));
    EXPECT_EQ(8u, counter);
    counter = 0;
    EXPECT_EQ(std::vector<unsigned>(4, 2), repeats(16380, &counter, 4));
    EXPECT_EQ(4u, counter);

    // 1.25x: 2.5 fields a call; the carry needs the accumulator above 1.0.
    std::vector<unsigned> steps;
    for (int i = 0; i < 5; ++i) {
        counter = 0;
        speedReps(&counter, i ? MEDIACMD_SPEED_UNSET : 81900);
        steps.push_back(counter);
    }
    EXPECT_EQ((std::vector<unsigned>{2, 2, 3, 2, 3}), steps);

    // Reverse speeds repeat like slow ones, whatever their size.
    counter = 0;
    EXPECT_EQ((std::vector<unsigned>{0, 0, 1, 0, 1}), repeats(-65520, &counter, 5));
    EXPECT_EQ(5u, counter);
    EXPECT_EQ((std::vector<unsigned>{0, 0, 0, 0, 1}), repeats(-131040, nullptr, 5));

    EXPECT_EQ(0x00010000u, speedRate(65520));
    EXPECT_EQ(0x00008000u, speedRate(32760));
    EXPECT_EQ(0x00020000u, speedRate(-131040));
    EXPECT_EQ(0x8008u, speedRate(INT_MIN) >> 16);
}

// Debug lines, captured through a host log sink.
std::vector<std::string> gDebugLines, gErrorLines;
bool gThrowOnDebug = false;

void captureLine(int level, const char *line)
{
    if (level == QRV_LOG_DEBUG && gThrowOnDebug)
        throw std::runtime_error("sink");
    (level == QRV_LOG_DEBUG ? gDebugLines : gErrorLines).push_back(line);
}

class DebugText : public ::testing::Test {
  protected:
    void SetUp() override
    {
        qrvHostServices services{};
        services.size = sizeof services;
        services.logLine = captureLine;
        qrvSetHostServices(&services);
        gDebugLines.clear();
        gErrorLines.clear();
    }
    void TearDown() override { qrvResetHostServices(); }

    static std::string lineFor(MEDIACMD cmd)
    {
        gDebugLines.clear();
        __dbgout_mediacmd(&cmd);
        return gDebugLines.empty() ? "<none>" : gDebugLines.at(0);
    }
};

MEDIACMD traced(unsigned ct, int channel, unsigned flags, unsigned cmdAlt = 1)
{
    MEDIACMD cmd = fresh(ct);
    cmd.Channel = channel;
    cmd.cmdFlags = flags;
    cmd.CmdAlt = cmdAlt;
    cmd.Speed = 65520;
    cmd.Start = 5;
    cmd.VideoChannels = 3;
    return cmd;
}

TEST_F(DebugText, CommandLines)
{
    const std::pair<MEDIACMD, const char *> cases[] = {
        {traced(ctPlay, 1, cfUseSpeed), "qrv-Chan1 ctPlay UseSpeed (100) "},
        {traced(ctGetValue, 0, cfDeferred), "qrv-Chan0 ctGetValue(tc)Deferred "},
        {traced(ctGetValue, 0, cfDeferred, 35), "qrv-Chan0 ctGetValue(35, 0x23) Deferred "},
        {traced(ctGetState, 0, 0), "<none>"},
        {traced(ctSetState, 0, 0), "<none>"},
        // Track masks print under cfUsePosition, not cfUsePresets.
        {traced(22, 12, cfUsePresets | cfUseStart | cfUseEndOffset),
         "qrv-Chan12 Use Start (5) UseEndOffset (-1) "},
        {traced(ctSwitch, 12, cfUsePosition),
         "qrv-Chan12 ctSwitch UsePosition (-1) UsePresets: V(3)A(-1)I(-1) "},
        {traced(ctStop, 2, cfUseCmdAlt | cfTimeMs | cfTimeTarget | cfTimeHouseClock, 7),
         "qrv-Chan2 ctStop CmdTarget: (7) "},
        {traced(ctStop, 2, cfUseCmdAlt | cfTimeMs | cfTimeHouseClock, 7),
         "qrv-Chan2 ctStop CmdHouse: (7) "},
        {traced(ctStop, 2, cfUseCmdAlt | cfTimeMs, 7), "qrv-Chan2 ctStop CmdTime: (7) "},
        {traced(ctStop, 2, cfUseCmdAlt | cfTimeTarget, 7), "qrv-Chan2 ctStop CmdAlt: (7) "}};
    for (const auto &c : cases)
        EXPECT_EQ(c.second, lineFor(c.first));
    MEDIACMD reverse = traced(ctPlay, 1, cfUseSpeed);
    reverse.Speed = -32759;
    EXPECT_EQ("qrv-Chan1 ctPlay UseSpeed (-49) ", lineFor(reverse));
}

TEST_F(DebugText, LongNamesAreCutAndFaultsReported)
{
    MEDIACMD cmd = fresh(ctRecord);
    cmd.Channel = 1;
    cmd.cmdFlags = cfUseClipID;
    std::memset(cmd.ClipID, 'c', sizeof cmd.ClipID); // no terminator anywhere
    std::memset(cmd.FileName, 'c', sizeof cmd.FileName);
    const std::string line = lineFor(cmd);
    EXPECT_EQ("qrv-Chan1 ctRecord UseClipId: (" + std::string(1023 - 12, 'c'), line);

    gThrowOnDebug = true;
    __dbgout_mediacmd(&cmd);
    gThrowOnDebug = false;
    EXPECT_EQ(
        (std::vector<std::string>{"WARNING(vuMCmd): Exception: outputing mediacmd to string\n\r"}),
        gErrorLines);

    gDebugLines.clear();
    __dbgout_tc(1800, 0x304);
    __dbgout_tc(25, 0);
    EXPECT_EQ((std::vector<std::string>{"00:01:00;02", "00:00:00:25"}), gDebugLines);
}

} // namespace
