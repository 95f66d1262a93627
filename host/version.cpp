// The library's version text, made from the one version of the build.
#include <qrvutil/version.h>

extern "C" QRV_API const char *qrvutilVersion(void) { return QRVUTIL_VERSION_STRING; }
