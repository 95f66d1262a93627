// Picture parameter set reader.
#include "h264/ps_syntax.h"

using namespace qrv;

bool SyntaxReader::moreRbspData(int32_t &more)
{
    // Stands in for more_rbsp_data(): peeks the seven bits after the current
    // one (the current bit itself is never looked at) while they lie before
    // the end, and keeps the last bit peeked. Peers decide on the optional
    // tail this same way, so a tail that starts with eight 0 bits is taken
    // as absent. A record that comes in with the field already set skips
    // the look.
    if (more != 0)
        return true;
    for (int32_t n = 1; n <= 7 && bs->bit_pos + static_cast<uintptr_t>(n) < bs->bit_end; ++n) {
        more = PeekBit(bs, n);
        if (more == 1)
            break;
    }
    return more != 0;
}

int qrvutilRead_PPS(kx_bitstream *bs, PPS_DECODED *pps)
{
    if (!pps || !bs)
        return 0;
    PrivateCopy copy(reinterpret_cast<const uint8_t *>(bs->buffer), bs->byte_size);
    if (!copy.bytes)
        return 0;
    removeEmulationPrevention(copy.bytes, bs->byte_size, kRemoveEmulationPps);
    {
        ReaderOnCopy onCopy(bs, copy.bytes, bs->byte_size);
        SyntaxReader io{bs};
        picParameterSetSyntax(io, pps);
    }
    return static_cast<int>(bs->bit_pos / 8);
}
