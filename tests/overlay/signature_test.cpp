// Signatures: drawing a stroke record into a context, records that end
// early or sit at odd addresses, and saved pictures that reload with their
// strokes where the record put them, turned by 180 degrees on request.
#include "overlaytest.h"

using namespace ovl;

namespace {

constexpr uint32_t kWhite = 0x00FFFFFFu;

TEST(SigDraw, ArgumentsEmptyRecordsAndLongStrokes) {
    Screen b(20, 20, kWhite);
    auto rec = Record(20, 20, {{{1, 1}, {5, 5}}}), none = Record(20, 20, {});
    EXPECT_EQ(tovSigDraw(nullptr, rec.data(), 0, 1), 7u);
    EXPECT_EQ(tovSigDraw(b.dc, nullptr, 0, 1), 7u);
    EXPECT_EQ(tovSigDraw(b.dc, rec.data(), 0, 0), 7u);
    std::vector<int32_t> negative = {20, 20, -5, 2, 1, 1, 5, 5};
    EXPECT_EQ(tovSigDraw(b.dc, none.data(), 0, 3), 0u);
    EXPECT_EQ(tovSigDraw(b.dc, negative.data(), 0, 3), 0u);
    EXPECT_EQ(b.InkCount(), 0);
    EXPECT_EQ(tovSigDraw(b.dc, rec.data(), RGB(0, 0, 255), -1), 0u);  // a negative width draws too
    EXPECT_EQ(b.At(3, 3), 0x000000FFu);
    // A stroke longer than the drawing code's chunk is drawn without a gap.
    Screen wide(1800, 3, kWhite);
    std::vector<POINT> stroke;
    for (LONG i = 0; i < 600; ++i) stroke.push_back({3 * i, 1});
    ASSERT_EQ(tovSigDraw(wide.dc, Record(1800, 3, {stroke}).data(), 0, 1), 0u);
    for (LONG x = 0; x <= 3 * 599; ++x) ASSERT_TRUE(wide.Ink(x, 1)) << x;
}

// A record at the very end of readable memory whose last stroke claims more
// points than there are: the readable strokes are drawn, nothing faults. The
// same record one byte off its alignment draws the same.
TEST(SigDraw, RecordsThatEndEarlyOrSitAtOddAddresses) {
    GuardedPage guard;
    BYTE* const end = guard.End();
    // Three strokes counted; the third of 1000 points is cut off by the page end.
    auto rec = Record(30, 30, {{{2, 2}, {20, 2}}, {{2, 9}, {20, 9}}, {}});
    rec.back() = 1000;
    rec.push_back(5);
    const size_t bytes = rec.size() * 4;
    for (size_t shift : {size_t(0), size_t(1), size_t(3)}) {
        BYTE* at = end - bytes - shift;
        std::memcpy(at, rec.data(), bytes);
        Screen b(30, 30, kWhite), c(30, 30, kWhite);
        EXPECT_EQ(tovSigDraw(b.dc, at, 0, 1), 0u);
        EXPECT_EQ(b.InkCount(), 19 * 2) << shift;
        std::memcpy(end - 12, rec.data(), 12);  // the header alone at the page end, its strokes unreadable
        EXPECT_EQ(tovSigDraw(c.dc, end - 12, 0, 1), 0u);
        EXPECT_EQ(tovSigDraw(c.dc, end - 4, 0, 1), 0u);  // not even a header
        EXPECT_EQ(c.InkCount(), 0);
    }
}

TEST(SigSave, ReloadsWithStrokesInPlaceAndTurnedOnRequest) {
    ScratchDir dir;
    // Across; down, not joined to the one before; a tap; off the page; leaving it on the right.
    auto rec = Record(60, 40, {{{5, 10}, {40, 10}}, {{10, 30}, {10, 35}}, {{50, 5}}, {{-100, -100}, {-50, -80}}, {{55, 20}, {200, 20}}});
    HDC dc = CreateCompatibleDC(nullptr);
    RECT text{0, 0, 60, 0};
    DrawTextW(dc, u"OK", -1, &text, DT_CALCRECT);
    DeleteDC(dc);
    const LONG th = text.bottom;
    ASSERT_GT(th, 0);
    for (BOOL rotate : {FALSE, TRUE}) {
        std::u16string name = W(dir.File(rotate ? "turned.bmp" : "upright.bmp"));
        ASSERT_EQ(tovSigSave(name.c_str(), tovFormatBMP, 80, rec.data(), u"OK", rotate, RGB(255, 0, 0), 1), 0u);
        Dib pic(tovLoadBMP(name.c_str()));
        ASSERT_NE(pic, nullptr);
        EXPECT_EQ(std::vector<LONG>({DibBitCount(pic), DibWidth(pic), DibHeight(pic)}), std::vector<LONG>({1, 60, 40 + th}));
        // Where a pixel of the page lands in the picture.
        auto at = [&](LONG x, LONG y) { return rotate ? StorePixel(pic, 59 - x, 39 - y) : StorePixel(pic, x, y); };
        for (LONG x = 5; x <= 40; ++x) EXPECT_EQ(at(x, 10), 0u) << x;
        for (LONG y = 30; y <= 35; ++y) EXPECT_EQ(at(10, y), 0u) << y;
        EXPECT_EQ(at(50, 5), 0u);
        int ink[2] = {0, 0};  // page, text
        for (LONG y = 0; y < 40 + th; ++y)
            for (LONG x = 0; x < 60; ++x) ink[y >= 40] += StorePixel(pic, x, y) == 0;
        EXPECT_EQ(ink[0], 36 + 6 + 1 + 5);  // nothing between the strokes, nothing else
        EXPECT_GT(ink[1], 5);               // the text, upright, under the signature
        EXPECT_EQ(StorePixel(pic, 59, 39 + th), 1u);  // and white beside it
    }
}

TEST(SigSave, FormatsAndFailures) {
    ScratchDir dir;
    auto rec = Record(32, 16, {{{1, 1}, {30, 14}}});
    const struct { DWORD format; const char* name; std::string magic; } cases[] = {
        {1, "s.png", "\x89PNG"}, {2, "s.bmp", "BM"}, {0, "s0.jpg", "\xFF\xD8"}, {9, "s9.jpg", "\xFF\xD8"}};
    for (const auto& c : cases) {
        ASSERT_EQ(tovSigSave(W(c.name).c_str(), c.format, 75, rec.data(), u"x", FALSE, 0, 2), 0u) << c.name;
        EXPECT_EQ(ReadFileBytes(c.name).substr(0, c.magic.size()), c.magic) << c.name;
    }
    // No record: no picture, no file.
    EXPECT_EQ(tovSigSave(u"none.bmp", tovFormatBMP, 75, nullptr, u"x", FALSE, 0, 1), 5u);
    EXPECT_FALSE(FileExists("none.bmp"));
    EXPECT_EQ(tovSigSave(u"missing/dir/s.bmp", tovFormatBMP, 75, rec.data(), u"x", FALSE, 0, 1), DWORD(DibErrorFileCreation));
    // An empty text leaves the page alone; pen width 0 draws nothing, yet the file is written.
    ASSERT_EQ(tovSigSave(u"p.bmp", tovFormatBMP, 75, rec.data(), u"", FALSE, 0, 0), 0u);
    Dib pic(tovLoadBMP(u"p.bmp"));
    ASSERT_NE(pic, nullptr);
    EXPECT_EQ(DibHeight(pic), 16);
    for (DWORD v : Pixels(pic)) ASSERT_EQ(v, 1u);
}

}  // namespace
