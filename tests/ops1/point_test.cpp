// Point operations and the histogram against the reference, telling values,
// and the row kernels on every way this processor has.
#include "dibkernels.h"
#include "ops1test.h"

#include <tovrel/tovrel.h>

#include <functional>

using namespace ops1test;

// Every depth, colour counts below and above the depth's own (the clamp is
// to the count, not the depth): the whole store equals the reference's.
TEST(PointOperations, MatchReference) {
    struct Case { std::function<DWORD(HDIB)> op; std::function<void(HDIB)> ref; bool eightOnly; };
    std::vector<Case> cases = {{DibInvert, RefInvert, false}};
    for (LONG b : {-255, -1, 7, 255})
        cases.push_back({[b](HDIB h) { return DibBrightness(h, b); }, [b](HDIB h) { RefBrightness(h, b); }, false});
    for (LONG c : {-255, -128, -1, 0, 64, 255})
        for (LONG off : {-(c / 2), LONG(-300), LONG(300)})
            cases.push_back({[=](HDIB h) { return DibContrast(h, c, off); },
                             [=](HDIB h) { RefContrast(h, c, off); }, false});
    for (double g : {0.1, 0.5, 1.0, 1.7, 10.0})
        cases.push_back({[g](HDIB h) { return DibGammaCorrection(h, g); }, [g](HDIB h) { RefGamma(h, g); }, true});
    const std::pair<DWORD, DWORD> shapes[] = {{1, 0}, {4, 0}, {8, 0}, {8, 5}, {8, 300}, {4, 10}, {4, 256}, {1, 16}};
    uint32_t seed = 1;
    for (const Case& c : cases)
        for (auto [bits, colors] : shapes)
            for (LONG w : tovtest::kWidths)
                for (LONG h : kHeights) {
                    if (c.eightOnly && bits != 8) continue;
                    Dib a = Random(w, h, bits, seed, colors), b = Random(w, h, bits, seed++, colors);
                    ASSERT_EQ(c.op(a), DWORD(DibOk));
                    c.ref(b);
                    ASSERT_EQ(Store(a), Store(b)) << bits << " bits, " << colors << " colours, " << w << "x" << h;
                }
}

// Values worked out by hand; they hold the reference to the rules too.
TEST(PointOperations, TellingValues) {
    struct Row { DWORD (*op)(HDIB); BYTE in, out; };
    const Row rows[] = {
        {[](HDIB h) { return tovContrast(h, -1); }, 255, 254},
        {[](HDIB h) { return tovContrast(h, 255); }, 64, 1},
        {[](HDIB h) { return tovContrast(h, 255); }, 128, 129},
        {[](HDIB h) { return tovContrast(h, -255); }, 0, 127},
        {[](HDIB h) { return tovContrast(h, -255); }, 255, 127},
        {[](HDIB h) { return tovGammaCorrection(h, 2.0); }, 128, 64},
        {[](HDIB h) { return tovGammaCorrection(h, 0.5); }, 1, 16},
        {[](HDIB h) { return tovGammaCorrection(h, 10.0); }, 192, 15},
        {[](HDIB h) { return tovHistogramStretchEx(h, 50, 200, 0); }, 49, 0},
        {[](HDIB h) { return tovHistogramStretchEx(h, 50, 200, 0); }, 125, 127},
        {[](HDIB h) { return tovHistogramStretchEx(h, 50, 200, 0); }, 201, 255},
        {[](HDIB h) { return tovHistogramStretch(h); }, 77, 77},                  // uniform: no range
        {[](HDIB h) { return tovHistogramStretchEx(h, 100, 100, 1); }, 200, 0},  // crossed cut-offs
    };
    for (const Row& r : rows) {
        Dib d(tovCreateHDIBExt(3, 2, r.in, 8));
        ASSERT_EQ(r.op(d), DWORD(tovOk));
        EXPECT_EQ(d.h->ppRow[1][2], r.out) << int(r.in) << " -> " << int(r.out);
    }
}

// Widths round the counting kernel's blocks as well.
TEST(Histogram, CountsPixelsAndFindsPoints) {
    uint32_t seed = 11;
    for (LONG w : {1, 7, 8, 9, 31, 32, 33, 63, 64, 65, 1000})
        for (LONG h : kHeights) {
            Dib d = Random(w, h, 8, seed++);
            DWORD got[256] = {}, want[256] = {};
            got[3] = want[3] = 10;  // added to, not cleared
            for (LONG y = 0; y < h; ++y)
                for (LONG x = 0; x < w; ++x) ++want[d.h->ppRow[y][x]];
            ASSERT_EQ(DibHistogram(d, got), DWORD(DibOk));
            ASSERT_TRUE(std::equal(got, got + 256, want)) << w << "x" << h;
        }
    DWORD c[256] = {};
    c[0] = c[255] = 100;  // each read by one search only
    c[10] = c[20] = 5;
    c[200] = 3;
    const LONG counts[] = {-1, 0, 99, 100, 104, 105, 109, 110, 112, 113};
    const DWORD black[] = {0, 0, 0, 10, 10, 20, 20, 200, 200, 255};
    const DWORD white[] = {255, 255, 255, 200, 20, 20, 10, 10, 10, 0};
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(DibHistogramBlackValue(c, counts[i]), black[i]) << counts[i];
        EXPECT_EQ(DibHistogramWhiteValue(c, counts[i]), white[i]) << counts[i];
    }
}

// Random argument pairs in both modes, narrow histograms and range 0; the
// fixed form equals mode 1 with 2 and 2.
TEST(HistogramStretch, MatchesReference) {
    std::mt19937 rng(17);
    uint32_t seed = 100;
    for (LONG w : tovtest::kWidths)
        for (LONG h : kHeights)
            for (int round = 0; round < 7; ++round) {
                const DWORD mode = round & 1;
                LONG low = LONG(rng() % (mode ? 101 : 256)), high = LONG(rng() % (mode ? 101 : 256));
                if (low > high) std::swap(low, high);
                if (round == 4) low = high;
                Dib a = Random(w, h, 8, seed++);
                if (round == 5) FillFrom(a, {40, 41, 200}, seed);
                Dib b = Copy(a);
                if (round == 6) {
                    ASSERT_EQ(tovHistogramStretch(a), DWORD(tovOk));
                    low = high = 2;
                    RefStretch(b, 2, 2, 1);
                } else {
                    ASSERT_EQ(DibHistogramStretchEx(a, low, high, mode), DWORD(DibOk));
                    RefStretch(b, low, high, mode);
                }
                ASSERT_EQ(Store(a), Store(b)) << w << "x" << h << " " << low << "," << high << "," << mode;
            }
}

// The table lookup on every way, at lengths round the vector widths and
// unaligned starts; bytes past the end stay.
TEST(RowKernels, TableLookupEveryWay) {
    std::mt19937 rng(5);
    BYTE table[256];
    int ways = 0;
    for (int way = 0; way < DIB_TABLE_WAYS; ++way) {
        BYTE probe = 0;
        if (!DibTableRow8With(way, table, &probe, 0)) continue;
        ++ways;
        for (BYTE& t : table) t = BYTE(rng());
        for (size_t n = 0; n <= 200; ++n)
            for (size_t start : {0, 1, 7}) {
                Bytes row(start + n + 70);
                for (BYTE& b : row) b = BYTE(rng());
                Bytes want = row, got = row, best = row;
                for (size_t i = 0; i < n; ++i) want[start + i] = table[want[start + i]];
                ASSERT_TRUE(DibTableRow8With(way, table, got.data() + start, n));
                DibTableRow8(table, best.data() + start, n);
                ASSERT_EQ(got, want) << "way " << way << " n " << n;
                ASSERT_EQ(best, want) << "n " << n;
            }
    }
    EXPECT_GE(ways, 1);
    EXPECT_FALSE(DibTableRow8With(DIB_TABLE_WAYS, table, nullptr, 0));
}
