// Pens and Polyline: the pixels of thin lines, the reach of wide pens, dots,
// null pens, far-off coordinates, deleted pens and allocation failures.
#include "gfxtest.h"

#include <climits>
#include <set>
#include <testsupport.h>

using gfx::Canvas;

namespace {

std::set<std::pair<LONG, LONG>> Ink(const Canvas& c, DWORD background) {
    std::set<std::pair<LONG, LONG>> out;
    for (LONG y = 0; y < c.height; ++y)
        for (LONG x = 0; x < c.width; ++x)
            if (c.Get(x, y) != background) out.insert({x, y});
    return out;
}

struct PenScope {
    HDC dc;
    HPEN pen;
    HGDIOBJ old;
    PenScope(HDC d, int width, COLORREF colour) : dc(d), pen(CreatePen(PS_SOLID, width, colour)) {
        old = SelectObject(dc, pen);
    }
    ~PenScope() {
        SelectObject(dc, old);
        DeleteObject(pen);
    }
};

TEST(Polyline, ThinLinesHitOnePixelPerStepEndsIncluded) {
    struct Case {
        POINT a, b;
        std::set<std::pair<LONG, LONG>> want;
    };
    const Case cases[] = {
        {{1, 2}, {5, 2}, {{1, 2}, {2, 2}, {3, 2}, {4, 2}, {5, 2}}},
        {{3, 5}, {3, 1}, {{3, 1}, {3, 2}, {3, 3}, {3, 4}, {3, 5}}},
        {{0, 0}, {3, 3}, {{0, 0}, {1, 1}, {2, 2}, {3, 3}}},
        {{0, 0}, {4, 2}, {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}}},  // halves round away from zero
        {{4, 2}, {0, 0}, {{0, 0}, {1, 1}, {2, 1}, {3, 2}, {4, 2}}},  // drawn back the same
        {{2, 2}, {2, 2}, {{2, 2}}},
    };
    for (const Case& c : cases) {
        Canvas canvas(8, 8, 8);
        canvas.Fill(255);
        PenScope pen(canvas.dc, 1, RGB(0, 0, 0));
        POINT pts[2] = {c.a, c.b};
        ASSERT_TRUE(Polyline(canvas.dc, pts, 2));
        EXPECT_EQ(Ink(canvas, 255), c.want) << c.a.x << "," << c.a.y << "-" << c.b.x << "," << c.b.y;
    }
}

TEST(Polyline, WidePensReachHalfTheirWidthEachSide) {
    for (int width : {2, 3, 5, 8, 13}) {
        Canvas canvas(60, 40, 8);
        canvas.Fill(255);
        PenScope pen(canvas.dc, width, RGB(0, 0, 0));
        POINT pts[2] = {{10, 20}, {50, 20}};
        ASSERT_TRUE(Polyline(canvas.dc, pts, 2));
        auto ink = Ink(canvas, 255);
        LONG top = 40, bottom = -1, left = 60, right = -1;
        for (auto& p : ink) {
            top = std::min(top, p.second);
            bottom = std::max(bottom, p.second);
            left = std::min(left, p.first);
            right = std::max(right, p.first);
        }
        EXPECT_EQ(bottom - top + 1, width) << width;           // the band is as thick as the pen
        EXPECT_EQ(right - left + 1, 40 + width) << width;      // with round tips at both ends
        for (LONG x = 10; x <= 50; ++x)
            for (LONG y = top; y <= bottom; ++y) ASSERT_EQ(canvas.Get(x, y), 0u) << width;
    }
}

TEST(Polyline, DotsNullPensAndColours) {
    Canvas canvas(20, 20, 8);
    canvas.Fill(255);
    {
        PenScope pen(canvas.dc, 4, RGB(100, 100, 100));
        POINT dot = {10, 10};
        ASSERT_TRUE(Polyline(canvas.dc, &dot, 1));  // a tap of the pen is a dot
    }
    auto ink = Ink(canvas, 255);
    EXPECT_EQ(ink.size(), 12u);  // a round tip of 4: 2 + 4 + 4 + 2 pixels
    EXPECT_EQ(canvas.Get(10, 10), 100u);
    EXPECT_FALSE(Polyline(canvas.dc, nullptr, 2));
    POINT two[2] = {{0, 0}, {19, 19}};
    EXPECT_FALSE(Polyline(canvas.dc, two, 0));
    HPEN none = CreatePen(PS_NULL, 3, 0);
    HGDIOBJ old = SelectObject(canvas.dc, none);
    ASSERT_TRUE(Polyline(canvas.dc, two, 2));
    EXPECT_EQ(Ink(canvas, 255), ink);
    SelectObject(canvas.dc, old);
    DeleteObject(none);
    EXPECT_EQ(CreatePen(7, 1, 0), nullptr);  // styles other than solid and null are refused
    // Width 0 and negative widths draw one pixel and their size.
    HPEN thin = CreatePen(PS_SOLID, 0, 0);
    HPEN negative = CreatePen(PS_SOLID, -3, 0);
    BYTE lp[16];
    ASSERT_EQ(GetObjectW(thin, sizeof lp, lp), 16);
    EXPECT_EQ(reinterpret_cast<POINT*>(lp + 4)->x, 1);
    ASSERT_EQ(GetObjectW(negative, sizeof lp, lp), 16);
    EXPECT_EQ(reinterpret_cast<POINT*>(lp + 4)->x, 3);
    DeleteObject(thin);
    DeleteObject(negative);
}

// Lines far outside the surface stay within it and end at once; a mono and
// an XRGB buffer get the pen's nearest colour.
TEST(Polyline, FarCoordinatesAndOtherSurfaces) {
    Canvas canvas(16, 16, 1);
    canvas.Fill(1);
    PenScope pen(canvas.dc, 9, RGB(0, 0, 0));
    const POINT far[] = {{INT_MIN, INT_MIN}, {INT_MAX, INT_MAX}, {INT_MAX, -5}, {-1000000, -7}};
    ASSERT_TRUE(Polyline(canvas.dc, far, 4));
    EXPECT_EQ(canvas.Get(8, 8), 0u);  // the diagonal crosses the middle
    EXPECT_EQ(canvas.Get(15, 0), 1u);
    std::vector<uint32_t> pixels(6 * 4, 0);
    HDC buffer = PlatCreateBufferDC(pixels.data(), 6, 4, 24);
    HPEN red = CreatePen(PS_SOLID, 1, RGB(255, 0, 0));
    HGDIOBJ old = SelectObject(buffer, red);
    POINT row[2] = {{0, 1}, {5, 1}};
    ASSERT_TRUE(Polyline(buffer, row, 2));
    for (int x = 0; x < 6; ++x) EXPECT_EQ(pixels[6 + size_t(x)], 0x00FF0000u);
    EXPECT_EQ(pixels[0], 0u);
    SelectObject(buffer, old);
    DeleteObject(red);
    DeleteDC(buffer);
}

TEST(Polyline, PenDeletedWhileSelectedFallsBackToTheStockPen) {
    Canvas canvas(5, 5, 8);
    canvas.Fill(255);
    HPEN pen = CreatePen(PS_SOLID, 3, RGB(200, 200, 200));
    SelectObject(canvas.dc, pen);
    ASSERT_TRUE(DeleteObject(pen));
    POINT pts[2] = {{0, 2}, {4, 2}};
    ASSERT_TRUE(Polyline(canvas.dc, pts, 2));
    EXPECT_EQ(Ink(canvas, 255).size(), 5u);  // one pixel, black
    EXPECT_EQ(canvas.Get(2, 2), 0u);
}

TEST(Polyline, AllocationFailureAtEverySiteLeaksNothing) {
    Canvas canvas(30, 30, 8);
    long live = PlatLiveObjects();
    long sites = tovtest::ForEachAllocationFailure([&](long) {
        HPEN pen = CreatePen(PS_SOLID, 6, RGB(0, 0, 0));
        HGDIOBJ old = pen ? SelectObject(canvas.dc, pen) : nullptr;
        POINT pts[3] = {{1, 1}, {28, 5}, {3, 27}};
        Polyline(canvas.dc, pts, 3);
        if (old) SelectObject(canvas.dc, old);
        if (pen) DeleteObject(pen);
        EXPECT_EQ(PlatLiveObjects(), live);
    });
    EXPECT_GE(sites, 2);
}

}  // namespace
