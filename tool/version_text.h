// The text that --version prints: the library's own version.
#ifndef QRVTOOL_VERSION_TEXT_H
#define QRVTOOL_VERSION_TEXT_H

#include <string>

#include <qrvutil/version.h>

namespace qrvtool {

inline std::string libraryVersionText()
{
    return std::string("qrvtool (qrvutil) ") + qrvutilVersion();
}

} // namespace qrvtool

#endif
