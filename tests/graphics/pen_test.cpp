// Pens and Polyline: thin lines pixel by pixel, the reach of wide pens, dots,
// null and deleted pens, far-off coordinates.
#include "gfxcanvas.h"

#include <climits>
#include <set>
#include <testsupport.h>

using gfx::Canvas;

namespace {

using Points = std::set<std::pair<LONG, LONG>>;

Points Ink(const Canvas& c) {
    Points out;
    for (LONG y = 0; y < c.height; ++y)
        for (LONG x = 0; x < c.width; ++x)
            if (c.Get(x, y) != 255) out.insert({x, y});
    return out;
}

// Draws with a pen of the style, width and colour on a canvas filled white.
void Draw(Canvas& c, int width, COLORREF colour, const std::vector<POINT>& pts, int style = PS_SOLID) {
    c.Fill(c.bpp == 1 ? 1 : 255);
    HPEN pen = CreatePen(style, width, colour);
    HGDIOBJ old = SelectObject(c.dc, pen);
    EXPECT_TRUE(Polyline(c.dc, pts.data(), int(pts.size())));
    SelectObject(c.dc, old);
    DeleteObject(pen);
}

TEST(Polyline, ThinLinesHitOnePixelPerStepEndsIncluded) {
    const struct { POINT a, b; Points want; } cases[] = {
        {{1, 2}, {5, 2}, {{1, 2}, {2, 2}, {3, 2}, {4, 2}, {5, 2}}},
        {{3, 5}, {3, 1}, {{3, 1}, {3, 2}, {3, 3}, {3, 4}, {3, 5}}},
        {{0, 0}, {3, 3}, {{0, 0}, {1, 1}, {2, 2}, {3, 3}}},
        {{0, 0}, {4, 2}, {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}}},  // halves round away from zero
        {{4, 2}, {0, 0}, {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}}},  // drawn back the same
        {{2, 2}, {2, 2}, {{2, 2}}},
    };
    for (const auto& c : cases)
        for (int width : {1, 0, -1}) {  // widths below 1 are one pixel too
            Canvas canvas(8, 8, 8);
            Draw(canvas, width, RGB(0, 0, 0), {c.a, c.b});
            EXPECT_EQ(Ink(canvas), c.want) << c.a.x << "," << c.a.y << "-" << c.b.x << "," << c.b.y << " " << width;
        }
}

TEST(Polyline, WidePensReachHalfTheirWidthEachSide) {
    for (int width : {2, 3, 5, 8, 13}) {
        Canvas canvas(60, 40, 8);
        Draw(canvas, width, RGB(0, 0, 0), {{10, 20}, {50, 20}});
        Points ink = Ink(canvas);
        LONG top = 40, bottom = -1, left = ink.begin()->first, right = ink.rbegin()->first;
        for (auto& p : ink) top = std::min(top, p.second), bottom = std::max(bottom, p.second);
        EXPECT_EQ(bottom - top + 1, width) << width;
        EXPECT_EQ(right - left + 1, 40 + width) << width;  // round tips at both ends
        for (LONG x = 10; x <= 50; ++x)
            for (LONG y = top; y <= bottom; ++y) ASSERT_EQ(canvas.Get(x, y), 0u) << width;
    }
}

TEST(Polyline, DotsNullAndDeletedPens) {
    Canvas canvas(20, 20, 8);
    Draw(canvas, 4, RGB(100, 100, 100), {{10, 10}});  // a tap is a dot
    EXPECT_EQ(Ink(canvas).size(), 12u);  // a round tip of 4: 2 + 4 + 4 + 2 pixels
    EXPECT_EQ(canvas.Get(10, 10), 100u);
    Canvas rgb(20, 20, 32);
    Draw(rgb, 4, RGB(1, 2, 3), {{10, 10}});
    EXPECT_EQ(rgb.Get(10, 10), 0x010203u);
    POINT two[2] = {{0, 2}, {4, 2}};
    EXPECT_FALSE(Polyline(canvas.dc, nullptr, 2));
    EXPECT_FALSE(Polyline(canvas.dc, two, 0));
    Draw(canvas, 3, 0, {two[0], two[1]}, PS_NULL);
    EXPECT_TRUE(Ink(canvas).empty());
    // A pen deleted while selected gives way to the stock pen: one black pixel wide.
    HPEN grey = CreatePen(PS_SOLID, 3, RGB(200, 200, 200));
    SelectObject(canvas.dc, grey);
    ASSERT_TRUE(DeleteObject(grey));
    ASSERT_TRUE(Polyline(canvas.dc, two, 2));
    EXPECT_EQ(Ink(canvas).size(), 5u);
    EXPECT_EQ(canvas.Get(2, 2), 0u);
    EXPECT_EQ(CreatePen(7, 1, 0), nullptr);  // only solid and null styles
}

// Lines far outside the surface stay within it and end at once; a mono
// surface gets the pen's nearest colour.
TEST(Polyline, FarCoordinatesOnAMonoSurface) {
    Canvas canvas(16, 16, 1);
    Draw(canvas, 9, RGB(0, 0, 0), {{INT_MIN, INT_MIN}, {INT_MAX, INT_MAX}, {INT_MAX, -5}, {-1000000, -7}});
    EXPECT_EQ(canvas.Get(8, 8), 0u);  // the diagonal crosses the middle
    EXPECT_EQ(canvas.Get(15, 0), 1u);
}

}  // namespace
