#include "h264_geometry.h"

#include <qrvutil/status.h>

namespace qrvtool {

void addGeometry(Json &doc, const SPS_DECODED &sps)
{
    QRV_H264_GEOMETRY g{};
    const int status = qrvutilGetGeometry(&sps, &g);
    if (status != QRV_OK) {
        // The rest of the summary still stands; say why this part is missing.
        doc["geometry_unavailable"] = qrvStatusText(status);
        return;
    }
    doc["profile"] = g.profile_name;
    doc["level"] = g.level_text;
    doc["coded_width"] = g.coded_width;
    doc["coded_height"] = g.coded_height;
    doc["width"] = g.width;
    doc["height"] = g.height;
    doc["crop_left"] = g.crop_left;
    doc["crop_top"] = g.crop_top;
    doc["chroma_format_idc"] = g.chroma_format_idc;
    doc["bit_depth_luma"] = g.bit_depth_luma;
    doc["bit_depth_chroma"] = g.bit_depth_chroma;
    doc["sar"] = {{"num", g.sar_num}, {"den", g.sar_den}};
    doc["frame_rate"] = {{"num", g.fps_num}, {"den", g.fps_den}};
}

} // namespace qrvtool
