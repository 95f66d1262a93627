// MEDIACMD XML writer and reader: document layout, round trips, the reader's
// deliberate differences, well-formedness and hostile input.
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

MEDIACMD fresh(unsigned ct)
{
    MEDIACMD cmd;
    initMediaCmd(&cmd, ct);
    return cmd;
}

char *areaOf(MEDIACMD &cmd) { return reinterpret_cast<char *>(&cmd) + MEDIACMD_AREA_OFFSET; }

std::string toXml(MEDIACMD &cmd, unsigned tcType)
{
    char *text = nullptr;
    EXPECT_EQ(0, MediaCmdToXMLString(&text, &cmd, tcType));
    std::string out = text ? text : "";
    EXPECT_EQ(0, MediaCmdFreeXMLString(&text));
    EXPECT_EQ(nullptr, text);
    return out;
}

std::string body(const std::string &elements) { return "<MediaCmd>" + elements + "</MediaCmd>"; }

// Every field and every flag that the XML form carries.
MEDIACMD richCommand(unsigned ct)
{
    MEDIACMD cmd = fresh(ct);
    cmd.prev = 0x1234567800000001ull;
    cmd.list = 0x99;
    cmd.Channel = 3;
    cmd.cmdFlags = cfDeferred | cfOverrideDeferred | cfLoop | cfTrigger | cfRipple | cfInvert |
                   cfTest | cfNoReturn | cfUseAllIDs | cfUseClipID | cfNoClipFiles | cfNoTCSpaces |
                   cfUseSpeed | cfIsShuttle | cfUsePresets | cfUseCmdAlt | cfTimeMs | cfTimeTarget |
                   cfTimeHouseClock | cfUsePosition | cfUsePositionOffset | cfUsingCurrent |
                   cfUseFrameCount | cfFields | cfUseStart | cfUseEndOffset;
    cmd.Speed = -32760;
    cmd.VideoChannels = 1;
    cmd.AudioChannels = 2;
    cmd.InfoChannels = 4;
    cmd.CmdAlt = 1234;
    cmd.Position = 100;
    cmd.Start = 200;
    cmd.End = 300;
    std::strcpy(cmd.ClipID, "CLIP0001");
    std::strcpy(cmd.FileName, "/media/a&b <c> \"d\" 'e' \xE9.mov");
    return cmd;
}

TEST(XmlWriter, FreshStopDocumentAndRejectedCodes)
{
    MEDIACMD cmd = fresh(ctStop);
    EXPECT_EQ("<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?><MediaCmd>"
              "<!-- Korvane MEDIACMD xml structure version 1,0 -->"
              "<CmdID Value=\"-98237952\" /><StructSize Value=\"1116\" /><Channel Value=\"-1\" />"
              "<Cmd Value=\"0\">Stop</Cmd><Position Value=\"-1\" TcType=\"frames\">-1</Position>"
              "</MediaCmd>",
              toXml(cmd, 0));

    // No XML form for codes above 19: the document stops after Channel.
    cmd = fresh(ctEdit);
    cmd.next = 0x700000005ull;
    char *text = nullptr;
    EXPECT_EQ(-1, MediaCmdToXMLString(&text, &cmd, 0));
    EXPECT_EQ(nullptr, text);
    TiXmlDocument doc;
    EXPECT_EQ(-1, MediaCmdToXML(&doc, &cmd, 0));
    std::string partial;
    partial << doc;
    EXPECT_EQ("<next Value=\"5\" /><CmdID Value=\"-98237952\" /><StructSize Value=\"1116\" />"
              "<Channel Value=\"-1\" /></MediaCmd>",
              partial.substr(partial.find("<next")));
}

TEST(XmlWriter, SpeedAndPointTexts)
{
    MEDIACMD cmd = fresh(ctPlay);
    cmd.cmdFlags = cfDeferred | cfNoTCSpaces | cfUseStart | cfUseEnd;
    cmd.Position = cmd.Start = cmd.End = 1800;
    char percent[40];
    intToString(3277600, percent, 25); // 0x7FFFFFFF as percent of normal speed
    std::string xml = toXml(cmd, 0x104);
    EXPECT_NE(std::string::npos,
              xml.find("<Cmd Value=\"2\" Deferred=\"1\" NoTCSpaces=\"1\">Play</Cmd>"));
    EXPECT_NE(std::string::npos,
              xml.find("<Speed Value=\"65520\">" + std::string(percent) + "</Speed>"));
    EXPECT_NE(std::string::npos,
              xml.find("<Position Value=\"1800\" TcType=\"drop-frame\">00:01:00;02</Position>"));
    // Start takes the queue form (60 fps) whenever CmdAlt >= 1100001; End only
    // for queue values of value commands.
    EXPECT_NE(std::string::npos, xml.find(">00:00:30:00</Start>"));
    EXPECT_NE(std::string::npos, xml.find(">00:01:00;02</End>"));
    cmd.Cmd = ctGetValue;
    cmd.CmdAlt = 1100002;
    EXPECT_NE(std::string::npos, toXml(cmd, 4).find(">00:00:30:00</End>"));

    // Frame counts: base 10 for Position, base 25 for Start, End and Speed;
    // Start and End follow Position into "frames". Unknown types get no name.
    cmd = fresh(ctPause);
    cmd.cmdFlags = cfUseSpeed | cfIsShuttle | cfUseStartOffset | cfUseEndOffset;
    cmd.Speed = -131040;
    cmd.Position = cmd.Start = cmd.End = 50;
    xml = toXml(cmd, 255);
    EXPECT_NE(std::string::npos, xml.find("<Speed Value=\"-131040\" IsShuttle=\"1\">-80</Speed>"));
    EXPECT_NE(std::string::npos, xml.find("TcType=\"frames\">50</Position>"));
    EXPECT_NE(std::string::npos,
              xml.find("<Start Value=\"50\" TcType=\"frames\" IsOffset=\"1\">20</Start>"));
    xml = toXml(cmd, 3);
    EXPECT_NE(std::string::npos, xml.find("<Position Value=\"50\">50</Position>"));
    EXPECT_EQ(std::string::npos, xml.find("TcType"));
}

TEST(XmlWriter, TrailingAreaForms)
{
    MEDIACMD cmd = fresh(ctGetValue);
    cmd.cmdFlags = cfUseClipID;
    cmd.CmdAlt = 162; // metabasefilename: the '$' splits, and ends the name in the record
    std::strcpy(cmd.ClipID, "C1");
    std::strcpy(cmd.FileName, "abc$123");
    std::string xml = toXml(cmd, 0);
    EXPECT_NE(
        std::string::npos,
        xml.find("<ClipID>C1</ClipID><UniqueID>123</UniqueID><FileName>abc</FileName></MediaCmd>"));
    EXPECT_STREQ("abc", cmd.FileName);

    cmd.CmdAlt = 150; // metadata: an empty FileName repeats the ClipID
    cmd.FileName[0] = 0;
    EXPECT_NE(std::string::npos, toXml(cmd, 0).find("<ClipID>C1</ClipID><FileName>C1</FileName>"));
    cmd.CmdAlt = 200;
    EXPECT_NE(std::string::npos, toXml(cmd, 0).find("<ClipID>C1</ClipID></MediaCmd>"));

    // ClipID without its terminator: the whole area is one name, unless too long.
    std::memset(areaOf(cmd), 'n', 1038);
    EXPECT_NE(std::string::npos, toXml(cmd, 0).find("<FileName>" + std::string(1038, 'n') + "<"));
    areaOf(cmd)[1038] = 'n';
    EXPECT_EQ(std::string::npos, toXml(cmd, 0).find("FileName"));

    cmd = fresh(ctSetValue);
    cmd.cmdFlags = cfUseClipID;
    cmd.CmdAlt = 25;
    cmd.StructSize = 76 + 4;
    std::memcpy(cmd.ClipID, "\x00\xAB\x7F\x10", 4);
    EXPECT_NE(std::string::npos,
              toXml(cmd, 0).find("<arbID Type=\"hex\" length=\"4\">00AB7F10</arbID>"));
    cmd.CmdAlt = 60002;
    std::memcpy(areaOf(cmd), "channel A", 10);
    EXPECT_NE(std::string::npos, toXml(cmd, 0).find("<chanName>channel A</chanName>"));

    cmd = fresh(ctStop);
    cmd.cmdFlags = cfUseClipID;
    cmd.CmdAlt = 166;
    cmd.InfoChannels = 7;
    cmd.Start = 42;
    std::memcpy(areaOf(cmd),
                "REPLAY_COUNT\0"
                "31",
                16);
    EXPECT_NE(std::string::npos,
              toXml(cmd, 0).find("<MetaTag>REPLAY_COUNT</MetaTag><MetaData>42</MetaData>"
                                 "<PageRequest>7</PageRequest>"));
    cmd.Speed = 1;
    cmd.End = 12;
    EXPECT_NE(std::string::npos, toXml(cmd, 0).find("<MetaData>31</MetaData>"));
}

TEST(XmlRoundTrip, EveryCommandComesBackExceptTheReadersDifferences)
{
    for (unsigned ct = 0; ct <= ctAbort; ++ct) {
        MEDIACMD sent = richCommand(ct);
        const std::string xml = toXml(sent, ct % 2 ? 4 : 0);
        MEDIACMD got;
        ASSERT_EQ(0, MediaCmdFromXMLString(&got, nullptr, xml.c_str()));
        MEDIACMD expected = sent;
        expected.prev = 1;                          // low half only
        expected.cmdFlags &= ~cfOverrideDeferred;   // written under a name not read
        expected.VideoChannels = sent.InfoChannels; // all masks land in VideoChannels
        expected.AudioChannels = expected.InfoChannels = 0xFFFFFFFF;
        expected.cmdFlags |= cfUseEnd; // an End element means cfUseEnd
        EXPECT_EQ(0, std::memcmp(&expected, &got, sizeof got)) << "code " << ct << ": " << xml;

        // A bare command: Position is always written, and ctPlay and
        // ctRecord always say a speed.
        sent = fresh(ct);
        ASSERT_EQ(0, MediaCmdFromXMLString(&got, nullptr, toXml(sent, 4).c_str()));
        expected = sent;
        expected.cmdFlags = cfUsePosition;
        if (ct == ctPlay || ct == ctRecord) {
            expected.cmdFlags |= cfUseSpeed;
            expected.Speed = MEDIACMD_SPEED_NORMAL;
        }
        EXPECT_EQ(0, std::memcmp(&expected, &got, sizeof got)) << "bare code " << ct;
    }
}

TEST(XmlReader, DeliberateDifferencesAndStatuses)
{
    MEDIACMD cmd;
    const MEDIACMD init = fresh(ctStop);
    EXPECT_EQ(-2, MediaCmdFromXMLString(&cmd, nullptr, "this is not XML"));
    EXPECT_EQ(0, std::memcmp(&init, &cmd, sizeof cmd));
    EXPECT_EQ(-2, MediaCmdFromXMLString(&cmd, nullptr, nullptr));
    EXPECT_EQ(-3, MediaCmdFromXMLString(&cmd, nullptr, "<!--MediaCmd--><MediaCmd/>"));
    EXPECT_EQ(-1, MediaCmdFromXMLString(nullptr, nullptr, body("").c_str()));

    const std::pair<const char *, unsigned> words[] = {
        {"ABORT", ctPlay}, {"Terminate", ctPlay}, {"playback", ctPlay}, {"RecStop", ctRecStop},
        {"edit", ctEdit},  {"bogus", ctStop},     {"", ctStop}};
    for (const auto &word : words) {
        EXPECT_EQ(
            0, MediaCmdFromXMLString(&cmd, nullptr,
                                     body(std::string("<Cmd>") + word.first + "</Cmd>").c_str()));
        EXPECT_EQ(word.second, cmd.Cmd) << word.first;
    }

    const std::pair<const char *, unsigned> overrides[] = {
        {"cfOverideDeferred=\"1\"", cfOverrideDeferred},
        {"cfOverideDeferred=\"0\" cfOverrideDeferred=\"1\"", 0},
        {"cfOverideDeferred=\"x\" cfOverrideDeferred=\"2\"", cfOverrideDeferred},
        {"OverrideDeferred=\"1\" Loop=\"abc\" Test=\"0\" NoReturn=\"-1\"", cfNoReturn}};
    for (const auto &attrs : overrides) {
        MediaCmdFromXMLString(&cmd, nullptr,
                              body(std::string("<Cmd Value=\"1\" ") + attrs.first + "/>").c_str());
        EXPECT_EQ(attrs.second, cmd.cmdFlags) << attrs.first;
    }

    EXPECT_EQ(0,
              MediaCmdFromXMLString(&cmd, nullptr, body("<AudioChannels Value=\"3\"/>").c_str()));
    EXPECT_EQ(3u, cmd.VideoChannels);
    EXPECT_EQ(0xFFFFFFFFu, cmd.AudioChannels);
    EXPECT_EQ(cfUsePresets, cmd.cmdFlags);

    // Texts without Value: the caller's type (drop-frame when none), changed
    // by a TcType on Position or Start for the elements read after it.
    const std::string points = body("<End>00:00:01:00</End><Position>00:01:00;02</Position>"
                                    "<Start TcType=\"32\" IsOffset=\"1\">00:01:00;04</Start>");
    EXPECT_EQ(0, MediaCmdFromXMLString(&cmd, nullptr, points.c_str()));
    EXPECT_EQ(1800, cmd.Position);
    EXPECT_EQ(3600, cmd.Start);
    EXPECT_EQ(60, cmd.End);
    EXPECT_EQ(cfUsePosition | cfUseStart | cfUseStartOffset | cfUseEnd, cmd.cmdFlags);
    unsigned pal = 8;
    MediaCmdFromXMLString(&cmd, &pal, body("<Position>00:00:01:00</Position>").c_str());
    EXPECT_EQ(25, cmd.Position);

    // MediaCmdFromXML does not initialise: links keep their high halves and
    // flags are only added.
    TiXmlDocument doc;
    doc.Parse(body("<prev Value=\"5\"/><Cmd>bogus</Cmd><ClipID/><FileName/>").c_str());
    cmd = fresh(ctEject);
    cmd.prev = 0xAAAAAAAA00000000ull;
    cmd.cmdFlags = cfLoop;
    std::strcpy(cmd.ClipID, "OLD");
    std::strcpy(cmd.FileName, "old");
    EXPECT_EQ(0, MediaCmdFromXML(&cmd, nullptr, doc));
    EXPECT_EQ(0xAAAAAAAA00000005ull, cmd.prev);
    EXPECT_EQ(unsigned(ctEject), cmd.Cmd);
    EXPECT_EQ(cfLoop, cmd.cmdFlags);
    EXPECT_STREQ("", cmd.ClipID);
    EXPECT_STREQ("", cmd.FileName);

    const std::pair<const char *, unsigned> pairs[] = {{"07", 0x07},
                                                       {"1B", 0x11},
                                                       {"AB", 0x01},
                                                       {"FF", 0x55},
                                                       {"0a", 0x20},
                                                       {"\xFF"
                                                        "9",
                                                        9}};
    for (const auto &pair : pairs)
        EXPECT_EQ(pair.second, parseHex(pair.first)) << pair.first;
}

TEST(XmlWriter, DocumentsAreWellFormedForXmllint)
{
    if (std::system("command -v xmllint >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "xmllint missing";
    const unsigned alts[] = {150, 166, 162, 25, 60002, 1100001, 7};
    std::vector<std::string> docs;
    for (unsigned ct = 0; ct <= ctAbort; ++ct) {
        MEDIACMD cmd = richCommand(ct);
        cmd.CmdAlt = alts[ct % 7];
        docs.push_back(toXml(cmd, ct * 4 % 9));
    }
    for (const std::string &doc : docs) {
        FILE *lint = popen("xmllint --noout - 2>/dev/null", "w");
        ASSERT_NE(nullptr, lint);
        std::fputs(doc.c_str(), lint);
        EXPECT_EQ(0, pclose(lint)) << doc;
    }
}

// The record is an exact heap block, so the sanitizer build catches any byte
// read or written outside it.
TEST(XmlHostile, OversizedTruncatedNestedAndForeignInputStayInsideTheRecord)
{
    auto cmd = std::make_unique<MEDIACMD>();
    const std::string big(100000, 'x');
    EXPECT_EQ(
        0, MediaCmdFromXMLString(cmd.get(), nullptr, body("<ClipID>" + big + "</ClipID>").c_str()));
    EXPECT_EQ(std::string(9, 'x') + '\0' + std::string(1029, 'x') + '\0',
              std::string(areaOf(*cmd), 1040));
    EXPECT_EQ(0, MediaCmdFromXMLString(
                     cmd.get(), nullptr,
                     body("<FileName>" + big + "</FileName><Cmd>PLAY" + big + "</Cmd>").c_str()));
    EXPECT_EQ(std::string(1030, 'x') + '\0', std::string(cmd->FileName, 1031));
    EXPECT_EQ(unsigned(ctPlay), cmd->Cmd);

    // An arbID longer than the area fills it; a short text fills what it has.
    std::string hex;
    for (int i = 0; i < 60000; ++i)
        hex += "03";
    EXPECT_EQ(
        0, MediaCmdFromXMLString(
               cmd.get(), nullptr,
               body("<ClipID>" + big + "</ClipID><arbID length=\"1000000\">0102</arbID>").c_str()));
    EXPECT_EQ(std::string("\x01\x02xxxxxxx\0xx", 12), std::string(areaOf(*cmd), 12));
    EXPECT_EQ(1000076u, cmd->StructSize);
    EXPECT_EQ(0,
              MediaCmdFromXMLString(cmd.get(), nullptr,
                                    body("<arbID length=\"1000000\">" + hex + "</arbID>").c_str()));
    EXPECT_EQ(std::string(1040, '\x03'), std::string(areaOf(*cmd), 1040));

    // The writer, on areas without terminators and any StructSize.
    const unsigned alts[] = {166, 60002, 25, 162, 150, 1234, 5};
    const unsigned sizes[] = {0, 80, 1116, 1000076, 0xFFFFFFFF};
    for (unsigned i = 0; i < 7 * 5 * 4; ++i) {
        initMediaCmd(cmd.get(), i & 1 ? ctStop : ctGetValue);
        cmd->cmdFlags = cfUseClipID;
        cmd->CmdAlt = alts[i / 20];
        cmd->StructSize = sizes[i / 4 % 5];
        cmd->Speed = 1;
        cmd->End = 1030;
        std::memset(areaOf(*cmd), '$', 1040);
        areaOf(*cmd)[8] = i & 2 ? '$' : 0;
        toXml(*cmd, 4);
    }

    // Every prefix of a real document, nesting and foreign bytes.
    MEDIACMD rich = richCommand(ctPlay);
    const std::string whole = toXml(rich, 4);
    for (size_t n = 0; n <= whole.size(); ++n) {
        const int status = MediaCmdFromXMLString(cmd.get(), nullptr, whole.substr(0, n).c_str());
        EXPECT_TRUE(status == 0 || status == -2) << n;
    }
    std::string deep, shallow;
    for (int i = 0; i < 200000; ++i)
        deep += "<a>";
    for (int i = 0; i < 1000; ++i)
        shallow += "<a>";
    EXPECT_EQ(-2,
              MediaCmdFromXMLString(cmd.get(), nullptr, body("<Cmd>play</Cmd>" + deep).c_str()));
    EXPECT_EQ(0,
              MediaCmdFromXMLString(cmd.get(), nullptr, body("<Cmd>play</Cmd>" + shallow).c_str()));
    EXPECT_EQ(unsigned(ctPlay), cmd->Cmd);
    for (const char *junk :
         {"", "<", "<<<<>>>>", "\xFF\xFE<", "<?xml", "MediaCmd", "<Cmd>play</Cmd>"})
        EXPECT_EQ(-2, MediaCmdFromXMLString(cmd.get(), nullptr, junk)) << junk;
}

} // namespace
