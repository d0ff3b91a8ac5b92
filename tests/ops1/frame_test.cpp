// The exports' frames: bad handles, depths and arguments, the order of the
// checks, trace texts, allocation failure at every site, and concurrent use
// on different bitmaps.
#include "ops1test.h"

#include <tovrel/tovrel.h>

#include <functional>
#include <string>
#include <thread>

using namespace ops1test;

namespace {

struct ExportCase {
    const char* name;
    std::function<DWORD(HDIB)> call;
    bool eightBitOnly;
};

const std::vector<ExportCase>& Exports() {
    static const std::vector<ExportCase> cases = {
        {"tovBrightness", [](HDIB h) { return tovBrightness(h, 40); }, false},
        {"tovContrast", [](HDIB h) { return tovContrast(h, 40); }, false},
        {"tovInvert", [](HDIB h) { return tovInvert(h); }, false},
        {"tovGammaCorrection", [](HDIB h) { return tovGammaCorrection(h, 2.0); }, true},
        {"tovHistogramStretch", [](HDIB h) { return tovHistogramStretch(h); }, true},
        {"tovHistogramStretchEx", [](HDIB h) { return tovHistogramStretchEx(h, 3, 90, 1); }, true},
        {"tovRankFilter", [](HDIB h) { return tovRankFilter(h, 4); }, false},
        {"tovDespeckle", [](HDIB h) { return tovDespeckle(h, 3, 0); }, false},
    };
    return cases;
}

std::string Handle(HDIB h) { return std::to_string(TRACE_PTR(h)); }

}  // namespace

// NULL, a readable block without the signature, a 24-bit bitmap, and for
// the 8-bit operations 1- and 4-bit bitmaps: 5, and the pixels stay.
TEST(Exports, RefuseBadHandlesAndDepths) {
    alignas(16) static BYTE garbage[sizeof(DibRecord)] = {};
    Dib deep = MakeRandom(5, 5, 24, 1, 2);
    Dib one = MakeRandom(9, 5, 1, 2);
    Dib four = MakeRandom(9, 5, 4, 3);
    for (const ExportCase& c : Exports()) {
        EXPECT_EQ(c.call(nullptr), DWORD(DibErrorInvalidDIB)) << c.name;
        EXPECT_EQ(c.call(reinterpret_cast<HDIB>(garbage)), DWORD(DibErrorInvalidDIB)) << c.name;
        for (HDIB h : {deep.h, one.h, four.h}) {
            if (h != deep.h && !c.eightBitOnly) continue;
            std::vector<BYTE> before = Bytes(h);
            EXPECT_EQ(c.call(h), DWORD(DibErrorInvalidDIB)) << c.name << " " << DibBitCount(h);
            EXPECT_EQ(Bytes(h), before) << c.name;
        }
    }
}

// Arguments out of range give 7 before the handle is looked at, and leave
// the pixels alone; in the rank filter the handle and depth come first.
TEST(Exports, ArgumentRangesAndCheckOrder) {
    Dib d = MakeRandom(7, 6, 8, 4);
    const std::vector<BYTE> before = Bytes(d);
    struct Row { const char* what; std::function<DWORD(HDIB)> call; };
    const Row refused[] = {
        {"brightness 256", [](HDIB h) { return tovBrightness(h, 256); }},
        {"brightness -256", [](HDIB h) { return tovBrightness(h, -256); }},
        {"contrast 256", [](HDIB h) { return tovContrast(h, 256); }},
        {"contrast -256", [](HDIB h) { return tovContrast(h, -256); }},
        {"gamma 0.09", [](HDIB h) { return tovGammaCorrection(h, 0.09); }},
        {"gamma 10.01", [](HDIB h) { return tovGammaCorrection(h, 10.01); }},
        {"gamma NaN", [](HDIB h) { return tovGammaCorrection(h, std::nan("")); }},
        {"stretch mode 2", [](HDIB h) { return tovHistogramStretchEx(h, 0, 10, 2); }},
        {"stretch low -1", [](HDIB h) { return tovHistogramStretchEx(h, -1, 10, 0); }},
        {"stretch high 256", [](HDIB h) { return tovHistogramStretchEx(h, 0, 256, 0); }},
        {"stretch high 101 %", [](HDIB h) { return tovHistogramStretchEx(h, 0, 101, 1); }},
        {"stretch low above high", [](HDIB h) { return tovHistogramStretchEx(h, 5, 2, 1); }},
        {"despeckle threshold 10", [](HDIB h) { return tovDespeckle(h, 10, 0); }},
        {"despeckle background 256", [](HDIB h) { return tovDespeckle(h, 1, 256); }},
    };
    for (const Row& r : refused) {
        EXPECT_EQ(r.call(d), DWORD(DibErrorInvalidParm)) << r.what;
        EXPECT_EQ(r.call(nullptr), DWORD(DibErrorInvalidParm)) << r.what << " with a bad handle";
        EXPECT_EQ(Bytes(d), before) << r.what;
    }
    for (DWORD rank : {9u, 0xFFFFFFFFu}) {
        EXPECT_EQ(tovRankFilter(d, rank), DWORD(DibErrorInvalidParm));
        EXPECT_EQ(tovRankFilter(nullptr, rank), DWORD(DibErrorInvalidDIB));
    }
    Dib deep = MakeRandom(5, 5, 24, 1, 2);
    EXPECT_EQ(tovRankFilter(deep, 9), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(Bytes(d), before);
    // Accepted edges of the ranges.
    EXPECT_EQ(tovHistogramStretchEx(d, 2, 5, 1), DWORD(tovOk));
    EXPECT_EQ(tovGammaCorrection(d, 0.1), DWORD(tovOk));
    EXPECT_EQ(tovGammaCorrection(d, 10.0), DWORD(tovOk));
    EXPECT_EQ(tovDespeckle(d, 9, 255), DWORD(tovOk));
}

// Pictures without an interior are left as they are; borders never change.
TEST(Exports, SmallPicturesAndBorders) {
    uint32_t seed = 40;
    for (DWORD bits : kDepths) {
        for (auto [w, h] : {std::pair<LONG, LONG>{1, 1}, {2, 9}, {9, 2}, {1, 5}, {5, 1}, {2, 2}}) {
            Dib d = MakeRandom(w, h, bits, seed++);
            std::vector<BYTE> before = Bytes(d);
            for (DWORD rank = 0; rank <= 8; ++rank) ASSERT_EQ(tovRankFilter(d, rank), DWORD(tovOk));
            ASSERT_EQ(tovDespeckle(d, 9, 0), DWORD(tovOk));
            EXPECT_EQ(Bytes(d), before) << bits << " " << w << "x" << h;
        }
        Dib d = MakeRandom(9, 7, bits, seed++);
        Dib b = Copy(d);
        DibPixelIO io;
        ASSERT_EQ(DibRegisterPixelIO(bits, &io), DWORD(DibOk));
        ASSERT_EQ(tovRankFilter(d, 8), DWORD(tovOk));
        ASSERT_EQ(tovDespeckle(d, 9, 0), DWORD(tovOk));
        for (LONG y = 0; y < 7; ++y)
            for (LONG x = 0; x < 9; ++x)
                if (x == 0 || y == 0 || x == 8 || y == 6) {
                    ASSERT_EQ(io.get(d, x, y), io.get(b, x, y));
                }
    }
}

TEST(Exports, TraceTexts) {
    tovtest::ScratchDir dir;
    Dib d = MakeRandom(4, 4, 8, 5);
    const std::string h = Handle(d);

    tovtest::StartLog(8);
    ASSERT_EQ(tovContrast(d, 128), DWORD(tovOk));
    EXPECT_EQ(tovContrast(nullptr, 0), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(tovDespeckle(d, 10, 0), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovRankFilter(d, 9), DWORD(DibErrorInvalidParm));
    tovtest::StopLog();
    EXPECT_EQ(tovtest::LogLines(), (std::vector<std::string>{
        ">tovContrast(" + h + ",128)\r", ">DibContrast(" + h + ",128)\r", ">DibRegisterPixelIO(8)\r",
        "<DibRegisterPixelIO()=DibOk\r", ">DibContrast():contrastadj=98432\r", "<DibContrast()=DibOk\r",
        "<tovContrast()=tovOk\r",
        ">tovContrast(0,0)\r", ">DibContrast(0,0)\r", "   !DibIsValid():pdib == NULL:Error\r", "<tovContrast()=5\r",
        ">tovDespeckle(" + h + ",10,0)\r",
        ">tovRankFilter(" + h + ",9)\r", ">DibRankFilter(" + h + ",9)\r", ">DibRegisterPixelIO(8)\r",
        "<DibRegisterPixelIO()=DibOk\r", "   !DibRankFilter():(rank<0) || (rank>8):Error\r",
        "<tovRankFilter()=7 (error)\r"}));

    FillFromValues(d, {9}, 1);
    tovtest::StartLog(8);
    ASSERT_EQ(tovHistogramStretchEx(d, 9, 9, 0), DWORD(tovOk));
    EXPECT_EQ(tovGammaCorrection(nullptr, 1.0), DWORD(DibErrorInvalidDIB));
    tovtest::StopLog();
    EXPECT_EQ(tovtest::LogLines(), (std::vector<std::string>{
        ">tovHistogramStretchEx(" + h + ",9,9,0)\r", ">DibHistogramStretch(" + h + ",9,9,0)\r",
        "   !range==0\r", "<DibHistogramStretch()=DibOk\r", "<tovHistogramStretchEx()=tovOk\r",
        ">tovGammaCorrection(0,1.00)\r", ">tovHDIBIsValid (0)\r", "   !DibIsValid():pdib == NULL:Error\r",
        "<tovHDIBIsValid ()=5 (error)\r"}));
}

// Fail each allocation in turn: the code is the operation's, the pixels are
// untouched, nothing leaks; once every site passes, the result is right.
TEST(Exports, AllocationFailureAtEverySite) {
    struct Row { const char* name; std::function<DWORD(HDIB)> call; DWORD code; long minSites; };
    const Row rows[] = {
        {"rank", [](HDIB h) { return tovRankFilter(h, 2); }, DibErrorUnknown, 1},
        {"despeckle", [](HDIB h) { return tovDespeckle(h, 4, 3); }, DibErrorUnknown, 1},
        {"stretch", [](HDIB h) { return tovHistogramStretch(h); }, DibErrorMemoryAlocation, 1},
        {"stretch ex", [](HDIB h) { return tovHistogramStretchEx(h, 10, 20, 0); }, DibErrorMemoryAlocation, 1},
        {"brightness", [](HDIB h) { return tovBrightness(h, 3); }, 0, 0},
        {"gamma", [](HDIB h) { return tovGammaCorrection(h, 0.7); }, 0, 0},
    };
    for (const Row& r : rows) {
        Dib d = MakeRandom(13, 11, 8, 6);
        FillFromValues(d, {3, 3, 3, 0, 250}, 2);
        const std::vector<BYTE> before = Bytes(d);
        ASSERT_EQ(r.call(d), DWORD(DibOk));
        const std::vector<BYTE> after = Bytes(d);
        long sites = tovtest::ForEachAllocationFailure([&](long) {
            SetBytes(d, before);
            long live = PlatLiveObjects();
            DWORD result = r.call(d);
            EXPECT_EQ(PlatLiveObjects(), live) << r.name;
            if (result == DibOk) {
                EXPECT_EQ(Bytes(d), after) << r.name;
            } else {
                EXPECT_EQ(result, r.code) << r.name;
                EXPECT_EQ(Bytes(d), before) << r.name;
            }
        });
        EXPECT_GE(sites, r.minSites) << r.name;
        if (r.minSites == 0) {
            EXPECT_EQ(sites, 0) << r.name << " allocates";
        }
    }
}

// Several threads, each on bitmaps of its own at different depths, give
// what the same calls give one at a time.
TEST(Exports, ConcurrentCallsOnDifferentBitmaps) {
    using Op = std::function<DWORD(HDIB)>;
    const Op ops[] = {
        [](HDIB h) { return tovRankFilter(h, 4); },
        [](HDIB h) { return tovDespeckle(h, 5, 1); },
        [](HDIB h) { return tovBrightness(h, 9); },
        [](HDIB h) { return tovContrast(h, -60); },
        [](HDIB h) { return tovInvert(h); },
        [](HDIB h) { return tovRankFilter(h, 1); },
    };
    const Op eight[] = {
        [](HDIB h) { return tovGammaCorrection(h, 1.4); },
        [](HDIB h) { return tovHistogramStretch(h); },
    };
    constexpr int kThreads = 4;
    struct Work { Dib dib; std::vector<BYTE> want; };
    std::vector<std::vector<Work>> work(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        for (DWORD bits : kDepths) {
            Work w{MakeRandom(61 + t, 37, bits, 900 + t * 10 + bits), {}};
            Dib single = Copy(w.dib);
            for (const Op& op : ops) ASSERT_EQ(op(single), DWORD(DibOk));
            if (bits == 8) {
                for (const Op& op : eight) ASSERT_EQ(op(single), DWORD(DibOk));
            }
            w.want = Bytes(single);
            work[t].push_back(std::move(w));
        }
    }
    std::vector<std::thread> threads;
    std::vector<int> failures(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (Work& w : work[t]) {
                for (const Op& op : ops) failures[t] += op(w.dib) != DibOk;
                if (DibBitCount(w.dib) == 8)
                    for (const Op& op : eight) failures[t] += op(w.dib) != DibOk;
            }
        });
    }
    for (std::thread& th : threads) th.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(failures[t], 0);
        for (Work& w : work[t]) EXPECT_EQ(Bytes(w.dib), w.want) << "thread " << t;
    }
}

// The bitmap layer's functions have no ranges of their own: extreme values
// clamp, as the arithmetic says, without overflow (UBSan watches this).
TEST(BitmapLayer, ExtremeArguments) {
    const LONG kMin = (LONG)0x80000000, kMax = 0x7FFFFFFF;
    uint32_t seed = 70;
    for (DWORD bits : kDepths) {
        const DWORD top = (1u << bits) - 1;
        Dib d = MakeRandom(11, 5, bits, seed++);
        DibPixelIO io;
        ASSERT_EQ(DibRegisterPixelIO(bits, &io), DWORD(DibOk));
        auto every = [&](const char* what, auto want) {
            for (LONG y = 0; y < 5; ++y)
                for (LONG x = 0; x < 11; ++x) ASSERT_EQ(io.get(d, x, y), want(io, x, y)) << what << " " << bits;
        };
        ASSERT_EQ(DibBrightness(d, kMax), DWORD(DibOk));
        every("brightness max", [&](DibPixelIO&, LONG, LONG) { return top; });
        ASSERT_EQ(DibBrightness(d, kMin), DWORD(DibOk));
        every("brightness min", [&](DibPixelIO&, LONG, LONG) { return 0u; });
        ASSERT_EQ(DibContrast(d, 0, kMax), DWORD(DibOk));
        every("offset max", [&](DibPixelIO&, LONG, LONG) { return top; });
        ASSERT_EQ(DibContrast(d, kMin, 0), DWORD(DibOk)); // negative gain
        every("gain min", [&](DibPixelIO&, LONG, LONG) { return 0u; });
        FillFromValues(d, {0, 1}, seed);
        ASSERT_EQ(DibContrast(d, kMax, kMin + 1), DWORD(DibOk));
        every("gain max", [&](DibPixelIO&, LONG, LONG) { return 0u; });

        Dib a = MakeRandom(11, 5, bits, seed);
        Dib b = Copy(a);
        ASSERT_EQ(DibDespeckle(a, 0xFFFFFFFF, 0xFFFFFFFF), DWORD(DibOk));
        RefDespeckle(b, 0xFFFFFFFF, 0xFFFFFFFF);
        EXPECT_EQ(Bytes(a), Bytes(b)) << bits;
    }
    Dib g = MakeRandom(9, 3, 8, 1);
    for (double gamma : {-3.0, 0.0, 1e-300, 1e300, std::nan(""), double(INFINITY)}) {
        ASSERT_EQ(DibGammaCorrection(g, gamma), DWORD(DibOk)) << gamma;
    }
    EXPECT_EQ(DibHistogram(g, nullptr), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(DibHistogramBlackValue(nullptr, 0), 255u);
    EXPECT_EQ(DibHistogramWhiteValue(nullptr, 0), 0u);
    DWORD counters[256] = {};
    counters[7] = 0xFFFFFFFF;
    counters[9] = 0xFFFFFFFF;
    EXPECT_EQ(DibHistogramBlackValue(counters, kMax), 7u);
    EXPECT_EQ(DibHistogramWhiteValue(counters, kMax), 9u);
    EXPECT_EQ(DibHistogramWhiteValue(counters, kMin), 255u); // 0 at level 255 already exceeds it
}
