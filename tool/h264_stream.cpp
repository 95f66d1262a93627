#include "h264_stream.h"

#include "failure.h"

#include <algorithm>

namespace qrvtool {

namespace {

constexpr int kMaxSpsId = 31;
constexpr int kMaxPpsId = 255;
// The slice reader decodes from a copy of at most this many bytes.
constexpr uint32_t kSliceReaderBytes = 256;

constexpr const char *kNalUnitTypeNames[32] = {
    "unspecified",
    "non-IDR slice",
    "slice data partition A",
    "slice data partition B",
    "slice data partition C",
    "IDR slice",
    "SEI",
    "SPS",
    "PPS",
    "access unit delimiter",
    "end of sequence",
    "end of stream",
    "filler data",
    "SPS extension",
    "prefix NAL unit",
    "subset SPS",
    "depth parameter set",
    "reserved",
    "reserved",
    "auxiliary slice",
    "slice extension",
    "depth slice extension",
    "reserved",
    "reserved",
    "unspecified",
    "unspecified",
    "unspecified",
    "unspecified",
    "unspecified",
    "unspecified",
    "unspecified",
    "unspecified",
};

constexpr const char *kSliceTypeNames[5] = {"P", "B", "I", "SP", "SI"};

bool endedEarly(const kx_bitstream &bs, uint32_t size) { return bs.bit_pos > uintptr_t{size} * 8; }

// True when `unit` repeats the bytes kept in `last`; otherwise keeps them.
bool repeats(std::vector<uint8_t> &last, const NalUnit &unit)
{
    if (last.size() == unit.size && std::equal(last.begin(), last.end(), unit.data))
        return true;
    last.assign(unit.data, unit.data + unit.size);
    return false;
}

} // namespace

const char *nalUnitTypeName(int type) { return kNalUnitTypeNames[type & 31]; }

const char *sliceTypeName(int type)
{
    return type >= 0 && type <= 9 ? kSliceTypeNames[type % 5] : "invalid";
}

kx_bitstream unitReader(const uint8_t *data, uint32_t size)
{
    kx_bitstream bs{};
    bs.buffer = reinterpret_cast<uintptr_t>(data);
    bs.byte_size = size;
    bs.bit_end = uintptr_t{size} * 8;
    return bs;
}

SPS_DECODED &ParameterSets::addSps(const NalUnit &unit)
{
    if (repeats(lastSpsUnit_, unit) && lastSps_)
        return *lastSps_;
    auto sps = std::make_unique<SPS_DECODED>();
    kx_bitstream bs = unitReader(unit.data, unit.size);
    qrvutilRead_SPS(&bs, sps.get());
    if (endedEarly(bs, unit.size))
        throw InputError(file_, atByte(unit.offset), "SPS ends before its syntax does (truncated)");
    const int id = sps->seq_parameter_set_id;
    if (id < 0 || id > kMaxSpsId)
        throw InputError(file_, atByte(unit.offset),
                         "seq_parameter_set_id " + std::to_string(id) + " is out of range");
    std::unique_ptr<SPS_DECODED> &slot = sps_[id];
    slot = std::move(sps);
    if (!first_sps_)
        first_sps_ = slot.get();
    lastSps_ = slot.get();
    return *slot;
}

PPS_DECODED &ParameterSets::addPps(const NalUnit &unit)
{
    if (repeats(lastPpsUnit_, unit) && lastPps_)
        return *lastPps_;
    auto pps = std::make_unique<PPS_DECODED>();
    kx_bitstream bs = unitReader(unit.data, unit.size);
    qrvutilRead_PPS(&bs, pps.get());
    if (endedEarly(bs, unit.size))
        throw InputError(file_, atByte(unit.offset), "PPS ends before its syntax does (truncated)");
    const int id = pps->pic_parameter_set_id;
    if (id < 0 || id > kMaxPpsId)
        throw InputError(file_, atByte(unit.offset),
                         "pic_parameter_set_id " + std::to_string(id) + " is out of range");
    std::unique_ptr<PPS_DECODED> &slot = pps_[id];
    slot = std::move(pps);
    if (!first_pps_)
        first_pps_ = slot.get();
    lastPps_ = slot.get();
    return *slot;
}

const SPS_DECODED *ParameterSets::sps(int id) const
{
    const auto it = sps_.find(id);
    return it == sps_.end() ? nullptr : it->second.get();
}

const PPS_DECODED *ParameterSets::pps(int id) const
{
    const auto it = pps_.find(id);
    return it == pps_.end() ? nullptr : it->second.get();
}

int ParameterSets::slicePpsId(const NalUnit &unit) const
{
    kx_bitstream bs = unitReader(unit.data, unit.size);
    bs.bit_pos = 8;
    ReadExponentialGolombCode(&bs); // first_mb_in_slice
    ReadExponentialGolombCode(&bs); // slice_type
    return static_cast<int>(ReadExponentialGolombCode(&bs));
}

bool ParameterSets::readSlice(const NalUnit &unit, SLICE_HEADER &header)
{
    const auto ppsIt = pps_.find(slicePpsId(unit));
    if (ppsIt == pps_.end())
        return false;
    const auto spsIt = sps_.find(ppsIt->second->seq_parameter_set_id);
    if (spsIt == sps_.end())
        return false;
    header = SLICE_HEADER{};
    kx_bitstream bs = unitReader(unit.data, unit.size);
    qrvutilRead_SliceHeader(&bs, &header, spsIt->second.get(), ppsIt->second.get(), unit.type());
    if (unit.size < kSliceReaderBytes && endedEarly(bs, unit.size))
        throw InputError(file_, atByte(unit.offset),
                         "slice header ends before its syntax does (truncated)");
    return true;
}

} // namespace qrvtool
