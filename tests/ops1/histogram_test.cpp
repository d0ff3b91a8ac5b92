// Histogram, black and white points, and both forms of the stretch against
// the reference.
#include "dibkernels.h"
#include "ops1test.h"

#include <tovrel/tovrel.h>

using namespace ops1test;

TEST(Histogram, CountsPixelsNotPadding) {
    uint32_t seed = 11;
    for (LONG w : kSizes) {
        for (LONG h : {1, 3, 6}) {
            Dib d = MakeRandom(w, h, 8, seed++);
            DWORD counters[256] = {}, want[256] = {};
            for (LONG y = 0; y < h; ++y)
                for (LONG x = 0; x < w; ++x) ++want[d.h->ppRow[y][x]];
            counters[3] = 10; // added to, not cleared
            want[3] += 10;
            ASSERT_EQ(DibHistogram(d, counters), DWORD(DibOk));
            ASSERT_EQ(std::vector<DWORD>(counters, counters + 256), std::vector<DWORD>(want, want + 256)) << w;
        }
    }
}

TEST(Histogram, BlackAndWhitePoints) {
    DWORD c[256] = {};
    c[10] = 5;
    c[20] = 5;
    c[200] = 3;
    c[255] = 100; // never read by the black search
    c[0] = 100;   // never read by the white search
    struct Row { LONG count; DWORD black, white; };
    // Black counts from level 0 (100 there), white from 255 (100 there).
    const Row rows[] = {{0, 0, 255}, {99, 0, 255}, {100, 10, 200}, {104, 10, 20}, {105, 20, 20},
                        {109, 20, 10}, {110, 200, 10}, {112, 200, 10}, {113, 255, 0}, {-1, 0, 255}};
    for (const Row& r : rows) {
        EXPECT_EQ(DibHistogramBlackValue(c, r.count), r.black) << r.count;
        EXPECT_EQ(DibHistogramWhiteValue(c, r.count), r.white) << r.count;
        EXPECT_EQ(RefBlack(c, r.count), r.black);
        EXPECT_EQ(RefWhite(c, r.count), r.white);
    }
}

// Random bitmaps and random argument pairs in both modes; the fixed form
// equals mode 1 with 2 and 2.
TEST(HistogramStretch, MatchesReference) {
    std::mt19937 rng(17);
    uint32_t seed = 100;
    for (LONG w : kSizes) {
        for (LONG h : {1, 2, 5, 13}) {
            for (int round = 0; round < 6; ++round) {
                DWORD mode = round & 1;
                LONG limit = mode ? 100 : 255;
                LONG low = LONG(rng() % (limit + 1)), high = LONG(rng() % (limit + 1));
                if (low > high) std::swap(low, high);
                if (round == 4) low = high; // range 0 in mode 0
                Dib a = MakeRandom(w, h, 8, seed++);
                if (round == 5) FillFromValues(a, {40, 41, 200}, seed); // narrow histograms
                Dib b = Copy(a);
                ASSERT_EQ(DibHistogramStretchEx(a, low, high, mode), DWORD(DibOk));
                RefStretch(b, low, high, mode);
                ASSERT_EQ(Bytes(a), Bytes(b)) << w << "x" << h << " " << low << "," << high << "," << mode;
            }
            Dib a = MakeRandom(w, h, 8, seed++);
            Dib b = Copy(a);
            Dib c = Copy(a);
            ASSERT_EQ(tovHistogramStretch(a), DWORD(tovOk));
            ASSERT_EQ(tovHistogramStretchEx(b, 2, 2, 1), DWORD(tovOk));
            RefStretch(c, 2, 2, 1);
            ASSERT_EQ(Bytes(a), Bytes(c));
            ASSERT_EQ(Bytes(b), Bytes(c));
        }
    }
}

TEST(HistogramStretch, TellingCases) {
    // Mode 0, 50 to 200: range 150, base 85.
    const std::pair<BYTE, BYTE> levels[] = {{50, 0}, {49, 0}, {125, 127}, {200, 255}, {201, 255}, {0, 0}};
    Dib d = MakeRandom(6, 1, 8, 1);
    for (int i = 0; i < 6; ++i) d.h->ppRow[0][i] = levels[i].first;
    ASSERT_EQ(tovHistogramStretchEx(d, 50, 200, 0), DWORD(tovOk));
    for (int i = 0; i < 6; ++i) EXPECT_EQ(d.h->ppRow[0][i], levels[i].second) << int(levels[i].first);

    // Uniform pictures do not change in mode 1; crossed cut-offs give black.
    Dib u = MakeRandom(9, 9, 8, 2);
    FillFromValues(u, {77}, 1);
    std::vector<BYTE> before = Bytes(u);
    ASSERT_EQ(tovHistogramStretch(u), DWORD(tovOk));
    EXPECT_EQ(Bytes(u), before);
    Dib r = MakeRandom(9, 9, 8, 3);
    ASSERT_EQ(tovHistogramStretchEx(r, 100, 100, 1), DWORD(tovOk));
    for (LONG y = 0; y < 9; ++y)
        for (LONG x = 0; x < 9; ++x) ASSERT_EQ(r.h->ppRow[y][x], 0);
}

TEST(Histogram, CountKernelMatchesPlainCount) {
    std::mt19937 rng(3);
    for (size_t width : {0, 1, 7, 8, 9, 63, 64, 65, 1000}) {
        std::vector<std::vector<BYTE>> rows(5, std::vector<BYTE>(width + 8));
        std::vector<BYTE*> ptrs;
        DWORD want[256] = {}, got[256] = {};
        for (auto& row : rows) {
            for (BYTE& b : row) b = BYTE(rng() % 7 * 37); // repeated values
            for (size_t x = 0; x < width; ++x) ++want[row[x]];
            ptrs.push_back(row.data());
        }
        DibCountRows8(ptrs.data(), ptrs.size(), width, got);
        ASSERT_EQ(std::vector<DWORD>(got, got + 256), std::vector<DWORD>(want, want + 256)) << width;
    }
}
