// Names of the shared status codes.
#include <qrvutil/status.h>

namespace {

struct StatusName {
    int status;
    const char *text;
};

constexpr StatusName kStatusNames[] = {
    {QRV_OK, "ok"},
    {QRV_E_ARGUMENT, "bad argument"},
    {QRV_E_ROOM, "room too small"},
    {QRV_E_TRUNCATED, "truncated"},
    {QRV_E_RANGE, "value out of range"},
    {QRV_E_SYNTAX, "malformed"},
    {QRV_E_UNSUPPORTED, "unsupported"},
    {QRV_E_MEMORY, "out of memory"},
    {QRV_E_IO, "input/output failure"},
};

} // namespace

extern "C" QRV_API const char *qrvStatusText(int status)
{
    for (const StatusName &name : kStatusNames) {
        if (name.status == status)
            return name.text;
    }
    return "unknown status";
}
