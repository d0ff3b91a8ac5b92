// Helpers of the overlay, signature and display tests.
#pragma once

#include <gtest/gtest.h>

#include <tovrel/platform.h>
#include <tovrel/tovrel.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "dibgfx.h"
#include "dibimages.h"

namespace ovl {

using namespace tovtest;

// Overlay settings of a black text on white at a height.
inline TextOverlaySettings Settings(LONG height, DWORD alignment) {
    TextOverlaySettings s{};
    s.BackColor = 255;
    s.Height = height;
    s.Alignment = alignment;
    return s;
}

// An XRGB buffer of one colour behind a buffer context.
struct Screen {
    std::vector<uint32_t> px;
    LONG w, h;
    uint32_t background;
    HDC dc;
    Screen(LONG width, LONG height, uint32_t bg)
        : px(size_t(width) * height, bg), w(width), h(height), background(bg),
          dc(PlatCreateBufferDC(px.data(), width, height, width * 4)) {}
    ~Screen() { DeleteDC(dc); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    uint32_t At(LONG x, LONG y) const { return px[size_t(y) * w + x]; }
    bool Ink(LONG x, LONG y) const { return At(x, y) != background; }
    int InkCount() const { return int(px.size() - size_t(std::count(px.begin(), px.end(), background))); }
};

// Builds a stroke record: width, height, then the strokes.
inline std::vector<int32_t> Record(int32_t w, int32_t h, const std::vector<std::vector<POINT>>& strokes) {
    std::vector<int32_t> r = {w, h, int32_t(strokes.size())};
    for (auto& s : strokes) {
        r.push_back(int32_t(s.size()));
        for (auto& p : s) r.insert(r.end(), {p.x, p.y});
    }
    return r;
}

}  // namespace ovl
