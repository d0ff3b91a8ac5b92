// tovDisplayImage: argument checks, one-to-one drawing, scaling, fitting and
// centring into a context over an XRGB buffer.
#include "overlaytest.h"

using namespace ovl;

namespace {

TEST(DisplayImage, DrawsScaledFittedAndCentredAndChecksItsArguments) {
    Dib pic(MakePatterned(10, 8, 8));
    Screen s(40, 30, 0x00FF00FFu);  // magenta is no grey: every drawn pixel shows
    RECT r{0, 0, 40, 30};
    for (BOOL fit : {FALSE, TRUE}) {
        for (LONG percent : {9, 10001}) EXPECT_EQ(tovDisplayImage(pic, s.dc, &r, fit, percent, 0), 7u);
        EXPECT_EQ(tovDisplayImage(pic, s.dc, &r, fit, 10, 0), 0u);
        EXPECT_EQ(tovDisplayImage(pic, s.dc, &r, fit, 10000, 1), 0u);
        EXPECT_EQ(tovDisplayImage(pic, s.dc, nullptr, fit, 100, 0), 7u);
        EXPECT_EQ(tovDisplayImage(pic, nullptr, &r, fit, 100, 0), 7u);
        EXPECT_EQ(tovDisplayImage(nullptr, s.dc, &r, fit, 100, 0), 5u);
    }
    const struct { RECT rect; BOOL fit; LONG percent; BYTE centre; RECT drawn; } cases[] = {
        {{3, 2, 40, 30}, FALSE, 100, 0, {3, 2, 13, 10}},       // one to one at the corner
        {{3, 2, 40, 30}, FALSE, 250, 0, {3, 2, 28, 22}},       // 25 by 20
        {{0, 0, 40, 30}, FALSE, 100, 1, {15, 11, 25, 19}},     // centred
        {{5, 5, 9, 8}, FALSE, 100, 1, {2, 3, 12, 11}},         // larger than the rectangle: starts left of it
        {{4, 6, 36, 10}, TRUE, 10, 0, {4, 6, 36, 10}},         // fitted, aspect not kept
        {{-20, -20, 10, 10}, FALSE, 1000, 0, {0, 0, 40, 30}},  // clipped by the context only
    };
    for (const auto& c : cases) {
        Screen s(40, 30, 0x00FF00FFu);
        ASSERT_EQ(tovDisplayImage(pic, s.dc, &c.rect, c.fit, c.percent, c.centre), 0u);
        LONG d[4] = {s.w, s.h, -1, -1};  // the bounding box of the drawn pixels
        for (LONG y = 0; y < s.h; ++y)
            for (LONG x = 0; x < s.w; ++x)
                if (s.Ink(x, y)) d[0] = std::min(d[0], x), d[1] = std::min(d[1], y), d[2] = std::max(d[2], x + 1), d[3] = std::max(d[3], y + 1);
        EXPECT_EQ(std::vector<LONG>(d, d + 4), (std::vector<LONG>{c.drawn.left, c.drawn.top, c.drawn.right, c.drawn.bottom})) << c.percent;
        for (LONG y = 0; c.percent == 100 && !c.centre && y < 8; ++y)  // one to one: pixel for pixel, as greys
            for (LONG x = 0; x < 10; ++x) ASSERT_EQ(s.At(3 + x, 2 + y), StorePixel(pic, x, y) * 0x010101u);
    }
}

}  // namespace
