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
using Words = std::vector<std::string>;

// The vector keeps four bytes of slack: a reader may look just past bit_end.
kx_bitstream over(Bytes &bytes, size_t size)
{
    bytes.resize(size + 4);
    return kx_bitstream{reinterpret_cast<uintptr_t>(bytes.data()), size, size * 8, 0};
}

std::string dataFile(const std::string &name)
{
    std::ifstream in(std::string(QRV_TEST_DATA_DIR) + "/aac/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Words words(const std::string &line)
{
    std::istringstream in(line);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

// Reads a config from the start of `bytes`; answers what the probe says of
// such a stream: rate, channels, profile.
Words probed(Bytes bytes, size_t *bitsRead = nullptr)
{
    kx_bitstream bs = over(bytes, bytes.size());
    AAC_CONFIG cfg{};
    qrvutilReadAAC(&bs, &cfg);
    if (bitsRead != nullptr)
        *bitsRead = bs.bit_pos;
    const uint32_t type = cfg.audioObjectType;
    return {std::to_string(cfg.samplingFrequency), std::to_string(cfg.channelConfiguration),
            type == 1   ? "Main"
            : type == 2 ? "LC"
                        : "?"};
}

// The short form 0x12 0x10 is checked with the MP4 clip below.
TEST(Aac, ConfigFrequencyFromStreamOrNone)
{
    // Index 15: 24 frequency bits come before the channel configuration.
    const AAC_CONFIG cfg{2, 15, 0x00AC44, 1, 1, 1, 1};
    Bytes bytes(5, 0xFF);
    kx_bitstream bs = over(bytes, 5);
    qrvutilWriteAAC(&bs, &cfg);
    EXPECT_EQ(bs.bit_pos, 40u);
    bytes.resize(5);
    EXPECT_EQ(bytes, (Bytes{0x17, 0x80, 0x56, 0x22, 0x0F}));
    EXPECT_EQ(probed(bytes), (Words{"44100", "1", "LC"}));
    EXPECT_EQ(probed({0x16, 0x80}), (Words{"0", "0", "LC"})); // index 13
}

TEST(Aac, AdtsCrcWordFollowsWhenProtectionAbsentIsSet)
{
    ADTS_HEADER h{0xFFF, 0, 0, 1, 0, 3, 0, 2, 0, 0, 0, 0, 93, 0x7FF, 0, 0xBEEF}, back{};
    Bytes with(9), without(9, 0xAA);
    kx_bitstream bs = over(with, 9);
    qrvutilWriteADTS(&bs, &h);
    // The first header of adts_48000_2_main.aac, then the CRC word.
    EXPECT_EQ(Bytes(with.begin(), with.begin() + 9),
              (Bytes{0xFF, 0xF1, 0x0C, 0x80, 0x0B, 0xBF, 0xFC, 0xBE, 0xEF}));
    bs.bit_pos = 0;
    qrvutilReadADTS(&bs, &back);
    EXPECT_EQ(bs.bit_pos, 72u);
    EXPECT_EQ(back.crc_check, 0xBEEFu);

    h.protection_absent = 0;
    bs = over(without, 9);
    qrvutilWriteADTS(&bs, &h);
    EXPECT_EQ(bs.bit_pos, 56u);
    EXPECT_EQ(without[7], 0xAA);

    // Past the end every field, the CRC word included, reads as all ones.
    bs.bit_pos = bs.bit_end + 1;
    qrvutilReadADTS(&bs, &back);
    EXPECT_EQ(back.syncword & back.aac_frame_length & back.crc_check, 0xFFFFFFFFu);
}

// adts.txt rows: file rate channels profile frame-lengths...
TEST(Aac, RealClipsMatchTheProbe)
{
    std::istringstream rows(dataFile("adts.txt"));
    for (std::string line; std::getline(rows, line);) {
        const Words row = words(line);
        SCOPED_TRACE(row[0]);
        const std::string text = dataFile(row[0]);
        Bytes file(text.begin(), text.end());
        kx_bitstream bs = over(file, text.size());
        Words lengths;
        for (size_t offset = 0; offset < text.size(); offset += std::stoul(lengths.back())) {
            ADTS_HEADER h{};
            bs.bit_pos = offset * 8;
            qrvutilReadADTS(&bs, &h);
            ASSERT_GT(h.aac_frame_length, 7u);
            lengths.push_back(std::to_string(h.aac_frame_length));
            // Written back it is the file's header; in the container form it
            // describes the probe's stream.
            const AAC_CONFIG cfg{
                h.profile + 1, h.sampling_frequency_index, 0, h.channel_configuration, 0, 0, 0};
            Bytes again, asc;
            kx_bitstream againBits = over(again, 7), ascBits = over(asc, 2);
            qrvutilWriteADTS(&againBits, &h);
            qrvutilWriteAAC(&ascBits, &cfg);
            EXPECT_TRUE(std::equal(again.begin(), again.begin() + 7, file.begin() + offset));
            EXPECT_EQ(probed(asc), Words(row.begin() + 1, row.begin() + 4));
        }
        EXPECT_EQ(lengths, Words(row.begin() + 4, row.end()));
    }

    // asc.txt: file rate channels profile config-hex. The MP4 holds the
    // config; it describes the probe's stream and its extension is left unread.
    const Words row = words(dataFile("asc.txt"));
    std::string config;
    for (size_t i = 0; i < row[4].size(); i += 2)
        config += static_cast<char>(std::stoul(row[4].substr(i, 2), nullptr, 16));
    ASSERT_NE(dataFile(row[0]).find(config), std::string::npos);
    size_t bitsRead = 0;
    EXPECT_EQ(probed(Bytes(config.begin(), config.end()), &bitsRead),
              Words(row.begin() + 1, row.begin() + 4));
    EXPECT_EQ(bitsRead, 16u);
}

} // namespace
