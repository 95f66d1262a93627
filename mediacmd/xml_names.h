/* Names shared by the MEDIACMD XML writer and reader. */
#ifndef QRVUTIL_MEDIACMD_XML_NAMES_H
#define QRVUTIL_MEDIACMD_XML_NAMES_H

#include <qrvutil/mediacmd.h>

#include <cstdint>

namespace qrv::mediacmd {

/* An attribute set to 1 for a flag. */
struct FlagAttribute {
    const char *name;
    uint32_t flag;
};

/* The flag attributes of the "Cmd" element, in the writer's order. The
 * reader reads override-deferred under its own names (see the reader). */
constexpr FlagAttribute kCmdFlagAttributes[] = {
    {"Deferred", cfDeferred},     {"OverrideDeferred", cfOverrideDeferred},
    {"Loop", cfLoop},             {"Trigger", cfTrigger},
    {"Ripple", cfRipple},         {"Invert", cfInvert},
    {"Test", cfTest},             {"NoReturn", cfNoReturn},
    {"UseAllIDs", cfUseAllIDs},   {"UseClipID", cfUseClipID},
    {"NoClipFiles", cfNoClipFiles}, {"NoTCSpaces", cfNoTCSpaces},
};

/* The attribute of the "Speed" element after its Value. */
constexpr FlagAttribute kSpeedAttributes[] = {{"IsShuttle", cfIsShuttle}};

/* The time attributes of the "CmdAlt" element. */
constexpr FlagAttribute kCmdAltAttributes[] = {
    {"TimeMs", cfTimeMs},
    {"TimeTarget", cfTimeTarget},
    {"TimeHouseClock", cfTimeHouseClock},
};

/* Attributes of Position, Start and End after "IsOffset"; the same flags
 * whichever of the three carries them. */
constexpr FlagAttribute kPointAttributes[] = {
    {"UsingCurrent", cfUsingCurrent},
    {"UsingFrameCount", cfUseFrameCount},
    {"IsFieldCount", cfFields},
};

/* gs identifiers that choose the trailing-area form. */
constexpr uint32_t kGsFrameData = 25;
constexpr uint32_t kGsMetadata = 150;
constexpr uint32_t kGsMetabaseFileName = 162;
constexpr uint32_t kGsMetabaseGetTag = 166;
constexpr uint32_t kGsQrvType = 60002;
constexpr uint32_t kGsPreviewFrame = 1000007;
constexpr uint32_t kGsInsertQueue = 1100001;
constexpr uint32_t kGsXlatQueue = 1100002;

}  // namespace qrv::mediacmd

#endif
