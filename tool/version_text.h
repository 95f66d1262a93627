// The text that --version prints: the library's own version.
#ifndef QRVTOOL_VERSION_TEXT_H
#define QRVTOOL_VERSION_TEXT_H

#include <string>

#if __has_include(<qrvutil/version.h>)
#include <qrvutil/version.h>
#endif

namespace qrvtool {

inline std::string libraryVersionText() {
#ifdef QRVUTIL_VERSION_STRING
    return std::string("qrvtool (qrvutil) ") + qrvutilVersion();
#else
    return "qrvtool (qrvutil): version not available in this build";
#endif
}

}  // namespace qrvtool

#endif
