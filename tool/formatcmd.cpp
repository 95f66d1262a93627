// format CODE|NAME and format --list: signal formats as the library's
// format calls describe them.
#include "commands.h"
#include "failure.h"
#include "output.h"

#include <qrvutil/video.h>

#include <CLI/CLI.hpp>

#include <strings.h>

#include <cstdlib>
#include <vector>

namespace qrvtool {

namespace {

constexpr unsigned kTokens = 128;
constexpr unsigned kRateCodes = 512;
constexpr unsigned kNoSize = 0xFFFFFFFFu;
constexpr unsigned kScans[] = {QRV_SCAN_INTERLACED, QRV_SCAN_PROGRESSIVE, QRV_SCAN_PSF,
                               QRV_SCAN_UNSTATED};
constexpr const char *kScanNames[] = {"unstated", "interlaced", "progressive", "", "psf"};

std::string formatName(unsigned code)
{
    char text[QRV_SIGNAL_FORMAT_TEXT_SIZE];
    vidSignalFormatToStr20(code, text);
    std::string name = text;
    while (!name.empty() && name.back() == ' ')
        name.pop_back();
    return name;
}

// Rate codes the library knows: a code with any other rate is named "Custom".
std::vector<unsigned> knownRateCodes()
{
    std::vector<unsigned> codes;
    for (unsigned rate = 1; rate < kRateCodes; ++rate)
        if (formatName(QRV_SF_MAKE(QRV_SCAN_PROGRESSIVE, 89, 89, rate)).find("Custom") ==
            std::string::npos)
            codes.push_back(rate);
    return codes;
}

// Tokens with a size; `chosenOnly` keeps those that encoding a raster of
// their size chooses, one token per size.
std::vector<unsigned> sizedTokens(bool chosenOnly)
{
    std::vector<unsigned> tokens;
    for (unsigned token = 1; token <= kTokens; ++token) {
        const unsigned size = vidGetSizeFromToken(token);
        if (size != kNoSize && (!chosenOnly || vidGetTokenFromSize(size) == token))
            tokens.push_back(token);
    }
    return tokens;
}

// True when a raster shown at `aspect` (numerator << 16 | denominator, 0
// unknown) has pixels between 0.85 and 1.4 times as wide as high: the
// rasters that real signals use, not every pairing of line and pixel counts.
bool displayShapeFits(unsigned aspect, unsigned width, unsigned height)
{
    if (aspect == 0 || width <= height)
        return false;
    const double pixelShape = double(aspect >> 16) / double(aspect & 0xFFFF) * height / width;
    return pixelShape >= 0.85 && pixelShape <= 1.4;
}

// Every code of a raster that the library knows an aspect ratio for.
std::vector<unsigned> listedFormats()
{
    std::vector<unsigned> codes;
    const std::vector<unsigned> tokens = sizedTokens(true);
    const std::vector<unsigned> rates = knownRateCodes();
    for (unsigned scan : {QRV_SCAN_INTERLACED, QRV_SCAN_PROGRESSIVE, QRV_SCAN_PSF})
        for (unsigned height : tokens)
            for (unsigned width : tokens)
                for (unsigned rate : rates) {
                    const unsigned code = QRV_SF_MAKE(scan, height, width, rate);
                    unsigned w = 0, h = 0;
                    if (vidImageSize(code, &w, &h, 0) != 0)
                        continue;
                    if (!displayShapeFits(vidGetAspectRatio(code, w, static_cast<int>(h)), w, h))
                        continue;
                    codes.push_back(code);
                }
    return codes;
}

unsigned codeOfName(const std::string &name)
{
    const std::vector<unsigned> tokens = sizedTokens(false);
    for (unsigned rate : knownRateCodes())
        for (unsigned scan : kScans)
            for (unsigned height : tokens)
                for (unsigned width : tokens) {
                    const unsigned code = QRV_SF_MAKE(scan, height, width, rate);
                    if (strcasecmp(formatName(code).c_str(), name.c_str()) == 0)
                        return code;
                }
    throw InputError("format \"" + name + "\"", "", "no signal format has this code or name");
}

unsigned parseCode(const std::string &text)
{
    char *end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 0);
    if (!text.empty() && *end == '\0' && value <= 0xFFFFFFFFul)
        return static_cast<unsigned>(value);
    return codeOfName(text);
}

std::string hexCode(unsigned code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", code);
    return text;
}

Json formatJson(unsigned code)
{
    unsigned width = 0, height = 0, fieldHeight = 0, rate = 0, scale = 0;
    if (vidImageSize(code, &width, &height, 0) != 0)
        throw InputError("format " + hexCode(code), "", "the code names no known raster");
    vidImageSize(code, &width, &fieldHeight, 1);
    const unsigned scan = QRV_SF_SCAN(code);
    Json j = {{"code", hexCode(code)},
              {"name", formatName(code)},
              {"width", width},
              {"height", height},
              {"field_height", scan == QRV_SCAN_INTERLACED ? fieldHeight : 0},
              {"scan", scan < 5 && kScanNames[scan][0] ? kScanNames[scan] : "unknown"}};
    if (vidRateScale(code, &rate, &scale) == 0) {
        j["rate"] = rate;
        j["scale"] = scale;
        j["frames_per_second"] = vidFramesPerSecD(code, rate, scale);
    }
    j["tc_type"] = vidGetTCTypeSignalFormat(code);
    return j;
}

} // namespace

void addFormatCommand(CLI::App &app, Output &output)
{
    static std::string codeOrName;
    static bool list = false;
    CLI::App *format = app.add_subcommand("format", "describe a signal format by code or name");
    format->add_option("CODE", codeOrName, "code (0x1380b219) or name (PAL)");
    format->add_flag("--list", list, "list the signal formats of known rasters");
    output.addJsonFlag(format);
    format->callback([&output] {
        if (list) {
            Json formats = Json::array();
            for (unsigned code : listedFormats())
                formats.push_back(formatJson(code));
            output.document({{"formats", formats}}, [](const Json &doc) {
                for (const Json &f : doc["formats"])
                    std::printf("%s  %-20s %5u x %-5u %-11s %s/%s\n",
                                f["code"].get<std::string>().c_str(),
                                f["name"].get<std::string>().c_str(), f["width"].get<unsigned>(),
                                f["height"].get<unsigned>(), f["scan"].get<std::string>().c_str(),
                                f.value("rate", Json(0)).dump().c_str(),
                                f.value("scale", Json(0)).dump().c_str());
            });
            return;
        }
        if (codeOrName.empty())
            throw UsageError("format: give a CODE or NAME, or --list");
        output.document(formatJson(parseCode(codeOrName)));
    });
}

} // namespace qrvtool
