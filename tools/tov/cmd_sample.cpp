// tov sample OUT [--width W] [--height H] [--depth N]: a grey test card,
// so that the program can be tried without a picture at hand.
#include "commands.h"

#include <cstdint>

namespace {

constexpr long kMaxSide = 4096;
constexpr long kDefaultWidth = 160;
constexpr long kDefaultHeight = 120;

// A horizontal ramp from black to white with a black frame, a white square
// and a checkered square, so that depth changes and flips show.
BYTE CardPixel(long x, long y, long width, long height) {
    if (x == 0 || y == 0 || x == width - 1 || y == height - 1) return 0;
    long side = height / 3;
    long top = height / 3;
    if (y >= top && y < top + side) {
        long left = width / 6;
        if (x >= left && x < left + side) return 255;
        long right = width - width / 6 - side;
        if (x >= right && x < right + side) return ((x - right) / 4 + (y - top) / 4) % 2 ? 255 : 0;
    }
    return static_cast<BYTE>(width > 1 ? x * 255 / (width - 1) : 0);
}

int RunSample(tov::Arguments& args) {
    long width, height, depth;
    args.IntOption("width", 1, kMaxSide, kDefaultWidth, &width);
    args.IntOption("height", 1, kMaxSide, kDefaultHeight, &height);
    args.IntOption("depth", 1, 8, 8, &depth);
    if (!args.Check("sample", 1)) return 1;
    const tov::Picture hdib(tovCreateHDIBExt(width, height, 0, 8));
    BYTE* bits = tovBitsPtr(hdib);
    if (!hdib || !bits) {
        return tov::Fail("sample: no memory for a picture of " + std::to_string(width) + "x" +
                         std::to_string(height));
    }
    // Rows are stored bottom-up, each padded to 4 bytes.
    const int64_t stride = (int64_t(width) * 8 + 31) / 32 * 4;
    for (long y = 0; y < height; ++y) {
        BYTE* row = bits + (height - 1 - y) * stride;
        for (long x = 0; x < width; ++x) row[x] = CardPixel(x, y, width, height);
    }
    DWORD result = depth == 8 ? DWORD(tovOk) : tovConvert(hdib, static_cast<DWORD>(depth));
    std::string error;
    if (result != tovOk) error = "sample: depth " + std::to_string(depth) + ": " + tov::ResultText(result);
    else result = tov::SavePicture(hdib, args[0], 0, &error);
    return result == tovOk ? 0 : tov::Fail(error);
}

tov::CommandRegistrar registrar({"sample", "OUT [--width W] [--height H] [--depth N]",
                                 "writes a grey test card (160x120, 8 bits)", RunSample, "sample card.png --width 320 --height 240"});

}  // namespace
