// Shared pieces of the parameter-set and slice-header readers: the sub-syntax
// readers, scaling lists, emulation-prevention removal and private copies.
#pragma once

#include <qrvutil/h264.h>
#include <qrvutil/host.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bits/bitstream_internal.h"
#include "bits/nal_types.h"
#include "bits/rbsp.h"

// One HRD block. Entries beyond the record's 8 are read and dropped, so the
// fields after the block stay in step with the stream.
void read_hrd_parameters(hdr_parameters *hrd, kx_bitstream *bs);
// The writers' halves of the two: the RBSP bits of one HRD block or one
// scaling list at `bs` (room: bit_end). 0, or QRV_E_RANGE for a value the
// syntax cannot carry, or QRV_E_ROOM.
int write_hrd_parameters(kx_bitstream *bs, const hdr_parameters *hrd);
int write_scaling_list(kx_bitstream *bs, const int32_t *list, int size);
// Reordering keeps the fields of the last loop iteration only.
void read_ref_pic_list_reordering(kx_bitstream *bs, SLICE_HEADER *sh);
// Entries beyond 64 per list are read and dropped.
void read_pred_weight_table(kx_bitstream *bs, SLICE_HEADER *sh, SPS_DECODED *sps, PPS_DECODED *pps);
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

// Emulation prevention as the standard has it (every 03 after 00 00 from the
// first byte after the NAL header on), for the code that checks or walks
// units by the standard rather than as the kept readers do.
inline constexpr RemovableBytes kRemoveEmulationStandard{kEmulationBytes, 1, 3, 2};

// Offset in an escaped unit of byte `rbspByte` of its unescaped form (under
// kRemoveEmulationStandard), or `size` when that byte lies past the end.
inline std::size_t escapedOffset(const uint8_t *unit, std::size_t size, std::size_t rbspByte)
{
    std::size_t seen = 0;
    int zeros = 0;
    for (std::size_t i = 0; i < size; ++i) {
        if (i >= 3 && zeros >= 2 && unit[i] == 0x03) {
            zeros = 0;
            continue;
        }
        if (seen++ == rbspByte)
            return i;
        zeros = i > 0 && unit[i] == 0 ? zeros + 1 : 0;
    }
    return size;
}

// A reader's private copy of a unit, from the host allocator like every
// allocation of the library (a host that replaces memory services sees it),
// followed by kBitReaderPadding zero bytes. `bytes` is null when the
// allocation failed.
struct PrivateCopy {
    uint8_t *bytes = nullptr;
    PrivateCopy(const uint8_t *src, std::size_t size)
    {
        if (size > SIZE_MAX - kBitReaderPadding)
            return;
        bytes = static_cast<uint8_t *>(hostAlloc(size + kBitReaderPadding));
        if (!bytes)
            return;
        if (size != 0)
            std::memcpy(bytes, src, size);
        std::memset(bytes + size, 0, kBitReaderPadding);
    }
    ~PrivateCopy() { hostFree(bytes); }
    PrivateCopy(const PrivateCopy &) = delete;
    PrivateCopy &operator=(const PrivateCopy &) = delete;
};

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
