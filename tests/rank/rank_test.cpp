// Rank filter and despeckle: whole bitmaps against plain references at every depth.
#include "opstest.h"

#include <tovrel/tovrel.h>

using namespace opstest;

namespace {

// f(io, copy, x, y) for every interior pixel, reading the unchanged copy.
template <class F>
void RefInterior(HDIB h, F f) {
    Dib copy = Copy(h);
    DibPixelIO io = IO(h);
    for (LONG y = 1; y + 1 < DibHeight(h); ++y)
        for (LONG x = 1; x + 1 < DibWidth(h); ++x) f(io, copy.h, x, y);
}

void RefRank(HDIB h, DWORD rank) {
    RefInterior(h, [&](DibPixelIO& io, HDIB c, LONG x, LONG y) {
        DWORD win[9];
        for (int i = 0; i < 9; ++i) win[i] = io.get(c, x + i % 3 - 1, y + i / 3 - 1);
        std::sort(win, win + 9);
        io.set(h, x, y, win[rank]);
    });
}

void RefDespeckle(HDIB h, DWORD threshold, DWORD background) {
    RefInterior(h, [&](DibPixelIO& io, HDIB c, LONG x, LONG y) {
        DWORD count = 0;
        for (int i = 0; i < 9; ++i) count += i != 4 && io.get(c, x + i % 3 - 1, y + i / 3 - 1) != background;
        if (io.get(c, x, y) != background && count < threshold) io.set(h, x, y, background);
    });
}

}  // namespace

// Every depth and rank, 8 bits included: random values through the kernel
// in blocks of 32 and strips of 512, rows ending anywhere in a byte.
TEST(RankFilter, MatchesReference) {
    uint32_t seed = 300;
    std::vector<LONG> widths(std::begin(tovtest::kWidths), std::end(tovtest::kWidths));
    widths.insert(widths.end(), {2, 3, 34, 35, 513, 514, 1031, 1037});  // 3: one interior column
    for (DWORD bits : kDepths)
        for (LONG w : widths)
            for (LONG h : {1, 2, 3, 4, 9, 10})  // 4, 10: the two-rows-a-pass kernels end on a pair
                for (DWORD rank = 0; rank <= 8; rank += w > 100 ? 4 : 1) {
                    Dib a = Random(w, h, bits, seed++), b = Copy(a);
                    ASSERT_EQ(DibRankFilter(a, rank), DWORD(DibOk));
                    RefRank(b, rank);
                    ASSERT_EQ(Store(a), Store(b)) << bits << " bits " << w << "x" << h << " rank " << rank;
                }
}

// Backgrounds inside and outside the depth's values (those are written
// through the bitmap's own routine, spilling into neighbours included), and
// the bitmap layer's unchecked extremes.
TEST(Despeckle, MatchesReference) {
    uint32_t seed = 500;
    for (DWORD bits : kDepths) {
        const DWORD top = (1u << bits) - 1;
        for (LONG w : {1, 2, 3, 7, 8, 9, 31, 32, 33, 34, 35, 514, 1037})
            for (LONG h : kHeights)
                for (DWORD background : {0u, top, top / 2, top + 1, 255u, 300u})
                    for (DWORD threshold : {0u, 1u, 3u, 5u, 8u, 9u, 12u}) {
                        Dib a = Random(w, h, bits, seed++);
                        FillFrom(a, {BYTE(background & top), BYTE(background & top), BYTE(top / 3), 1}, seed);
                        Dib b = Copy(a);
                        ASSERT_EQ(DibDespeckle(a, threshold, background), DWORD(DibOk));
                        RefDespeckle(b, threshold, background);
                        ASSERT_EQ(Store(a), Store(b))
                            << bits << " bits " << w << "x" << h << " bg " << background << " t " << threshold;
                    }
        Dib a = Random(11, 5, bits, seed), b = Copy(a);
        ASSERT_EQ(DibDespeckle(a, 0xFFFFFFFF, 0xFFFFFFFF), DWORD(DibOk));
        RefDespeckle(b, 0xFFFFFFFF, 0xFFFFFFFF);
        EXPECT_EQ(Store(a), Store(b)) << bits;
    }
}
