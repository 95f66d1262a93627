// Tag names of the clip information record: the text and numeric slot names
// (also the value names in the configuration store), indexed by slot and
// made from the one tag table of the public header, and the stream
// description field names. Every lookup reads these tables.
#ifndef QRVUTIL_CLIPINFO_TAGS_H
#define QRVUTIL_CLIPINFO_TAGS_H

#include <qrvutil/clipinfo.h>

#include <array>
#include <cstddef>
#include <iterator>

namespace qrv {
namespace clipinfo {

// Built from the tag tables of the public header, slot by slot; a slot
// the table does not name (text slot 80) stays null.
template <size_t Slots>
using SlotNames = std::array<const char *, Slots>;

constexpr SlotNames<QRVINFO_TEXT_SLOTS> textSlotNames()
{
    SlotNames<QRVINFO_TEXT_SLOTS> names{};
#define QRVINFO_NAME_SLOT(constant, slot, name) names[slot] = name;
    QRVINFO_TEXT_TAGS(QRVINFO_NAME_SLOT)
#undef QRVINFO_NAME_SLOT
    return names;
}

constexpr SlotNames<QRVINFO_NUMERIC_SLOTS> numericSlotNames()
{
    SlotNames<QRVINFO_NUMERIC_SLOTS> names{};
#define QRVINFO_NAME_SLOT(constant, slot, name) names[slot] = name;
    QRVINFO_NUMERIC_TAGS(QRVINFO_NAME_SLOT)
#undef QRVINFO_NAME_SLOT
    return names;
}

inline constexpr SlotNames<QRVINFO_TEXT_SLOTS> kTextSlotNames = textSlotNames();
inline constexpr SlotNames<QRVINFO_NUMERIC_SLOTS> kNumericSlotNames = numericSlotNames();

// The tables list each slot once, in slot order: so no slot is named twice
// and every entry lies inside the record.
#define QRVINFO_LIST_SLOT(constant, slot, name) slot,
inline constexpr int kListedTextSlots[] = {QRVINFO_TEXT_TAGS(QRVINFO_LIST_SLOT)};
inline constexpr int kListedNumericSlots[] = {QRVINFO_NUMERIC_TAGS(QRVINFO_LIST_SLOT)};
#undef QRVINFO_LIST_SLOT

template <size_t Count>
constexpr bool inSlotOrder(const int (&slots)[Count], int slotCount)
{
    for (size_t i = 0; i < Count; ++i)
        if (slots[i] >= slotCount || (i > 0 && slots[i] <= slots[i - 1]))
            return false;
    return true;
}
static_assert(inSlotOrder(kListedTextSlots, QRVINFO_TEXT_SLOTS), "text tags in slot order");
static_assert(inSlotOrder(kListedNumericSlots, QRVINFO_NUMERIC_SLOTS),
              "numeric tags in slot order");
static_assert(std::size(kListedTextSlots) == QRVINFO_TEXT_SLOTS - 1,
              "every text slot but 80 is named");
static_assert(std::size(kListedNumericSlots) == QRVINFO_NUMERIC_SLOTS,
              "every numeric slot is named");

// True when names[first..last] are `prefix` followed by the slot number + 1,
// as the spare slots are named ("NotUsed_85" is slot 84).
constexpr bool spareSlotsNamed(const char *const *names, int first, int last, const char *prefix)
{
    for (int slot = first; slot <= last; ++slot) {
        const char *name = names[slot];
        const char *p = prefix;
        while (*p != '\0')
            if (*name++ != *p++)
                return false;
        const int number = slot + 1;
        if (name[0] != '0' + number / 10 || name[1] != '0' + number % 10 || name[2] != '\0')
            return false;
    }
    return true;
}
static_assert(spareSlotsNamed(kTextSlotNames.data(), 84, 98, "NotUsed_"), "spare text slot names");
static_assert(spareSlotsNamed(kNumericSlotNames.data(), 44, 48, "NumericNotUsed_"),
              "spare numeric slot names");
static_assert(kTextSlotNames[80] == nullptr, "slot 80 is unnamed");

// Field names of QRVVIDEO, QRVAUDIO and QRVSYSTEM as displayed, by
// description index 0x10000 + n.
// clang-format off
inline constexpr const char *kStreamFieldNames[] = {
    "Width", "Height", "Planes", "BitCount", "Compression",
    "SizeImage", "XPelsPerMeter", "YPelsPerMeter", "ClrUsed", "ClrImportant",
    "Reserved", "FccType", "FccHandler", "Flags", "Caps",
    "Priority", "Language", "Scale", "Rate", "Start",
    "Length", "InitialFrames", "SuggestedBufferSize", "Quality", "SampleSize",
    "EditCount", "FormatChangeCount", "Pitch", "DrFlags", "FileType",
    "ResKorvane", "AudioType", "AudioChannels", "AudioFrequency", "AudioBits",
};
// clang-format on
inline constexpr size_t kStreamFieldCount = sizeof(kStreamFieldNames) /
                                            sizeof(kStreamFieldNames[0]);
static_assert(kStreamFieldCount == 35, "35 stream description fields");

} // namespace clipinfo
} // namespace qrv

#endif
