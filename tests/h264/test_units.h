// Builds crafted bit strings and H.264 units with the library's own writer.
#pragma once

#include <qrvutil/bitstream.h>

#include <cstdint>
#include <vector>

class Bits {
public:
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
        for (u(1, 1); bs_.bit_pos % 8;)
            u(1, 0);
        return *this;
    }
    uintptr_t bitPos() const { return bs_.bit_pos; }
    std::vector<uint8_t> bytes() const { return {buf_.begin(), buf_.begin() + (bs_.bit_pos + 7) / 8}; }

private:
    std::vector<uint8_t> buf_ = std::vector<uint8_t>(4096, 0);
    kx_bitstream bs_{reinterpret_cast<uintptr_t>(buf_.data()), 4096, 4096 * 8, 0};
};

// A unit held with one readable byte after it, as every reader needs.
struct Unit {
    explicit Unit(std::vector<uint8_t> b, uint8_t after = 0) : size(b.size()), storage(std::move(b))
    {
        storage.push_back(after);
    }
    kx_bitstream reader() { return {reinterpret_cast<uintptr_t>(storage.data()), size, size * 8, 0}; }
    std::size_t size;
    std::vector<uint8_t> storage;
};

// Inserts 03 wherever 00 00 precedes a byte of 3 or less.
inline std::vector<uint8_t> escape(const std::vector<uint8_t> &rbsp)
{
    std::vector<uint8_t> out;
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && b <= 3) {
            out.push_back(0x03);
            zeros = 0;
        }
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return out;
}
