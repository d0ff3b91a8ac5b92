// A small application on the installed library: draws a grey ramp, runs
// two filters, saves it as PNG, reads it back and tells what it got.
//
//   pkg-config:      c++ -std=c++17 card.cpp $(pkg-config --cflags --libs tovrel) -o card
//   find_package:    see CMakeLists.txt beside this file
#include <tovrel/tovrel.h>

#include <cstdio>

int main(int, char** argv) {
    const char16_t* name = u"card.png";
    HDIB card = tovCreateHDIBExt(320, 240, 0, 8);
    if (!card) return 1;
    for (LONG y = 0; y < 240; ++y) {
        // Rows are stored bottom-up, each padded to four bytes.
        BYTE* row = tovBitsPtr(card) + (239 - y) * 320;
        for (LONG x = 0; x < 320; ++x) row[x] = BYTE((x + y) * 255 / 558);
    }
    DWORD result = tovRankFilter(card, 4);
    if (result == tovOk) result = tovSharpen(card, 12);
    if (result == tovOk) result = tovSavePNG(card, name);
    tovUnloadHDIB(card);
    if (result != tovOk) {
        std::fprintf(stderr, "%s: failed with %u\n", argv[0], unsigned(result));
        return 1;
    }
    HDIB back = tovLoadPNG(name);
    if (!back) return 1;
    WCHAR revision[32];
    tovGetDllRevision(revision);
    char text[32];
    for (int i = 0; i < 32; ++i) text[i] = char(revision[i]);
    std::printf("libtovrel %s: card.png is %dx%d, %u bits\n", text, int(tovWidth(back)), int(tovHeight(back)),
                unsigned(tovBitCount(back)));
    tovUnloadHDIB(back);
    return 0;
}
