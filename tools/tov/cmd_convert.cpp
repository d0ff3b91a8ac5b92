// tov convert IN OUT --depth N: a picture at another depth (1, 4 or 8 bits).
#include "commands.h"

namespace {

constexpr long kMaxDepthArgument = 32;  // the library refuses all but 1, 4 and 8

int RunConvert(tov::Arguments& args) {
    long depth;
    bool hasDepth = args.IntOption("depth", 0, kMaxDepthArgument, 0, &depth);
    if (!args.Check("convert", 2)) return 1;
    if (!hasDepth || depth == 0) return tov::Fail("convert: --depth N is needed (1, 4 or 8)");
    std::string error;
    HDIB hdib = tov::LoadPicture(args[0], &error);
    if (!hdib) return tov::Fail(error);
    DWORD result = tovConvert(hdib, static_cast<DWORD>(depth));
    if (result != tovOk) {
        tovUnloadHDIB(hdib);
        return tov::Fail("convert: depth " + std::to_string(depth) + ": " + tov::ResultText(result));
    }
    result = tov::SavePicture(hdib, args[1], 0, &error);
    tovUnloadHDIB(hdib);
    return result == tovOk ? 0 : tov::Fail(error);
}

tov::CommandRegistrar registrar({"convert", "IN OUT --depth N", "the picture at 1, 4 or 8 bits",
                                 RunConvert});

}  // namespace
