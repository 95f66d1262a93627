// Builds crafted bit strings and H.264 units with the library's own writer.
#pragma once

#include <qrvutil/bitstream.h>

#include <cstdint>
#include <vector>

class Bits {
public:
    Bits() : buf_(4096, 0)
    {
        bs_.buffer = reinterpret_cast<uintptr_t>(buf_.data());
        bs_.byte_size = buf_.size();
        bs_.bit_end = buf_.size() * 8;
    }
    Bits &u(int n, uint32_t v)
    {
        WriteBits(&bs_, n, v);
        return *this;
    }
    Bits &ue(uint32_t v)
    {
        WriteExponentialGolombCode(&bs_, static_cast<int32_t>(v));
        return *this;
    }
    // The standard se(v) mapping (the library's signed writer has its own).
    Bits &se(int32_t v) { return ue(v <= 0 ? uint32_t(-2 * int64_t(v)) : uint32_t(2 * v - 1)); }
    Bits &stop() // rbsp_stop_one_bit and zero alignment
    {
        u(1, 1);
        while (bs_.bit_pos % 8)
            u(1, 0);
        return *this;
    }
    uintptr_t bitPos() const { return bs_.bit_pos; }
    std::vector<uint8_t> bytes() const
    {
        return std::vector<uint8_t>(buf_.begin(), buf_.begin() + (bs_.bit_pos + 7) / 8);
    }

private:
    std::vector<uint8_t> buf_;
    kx_bitstream bs_{};
};

// A unit held with one readable byte after it, as every reader needs.
struct Unit {
    explicit Unit(std::vector<uint8_t> b, uint8_t after = 0) : size(b.size()), storage(std::move(b))
    {
        storage.push_back(after);
    }
    kx_bitstream reader()
    {
        kx_bitstream bs{};
        bs.buffer = reinterpret_cast<uintptr_t>(storage.data());
        bs.byte_size = size;
        bs.bit_end = size * 8;
        return bs;
    }
    std::size_t size;
    std::vector<uint8_t> storage;
};

// Inserts emulation prevention (byte `epb`) wherever 00 00 precedes a byte
// of 3 or less, or the given byte itself.
inline std::vector<uint8_t> escape(const std::vector<uint8_t> &rbsp, uint8_t epb = 0x03)
{
    std::vector<uint8_t> out;
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && (b <= 3 || b == epb)) {
            out.push_back(epb);
            zeros = 0;
        }
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return out;
}
