// Fonts and DrawTextW: resolving and measuring, transparency, weight,
// surrogate pairs, faces that cannot be had and bad arguments (alignment
// and the two-colour cells: tests/overlay; allocation failure: tests/frame).
#include "gfxcanvas.h"

#include <algorithm>
#include <fstream>
#include <set>
#include <testsupport.h>

using gfx::Canvas;

namespace {

LOGFONTW Font(LONG height, LONG weight) {
    LOGFONTW lf{};
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
    // Two lines each: a break at the end adds one.
    for (const char16_t* broken : {u"Hi\nHello", u"Hi\r\nHello", u"Hi\n", u"Hi\r", u"Hi\r\n"})
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

// Transparent text leaves the background; a heavier weight adds ink.
TEST(Fonts, TransparencyWeightAndSurrogates) {
    auto draw = [](LONG weight, const char16_t* text) {
        Canvas c(300, 40, 8);
        FontScope f(c.dc, Font(24, weight));
        c.Fill(0x80);
        SetBkMode(c.dc, TRANSPARENT);
        SetTextColor(c.dc, RGB(10, 10, 10));
        RECT r{0, 0, 300, 40};
        EXPECT_GT(DrawTextW(c.dc, text, -1, &r, DT_LEFT), 0);
        return c.Pixels();
    };
    const auto regular = draw(400, u"Signature 42"), bold = draw(700, u"Signature 42");
    for (const auto& px : {regular, bold}) EXPECT_EQ(std::set<DWORD>(px.begin(), px.end()), (std::set<DWORD>{10, 0x80}));
    EXPECT_GT(std::count(bold.begin(), bold.end(), 10u), std::count(regular.begin(), regular.end(), 10u) * 11 / 10);
    // A surrogate pair is one code point: U+1D546 has a glyph, U+1D547 none.
    EXPECT_NE(draw(400, u"\U0001D546"), draw(400, u"\U0001D547"));
    // Each row of an L is one run of ink, also past the first byte of the glyph's rows.
    const auto l = draw(400, u"L");
    for (size_t y = 0; y < 40; ++y) {
        int runs = 0;
        for (size_t x = 1; x < 300; ++x) runs += l[y * 300 + x] == 10u && l[y * 300 + x - 1] != 10u;
        EXPECT_LE(runs, 1) << "row " << y;
    }
}

// A configuration without fonts resolves no face: NULL, and nothing leaks.
TEST(Fonts, UnresolvableFaceFailsCleanly) {
    tovtest::ScratchDir dir;
    const std::string base = dir.path();
    std::ofstream(base + "/empty.conf") << "<?xml version=\"1.0\"?>\n<fontconfig></fontconfig>\n";
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
    EXPECT_EQ(PlatLiveObjects(), live);
    EXPECT_FALSE(PlatSetFontConfigFile((base + "/absent.conf").c_str()));
    ASSERT_TRUE(PlatSetFontConfigFile(nullptr));
    EXPECT_TRUE(resolves());
}

}  // namespace
