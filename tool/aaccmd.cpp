// aac info (an ADTS stream) and aac asc (one AudioSpecificConfig).
#include "commands.h"
#include "failure.h"
#include "files.h"
#include "output.h"

#include <qrvutil/aac.h>

#include <CLI/CLI.hpp>

#include <cctype>

namespace qrvtool {

namespace {

constexpr size_t kAdtsHeaderBytes = 7;
constexpr size_t kMaxFrameBytes = 8191; // aac_frame_length is 13 bits
constexpr uint32_t kAdtsSyncword = 0xFFF;
constexpr size_t kReaderPadding = 8;

// Audio object type names by audioObjectType (1-4; ADTS carries these).
constexpr const char *kObjectTypeNames[] = {"null", "Main", "LC", "SSR", "LTP"};

const char *objectTypeName(uint32_t type)
{
    return type < sizeof kObjectTypeNames / sizeof kObjectTypeNames[0] ? kObjectTypeNames[type]
                                                                       : "other";
}

kx_bitstream readerOver(const uint8_t *bytes, size_t size)
{
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(bytes);
    bs.byte_size = size;
    bs.bit_end = size * 8;
    return bs;
}

std::string hexText(const uint8_t *bytes, size_t size)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

Json configJson(const AAC_CONFIG &cfg)
{
    return {{"audioObjectType", cfg.audioObjectType},
            {"object_type_name", objectTypeName(cfg.audioObjectType)},
            {"samplingFrequencyIndex", cfg.samplingFrequencyIndex},
            {"samplingFrequency", cfg.samplingFrequency},
            {"channelConfiguration", cfg.channelConfiguration},
            {"frameLengthFlag", cfg.frameLengthFlag},
            {"dependsOnCoreCoder", cfg.dependsOnCoreCoder},
            {"extensionFlag", cfg.extensionFlag}};
}

// The AudioSpecificConfig that describes an ADTS stream, written and read
// back by the library (the reading fills in the frequency of the index).
Json configOfAdts(const ADTS_HEADER &h)
{
    AAC_CONFIG cfg{};
    cfg.audioObjectType = h.profile + 1;
    cfg.samplingFrequencyIndex = h.sampling_frequency_index;
    cfg.channelConfiguration = h.channel_configuration;
    uint8_t asc[8 + kReaderPadding] = {};
    kx_bitstream out = readerOver(asc, 8);
    qrvutilWriteAAC(&out, &cfg);
    const size_t size = (out.bit_pos + 7) / 8;
    AAC_CONFIG back{};
    kx_bitstream in = readerOver(asc, size);
    qrvutilReadAAC(&in, &back);
    Json j = configJson(back);
    j["asc_hex"] = hexText(asc, size);
    return j;
}

void runAacInfo(const std::string &path, const Output &output)
{
    InputFile in(path);
    uint8_t frame[kMaxFrameBytes + kReaderPadding] = {};
    uint64_t offset = 0;
    uint64_t frames = 0;
    ADTS_HEADER first{};
    for (;;) {
        const size_t got = in.read(frame, kAdtsHeaderBytes);
        if (got == 0)
            break;
        if (got < kAdtsHeaderBytes)
            throw InputError(in.name(), atByte(offset), "the file ends inside an ADTS header");
        ADTS_HEADER header{};
        kx_bitstream bs = readerOver(frame, kAdtsHeaderBytes);
        qrvutilReadADTS(&bs, &header);
        if (header.syncword != kAdtsSyncword)
            throw InputError(in.name(), atByte(offset), "no ADTS syncword: not an ADTS stream");
        if (header.aac_frame_length < kAdtsHeaderBytes)
            throw InputError(in.name(), atByte(offset),
                             "aac_frame_length " + std::to_string(header.aac_frame_length) +
                                 " is shorter than its header");
        const size_t rest = header.aac_frame_length - kAdtsHeaderBytes;
        if (in.read(frame + kAdtsHeaderBytes, rest) < rest)
            throw InputError(in.name(), atByte(offset),
                             "frame of " + std::to_string(header.aac_frame_length) +
                                 " bytes runs past the end of the file (truncated)");
        if (frames == 0)
            first = header;
        ++frames;
        offset += header.aac_frame_length;
    }
    if (frames == 0)
        throw InputError(in.name(), atByte(0), "empty file");
    Json doc = {{"file", in.name()},
                {"profile", first.profile},
                {"profile_name", objectTypeName(first.profile + 1)},
                {"sampling_frequency_index", first.sampling_frequency_index},
                {"channel_configuration", first.channel_configuration},
                {"protection_absent", first.protection_absent},
                {"frames", frames}};
    Json asc = configOfAdts(first);
    doc["sampling_frequency"] = asc["samplingFrequency"];
    doc["asc_hex"] = asc["asc_hex"];
    output.document(doc);
}

std::vector<uint8_t> bytesOfHex(const std::string &hex)
{
    if (hex.empty() || hex.size() % 2 != 0)
        throw InputError("HEX", "", "an even, non-zero number of hexadecimal digits is needed");
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
        if (!std::isxdigit(static_cast<unsigned char>(hex[i])) ||
            !std::isxdigit(static_cast<unsigned char>(hex[i + 1])))
            throw InputError("HEX", "character " + std::to_string(i + 1),
                             "not a hexadecimal digit");
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

void runAacAsc(const std::string &hex, const Output &output)
{
    std::vector<uint8_t> bytes = bytesOfHex(hex);
    const size_t size = bytes.size();
    bytes.resize(size + kReaderPadding, 0);
    AAC_CONFIG cfg{};
    kx_bitstream bs = readerOver(bytes.data(), size);
    qrvutilReadAAC(&bs, &cfg);
    if (bs.bit_pos > bs.bit_end)
        throw InputError("HEX", atByte(size),
                         "the AudioSpecificConfig ends before its syntax does");
    Json doc = configJson(cfg);
    doc["bits"] = bs.bit_pos;
    output.document(doc);
}

} // namespace

void addAacCommands(CLI::App &aac, Output &output)
{
    static std::string infoPath;
    CLI::App *info = aac.add_subcommand("info", "summarise an ADTS stream");
    info->add_option("FILE", infoPath, "ADTS stream, - for standard input")->required();
    output.addJsonFlag(info);
    info->callback([&output] { runAacInfo(infoPath, output); });

    static std::string hex;
    CLI::App *asc = aac.add_subcommand("asc", "decode an AudioSpecificConfig given in hexadecimal");
    asc->add_option("HEX", hex, "the config's bytes, for example 1210")->required();
    output.addJsonFlag(asc);
    asc->callback([&output] { runAacAsc(hex, output); });
}

} // namespace qrvtool
