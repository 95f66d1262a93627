// AudioSpecificConfig and ADTS headers: edge cases of the field rules, and
// every header of real encoder output checked against what ffprobe reported
// (tests/data/aac/make_clips.sh made the clips and the tables).
#include <qrvutil/aac.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Readers may look at the byte just past bit_end; the slack keeps that
// inside the allocation.
struct Bits {
    std::vector<uint8_t> bytes;
    kx_bitstream bs{};

    explicit Bits(std::vector<uint8_t> data, size_t bitLength = SIZE_MAX) : bytes(std::move(data))
    {
        const size_t size = bytes.size();
        bytes.resize(size + 4, 0);
        bs.buffer = reinterpret_cast<uintptr_t>(bytes.data());
        bs.byte_size = size;
        bs.bit_end = bitLength == SIZE_MAX ? size * 8 : bitLength;
    }
};

std::vector<uint8_t> readFile(const std::string &name)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/aac/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::vector<std::string>> readTable(const std::string &name)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/aac/" + name);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        rows.emplace_back(std::istream_iterator<std::string>(words),
                          std::istream_iterator<std::string>());
    }
    return rows;
}

// ffprobe's profile names as audio object types.
const std::map<std::string, uint32_t> kObjectTypes = {{"Main", 1}, {"LC", 2}, {"SSR", 3}, {"LTP", 4}};

// The frequency the AudioSpecificConfig reader gives an ADTS frequency index:
// what a rewrapper does when it turns an ADTS stream into a container track.
uint32_t frequencyViaConfig(const ADTS_HEADER &h)
{
    AAC_CONFIG cfg{h.profile + 1, h.sampling_frequency_index, 0, h.channel_configuration, 0, 0, 0};
    Bits out(std::vector<uint8_t>(8));
    qrvutilWriteAAC(&out.bs, &cfg);
    Bits in(out.bytes);
    AAC_CONFIG back{};
    qrvutilReadAAC(&in.bs, &back);
    return back.samplingFrequency;
}

TEST(AacConfig, ReadsTableAndExplicitFrequencies)
{
    Bits lc({0x12, 0x10});
    AAC_CONFIG cfg{};
    EXPECT_EQ(qrvutilReadAAC(&lc.bs, &cfg), 0);
    EXPECT_EQ(cfg.audioObjectType, 2u);
    EXPECT_EQ(cfg.samplingFrequencyIndex, 4u);
    EXPECT_EQ(cfg.samplingFrequency, 44100u);
    EXPECT_EQ(cfg.channelConfiguration, 2u);
    EXPECT_EQ(cfg.frameLengthFlag + cfg.dependsOnCoreCoder + cfg.extensionFlag, 0u);
    EXPECT_EQ(lc.bs.bit_pos, 16u);

    // 00010 1111 <24 bits 0x00AC44> 0001 1 1 1: the frequency comes before
    // the channel configuration.
    Bits explicitRate({0x17, 0x80, 0x56, 0x22, 0x0F, 0x00});
    EXPECT_EQ(qrvutilReadAAC(&explicitRate.bs, &cfg), 0);
    EXPECT_EQ(cfg.samplingFrequencyIndex, 15u);
    EXPECT_EQ(cfg.samplingFrequency, 44100u);
    EXPECT_EQ(cfg.channelConfiguration, 1u);
    EXPECT_EQ(cfg.frameLengthFlag & cfg.dependsOnCoreCoder & cfg.extensionFlag, 1u);
    EXPECT_EQ(explicitRate.bs.bit_pos, 40u);

    Bits reserved({0x16, 0x90}); // index 13
    qrvutilReadAAC(&reserved.bs, &cfg);
    EXPECT_EQ(cfg.samplingFrequencyIndex, 13u);
    EXPECT_EQ(cfg.samplingFrequency, 0u);

    Bits exhausted({0x12}, 0);
    exhausted.bs.bit_pos = 1;
    qrvutilReadAAC(&exhausted.bs, &cfg);
    EXPECT_EQ(cfg.audioObjectType, 0xFFFFFFFFu);
    EXPECT_EQ(cfg.channelConfiguration, 0xFFFFFFFFu);
    EXPECT_EQ(cfg.extensionFlag, 0xFFFFFFFFu);
    EXPECT_EQ(cfg.samplingFrequency, 0u); // an all-ones index names no frequency
}

TEST(AacConfig, WritesOnlyItsOwnBits)
{
    // The frequency field is ignored below index 15.
    AAC_CONFIG lc{2, 4, 12345, 2, 0, 0, 0};
    Bits out(std::vector<uint8_t>(4, 0xFF));
    out.bs.bit_pos = 4;
    EXPECT_EQ(qrvutilWriteAAC(&out.bs, &lc), 0);
    EXPECT_EQ(out.bs.bit_pos, 20u);
    EXPECT_EQ(out.bytes[0], 0xF1);
    EXPECT_EQ(out.bytes[1], 0x21);
    EXPECT_EQ(out.bytes[2], 0x0F);
    EXPECT_EQ(out.bytes[3], 0xFF);

    AAC_CONFIG rate{2, 15, 0x00AC44, 1, 1, 1, 1};
    Bits explicitRate(std::vector<uint8_t>(6));
    qrvutilWriteAAC(&explicitRate.bs, &rate);
    EXPECT_EQ(explicitRate.bs.bit_pos, 40u);
    EXPECT_EQ(std::vector<uint8_t>(explicitRate.bytes.begin(), explicitRate.bytes.begin() + 5),
              (std::vector<uint8_t>{0x17, 0x80, 0x56, 0x22, 0x0F}));
}

TEST(Adts, CrcWordFollowsWhenProtectionAbsentIsSet)
{
    ADTS_HEADER h{0xFFF, 0, 0, 1, 0, 3, 0, 2, 0, 0, 0, 0, 93, 0x7FF, 0, 0xBEEF};
    Bits with(std::vector<uint8_t>(9));
    EXPECT_EQ(qrvutilWriteADTS(&with.bs, &h), 0);
    EXPECT_EQ(with.bs.bit_pos, 72u);
    // The first seven bytes are those of the first frame of adts_48000_2_main.aac.
    EXPECT_EQ(std::vector<uint8_t>(with.bytes.begin(), with.bytes.begin() + 9),
              (std::vector<uint8_t>{0xFF, 0xF1, 0x0C, 0x80, 0x0B, 0xBF, 0xFC, 0xBE, 0xEF}));
    ADTS_HEADER back{};
    Bits in(std::vector<uint8_t>(with.bytes.begin(), with.bytes.begin() + 9));
    EXPECT_EQ(qrvutilReadADTS(&in.bs, &back), 0);
    EXPECT_EQ(in.bs.bit_pos, 72u);
    EXPECT_EQ(back.aac_frame_length, 93u);
    EXPECT_EQ(back.crc_check, 0xBEEFu);

    h.protection_absent = 0;
    Bits without(std::vector<uint8_t>(9, 0xAA));
    qrvutilWriteADTS(&without.bs, &h);
    EXPECT_EQ(without.bs.bit_pos, 56u);
    EXPECT_EQ(without.bytes[7], 0xAA);
    Bits in7(std::vector<uint8_t>(without.bytes.begin(), without.bytes.begin() + 9));
    back.crc_check = 0x1234;
    qrvutilReadADTS(&in7.bs, &back);
    EXPECT_EQ(in7.bs.bit_pos, 56u);
    EXPECT_EQ(back.protection_absent, 0u);
    EXPECT_EQ(back.crc_check, 0x1234u);
    EXPECT_EQ(back.adts_buffer_fullness, 0x7FFu);
}

TEST(Adts, NothingIsValidatedAndExhaustedReadsAreAllOnes)
{
    ADTS_HEADER odd{0x123, 1, 3, 0, 3, 15, 1, 7, 1, 1, 1, 1, 0x1FFF, 0, 3, 0};
    Bits out(std::vector<uint8_t>(7));
    qrvutilWriteADTS(&out.bs, &odd);
    Bits in(std::vector<uint8_t>(out.bytes.begin(), out.bytes.begin() + 7));
    ADTS_HEADER back{};
    qrvutilReadADTS(&in.bs, &back);
    EXPECT_EQ(back.syncword, 0x123u);
    EXPECT_EQ(back.sampling_frequency_index, 15u);
    EXPECT_EQ(back.aac_frame_length, 0x1FFFu);
    EXPECT_EQ(back.number_of_raw_data_blocks_in_frame, 3u);

    Bits exhausted({0xFF}, 0);
    exhausted.bs.bit_pos = 1;
    qrvutilReadADTS(&exhausted.bs, &back);
    EXPECT_EQ(back.syncword, 0xFFFFFFFFu);
    EXPECT_EQ(back.aac_frame_length, 0xFFFFFFFFu);
    EXPECT_EQ(back.crc_check, 0xFFFFFFFFu); // protection_absent read as set
}

TEST(AacClips, EveryAdtsHeaderMatchesTheProbe)
{
    const auto rows = readTable("adts.txt");
    ASSERT_GE(rows.size(), 5u);
    for (const auto &row : rows) {
        SCOPED_TRACE(row[0]);
        ASSERT_GE(row.size(), 5u);
        const std::vector<uint8_t> file = readFile(row[0]);
        ASSERT_FALSE(file.empty());
        Bits in(file);
        std::vector<std::string> lengths;
        size_t offset = 0;
        while (offset < file.size()) {
            in.bs.bit_pos = offset * 8;
            ADTS_HEADER h{};
            qrvutilReadADTS(&in.bs, &h);
            EXPECT_EQ(h.syncword, 0xFFFu);
            EXPECT_EQ(h.layer, 0u);
            EXPECT_EQ(h.profile + 1, kObjectTypes.at(row[3]));
            EXPECT_EQ(std::to_string(frequencyViaConfig(h)), row[1]);
            EXPECT_EQ(std::to_string(h.channel_configuration), row[2]);
            ASSERT_GT(h.aac_frame_length, 7u);
            lengths.push_back(std::to_string(h.aac_frame_length));

            // Writing the record back reproduces the header bytes.
            Bits again(std::vector<uint8_t>(9));
            qrvutilWriteADTS(&again.bs, &h);
            const size_t headerBytes = h.protection_absent ? 9 : 7;
            EXPECT_TRUE(std::equal(again.bytes.begin(), again.bytes.begin() + 7,
                                   file.begin() + offset));
            EXPECT_EQ(again.bs.bit_pos, headerBytes * 8);
            offset += h.aac_frame_length;
        }
        EXPECT_EQ(offset, file.size());
        EXPECT_EQ(lengths, std::vector<std::string>(row.begin() + 4, row.end()));
    }
}

TEST(AacClips, Mp4AudioSpecificConfigMatchesTheProbe)
{
    const auto rows = readTable("asc.txt");
    ASSERT_EQ(rows.size(), 1u);
    const auto &row = rows[0];
    ASSERT_EQ(row.size(), 5u);
    std::vector<uint8_t> asc;
    for (size_t i = 0; i + 1 < row[4].size(); i += 2)
        asc.push_back(static_cast<uint8_t>(std::stoul(row[4].substr(i, 2), nullptr, 16)));
    ASSERT_GE(asc.size(), 2u);

    // The probe's bytes are the decoder-specific descriptor (tag 5) of the
    // file; the encoder pads the descriptor length with 0x80 bytes.
    const std::vector<uint8_t> file = readFile(row[0]);
    std::vector<uint8_t> sized{static_cast<uint8_t>(asc.size())};
    sized.insert(sized.end(), asc.begin(), asc.end());
    auto found = std::search(file.begin(), file.end(), sized.begin(), sized.end());
    ASSERT_NE(found, file.end());
    while (found != file.begin() && *(found - 1) == 0x80)
        --found;
    ASSERT_NE(found, file.begin());
    EXPECT_EQ(*(found - 1), 0x05);

    Bits in(asc);
    AAC_CONFIG cfg{};
    qrvutilReadAAC(&in.bs, &cfg);
    EXPECT_EQ(cfg.audioObjectType, kObjectTypes.at(row[3]));
    EXPECT_EQ(std::to_string(cfg.samplingFrequency), row[1]);
    EXPECT_EQ(std::to_string(cfg.channelConfiguration), row[2]);
    EXPECT_EQ(in.bs.bit_pos, 16u); // any extension after the flags is left unread

    Bits out(std::vector<uint8_t>(2));
    qrvutilWriteAAC(&out.bs, &cfg);
    EXPECT_TRUE(std::equal(asc.begin(), asc.begin() + 2, out.bytes.begin()));
}

} // namespace
