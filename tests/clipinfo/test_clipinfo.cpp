// The clip information record: reset, merge, display names and timecode
// types found in free text.
#include <qrvutil/clipinfo.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

char *owned(const char *text)
{
    char *block = static_cast<char *>(hostAlloc(std::strlen(text) + 1));
    std::strcpy(block, text);
    return block;
}

struct Record {
    QRVINFO info{};
    Record() { qrvInfoDelete(&info); }
    ~Record() { qrvInfoDelete(&info); }
};

TEST(ClipInfoRecord, DeleteFreesTextAndResetsEveryField)
{
    Record r;
    EXPECT_EQ(r.info.numeric[27], QRVINFO_NOT_SET);
    for (int slot : {0, 2, 5, 6})
        EXPECT_EQ(r.info.numeric[slot], 0u) << slot;
    EXPECT_EQ(r.info.ReservedMax, 0x7FFFFFFFu);

    // The leak checker of the sanitizer build sees any block left behind.
    for (int slot = 0; slot < QRVINFO_TEXT_SLOTS; ++slot)
        r.info.text[slot] = owned("x");
    for (uint32_t &value : r.info.numeric)
        value = 7;
    r.info.Reserved = r.info.ReservedMax = r.info.ReservedEnd = 9;
    qrvInfoDelete(&r.info);
    for (char *text : r.info.text)
        EXPECT_EQ(text, nullptr);
    EXPECT_EQ(r.info.numeric[1], QRVINFO_NOT_SET);
    EXPECT_EQ(r.info.numeric[48], QRVINFO_NOT_SET);
    EXPECT_EQ(r.info.numeric[6], 0u);
    EXPECT_EQ(r.info.Reserved, 0u);
    EXPECT_EQ(r.info.ReservedMax, 0x7FFFFFFFu);
    EXPECT_EQ(r.info.ReservedEnd, 0u);
}

TEST(ClipInfoRecord, SetKeepsLocatorsAndReplacesOtherTags)
{
    Record dst, src;
    dst.info.text[0] = owned("kept.mov");
    dst.info.text[8] = owned("old title");
    dst.info.text[98] = owned("spare");
    dst.info.numeric[3] = 33;
    dst.info.Reserved = 5;
    src.info.text[0] = owned("other.mov");
    src.info.text[1] = owned("native");
    src.info.text[3] = owned("10.0.0.1");
    src.info.text[8] = owned("new title");
    src.info.text[80] = owned("unnamed");
    src.info.numeric[27] = 4;
    src.info.numeric[0] = QRVINFO_NOT_SET;
    src.info.Reserved = 6;

    EXPECT_EQ(qrvInfoSet(&dst.info, &src.info), 0);
    EXPECT_STREQ(dst.info.text[0], "kept.mov");
    EXPECT_STREQ(dst.info.text[1], "native");
    EXPECT_STREQ(dst.info.text[3], "10.0.0.1");
    EXPECT_STREQ(dst.info.text[8], "new title");
    EXPECT_STREQ(dst.info.text[80], "unnamed");
    EXPECT_STREQ(dst.info.text[98], "spare");
    EXPECT_NE(dst.info.text[1], src.info.text[1]); // a copy, owned by dst
    EXPECT_EQ(dst.info.numeric[27], 4u);
    EXPECT_EQ(dst.info.numeric[3], 33u);
    EXPECT_EQ(dst.info.numeric[0], 0u);
    EXPECT_EQ(dst.info.Reserved, 5u);

    // Merging a record into itself must not free what it then copies.
    EXPECT_EQ(qrvInfoSet(&dst.info, &dst.info), 0);
    EXPECT_STREQ(dst.info.text[8], "new title");
}

TEST(ClipInfoRecord, DescriptionsUseTheDisplayNumbering)
{
    struct Case {
        unsigned index;
        const char *name;
        int result;
    };
    const Case cases[] = {
        {0, "FileName", 0},
        {13, "Comments", 0},
        {14, "Owner", 0}, // "DoNotUse" has no number
        {44, "SpecialPlaybackRequirements", 0},
        {57, "VersionString", 0},
        {78, "ProxyFile", 0},
        {79, "Unk(79) ", -1},
        {4096, "Unk(4096) ", -1},
        {4097, "TimeCode", 0},
        {4124, "TimeCodeType", 0},
        {4129, "CustomMetadataBlockType", 0},
        {4130, "Unk(4130) ", -1},
        {0x10000, "Width", 0},
        {0x1001E, "ResKorvane", 0},
        {0x10022, "AudioBits", 0},
        {0x10023, "Unk(65571) ", -1},
        {0x80000000u, "Unk(-2147483648) ", -1},
    };
    for (const Case &c : cases) {
        // Exactly the documented size, so the sanitizer build sees any overrun.
        std::unique_ptr<char[]> name(new char[QRVINFO_DESCRIPTION_SIZE]);
        EXPECT_EQ(qrvInfoGetDescription(c.index, name.get()), c.result) << c.index;
        EXPECT_STREQ(name.get(), c.name);
    }
}

TEST(ClipInfoRecord, TimecodeTypeFromText)
{
    struct Case {
        const char *text;
        unsigned type;
    };
    const Case cases[] = {
        {nullptr, 0},
        {"", 0},
        {"TcType=\"non-drop-frame\"", 4},
        {"TcType=\"drop-frame\"", 4},
        {"<clip tctype=xpal>", 8}, // any one character is skipped
        {"TcType=\"FILM\"", 1},
        {"TcType=\"Film-Drop\"", 128},
        {"TcType=\"23.98\"", 132},
        {"TCTYPE='59.94'", 32},
        {"TcType=\"50i\"", 16},
        {"TcType=\"60\"", 64},
        {"TcType=\"frames\"", 0},
        {"TcType=\"ntsc\"", 0},
        {"TcType=\"fil", 0},
        {"TcType=", 0},
        {"TcType=\"", 0},
        {"tcType=\"pal\"", 0}, // only the three spellings count
        // The first spelling found wins, wherever it stands in the text.
        {"tctype=\"pal\" TcType=\"film\"", 1},
        {"TCTYPE=\"pal\" tctype=\"film\"", 1},
    };
    for (const Case &c : cases) {
        // Copied to a block of exactly its length, so an overread shows.
        std::unique_ptr<char[]> text;
        if (c.text != nullptr) {
            text.reset(new char[std::strlen(c.text) + 1]);
            std::strcpy(text.get(), c.text);
        }
        EXPECT_EQ(sqrvInfoFindTcType(text.get()), c.type) << (c.text ? c.text : "(null)");
    }
}

TEST(ClipInfoRecord, ReservedXmlWritersWriteNothing)
{
    TiXmlElement element("Clip");
    Record r;
    QRVVIDEO video{};
    QRVAUDIO audio{};
    QRVSYSTEM system{};
    EXPECT_EQ(XMLFromQRVInfo(&r.info, &element), 1);
    EXPECT_EQ(XMLFromQRVVideo(&video, &element), 1);
    EXPECT_EQ(XMLFromQRVAudio(&audio, &element), 1);
    EXPECT_EQ(XMLFromQRVSystem(&system, &element), 1);
    EXPECT_EQ(element.FirstChild(), nullptr);
    EXPECT_EQ(element.FirstAttribute(), nullptr);
}

} // namespace
