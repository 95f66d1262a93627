/* Big-endian field helpers under the names the scanning code and its tests
 * use; they live in bits/. */
#ifndef QRVUTIL_H264_SCANNING_INTERNAL_H
#define QRVUTIL_H264_SCANNING_INTERNAL_H

#include "bits/byte_order.h"

namespace qrv::h264 {

using qrv::readBE32;
using qrv::writeBE16;
using qrv::writeBE32;

} // namespace qrv::h264

#endif
