// Slice header reading and the in-place CABAC alignment fix. The input holds
// an SPS and a PPS (each one length byte, then the unit), one byte choosing
// the unit type and nal_ref_idc passed in, then the slice unit itself.
#include <qrvutil/h264.h>

#include "fuzz_util.h"

namespace {

struct Context {
    SPS_DECODED sps;
    PPS_DECODED pps;
};

void readParameterSets(const fuzz::Bytes &spsBytes, const fuzz::Bytes &ppsBytes, Context *ctx)
{
    std::memset(ctx, 0, sizeof *ctx);
    fuzz::Unit sps(spsBytes.data(), spsBytes.size()), pps(ppsBytes.data(), ppsBytes.size());
    kx_bitstream bs = sps.reader();
    qrvutilRead_SPS(&bs, &ctx->sps);
    bs = pps.reader();
    qrvutilRead_PPS(&bs, &ctx->pps);
}

// Runs the fix over `unit` in place, the reader standing after the NAL
// header byte as the caller must place it.
void fix(fuzz::Unit &unit, const Context &parameterSets, unsigned type, int refIdc)
{
    Context ctx = parameterSets;
    SLICE_HEADER sh{};
    kx_bitstream bs = unit.reader();
    bs.bit_pos = 8;
    FUZZ_CHECK(qrvutilFix_SliceHeader(&bs, &sh, &ctx.sps, &ctx.pps, type, refIdc) == 0);
    FUZZ_CHECK(bs.buffer == reinterpret_cast<uintptr_t>(unit.storage.data()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Pieces in(data, size);
    fuzz::Bytes spsBytes = in.next(), ppsBytes = in.next();
    uint8_t choice = in.byte();
    fuzz::Bytes slice = in.rest();
    const unsigned type = choice & 31;
    const int refIdc = (choice >> 5) & 3;

    Context parameterSets;
    readParameterSets(spsBytes, ppsBytes, &parameterSets);

    // Reading works on a private copy: the caller's unit stays as given.
    {
        Context ctx = parameterSets;
        SLICE_HEADER sh{};
        fuzz::Unit unit(slice.data(), slice.size());
        kx_bitstream bs = unit.reader();
        int firstMb = qrvutilRead_SliceHeader(&bs, &sh, &ctx.sps, &ctx.pps, static_cast<int>(type));
        FUZZ_CHECK(firstMb == sh.first_mb_in_slice);
        FUZZ_CHECK(bs.buffer == reinterpret_cast<uintptr_t>(unit.storage.data()));
        FUZZ_CHECK(fuzz::same(unit.storage.data(), slice.data(), slice.size()));
    }

    if (slice.empty())
        return 0;
    // The fix rewrites only the alignment bits after the header: at most one
    // byte of the unit changes, never a byte beyond it, and a second fix
    // finds nothing left to change.
    fuzz::Unit unit(slice.data(), slice.size());
    fix(unit, parameterSets, type, refIdc);
    size_t changed = 0;
    for (size_t i = 0; i < slice.size(); ++i)
        changed += unit.storage[i] != slice[i];
    FUZZ_CHECK(changed <= 1);
    FUZZ_CHECK(unit.storage[slice.size()] == 0);
    if (!parameterSets.pps.entropy_coding_mode_flag)
        FUZZ_CHECK(changed == 0);

    fuzz::Bytes once = unit.storage;
    fix(unit, parameterSets, type, refIdc);
    FUZZ_CHECK(unit.storage == once);
    return 0;
}
