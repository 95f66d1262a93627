// Sequence parameter set reader.
#include "h264/ps_syntax.h"

using namespace qrv;

void qrv::readScalingList(kx_bitstream *bs, int32_t *list, int size)
{
    int32_t lastScale = 8;
    int32_t nextScale = 8;
    for (int j = 0; j < size; ++j) {
        if (nextScale != 0) {
            const int64_t sum = int64_t{lastScale} + readSe(bs) + 256;
            nextScale = static_cast<int32_t>(sum % 256);
        }
        list[j] = nextScale == 0 ? lastScale : nextScale;
        lastScale = list[j];
    }
}

void read_hrd_parameters(hdr_parameters *hrd, kx_bitstream *bs)
{
    SyntaxReader io{bs};
    hrdParametersSyntax(io, hrd);
}

int qrvutilRead_SPS(kx_bitstream *bs, SPS_DECODED *sps)
{
    if (!sps || !bs || bs->byte_size == 0)
        return 0;
    PrivateCopy copy(reinterpret_cast<const uint8_t *>(bs->buffer), bs->byte_size);
    if (!copy.bytes)
        return 0;
    removeEmulationPrevention(copy.bytes, bs->byte_size, kRemoveEmulation);
    {
        ReaderOnCopy onCopy(bs, copy.bytes, bs->byte_size);
        SyntaxReader io{bs};
        seqParameterSetSyntax(io, sps);
    }
    return static_cast<int>(bs->bit_pos / 8);
}
