// Picture geometry of a decoded sequence parameter set: sizes, cropping,
// sampling, aspect ratio, frame rate and the profile and level as text.
#include <qrvutil/h264.h>
#include <qrvutil/status.h>

#include <cstdio>
#include <initializer_list>
#include <numeric>

#include "h264/syntax.h"

using namespace qrv;

namespace {

constexpr int kNoFlag = -1;

struct ProfileName {
    int32_t profile_idc;
    int constraintSet; // the constraint_set flag that selects this name, or kNoFlag
    const char *name;
};

// The profiles whose SPS the reader decodes in full. A flagged entry comes
// before the plain one of the same profile; the first match wins.
constexpr ProfileName kProfileNames[] = {
    {66, 1, "Constrained Baseline"},
    {66, kNoFlag, "Baseline"},
    {77, kNoFlag, "Main"},
    {88, kNoFlag, "Extended"},
    {100, kNoFlag, "High"},
    {110, 3, "High 10 Intra"},
    {110, kNoFlag, "High 10"},
    {122, 3, "High 4:2:2 Intra"},
    {122, kNoFlag, "High 4:2:2"},
    {244, 3, "High 4:4:4 Intra"},
    {244, kNoFlag, "High 4:4:4 Predictive"},
    {44, kNoFlag, "CAVLC 4:4:4 Intra"},
    {83, kNoFlag, "Scalable Baseline"},
    {86, 3, "Scalable High Intra"},
    {86, kNoFlag, "Scalable High"},
    {118, kNoFlag, "Multiview High"},
    {128, kNoFlag, "Stereo High"},
};

struct Ratio {
    uint32_t num;
    uint32_t den;
};

// Sample aspect ratios by aspect_ratio_idc; entry 0 is "unspecified".
constexpr Ratio kTableSar[] = {
    {0, 0},   {1, 1},   {12, 11}, {10, 11}, {16, 11},  {40, 33}, {24, 11}, {20, 11}, {32, 11},
    {80, 33}, {18, 11}, {15, 11}, {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1},
};

struct LevelText {
    int32_t level_idc;
    const char *text;
};

constexpr LevelText kLevels[] = {
    {9, "1b"},   {10, "1"},   {11, "1.1"}, {12, "1.2"}, {13, "1.3"}, {20, "2"},   {21, "2.1"},
    {22, "2.2"}, {30, "3"},   {31, "3.1"}, {32, "3.2"}, {40, "4"},   {41, "4.1"}, {42, "4.2"},
    {50, "5"},   {51, "5.1"}, {52, "5.2"}, {60, "6"},   {61, "6.1"}, {62, "6.2"},
};

constexpr int32_t SPS_DECODED::*kConstraintSets[] = {
    &SPS_DECODED::constraint_set0_flag, &SPS_DECODED::constraint_set1_flag,
    &SPS_DECODED::constraint_set2_flag, &SPS_DECODED::constraint_set3_flag,
    &SPS_DECODED::constraint_set4_flag, &SPS_DECODED::constraint_set5_flag,
};

const char *profileName(const SPS_DECODED &sps)
{
    for (const ProfileName &p : kProfileNames) {
        if (p.profile_idc == sps.profile_idc &&
            (p.constraintSet == kNoFlag || sps.*kConstraintSets[p.constraintSet] != 0))
            return p.name;
    }
    return nullptr;
}

// Level 1b has two codings: level_idc 9, or 11 with constraint_set3 in the
// profiles that predate 9.
const char *levelText(const SPS_DECODED &sps)
{
    const bool early = sps.profile_idc == 66 || sps.profile_idc == 77 || sps.profile_idc == 88;
    if (sps.level_idc == 11 && early && sps.constraint_set3_flag)
        return "1b";
    for (const LevelText &l : kLevels) {
        if (l.level_idc == sps.level_idc)
            return l.text;
    }
    return nullptr;
}

constexpr int32_t kMaxBitDepthMinus8 = 6;
constexpr uint32_t kMacroblockSize = 16;

struct Sampling {
    uint32_t chromaFormat;
    uint32_t lumaDepth;
    uint32_t chromaDepth;
};

// The reader stores "minus8" depths of 8 for profiles without the chroma
// syntax; those streams are 8-bit 4:2:0.
bool readSampling(const SPS_DECODED &sps, Sampling *s)
{
    if (!hasChromaSyntax(sps.profile_idc)) {
        *s = {1, 8, 8};
        return true;
    }
    if (sps.chroma_format_idc < 0 || sps.chroma_format_idc > 3)
        return false;
    for (int32_t d : {sps.bit_depth_luma_minus8, sps.bit_depth_chroma_minus8}) {
        if (d < 0 || d > kMaxBitDepthMinus8)
            return false;
    }
    *s = {uint32_t(sps.chroma_format_idc), uint32_t(sps.bit_depth_luma_minus8) + 8,
          uint32_t(sps.bit_depth_chroma_minus8) + 8};
    return true;
}

// Sizes in samples; crop units by chroma sampling, doubled vertically for
// field-capable streams. Everything in 64 bits so that no stored value wraps.
bool readSizes(const SPS_DECODED &sps, uint32_t chromaFormat, QRV_H264_GEOMETRY *g)
{
    const int32_t fields[] = {sps.pic_width_in_mbs_minus1, sps.pic_height_in_map_units_minus1,
                              sps.frame_crop_left_offset,  sps.frame_crop_right_offset,
                              sps.frame_crop_top_offset,   sps.frame_crop_bottom_offset};
    for (int32_t f : fields) {
        if (f < 0)
            return false;
    }
    const uint64_t fieldFactor = sps.frame_mbs_only_flag ? 1 : 2;
    const bool oneChromaPlane = chromaFormat != 0 && !sps.separate_colour_plane_flag;
    const uint64_t unitX = oneChromaPlane && chromaFormat < 3 ? 2 : 1;
    const uint64_t unitY = (oneChromaPlane && chromaFormat == 1 ? 2 : 1) * fieldFactor;

    const uint64_t codedWidth = (uint64_t(sps.pic_width_in_mbs_minus1) + 1) * kMacroblockSize;
    const uint64_t codedHeight = (uint64_t(sps.pic_height_in_map_units_minus1) + 1) *
                                 kMacroblockSize * fieldFactor;
    uint64_t left = 0, right = 0, top = 0, bottom = 0;
    if (sps.frame_cropping_flag) {
        left = unitX * uint64_t(sps.frame_crop_left_offset);
        right = unitX * uint64_t(sps.frame_crop_right_offset);
        top = unitY * uint64_t(sps.frame_crop_top_offset);
        bottom = unitY * uint64_t(sps.frame_crop_bottom_offset);
    }
    if (codedWidth > UINT32_MAX || codedHeight > UINT32_MAX || left + right >= codedWidth ||
        top + bottom >= codedHeight)
        return false;
    g->coded_width = uint32_t(codedWidth);
    g->coded_height = uint32_t(codedHeight);
    g->width = uint32_t(codedWidth - left - right);
    g->height = uint32_t(codedHeight - top - bottom);
    g->crop_left = uint32_t(left);
    g->crop_top = uint32_t(top);
    return true;
}

Ratio reduced(uint64_t num, uint64_t den)
{
    const uint64_t d = std::gcd(num, den);
    if (num == 0 || den == 0 || num / d > UINT32_MAX || den / d > UINT32_MAX)
        return {0, 0};
    return {uint32_t(num / d), uint32_t(den / d)};
}

Ratio sampleAspectRatio(const SPS_DECODED &sps)
{
    if (!sps.vui_parameters_present_flag || !sps.aspect_ratio_info_present_flag)
        return {0, 0};
    if (sps.aspect_ratio_idc == kExtendedSar)
        return reduced(uint32_t(sps.sar_width), uint32_t(sps.sar_height));
    const int32_t entries = int32_t(sizeof kTableSar / sizeof kTableSar[0]);
    if (sps.aspect_ratio_idc < 0 || sps.aspect_ratio_idc >= entries)
        return {0, 0};
    return kTableSar[sps.aspect_ratio_idc];
}

// The 32-bit timing fields are stored in signed fields; their bits are the
// unsigned values.
Ratio frameRate(const SPS_DECODED &sps)
{
    if (!sps.vui_parameters_present_flag || !sps.timing_info_present_flag)
        return {0, 0};
    return reduced(uint32_t(sps.time_scale), 2 * uint64_t(uint32_t(sps.num_units_in_tick)));
}

} // namespace

extern "C" QRV_API int qrvutilGetGeometry(const SPS_DECODED *sps, QRV_H264_GEOMETRY *g)
{
    if (sps == nullptr || g == nullptr)
        return QRV_E_ARGUMENT;
    const char *profile = profileName(*sps);
    if (profile == nullptr)
        return QRV_E_UNSUPPORTED;
    const char *level = levelText(*sps);
    Sampling sampling{};
    QRV_H264_GEOMETRY out{};
    if (level == nullptr || !readSampling(*sps, &sampling) ||
        !readSizes(*sps, sampling.chromaFormat, &out))
        return QRV_E_RANGE;
    out.frame_mbs_only_flag = sps->frame_mbs_only_flag ? 1 : 0;
    out.chroma_format_idc = sampling.chromaFormat;
    out.bit_depth_luma = sampling.lumaDepth;
    out.bit_depth_chroma = sampling.chromaDepth;
    const Ratio sar = sampleAspectRatio(*sps);
    out.sar_num = sar.num;
    out.sar_den = sar.den;
    const Ratio fps = frameRate(*sps);
    out.fps_num = fps.num;
    out.fps_den = fps.den;
    std::snprintf(out.profile_name, sizeof out.profile_name, "%s", profile);
    std::snprintf(out.level_text, sizeof out.level_text, "%s", level);
    *g = out;
    return QRV_OK;
}
