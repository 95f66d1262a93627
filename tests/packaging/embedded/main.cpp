// A host that builds qrvutil inside its own tree and calls it.
#include <qrvutil/qrvutil.h>

#include <cstdio>
#include <cstring>

int main()
{
    int unused; // deliberate: this project does not build with -Werror
    QRV_H264_GEOMETRY g;
    SPS_DECODED sps{};
    if (qrvutilGetGeometry(&sps, &g) != QRV_E_UNSUPPORTED)
        return 1; // profile 0
    if (std::strcmp(qrvutilVersion(), QRVUTIL_VERSION_STRING) != 0)
        return 2;
    std::printf("embedding ok: qrvutil %s\n", qrvutilVersion());
    return 0;
}
