// The clip information record: reset, merge, tag names for display and the
// timecode type named inside free text.
#include <qrvutil/clipinfo.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "clipinfo/clipinfo_tags.h"

namespace {

using qrv::clipinfo::kNumericSlotNames;
using qrv::clipinfo::kStreamFieldCount;
using qrv::clipinfo::kStreamFieldNames;
using qrv::clipinfo::kTextSlotNames;

static_assert(offsetof(QRVINFO, text) == 0, "QRVINFO layout");
static_assert(offsetof(QRVINFO, Reserved) == 99 * sizeof(char *), "QRVINFO layout");
static_assert(offsetof(QRVINFO, numeric) == 99 * sizeof(char *) + 4, "QRVINFO layout");
static_assert(offsetof(QRVINFO, ReservedMax) == 99 * sizeof(char *) + 200, "QRVINFO layout");
static_assert(offsetof(QRVINFO, ReservedEnd) == 99 * sizeof(char *) + 204, "QRVINFO layout");
static_assert(sizeof(QRVINFO) == (sizeof(char *) == 8 ? 1000 : 604), "QRVINFO size");

// Timecodes, poster frame and A-frame start at frame 0 rather than unset.
constexpr int kNumericSlotsResetToZero[] = {0, 2, 5, 6};
constexpr uint32_t kReservedMaxReset = 0x7FFFFFFF;

// File name and the two locators identify the clip: a merge never replaces them.
constexpr int kFirstReplaceableTextSlot = 3;

// Display numbering of text tags skips the unused "DoNotUse" slot, so
// description index n >= 14 names slot n + 1; the numbering stops at
// "ProxyFile" (index 78, slot 79). Kept: hosts show and store tags by it.
constexpr unsigned kDoNotUseSlot = 14;
constexpr unsigned kDescribedTextTags = 79;
// Only numeric slots 0-32 ("TimeCode" .. "CustomMetadataBlockType") have a
// display index.
constexpr unsigned kNumericDescriptionBase = 4097;
constexpr unsigned kDescribedNumericTags = 33;
constexpr unsigned kStreamDescriptionBase = 0x10000;

constexpr size_t longestName(const char *const *names, size_t count)
{
    size_t longest = 0;
    for (size_t i = 0; i < count; ++i) {
        size_t n = 0;
        while (names[i] != nullptr && names[i][n] != '\0')
            ++n;
        longest = n > longest ? n : longest;
    }
    return longest;
}
static_assert(longestName(kTextSlotNames.data(), QRVINFO_TEXT_SLOTS) < QRVINFO_DESCRIPTION_SIZE &&
                  longestName(kNumericSlotNames.data(), QRVINFO_NUMERIC_SLOTS) <
                      QRVINFO_DESCRIPTION_SIZE &&
                  longestName(kStreamFieldNames, kStreamFieldCount) < QRVINFO_DESCRIPTION_SIZE,
              "every tag name fits the description buffer");
// "Unk(-2147483648) " is the longest unknown-index text: 17 characters.
static_assert(sizeof("Unk(-2147483648) ") <= QRVINFO_DESCRIPTION_SIZE,
              "every unknown-index text fits the description buffer");

char *copyText(const char *text)
{
    const size_t length = std::strlen(text);
    char *copy = static_cast<char *>(hostAlloc(length + 4));
    if (copy != nullptr)
        std::memcpy(copy, text, length + 1);
    return copy;
}

void replaceText(char *&slot, const char *text)
{
    hostFree(slot);
    slot = copyText(text);
}

const char *descriptionOf(unsigned index)
{
    if (index < kDescribedTextTags)
        return kTextSlotNames[index < kDoNotUseSlot ? index : index + 1];
    if (index - kNumericDescriptionBase < kDescribedNumericTags)
        return kNumericSlotNames[index - kNumericDescriptionBase];
    if (index - kStreamDescriptionBase < kStreamFieldCount)
        return kStreamFieldNames[index - kStreamDescriptionBase];
    return nullptr;
}

// The attribute spellings looked for, first found wins.
constexpr const char *kTcTypeKeys[] = {"TcType=", "tctype=", "TCTYPE="};
// The value starts one character past the '=', where its opening quote is.
constexpr size_t kTcTypeValueOffset = 8;

struct TcTypeName {
    const char *prefix;
    unsigned code;
};
// Matched case-insensitively by prefix, in this order. "film-drop" must come
// before "film", and "non-drop-frame" gives the drop-frame code: both kept
// because clips already carry the codes they produce.
constexpr TcTypeName kTcTypeNames[] = {
    {"frames", 0},     {"23.98", 132},        {"film-drop", 128}, {"film", 1},   {"pal", 8},
    {"drop-frame", 4}, {"non-drop-frame", 4}, {"50", 16},         {"59.94", 32}, {"60", 64},
};

int lowerAscii(unsigned char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; }

// Stops at the end of `text`, so a short value never reads past it.
bool startsWithIgnoringCase(const char *text, const char *prefix)
{
    for (; *prefix != '\0'; ++text, ++prefix)
        if (lowerAscii(static_cast<unsigned char>(*text)) !=
            lowerAscii(static_cast<unsigned char>(*prefix)))
            return false;
    return true;
}

const char *findTcTypeValue(const char *text)
{
    for (const char *key : kTcTypeKeys) {
        const char *match = std::strstr(text, key);
        if (match == nullptr)
            continue;
        // Nothing after the '=': there is no character to skip.
        if (match[kTcTypeValueOffset - 1] == '\0')
            return nullptr;
        return match + kTcTypeValueOffset;
    }
    return nullptr;
}

// Placeholder writer for the reserved XML entry points.
int writeNoXml() { return 1; }

} // namespace

extern "C" {

void qrvInfoDelete(QRVINFO *info)
{
    for (char *&text : info->text) {
        if (text != nullptr)
            hostFree(text);
        text = nullptr;
    }
    info->Reserved = 0;
    for (uint32_t &value : info->numeric)
        value = QRVINFO_NOT_SET;
    for (int slot : kNumericSlotsResetToZero)
        info->numeric[slot] = 0;
    info->ReservedMax = kReservedMaxReset;
    info->ReservedEnd = 0;
}

int qrvInfoSet(QRVINFO *dst, const QRVINFO *src)
{
    for (int slot = 0; slot < kFirstReplaceableTextSlot; ++slot)
        if (dst->text[slot] == nullptr && src->text[slot] != nullptr)
            dst->text[slot] = copyText(src->text[slot]);
    for (int slot = kFirstReplaceableTextSlot; slot < QRVINFO_TEXT_SLOTS; ++slot)
        if (src->text[slot] != nullptr && src->text[slot] != dst->text[slot])
            replaceText(dst->text[slot], src->text[slot]);
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        if (src->numeric[slot] != QRVINFO_NOT_SET)
            dst->numeric[slot] = src->numeric[slot];
    return 0;
}

int qrvInfoGetDescription(unsigned index, char *name)
{
    const char *description = descriptionOf(index);
    if (description == nullptr) {
        // The index is shown as a signed number, as hosts have always logged it.
        std::snprintf(name, QRVINFO_DESCRIPTION_SIZE, "Unk(%d) ", static_cast<int>(index));
        return -1;
    }
    std::snprintf(name, QRVINFO_DESCRIPTION_SIZE, "%s", description);
    return 0;
}

unsigned sqrvInfoFindTcType(const char *text)
{
    if (text == nullptr)
        return 0;
    const char *value = findTcTypeValue(text);
    if (value == nullptr)
        return 0;
    for (const TcTypeName &name : kTcTypeNames)
        if (startsWithIgnoringCase(value, name.prefix))
            return name.code;
    return 0;
}

} // extern "C"

int XMLFromQRVSystem(QRVSYSTEM *, TiXmlElement *) { return writeNoXml(); }

int XMLFromQRVVideo(QRVVIDEO *, TiXmlElement *) { return writeNoXml(); }

int XMLFromQRVAudio(QRVAUDIO *, TiXmlElement *) { return writeNoXml(); }

int XMLFromQRVInfo(QRVINFO *, TiXmlElement *) { return writeNoXml(); }
