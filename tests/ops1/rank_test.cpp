// Rank filter and despeckle: the kernels against sorting, whole bitmaps
// against the reference at every depth, and the telling cases.
#include "dibkernels.h"
#include "ops1test.h"

#include <tovrel/tovrel.h>

#include <algorithm>

using namespace ops1test;

// The selection networks are min/max networks, so the 0-1 principle holds:
// right on every 0/1 window means right on every window. The random rows
// below check the same on full byte values and across strip boundaries.
TEST(RankKernel, EveryBinaryWindowEveryRank) {
    for (DWORD rank = 0; rank <= 8; ++rank) {
        for (int bits = 0; bits < 512; ++bits) {
            BYTE r[3][3], win[9];
            for (int i = 0; i < 9; ++i) win[i] = r[i / 3][i % 3] = BYTE((bits >> i) & 1);
            std::sort(win, win + 9);
            BYTE out = 99;
            DibRankRow8(r[0], r[1], r[2], &out, 1, rank);
            ASSERT_EQ(out, win[rank]) << "rank " << rank << " pattern " << bits;
        }
    }
}

TEST(RankKernel, RandomRowsEveryRank) {
    std::mt19937 rng(21);
    for (size_t n : {1, 2, 15, 16, 17, 31, 32, 33, 64, 511, 512, 513, 1100}) {
        for (int alphabet : {3, 256}) {
            std::vector<BYTE> a(n + 2), b(n + 2), c(n + 2);
            for (size_t i = 0; i < n + 2; ++i) {
                a[i] = BYTE(rng() % alphabet), b[i] = BYTE(rng() % alphabet), c[i] = BYTE(rng() % alphabet);
            }
            for (DWORD rank = 0; rank <= 8; ++rank) {
                std::vector<BYTE> out(n + 1, 0xAB);
                DibRankRow8(a.data(), b.data(), c.data(), out.data(), n, rank);
                for (size_t i = 0; i < n; ++i) {
                    BYTE win[9] = {a[i], a[i + 1], a[i + 2], b[i], b[i + 1], b[i + 2], c[i], c[i + 1], c[i + 2]};
                    std::sort(win, win + 9);
                    ASSERT_EQ(out[i], win[rank]) << "n " << n << " rank " << rank << " at " << i;
                }
                ASSERT_EQ(out[n], 0xAB);
            }
        }
    }
}

TEST(DespeckleKernel, RandomRowsEveryThreshold) {
    std::mt19937 rng(22);
    for (size_t n : {1, 17, 33, 511, 512, 513, 900}) {
        std::vector<BYTE> a(n + 2), b(n + 2), c(n + 2);
        for (size_t i = 0; i < n + 2; ++i) {
            // Mostly background, so that every count occurs.
            a[i] = rng() % 3 ? 255 : BYTE(rng() % 3), b[i] = rng() % 3 ? 255 : BYTE(rng() % 3);
            c[i] = rng() % 3 ? 255 : BYTE(rng() % 3);
        }
        for (DWORD threshold = 0; threshold <= 12; ++threshold) {
            std::vector<BYTE> out(n);
            DibDespeckleRow8(a.data(), b.data(), c.data(), out.data(), n, 255, threshold);
            for (size_t i = 0; i < n; ++i) {
                BYTE centre = b[i + 1];
                DWORD count = (a[i] != 255) + (a[i + 1] != 255) + (a[i + 2] != 255) + (b[i] != 255) +
                              (b[i + 2] != 255) + (c[i] != 255) + (c[i + 1] != 255) + (c[i + 2] != 255);
                BYTE want = (centre != 255 && count < threshold) ? 255 : centre;
                ASSERT_EQ(out[i], want) << n << " " << threshold << " " << i;
            }
        }
    }
}

// Whole bitmaps: every depth, widths and heights 1 to 70 (odd, straddling
// bytes and words), every rank; bytes of the store equal the reference's.
TEST(RankFilter, MatchesReferenceEveryDepthAndRank) {
    uint32_t seed = 300;
    for (DWORD bits : kDepths) {
        for (LONG w : kSizes) {
            for (LONG h : {1, 2, 3, 4, 9}) {
                for (DWORD rank = 0; rank <= 8; ++rank) {
                    Dib a = MakeRandom(w, h, bits, seed++);
                    Dib b = Copy(a);
                    ASSERT_EQ(DibRankFilter(a, rank), DWORD(DibOk));
                    RefRank(b, rank);
                    ASSERT_EQ(Bytes(a), Bytes(b)) << bits << " bits " << w << "x" << h << " rank " << rank;
                }
            }
        }
    }
    // Rows of several strips of the kernel, ending anywhere in a byte.
    for (DWORD bits : kDepths) {
        for (LONG w : {513, 514, 515, 1030, 1031, 1037}) {
            for (DWORD rank : {3u, 8u}) {
                Dib a = MakeRandom(w, 4, bits, seed++);
                Dib b = Copy(a);
                ASSERT_EQ(DibRankFilter(a, rank), DWORD(DibOk));
                RefRank(b, rank);
                ASSERT_EQ(Bytes(a), Bytes(b)) << bits << " bits, width " << w;
            }
            Dib a = MakeRandom(w, 3, bits, seed++);
            FillFromValues(a, {0, 0, 0, 1}, seed);
            Dib b = Copy(a);
            ASSERT_EQ(DibDespeckle(a, 2, 0), DWORD(DibOk));
            RefDespeckle(b, 2, 0);
            ASSERT_EQ(Bytes(a), Bytes(b)) << bits << " bits, width " << w;
        }
    }
}

// Backgrounds inside and outside the depth's values (those write through the
// bitmap's own routine, overflow into neighbouring pixels included).
TEST(Despeckle, MatchesReferenceEveryDepth) {
    uint32_t seed = 500;
    for (DWORD bits : kDepths) {
        const DWORD top = (1u << bits) - 1;
        for (LONG w : kSizes) {
            for (LONG h : {1, 2, 3, 6}) {
                for (DWORD background : {0u, top, top / 2, 255u, 300u}) {
                    for (DWORD threshold : {0u, 1u, 3u, 5u, 8u, 9u, 12u}) {
                        Dib a = MakeRandom(w, h, bits, seed++);
                        FillFromValues(a, {BYTE(background & top), BYTE(background & top), BYTE(top / 3), 1}, seed);
                        Dib b = Copy(a);
                        ASSERT_EQ(DibDespeckle(a, threshold, background), DWORD(DibOk));
                        RefDespeckle(b, threshold, background);
                        ASSERT_EQ(Bytes(a), Bytes(b))
                            << bits << " bits " << w << "x" << h << " bg " << background << " t " << threshold;
                    }
                }
            }
        }
    }
}

TEST(RankFilter, TellingCases) {
    // 3x3 with one dark corner: rank 0 takes it, only the centre changes.
    Dib d = MakeRandom(3, 3, 8, 1);
    FillFromValues(d, {100}, 1);
    d.h->ppRow[0][0] = 7;
    ASSERT_EQ(tovRankFilter(d, 0), DWORD(tovOk));
    for (LONG y = 0; y < 3; ++y)
        for (LONG x = 0; x < 3; ++x) EXPECT_EQ(d.h->ppRow[y][x], (x == 1 && y == 1) ? 7 : (x || y) ? 100 : 7);
    // Median of a uniform picture with one deviating pixel; 1-bit majority.
    Dib m = MakeRandom(5, 5, 8, 2);
    FillFromValues(m, {60}, 1);
    m.h->ppRow[2][2] = 250;
    ASSERT_EQ(tovRankFilter(m, 4), DWORD(tovOk));
    EXPECT_EQ(m.h->ppRow[2][2], 60);
    Dib one = MakeRandom(3, 3, 1, 3);
    FillFromValues(one, {1}, 1);
    DibSetPixel1(one, 1, 1, 0);
    DibSetPixel1(one, 0, 0, 0);
    ASSERT_EQ(tovRankFilter(one, 4), DWORD(tovOk));
    EXPECT_EQ(DibGetPixel1(one, 1, 1), 1u);
}

TEST(Despeckle, TellingCases) {
    // Background 255, threshold 1: a lone dark pixel goes, a pair stays;
    // threshold 3: the pair goes too, each counting one neighbour.
    for (DWORD threshold : {1u, 3u}) {
        Dib d = MakeRandom(8, 5, 8, 1);
        FillFromValues(d, {255}, 1);
        d.h->ppRow[1][1] = 0;              // alone
        d.h->ppRow[2][4] = d.h->ppRow[2][5] = 0; // a pair
        ASSERT_EQ(tovDespeckle(d, threshold, 255), DWORD(tovOk));
        EXPECT_EQ(d.h->ppRow[1][1], 255);
        EXPECT_EQ(d.h->ppRow[2][4], threshold == 1 ? 0 : 255);
        EXPECT_EQ(d.h->ppRow[2][5], threshold == 1 ? 0 : 255);
    }
}
