/* Configuration store: first version, every access fails until the stores exist. */
#include "host/host_internal.h"

namespace qrv::host {

cfgHandle builtinCfgOpen(const char *, int) { return nullptr; }
int builtinCfgClose(cfgHandle, int) { return 1; }
int builtinCfgValueDword(cfgHandle, const char *, const char *, unsigned *, int) { return 1; }
int builtinCfgValueString(cfgHandle, const char *, const char *, char *, unsigned *, int)
{
    return 1;
}
int builtinCfgDeleteValue(cfgHandle, const char *, const char *) { return 1; }

}  // namespace qrv::host
