// h264 validate: one finding per line (byte offset, rule, what is wrong),
// every check made by a library call or on what the library decoded.
#include "access_units.h"
#include "commands.h"
#include "failure.h"
#include "h264_stream.h"

#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include <CLI/CLI.hpp>

#include <cstring>
#include <map>
#include <set>

namespace qrvtool {

namespace {

// Stable rule names; scripts match on them.
constexpr const char *kRuleSps = "sps-invalid";
constexpr const char *kRulePps = "pps-invalid";
constexpr const char *kRuleSeiStopBit = "sei-stop-bit";
constexpr const char *kRuleAudNotFirst = "aud-not-first";
constexpr const char *kRuleSliceWithoutPps = "slice-without-pps";
constexpr const char *kRulePpsWithoutSps = "pps-without-sps";
constexpr const char *kRuleIdrWithoutParameterSets = "idr-without-parameter-sets";
constexpr const char *kRuleAvccMismatch = "avcc-mismatch";

struct AvccSets {
    bool present = false;
    SPS_DECODED sps{};
    PPS_DECODED pps{};
};

AvccSets readAvccFile(const std::string &path)
{
    AvccSets sets;
    if (path.empty())
        return sets;
    std::vector<uint8_t> box = readWholeFile(path);
    const size_t size = box.size();
    if (size < 14)
        throw InputError(path, atByte(size), "the avcC box ends before its header does");
    box.resize(size + 65536 + 8, 0); // the reader trusts the box's entry lengths
    kx_bitstream bs = unitReader(box.data(), static_cast<uint32_t>(size));
    if (qrvutilReadAvcc(&bs, &sets.sps, &sets.pps) < 0)
        throw InputError(path, atByte(0), "box size 0");
    sets.present = true;
    return sets;
}

class Validator {
  public:
    Validator(const Output &output, const std::string &file, AvccSets avcc)
        : stream_(output, {{"file", file}}, "findings"), avcc_(std::move(avcc))
    {
    }

    void accessUnit(const AccessUnit &au)
    {
        bool spsBeforeSlice = false, ppsBeforeSlice = false, sliceSeen = false;
        for (size_t i = 0; i < au.units.size(); ++i) {
            const NalUnit &unit = au.units[i];
            const uint64_t offset = au.offset + unit.offset - 4;
            switch (unit.type()) {
            case 7:
                checkSps(unit, offset);
                spsBeforeSlice |= !sliceSeen;
                break;
            case 8:
                checkPps(unit, offset);
                ppsBeforeSlice |= !sliceSeen;
                break;
            case 9:
                if (i != 0)
                    find(offset, kRuleAudNotFirst,
                         "an access unit delimiter that is not the first unit");
                break;
            case 1:
            case 5:
                checkSlice(unit, offset);
                sliceSeen = true;
                break;
            default: break;
            }
        }
        const bool joinable = avcc_.present || (spsBeforeSlice && ppsBeforeSlice);
        if (au.hasIdr && !joinable)
            find(
                au.offset, kRuleIdrWithoutParameterSets,
                "an IDR access unit without SPS and PPS before its slices (in band or in an avcC)");
        checkSeiStopBits(au);
    }

    uint64_t finish()
    {
        stream_.finish({{"count", count_}});
        return count_;
    }

  private:
    void find(uint64_t offset, const char *rule, const std::string &what)
    {
        char line[64];
        std::snprintf(line, sizeof line, "%10llu %-28s ", static_cast<unsigned long long>(offset),
                      rule);
        stream_.add({{"offset", offset}, {"rule", rule}, {"message", what}}, line + what);
        ++count_;
    }

    void checkSps(const NalUnit &unit, uint64_t offset)
    {
        char reason[QRV_REASON_SIZE] = {};
        if (qrvutilValidate_SPS(unit.data, unit.size, reason, sizeof reason) != QRV_OK)
            find(offset, kRuleSps, reason);
        // Kept even when invalid: slices that name it are not reported again.
        SPS_DECODED sps{};
        kx_bitstream bs = unitReader(unit.data, unit.size);
        qrvutilRead_SPS(&bs, &sps);
        sps_[sps.seq_parameter_set_id] = sps;
        if (sps.seq_parameter_set_id < 0)
            return; // read past its end: nothing to keep
        if (avcc_.present && avcc_.sps.seq_parameter_set_id == sps.seq_parameter_set_id &&
            std::memcmp(&avcc_.sps, &sps, sizeof sps) != 0)
            find(offset, kRuleAvccMismatch, "this SPS differs from the avcC's SPS of the same id");
    }

    void checkPps(const NalUnit &unit, uint64_t offset)
    {
        char reason[QRV_REASON_SIZE] = {};
        if (qrvutilValidate_PPS(unit.data, unit.size, reason, sizeof reason) != QRV_OK)
            find(offset, kRulePps, reason);
        PPS_DECODED pps{};
        kx_bitstream bs = unitReader(unit.data, unit.size);
        qrvutilRead_PPS(&bs, &pps);
        pps_[pps.pic_parameter_set_id] = pps;
        if (pps.pic_parameter_set_id < 0)
            return;
        if (avcc_.present && avcc_.pps.pic_parameter_set_id == pps.pic_parameter_set_id &&
            std::memcmp(&avcc_.pps, &pps, sizeof pps) != 0)
            find(offset, kRuleAvccMismatch, "this PPS differs from the avcC's PPS of the same id");
    }

    void checkSlice(const NalUnit &unit, uint64_t offset)
    {
        kx_bitstream bs = unitReader(unit.data, unit.size);
        bs.bit_pos = 8;
        ReadExponentialGolombCode(&bs); // first_mb_in_slice
        ReadExponentialGolombCode(&bs); // slice_type
        const int ppsId = static_cast<int>(ReadExponentialGolombCode(&bs));
        const bool inAvcc = avcc_.present && avcc_.pps.pic_parameter_set_id == ppsId;
        const auto pps = pps_.find(ppsId);
        if (pps == pps_.end() && !inAvcc) {
            if (reportedPps_.insert(ppsId).second)
                find(offset, kRuleSliceWithoutPps,
                     "a slice names PPS " + std::to_string(ppsId) + ", which never appeared");
            return;
        }
        const int spsId = pps != pps_.end() ? pps->second.seq_parameter_set_id
                                            : avcc_.pps.seq_parameter_set_id;
        const bool spsInAvcc = avcc_.present && avcc_.sps.seq_parameter_set_id == spsId;
        if (!sps_.count(spsId) && !spsInAvcc && reportedSps_.insert(spsId).second)
            find(offset, kRulePpsWithoutSps,
                 "PPS " + std::to_string(ppsId) + " names SPS " + std::to_string(spsId) +
                     ", which never appeared");
    }

    // The library's unit insertion closes open SEI messages and counts them;
    // it works on a copy, so the stream itself is only looked at.
    void checkSeiStopBits(const AccessUnit &au)
    {
        bool hasSei = false;
        for (const NalUnit &unit : au.units)
            hasSei |= unit.type() == 6;
        if (!hasSei)
            return;
        std::vector<uint8_t> copy(au.bytes);
        copy.resize(au.bytes.size() + au.units.size() + 16);
        NAL_BUFFER frame{};
        frame.data = copy.data();
        frame.length = static_cast<uint32_t>(au.bytes.size());
        if (qrvutilAddNalUnits(&frame, static_cast<uint32_t>(copy.size()), nullptr, nullptr) < 0)
            return;
        QRV_NAL_UNIT_COUNTS counts{};
        std::memcpy(&counts, frame.storage, sizeof counts);
        if (counts.closed_sei > 0)
            find(au.offset, kRuleSeiStopBit,
                 std::to_string(counts.closed_sei) +
                     " SEI unit(s) whose messages lack the stop bit");
    }

    RecordStream stream_;
    AvccSets avcc_;
    std::map<int, SPS_DECODED> sps_;
    std::map<int, PPS_DECODED> pps_;
    std::set<int> reportedPps_, reportedSps_;
    uint64_t count_ = 0;
};

void runValidate(const std::string &path, const std::string &avccPath, const Output &output)
{
    AvccSets avcc = readAvccFile(avccPath);
    InputFile in(path);
    UnitReader reader(in);
    Validator validator(output, in.name(), std::move(avcc));
    // The validator decodes parameter sets itself, after the library's
    // validators have accepted them.
    forEachAccessUnit(reader, nullptr, [&](AccessUnit &au) { validator.accessUnit(au); });
    if (validator.finish() > 0) {
        std::fflush(stdout);
        throw FindingsReported();
    }
}

} // namespace

void addH264ValidateCommand(CLI::App &h264, Output &output)
{
    static std::string in, avcc;
    CLI::App *validate = h264.add_subcommand(
        "validate", "check a stream; one finding per line, exit status 1 when any");
    validate->add_option("FILE", in, "H.264 stream, - for standard input")->required();
    validate->add_option("--avcc", avcc, "the avcC box that goes with the stream");
    output.addJsonFlag(validate);
    validate->callback([&output] { runValidate(in, avcc, output); });
}

} // namespace qrvtool
