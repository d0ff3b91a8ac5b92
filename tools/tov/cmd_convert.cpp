// tov convert IN OUT --depth N [--quality Q]: a picture at another depth
// (1, 4 or 8 bits), in the file type that OUT's extension names.
#include "commands.h"

namespace {

constexpr long kMaxDepthArgument = 32;  // the library refuses all but 1, 4 and 8
constexpr long kDefaultQuality = 80;      // JPEG only

int RunConvert(tov::Arguments& args) {
    long depth;
    long quality;
    args.IntOption("depth", 1, kMaxDepthArgument, 0, &depth);
    args.IntOption("quality", 1, 100, kDefaultQuality, &quality);
    if (!args.Check("convert", 2)) return 1;
    if (depth == 0) return tov::Fail("convert: --depth N is needed (1, 4 or 8)");
    std::string error;
    HDIB hdib = tov::LoadPicture(args[0], &error);
    if (!hdib) return tov::Fail(error);
    DWORD result = tovConvert(hdib, static_cast<DWORD>(depth));
    if (result != tovOk) {
        tovUnloadHDIB(hdib);
        return tov::Fail("convert: depth " + std::to_string(depth) + ": " + tov::ResultText(result));
    }
    result = tov::SavePicture(hdib, args[1], static_cast<DWORD>(quality), &error);
    tovUnloadHDIB(hdib);
    return result == tovOk ? 0 : tov::Fail(error);
}

tov::CommandRegistrar registrar({"convert", "IN OUT --depth N [--quality Q]",
                                 "the picture at 1, 4 or 8 bits; JPEG quality 1-100 (80)",
                                 RunConvert});

}  // namespace
