// Clip information defaults in the host configuration store and in the
// per-user "UserMetadata.xml": one named value per tag under one key.
// Loading overlays only the values a store holds; writing mirrors the whole
// record, deleting the values of unset slots.
#include <qrvutil/clipinfo.h>
#include <qrvutil/version.h>

#include <cstdio>
#include <cstring>

#include "clipinfo/clipinfo_tags.h"

namespace {

using qrv::clipinfo::kNumericSlotNames;
using qrv::clipinfo::kTextSlotNames;

constexpr char kDefaultsKey[] = "Ovalbrook\\MetaData\\Default";
constexpr char kMetaDataKey[] = "Ovalbrook\\MetaData";
constexpr char kSeededSwitch[] = "XMLDisable";
// A bare name: the host resolves it in the per-user directory.
constexpr char kUserFile[] = "UserMetadata.xml";

// Slots 0-4 locate one particular clip, so they are never defaults; slot 80
// has no name and is never stored either.
constexpr int kFirstStoredTextSlot = 5;

// A load reports the library's version in "VersionString", whatever the
// store holds; the block size is the one hosts have always been given.
constexpr size_t kVersionBlockSize = 18;
static_assert(sizeof(QRVUTIL_VERSION_STRING) <= kVersionBlockSize, "version text fits its block");

// Room the reader adds after the size the store asks for; kept zeroed so the
// text is terminated even if the store fills the whole size it reported.
constexpr size_t kTextSlack = 4;
// The writer reports two bytes beyond the text; the store keeps the text up
// to its terminator.
constexpr unsigned kWriteSizeExtra = 2;

bool isStoredTextSlot(int slot)
{
    return slot >= kFirstStoredTextSlot && kTextSlotNames[slot] != nullptr;
}

void setVersionText(char *&slot)
{
    hostFree(slot);
    slot = static_cast<char *>(hostAlloc(kVersionBlockSize));
    if (slot != nullptr)
        std::snprintf(slot, kVersionBlockSize, "%s", QRVUTIL_VERSION_STRING);
}

// A size the store reports that cannot be allocated with its slack (only
// possible on 32-bit builds) is treated as a failed read.
char *allocTextBlock(unsigned size)
{
    const size_t blockSize = static_cast<size_t>(size) + kTextSlack;
    if (blockSize < size)
        return nullptr;
    char *block = static_cast<char *>(hostAlloc(blockSize));
    if (block != nullptr)
        std::memset(block, 0, blockSize);
    return block;
}

// An absent value leaves the slot as it was; a value that fails to read
// leaves it null.
void loadText(cfgHandle handle, const char *name, char *&slot)
{
    unsigned size = 0;
    cfgValueString(handle, kDefaultsKey, name, nullptr, &size, QRV_CFG_READ);
    if (size == 0)
        return;
    hostFree(slot);
    slot = allocTextBlock(size);
    if (slot != nullptr &&
        cfgValueString(handle, kDefaultsKey, name, slot, &size, QRV_CFG_READ) != 0) {
        hostFree(slot);
        slot = nullptr;
    }
}

// An absent value, or one that fails to read, leaves the slot as it was.
void loadNumeric(cfgHandle handle, const char *name, uint32_t &slot)
{
    if (cfgValueDword(handle, kDefaultsKey, name, nullptr, QRV_CFG_READ) != 0)
        return;
    unsigned value = slot;
    if (cfgValueDword(handle, kDefaultsKey, name, &value, QRV_CFG_READ) == 0)
        slot = value;
}

void storeText(cfgHandle handle, const char *name, const char *text)
{
    if (text == nullptr) {
        cfgDeleteValue(handle, kDefaultsKey, name);
        return;
    }
    unsigned size = static_cast<unsigned>(std::strlen(text)) + kWriteSizeExtra;
    cfgValueString(handle, kDefaultsKey, name, const_cast<char *>(text), &size, QRV_CFG_WRITE);
}

void storeNumeric(cfgHandle handle, const char *name, uint32_t value)
{
    if (value == QRVINFO_NOT_SET) {
        cfgDeleteValue(handle, kDefaultsKey, name);
        return;
    }
    unsigned stored = value;
    cfgValueDword(handle, kDefaultsKey, name, &stored, QRV_CFG_WRITE);
}

// The calls of one record load or store go to the store as one group: on
// the default store one transaction, so a writer killed midway leaves the
// previous record whole and a load sees one record, not parts of two. The
// results stay those of the single calls (all four functions return 0).
class StoreGroup {
  public:
    explicit StoreGroup(cfgHandle handle) : handle_(handle), open_(cfgBeginBatch(handle) == QRV_OK)
    {
    }
    ~StoreGroup()
    {
        if (open_)
            cfgEndBatch(handle_);
    }
    StoreGroup(const StoreGroup &) = delete;
    StoreGroup &operator=(const StoreGroup &) = delete;

  private:
    cfgHandle handle_;
    bool open_;
};

// The user file is used only when it already exists; it is never created.
// A file the store cannot open is skipped.
template <typename Action>
void withUserFile(Action action)
{
    if (!osFileExists(kUserFile))
        return;
    cfgHandle handle = cfgOpen(kUserFile, 0);
    if (handle == nullptr)
        return;
    action(handle);
    cfgClose(handle, 1);
}

} // namespace

extern "C" {

int qrvInfoReadRegSet(cfgHandle handle, QRVINFO *info)
{
    StoreGroup group(handle);
    for (int slot = kFirstStoredTextSlot; slot < QRVINFO_TEXT_SLOTS; ++slot) {
        if (slot == QRVINFO_TEXT_VERSION)
            setVersionText(info->text[slot]);
        else if (isStoredTextSlot(slot))
            loadText(handle, kTextSlotNames[slot], info->text[slot]);
    }
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        loadNumeric(handle, kNumericSlotNames[slot], info->numeric[slot]);
    return 0;
}

int qrvInfoWriteRegSet(cfgHandle handle, const QRVINFO *info)
{
    StoreGroup group(handle);
    for (int slot = kFirstStoredTextSlot; slot < QRVINFO_TEXT_SLOTS; ++slot)
        if (isStoredTextSlot(slot))
            storeText(handle, kTextSlotNames[slot], info->text[slot]);
    for (int slot = 0; slot < QRVINFO_NUMERIC_SLOTS; ++slot)
        storeNumeric(handle, kNumericSlotNames[slot], info->numeric[slot]);
    return 0;
}

int qrvInfoReadReg(QRVINFO *info, int fromStore, int fromUserFile)
{
    if (fromStore) {
        // A store without the switch has never been given defaults: the
        // caller's record becomes them, and nothing is loaded this time.
        // Only the switch's presence matters, not its value.
        unsigned seeded = 0;
        if (cfgValueDword(QRV_CFG_DEFAULT, kMetaDataKey, kSeededSwitch, &seeded, QRV_CFG_READ) != 0)
            qrvInfoWriteRegSet(QRV_CFG_DEFAULT, info);
        else
            qrvInfoReadRegSet(QRV_CFG_DEFAULT, info);
    }
    if (fromUserFile)
        withUserFile([info](cfgHandle handle) { qrvInfoReadRegSet(handle, info); });
    return 0;
}

int qrvInfoMarkSeeded(void)
{
    // The value means nothing to this library; 0 disables nothing for a
    // host that reads the switch by its name.
    unsigned value = 0;
    return cfgValueDword(QRV_CFG_DEFAULT, kMetaDataKey, kSeededSwitch, &value, QRV_CFG_WRITE) == 0
               ? QRV_OK
               : QRV_E_IO;
}

int qrvInfoWriteReg(const QRVINFO *info, int toStore, int toUserFile)
{
    if (toStore)
        qrvInfoWriteRegSet(QRV_CFG_DEFAULT, info);
    if (toUserFile)
        withUserFile([info](cfgHandle handle) { qrvInfoWriteRegSet(handle, info); });
    return 0;
}

} // extern "C"
