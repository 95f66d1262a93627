// Shared pieces of the parameter-set and slice-header readers: the sub-syntax
// readers, scaling lists, emulation-prevention removal and private copies.
#pragma once

#include <qrvutil/h264.h>

#include <cstddef>
#include <cstdint>

#include "h264/bitstream_internal.h"

// One HRD block. Entries beyond the record's 8 are read and dropped, so the
// fields after the block stay in step with the stream.
void read_hrd_parameters(hdr_parameters *hrd, kx_bitstream *bs);
// Reordering keeps the fields of the last loop iteration only.
void read_ref_pic_list_reordering(kx_bitstream *bs, SLICE_HEADER *sh);
// Entries beyond 64 per list are read and dropped.
void read_pred_weight_table(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps,
                            PPS_DECODED *pps);
// Marking keeps the fields of the last loop iteration only.
void read_dec_ref_pic_marking(kx_bitstream *bs, SLICE_HEADER *sh, unsigned nal_unit_type);

namespace qrv {

// Profiles whose SPS carries chroma format, bit depths and scaling lists.
// 138, 139, 134 and 135 are not in it: recorded streams of those profiles
// were always read as 4:2:0 8-bit, and that reading is kept.
inline constexpr int32_t kChromaSyntaxProfiles[] = {83, 86, 100, 110, 118, 122, 128, 244, 44};

inline bool hasChromaSyntax(int32_t profile_idc)
{
    for (int32_t p : kChromaSyntaxProfiles) {
        if (p == profile_idc)
            return true;
    }
    return false;
}

// aspect_ratio_idc of a sample aspect ratio given as sar_width:sar_height.
inline constexpr int32_t kExtendedSar = 255;

// Slice types after folding 5..9 onto 0..4.
enum SliceKind : int32_t { kSliceP = 0, kSliceB = 1, kSliceI = 2, kSliceSP = 3, kSliceSI = 4 };

// The NAL header byte: forbidden_zero_bit, nal_ref_idc, nal_unit_type.
template <typename Record>
void readNalHeader(kx_bitstream *bs, Record *r)
{
    r->forbidden_zero_bit = readU(bs, 1);
    r->nal_ref_idc = readU(bs, 2);
    r->nal_unit_type = readU(bs, 5);
}

inline int32_t sliceKind(int32_t slice_type)
{
    return slice_type >= 5 ? slice_type - 5 : slice_type;
}

// The scaling_list() syntax: deltas are read only while nextScale is not 0;
// whether the default matrix was asked for is not recorded.
void readScalingList(kx_bitstream *bs, int32_t *list, int size);

// The scaling matrix of either parameter set: for each of `lists` lists its
// present flag and, when set, the list (4x4 for the first six, 8x8 after).
// Each set gives its own list count.
void readScalingMatrix(kx_bitstream *bs, int32_t *presentFlags, int32_t (*lists4x4)[16],
                       int32_t (*lists8x8)[64], int32_t lists);

// Bytes that follow 00 00 and are dropped as emulation prevention. The PPS
// reader also drops 0C: parameter sets written by older recorders carry it.
struct RemovableBytes {
    const uint8_t *bytes;
    std::size_t count;
};
inline constexpr uint8_t kEmulationBytes[] = {0x03};
inline constexpr uint8_t kEmulationBytesPps[] = {0x03, 0x0C};
inline constexpr RemovableBytes kRemoveEmulation{kEmulationBytes, 1};
inline constexpr RemovableBytes kRemoveEmulationPps{kEmulationBytesPps, 2};

// Removes a removable byte after each 00 00 found from index 3 on, moving the
// rest down. The size does not shrink, so the last byte ends up repeated once
// per removal: readers that run to the unit's end see it, and peers depend
// on the values read there. Returns the number of bytes removed.
std::size_t removeEmulationPrevention(uint8_t *data, std::size_t size, RemovableBytes removable);

// Points a reader at a private copy for the length of a read, then puts the
// caller's buffer and bit length back (bit_pos keeps where the read ended).
// The copy holds `bytes` bytes plus kBitReaderPadding; the bit length is
// capped at the copy so that no read leaves it.
class ReaderOnCopy {
public:
    ReaderOnCopy(kx_bitstream *bs, const uint8_t *copy, std::size_t bytes)
        : bs_(bs), buffer_(bs->buffer), bitEnd_(bs->bit_end)
    {
        bs->buffer = reinterpret_cast<uintptr_t>(copy);
        if (bytes <= UINTPTR_MAX / 8 && bs->bit_end > bytes * 8)
            bs->bit_end = bytes * 8;
    }
    ~ReaderOnCopy()
    {
        bs_->buffer = buffer_;
        bs_->bit_end = bitEnd_;
    }
    ReaderOnCopy(const ReaderOnCopy &) = delete;
    ReaderOnCopy &operator=(const ReaderOnCopy &) = delete;

private:
    kx_bitstream *bs_;
    uintptr_t buffer_;
    uintptr_t bitEnd_;
};

// Loops whose count comes from the stream can ask for billions of entries.
// Once the reader is past its end every read is known (ue/se: 0 in one bit,
// u(n): all ones in n bits), so the rest of such a loop only moves the
// position; this does that in one step. `remaining` counts the iterations
// not yet run, `bits` what one of them consumes past the end.
inline bool skipLoopPastEnd(kx_bitstream *bs, uint64_t remaining, uint32_t bits)
{
    if (!pastEnd(bs))
        return false;
    bs->bit_pos += static_cast<uintptr_t>(remaining * bits);
    return true;
}

// Iterations left in `for (i = from; i <= last; ++i)` over int32 bounds.
inline uint64_t iterationsLeft(int64_t from, int32_t last)
{
    return last < from ? 0 : static_cast<uint64_t>(static_cast<int64_t>(last) - from + 1);
}

} // namespace qrv
