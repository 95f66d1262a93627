/* The umbrella header's C part, used from a C11 program. */
#include <qrvutil/qrvutil.h>

#include <stdio.h>
#include <string.h>

#define TEXT(x) #x
#define NUMBER_TEXT(x) TEXT(x)
/* The version text is its four numbers, at build and at run time alike. */
static const char kVersionFromNumbers[] =
    NUMBER_TEXT(QRVUTIL_VERSION_MAJOR) "." NUMBER_TEXT(QRVUTIL_VERSION_MINOR) "." NUMBER_TEXT(
        QRVUTIL_VERSION_PATCH) "." NUMBER_TEXT(QRVUTIL_VERSION_BUILD);

int main(void)
{
    char name[MCMD_NAME_MAX];
    unsigned flag = 0;
    MEDIACMD cmd;

    if (gsToString(60000, name) != 0 || strcmp(name, "qrvversion") != 0)
        return 1;
    if (cfFromString("NoReturn", &flag) != 0 || flag != cfNoReturn)
        return 2;
    initMediaCmd(&cmd, ctPlay);
    if (cmd.CmdID != MEDIACMD_ID || cmd.StructSize != MEDIACMD_SIZE || cmd.Cmd != ctPlay)
        return 3;
    if (strcmp(kVersionFromNumbers, QRVUTIL_VERSION_STRING) != 0)
        return 4;
    if (strcmp(qrvutilVersion(), QRVUTIL_VERSION_STRING) != 0)
        return 5;
    puts("c11 consumer ok");
    return 0;
}
