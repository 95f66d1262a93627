/**
 * @file
 * The whole public interface in one include. C code gets every C-linkage
 * call; C++ code also gets the classes and the TinyXML-typed functions (and
 * needs TinyXML's headers). Link with -lqrvutil (pkg-config qrvutil, or the
 * CMake target qrvutil::qrvutil).
 */
#ifndef QRVUTIL_QRVUTIL_H
#define QRVUTIL_QRVUTIL_H

#include <qrvutil/version.h> /* generated into the build tree */
#include "status.h"
#include "host.h"
#include "mediacmd.h"
#include "mediacmd_xml.h"
#include "transport.h"
#include "video.h"
#include "bitstream.h"
#include "h264.h"
#include "aac.h"
#include "clipinfo.h"
#include "project.h"
#include "diskcache.h"

#endif
