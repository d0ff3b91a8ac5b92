// Fonts and DrawTextW: resolving and measuring, two-colour glyphs inside
// their cell, alignment, clipping, weight, faces that cannot be had and bad
// arguments (allocation failure under the exports that draw: tests/frame).
#include "gfxcanvas.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sys/stat.h>
#include <testsupport.h>

using gfx::Canvas;

namespace {

LOGFONTW Font(LONG height, LONG weight) {
    LOGFONTW lf;
    std::memset(&lf, 0, sizeof lf);
    lf.lfHeight = height;
    lf.lfWeight = weight;
    std::memcpy(lf.lfFaceName, u"TACOMA", 7 * sizeof(WCHAR));
    return lf;
}

struct FontScope {
    HDC dc;
    HFONT font;
    HGDIOBJ old = nullptr;
    FontScope(HDC d, const LOGFONTW& lf) : dc(d), font(CreateFontIndirectW(&lf)) { old = font ? SelectObject(dc, font) : nullptr; }
    ~FontScope() {
        if (old) SelectObject(dc, old);
        if (font) DeleteObject(font);
    }
};

RECT Measure(HDC dc, const char16_t* text, int count = -1) {
    RECT r{0, 0, 0, 0};
    DrawTextW(dc, text, count, &r, DT_CALCRECT);
    return r;
}

TEST(Fonts, TacomaResolvesMeasuresAndRefusesBadArguments) {
    Canvas c(8, 8, 8);
    FontScope f(c.dc, Font(16, 600));
    ASSERT_NE(f.font, nullptr);
    RECT hi = Measure(c.dc, u"Hi"), hello = Measure(c.dc, u"Hello"), two = Measure(c.dc, u"Hi\nHello");
    EXPECT_EQ(hi.bottom, 16);  // a positive height is the cell height
    EXPECT_GT(hello.right, hi.right);
    EXPECT_EQ(two.right, hello.right);
    EXPECT_EQ(two.bottom, 32);
    for (const char16_t* broken : {u"Hi\r\nHello", u"Hi\n", u"Hi\r", u"Hi\r\n"})  // a break at the end adds a line
        EXPECT_EQ(Measure(c.dc, broken).bottom, 32) << tovtest::N(broken);
    EXPECT_EQ(Measure(c.dc, u"Hello", 2).right, Measure(c.dc, u"He").right);
    EXPECT_EQ(Measure(c.dc, u"").right | Measure(c.dc, u"").bottom, 0);
    RECT moved{5, 7, 1000, 1000};  // the measured box starts where the rectangle does
    ASSERT_EQ(DrawTextW(c.dc, u"Hi", -1, &moved, DT_CALCRECT), 16);
    EXPECT_EQ(moved.right, 5 + hi.right);
    EXPECT_EQ(moved.bottom, 7 + 16);
    {
        FontScope em(c.dc, Font(-32, 600));  // negative heights are em sizes
        EXPECT_GT(Measure(c.dc, u"Hi").bottom, 32);
    }
    RECT r{0, 0, 10, 10};
    LOGFONTW huge = Font(kGdiMaxFontHeight + 1, 400), lf = Font(30, 400);
    EXPECT_EQ(CreateFontIndirectW(nullptr), nullptr);
    EXPECT_EQ(CreateFontIndirectW(&huge), nullptr);
    EXPECT_EQ(DrawTextW(c.dc, nullptr, -1, &r, DT_CALCRECT), 0);
    EXPECT_EQ(DrawTextW(c.dc, u"x", -1, nullptr, DT_CALCRECT), 0);
    // A font deleted while selected gives way to the stock font.
    HFONT font = CreateFontIndirectW(&lf);
    SelectObject(c.dc, font);
    RECT before = Measure(c.dc, u"Hi");
    ASSERT_TRUE(DeleteObject(font));
    RECT after = Measure(c.dc, u"Hi");
    EXPECT_GT(before.bottom, after.bottom);
    EXPECT_GT(after.bottom, 0);
}

// Glyphs are not anti-aliased, descenders and capitals stay inside the cell,
// and each line's opaque cell is put where the alignment says: even
// unclipped, only those cells change, to the two colours.
TEST(Fonts, LinesAreAlignedTwoColourCells) {
    for (LONG height : {8, 13, 25, 40, 72}) {
        for (UINT format : {DT_LEFT, DT_CENTER, DT_RIGHT}) {
            Canvas c(700, 170, 8);
            c.Fill(0x80);
            FontScope f(c.dc, Font(height, 600));
            ASSERT_NE(f.font, nullptr);
            SetBkMode(c.dc, OPAQUE);
            SetTextColor(c.dc, RGB(0x40, 0x40, 0x40));
            SetBkColor(c.dc, RGB(0xC0, 0xC0, 0xC0));
            LONG widths[2] = {Measure(c.dc, u"gjpqy W@1|").right, Measure(c.dc, u"X").right};
            RECT r{3, 2, 680, 2 + 2 * height};
            ASSERT_EQ(DrawTextW(c.dc, u"gjpqy W@1|\nX", -1, &r, format | DT_NOCLIP), 2 * height);
            std::map<DWORD, int> ink;
            for (LONG y = 0; y < 170; ++y) {
                LONG line = (y - 2) / height, width = y >= 2 && line < 2 ? widths[line] : 0;
                LONG left = format == DT_LEFT ? 3 : format == DT_CENTER ? 3 + (677 - width) / 2 : 680 - width;
                for (LONG x = 0; x < 700; ++x) {
                    ++ink[c.Get(x, y)];
                    ASSERT_EQ(c.Get(x, y) == 0x80u, !(width && x >= left && x < left + width)) << height << "/" << format << " at " << x << "," << y;
                }
            }
            EXPECT_GT(ink[0x40], 0);
            EXPECT_EQ(ink.size(), 3u);
        }
    }
}

// Without DT_NOCLIP the rectangle clips; transparent text leaves the
// background; a heavier weight adds ink.
TEST(Fonts, ClippingTransparencyAndWeight) {
    int ink[2] = {0, 0};
    for (int bold = 0; bold < 2; ++bold) {
        Canvas c(300, 40, 8);
        FontScope f(c.dc, Font(24, bold ? 700 : 400));
        for (UINT extra : {0u, UINT(DT_NOCLIP)}) {
            c.Fill(0x80);
            RECT r{20, 10, 40, 20};  // far smaller than the text
            DrawTextW(c.dc, u"MMMMMM", -1, &r, DT_LEFT | extra);
            bool outside = false;
            for (LONG y = 0; y < 40; ++y)
                for (LONG x = 0; x < 300; ++x) outside |= (x < 20 || x >= 40 || y < 10 || y >= 20) && c.Get(x, y) != 0x80u;
            EXPECT_EQ(outside, extra != 0);
        }
        c.Fill(0x80);
        SetBkMode(c.dc, TRANSPARENT);
        SetTextColor(c.dc, RGB(10, 10, 10));
        RECT r{0, 0, 300, 40};
        ASSERT_GT(DrawTextW(c.dc, u"Signature 42", -1, &r, DT_LEFT), 0);
        auto px = c.Pixels();
        EXPECT_EQ(std::set<DWORD>(px.begin(), px.end()), (std::set<DWORD>{10, 0x80}));
        ink[bold] = int(std::count(px.begin(), px.end(), 10u));
    }
    EXPECT_GT(ink[1], ink[0] * 11 / 10);
    // A surrogate pair is one code point: U+1D546 has a glyph, U+1D547 none.
    Canvas g(40, 40, 8);
    FontScope f(g.dc, Font(24, 400));
    auto glyph = [&](const char16_t* text) {
        g.Fill(0x80);
        RECT r{0, 0, 40, 40};
        DrawTextW(g.dc, text, -1, &r, DT_LEFT);
        return g.Pixels();
    };
    EXPECT_NE(glyph(u"\U0001D546"), glyph(u"\U0001D547"));
    // A buffer context draws with the stock font in exact XRGB colours.
    std::vector<uint32_t> pixels(120 * 30, 0x00336699u);
    HDC dc = PlatCreateBufferDC(pixels.data(), 120, 30, 480);
    RECT r{0, 0, 120, 30};
    SetTextColor(dc, RGB(255, 0, 0));
    ASSERT_GT(DrawTextW(dc, u"Ab", -1, &r, DT_LEFT), 0);
    EXPECT_EQ(std::set<uint32_t>(pixels.begin(), pixels.end()), (std::set<uint32_t>{0x00336699u, 0x00FF0000u, 0x00FFFFFFu}));
    DeleteDC(dc);
}

// A configuration without fonts resolves no face; a font file gone since
// fontconfig listed it fails to load. Both give NULL and leak nothing.
TEST(Fonts, UnresolvableFaceAndMissingFileFailCleanly) {
    tovtest::ScratchDir dir;
    const std::string base = dir.path();
    std::ofstream(base + "/empty.conf") << "<?xml version=\"1.0\"?>\n<fontconfig></fontconfig>\n";
    std::ofstream(base + "/one.conf") << "<?xml version=\"1.0\"?>\n<fontconfig><dir>" << base << "/fonts</dir><cachedir>" << base
                                      << "/cache</cachedir></fontconfig>\n";
    ASSERT_EQ(mkdir((base + "/fonts").c_str(), 0700), 0);
    {
        std::ifstream in("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", std::ios::binary);
        ASSERT_TRUE(in.good()) << "fonts-dejavu-core is installed by scripts/setup";
        std::ofstream(base + "/fonts/f.ttf", std::ios::binary) << in.rdbuf();
    }
    Canvas c(10, 10, 8);
    LOGFONTW lf = Font(12, 600);
    long live = PlatLiveObjects();
    auto resolves = [&] {
        HFONT font = CreateFontIndirectW(&lf);
        DeleteObject(font);
        return font != nullptr;
    };
    ASSERT_TRUE(PlatSetFontConfigFile((base + "/empty.conf").c_str()));
    EXPECT_FALSE(resolves());
    RECT r{0, 0, 0, 0};
    EXPECT_EQ(DrawTextW(c.dc, u"x", -1, &r, DT_CALCRECT), 0);  // nor a stock font
    ASSERT_TRUE(PlatSetFontConfigFile((base + "/one.conf").c_str()));
    EXPECT_TRUE(resolves());
    std::remove((base + "/fonts/f.ttf").c_str());
    EXPECT_FALSE(resolves());
    EXPECT_EQ(PlatLiveObjects(), live);
    EXPECT_FALSE(PlatSetFontConfigFile((base + "/absent.conf").c_str()));
    ASSERT_TRUE(PlatSetFontConfigFile(nullptr));
    EXPECT_TRUE(resolves());
}

}  // namespace
