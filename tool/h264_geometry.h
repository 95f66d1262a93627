// The picture geometry of an SPS, as the library's geometry call gives it.
#ifndef QRVTOOL_H264_GEOMETRY_H
#define QRVTOOL_H264_GEOMETRY_H

#include "output.h"

#include <qrvutil/h264.h>

namespace qrvtool {

// Adds profile and level names, coded and cropped sizes, chroma format, bit
// depths, sample aspect ratio and frame rate to `doc`; for an SPS the library
// cannot describe, "geometry_unavailable" with the library's status text.
void addGeometry(Json &doc, const SPS_DECODED &sps);

} // namespace qrvtool

#endif
