// Timecode text: parsing outside text, and printing a count and reading it
// back. The first input byte is the timecode type, the next four a frame
// count; the rest is the text.
#include <qrvutil/host.h>

#include "fuzz_util.h"

#include <string>

namespace {

constexpr size_t kTextRoom = 16; // the documented size of a timecode buffer

// Prints `frames` into a buffer of exactly the documented size and reads it
// back: every count has a text that reads as itself.
void checkPrintReads(unsigned frames, unsigned flags)
{
    std::vector<char> text(kTextRoom);
    const int length = tcToString(frames, flags, text.data());
    FUZZ_CHECK(length > 0 && static_cast<size_t>(length) < kTextRoom);
    FUZZ_CHECK(std::strlen(text.data()) == static_cast<size_t>(length));
    unsigned back = ~frames;
    FUZZ_CHECK(tcToFrame(text.data(), flags, &back) == 0);
    FUZZ_CHECK(back == frames);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 5)
        return 0;
    const unsigned flags = data[0] | (data[1] & 0x80u ? 0x32100u : 0u);
    unsigned frames = 0;
    fuzz::copy(&frames, data + 1, 4);
    checkPrintReads(frames, flags);

    const std::string text(reinterpret_cast<const char *>(data + 5), size - 5);
    unsigned parsed = 0xDEADBEEF;
    const int result = tcToFrame(text.c_str(), flags, &parsed);
    FUZZ_CHECK(result == 0 || result == -1);
    if (result != 0) {
        FUZZ_CHECK(parsed == 0xDEADBEEF); // refused text leaves the count alone
        return 0;
    }
    checkPrintReads(parsed, flags);
    return 0;
}
