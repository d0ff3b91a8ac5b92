// tov convert IN OUT [--depth N] [--quality Q]: a picture in the file type
// that OUT's extension names, at its own depth or another (1, 4 or 8 bits).
#include "commands.h"

#include <cstdlib>

namespace {

constexpr long kDefaultQuality = 80;      // JPEG only

int RunConvert(tov::Arguments& args) {
    long depth;
    long quality;
    std::string depthText;
    const bool newDepth = args.Option("depth", &depthText);
    args.IntOption("quality", 1, 100, kDefaultQuality, &quality);
    if (!args.Check("convert", 2)) return 1;
    depth = std::atol(depthText.c_str());
    if (newDepth && depthText != "1" && depthText != "4" && depthText != "8")
        return tov::Fail("convert: --depth is 1, 4 or 8, not '" + depthText + "'");
    std::string error;
    const tov::Picture hdib(tov::LoadPicture(args[0], &error));
    if (!hdib) return tov::Fail(error);
    if (!newDepth) depth = long(tovBitCount(hdib));  // the picture keeps its depth
    DWORD result = tovConvert(hdib, static_cast<DWORD>(depth));
    if (result != tovOk)
        return tov::Fail("convert: depth " + std::to_string(depth) + ": " + tov::ResultText(result));
    result = tov::SavePicture(hdib, args[1], static_cast<DWORD>(quality), &error);
    return result == tovOk ? 0 : tov::Fail(error);
}

tov::CommandRegistrar registrar({"convert", "IN OUT [--depth 1|4|8] [--quality Q]",
                                 "the picture in OUT's file type, at its depth or another; JPEG quality 1-100 (80)",
                                 RunConvert, "convert photo.png photo.bmp --depth 4"});

}  // namespace
