// Parameter-set writers: the syntax of ps_syntax.h expanded for writing.
#include <qrvutil/status.h>

#include "h264/ps_syntax.h"
#include "bits/rbsp.h"

using namespace qrv;

namespace {

// Room for the RBSP of any record the writers accept: the longest SPS (12
// scaling lists of 17-bit deltas, a 255-entry POC cycle and every ue(v) at
// 63 bits) stays below 3.5 kB.
constexpr std::size_t kMaxRbspBytes = 4096;

// Significant bits of x.
uint32_t bitLength(uint32_t x) { return static_cast<uint32_t>(ceilLog2(uint64_t{x} + 1)); }

// se(v) code numbers as the standard maps them: v > 0 gives 2v - 1, else -2v.
uint32_t seCodeNum(int32_t v)
{
    return v > 0 ? 2 * static_cast<uint32_t>(v) - 1 : 2 * (0u - static_cast<uint32_t>(v));
}

uint32_t ueBits(uint32_t v) { return 2 * bitLength(v + 1) - 1; }

// Scaling-list deltas wrap modulo 256 into -128..127.
int32_t wrapDelta(int32_t d) { return ((d + 128) & 255) - 128; }

} // namespace

namespace qrv {

// Writes the RBSP bits of one structure over `bs` (room: bit_end), checking
// every value against what its element can carry. The first failure sticks;
// later calls write nothing.
class SyntaxWriter {
  public:
    explicit SyntaxWriter(kx_bitstream *bs) : bs_(bs) {}
    int status() const { return status_; }

    void u(El, int32_t f, int32_t bits, uint32_t max = UINT32_MAX)
    {
        const uint32_t widthMax = bits >= 32 ? UINT32_MAX : (1u << bits) - 1;
        const uint32_t v = static_cast<uint32_t>(f);
        if (check(v <= widthMax && v <= max))
            put(bits, v);
    }
    void flag(El el, int32_t f) { u(el, f, 1); }
    void ue(El, int32_t f, uint32_t max = kUeMax)
    {
        const uint32_t v = static_cast<uint32_t>(f);
        if (check(v <= max && v <= kUeMax))
            putUe(v);
    }
    void se(El, int32_t f, int32_t min, int32_t max)
    {
        if (check(f >= min && f <= max))
            putUe(seCodeNum(f));
    }
    void implied(int32_t, int32_t) {}
    void kept(El, int32_t f, int32_t max) { check(f <= max); }
    // A loop whose count failed its check stops at once; otherwise the
    // record's arrays bound every loop that gets this far.
    bool skipsRest(uint64_t, uint32_t) { return status_ != QRV_OK; }
    void dropUe(El) { check(false); }
    void dropBits(El, int32_t) { check(false); }
    void scalingList(El, const int32_t *list, int size)
    {
        if (status_ == QRV_OK)
            status_ = write_scaling_list(bs_, list, size);
    }
    void hrd(const hdr_parameters *h)
    {
        if (status_ == QRV_OK)
            status_ = write_hrd_parameters(bs_, h);
    }
    // The tail is written whenever the record says it is present, even when
    // every field of it is 0.
    bool moreRbspData(int32_t more)
    {
        check(more == 0 || more == 1);
        return status_ == QRV_OK && more == 1;
    }
    // rbsp_trailing_bits(): a unit always ends with them, whatever the
    // record's rbsp_stop_one_bit holds.
    void trailingBits(int32_t)
    {
        put(1, 1);
        while (status_ == QRV_OK && bs_->bit_pos % 8 != 0)
            put(1, 0);
    }

    void putSe(int32_t v) { putUe(seCodeNum(v)); }

  private:
    bool check(bool ok)
    {
        if (!ok && status_ == QRV_OK)
            status_ = QRV_E_RANGE;
        return status_ == QRV_OK;
    }
    void put(int32_t bits, uint32_t v)
    {
        if (status_ != QRV_OK)
            return;
        if (bs_->bit_pos > bs_->bit_end ||
            bs_->bit_end - bs_->bit_pos < static_cast<uint32_t>(bits)) {
            status_ = QRV_E_ROOM;
            return;
        }
        WriteBits(bs_, bits, v);
    }
    // ue(v): leading zeros, then v + 1 in as many bits as it has.
    void putUe(uint32_t v)
    {
        const int32_t n = static_cast<int32_t>(bitLength(v + 1));
        put(n - 1, 0);
        put(n, v + 1);
    }

    kx_bitstream *bs_;
    int status_ = QRV_OK;
};

} // namespace qrv

int write_hrd_parameters(kx_bitstream *bs, const hdr_parameters *hrd)
{
    SyntaxWriter io(bs);
    hrdParametersSyntax(io, hrd);
    return io.status();
}

// Delta-codes a list the way the reader fills it back: entries 1..255, each
// delta taken in -128..127. The deltas end early, with the delta that makes
// nextScale 0, when the list's repeated tail would cost at least as many bits
// as that delta. A list of eights is written as the single delta -8 that a
// reader meets for the default matrix: that is how such a list was read.
int write_scaling_list(kx_bitstream *bs, const int32_t *list, int size)
{
    bool allEight = true;
    for (int j = 0; j < size; ++j) {
        if (list[j] < 1 || list[j] > 255)
            return QRV_E_RANGE;
        allEight = allEight && list[j] == 8;
    }
    SyntaxWriter io(bs);
    if (allEight) {
        io.putSe(-8);
        return io.status();
    }
    int tail = size - 1; // first entry of the run of equal entries at the end
    while (tail > 0 && list[tail - 1] == list[size - 1])
        --tail;
    const int32_t stop = wrapDelta(-list[tail]);
    const int tailLeft = size - (tail + 1);
    const int explicitCount = tailLeft > 0 && uint32_t(tailLeft) >= ueBits(seCodeNum(stop))
                                  ? tail + 1
                                  : size;
    int32_t last = 8;
    for (int j = 0; j < explicitCount; ++j) {
        io.putSe(wrapDelta(list[j] - last));
        last = list[j];
    }
    if (explicitCount < size)
        io.putSe(stop);
    return io.status();
}

namespace {

// One unit: the header byte as written, then the rest of the RBSP escaped.
template <typename Record, typename Expand>
int writeUnit(kx_bitstream *bs, const Record *record, Expand expand)
{
    if (!bs || !record)
        return QRV_E_ARGUMENT;
    uint8_t rbsp[kMaxRbspBytes];
    kx_bitstream scratch{reinterpret_cast<uintptr_t>(rbsp), sizeof rbsp, sizeof rbsp * 8, 0};
    SyntaxWriter io(&scratch);
    expand(io, record);
    if (io.status() != QRV_OK)
        return io.status() == QRV_E_ROOM ? QRV_E_RANGE : io.status();
    const std::size_t rbspSize = scratch.bit_pos / 8;
    const std::size_t size = 1 + escapedSize(rbsp + 1, rbspSize - 1);
    if (size > INT32_MAX)
        return QRV_E_RANGE;
    if (bs->buffer == 0)
        return static_cast<int>(size);
    if (size > bs->byte_size)
        return QRV_E_ROOM;
    auto *out = reinterpret_cast<uint8_t *>(bs->buffer);
    out[0] = rbsp[0];
    escapeRbsp(rbsp + 1, rbspSize - 1, out + 1, size - 1);
    bs->bit_pos = size * 8;
    return static_cast<int>(size);
}

} // namespace

int qrvutilWrite_SPS(kx_bitstream *bs, const SPS_DECODED *sps)
{
    return writeUnit(bs, sps,
                     [](SyntaxWriter &io, const SPS_DECODED *r) { seqParameterSetSyntax(io, r); });
}

int qrvutilWrite_PPS(kx_bitstream *bs, const PPS_DECODED *pps)
{
    return writeUnit(bs, pps,
                     [](SyntaxWriter &io, const PPS_DECODED *r) { picParameterSetSyntax(io, r); });
}
