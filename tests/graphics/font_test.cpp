// Fonts and DrawTextW: resolving faces, measuring, two-colour rendering,
// alignment, clipping, weight, faces that cannot be had, bad arguments and
// allocation failures.
#include "gfxtest.h"

#include <cstdio>
#include <fstream>
#include <set>
#include <sys/stat.h>
#include <map>
#include <testsupport.h>
#include <unistd.h>

using gfx::Canvas;

namespace {

LOGFONTW Font(LONG height, LONG weight, const char16_t* face = u"TACOMA") {
    LOGFONTW lf;
    std::memset(&lf, 0, sizeof lf);
    lf.lfHeight = height;
    lf.lfWeight = weight;
    for (int i = 0; face[i] && i < LF_FACESIZE - 1; ++i) lf.lfFaceName[i] = face[i];
    return lf;
}

struct FontScope {
    HDC dc;
    HFONT font;
    HGDIOBJ old = nullptr;
    FontScope(HDC d, const LOGFONTW& lf) : dc(d), font(CreateFontIndirectW(&lf)) {
        if (font) old = SelectObject(dc, font);
    }
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

std::map<DWORD, int> Histogram(const Canvas& c, LONG x0, LONG y0, LONG x1, LONG y1) {
    std::map<DWORD, int> h;
    for (LONG y = y0; y < y1; ++y)
        for (LONG x = x0; x < x1; ++x) ++h[c.Get(x, y)];
    return h;
}

TEST(Fonts, TacomaResolvesAndMeasuresLines) {
    Canvas c(8, 8, 8);
    FontScope f(c.dc, Font(16, 600));
    ASSERT_NE(f.font, nullptr);
    LOGFONTW back;
    ASSERT_EQ(GetObjectW(f.font, sizeof back, &back), int(sizeof back));
    EXPECT_EQ(back.lfWeight, 600);
    EXPECT_EQ(std::u16string(back.lfFaceName), u"TACOMA");

    RECT hi = Measure(c.dc, u"Hi"), hello = Measure(c.dc, u"Hello");
    EXPECT_GT(hi.right, 0);
    EXPECT_EQ(hi.bottom, 16);  // a positive height is the cell height, exactly
    EXPECT_GT(hello.right, hi.right);
    RECT two = Measure(c.dc, u"Hi\nHello");
    EXPECT_EQ(two.right, hello.right);
    EXPECT_EQ(two.bottom, 2 * hi.bottom);
    EXPECT_EQ(Measure(c.dc, u"Hi\r\nHello").bottom, 2 * hi.bottom);
    EXPECT_EQ(Measure(c.dc, u"Hello", 2).right, Measure(c.dc, u"He").right);
    RECT empty = Measure(c.dc, u"");
    EXPECT_EQ(empty.right, 0);
    EXPECT_EQ(empty.bottom, 0);
    // The measured box starts where the rectangle does.
    RECT moved{5, 7, 1000, 1000};
    ASSERT_EQ(DrawTextW(c.dc, u"Hi", -1, &moved, DT_CALCRECT), hi.bottom);
    EXPECT_EQ(moved.right, 5 + hi.right);
    EXPECT_EQ(moved.bottom, 7 + hi.bottom);
    // Taller fonts measure taller; negative heights are em sizes.
    FontScope big(c.dc, Font(32, 600));
    EXPECT_EQ(Measure(c.dc, u"Hi").bottom, 32);
    FontScope em(c.dc, Font(-32, 600));
    EXPECT_GT(Measure(c.dc, u"Hi").bottom, 32);
}

// Glyphs are not anti-aliased: inside the box only the two colours, outside
// nothing changes.
TEST(Fonts, GreyTextHasOnlyItsTwoColoursAndStaysInItsBox) {
    for (LONG height : {8, 12, 17, 40, 72}) {
        Canvas c(400, 100, 8);
        c.Fill(0x80);
        FontScope f(c.dc, Font(height, 600));
        ASSERT_NE(f.font, nullptr);
        RECT box = Measure(c.dc, u"Wg@1 ji\nX");
        box.left += 3;
        box.right += 3;
        box.top += 2;
        box.bottom += 2;
        SetBkMode(c.dc, OPAQUE);
        SetTextColor(c.dc, RGB(0x40, 0x40, 0x40));
        SetBkColor(c.dc, RGB(0xC0, 0xC0, 0xC0));
        ASSERT_GT(DrawTextW(c.dc, u"Wg@1 ji\nX", -1, &box, DT_LEFT), 0);
        auto inside = Histogram(c, box.left, box.top, std::min<LONG>(box.right, 400), std::min<LONG>(box.bottom, 100));
        EXPECT_GT(inside[0x40], 0) << height;
        EXPECT_GT(inside[0xC0], 0) << height;
        EXPECT_EQ(inside[0x40] + inside[0xC0] + inside[0x80],
                  (std::min<LONG>(box.right, 400) - box.left) * (std::min<LONG>(box.bottom, 100) - box.top));
        auto all = Histogram(c, 0, 0, 400, 100);
        EXPECT_EQ(all.size(), 3u) << height;
        for (LONG y = 0; y < 100; ++y)
            for (LONG x = 0; x < 400; ++x)
                if (x < box.left || x >= box.right || y < box.top || y >= box.bottom) {
                    ASSERT_EQ(c.Get(x, y), 0x80u);
                }
    }
}

// The opaque cell of each line shows where it was put: left, centred, right.
TEST(Fonts, AlignsEachLineInTheRectangle) {
    for (UINT format : {DT_LEFT, DT_CENTER, DT_RIGHT}) {
        Canvas c(300, 60, 8);
        c.Fill(0x80);
        FontScope f(c.dc, Font(14, 600));
        const char16_t* lines[] = {u"I", u"WWWW"};
        LONG widths[2] = {Measure(c.dc, lines[0]).right, Measure(c.dc, lines[1]).right};
        LONG lineHeight = Measure(c.dc, u"I").bottom;
        SetBkColor(c.dc, RGB(255, 255, 255));
        SetTextColor(c.dc, 0);
        RECT r{10, 5, 251, 55};
        ASSERT_EQ(DrawTextW(c.dc, u"I\nWWWW", -1, &r, format), 2 * lineHeight);
        for (int line = 0; line < 2; ++line) {
            LONG y = 5 + line * lineHeight + lineHeight / 2;
            LONG first = -1, last = -1;
            for (LONG x = 0; x < 300; ++x) {
                if (c.Get(x, y) != 0x80u) {
                    if (first < 0) first = x;
                    last = x;
                }
            }
            LONG want = format == DT_LEFT ? 10 : format == DT_CENTER ? 10 + (241 - widths[line]) / 2 : 251 - widths[line];
            EXPECT_EQ(first, want) << format << " line " << line;
            EXPECT_EQ(last, want + widths[line] - 1) << format << " line " << line;
        }
    }
}

// Descenders and capitals stay inside the cell of a positive height, so a
// box of exactly the measured size cuts nothing off.
TEST(Fonts, GlyphsStayInsideTheirCell) {
    for (LONG height = 10; height <= 72; height += 3) {
        Canvas c(600, 200, 8);
        c.Fill(0x80);
        FontScope f(c.dc, Font(height, 600));
        SetBkMode(c.dc, TRANSPARENT);
        RECT r{10, 50, 590, 50 + height};
        ASSERT_EQ(DrawTextW(c.dc, u"gjpqy Abdfhkl|", -1, &r, DT_LEFT | DT_NOCLIP), height);
        for (LONG y = 0; y < 200; ++y)
            for (LONG x = 0; x < 600; ++x)
                if (c.Get(x, y) != 0x80u) {
                    ASSERT_TRUE(y >= 50 && y < 50 + height) << height << " row " << y;
                }
    }
}

TEST(Fonts, ClipsToTheRectangleUnlessAskedNotTo) {
    Canvas c(200, 40, 8);
    FontScope f(c.dc, Font(20, 600));
    for (UINT extra : {0u, UINT(DT_NOCLIP)}) {
        c.Fill(0x80);
        RECT r{20, 10, 40, 20};  // far smaller than the text
        DrawTextW(c.dc, u"MMMMMM", -1, &r, DT_LEFT | extra);
        bool outside = false;
        for (LONG y = 0; y < 40; ++y)
            for (LONG x = 0; x < 200; ++x)
                if ((x < 20 || x >= 40 || y < 10 || y >= 20) && c.Get(x, y) != 0x80u) outside = true;
        EXPECT_EQ(outside, extra != 0);
    }
}

TEST(Fonts, TransparentModeLeavesTheBackgroundAndWeightAddsInk) {
    int ink[2] = {0, 0};
    for (int i = 0; i < 2; ++i) {
        Canvas c(300, 40, 8);
        c.Fill(0x80);
        FontScope f(c.dc, Font(24, i ? 700 : 400));
        SetBkMode(c.dc, TRANSPARENT);
        SetTextColor(c.dc, RGB(10, 10, 10));
        RECT r{0, 0, 300, 40};
        ASSERT_GT(DrawTextW(c.dc, u"Signature 42", -1, &r, DT_LEFT), 0);
        auto h = Histogram(c, 0, 0, 300, 40);
        EXPECT_EQ(h.size(), 2u);
        ink[i] = h[10];
    }
    EXPECT_GT(ink[1], ink[0] * 11 / 10);
}

TEST(Fonts, BufferContextsAndStockFont) {
    std::vector<uint32_t> pixels(120 * 30, 0x00336699u);
    HDC dc = PlatCreateBufferDC(pixels.data(), 120, 30, 480);
    ASSERT_NE(dc, nullptr);
    RECT r{0, 0, 120, 30};
    SetTextColor(dc, RGB(255, 0, 0));
    ASSERT_GT(DrawTextW(dc, u"Ab", -1, &r, DT_LEFT), 0);  // no font selected: the stock one
    std::set<uint32_t> colours(pixels.begin(), pixels.end());
    EXPECT_EQ(colours, (std::set<uint32_t>{0x00336699u, 0x00FF0000u, 0x00FFFFFFu}));
    DeleteDC(dc);
}

TEST(Fonts, BadArgumentsFailCleanly) {
    Canvas c(10, 10, 8);
    RECT r{0, 0, 10, 10};
    EXPECT_EQ(CreateFontIndirectW(nullptr), nullptr);
    LOGFONTW huge = Font(kGdiMaxFontHeight + 1, 400);
    EXPECT_EQ(CreateFontIndirectW(&huge), nullptr);
    EXPECT_EQ(DrawTextW(c.dc, nullptr, -1, &r, DT_CALCRECT), 0);
    EXPECT_EQ(DrawTextW(c.dc, u"x", -1, nullptr, DT_CALCRECT), 0);
    // A font deleted while selected gives way to the stock font.
    LOGFONTW lf = Font(30, 400);
    HFONT font = CreateFontIndirectW(&lf);
    SelectObject(c.dc, font);
    RECT before = Measure(c.dc, u"Hi");
    ASSERT_TRUE(DeleteObject(font));
    RECT after = Measure(c.dc, u"Hi");
    EXPECT_GT(before.bottom, after.bottom);
    EXPECT_GT(after.bottom, 0);
}

// A configuration without fonts resolves no face; a font file that has gone
// since fontconfig listed it fails to load. Both give NULL and leak nothing.
TEST(Fonts, UnresolvableFaceAndMissingFileFailCleanly) {
    char dir[] = "/tmp/tovfontXXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string base = dir;
    std::ofstream(base + "/empty.conf") << "<?xml version=\"1.0\"?>\n<fontconfig></fontconfig>\n";
    std::ofstream(base + "/one.conf") << "<?xml version=\"1.0\"?>\n<fontconfig><dir>" << base
                                      << "/fonts</dir><cachedir>" << base << "/cache</cachedir></fontconfig>\n";
    ASSERT_EQ(mkdir((base + "/fonts").c_str(), 0700), 0);
    {
        std::ifstream in("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", std::ios::binary);
        ASSERT_TRUE(in.good()) << "fonts-dejavu-core is installed by scripts/setup";
        std::ofstream(base + "/fonts/f.ttf", std::ios::binary) << in.rdbuf();
    }
    Canvas c(10, 10, 8);
    LOGFONTW lf = Font(12, 600);
    long live = PlatLiveObjects();

    ASSERT_TRUE(PlatSetFontConfigFile((base + "/empty.conf").c_str()));
    EXPECT_EQ(CreateFontIndirectW(&lf), nullptr);
    RECT r{0, 0, 0, 0};
    EXPECT_EQ(DrawTextW(c.dc, u"x", -1, &r, DT_CALCRECT), 0);  // nor a stock font
    EXPECT_EQ(PlatLiveObjects(), live);

    ASSERT_TRUE(PlatSetFontConfigFile((base + "/one.conf").c_str()));
    HFONT font = CreateFontIndirectW(&lf);
    EXPECT_NE(font, nullptr);
    DeleteObject(font);
    std::remove((base + "/fonts/f.ttf").c_str());
    EXPECT_EQ(CreateFontIndirectW(&lf), nullptr);
    EXPECT_EQ(PlatLiveObjects(), live);

    EXPECT_FALSE(PlatSetFontConfigFile((base + "/absent.conf").c_str()));
    ASSERT_TRUE(PlatSetFontConfigFile(nullptr));
    font = CreateFontIndirectW(&lf);
    EXPECT_NE(font, nullptr);
    DeleteObject(font);
    std::string cmd = "rm -rf '" + base + "'";
    EXPECT_EQ(system(cmd.c_str()), 0);
}

TEST(Fonts, AllocationFailureAtEverySiteLeaksNothing) {
    Canvas c(120, 40, 8);
    LOGFONTW lf = Font(14, 600);
    RECT warm{0, 0, 0, 0};
    // The canvas's stock font stays loaded, with the last glyph it rendered.
    DrawTextW(c.dc, u"x", -1, &warm, DT_CALCRECT);
    DrawTextW(c.dc, u"x", -1, &warm, DT_LEFT);
    long live = PlatLiveObjects();
    long sites = tovtest::ForEachAllocationFailure([&](long n) {
        HDC dc = CreateCompatibleDC(nullptr);
        HFONT font = CreateFontIndirectW(&lf);
        HGDIOBJ old = font ? SelectObject(c.dc, font) : nullptr;
        RECT r{0, 0, 0, 0};
        DrawTextW(c.dc, u"Ag\n12", -1, &r, DT_CALCRECT);
        DrawTextW(c.dc, u"Ag\n12", -1, &r, DT_CENTER);
        RECT s{0, 0, 0, 0};
        if (dc) DrawTextW(dc, u"stock", -1, &s, DT_CALCRECT);  // loads the stock font
        if (old) SelectObject(c.dc, old);
        if (font) DeleteObject(font);
        if (dc) DeleteDC(dc);
        EXPECT_EQ(PlatLiveObjects(), live) << "fault " << n;  // FreeType's memory: LeakSanitizer
    });
    EXPECT_EQ(sites, 2);  // the context and the font object
}

}  // namespace
