// Text overlays: the box arithmetic of the seven positions, what SRCCOPY and
// SRCINVERT leave in the picture, alignment in the box, texts larger
// than the picture, refusals, traces and threads (allocation failure:
// the every-export loop in tests/frame).
#include "overlaytest.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

using namespace ovl;

namespace {

TEST(OverlayPlace, SevenPositions) {
    const struct { DWORD position; LONG W, H, tw, th, x, y; DWORD alignment; } cases[] = {
        {0, 640, 480, 80, 16, 0, 0, DT_RIGHT},       {1, 640, 480, 80, 16, 560, 0, DT_RIGHT},
        {2, 640, 480, 80, 16, 560, 464, DT_LEFT},    {3, 640, 480, 80, 16, 0, 464, DT_LEFT},
        {4, 640, 480, 81, 17, 280, 0, DT_CENTER},    {5, 640, 480, 81, 17, 280, 463, DT_CENTER},
        {6, 640, 480, 81, 17, 280, 232, DT_CENTER},  {6, 21, 11, 5, 3, 8, 4, DT_CENTER},  // halves truncated apart
        {6, 20, 10, 45, 31, -12, -10, DT_CENTER},    {1, 20, 10, 45, 31, -25, 0, DT_RIGHT},  // wider than the picture
    };
    for (const auto& c : cases) {
        LONG x = 99, y = 99;
        DWORD alignment = 99;
        ASSERT_TRUE(DibOverlayPlace(c.position, c.W, c.H, c.tw, c.th, &x, &y, &alignment));
        EXPECT_EQ(std::vector<LONG>({x, y, LONG(alignment)}), std::vector<LONG>({c.x, c.y, LONG(c.alignment)})) << c.position;
    }
}

// The label is the measured box, black text on white and nothing else, its
// lines aligned to the side the position asks for; it lands where the
// position puts that box: copied with SRCCOPY, combined by exclusive or
// with SRCINVERT; the rest of the picture is untouched.
TEST(OverlayBuffer, StampsTheMeasuredBoxAtEachPosition) {
    const WCHAR* text = u"Xy\n7";
    for (DWORD rop : {SRCCOPY, SRCINVERT}) {
        for (DWORD position = 0; position <= 6; ++position) {
            SCOPED_TRACE(testing::Message() << "rop " << rop << " position " << position);
            Dib pic(MakePatterned(200, 90, 8, position));
            const auto before = Pixels(pic);
            TextOverlaySettings measure = Settings(20, DT_CALCRECT);
            ASSERT_EQ(DibOverlayBufferExt(nullptr, text, &measure, nullptr), 0u);
            const LONG tw = measure.Rect.right - measure.Rect.left, th = measure.Rect.bottom - measure.Rect.top;
            LONG bx, by;
            DWORD alignment;
            ASSERT_TRUE(DibOverlayPlace(position, 200, 90, tw, th, &bx, &by, &alignment));
            TextOverlaySettings s = Settings(20, alignment);
            Dib label(DibCreateTextOverlay(text, &s));
            ASSERT_NE(label, nullptr);
            ASSERT_EQ(DibWidth(label), tw);
            ASSERT_EQ(DibHeight(label), th);
            auto values = Pixels(label);
            EXPECT_EQ(std::set<DWORD>(values.begin(), values.end()), (std::set<DWORD>{0, 255}));
            LONG first = tw, last = -1;  // the ink of the short second line lies on the aligned side
            for (LONG y = th / 2; y < th; ++y)
                for (LONG x = 0; x < tw; ++x)
                    if (StorePixel(label, x, y) == 0) first = std::min(first, x), last = std::max(last, x);
            LONG off = alignment == DT_LEFT ? first : alignment == DT_RIGHT ? tw - 1 - last : std::abs(first + last + 1 - tw);
            EXPECT_LT(off, 4) << "alignment " << alignment;
            ASSERT_EQ(tovOverlayBuffer(pic, text, position, 20, rop), 0u);
            for (LONG y = 0; y < 90; ++y)
                for (LONG x = 0; x < 200; ++x) {
                    DWORD was = before[size_t(y * 200 + x)], want = was;
                    if (x >= bx && x < bx + tw && y >= by && y < by + th)
                        want = rop == SRCCOPY ? StorePixel(label, x - bx, y - by) : was ^ StorePixel(label, x - bx, y - by);
                    ASSERT_EQ(StorePixel(pic, x, y), want) << x << "," << y;
                }
        }
    }
}

TEST(OverlayBuffer, TextsLargerThanThePictureAreClipped) {
    for (DWORD position = 0; position <= 6; ++position)
        for (DWORD bits : kDepths) {
            Dib pic(tovCreateHDIBExt(17, 9, 0, bits));
            ASSERT_EQ(tovOverlayBuffer(pic, u"WWWWWWWW\nWWW", position, 40, SRCCOPY), 0u);
            for (DWORD v : Pixels(pic)) EXPECT_TRUE(v == 0 || v == (1u << bits) - 1) << v;
        }
}

TEST(OverlayBuffer, RefusalsLeaveThePictureUnchanged) {
    Dib pic(tovCreateHDIBExt(64, 32, 77, 8));
    const auto before = Pixels(pic);
    int junk[32] = {};
    const struct { HDIB h; const WCHAR* text; DWORD position; LONG height; DWORD expected; } cases[] = {
        {pic, u"", 2, 12, 5},  // an empty box cannot be made
        {pic, u"x", 2, 0, 7}, {pic, u"x", 2, 73, 7}, {pic, nullptr, 2, 12, 7}, {pic, reinterpret_cast<const WCHAR*>(8), 2, 12, 7},
        {pic, u"x", 7, 12, 0}, {pic, u"x", 0xFFFFFFFFu, 12, 0},  // no such position: nothing drawn
        {nullptr, u"x", 2, 12, 5}, {reinterpret_cast<HDIB>(junk), u"x", 2, 12, 5},
    };
    for (const auto& c : cases)
        EXPECT_EQ(tovOverlayBuffer(c.h, c.text, c.position, c.height, SRCCOPY), c.expected) << c.position << "/" << c.height;
    EXPECT_EQ(tovOverlayTimeDate(pic, 2, 74, SRCCOPY), 7u);
    EXPECT_EQ(tovOverlayTimeDate(nullptr, 2, 12, SRCCOPY), 5u);
    EXPECT_EQ(Pixels(pic), before);
    for (LONG height : {72, 1}) EXPECT_EQ(tovOverlayBuffer(pic, u"x", 2, height, SRCCOPY), 0u);  // the tallest and smallest allowed
    EXPECT_NE(Pixels(pic), before);
}

TEST(OverlayTimeDate, StampsTwoLinesAtTheCorner) {
    Dib pic(tovCreateHDIBExt(300, 100, 128, 8));
    ASSERT_EQ(tovOverlayTimeDate(pic, 3, 16, SRCCOPY), 0u);
    const auto px = Pixels(pic);
    EXPECT_EQ(std::find_if(px.begin(), px.end(), [](DWORD v) { return v != 128u; }) - px.begin(), 300 * (100 - 2 * 16));
    EXPECT_EQ(StorePixel(pic, 0, 99), 255u);  // white label, left-aligned from the corner
}

TEST(OverlayBuffer, TracesTheTwoPasses) {
    ScratchDir dir;
    Dib pic(tovCreateHDIBExt(50, 20, 0, 8));
    StartLog(8);
    ASSERT_EQ(tovOverlayBuffer(pic, u"Hi", 1, 10, SRCINVERT), 0u);
    StopLog();
    auto lines = LogLines();
    for (const std::string& line : {">tovOverlayBuffer(" + Handle(pic.h) + ",10)\r", std::string("<DibOverlayBufferExt()=0 (DT_CALCRECT)\r"),
                                    std::string("   ?Settings->Alignment=2\r"), std::string("   ?MergeSettings->RasterOp=6684742\r"),
                                    std::string("<tovOverlayBuffer()=tovOk\r")})
        EXPECT_NE(std::find(lines.begin(), lines.end(), line), lines.end()) << line;
}

// Fonts, contexts and the font lookup are safe on several threads at once.
TEST(OverlayBuffer, ThreadsStampTheSameAsOneThread) {
    auto stamp = [] {
        Dib pic(tovCreateHDIBExt(90, 40, 60, 8));
        return tovOverlayBuffer(pic, u"Thread\n9", 6, 15, SRCINVERT) == 0 ? Pixels(pic) : std::vector<DWORD>();
    };
    const auto want = stamp();
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 10; ++i) good += stamp() == want;
        });
    for (auto& t : threads) t.join();
    EXPECT_FALSE(want.empty());
    EXPECT_EQ(good.load(), 40);
}

}  // namespace
