/* Integer text. */
#include <qrvutil/host.h>

namespace {
constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
}

/* The magnitude is taken in unsigned arithmetic so that INT_MIN has one.
 * A radix outside 2..36 writes the empty string. */
char *intToString(int value, char *buffer, int radix)
{
    if (!buffer)
        return buffer;
    if (radix < 2 || radix > 36) {
        buffer[0] = '\0';
        return buffer;
    }
    unsigned magnitude = value < 0 ? 0u - static_cast<unsigned>(value)
                                   : static_cast<unsigned>(value);
    const unsigned base = static_cast<unsigned>(radix);
    char reversed[QRV_INTEGER_TEXT_SIZE - 2]; /* the digits only: no sign, no terminator */
    int count = 0;
    do {
        reversed[count++] = kDigits[magnitude % base];
        magnitude /= base;
    } while (magnitude != 0);
    char *out = buffer;
    if (value < 0)
        *out++ = '-';
    while (count > 0)
        *out++ = reversed[--count];
    *out = '\0';
    return buffer;
}
