// The MEDIACMD XML writer and reader against their recorded results: a few
// thousand generated records and documents (every command code, each flag
// alone and in random mixes, every timecode type, every trailing-area form,
// text that needs escaping) whose output texts and read-back records were
// digested with the writer and reader as they stood before they were
// rewritten for speed. Every digest must stay as recorded.
//
// QRV_RECORD_XML_DIGESTS=<file> writes the digests instead of checking them.
#include <qrvutil/host.h>
#include <qrvutil/mediacmd_xml.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

/* Generated cases go into one digest per group, so that a change points at
 * a few cases. */
constexpr uint32_t kGroup = 16;
constexpr uint32_t kWriterCases = 4096;
constexpr uint32_t kReaderCases = 4096;

struct Digest {
    uint64_t h = 1469598103934665603ull;
    void add(const void *p, size_t n)
    {
        for (size_t i = 0; i < n; ++i)
            h = (h ^ static_cast<const unsigned char *>(p)[i]) * 1099511628211ull;
    }
    void add(uint32_t v) { add(&v, sizeof v); }
    void add(const std::string &s)
    {
        add(static_cast<uint32_t>(s.size()));
        add(s.data(), s.size());
    }
};

/* The same numbers on every build. */
struct Random {
    uint64_t s;
    explicit Random(uint64_t seed) : s(seed * 0x9E3779B97F4A7C15ull + 1) {}
    uint32_t next()
    {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return static_cast<uint32_t>(s >> 16);
    }
    uint32_t below(uint32_t n) { return next() % n; }
    template <typename T, size_t N>
    T pick(const T (&list)[N])
    {
        return list[below(N)];
    }
};

char *areaOf(MEDIACMD &cmd) { return reinterpret_cast<char *>(&cmd) + MEDIACMD_AREA_OFFSET; }

/* Text that needs the writer's escaping: markup characters, control bytes,
 * character references the writer passes through, and high bytes. */
const char *const kTextPieces[] = {
    "a",
    "clip",
    "&",
    "<",
    ">",
    "\"",
    "'",
    "&#x41;",
    "&#x",
    "&#x4<;",
    "&#65;",
    "&amp;",
    "\x01",
    "\x1F",
    "\t",
    "\n",
    "\r",
    " ",
    "\x7F",
    "\x80",
    "\xE9",
    "\xFF",
    "$",
    "$$",
    "/media/x.mov",
    "REPLAY_COUNT",
    "\xE2\x82\xAC",
    "]]>",
    "<!--",
    "?>",
};

std::string randomText(Random &r, size_t maxPieces)
{
    std::string s;
    const size_t pieces = r.below(static_cast<uint32_t>(maxPieces) + 1);
    for (size_t i = 0; i < pieces; ++i)
        s += r.pick(kTextPieces);
    return s;
}

void putText(char *dst, size_t room, const std::string &s)
{
    const size_t n = s.size() < room ? s.size() : room;
    std::memcpy(dst, s.data(), n);
}

/* One writer case: the record and the timecode type. */
MEDIACMD writerCase(uint32_t i, unsigned *tcType)
{
    Random r(i);
    MEDIACMD cmd;
    std::memset(&cmd, 0, sizeof cmd);
    const uint32_t ct = i % 22;
    initMediaCmd(&cmd, ct);
    const uint32_t structured = 22 * 34;
    if (i < structured) {
        const uint32_t bit = i / 22 % 34;
        cmd.cmdFlags = bit < 32 ? 1u << bit : bit == 32 ? 0 : 0xFFFFFFFFu;
    } else {
        cmd.cmdFlags = r.next() & r.next();
        if (r.below(2))
            cmd.cmdFlags |= cfUseClipID;
    }
    const int32_t speeds[] = {
        MEDIACMD_SPEED_UNSET, 0, 65520, -65520, 1, -1, 32760, INT32_MIN, 123456};
    const uint32_t alts[] = {0xFFFFFFFFu, 0,       25,      100,     150,     162,     166, 167,
                             60002,       1000007, 1100000, 1100001, 1100002, 1100003, 1234};
    const int32_t points[] = {-1, 0, 1, 29, 1799, 107892, 2589407, INT32_MAX, INT32_MIN, -30};
    const unsigned types[] = {0, 255, 1, 2, 4, 8, 16, 32, 64, 128, 132, 3, 0x104, 0xFFFFFF20u, 200};
    const uint32_t sizes[] = {1116, 76, 77, 78, 86, 87, 100, 0, 75, 2000, 1115, 1117, 0xFFFFFFFFu};
    cmd.Speed = r.pick(speeds);
    cmd.CmdAlt = r.below(4) ? r.pick(alts) : r.next();
    cmd.Position = r.below(4) ? r.pick(points) : static_cast<int32_t>(r.next());
    cmd.Start = r.pick(points);
    cmd.End = r.pick(points);
    cmd.VideoChannels = r.next();
    cmd.AudioChannels = r.below(2) ? 0xFFFFFFFFu : r.next();
    cmd.InfoChannels = r.below(2) ? 0 : r.next();
    cmd.Channel = static_cast<int32_t>(r.below(3)) - 1;
    if (r.below(3) == 0) { /* drawn one after the other: operand order is unspecified */
        const uint64_t high = r.next();
        cmd.prev = (high << 32) | r.next();
    }
    if (r.below(3) == 0)
        cmd.next = uint64_t{r.next()} << 32;
    if (r.below(3) == 0)
        cmd.list = r.next();
    if (r.below(4) == 0)
        cmd.StructSize = r.pick(sizes);
    *tcType = r.pick(types);

    char *area = areaOf(cmd);
    switch (r.below(7)) {
    case 0: break;
    case 1:
        putText(cmd.ClipID, 8, "CLIP0001");
        putText(cmd.FileName, 1030, "/media/file.mov");
        break;
    case 2: {
        putText(cmd.ClipID, 8, randomText(r, 2));
        const std::string after = randomText(r, 4); /* drawn first, as the digests were */
        putText(cmd.FileName, 1030, randomText(r, 4) + "$" + after);
        break;
    }
    case 3: { /* one long name over ClipID's terminator */
        std::string s(1 + r.below(1039), 'n');
        s.replace(0, 0, randomText(r, 6));
        putText(area, r.below(8) ? 1039 : 1040, s);
        area[8] = s.size() > 8 ? s[8] : 'x';
        break;
    }
    case 4:
        putText(cmd.ClipID, 8, randomText(r, 3));
        putText(cmd.FileName, 1030, randomText(r, 40));
        break;
    case 5:
        for (size_t k = 0; k < MEDIACMD_AREA_SIZE; ++k)
            area[k] = static_cast<char>(r.below(4) ? r.next() : 0);
        break;
    default: { /* a metadata tag and its value */
        const std::string tag = r.below(2) ? "REPLAY_COUNT" : randomText(r, 3);
        putText(area, 1039, tag);
        putText(area + tag.size() + 1, 1000, randomText(r, 5));
        cmd.End = r.below(4) ? static_cast<int32_t>(tag.size()) : r.pick(points);
        cmd.Speed = r.below(4) ? 1 : cmd.Speed;
        break;
    }
    }
    return cmd;
}

void digestWriterCase(uint32_t i, Digest *d)
{
    unsigned tcType = 0;
    MEDIACMD cmd = writerCase(i, &tcType);
    char *text = nullptr;
    d->add(static_cast<uint32_t>(MediaCmdToXMLString(&text, &cmd, tcType)));
    d->add(text ? std::string(text) : std::string("(none)"));
    d->add(&cmd, sizeof cmd); /* the '$' rule changes the record */
    MediaCmdFreeXMLString(&text);
}

/* Attribute values that every build reads alike (all inside 32 bits). */
const char *const kNumbers[] = {
    "0",           "1",    "-1",    "7",     "+7",        " 7",      "\t\n-8", "007",
    "12abc",       "0x10", "",      "-",     "+",         "abc",     " ",      "2147483647",
    "-2147483648", "1.5",  "59.94", "65520", "-98237952", "1100001", "- 5",    "1 2"};
const char *const kElementNames[] = {
    "prev",     "next",    "list",          "CmdID",         "StructSize",   "Channel",
    "Cmd",      "Speed",   "VideoChannels", "AudioChannels", "InfoChannels", "CmdAlt",
    "Position", "Start",   "End",           "ClipID",        "FileName",     "arbID",
    "UniqueID", "MetaTag", "chanName",      "cmd",           "Bogus"};
const char *const kAttributeNames[] = {"Value",
                                       "TcType",
                                       "IsOffset",
                                       "UsingCurrent",
                                       "UsingFrameCount",
                                       "IsFieldCount",
                                       "IsShuttle",
                                       "TimeMs",
                                       "TimeTarget",
                                       "TimeHouseClock",
                                       "Deferred",
                                       "OverrideDeferred",
                                       "cfOverideDeferred",
                                       "cfOverrideDeferred",
                                       "Loop",
                                       "Trigger",
                                       "Ripple",
                                       "Invert",
                                       "Test",
                                       "NoReturn",
                                       "UseAllIDs",
                                       "UseClipID",
                                       "NoClipFiles",
                                       "NoTCSpaces",
                                       "length",
                                       "Type",
                                       "value"};
const char *const kElementTexts[] = {"",          "play",        "PLAYBACK",    "Abort",
                                     "terminate", "edit",        "recstop",     "valuesupported",
                                     "nothing",   "01:00:00:00", "00:00:01;02", "1234",
                                     "10:00",     "0102FFab",    "1B",          "CLIP0001",
                                     "/a/b.mov",  "  5 ",        "&lt;x&gt;",   "<![CDATA[play]]>",
                                     "&#x41;bc"};
const char *const kTypeNames[] = {"frames", "drop-frame", "2", "4", "8", "25", "59.94", "0", "132"};

std::string attributeValue(Random &r, const char *name)
{
    if (std::strcmp(name, "TcType") == 0 && r.below(2))
        return r.pick(kTypeNames);
    return r.pick(kNumbers);
}

std::string randomElement(Random &r)
{
    const char *name = r.pick(kElementNames);
    std::string s = "<";
    s += name;
    const uint32_t attributes = r.below(5);
    std::vector<const char *> used;
    for (uint32_t a = 0; a < attributes; ++a) {
        const char *attr = r.below(3) ? "Value" : r.pick(kAttributeNames);
        bool twice = false;
        for (const char *u : used)
            twice |= std::strcmp(u, attr) == 0;
        if (twice)
            continue;
        used.push_back(attr);
        s += std::string(" ") + attr + "=\"" + attributeValue(r, attr) + "\"";
    }
    if (r.below(3) == 0)
        return s + "/>";
    s += ">";
    s += r.pick(kElementTexts);
    if (r.below(10) == 0)
        s += "<inner/>";
    return s + "</" + name + ">";
}

/* One reader document and the default timecode type it is read with. */
std::string readerCase(uint32_t i, unsigned *tcType, bool *typeGiven)
{
    Random r(i + 1000003);
    *typeGiven = r.below(2);
    const unsigned types[] = {0, 1, 2, 4, 8, 16, 32, 25, 200};
    *tcType = r.pick(types);
    if (i % 4 == 0) { /* a writer's document, read back */
        unsigned type = 0;
        MEDIACMD cmd = writerCase(i / 4 * 7 % kWriterCases, &type);
        char *text = nullptr;
        MediaCmdToXMLString(&text, &cmd, type);
        std::string s = text ? text : "";
        MediaCmdFreeXMLString(&text);
        return s;
    }
    std::string s = r.below(4) ? "" : r.below(2) ? "<?xml version=\"1.0\"?>" : "\xEF\xBB\xBF";
    if (r.below(8) == 0)
        s += "<!--MediaCmd-->";
    s += "<MediaCmd>";
    const uint32_t count = r.below(14);
    for (uint32_t k = 0; k < count; ++k) {
        switch (r.below(12)) {
        case 0: s += std::string("<!--") + r.pick(kElementNames) + "-->"; break;
        case 1: s += r.pick(kElementNames); break;
        case 2: {
            std::string hex;
            const uint32_t n = r.below(12);
            for (uint32_t b = 0; b < n; ++b)
                hex += r.pick(kElementTexts)[0] ? "A7" : "0f";
            s += "<arbID length=\"" + std::string(r.pick(kNumbers)) + "\">" + hex + "</arbID>";
            break;
        }
        default: s += randomElement(r);
        }
    }
    return s + "</MediaCmd>";
}

void digestReaderCase(uint32_t i, Digest *d)
{
    unsigned tcType = 0;
    bool typeGiven = false;
    const std::string xml = readerCase(i, &tcType, &typeGiven);
    MEDIACMD cmd;
    std::memset(&cmd, 0x5A, sizeof cmd);
    d->add(static_cast<uint32_t>(
        MediaCmdFromXMLString(&cmd, typeGiven ? &tcType : nullptr, xml.c_str())));
    d->add(&cmd, sizeof cmd);
}

std::vector<std::string> groupDigests(uint32_t cases, void (*digest)(uint32_t, Digest *))
{
    std::vector<std::string> lines;
    for (uint32_t g = 0; g < cases / kGroup; ++g) {
        Digest d;
        for (uint32_t i = g * kGroup; i < (g + 1) * kGroup; ++i)
            digest(i, &d);
        char line[32];
        std::snprintf(line, sizeof line, "%016llx", static_cast<unsigned long long>(d.h));
        lines.push_back(line);
    }
    return lines;
}

void checkAgainstRecord(const char *file, const std::vector<std::string> &lines)
{
    const std::string path = std::string(QRV_TEST_DATA_DIR) + "/mediacmd/" + file;
    if (const char *dir = std::getenv("QRV_RECORD_XML_DIGESTS")) {
        std::ofstream out(std::string(dir) + "/" + file);
        for (const std::string &line : lines)
            out << line << "\n";
        GTEST_SKIP() << "recorded " << file;
    }
    std::ifstream in(path);
    ASSERT_TRUE(in) << path;
    std::string line;
    size_t group = 0;
    while (std::getline(in, line) && group < lines.size()) {
        EXPECT_EQ(line, lines[group]) << file << ": cases " << group * kGroup << " to "
                                      << (group + 1) * kGroup - 1 << " differ";
        ++group;
    }
    EXPECT_EQ(lines.size(), group);
}

TEST(XmlRecorded, WriterTextsAndRecordsStayAsRecorded)
{
    checkAgainstRecord("xml_writer_digests.txt", groupDigests(kWriterCases, digestWriterCase));
}

/* The text written straight into the block is the text TinyXML prints from
 * the tree MediaCmdToXML builds, record change and status included. */
TEST(XmlRecorded, TextIsWhatTinyXmlPrintsFromTheTree)
{
    for (uint32_t i = 0; i < 4 * kWriterCases; ++i) {
        unsigned tcType = 0;
        MEDIACMD viaTree = writerCase(i, &tcType);
        MEDIACMD viaText = viaTree;
        TiXmlDocument doc;
        const int treeStatus = MediaCmdToXML(&doc, &viaTree, tcType);
        std::string printed;
        printed << doc;
        char *text = nullptr;
        ASSERT_EQ(treeStatus, MediaCmdToXMLString(&text, &viaText, tcType)) << i;
        ASSERT_EQ(treeStatus == 0 ? printed : std::string("(none)"), text ? text : "(none)") << i;
        ASSERT_EQ(0, std::memcmp(&viaTree, &viaText, sizeof viaTree)) << i;
        MediaCmdFreeXMLString(&text);
    }
}

/* The longest texts a record can give still fit the block: every flag, the
 * longest numbers and names, and an area of bytes that each print as six. */
TEST(XmlRecorded, LongestTextsFitTheBlock)
{
    for (const uint32_t alt : {166u, 25u, 162u, 150u, 60002u, 1234u}) {
        for (const char fill : {'"', '\x01', '$'}) {
            MEDIACMD cmd;
            initMediaCmd(&cmd, alt == 166 ? ctSetState : ctValueSupported);
            cmd.cmdFlags = 0xFFFFFFFFu;
            cmd.CmdAlt = alt;
            cmd.prev = cmd.next = cmd.list = 0x80000000u;
            cmd.Channel = cmd.Position = cmd.Start = cmd.End = INT32_MIN;
            cmd.Speed = alt == 166 ? 1 : INT32_MIN;
            if (alt == 166)
                cmd.End = -1; /* the value is the tag again */
            cmd.VideoChannels = cmd.AudioChannels = cmd.InfoChannels = 0x80000000u;
            std::memset(areaOf(cmd), fill, MEDIACMD_AREA_SIZE - 1);
            if (alt == 150)
                areaOf(cmd)[8] = 0;
            TiXmlDocument doc;
            MEDIACMD copy = cmd;
            ASSERT_EQ(0, MediaCmdToXML(&doc, &copy, 2));
            std::string printed;
            printed << doc;
            char *text = nullptr;
            ASSERT_EQ(0, MediaCmdToXMLString(&text, &cmd, 2)) << alt;
            EXPECT_EQ(printed, text);
            MediaCmdFreeXMLString(&text);
        }
    }
}

void *noMemory(size_t) { return nullptr; }

/* Without a block (a null `out`, or no memory) the record is still changed
 * and the result is the record's; *out is not touched. */
TEST(XmlRecorded, NoBlockStillChangesTheRecord)
{
    for (const bool failAlloc : {false, true}) {
        MEDIACMD cmd;
        initMediaCmd(&cmd, ctGetValue);
        cmd.cmdFlags = cfUseClipID;
        cmd.CmdAlt = 162;
        std::strcpy(cmd.FileName, "abc$123");
        qrvHostServices services = {};
        services.size = sizeof services;
        services.alloc = noMemory;
        if (failAlloc)
            qrvSetHostServices(&services);
        char *text = reinterpret_cast<char *>(&services);
        EXPECT_EQ(0, MediaCmdToXMLString(failAlloc ? &text : nullptr, &cmd, 0));
        qrvResetHostServices();
        EXPECT_EQ(reinterpret_cast<char *>(&services), text);
        EXPECT_STREQ("abc", cmd.FileName);
        cmd.Cmd = 20;
        EXPECT_EQ(-1, MediaCmdToXMLString(failAlloc ? &text : nullptr, &cmd, 0));
    }
}

/* Attribute numbers read exactly as sscanf("%d") reads them on this build,
 * numbers beyond 32 bits included (which differ between 32- and 64-bit). */
TEST(XmlRecorded, NumbersReadAsTheCLibraryReadsThem)
{
    const char *const numbers[] = {"0",
                                   "-0",
                                   "+0",
                                   " \t\n\v\f\r42",
                                   "-",
                                   "+",
                                   "",
                                   " ",
                                   "+-1",
                                   "--1",
                                   "- 1",
                                   "1 2",
                                   "0x1F",
                                   "12abc",
                                   "007",
                                   "2147483647",
                                   "2147483648",
                                   "-2147483648",
                                   "-2147483649",
                                   "4294967295",
                                   "4294967296",
                                   "9223372036854775807",
                                   "9223372036854775808",
                                   "-9223372036854775808",
                                   "-9223372036854775809",
                                   "99999999999999999999999",
                                   "-99999999999999999999999",
                                   "18446744073709551615",
                                   "18446744073709551616",
                                   "\xA0"
                                   "5",
                                   "\x85"
                                   "5",
                                   "1e9"};
    for (const char *number : numbers) {
        int expected = 0x5A5A5A5A;
        const bool reads = std::sscanf(number, "%d", &expected) == 1;
        MEDIACMD cmd;
        const std::string xml = std::string("<MediaCmd><Channel Value=\"") + number +
                                "\"/></MediaCmd>";
        ASSERT_EQ(0, MediaCmdFromXMLString(&cmd, nullptr, xml.c_str())) << number;
        EXPECT_EQ(reads ? expected : -1, cmd.Channel) << "\"" << number << "\"";
    }
}

TEST(XmlRecorded, ReaderRecordsStayAsRecorded)
{
    checkAgainstRecord("xml_reader_digests.txt", groupDigests(kReaderCases, digestReaderCase));
}

} // namespace
