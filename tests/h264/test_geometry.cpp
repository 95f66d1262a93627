// Picture geometry: every clip against what ffprobe reports for it, and
// crafted records for the sampling, cropping, ratio and failure rules that
// the clips do not reach.
#include <qrvutil/status.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>

#include "h264_test_util.h"

namespace {

constexpr const char *kClips[] = {"baseline_cavlc",    "main_cabac_b",   "high_cqm", "mbaff",
                                  "interlaced_frames", "slices4",        "weightp",  "hrd_vui",
                                  "hi444_lossless10",  "long_startcodes"};

std::string clipPath(const std::string &clip)
{
    return std::string(QRV_TEST_DATA_DIR) + "/h264/" + clip + ".h264";
}

// The first SPS of the clip, as the library reads it.
SPS_DECODED clipSps(const std::string &clip)
{
    std::ifstream in(clipPath(clip), std::ios::binary);
    Bytes bytes(std::istreambuf_iterator<char>(in), {});
    EXPECT_FALSE(bytes.empty()) << clip;
    return walk(bytes).sps;
}

// ffprobe's JSON for the clip's one stream; values are read by key.
class Probe {
  public:
    explicit Probe(const std::string &clip)
    {
        const std::string cmd = std::string(QRV_FFPROBE) + " -v error -show_streams -of json '" +
                                clipPath(clip) + "'";
        if (FILE *p = popen(cmd.c_str(), "r")) {
            char buf[4096];
            for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;)
                json_.append(buf, n);
            pclose(p);
        }
    }
    std::string operator[](const std::string &key) const
    {
        std::smatch m;
        const std::regex value("\"" + key + "\": \"?([^\",\n]*)\"?");
        return std::regex_search(json_, m, value) ? m[1].str() : "(missing " + key + ")";
    }

  private:
    std::string json_;
};

std::string ratio(uint32_t num, uint32_t den, const char *sep)
{
    return std::to_string(num) + sep + std::to_string(den);
}

std::string roundedToMacroblocks(const std::string &size)
{
    return std::to_string((std::stoul(size) + 15) / 16 * 16);
}

// The sampling part of ffprobe's pixel format ("yuvj420p" is full-range 4:2:0).
std::string sampling(const QRV_H264_GEOMETRY &g)
{
    static const char *const kChroma[] = {"gray", "420p", "422p", "444p"};
    std::string s = kChroma[g.chroma_format_idc];
    return g.bit_depth_luma == 8 ? s : s + std::to_string(g.bit_depth_luma);
}

TEST(Geometry, EveryClipAgreesWithFfprobe)
{
    if (std::string(QRV_FFPROBE).empty())
        GTEST_SKIP() << "ffprobe not found (Debian package ffmpeg)";
    for (const char *clip : kClips) {
        SCOPED_TRACE(clip);
        const SPS_DECODED sps = clipSps(clip);
        QRV_H264_GEOMETRY g;
        ASSERT_EQ(qrvutilGetGeometry(&sps, &g), QRV_OK);
        const Probe probe(clip);
        EXPECT_EQ(std::to_string(g.width), probe["width"]);
        EXPECT_EQ(std::to_string(g.height), probe["height"]);
        // ffprobe reports the cropped size as the coded one; the macroblocks behind it are ours.
        EXPECT_EQ(std::to_string(g.coded_width), roundedToMacroblocks(probe["coded_width"]));
        EXPECT_EQ(std::to_string(g.coded_height), roundedToMacroblocks(probe["coded_height"]));
        EXPECT_EQ(g.profile_name, probe["profile"]);
        EXPECT_EQ(std::to_string(sps.level_idc), probe["level"]);
        EXPECT_EQ(g.level_text,
                  std::to_string(sps.level_idc / 10) +
                      (sps.level_idc % 10 ? "." + std::to_string(sps.level_idc % 10) : ""));
        EXPECT_EQ(ratio(g.sar_num, g.sar_den, ":"), probe["sample_aspect_ratio"]);
        EXPECT_EQ(ratio(g.fps_num, g.fps_den, "/"), probe["r_frame_rate"]);
        EXPECT_EQ(ratio(g.fps_num, g.fps_den, "/"), probe["avg_frame_rate"]);
        EXPECT_EQ(std::to_string(g.bit_depth_luma), probe["bits_per_raw_sample"]);
        EXPECT_NE(probe["pix_fmt"].find(sampling(g)), std::string::npos) << probe["pix_fmt"];
        EXPECT_EQ(g.bit_depth_chroma, g.bit_depth_luma);
    }
}

// A 1920x1080 High-profile record: 120 x 68 macroblocks, 8 lines cropped.
SPS_DECODED highHd()
{
    SPS_DECODED s{};
    s.profile_idc = 100;
    s.level_idc = 40;
    s.chroma_format_idc = 1;
    s.pic_width_in_mbs_minus1 = 119;
    s.pic_height_in_map_units_minus1 = 67;
    s.frame_mbs_only_flag = 1;
    s.frame_cropping_flag = 1;
    s.frame_crop_bottom_offset = 4;
    return s;
}

QRV_H264_GEOMETRY geometryOf(const SPS_DECODED &s)
{
    QRV_H264_GEOMETRY g{};
    EXPECT_EQ(qrvutilGetGeometry(&s, &g), QRV_OK);
    return g;
}

TEST(Geometry, CropUnitsFollowSamplingAndFieldCoding)
{
    SPS_DECODED s = highHd();
    QRV_H264_GEOMETRY g = geometryOf(s);
    EXPECT_EQ(ratio(g.coded_width, g.coded_height, "x"), "1920x1088");
    EXPECT_EQ(ratio(g.width, g.height, "x"), "1920x1080");

    // Field-capable 4:2:2 10-bit: map units are field pairs; crop units 2 x 2.
    s.profile_idc = 122;
    s.chroma_format_idc = 2;
    s.bit_depth_luma_minus8 = s.bit_depth_chroma_minus8 = 2;
    s.frame_mbs_only_flag = 0;
    s.pic_height_in_map_units_minus1 = 33;
    s.frame_crop_left_offset = 3;
    s.frame_crop_bottom_offset = 2;
    g = geometryOf(s);
    EXPECT_EQ(ratio(g.coded_width, g.coded_height, "x"), "1920x1088");
    EXPECT_EQ(ratio(g.width, g.height, "x"), "1914x1084");
    EXPECT_EQ(ratio(g.crop_left, g.crop_top, ","), "6,0");
    EXPECT_EQ(g.bit_depth_luma, 10u);
    EXPECT_EQ(g.frame_mbs_only_flag, 0u);

    // Monochrome and separate colour planes crop in single samples (lines
    // still doubled for fields).
    s.profile_idc = 244;
    for (int planes : {0, 1}) {
        s.chroma_format_idc = planes ? 3 : 0;
        s.separate_colour_plane_flag = planes;
        g = geometryOf(s);
        EXPECT_EQ(ratio(g.width, g.height, "x"), "1917x1084") << planes;
    }
}

TEST(Geometry, ProfilesWithoutChromaSyntaxAre8Bit420)
{
    SPS_DECODED s = highHd();
    s.profile_idc = 77;
    s.chroma_format_idc = 1;
    s.bit_depth_luma_minus8 = s.bit_depth_chroma_minus8 = 8; // as the reader stores it
    QRV_H264_GEOMETRY g = geometryOf(s);
    EXPECT_STREQ(g.profile_name, "Main");
    EXPECT_EQ(g.bit_depth_luma, 8u);
    EXPECT_EQ(g.bit_depth_chroma, 8u);
    EXPECT_EQ(g.chroma_format_idc, 1u);
}

TEST(Geometry, AspectRatioAndFrameRate)
{
    SPS_DECODED s = highHd();
    QRV_H264_GEOMETRY g = geometryOf(s);
    EXPECT_EQ(ratio(g.sar_num, g.sar_den, ":") + " " + ratio(g.fps_num, g.fps_den, "/"), "0:0 0/0");

    s.vui_parameters_present_flag = s.aspect_ratio_info_present_flag = s.timing_info_present_flag =
        1;
    const struct {
        int32_t idc, w, h, units, scale;
        const char *expected;
    } cases[] = {
        {16, 0, 0, 1001, 60000, "2:1 30000/1001"},
        {13, 0, 0, 1, 50, "160:99 25/1"},
        {255, 1440, 1080, 1, 120, "4:3 60/1"},
        {255, 0, 1, 0, 50, "0:0 0/0"},         // a zero term is no ratio, a zero tick no rate
        {17, 0, 0, -1, 2, "0:0 1/4294967295"}, // reserved idc; ticks are unsigned
    };
    for (const auto &c : cases) {
        s.aspect_ratio_idc = c.idc;
        s.sar_width = c.w;
        s.sar_height = c.h;
        s.num_units_in_tick = c.units;
        s.time_scale = c.scale;
        g = geometryOf(s);
        EXPECT_EQ(ratio(g.sar_num, g.sar_den, ":") + " " + ratio(g.fps_num, g.fps_den, "/"),
                  c.expected);
    }
}

TEST(Geometry, ProfileAndLevelText)
{
    const struct {
        int32_t profile, level, set1, set3;
        const char *name, *level_text;
    } cases[] = {
        {66, 11, 1, 1, "Constrained Baseline", "1b"},
        {77, 11, 0, 0, "Main", "1.1"},
        {100, 9, 0, 0, "High", "1b"},
        {100, 11, 0, 1, "High", "1.1"}, // level 1b by constraint_set3 only below 100
        {110, 51, 0, 1, "High 10 Intra", "5.1"},
        {244, 62, 0, 0, "High 4:4:4 Predictive", "6.2"},
        {44, 30, 0, 1, "CAVLC 4:4:4 Intra", "3"},
    };
    for (const auto &c : cases) {
        SPS_DECODED s = highHd();
        s.profile_idc = c.profile;
        s.level_idc = c.level;
        s.constraint_set1_flag = c.set1;
        s.constraint_set3_flag = c.set3;
        const QRV_H264_GEOMETRY g = geometryOf(s);
        EXPECT_STREQ(g.profile_name, c.name);
        EXPECT_STREQ(g.level_text, c.level_text);
    }
}

TEST(Geometry, RecordsItCannotDescribeLeaveTheResultUntouched)
{
    QRV_H264_GEOMETRY g;
    std::memset(&g, 0x5A, sizeof g);
    const QRV_H264_GEOMETRY before = g;
    const SPS_DECODED good = highHd();
    EXPECT_EQ(qrvutilGetGeometry(nullptr, &g), QRV_E_ARGUMENT);
    EXPECT_EQ(qrvutilGetGeometry(&good, nullptr), QRV_E_ARGUMENT);

    const struct {
        void (*spoil)(SPS_DECODED &);
        int status;
    } cases[] = {
        {[](SPS_DECODED &s) { s.profile_idc = 138; },
         QRV_E_UNSUPPORTED}, // read without its chroma syntax
        {[](SPS_DECODED &s) { s.profile_idc = 0; }, QRV_E_UNSUPPORTED},
        {[](SPS_DECODED &s) { s.level_idc = 0; }, QRV_E_RANGE},
        {[](SPS_DECODED &s) { s.chroma_format_idc = 4; }, QRV_E_RANGE},
        {[](SPS_DECODED &s) { s.bit_depth_chroma_minus8 = 7; }, QRV_E_RANGE},
        {[](SPS_DECODED &s) { s.frame_crop_top_offset = 540; }, QRV_E_RANGE}, // nothing left
        {[](SPS_DECODED &s) { s.pic_width_in_mbs_minus1 = -1; }, QRV_E_RANGE},
        {[](SPS_DECODED &s) { s.pic_width_in_mbs_minus1 = INT32_MAX; }, QRV_E_RANGE},
    };
    for (const auto &c : cases) {
        SPS_DECODED s = good;
        c.spoil(s);
        EXPECT_EQ(qrvutilGetGeometry(&s, &g), c.status);
        EXPECT_TRUE(sameRecord(g, before));
    }
}

} // namespace
