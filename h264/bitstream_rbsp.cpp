// Emulation-prevention removal for the private copies the readers work on.
#include <cstring>

#include "h264/syntax.h"

namespace qrv {

namespace {

bool isRemovable(uint8_t byte, RemovableBytes removable)
{
    for (std::size_t i = 0; i < removable.count; ++i) {
        if (removable.bytes[i] == byte)
            return true;
    }
    return false;
}

} // namespace

std::size_t removeEmulationPrevention(uint8_t *data, std::size_t size, RemovableBytes removable)
{
    // Starts at index 3: a pattern inside the first three bytes is left as it
    // is, and units recorded that way decode as they always have.
    std::size_t removed = 0;
    std::size_t i = 3;
    while (i + 2 < size) {
        if (data[i] == 0 && data[i + 1] == 0 && isRemovable(data[i + 2], removable)) {
            std::memmove(data + i + 2, data + i + 3, size - (i + 3));
            ++removed;
            i += 2; // the byte after the removed one starts a new zero run
        } else {
            ++i;
        }
    }
    return removed;
}

} // namespace qrv
