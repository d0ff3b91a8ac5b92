// Text overlays: the box arithmetic of the seven positions, what SRCCOPY and
// SRCINVERT leave in the picture, alignment inside the box, texts larger
// than the picture, argument checks, traces and allocation failures.
#include "overlaytest.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <cstdio>
#include <map>
#include <set>

using ovl::Picture;
using ovl::Pixel;
using ovl::Pixels;

namespace {

TEST(OverlayPlace, SevenPositions) {
    struct Case {
        DWORD position;
        LONG W, H, tw, th, x, y;
        DWORD alignment;
    };
    const Case cases[] = {
        {0, 640, 480, 80, 16, 0, 0, DT_RIGHT},
        {1, 640, 480, 80, 16, 560, 0, DT_RIGHT},
        {2, 640, 480, 80, 16, 560, 464, DT_LEFT},
        {3, 640, 480, 80, 16, 0, 464, DT_LEFT},
        {4, 640, 480, 81, 17, 280, 0, DT_CENTER},
        {5, 640, 480, 81, 17, 280, 463, DT_CENTER},
        {6, 640, 480, 81, 17, 280, 232, DT_CENTER},
        {6, 21, 11, 5, 3, 10 - 2, 5 - 1, DT_CENTER},   // each half truncated on its own
        {6, 20, 10, 45, 31, 10 - 22, 5 - 15, DT_CENTER},  // wider than the picture: left of it
        {1, 20, 10, 45, 31, -25, 0, DT_RIGHT},
    };
    for (const Case& c : cases) {
        LONG x = 99, y = 99;
        DWORD alignment = 99;
        ASSERT_TRUE(DibOverlayPlace(c.position, c.W, c.H, c.tw, c.th, &x, &y, &alignment));
        EXPECT_EQ(x, c.x) << c.position;
        EXPECT_EQ(y, c.y) << c.position;
        EXPECT_EQ(alignment, c.alignment) << c.position;
    }
    LONG x = 5, y = 6;
    DWORD alignment = DT_CALCRECT;
    EXPECT_FALSE(DibOverlayPlace(7, 640, 480, 10, 10, &x, &y, &alignment));
    EXPECT_EQ(alignment, DWORD(DT_CALCRECT));
}

// With SRCCOPY the box is a white label with black text, exactly where the
// position puts the measured box; with SRCINVERT the same box inverts the
// picture where the label is white.
TEST(OverlayBuffer, StampsTheMeasuredBoxAtEachPosition) {
    const WCHAR* text = u"Ab 12";
    for (DWORD rop : {SRCCOPY, SRCINVERT}) {
        for (DWORD position = 0; position <= 6; ++position) {
            Picture pic(200, 90, 100);
            ASSERT_NE(pic.h, nullptr);
            RECT box = ovl::MeasuredBox(text, 20);
            LONG tw = box.right - box.left, th = box.bottom - box.top, bx, by;
            DWORD alignment;
            ASSERT_TRUE(DibOverlayPlace(position, 200, 90, tw, th, &bx, &by, &alignment));
            ASSERT_EQ(tovOverlayBuffer(pic.h, text, position, 20, rop), 0u);
            std::map<DWORD, int> inside;
            for (LONG y = 0; y < 90; ++y) {
                for (LONG x = 0; x < 200; ++x) {
                    bool in = x >= bx && x < bx + tw && y >= by && y < by + th;
                    if (in) ++inside[Pixel(pic.h, x, y)];
                    else ASSERT_EQ(Pixel(pic.h, x, y), 100u) << position << " at " << x << "," << y;
                }
            }
            std::set<DWORD> want = rop == SRCCOPY ? std::set<DWORD>{0, 255} : std::set<DWORD>{100, 100 ^ 255};
            ASSERT_EQ(inside.size(), 2u) << position;
            for (auto& kv : inside) EXPECT_TRUE(want.count(kv.first)) << kv.first;
            // More label than text.
            EXPECT_GT(inside[rop == SRCCOPY ? 255u : (100u ^ 255u)], inside[rop == SRCCOPY ? 0u : 100u]);
        }
    }
}

// SRCINVERT pixel by pixel against the overlay bitmap itself.
TEST(OverlayBuffer, SrcInvertIsTheExclusiveOrOfPictureAndLabel) {
    Picture pic(120, 60, 0);
    for (LONG y = 0; y < 60; ++y)
        for (LONG x = 0; x < 120; ++x) DibSetPixel8(pic.h, x, y, DWORD((x * 7 + y * 13) & 255));
    auto before = Pixels(pic.h);
    TextOverlaySettings s;
    std::memset(&s, 0, sizeof s);
    s.BackColor = 255;
    s.Height = 18;
    s.Alignment = DT_CENTER;
    HDIB label = DibCreateTextOverlay(u"Xy\n7", &s);
    ASSERT_NE(label, nullptr);
    const LONG tw = s.Rect.right, th = s.Rect.bottom;
    ASSERT_EQ(DibWidth(label), tw);
    ASSERT_EQ(DibHeight(label), th);
    ASSERT_EQ(tovOverlayBuffer(pic.h, u"Xy\n7", 6, 18, SRCINVERT), 0u);
    const LONG bx = 60 - tw / 2, by = 30 - th / 2;
    for (LONG y = 0; y < 60; ++y) {
        for (LONG x = 0; x < 120; ++x) {
            DWORD was = before[size_t(y * 120 + x)];
            bool in = x >= bx && x < bx + tw && y >= by && y < by + th;
            ASSERT_EQ(Pixel(pic.h, x, y), in ? (was ^ Pixel(label, x - bx, y - by)) : was) << x << "," << y;
        }
    }
    DibUnload(label);
}

// Left alignment puts both lines at the box's left edge, right alignment at
// its right edge; the two settings come from the positions.
TEST(OverlayBuffer, LinesAlignInsideTheBox) {
    for (DWORD alignment : {DWORD(DT_LEFT), DWORD(DT_RIGHT)}) {
        TextOverlaySettings s;
        std::memset(&s, 0, sizeof s);
        s.BackColor = 255;
        s.Height = 20;
        s.Alignment = alignment;
        HDIB label = DibCreateTextOverlay(u"1\n22222", &s);
        ASSERT_NE(label, nullptr);
        const LONG w = DibWidth(label), lineHeight = DibHeight(label) / 2;
        for (LONG line = 0; line < 2; ++line) {
            LONG first = w, last = -1;
            for (LONG y = line * lineHeight; y < (line + 1) * lineHeight; ++y)
                for (LONG x = 0; x < w; ++x)
                    if (Pixel(label, x, y) == 0) {
                        first = std::min(first, x);
                        last = std::max(last, x);
                    }
            ASSERT_GE(last, 0);
            if (alignment == DT_LEFT) EXPECT_LT(first, 4) << "line " << line;
            else EXPECT_GT(last, w - 5) << "line " << line;
        }
        DibUnload(label);
    }
}

TEST(OverlayBuffer, TextsLargerThanThePictureAreClipped) {
    for (DWORD position = 0; position <= 6; ++position) {
        for (DWORD bits : {1u, 4u, 8u}) {
            Picture pic(17, 9, 0, bits);
            ASSERT_NE(pic.h, nullptr);
            ASSERT_EQ(tovOverlayBuffer(pic.h, u"WWWWWWWW\nWWW", position, 40, SRCCOPY), 0u);
            std::set<DWORD> seen;
            for (DWORD v : Pixels(pic.h)) seen.insert(v);
            DWORD white = bits == 1 ? 1 : bits == 4 ? 15 : 255;
            for (DWORD v : seen) EXPECT_TRUE(v == 0 || v == white) << v;
        }
    }
}

TEST(OverlayBuffer, RefusalsLeaveThePictureUnchanged) {
    Picture pic(64, 32, 77);
    auto before = Pixels(pic.h);
    EXPECT_EQ(tovOverlayBuffer(pic.h, u"", 2, 12, SRCCOPY), 5u);  // an empty box cannot be made
    EXPECT_EQ(tovOverlayBuffer(pic.h, u"x", 2, 0, SRCCOPY), 7u);
    EXPECT_EQ(tovOverlayBuffer(pic.h, u"x", 2, 73, SRCCOPY), 7u);
    EXPECT_EQ(tovOverlayBuffer(pic.h, nullptr, 2, 12, SRCCOPY), 7u);
    EXPECT_EQ(tovOverlayBuffer(pic.h, reinterpret_cast<const WCHAR*>(8), 2, 12, SRCCOPY), 7u);
    EXPECT_EQ(tovOverlayBuffer(pic.h, u"x", 7, 12, SRCCOPY), 0u);  // no such position: nothing drawn
    EXPECT_EQ(tovOverlayBuffer(pic.h, u"x", 0xFFFFFFFFu, 12, SRCCOPY), 0u);
    EXPECT_EQ(tovOverlayTimeDate(pic.h, 2, 74, SRCCOPY), 7u);
    EXPECT_EQ(Pixels(pic.h), before);
    int junk[32] = {};
    EXPECT_EQ(tovOverlayBuffer(nullptr, u"x", 2, 12, SRCCOPY), 5u);
    EXPECT_EQ(tovOverlayBuffer(reinterpret_cast<HDIB>(junk), u"x", 2, 12, SRCCOPY), 5u);
    EXPECT_EQ(tovOverlayTimeDate(nullptr, 2, 12, SRCCOPY), 5u);
    EXPECT_EQ(tovOverlayBuffer(pic.h, u"x", 2, 72, SRCCOPY), 0u);
    EXPECT_NE(Pixels(pic.h), before);
    // Measuring needs neither picture nor merge block, and leaves the box.
    TextOverlaySettings s;
    std::memset(&s, 0, sizeof s);
    s.Height = 12;
    s.Alignment = DT_CALCRECT;
    EXPECT_EQ(DibOverlayBufferExt(nullptr, u"abc", &s, nullptr), 0u);
    EXPECT_GT(s.Rect.right, 0);
    s.Alignment = DT_LEFT;
    EXPECT_EQ(DibOverlayBufferExt(nullptr, u"abc", &s, nullptr), 5u);
    MergeSettings m{};
    EXPECT_EQ(DibMerge(pic.h, nullptr, &m), 5u);
    EXPECT_EQ(DibMerge(nullptr, pic.h, &m), 5u);
}

TEST(OverlayTimeDate, StampsTwoLines) {
    Picture pic(300, 100, 128);
    ASSERT_EQ(tovOverlayTimeDate(pic.h, 3, 16, SRCCOPY), 0u);
    RECT one = ovl::MeasuredBox(u"01/02/2026", 16);
    // The box at the bottom left holds two lines: count the rows it changed.
    LONG top = 100;
    for (LONG y = 0; y < 100; ++y)
        for (LONG x = 0; x < 300; ++x)
            if (Pixel(pic.h, x, y) != 128u) top = std::min(top, y);
    EXPECT_EQ(100 - top, 2 * one.bottom);
    EXPECT_EQ(Pixel(pic.h, 0, 99), 255u);  // white label, left-aligned from the corner
}

TEST(OverlayBuffer, TracesTheTwoPasses) {
    tovtest::ScratchDir dir;
    Picture pic(50, 20, 0);
    tovtest::StartLog(8);
    ASSERT_EQ(tovOverlayBuffer(pic.h, u"Hi", 1, 10, SRCINVERT), 0u);
    tovtest::StopLog();
    auto lines = tovtest::LogLines();
    auto has = [&](const std::string& line) {
        for (auto& l : lines)
            if (l == line) return true;
        return false;
    };
    char first[64];
    std::snprintf(first, sizeof first, ">tovOverlayBuffer(%lld,10)\r", TRACE_PTR(pic.h));
    EXPECT_TRUE(has(first));
    EXPECT_TRUE(has(">DibOverlayBuffer()\r"));
    EXPECT_TRUE(has("<DibOverlayBufferExt()=0 (DT_CALCRECT)\r"));
    EXPECT_TRUE(has("   ?Settings->Alignment=1024\r"));
    EXPECT_TRUE(has("   ?Settings->Alignment=2\r"));  // top right: right-aligned
    EXPECT_TRUE(has("   ?MergeSettings->RasterOp=6684742\r"));
    EXPECT_TRUE(has("<DibMerge()=DibOk\r"));
    EXPECT_TRUE(has("<DibOverlayBufferExt()=DibOk\r"));
    EXPECT_TRUE(has("<tovOverlayBuffer()=tovOk\r"));
}

// Fonts, contexts and the font lookup are safe on several threads at once:
// every thread's picture comes out as the one made alone.
TEST(OverlayBuffer, ThreadsStampTheSameAsOneThread) {
    Picture reference(90, 40, 60);
    ASSERT_EQ(tovOverlayBuffer(reference.h, u"Thread\n9", 6, 15, SRCINVERT), 0u);
    const auto want = Pixels(reference.h);
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10; ++i) {
                Picture pic(90, 40, 60);
                if (tovOverlayBuffer(pic.h, u"Thread\n9", 6, 15, SRCINVERT) == 0 && Pixels(pic.h) == want) ++good;
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(good.load(), 40);
}

// The picture is either stamped in full or left as it was; nothing leaks.
TEST(OverlayBuffer, AllocationFailureAtEverySiteLeaksNothing) {
    Picture reference(80, 30, 90);
    ASSERT_EQ(tovOverlayBuffer(reference.h, u"Fault\n42", 5, 14, SRCCOPY), 0u);
    const auto stamped = Pixels(reference.h);
    Picture pic(80, 30, 90);
    const auto blank = Pixels(pic.h);
    long live = PlatLiveObjects();
    long sites = tovtest::ForEachAllocationFailure([&](long n) {
        DWORD r = tovOverlayBuffer(pic.h, u"Fault\n42", 5, 14, SRCCOPY);
        PlatFailAllocation(0);
        auto now = Pixels(pic.h);
        if (r != 0) EXPECT_EQ(now, blank) << "fault " << n;
        else EXPECT_TRUE(now == stamped || now == blank) << "fault " << n;
        EXPECT_EQ(PlatLiveObjects(), live) << "fault " << n;
        DibClear(pic.h, 90);
    });
    EXPECT_GE(sites, 10);
}

}  // namespace
