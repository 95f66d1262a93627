// A typical request: a controller asks channel 1 of a recorder to play a clip
// at normal speed. The command travels as XML; the recorder reads it back and
// traces it.
#include <qrvutil/host.h>
#include <qrvutil/mediacmd.h>
#include <qrvutil/mediacmd_xml.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

// The recorder's trace goes to standard output here.
void printLogLine(int level, const char *line)
{
    std::printf("%s%s\n", level == QRV_LOG_ERROR ? "error: " : "trace: ", line);
}

void showNames()
{
    char name[MCMD_NAME_MAX];
    unsigned value = 0;
    for (unsigned gs : {1u, 150u, 60000u}) {
        gsToString(gs, name);
        gsFromString(name, &value);
        std::printf("gs %-7u -> \"%s\" -> %u\n", gs, name, value);
    }
    // cfNoClipFiles shares its bit with cfCopy: the first name in the table wins.
    for (unsigned cf : {cfUseSpeed, cfUseClipID, cfNoClipFiles}) {
        cfToString(cf, name);
        cfFromString(name, &value);
        std::printf("cf 0x%05X -> \"%s\" -> 0x%05X\n", cf, name, value);
    }
}

// Controller side: fill the command, write it as XML and hand the text to
// the transport (here a string), then free it.
std::string controllerRequest()
{
    MEDIACMD cmd;
    initMediaCmd(&cmd, ctPlay);
    cmd.Channel = 1;
    cmd.Speed = MEDIACMD_SPEED_NORMAL;
    cmd.Position = 1800;
    cmd.cmdFlags = cfUseSpeed | cfUsePosition | cfUseClipID;
    std::strcpy(cmd.ClipID, "NEWS0612");
    std::strcpy(cmd.FileName, "/media/clips/news_0612.mov");

    char *xml = nullptr;
    const unsigned dropFrame = 4;
    if (MediaCmdToXMLString(&xml, &cmd, dropFrame) != 0)
        return "";
    std::printf("controller sends: %s\n", xml);
    std::string sent = xml;
    MediaCmdFreeXMLString(&xml);
    return sent;
}

// Recorder side: read the text back into a record and trace it.
int recorderExecute(const char *xml)
{
    MEDIACMD cmd;
    const int status = MediaCmdFromXMLString(&cmd, nullptr, xml);
    if (status != 0) {
        std::printf("recorder: unreadable command (%d)\n", status);
        return 1;
    }
    __dbgout_mediacmd(&cmd);
    std::printf("recorder: channel %d plays \"%s\" (%s) from frame %d\n", cmd.Channel, cmd.ClipID,
                cmd.FileName, cmd.Position);
    return 0;
}

} // namespace

int main()
{
    qrvHostServices services{};
    services.size = sizeof services;
    services.logLine = printLogLine;
    qrvSetHostServices(&services);

    showNames();
    const std::string xml = controllerRequest();
    const int result = recorderExecute(xml.c_str());
    qrvResetHostServices();
    return result;
}
