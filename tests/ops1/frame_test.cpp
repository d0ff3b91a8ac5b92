// The exports' frames: refusals and the order of the checks, trace texts,
// allocation failure, concurrent use, and extreme arguments of the bitmap
// layer.
#include "ops1test.h"

#include <tovrel/tovrel.h>

#include <functional>
#include <iterator>
#include <string>
#include <thread>

using namespace ops1test;

namespace {

using Op = std::function<DWORD(HDIB)>;

struct Refusal { const char* what; Op call; DWORD onGood, onNull; bool eightOnly = false; };

}  // namespace

// Each call on a good 8-bit bitmap, on NULL, on a block without the
// signature, a 24-bit bitmap, and 1- and 4-bit bitmaps; nothing refused
// changes a pixel. Out-of-range arguments give 7 before the handle is looked
// at, except in the rank filter.
TEST(Exports, Refusals) {
    const DWORD kDib = DibErrorInvalidDIB, kParm = DibErrorInvalidParm;
    const Refusal rows[] = {
        {"brightness", [](HDIB h) { return tovBrightness(h, 40); }, 0, kDib},
        {"contrast", [](HDIB h) { return tovContrast(h, 40); }, 0, kDib},
        {"invert", [](HDIB h) { return tovInvert(h); }, 0, kDib},
        {"gamma", [](HDIB h) { return tovGammaCorrection(h, 2.0); }, 0, kDib, true},
        {"stretch", [](HDIB h) { return tovHistogramStretch(h); }, 0, kDib, true},
        {"stretch ex", [](HDIB h) { return tovHistogramStretchEx(h, 3, 90, 1); }, 0, kDib, true},
        {"rank", [](HDIB h) { return tovRankFilter(h, 4); }, 0, kDib},
        {"despeckle", [](HDIB h) { return tovDespeckle(h, 3, 0); }, 0, kDib},
        {"brightness 256", [](HDIB h) { return tovBrightness(h, 256); }, kParm, kParm},
        {"brightness -256", [](HDIB h) { return tovBrightness(h, -256); }, kParm, kParm},
        {"contrast 256", [](HDIB h) { return tovContrast(h, 256); }, kParm, kParm},
        {"contrast -256", [](HDIB h) { return tovContrast(h, -256); }, kParm, kParm},
        {"gamma 0.09", [](HDIB h) { return tovGammaCorrection(h, 0.09); }, kParm, kParm},
        {"gamma 10.01", [](HDIB h) { return tovGammaCorrection(h, 10.01); }, kParm, kParm},
        {"gamma NaN", [](HDIB h) { return tovGammaCorrection(h, std::nan("")); }, kParm, kParm},
        {"gamma 0.1", [](HDIB h) { return tovGammaCorrection(h, 0.1); }, 0, kDib},
        {"gamma 10", [](HDIB h) { return tovGammaCorrection(h, 10.0); }, 0, kDib},
        {"stretch mode 2", [](HDIB h) { return tovHistogramStretchEx(h, 0, 10, 2); }, kParm, kParm},
        {"stretch low -1", [](HDIB h) { return tovHistogramStretchEx(h, -1, 10, 0); }, kParm, kParm},
        {"stretch high 256", [](HDIB h) { return tovHistogramStretchEx(h, 0, 256, 0); }, kParm, kParm},
        {"stretch 101 %", [](HDIB h) { return tovHistogramStretchEx(h, 0, 101, 1); }, kParm, kParm},
        {"stretch crossed", [](HDIB h) { return tovHistogramStretchEx(h, 5, 2, 1); }, kParm, kParm},
        {"despeckle threshold 10", [](HDIB h) { return tovDespeckle(h, 10, 0); }, kParm, kParm},
        {"despeckle background 256", [](HDIB h) { return tovDespeckle(h, 1, 256); }, kParm, kParm},
        {"despeckle 9, 255", [](HDIB h) { return tovDespeckle(h, 9, 255); }, 0, kDib},
        {"rank 9", [](HDIB h) { return tovRankFilter(h, 9); }, kParm, kDib},
        {"rank -1", [](HDIB h) { return tovRankFilter(h, 0xFFFFFFFF); }, kParm, kDib},
    };
    alignas(16) static BYTE garbage[sizeof(DibRecord)] = {};
    Dib good = Random(7, 6, 8, 4), deep = Deep(), one = Random(9, 5, 1, 2), four = Random(9, 5, 4, 3);
    for (const Refusal& r : rows) {
        const Bytes before = Store(good);
        EXPECT_EQ(r.call(good), r.onGood) << r.what;
        if (r.onGood) {
            EXPECT_EQ(Store(good), before) << r.what;
        }
        EXPECT_EQ(r.call(nullptr), r.onNull) << r.what;
        EXPECT_EQ(r.call(reinterpret_cast<HDIB>(garbage)), r.onNull) << r.what;
        EXPECT_EQ(r.call(deep), r.onNull) << r.what;
        for (HDIB low : {one.h, four.h}) {
            if (!r.eightOnly) continue;
            const Bytes lowBefore = Store(low);
            EXPECT_EQ(r.call(low), kDib) << r.what << " at " << DibBitCount(low);
            EXPECT_EQ(Store(low), lowBefore) << r.what;
        }
    }
}

TEST(Exports, TraceTexts) {
    tovtest::ScratchDir dir;
    Dib d(tovCreateHDIBExt(4, 4, 9, 8));
    const std::string h = std::to_string(TRACE_PTR(d.h));
    tovtest::StartLog(8);
    ASSERT_EQ(tovContrast(d, 128), DWORD(tovOk));
    EXPECT_EQ(tovRankFilter(d, 9), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovGammaCorrection(nullptr, 1.0), DWORD(DibErrorInvalidDIB));
    tovtest::StopLog();
    EXPECT_EQ(tovtest::LogLines(), (std::vector<std::string>{
        ">tovContrast(" + h + ",128)\r", ">DibContrast(" + h + ",128)\r", ">DibRegisterPixelIO(8)\r",
        "<DibRegisterPixelIO()=DibOk\r", ">DibContrast():contrastadj=98432\r", "<DibContrast()=DibOk\r",
        "<tovContrast()=tovOk\r",
        ">tovRankFilter(" + h + ",9)\r", ">DibRankFilter(" + h + ",9)\r", ">DibRegisterPixelIO(8)\r",
        "<DibRegisterPixelIO()=DibOk\r", "   !DibRankFilter():(rank<0) || (rank>8):Error\r",
        "<tovRankFilter()=7 (error)\r",
        ">tovGammaCorrection(0,1.00)\r", ">tovHDIBIsValid (0)\r", "   !DibIsValid():pdib == NULL:Error\r",
        "<tovHDIBIsValid ()=5 (error)\r"}));
}

// Each allocation failed in turn: the operation's code, the pixels untouched,
// nothing leaked; past the last site the result is right. Brightness and
// gamma allocate nothing.
TEST(Exports, AllocationFailureAtEverySite) {
    struct Row { Op call; DWORD code; };
    const Row rows[] = {
        {[](HDIB h) { return tovRankFilter(h, 2); }, DibErrorUnknown},
        {[](HDIB h) { return tovDespeckle(h, 4, 3); }, DibErrorUnknown},
        {[](HDIB h) { return tovHistogramStretch(h); }, DibErrorMemoryAlocation},
        {[](HDIB h) { return tovHistogramStretchEx(h, 10, 20, 0); }, DibErrorMemoryAlocation},
        {[](HDIB h) { return tovBrightness(h, 3); }, 0},
        {[](HDIB h) { return tovGammaCorrection(h, 0.7); }, 0},
    };
    for (const Row& r : rows) {
        Dib d = Random(13, 11, 8, 6);
        FillFrom(d, {3, 3, 3, 0, 250}, 2);
        const Bytes before = Store(d);
        ASSERT_EQ(r.call(d), DWORD(DibOk));
        const Bytes after = Store(d);
        long sites = tovtest::ForEachAllocationFailure([&](long n) {
            SetStore(d, before);
            const long live = PlatLiveObjects();
            const DWORD result = r.call(d);
            EXPECT_EQ(PlatLiveObjects(), live) << n;
            EXPECT_EQ(result, result == DibOk ? DWORD(DibOk) : r.code) << n;
            EXPECT_EQ(Store(d), result == DibOk ? after : before) << n;
        });
        EXPECT_EQ(sites > 0, r.code != 0) << sites;
    }
}

// Threads on bitmaps of their own at every depth give what the same calls
// give one at a time.
TEST(Exports, ConcurrentCallsOnDifferentBitmaps) {
    auto run = [](HDIB h) {
        int failures = (tovRankFilter(h, 4) != DibOk) + (tovDespeckle(h, 5, 1) != DibOk) +
                       (tovContrast(h, -60) != DibOk) + (tovInvert(h) != DibOk) + (tovRankFilter(h, 1) != DibOk);
        if (DibBitCount(h) == 8) failures += (tovGammaCorrection(h, 1.4) != DibOk) + (tovHistogramStretch(h) != DibOk);
        return failures;
    };
    constexpr int kThreads = 4;
    std::vector<Dib> dibs;
    std::vector<Bytes> want;
    for (int t = 0; t < kThreads; ++t)
        for (DWORD bits : kDepths) {
            dibs.push_back(Random(61 + t, 37, bits, 900 + t * 10 + bits));
            Dib single = Copy(dibs.back());
            ASSERT_EQ(run(single), 0);
            want.push_back(Store(single));
        }
    std::vector<int> failures(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int k = 0; k < 3; ++k) failures[t] += run(dibs[t * 3 + k]);
        });
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(failures, std::vector<int>(kThreads, 0));
    for (size_t i = 0; i < dibs.size(); ++i) EXPECT_EQ(Store(dibs[i]), want[i]) << i;
}

// The bitmap layer has no ranges of its own: extreme values clamp as the
// arithmetic says, without overflow (the sanitizer build watches this).
TEST(BitmapLayer, ExtremeArguments) {
    static constexpr LONG kMin = LONG(0x80000000), kMax = 0x7FFFFFFF;
    struct Step { DWORD (*op)(HDIB); bool top; };
    const Step steps[] = {  // the last on pixels of 1: the largest gain
        {[](HDIB h) { return DibBrightness(h, kMax); }, true}, {[](HDIB h) { return DibBrightness(h, kMin); }, false},
        {[](HDIB h) { return DibContrast(h, 0, kMax); }, true}, {[](HDIB h) { return DibContrast(h, kMin, 0); }, false},
        {[](HDIB h) { return DibBrightness(h, 1); }, false}, {[](HDIB h) { return DibContrast(h, kMax, kMin + 1); }, false},
    };
    uint32_t seed = 70;
    for (DWORD bits : kDepths) {
        Dib d = Random(11, 5, bits, seed++);
        DibPixelIO io = IO(d);
        for (size_t i = 0; i < std::size(steps); ++i) {
            ASSERT_EQ(steps[i].op(d), DWORD(DibOk));
            const DWORD want = steps[i].top ? (1u << bits) - 1 : i == 4 ? 1 : 0;
            for (LONG y = 0; y < 5; ++y)
                for (LONG x = 0; x < 11; ++x) ASSERT_EQ(io.get(d, x, y), want) << "step " << i << ", " << bits;
        }
        Dib a = Random(11, 5, bits, seed), b = Copy(a);
        ASSERT_EQ(DibDespeckle(a, 0xFFFFFFFF, 0xFFFFFFFF), DWORD(DibOk));
        RefDespeckle(b, 0xFFFFFFFF, 0xFFFFFFFF);
        EXPECT_EQ(Store(a), Store(b)) << bits;
    }
    Dib g = Random(9, 3, 8, 1);
    for (double gamma : {-3.0, 0.0, 1e-300, 1e300, std::nan(""), double(INFINITY)})
        ASSERT_EQ(DibGammaCorrection(g, gamma), DWORD(DibOk)) << gamma;
    EXPECT_EQ(DibHistogram(g, nullptr), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(DibHistogramBlackValue(nullptr, 0), 255u);
    EXPECT_EQ(DibHistogramWhiteValue(nullptr, 0), 0u);
    DWORD counters[256] = {};
    counters[7] = counters[9] = 0xFFFFFFFF;
    EXPECT_EQ(DibHistogramBlackValue(counters, kMax), 7u);
    EXPECT_EQ(DibHistogramWhiteValue(counters, kMax), 9u);
    EXPECT_EQ(DibHistogramWhiteValue(counters, kMin), 255u);  // 0 at level 255 already exceeds it
}
