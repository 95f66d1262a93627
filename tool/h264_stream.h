// The parameter sets of a stream as the library's readers decode them, kept
// by id, and slice headers decoded against them.
#ifndef QRVTOOL_H264_STREAM_H
#define QRVTOOL_H264_STREAM_H

#include "output.h"
#include "unit_stream.h"

#include <qrvutil/h264.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace qrvtool {

// Display name of a nal_unit_type.
const char *nalUnitTypeName(int type);
// Display name of a slice_type (0-9).
const char *sliceTypeName(int type);

class ParameterSets {
  public:
    explicit ParameterSets(std::string file) : file_(std::move(file)) {}

    // Decodes an SPS or PPS unit and keeps it under its id. Throws InputError
    // when the unit ends before its syntax or its id is out of range.
    SPS_DECODED &addSps(const NalUnit &unit);
    PPS_DECODED &addPps(const NalUnit &unit);

    const SPS_DECODED *sps(int id) const;
    const PPS_DECODED *pps(int id) const;
    const SPS_DECODED *firstSps() const { return first_sps_; }
    const PPS_DECODED *firstPps() const { return first_pps_; }

    // Decodes a slice header against the PPS it names and that PPS's SPS.
    // False (header untouched) when either has not been seen. Throws
    // InputError when a short unit ends inside its header.
    bool readSlice(const NalUnit &unit, SLICE_HEADER &header);
    // pic_parameter_set_id of a slice, read ahead of the header.
    int slicePpsId(const NalUnit &unit) const;

  private:
    // The slice reader may store one bit into the PPS it is given (see the
    // header); records are therefore kept writable.
    std::string file_;
    std::map<int, std::unique_ptr<SPS_DECODED>> sps_;
    std::map<int, std::unique_ptr<PPS_DECODED>> pps_;
    // The bytes of the last SPS and PPS units: a repeat is not decoded again.
    std::vector<uint8_t> lastSpsUnit_;
    std::vector<uint8_t> lastPpsUnit_;
    SPS_DECODED *lastSps_ = nullptr;
    PPS_DECODED *lastPps_ = nullptr;
    const SPS_DECODED *first_sps_ = nullptr;
    const PPS_DECODED *first_pps_ = nullptr;
};

// A reader set up over one unit, as the library's readers expect.
kx_bitstream unitReader(const uint8_t *data, uint32_t size);

// Every field of a parameter set, under the syntax element names.
Json spsJson(const SPS_DECODED &sps);
Json ppsJson(const PPS_DECODED &pps);

} // namespace qrvtool

#endif
