// The clip information record: reset, merge, display names and timecode
// types found in free text.
#include <qrvutil/clipinfo.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace {

char *owned(const char *text)
{
    return std::strcpy(static_cast<char *>(hostAlloc(std::strlen(text) + 1)), text);
}

// The sanitizer build's leak checker sees any block a reset or merge drops.
TEST(ClipInfo, DeleteResetsAndSetMergesByTheLocatorRule)
{
    QRVINFO dst{}, src{};
    qrvInfoDelete(&dst);
    qrvInfoDelete(&src);
    EXPECT_EQ(dst.numeric[27], QRVINFO_NOT_SET);
    EXPECT_EQ(dst.numeric[0] | dst.numeric[2] | dst.numeric[5] | dst.numeric[6], 0u);
    EXPECT_EQ(dst.ReservedMax, 0x7FFFFFFFu);

    dst.text[0] = owned("kept.mov");
    dst.text[8] = owned("old title");
    dst.numeric[3] = 33;
    src.text[0] = owned("other.mov");
    src.text[1] = owned("native");
    src.text[8] = owned("new title");
    src.text[80] = owned("unnamed");
    src.numeric[27] = 4;
    src.numeric[0] = QRVINFO_NOT_SET;
    EXPECT_EQ(qrvInfoSet(&dst, &src), 0);
    EXPECT_EQ(qrvInfoSet(&dst, &dst), 0); // must not free what it would copy
    EXPECT_STREQ(dst.text[0], "kept.mov");
    EXPECT_STREQ(dst.text[1], "native");
    EXPECT_NE(dst.text[1], src.text[1]);
    EXPECT_STREQ(dst.text[8], "new title");
    EXPECT_STREQ(dst.text[80], "unnamed");
    EXPECT_EQ(dst.numeric[27], 4u);
    EXPECT_EQ(dst.numeric[3], 33u);
    EXPECT_EQ(dst.numeric[0], 0u);

    qrvInfoDelete(&dst);
    qrvInfoDelete(&src);
    EXPECT_EQ(dst.text[0], nullptr);
    EXPECT_EQ(dst.numeric[3], QRVINFO_NOT_SET);
}

TEST(ClipInfo, DescriptionsUseTheDisplayNumbering)
{
    const struct {
        unsigned index;
        const char *name;
    } cases[] = {
        {13, "Comments"}, {14, "Owner"}, {44, "SpecialPlaybackRequirements"}, {78, "ProxyFile"},
        {79, "Unk(79) "}, {4096, "Unk(4096) "}, {4097, "TimeCode"}, {4129, "CustomMetadataBlockType"},
        {4130, "Unk(4130) "}, {0x1001E, "ResKorvane"}, {0x10022, "AudioBits"},
        {0x10023, "Unk(65571) "}, {0x80000000u, "Unk(-2147483648) "},
    };
    for (const auto &c : cases) {
        // Exactly the documented size, so the sanitizer build sees an overrun.
        std::unique_ptr<char[]> name(new char[QRVINFO_DESCRIPTION_SIZE]);
        const int result = qrvInfoGetDescription(c.index, name.get());
        EXPECT_STREQ(name.get(), c.name);
        EXPECT_EQ(result, c.name[std::strlen(c.name) - 1] == ' ' ? -1 : 0) << c.index;
    }
}

TEST(ClipInfo, TimecodeTypeFromText)
{
    const struct {
        const char *text;
        unsigned type;
    } cases[] = {
        {"TcType=\"non-drop-frame\"", 4}, {"<clip tctype=xpal>", 8}, {"TcType=\"FILM\"", 1},
        {"TcType=\"Film-Drop\"", 128},    {"TCTYPE='23.98'", 132},   {"TcType=\"59.94\"", 32},
        {"TcType=\"50i\"", 16},           {"TcType=\"fil", 0},       {"TcType=", 0},
        {"tcType=\"pal\"", 0},            {"TCTYPE=\"pal\" tctype=\"film\"", 1},
    };
    EXPECT_EQ(sqrvInfoFindTcType(nullptr), 0u);
    for (const auto &c : cases) {
        // A block of exactly the text's length, so an overread shows.
        std::unique_ptr<char[]> text(new char[std::strlen(c.text) + 1]);
        EXPECT_EQ(sqrvInfoFindTcType(std::strcpy(text.get(), c.text)), c.type) << c.text;
    }
}

} // namespace
