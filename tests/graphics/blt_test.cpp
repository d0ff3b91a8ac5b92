// Raster operations, BitBlt and StretchBlt against their definitions: every
// operation on every depth, stretching, mirroring, depth conversion,
// clipping at the integer limits and bad handles.
#include "gfxcanvas.h"

#include <array>
#include <climits>
#include <testsupport.h>

using gfx::Canvas;

namespace {

// Result bit = bit (4P + 2S + D) of the operation's truth table.
uint32_t RopByDefinition(uint32_t rop8, uint32_t p, uint32_t s, uint32_t d) {
    uint32_t r = 0;
    for (int bit = 0; bit < 32; ++bit)
        r |= ((rop8 >> (((p >> bit) & 1u) << 2 | ((s >> bit) & 1u) << 1 | ((d >> bit) & 1u))) & 1u) << bit;
    return r;
}

TEST(RasterOps, TableMatchesTruthTableForAll256) {
    std::mt19937 rng(7);
    for (uint32_t rop = 0; rop < 256; ++rop) {
        for (int k = 0; k < 64; ++k) {
            uint32_t p = rng(), s = rng(), d = rng();
            ASSERT_EQ(GdiRopFunction(rop)(p, s, d), RopByDefinition(rop, p, s, d)) << "rop " << rop;
        }
        bool usesS = false, usesP = false;  // flipping that input alone changes a result
        for (unsigned i = 0; i < 8; ++i) {
            usesS |= ((rop >> i) & 1u) != ((rop >> (i ^ 2u)) & 1u);
            usesP |= ((rop >> i) & 1u) != ((rop >> (i ^ 4u)) & 1u);
        }
        EXPECT_EQ(GdiRopUsesSource(rop), usesS) << rop;
        EXPECT_EQ(GdiRopUsesPattern(rop), usesP) << rop;
    }
}

// Bitmaps of one table combine their raw values, masked to the depth; the
// pattern is the white brush.
TEST(BitBlt, All256OperationsOnEachDepth) {
    std::mt19937 rng(3);
    for (int bpp : {1, 2, 4, 8, 16, 24, 32}) {
        Canvas src(33, 5, bpp), dst(33, 5, bpp);
        ASSERT_TRUE(src.ok() && dst.ok());
        // White is the last entry of a table, else every colour bit (five a channel at 16 bits).
        const uint32_t mask = bpp == 32 ? 0x00FFFFFFu : (1u << bpp) - 1u, white = bpp == 16 ? 0x7FFFu : mask;
        for (uint32_t rop = 0; rop < 256; ++rop) {
            src.Random(rng);
            dst.Random(rng);
            auto s = src.Pixels(), d = dst.Pixels();
            ASSERT_TRUE(BitBlt(dst.dc, 0, 0, 33, 5, src.dc, 0, 0, rop << 16));
            auto r = dst.Pixels();
            for (size_t i = 0; i < r.size(); ++i)
                ASSERT_EQ(r[i], RopByDefinition(rop, white, s[i], d[i]) & mask) << "bpp " << bpp << " rop " << rop;
            ASSERT_EQ(src.Pixels(), s);  // the source is only read
        }
    }
}

// Each target pixel's centre is mapped into the source rectangle; a negative
// extent on one side mirrors, on both sides cancels.
TEST(StretchBlt, EnlargesShrinksAndMirrors) {
    std::mt19937 rng(5);
    Canvas src(6, 4, 8);
    src.Random(rng);
    const int cases[][8] = {
        {0, 0, 12, 8, 0, 0, 6, 4}, {0, 0, 3, 2, 0, 0, 6, 4},   {0, 0, 7, 5, 0, 0, 6, 4},
        {6, 4, -6, -4, 0, 0, 6, 4}, {6, 0, -6, 4, 0, 0, 6, 4}, {0, 0, 6, 4, 6, 4, -6, -4},
        {6, 4, -6, -4, 6, 4, -6, -4}, {2, 1, 4, 3, 1, 1, 2, 2},
    };
    for (const auto& c : cases) {
        Canvas dst(14, 10, 8);
        dst.Fill(7);
        ASSERT_TRUE(StretchBlt(dst.dc, c[0], c[1], c[2], c[3], src.dc, c[4], c[5], c[6], c[7], SRCCOPY));
        // Per axis: target start, target extent, source start, source extent, mirrored.
        auto axis = [&](int i) {
            return std::array<int, 5>{std::min(c[i], c[i] + c[i + 2]), std::abs(c[i + 2]), std::min(c[i + 4], c[i + 4] + c[i + 6]),
                                      std::abs(c[i + 6]), (c[i + 2] < 0) != (c[i + 6] < 0)};
        };
        auto ax = axis(0), ay = axis(1);
        auto map = [](const std::array<int, 5>& a, LONG t) {
            int j = ((2 * (t - a[0]) + 1) * a[3]) / (2 * a[1]);
            return a[2] + (a[4] ? a[3] - 1 - j : j);
        };
        for (LONG y = 0; y < 10; ++y)
            for (LONG x = 0; x < 14; ++x) {
                bool in = x >= ax[0] && x < ax[0] + ax[1] && y >= ay[0] && y < ay[0] + ay[1];
                ASSERT_EQ(dst.Get(x, y), in ? src.Get(map(ax, x), map(ay, y)) : 7u) << c[0] << "," << c[1] << "," << c[2] << " at " << x << "," << y;
            }
    }
}

TEST(BitBlt, ConvertsDepthsByNearestColour) {
    Canvas grey(256, 1, 8), mono(256, 1, 1), nibble(256, 1, 4), rgb(256, 1, 32);
    for (LONG x = 0; x < 256; ++x) grey.Set(x, 0, DWORD(x));
    for (Canvas* to : {&mono, &nibble, &rgb}) ASSERT_TRUE(BitBlt(to->dc, 0, 0, 256, 1, grey.dc, 0, 0, SRCCOPY));
    for (DWORD g = 0; g < 256; ++g) {
        EXPECT_EQ(mono.Get(LONG(g), 0), g >= 128 ? 1u : 0u) << g;
        EXPECT_EQ(nibble.Get(LONG(g), 0), (g + 8) / 17) << g;  // nearest of 0, 17, ..., 255
        EXPECT_EQ(rgb.Get(LONG(g), 0), g << 16 | g << 8 | g);
    }
    Canvas colour(3, 1, 24), back(3, 1, 8), wide(2, 1, 8), bits(2, 1, 1);
    colour.Set(0, 0, 0xFF0000);  // pure red: nearest grey by distance
    colour.Set(1, 0, 0x808080);
    colour.Set(2, 0, 0x102030);
    ASSERT_TRUE(BitBlt(back.dc, 0, 0, 3, 1, colour.dc, 0, 0, SRCCOPY));
    EXPECT_EQ(back.Pixels(), (std::vector<DWORD>{85, 128, 32}));
    Canvas five(3, 1, 16), again(3, 1, 32);  // five bits a channel, widened back by repeating the top bits
    ASSERT_TRUE(BitBlt(five.dc, 0, 0, 3, 1, colour.dc, 0, 0, SRCCOPY));
    ASSERT_TRUE(BitBlt(again.dc, 0, 0, 3, 1, five.dc, 0, 0, SRCCOPY));
    EXPECT_EQ(five.Pixels(), (std::vector<DWORD>{0x7C00, 0x4210, 0x0886}));
    EXPECT_EQ(again.Pixels(), (std::vector<DWORD>{0xFF0000, 0x848484, 0x102131}));
    bits.Set(1, 0, 1);
    ASSERT_TRUE(BitBlt(wide.dc, 0, 0, 2, 1, bits.dc, 0, 0, SRCCOPY));
    EXPECT_EQ(wide.Pixels(), (std::vector<DWORD>{0, 255}));
}

TEST(DeviceContexts, RefuseDeadAndForeignHandles) {
    Canvas c(4, 4, 8);
    HDC dead = CreateCompatibleDC(nullptr);
    ASSERT_TRUE(DeleteDC(dead));
    int junk[64] = {};
    for (HDC bad : {HDC(nullptr), dead, reinterpret_cast<HDC>(junk)}) {
        RECT r{0, 0, 0, 0};
        POINT pts[2] = {{0, 0}, {1, 1}};
        EXPECT_FALSE(BitBlt(bad, 0, 0, 1, 1, c.dc, 0, 0, SRCCOPY) || BitBlt(c.dc, 0, 0, 1, 1, bad, 0, 0, SRCCOPY));
        EXPECT_FALSE(DeleteDC(bad) || Polyline(bad, pts, 2));
        EXPECT_EQ(SelectObject(bad, c.bitmap), nullptr);
        EXPECT_TRUE(!bad || CreateCompatibleDC(bad) == nullptr);  // NULL asks for a new memory context
        EXPECT_EQ(DrawTextW(bad, u"x", 1, &r, DT_CALCRECT), 0);
    }
    EXPECT_EQ(SelectObject(c.dc, reinterpret_cast<HGDIOBJ>(junk)), nullptr);
    EXPECT_FALSE(DeleteObject(c.bitmap));  // still selected
    HDC screen = GetDC(nullptr);
    ASSERT_NE(screen, nullptr);
    EXPECT_EQ(SelectObject(screen, c.bitmap), nullptr);            // the screen holds no bitmap
    EXPECT_TRUE(BitBlt(screen, 0, 0, 4, 4, c.dc, 0, 0, SRCCOPY));  // and has no pixels to change
    EXPECT_EQ(ReleaseDC(nullptr, c.dc), 0);  // only screen contexts are released
    EXPECT_EQ(ReleaseDC(nullptr, screen), 1);
}

}  // namespace

TEST(BitBlt, ClipsToBothSurfaces) {
    std::mt19937 rng(9);
    Canvas src(8, 8, 8);
    src.Random(rng);
    const int cases[][6] = {
        {-3, -2, 8, 8, 0, 0}, {5, 6, 8, 8, 0, 0}, {0, 0, 8, 8, -4, -1}, {0, 0, 8, 8, 5, 6},
        {-100, -100, 8, 8, 0, 0}, {INT_MIN, INT_MIN, INT_MAX, INT_MAX, 0, 0},
        {0, 0, INT_MAX, INT_MAX, INT_MIN, INT_MIN}, {INT_MAX, INT_MAX, INT_MIN, INT_MIN, 0, 0},
    };
    for (const auto& c : cases) {
        Canvas dst(10, 9, 8);
        dst.Fill(3);
        ASSERT_TRUE(BitBlt(dst.dc, c[0], c[1], c[2], c[3], src.dc, c[4], c[5], SRCCOPY));
        if (c[2] < 0) continue;  // wrapping rectangles only have to stay inside
        for (LONG y = 0; y < 9; ++y)
            for (LONG x = 0; x < 10; ++x) {
                int64_t u = int64_t(x) - c[0] + c[4], v = int64_t(y) - c[1] + c[5];
                bool in = x >= c[0] && x < int64_t(c[0]) + c[2] && y >= c[1] && y < int64_t(c[1]) + c[3] && u >= 0 && u < 8 && v >= 0 && v < 8;
                ASSERT_EQ(dst.Get(x, y), in ? src.Get(LONG(u), LONG(v)) : 3u) << x << "," << y;
            }
    }
}
