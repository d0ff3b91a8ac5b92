// Rank filter and despeckle: the selection networks on every 0/1 window,
// whole bitmaps against the reference at every depth.
#include "dibkernels.h"
#include "ops1test.h"

#include <tovrel/tovrel.h>

using namespace ops1test;

// The selection networks are min/max networks, so by the 0-1 principle being
// right on every 0/1 window means being right on every window.
TEST(RowKernels, RankEveryBinaryWindow) {
    for (DWORD rank = 0; rank <= 8; ++rank)
        for (int bits = 0; bits < 512; ++bits) {
            BYTE r[3][3], win[9], out = 99;
            for (int i = 0; i < 9; ++i) win[i] = r[i / 3][i % 3] = BYTE((bits >> i) & 1);
            std::sort(win, win + 9);
            DibRankRow8(r[0], r[1], r[2], &out, 1, rank);
            ASSERT_EQ(out, win[rank]) << "rank " << rank << " pattern " << bits;
        }
}

// Every depth and rank, 8 bits included: random values through the kernel
// in blocks of 32 and strips of 512, rows ending anywhere in a byte.
TEST(RankFilter, MatchesReference) {
    uint32_t seed = 300;
    std::vector<LONG> widths(std::begin(tovtest::kWidths), std::end(tovtest::kWidths));
    widths.insert(widths.end(), {34, 35, 513, 514, 1031, 1037});
    for (DWORD bits : kDepths)
        for (LONG w : widths)
            for (LONG h : kHeights)
                for (DWORD rank = 0; rank <= 8; rank += w > 100 ? 4 : 1) {
                    Dib a = Random(w, h, bits, seed++), b = Copy(a);
                    ASSERT_EQ(DibRankFilter(a, rank), DWORD(DibOk));
                    RefRank(b, rank);
                    ASSERT_EQ(Store(a), Store(b)) << bits << " bits " << w << "x" << h << " rank " << rank;
                }
}

// Backgrounds inside and outside the depth's values (those are written
// through the bitmap's own routine, spilling into neighbours included).
TEST(Despeckle, MatchesReference) {
    uint32_t seed = 500;
    for (DWORD bits : kDepths) {
        const DWORD top = (1u << bits) - 1;
        for (LONG w : {1, 7, 8, 9, 31, 32, 33, 34, 35, 514, 1037})
            for (LONG h : kHeights)
                for (DWORD background : {0u, top, top / 2, 255u, 300u})
                    for (DWORD threshold : {0u, 1u, 3u, 5u, 8u, 9u, 12u}) {
                        Dib a = Random(w, h, bits, seed++);
                        FillFrom(a, {BYTE(background & top), BYTE(background & top), BYTE(top / 3), 1}, seed);
                        Dib b = Copy(a);
                        ASSERT_EQ(DibDespeckle(a, threshold, background), DWORD(DibOk));
                        RefDespeckle(b, threshold, background);
                        ASSERT_EQ(Store(a), Store(b))
                            << bits << " bits " << w << "x" << h << " bg " << background << " t " << threshold;
                    }
    }
}
