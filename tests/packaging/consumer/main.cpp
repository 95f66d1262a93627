// A host program built against an installed qrvutil: writes a command as
// XML and reads it back through the umbrella header.
#include <qrvutil/qrvutil.h>

#include <cstdio>
#include <cstring>

int main()
{
    MEDIACMD cmd;
    initMediaCmd(&cmd, ctPlay);
    cmd.Channel = 1;
    char *xml = nullptr;
    if (MediaCmdToXMLString(&xml, &cmd, 0) != 0 || xml == nullptr)
        return 1;
    MEDIACMD back;
    int rc = MediaCmdFromXMLString(&back, nullptr, xml);
    MediaCmdFreeXMLString(&xml);
    if (rc != 0 || back.Cmd != ctPlay || back.Channel != 1)
        return 2;
    // The installed version header matches the installed library.
    if (std::strcmp(qrvutilVersion(), QRVUTIL_VERSION_STRING) != 0)
        return 3;
    std::puts("consumer ok");
    return 0;
}
