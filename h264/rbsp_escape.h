// Stand-in for the escaping routine of the bits/ layer, with its interface,
// until that layer lands here; removed then.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qrv {

inline constexpr std::size_t kNoRoom = SIZE_MAX;

template <typename Emit>
void forEachEscapedByte(const uint8_t *payload, std::size_t size, Emit emit)
{
    int zeros = 0;
    for (std::size_t i = 0; i < size; ++i) {
        if (zeros >= 2 && payload[i] <= 3) {
            emit(uint8_t{3});
            zeros = 0;
        }
        emit(payload[i]);
        zeros = payload[i] == 0 ? zeros + 1 : 0;
    }
    if (size != 0 && payload[size - 1] == 0)
        emit(uint8_t{3});
}

inline std::size_t escapedSize(const uint8_t *payload, std::size_t size)
{
    std::size_t n = 0;
    forEachEscapedByte(payload, size, [&](uint8_t) { ++n; });
    return n;
}

inline std::size_t escapeRbsp(const uint8_t *payload, std::size_t size, uint8_t *out, std::size_t room)
{
    if (escapedSize(payload, size) > room)
        return kNoRoom;
    std::size_t n = 0;
    forEachEscapedByte(payload, size, [&](uint8_t b) { out[n++] = b; });
    return n;
}

} // namespace qrv
