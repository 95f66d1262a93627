/* The umbrella header's C part, used from a C11 program. */
#include <qrvutil/qrvutil.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    char name[MCMD_NAME_MAX];
    unsigned flag = 0;
    MEDIACMD cmd;

    if (gsToString(60000, name) != 0 || strcmp(name, "qrvversion") != 0) return 1;
    if (cfFromString("NoReturn", &flag) != 0 || flag != cfNoReturn) return 2;
    initMediaCmd(&cmd, ctPlay);
    if (cmd.CmdID != MEDIACMD_ID || cmd.StructSize != MEDIACMD_SIZE || cmd.Cmd != ctPlay) return 3;
    puts("c11 consumer ok");
    return 0;
}
