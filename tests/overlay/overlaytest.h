// Helpers of the overlay, signature and display tests.
#pragma once

#include <gtest/gtest.h>
#include <testsupport.h>

#include <tovrel/platform.h>
#include <tovrel/tovrel.h>

#include <cstring>
#include <vector>

#include "dibgfx.h"
#include "tovce.h"

namespace ovl {

inline DWORD Pixel(HDIB h, LONG x, LONG y) {
    switch (DibBitCount(h)) {
    case 1: return DibGetPixel1(h, x, y);
    case 4: return DibGetPixel4(h, x, y);
    default: return DibGetPixel8(h, x, y);
    }
}

inline std::vector<DWORD> Pixels(HDIB h) {
    std::vector<DWORD> out;
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) out.push_back(Pixel(h, x, y));
    return out;
}

// A grey bitmap of one level, owned by the test.
struct Picture {
    HDIB h;
    Picture(LONG w, LONG hgt, DWORD level, DWORD bits = 8) : h(tovCreateHDIBExt(w, hgt, level, bits)) {}
    ~Picture() {
        if (h) tovUnloadHDIB(h);
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
};

// The box that the overlay code measures for a text at a height.
inline RECT MeasuredBox(const WCHAR* text, LONG height) {
    TextOverlaySettings s;
    std::memset(&s, 0, sizeof s);
    s.BackColor = 255;
    s.Height = height;
    s.Alignment = DT_CALCRECT;
    EXPECT_EQ(DibOverlayBufferExt(nullptr, text, &s, nullptr), 0u);
    return s.Rect;
}

// Builds a stroke record: width, height, then the strokes.
inline std::vector<int32_t> Record(int32_t w, int32_t h, const std::vector<std::vector<POINT>>& strokes) {
    std::vector<int32_t> r = {w, h, int32_t(strokes.size())};
    for (auto& s : strokes) {
        r.push_back(int32_t(s.size()));
        for (auto& p : s) {
            r.push_back(p.x);
            r.push_back(p.y);
        }
    }
    return r;
}

}  // namespace ovl
