// tov info FILE: the size and depth of a picture.
#include "commands.h"

#include <cstdio>

namespace {

int RunInfo(tov::Arguments& args) {
    if (!args.Check("info", 1)) return 1;
    std::string error;
    bool converted = false;
    const tov::Picture hdib(tov::LoadPicture(args[0], &error, &converted));
    if (!hdib) return tov::Fail(error);
    if (converted) std::printf("note: a colour or deep picture, read as 8-bit grey (luma)\n");
    std::printf("file: %s\nwidth: %ld\nheight: %ld\ndepth: %lu\ncolours: %lu\n", args[0].c_str(),
                static_cast<long>(tovWidth(hdib)), static_cast<long>(tovHeight(hdib)),
                static_cast<unsigned long>(tovBitCount(hdib)),
                static_cast<unsigned long>(tovNumColors(hdib)));
    return 0;
}

tov::CommandRegistrar registrar({"info", "FILE", "width, height, depth and colours of a picture", RunInfo, "info scan.png"});

}  // namespace
