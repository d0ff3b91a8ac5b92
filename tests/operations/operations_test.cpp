// The image operations' exports as a whole: refusals and the order of the
// checks, a trace, allocation failure at every site, and threads at once.
#include "allocfail.h"
#include "opstest.h"

#include <tovrel/tovrel.h>

#include <cmath>
#include <thread>

using namespace opstest;

namespace {

const LONG kKernel[6] = {1, -2, 3, 0, 5, -1};

// Each call on a good 8-bit bitmap, on NULL (other bad handles reach the
// same check), a 24-bit bitmap, and, for the 8-bit operations, 1- and 4-bit
// bitmaps; nothing refused changes a pixel. Out-of-range arguments give 7
// before the handle is looked at, except in the rank filter.
TEST(Exports, Refusals) {
    const DWORD kDib = DibErrorInvalidDIB, kParm = DibErrorInvalidParm;
    const Op any[] = {OP(tovBrightness(h, 40)), OP(tovContrast(h, 40)), tovInvert, OP(tovRankFilter(h, 4)),
                      OP(tovDespeckle(h, 3, 0)), OP(tovDespeckle(h, 9, 255)), tovFlipHorizontal, tovFlipVertical,
                      OP(tovCrop(h, 0, 0, 1, 1)), OP(tovScale(h, 50))};
    const Op eightOnly[] = {OP(tovGammaCorrection(h, 2.0)), OP(tovHistogramStretchEx(h, 3, 90, 1)), tovAverage,
                            OP(tovSharpen(h, 9)), tovInfinityFilter, OP(tovThreshold(h, 9)),
                            OP(tovConvolutionFilter(h, kKernel, 2, 3, 3, 9)), tovDither2Color, tovDither16Color};
    const Op outOfRange[] = {OP(tovBrightness(h, 256)), OP(tovBrightness(h, -256)), OP(tovContrast(h, 256)),
                             OP(tovContrast(h, -256)), OP(tovGammaCorrection(h, 0.09)), OP(tovGammaCorrection(h, 10.01)),
                             OP(tovGammaCorrection(h, std::nan(""))), OP(tovHistogramStretchEx(h, 0, 10, 2)),
                             OP(tovHistogramStretchEx(h, -1, 10, 0)), OP(tovHistogramStretchEx(h, 0, 256, 0)),
                             OP(tovHistogramStretchEx(h, 0, 101, 1)), OP(tovHistogramStretchEx(h, 5, 2, 1)),
                             OP(tovDespeckle(h, 10, 0)), OP(tovDespeckle(h, 1, 256))};
    struct Row { Op call; DWORD onGood, onNull; bool eightOnly; };
    std::vector<Row> rows = {{OP(tovRankFilter(h, 9)), kParm, kDib, false}, {OP(tovRankFilter(h, 0xFFFFFFFF)), kParm, kDib, false}};
    for (const Op& op : any) rows.push_back({op, 0, kDib, false});
    for (const Op& op : eightOnly) rows.push_back({op, 0, kDib, true});
    for (const Op& op : outOfRange) rows.push_back({op, kParm, kParm, false});
    BITMAPINFO info = {};
    info.bmiHeader = {40, 5, 5, 1, 24, 0, 0, 0, 0, 1, 0};
    Dib good = Random(7, 6, 8, 4), deep(DibCreateFromBitmapInfo(&info)), one = Random(9, 5, 1, 2), four = Random(9, 5, 4, 3);
    for (const Row& r : rows) {
        SCOPED_TRACE(&r - rows.data());
        Dib g = Copy(good);
        EXPECT_EQ(r.call(g), r.onGood);
        if (r.onGood) { EXPECT_EQ(Store(g), Store(good)); }
        EXPECT_EQ(r.call(nullptr), r.onNull);
        EXPECT_EQ(r.call(deep), r.onNull);
        for (HDIB low : {one.h, four.h}) {
            if (!r.eightOnly) continue;
            const Bytes before = Store(low);
            EXPECT_EQ(r.call(low), kDib) << DibBitCount(low);
            EXPECT_EQ(Store(low), before);
        }
    }
}

// A success, refusals of an argument and of handles as the trace shows them;
// dithering wants 8 bits with 256 colours.
TEST(Exports, TraceTexts) {
    tovtest::ScratchDir dir;
    Dib d(tovCreateHDIBExt(4, 4, 9, 8)), five = Uniform(4, 3, 9);
    five.h->ds.dsBmih.biClrUsed = 5;
    const std::string h = tovtest::Handle(d), h5 = tovtest::Handle(five);
    tovtest::StartLog(8);
    ASSERT_EQ(tovContrast(d, 128), DWORD(tovOk));
    EXPECT_EQ(tovRankFilter(d, 9), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovGammaCorrection(nullptr, 1.0), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(tovDither2Color(five), 5u);
    tovtest::StopLog();
    EXPECT_EQ(tovtest::LogLines(), (std::vector<std::string>{
        ">tovContrast(" + h + ",128)\r", ">DibContrast(" + h + ",128)\r", ">DibRegisterPixelIO(8)\r",
        "<DibRegisterPixelIO()=DibOk\r", ">DibContrast():contrastadj=98432\r", "<DibContrast()=DibOk\r",
        "<tovContrast()=tovOk\r",
        ">tovRankFilter(" + h + ",9)\r", ">DibRankFilter(" + h + ",9)\r", ">DibRegisterPixelIO(8)\r",
        "<DibRegisterPixelIO()=DibOk\r", "   !DibRankFilter():(rank<0) || (rank>8):Error\r",
        "<tovRankFilter()=7 (error)\r",
        ">tovGammaCorrection(0,1.00)\r", ">tovHDIBIsValid (0)\r", "   !DibIsValid():pdib == NULL:Error\r",
        "<tovHDIBIsValid ()=5 (error)\r",
        ">tovDither2Color(" + h5 + ")\r", ">DibDither2Color(" + h5 + ")\r",
        "   !DibDither2Color():DibErrorInvalidParm\r", "<tovDither2Color()=5 (error)\r"}));
}

// Each allocation failed in turn on a fresh copy, one operation of each
// kind: a failure code, no leak, the picture untouched wherever it still
// exists (crop and scale re-make the bitmap); past the last site the result
// is right.
TEST(Exports, AllocationFailureAtEverySite) {
    const struct { Op call; bool eightOnly; } rows[] = {
        {OP(tovRankFilter(h, 2)), false}, {OP(tovDespeckle(h, 4, 3)), false}, {tovHistogramStretch, true},
        {OP(tovThreshold(h, 100)), true}, {tovDither16Color, true},           {tovFlipVertical, false},
        {OP(tovCrop(h, 1, 2, 5, 3)), false}, {OP(tovScale(h, 50)), false}};
    for (const auto& r : rows)
        for (DWORD bits : kDepths) {
            if (r.eightOnly && bits != 8) continue;
            SCOPED_TRACE(testing::Message() << "row " << (&r - rows) << ", " << bits << " bits");
            Dib src = Random(23, 17, bits, 6);
            FillFrom(src, {3, 3, 3, 0, 250}, 2);
            Dib ok = Copy(src);
            ASSERT_EQ(r.call(ok), 0u);
            const long sites = tovtest::ForEachFailureAfterSetup(
                [&] { return Copy(src); }, [&](Dib& d) { return r.call(d); },
                [&](Dib& d, DWORD result, bool reached) {
                    if (!reached || DibWidth(d) == 23) { EXPECT_EQ(Store(d), Store(reached ? src : ok)); }
                    if (!reached) { EXPECT_EQ(result, 0u); }
                    else EXPECT_TRUE(result == DibErrorUnknown || result == DibErrorMemoryAlocation) << result;
                });
            EXPECT_GT(sites, 0);
        }
}

}  // namespace

// Threads on bitmaps of their own at every depth give what the same chain of
// calls gives one at a time: no operation shares state with another.
TEST(Exports, ConcurrentCallsOnDifferentBitmaps) {
    auto chain = [](DWORD bits, uint32_t seed) {
        Dib d = Random(61 + LONG(seed % 7), 43, bits, seed);
        int failures = 0;
        for (int round = 0; round < 3; ++round) {
            failures += (tovRankFilter(d, 4 - round) != 0) + (tovDespeckle(d, 5, 1) != 0) + (tovContrast(d, -60) != 0) +
                        (tovInvert(d) != 0) + (tovFlipVertical(d) != 0) + (tovFlipHorizontal(d) != 0);
            if (bits != 8) continue;
            failures += (tovGammaCorrection(d, 1.4) != 0) + (tovHistogramStretch(d) != 0) + (tovAverage(d) != 0) +
                        (tovSharpen(d, 10 + round) != 0) + (tovInfinityFilter(d) != 0) +
                        (tovThreshold(d, round == 1 ? 0 : 120) != 0) +
                        (tovConvolutionFilter(d, kKernel, 2, 3, 3, 9) != 0) + (round == 2 && tovDither16Color(d) != 0);
        }
        failures += (tovCrop(d, 3, 2, 50, 37) != 0) + (tovScale(d, 73) != 0);
        Bytes out = Store(d);
        out.insert(out.end(), {BYTE(DibWidth(d)), BYTE(DibHeight(d)), BYTE(failures)});
        return out;
    };
    constexpr unsigned kThreads = 6;
    std::vector<Bytes> single, results(kThreads);
    for (unsigned i = 0; i < kThreads; ++i) single.push_back(chain(kDepths[i % 3], 100 + i));
    for (const Bytes& s : single) ASSERT_EQ(s.back(), 0) << "a call failed";
    for (int repeat = 0; repeat < 3; ++repeat) {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < kThreads; ++i) threads.emplace_back([&, i] { results[i] = chain(kDepths[i % 3], 100 + i); });
        for (std::thread& t : threads) t.join();
        EXPECT_EQ(results, single);
    }
}
