// AudioSpecificConfig reading, and writing back what was read.
#include "fuzz_aac_common.h"

namespace {

constexpr uint32_t kFrequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                     16000, 12000, 11025, 8000,  7350,  0,     0};

void checkRanges(const AAC_CONFIG &c)
{
    FUZZ_CHECK(c.audioObjectType < 32 && c.samplingFrequencyIndex < 16 &&
               c.channelConfiguration < 16);
    FUZZ_CHECK(c.frameLengthFlag < 2 && c.dependsOnCoreCoder < 2 && c.extensionFlag < 2);
    if (c.samplingFrequencyIndex < 15)
        FUZZ_CHECK(c.samplingFrequency == kFrequencies[c.samplingFrequencyIndex]);
    else
        FUZZ_CHECK(c.samplingFrequency < (1u << 24));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::checkHeaderRoundTrip<AAC_CONFIG>(data, size, qrvutilReadAAC, qrvutilWriteAAC,
                                           checkRanges);
    return 0;
}
