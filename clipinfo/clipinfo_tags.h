// Tag names of the clip information record: the text and numeric slot names
// (also the value names in the configuration store) and the stream
// description field names. Written once; every lookup reads these tables.
#ifndef QRVUTIL_CLIPINFO_TAGS_H
#define QRVUTIL_CLIPINFO_TAGS_H

#include <qrvutil/clipinfo.h>

#include <cstddef>

namespace qrv {
namespace clipinfo {

// Slot 80 has no name and is never stored.
inline constexpr const char *kTextSlotNames[] = {
    "FileName", "NativeLocator", "UniversalLocator", "TCP-IPAddress", "SourceLocator",
    "ChannelIdentifier", "ChannelName", "ChannelDescription", "Title", "Subject",
    "Category", "Keywords", "Ratings", "Comments", "DoNotUse",
    "Owner", "Editor", "Supplier", "Source", "Project",
    "Status", "Author", "RevisionNumber", "Produced", "Album",
    "Artist", "Composer", "Copyright", "CreationData", "Description",
    "Director", "Disclaimer", "EncodedBy", "FullName", "Genre",
    "HostComputer", "Information", "Make", "Model", "OriginalArtist",
    "OriginalFormat", "Performers", "Producer", "Product", "Software",
    "SpecialPlaybackRequirements", "Track", "Warning", "URL", "EditData1",
    "EditData2", "EditData3", "EditData4", "EditData5", "EditData6",
    "EditData7", "EditData8", "EditData9", "VersionString", "Manufacturer",
    "Language", "Format", "InputDevice", "DeviceModelNum", "DeviceSerialNum",
    "Reel", "Shot", "Take", "SlateInfo", "FrameAttribute",
    "Episode", "Scene", "DailyRoll", "CamRoll", "SoundRoll",
    "LabRoll", "KeyNumberPrefix", "InkNumberPrefix", "PictureIcon", "ProxyFile",
    nullptr, "ImageInfo", "UMID", "XML", "NotUsed_85",
    "NotUsed_86", "NotUsed_87", "NotUsed_88", "NotUsed_89", "NotUsed_90",
    "NotUsed_91", "NotUsed_92", "NotUsed_93", "NotUsed_94", "NotUsed_95",
    "NotUsed_96", "NotUsed_97", "NotUsed_98", "NotUsed_99",
};

inline constexpr const char *kNumericSlotNames[] = {
    "TimeCode", "UserBits", "VITCTimeCode", "VITCUserBits", "VITCExtraData",
    "PosterFrame", "A-Frame", "AspectRatio", "OriginalRate", "OriginalScale",
    "TotalConversions", "VersionNumber", "FileSize", "FileDate", "FileTime",
    "SequenceNumber", "TotalStreams", "TotalLength", "FilmManufacturerCode", "FilmTypeCode",
    "WhitePoint", "BlackPoint", "BlackGain", "BreakPoint", "Gamma1000",
    "TagNumber", "Flags", "TimeCodeType", "LTCTimeCodeType", "VITCTimeCodeType",
    "ProdDate", "UniqueID", "CustomMetadataBlockType", "CustomMetadataBlockSize",
    "NorthSouthEastWest",
    "Latitude", "Longitude", "Exposure", "RedGain", "BlueGain",
    "WhiteBalance", "Matrix", "ISO", "GreenGain", "NumericNotUsed_45",
    "NumericNotUsed_46", "NumericNotUsed_47", "NumericNotUsed_48", "NumericNotUsed_49",
};

static_assert(sizeof(kTextSlotNames) / sizeof(kTextSlotNames[0]) == QRVINFO_TEXT_SLOTS,
              "one name per text slot");
static_assert(sizeof(kNumericSlotNames) / sizeof(kNumericSlotNames[0]) == QRVINFO_NUMERIC_SLOTS,
              "one name per numeric slot");

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
static_assert(spareSlotsNamed(kTextSlotNames, 84, 98, "NotUsed_"), "spare text slot names");
static_assert(spareSlotsNamed(kNumericSlotNames, 44, 48, "NumericNotUsed_"),
              "spare numeric slot names");
static_assert(kTextSlotNames[80] == nullptr, "slot 80 is unnamed");

// Field names of QRVVIDEO, QRVAUDIO and QRVSYSTEM as displayed, by
// description index 0x10000 + n.
inline constexpr const char *kStreamFieldNames[] = {
    "Width", "Height", "Planes", "BitCount", "Compression",
    "SizeImage", "XPelsPerMeter", "YPelsPerMeter", "ClrUsed", "ClrImportant",
    "Reserved", "FccType", "FccHandler", "Flags", "Caps",
    "Priority", "Language", "Scale", "Rate", "Start",
    "Length", "InitialFrames", "SuggestedBufferSize", "Quality", "SampleSize",
    "EditCount", "FormatChangeCount", "Pitch", "DrFlags", "FileType",
    "ResKorvane", "AudioType", "AudioChannels", "AudioFrequency", "AudioBits",
};
inline constexpr size_t kStreamFieldCount = sizeof(kStreamFieldNames) / sizeof(kStreamFieldNames[0]);
static_assert(kStreamFieldCount == 35, "35 stream description fields");

} // namespace clipinfo
} // namespace qrv

#endif
