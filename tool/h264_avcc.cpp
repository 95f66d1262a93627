// avcc dump (read a box) and h264 avcc (build one from a stream).
#include "access_units.h"
#include "commands.h"
#include "failure.h"
#include "h264_stream.h"

#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include <CLI/CLI.hpp>

#include <set>

namespace qrvtool {

namespace {

// Room after the box so that the library's reader, which trusts the entry
// lengths of the box, never reads past the buffer: the largest 16-bit length.
constexpr size_t kEntryLengthSlack = 65536 + 8;

uint32_t readField(kx_bitstream &bs, int bits) { return ReadBits(&bs, bits); }

void runAvccDump(const std::string &path, const Output &output)
{
    std::vector<uint8_t> box = readWholeFile(path);
    const std::string name = path == "-" ? "<stdin>" : path;
    const size_t size = box.size();
    if (size == 0)
        throw InputError(name, atByte(0), "empty file");
    if (size < 14)
        throw InputError(name, atByte(size), "the avcC box ends before its header does");
    box.resize(size + kEntryLengthSlack, 0);

    kx_bitstream bs = unitReader(box.data(), static_cast<uint32_t>(size));
    Json doc = {{"file", name}};
    const uint32_t boxSize = readField(bs, 32);
    const uint32_t type = readField(bs, 32);
    if (type != 0x61766343u) // "avcC"
        throw InputError(name, atByte(4), "not an avcC box (the box type is not \"avcC\")");
    if (boxSize > size)
        throw InputError(name, atByte(0),
                         "box size " + std::to_string(boxSize) +
                             " is larger than the file (truncated)");
    doc["box_size"] = boxSize;
    doc["configurationVersion"] = readField(bs, 8);
    doc["AVCProfileIndication"] = readField(bs, 8);
    doc["profile_compatibility"] = readField(bs, 8);
    doc["AVCLevelIndication"] = readField(bs, 8);
    doc["lengthSizeMinusOne"] = readField(bs, 8) & 3;
    doc["numOfSequenceParameterSets"] = readField(bs, 8) & 31;

    SPS_DECODED sps{};
    PPS_DECODED pps{};
    bs = unitReader(box.data(), boxSize);
    if (qrvutilReadAvcc(&bs, &sps, &pps) < 0)
        throw InputError(name, atByte(0), "box size 0");
    if (bs.bit_pos > uintptr_t{boxSize} * 8)
        throw InputError(name, atByte(boxSize),
                         "an entry runs past the end of the box (truncated)");
    doc["sps"] = spsJson(sps);
    doc["pps"] = ppsJson(pps);
    output.document(doc);
}

// The stream's parameter-set units (SPS, PPS, SPS extension), each distinct
// one once, with 4-byte start codes and the zero bytes that trailed them in
// the stream: the box takes units as the library delimits them.
std::vector<uint8_t> parameterSetUnits(UnitReader &reader)
{
    std::set<std::vector<uint8_t>> seen;
    std::vector<uint8_t> units;
    NalUnit unit;
    while (reader.next(unit)) {
        const int type = unit.type();
        if (type != 7 && type != 8 && type != 13)
            continue;
        std::vector<uint8_t> bytes(unit.data, unit.data + unit.size);
        bytes.insert(bytes.end(), unit.trailingZeros, 0);
        if (!seen.insert(bytes).second)
            continue;
        units.insert(units.end(), {0, 0, 0, 1});
        units.insert(units.end(), bytes.begin(), bytes.end());
    }
    return units;
}

void runAvccMake(const std::string &inPath, const std::string &outPath)
{
    InputFile in(inPath);
    UnitReader reader(in);
    const std::vector<uint8_t> units = parameterSetUnits(reader);
    if (units.empty())
        throw InputError(in.name(), atByte(0), "no parameter sets in the stream");
    const uint32_t length = static_cast<uint32_t>(units.size());
    const int room = qrvutilMakeAvcc(units.data(), length, nullptr, 0);
    if (room < 0)
        throw InputError(in.name(), "parameter sets",
                         std::string("cannot make an avcC box: ") + qrvStatusText(room));
    std::vector<uint8_t> box(static_cast<size_t>(room));
    const int made = qrvutilMakeAvcc(units.data(), length, box.data(), static_cast<uint32_t>(room));
    if (made < 0)
        throw InputError(in.name(), "parameter sets",
                         std::string("cannot make an avcC box: ") + qrvStatusText(made));
    OutputFile out(outPath);
    out.write(box.data(), static_cast<size_t>(made));
    out.commit();
}

} // namespace

void addH264AvccCommands(CLI::App &h264, CLI::App &avcc, Output &output)
{
    static std::string makeIn, makeOut;
    CLI::App *make = h264.add_subcommand("avcc",
                                         "build an avcC box from a stream's parameter sets");
    make->add_option("IN", makeIn, "H.264 stream, - for standard input")->required();
    make->add_option("OUT", makeOut, "avcC box file, - for standard output")->required();
    make->callback([] { runAvccMake(makeIn, makeOut); });

    static std::string dumpPath;
    CLI::App *dump = avcc.add_subcommand("dump", "decode an avcC box and its parameter sets");
    dump->add_option("FILE", dumpPath, "avcC box (size and type included), - for standard input")
        ->required();
    output.addJsonFlag(dump);
    dump->callback([&output] { runAvccDump(dumpPath, output); });
}

} // namespace qrvtool
