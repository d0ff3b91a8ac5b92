// Signatures: drawing a stroke record into a context, records that end
// early or sit at odd addresses, and saved pictures that reload with their
// strokes where the record put them, turned by 180 degrees on request.
#include "overlaytest.h"

#include <sys/mman.h>
#include <unistd.h>

using ovl::Pixel;
using ovl::Record;

namespace {

struct Buffer {
    std::vector<uint32_t> px;
    LONG w, h;
    HDC dc;
    Buffer(LONG width, LONG height) : px(size_t(width) * height, 0x00FFFFFFu), w(width), h(height) {
        dc = PlatCreateBufferDC(px.data(), w, h, w * 4);
    }
    ~Buffer() { DeleteDC(dc); }
    bool Ink(LONG x, LONG y) const { return px[size_t(y) * w + x] != 0x00FFFFFFu; }
    int InkCount() const {
        int n = 0;
        for (uint32_t v : px) n += v != 0x00FFFFFFu;
        return n;
    }
};

const std::vector<std::vector<POINT>> kStrokes = {
    {{5, 10}, {40, 10}},            // across
    {{10, 30}, {10, 35}},           // down: not joined to the one before
    {{50, 5}},                      // a tap
    {{-100, -100}, {-50, -80}},     // off the page
    {{55, 20}, {200, 20}},          // leaves the page on the right
};

TEST(SigDraw, ArgumentsAndEmptyRecords) {
    Buffer b(20, 20);
    auto rec = Record(20, 20, {{{1, 1}, {5, 5}}});
    EXPECT_EQ(tovSigDraw(nullptr, rec.data(), 0, 1), 7u);
    EXPECT_EQ(tovSigDraw(b.dc, nullptr, 0, 1), 7u);
    EXPECT_EQ(tovSigDraw(b.dc, rec.data(), 0, 0), 7u);
    EXPECT_EQ(b.InkCount(), 0);
    auto none = Record(20, 20, {});
    EXPECT_EQ(tovSigDraw(b.dc, none.data(), 0, 3), 0u);
    std::vector<int32_t> negative = {20, 20, -5, 2, 1, 1, 5, 5};
    EXPECT_EQ(tovSigDraw(b.dc, negative.data(), 0, 3), 0u);
    EXPECT_EQ(b.InkCount(), 0);
    EXPECT_EQ(tovSigDraw(b.dc, rec.data(), RGB(0, 0, 255), -1), 0u);  // a negative width draws too
    EXPECT_TRUE(b.Ink(3, 3));
    EXPECT_EQ(b.px[3 * 20 + 3], 0x000000FFu);
}

TEST(SigDraw, StrokesLandWhereTheRecordPutsThemAndAreNotJoined) {
    Buffer b(60, 40);
    auto rec = Record(60, 40, kStrokes);
    ASSERT_EQ(tovSigDraw(b.dc, rec.data(), 0, 1), 0u);
    for (LONG x = 5; x <= 40; ++x) EXPECT_TRUE(b.Ink(x, 10)) << x;
    for (LONG y = 30; y <= 35; ++y) EXPECT_TRUE(b.Ink(10, y)) << y;
    EXPECT_TRUE(b.Ink(50, 5));
    for (LONG x = 55; x < 60; ++x) EXPECT_TRUE(b.Ink(x, 20));
    EXPECT_EQ(b.InkCount(), 36 + 6 + 1 + 5);  // nothing between the strokes, nothing else
}

// A stroke longer than the drawing code's chunk is drawn without a gap.
TEST(SigDraw, LongStrokesStayUnbroken) {
    Buffer b(1800, 3);
    std::vector<POINT> stroke;
    for (LONG i = 0; i < 600; ++i) stroke.push_back({3 * i, 1});
    auto rec = Record(1800, 3, {stroke});
    ASSERT_EQ(tovSigDraw(b.dc, rec.data(), 0, 1), 0u);
    for (LONG x = 0; x <= 3 * 599; ++x) ASSERT_TRUE(b.Ink(x, 1)) << x;
}

// A record at the very end of readable memory whose last stroke claims more
// points than there are: the readable strokes are drawn, nothing faults. The
// same record one byte off its alignment draws the same.
TEST(SigDraw, RecordsThatEndEarlyOrSitAtOddAddresses) {
    const long page = sysconf(_SC_PAGESIZE);
    BYTE* mem = static_cast<BYTE*>(mmap(nullptr, size_t(2 * page), PROT_READ | PROT_WRITE,
                                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(mem, MAP_FAILED);
    ASSERT_EQ(mprotect(mem + page, size_t(page), PROT_NONE), 0);
    auto rec = Record(30, 30, {{{2, 2}, {20, 2}}, {{2, 9}, {20, 9}}});
    rec.push_back(1000);  // a third stroke of 1000 points, cut off by the page end
    rec.push_back(5);
    size_t bytes = rec.size() * 4;
    for (size_t shift : {size_t(0), size_t(1), size_t(3)}) {
        BYTE* at = mem + page - bytes - shift;
        std::memcpy(at, rec.data(), bytes);
        // Count 3 strokes, where the record holds 2 and the start of a third.
        int32_t three = 3;
        std::memcpy(at + 8, &three, 4);
        Buffer b(30, 30);
        EXPECT_EQ(tovSigDraw(b.dc, at, 0, 1), 0u);
        EXPECT_EQ(b.InkCount(), 19 * 2) << shift;
        // The header alone at the page end, its strokes unreadable.
        Buffer c(30, 30);
        std::memcpy(mem + page - 12, rec.data(), 12);
        EXPECT_EQ(tovSigDraw(c.dc, mem + page - 12, 0, 1), 0u);
        EXPECT_EQ(tovSigDraw(c.dc, mem + page - 4, 0, 1), 0u);  // not even a header
        EXPECT_EQ(c.InkCount(), 0);
    }
    munmap(mem, size_t(2 * page));
}

LONG StockTextHeight(const WCHAR* text, LONG w) {
    HDC dc = CreateCompatibleDC(nullptr);
    RECT r{0, 0, w, 0};
    DrawTextW(dc, text, -1, &r, DT_CALCRECT);
    DeleteDC(dc);
    return r.bottom;
}

TEST(SigSave, ReloadsWithStrokesInPlaceAndTurnedOnRequest) {
    tovtest::ScratchDir dir;
    auto rec = Record(60, 40, kStrokes);
    const LONG th = StockTextHeight(u"OK", 60);
    ASSERT_GT(th, 0);
    for (BOOL rotate : {FALSE, TRUE}) {
        std::u16string name = tovtest::W(dir.File(rotate ? "turned.bmp" : "upright.bmp"));
        ASSERT_EQ(tovSigSave(name.c_str(), tovFormatBMP, 80, rec.data(), u"OK", rotate, RGB(255, 0, 0), 1), 0u);
        HDIB pic = tovLoadBMP(name.c_str());
        ASSERT_NE(pic, nullptr);
        EXPECT_EQ(DibBitCount(pic), 1);
        EXPECT_EQ(DibWidth(pic), 60);
        EXPECT_EQ(DibHeight(pic), 40 + th);
        // Where a pixel of the page lands in the picture.
        auto at = [&](LONG x, LONG y) { return rotate ? Pixel(pic, 59 - x, 39 - y) : Pixel(pic, x, y); };
        for (LONG x = 5; x <= 40; ++x) EXPECT_EQ(at(x, 10), 0u) << x;
        for (LONG y = 30; y <= 35; ++y) EXPECT_EQ(at(10, y), 0u) << y;
        EXPECT_EQ(at(50, 5), 0u);
        EXPECT_EQ(at(25, 20), 1u);  // no line joins the strokes
        int ink = 0, textInk = 0;
        for (LONG y = 0; y < 40; ++y)
            for (LONG x = 0; x < 60; ++x) ink += Pixel(pic, x, y) == 0;
        for (LONG y = 40; y < 40 + th; ++y)
            for (LONG x = 0; x < 60; ++x) textInk += Pixel(pic, x, y) == 0;
        EXPECT_EQ(ink, 36 + 6 + 1 + 5);
        EXPECT_GT(textInk, 5);  // the text, upright, under the signature
        tovUnloadHDIB(pic);
    }
}

TEST(SigSave, FormatsAndFailures) {
    tovtest::ScratchDir dir;
    auto rec = Record(32, 16, {{{1, 1}, {30, 14}}});
    struct Case {
        DWORD format;
        const char* name;
        std::string magic;
    };
    const Case cases[] = {
        {1, "s.png", "\x89PNG"}, {2, "s.bmp", "BM"}, {0, "s0.jpg", "\xFF\xD8"}, {9, "s9.jpg", "\xFF\xD8"},
    };
    for (const Case& c : cases) {
        std::u16string name = tovtest::W(dir.File(c.name));
        ASSERT_EQ(tovSigSave(name.c_str(), c.format, 75, rec.data(), u"x", FALSE, 0, 2), 0u) << c.name;
        EXPECT_EQ(tovtest::ReadFileBytes(dir.File(c.name)).substr(0, c.magic.size()), c.magic) << c.name;
    }
    std::u16string bmp = tovtest::W(dir.File("none.bmp"));
    // No record: no picture, and the save function refuses the missing bitmap.
    EXPECT_EQ(tovSigSave(bmp.c_str(), tovFormatBMP, 75, nullptr, u"x", FALSE, 0, 1), 5u);
    EXPECT_FALSE(tovtest::FileExists(dir.File("none.bmp")));
    // An empty text: nothing under the signature, the page alone.
    ASSERT_EQ(tovSigSave(bmp.c_str(), tovFormatBMP, 75, rec.data(), u"", FALSE, 0, 1), 0u);
    HDIB pic = tovLoadBMP(bmp.c_str());
    ASSERT_NE(pic, nullptr);
    EXPECT_EQ(DibHeight(pic), 16);
    tovUnloadHDIB(pic);
    // Pen width 0 draws nothing but the file is written.
    ASSERT_EQ(tovSigSave(bmp.c_str(), tovFormatBMP, 75, rec.data(), u"", FALSE, 0, 0), 0u);
    pic = tovLoadBMP(bmp.c_str());
    ASSERT_NE(pic, nullptr);
    for (DWORD v : ovl::Pixels(pic)) ASSERT_EQ(v, 1u);
    tovUnloadHDIB(pic);
    std::u16string nowhere = tovtest::W(dir.File("missing/dir/s.bmp"));
    EXPECT_EQ(tovSigSave(nowhere.c_str(), tovFormatBMP, 75, rec.data(), u"x", FALSE, 0, 1),
              DWORD(DibErrorFileCreation));
}

TEST(SigSave, AllocationFailureAtEverySiteLeaksNothing) {
    tovtest::ScratchDir dir;
    auto rec = Record(40, 20, {{{1, 1}, {38, 18}}, {{5, 15}}});
    std::u16string name = tovtest::W(dir.File("f.bmp"));
    long live = PlatLiveObjects();
    long sites = tovtest::ForEachAllocationFailure([&](long n) {
        tovSigSave(name.c_str(), tovFormatBMP, 75, rec.data(), u"Ok", TRUE, 0, 3);
        PlatFailAllocation(0);
        EXPECT_EQ(PlatLiveObjects(), live) << "fault " << n;
    });
    EXPECT_GE(sites, 15);
}

}  // namespace
