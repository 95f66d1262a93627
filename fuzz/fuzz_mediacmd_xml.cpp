// The MEDIACMD XML reader on outside text, and the writer on what it read.
#include <qrvutil/mediacmd.h>
#include <qrvutil/mediacmd_xml.h>
#include <qrvutil/status.h>

#include "fuzz_util.h"

namespace {

// Fields that a write and a read carry exactly, by their Value attributes.
void checkCarried(const MEDIACMD &a, const MEDIACMD &b)
{
    FUZZ_CHECK(a.Cmd == b.Cmd);
    FUZZ_CHECK(a.CmdID == b.CmdID);
    FUZZ_CHECK(a.StructSize == b.StructSize);
    FUZZ_CHECK(a.Channel == b.Channel);
    FUZZ_CHECK(a.Position == b.Position);
    FUZZ_CHECK(static_cast<uint32_t>(a.prev) == static_cast<uint32_t>(b.prev));
    FUZZ_CHECK(static_cast<uint32_t>(a.next) == static_cast<uint32_t>(b.next));
    FUZZ_CHECK(static_cast<uint32_t>(a.list) == static_cast<uint32_t>(b.list));
}

// Validation answers with a named status and one line that keeps to its
// room; what it accepts, the reader reads.
void checkValidation(const char *xml, int readStatus)
{
    char reason[QRV_REASON_SIZE + 1];
    std::memset(reason, 0x5A, sizeof reason);
    const int valid = MediaCmdValidateXMLString(xml, reason, QRV_REASON_SIZE);
    FUZZ_CHECK(valid == QRV_OK || valid == QRV_E_SYNTAX || valid == QRV_E_RANGE ||
               valid == QRV_E_TRUNCATED || valid == QRV_E_MEMORY);
    FUZZ_CHECK(reason[QRV_REASON_SIZE] == 0x5A);
    if (valid != QRV_OK) {
        FUZZ_CHECK(std::memchr(reason, 0, QRV_REASON_SIZE) != nullptr);
        FUZZ_CHECK(std::strchr(reason, '\n') == nullptr);
    } else {
        FUZZ_CHECK(readStatus == 0);
    }
    // A reason never goes past a room of one byte.
    char tiny[2] = {'x', 'y'};
    MediaCmdValidateXMLString(xml, tiny, 1);
    FUZZ_CHECK(tiny[1] == 'y');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::GuardedText xml(data, size);
    MEDIACMD read, fresh;
    std::memset(&read, 0xA5, sizeof read);
    initMediaCmd(&fresh, 0);
    const int status = MediaCmdFromXMLString(&read, nullptr, xml.c_str());
    checkValidation(xml.c_str(), status);
    FUZZ_CHECK(status == 0 || status == -2 || status == -3);
    // Without a MediaCmd element the record is the freshly initialised one.
    if (status != 0) {
        FUZZ_CHECK(fuzz::same(&read, &fresh, sizeof read));
        return 0;
    }
    FUZZ_CHECK(std::memchr(read.FileName, 0, sizeof read.FileName) != nullptr);

    // Whatever was read can be written (codes without a name are refused),
    // and the written text reads back to the same carried fields.
    MEDIACMD toWrite = read;
    char *text = nullptr;
    const int written = MediaCmdToXMLString(&text, &toWrite, 0);
    if (read.Cmd > 19) {
        FUZZ_CHECK(written == -1 && text == nullptr);
        return 0;
    }
    FUZZ_CHECK(written == 0 && text != nullptr);
    MEDIACMD back;
    FUZZ_CHECK(MediaCmdFromXMLString(&back, nullptr, text) == 0);
    checkCarried(toWrite, back);
    MediaCmdFreeXMLString(&text);
    FUZZ_CHECK(text == nullptr);
    return 0;
}
