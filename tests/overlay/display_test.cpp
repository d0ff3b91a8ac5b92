// tovDisplayImage: argument checks, one-to-one drawing, scaling, fitting and
// centring into a context over an XRGB buffer.
#include "overlaytest.h"

using namespace ovl;

namespace {

constexpr uint32_t kMagenta = 0x00FF00FFu;  // no grey: every drawn pixel shows

// The drawn area: the bounding box of the pixels other than the background.
RECT Drawn(const Screen& s) {
    RECT r{s.w, s.h, -1, -1};
    for (LONG y = 0; y < s.h; ++y)
        for (LONG x = 0; x < s.w; ++x)
            if (s.Ink(x, y)) r = RECT{std::min(r.left, x), std::min(r.top, y), std::max(r.right, x + 1), std::max(r.bottom, y + 1)};
    return r;
}

HDIB Gradient(LONG w, LONG h) {
    HDIB p = tovCreateHDIBExt(w, h, 0, 8);
    for (LONG y = 0; y < h; ++y)
        for (LONG x = 0; x < w; ++x) StoreSetPixel(p, x, y, DWORD((x * 16 + y) & 255));
    return p;
}

TEST(DisplayImage, ChecksItsArguments) {
    Dib pic(Gradient(10, 8));
    Screen s(40, 30, kMagenta);
    RECT r{0, 0, 40, 30};
    for (BOOL fit : {FALSE, TRUE}) {
        EXPECT_EQ(tovDisplayImage(pic, s.dc, &r, fit, 9, 0), 7u);
        EXPECT_EQ(tovDisplayImage(pic, s.dc, &r, fit, 10001, 0), 7u);
        EXPECT_EQ(tovDisplayImage(pic, s.dc, &r, fit, 10, 0), 0u);
        EXPECT_EQ(tovDisplayImage(pic, s.dc, &r, fit, 10000, 1), 0u);
        EXPECT_EQ(tovDisplayImage(pic, s.dc, nullptr, fit, 100, 0), 7u);
        EXPECT_EQ(tovDisplayImage(pic, nullptr, &r, fit, 100, 0), 7u);
        EXPECT_EQ(tovDisplayImage(nullptr, s.dc, &r, fit, 100, 0), 5u);
    }
}

TEST(DisplayImage, DrawsScaledFittedAndCentred) {
    Dib pic(Gradient(10, 8));
    struct Case {
        RECT rect;
        BOOL fit;
        LONG percent;
        BYTE centre;
        RECT drawn;
    };
    const Case cases[] = {
        {{3, 2, 40, 30}, FALSE, 100, 0, {3, 2, 13, 10}},       // one to one at the corner
        {{3, 2, 40, 30}, FALSE, 250, 0, {3, 2, 28, 22}},       // 25 by 20
        {{0, 0, 40, 30}, FALSE, 100, 1, {15, 11, 25, 19}},     // centred
        {{5, 5, 9, 8}, FALSE, 100, 1, {2, 3, 12, 11}},         // larger than the rectangle: starts left of it
        {{4, 6, 36, 10}, TRUE, 10, 0, {4, 6, 36, 10}},         // fitted, aspect not kept
        {{-20, -20, 10, 10}, FALSE, 1000, 0, {0, 0, 40, 30}},  // clipped by the context only
    };
    for (const Case& c : cases) {
        Screen s(40, 30, kMagenta);
        ASSERT_EQ(tovDisplayImage(pic, s.dc, &c.rect, c.fit, c.percent, c.centre), 0u);
        RECT d = Drawn(s);
        EXPECT_EQ((std::vector<LONG>{d.left, d.top, d.right, d.bottom}),
                  (std::vector<LONG>{c.drawn.left, c.drawn.top, c.drawn.right, c.drawn.bottom})) << c.percent;
        if (c.percent != 100 || c.centre) continue;
        for (LONG y = 0; y < 8; ++y)  // one to one: pixel for pixel, as greys
            for (LONG x = 0; x < 10; ++x) {
                uint32_t g = StorePixel(pic, x, y);
                ASSERT_EQ(s.At(3 + x, 2 + y), g << 16 | g << 8 | g);
            }
    }
}

}  // namespace
