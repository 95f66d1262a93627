// AudioSpecificConfig and ADTS headers: the field rules, and every header of
// real encoder output against what ffprobe reported (see make_clips.sh).
#include <qrvutil/aac.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// The vector keeps four bytes of slack: a reader may look just past bit_end.
kx_bitstream over(Bytes &bytes, size_t size)
{
    bytes.resize(size + 4);
    return kx_bitstream{reinterpret_cast<uintptr_t>(bytes.data()), size, size * 8, 0};
}

Bytes dataFile(const std::string &name)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/aac/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Rows of a table: file rate channels profile (sizes... | config hex).
std::vector<std::vector<std::string>> table(const std::string &name)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/aac/" + name);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        rows.emplace_back(std::istream_iterator<std::string>(words), std::istream_iterator<std::string>());
    }
    return rows;
}

uint32_t objectType(const std::string &profile)
{
    return profile == "Main" ? 1 : profile == "LC" ? 2 : 0;
}

// The short form 0x12 0x10 is checked with the MP4 clip below.
TEST(Aac, ConfigFrequencyFromStreamOrNone)
{
    // Index 15: 24 frequency bits come before the channel configuration.
    AAC_CONFIG cfg{2, 15, 0x00AC44, 1, 1, 1, 1};
    Bytes bytes(5, 0xFF);
    kx_bitstream bs = over(bytes, 5);
    qrvutilWriteAAC(&bs, &cfg);
    EXPECT_EQ(bs.bit_pos, 40u);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 5), (Bytes{0x17, 0x80, 0x56, 0x22, 0x0F}));
    cfg = AAC_CONFIG{};
    bs.bit_pos = 0;
    qrvutilReadAAC(&bs, &cfg);
    EXPECT_EQ(cfg.samplingFrequency, 44100u);
    EXPECT_EQ(cfg.channelConfiguration, 1u);

    Bytes reserved{0x16, 0x80}; // index 13
    bs = over(reserved, 2);
    qrvutilReadAAC(&bs, &cfg);
    EXPECT_EQ(cfg.samplingFrequencyIndex, 13u);
    EXPECT_EQ(cfg.samplingFrequency, 0u);
}

TEST(Aac, AdtsCrcWordFollowsWhenProtectionAbsentIsSet)
{
    ADTS_HEADER h{0xFFF, 0, 0, 1, 0, 3, 0, 2, 0, 0, 0, 0, 93, 0x7FF, 0, 0xBEEF};
    Bytes with(9);
    kx_bitstream bs = over(with, 9);
    qrvutilWriteADTS(&bs, &h);
    // The first header of adts_48000_2_main.aac, then the CRC word.
    EXPECT_EQ(Bytes(with.begin(), with.begin() + 9), (Bytes{0xFF, 0xF1, 0x0C, 0x80, 0x0B, 0xBF, 0xFC, 0xBE, 0xEF}));
    ADTS_HEADER back{};
    bs.bit_pos = 0;
    qrvutilReadADTS(&bs, &back);
    EXPECT_EQ(bs.bit_pos, 72u);
    EXPECT_EQ(back.crc_check, 0xBEEFu);

    h.protection_absent = 0;
    Bytes without(9, 0xAA);
    bs = over(without, 9);
    qrvutilWriteADTS(&bs, &h);
    EXPECT_EQ(bs.bit_pos, 56u);
    EXPECT_EQ(without[7], 0xAA);

    // Past the end every field, the CRC word included, reads as all ones.
    bs.bit_pos = bs.bit_end + 1;
    qrvutilReadADTS(&bs, &back);
    EXPECT_EQ(back.syncword & back.aac_frame_length & back.crc_check, 0xFFFFFFFFu);
}

TEST(Aac, RealClipsMatchTheProbe)
{
    for (const auto &row : table("adts.txt")) {
        SCOPED_TRACE(row[0]);
        Bytes file = dataFile(row[0]);
        const size_t size = file.size();
        kx_bitstream bs = over(file, size);
        std::vector<std::string> lengths;
        for (size_t offset = 0; offset < size; offset += std::stoul(lengths.back())) {
            ADTS_HEADER h{};
            bs.bit_pos = offset * 8;
            qrvutilReadADTS(&bs, &h);
            ASSERT_GT(h.aac_frame_length, 7u);
            lengths.push_back(std::to_string(h.aac_frame_length));
            EXPECT_EQ(h.syncword, 0xFFFu);
            EXPECT_EQ(h.profile + 1, objectType(row[3]));
            EXPECT_EQ(std::to_string(h.channel_configuration), row[2]);
            // The container form of the same stream names the probe's rate.
            AAC_CONFIG cfg{h.profile + 1, h.sampling_frequency_index, 0, h.channel_configuration, 0, 0, 0};
            Bytes asc, again;
            kx_bitstream ascBits = over(asc, 2), againBits = over(again, 7);
            qrvutilWriteAAC(&ascBits, &cfg);
            ascBits.bit_pos = 0;
            qrvutilReadAAC(&ascBits, &cfg);
            EXPECT_EQ(std::to_string(cfg.samplingFrequency), row[1]);
            qrvutilWriteADTS(&againBits, &h);
            EXPECT_TRUE(std::equal(again.begin(), again.begin() + 7, file.begin() + offset));
        }
        EXPECT_EQ(lengths, std::vector<std::string>(row.begin() + 4, row.end()));
    }

    // The MP4's config is in the file behind tag 5 and a 0x80-padded length.
    const auto row = table("asc.txt").at(0);
    Bytes sized{static_cast<uint8_t>(row[4].size() / 2)};
    for (size_t i = 0; i < row[4].size(); i += 2)
        sized.push_back(static_cast<uint8_t>(std::stoul(row[4].substr(i, 2), nullptr, 16)));
    const Bytes mp4 = dataFile(row[0]);
    auto found = std::search(mp4.begin(), mp4.end(), sized.begin(), sized.end());
    ASSERT_NE(found, mp4.end());
    while (*(found - 1) == 0x80)
        --found;
    EXPECT_EQ(*(found - 1), 0x05);
    Bytes asc(sized.begin() + 1, sized.end());
    kx_bitstream bs = over(asc, asc.size());
    AAC_CONFIG cfg{};
    qrvutilReadAAC(&bs, &cfg);
    EXPECT_EQ(cfg.audioObjectType, objectType(row[3]));
    EXPECT_EQ(std::to_string(cfg.samplingFrequency), row[1]);
    EXPECT_EQ(std::to_string(cfg.channelConfiguration), row[2]);
    EXPECT_EQ(bs.bit_pos, 16u); // the extension that follows is left unread
}

} // namespace
