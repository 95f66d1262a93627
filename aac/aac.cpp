// AudioSpecificConfig and ADTS header reading and writing. Both header forms
// are described once, as tables of (record field, bit width, presence rule);
// the reader and the writer walk the same table, so they cannot disagree on
// order or widths.
#include <qrvutil/aac.h>

#include <cstddef>
#include <cstdint>

namespace {

// Frequencies by samplingFrequencyIndex; 13 and 14 are reserved and read as 0.
constexpr uint32_t kSamplingFrequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                             16000, 12000, 11025, 8000,  7350,  0,     0};
// Index 15 means the frequency itself follows in the stream.
constexpr uint32_t kExplicitFrequencyIndex = 15;
static_assert(sizeof(kSamplingFrequencies) / sizeof(kSamplingFrequencies[0]) ==
                  kExplicitFrequencyIndex,
              "one frequency per index below the escape");

enum class Presence {
    always,
    explicitFrequency, // only when samplingFrequencyIndex is 15
    crcFlagged,        // only when protection_absent is non-zero
};

template <typename Record>
struct Field {
    uint32_t Record::*member;
    int32_t bits;
    Presence presence;
};

constexpr Field<AAC_CONFIG> kAacConfigFields[] = {
    {&AAC_CONFIG::audioObjectType, 5, Presence::always},
    {&AAC_CONFIG::samplingFrequencyIndex, 4, Presence::always},
    {&AAC_CONFIG::samplingFrequency, 24, Presence::explicitFrequency},
    {&AAC_CONFIG::channelConfiguration, 4, Presence::always},
    {&AAC_CONFIG::frameLengthFlag, 1, Presence::always},
    {&AAC_CONFIG::dependsOnCoreCoder, 1, Presence::always},
    {&AAC_CONFIG::extensionFlag, 1, Presence::always},
};

constexpr Field<ADTS_HEADER> kAdtsFields[] = {
    {&ADTS_HEADER::syncword, 12, Presence::always},
    {&ADTS_HEADER::ID, 1, Presence::always},
    {&ADTS_HEADER::layer, 2, Presence::always},
    {&ADTS_HEADER::protection_absent, 1, Presence::always},
    {&ADTS_HEADER::profile, 2, Presence::always},
    {&ADTS_HEADER::sampling_frequency_index, 4, Presence::always},
    {&ADTS_HEADER::private_bit, 1, Presence::always},
    {&ADTS_HEADER::channel_configuration, 3, Presence::always},
    {&ADTS_HEADER::original_copy, 1, Presence::always},
    {&ADTS_HEADER::home, 1, Presence::always},
    {&ADTS_HEADER::copyright_identification_bit, 1, Presence::always},
    {&ADTS_HEADER::copyright_identification_start, 1, Presence::always},
    {&ADTS_HEADER::aac_frame_length, 13, Presence::always},
    {&ADTS_HEADER::adts_buffer_fullness, 11, Presence::always},
    {&ADTS_HEADER::number_of_raw_data_blocks_in_frame, 2, Presence::always},
    {&ADTS_HEADER::crc_check, 16, Presence::crcFlagged},
};

template <typename Record, size_t N>
constexpr int32_t bitsWhen(const Field<Record> (&fields)[N], Presence presence)
{
    int32_t total = 0;
    for (const Field<Record> &f : fields)
        if (f.presence == presence)
            total += f.bits;
    return total;
}
static_assert(bitsWhen(kAdtsFields, Presence::always) == 7 * 8, "ADTS header is 7 bytes");
static_assert(bitsWhen(kAdtsFields, Presence::crcFlagged) == 2 * 8, "crc_check is 2 bytes");
static_assert(bitsWhen(kAacConfigFields, Presence::always) == 16, "short config is 2 bytes");

bool isPresent(const AAC_CONFIG &cfg, Presence presence)
{
    return presence != Presence::explicitFrequency ||
           cfg.samplingFrequencyIndex == kExplicitFrequencyIndex;
}

// Kept as stored: a non-zero protection_absent means the CRC word is there.
// This inverts the published rule, but streams and peers built with the
// library depend on it; callers that want the CRC word set the field to 1.
bool isPresent(const ADTS_HEADER &h, Presence presence)
{
    return presence != Presence::crcFlagged || h.protection_absent != 0;
}

// Fields are read in table order, so a presence rule may look at any field
// read before it.
template <typename Record, size_t N>
void readFields(kx_bitstream *bs, Record *record, const Field<Record> (&fields)[N])
{
    for (const Field<Record> &f : fields)
        if (isPresent(*record, f.presence))
            record->*f.member = ReadBits(bs, f.bits);
}

template <typename Record, size_t N>
void writeFields(kx_bitstream *bs, const Record *record, const Field<Record> (&fields)[N])
{
    for (const Field<Record> &f : fields)
        if (isPresent(*record, f.presence))
            WriteBits(bs, f.bits, record->*f.member);
}

// Indexes outside the table (the reserved ones, and the all-ones value an
// exhausted reader yields) have no frequency.
uint32_t frequencyOfIndex(uint32_t index)
{
    return index < kExplicitFrequencyIndex ? kSamplingFrequencies[index] : 0;
}

} // namespace

extern "C" {

int qrvutilReadAAC(kx_bitstream *bs, AAC_CONFIG *cfg)
{
    readFields(bs, cfg, kAacConfigFields);
    if (cfg->samplingFrequencyIndex != kExplicitFrequencyIndex)
        cfg->samplingFrequency = frequencyOfIndex(cfg->samplingFrequencyIndex);
    return 0;
}

int qrvutilWriteAAC(kx_bitstream *bs, const AAC_CONFIG *cfg)
{
    writeFields(bs, cfg, kAacConfigFields);
    return 0;
}

int qrvutilReadADTS(kx_bitstream *bs, ADTS_HEADER *h)
{
    readFields(bs, h, kAdtsFields);
    return 0;
}

int qrvutilWriteADTS(kx_bitstream *bs, const ADTS_HEADER *h)
{
    writeFields(bs, h, kAdtsFields);
    return 0;
}

} // extern "C"
