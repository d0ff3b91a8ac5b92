// Flips, crop and scale against the rules written pixel by pixel, at 1, 4
// and 8 bits over widths that straddle byte and word boundaries.
#include <climits>

#include "ops2_support.h"

using namespace ops2;

namespace {

const int kDepths[] = {1, 4, 8};
const LONG kWidths[] = {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 32, 33, 100};
const LONG kHeights[] = {1, 2, 3, 5, 8};

std::vector<BYTE> Colours(HDIB d) {
    const BYTE* c = (const BYTE*)d->pbmiColors;
    return std::vector<BYTE>(c, c + DibNumColors(d) * 4);
}

// The bits of each row past its last pixel.
std::vector<BYTE> Padding(HDIB d) {
    const LONG w = DibWidth(d), h = DibHeight(d), len = DibRowLength(d);
    const int bpp = DibBitCount(d);
    std::vector<BYTE> out;
    for (LONG y = 0; y < h; ++y) {
        const int64_t used = (int64_t)w * bpp;
        for (int64_t bit = used; bit < (int64_t)len * 8; ++bit)
            out.push_back((d->ppRow[y][bit / 8] >> (7 - bit % 8)) & 1);
    }
    return out;
}

// A re-made bitmap keeps the padding bits its new pixel store came with:
// those of a fresh bitmap of that size that nobody has written.
void ExpectFreshPadding(HDIB d) {
    DibGuard fresh(tovCreateHDIBExt(DibWidth(d), DibHeight(d), 256, DibBitCount(d)));
    EXPECT_EQ(Padding(d), Padding(fresh.d));
}

// Expected bytes of a flip: the old bytes, each pixel written by the rule,
// so that the bits past the last pixel of a row stay as they were.
std::vector<BYTE> Flipped(HDIB d, bool upsideDown) {
    const Pic in = Read(d);
    const int bpp = DibBitCount(d);
    DibGuard want(tovCreateCopyHDIB(d));
    for (LONG y = 0; y < in.h; ++y)
        for (LONG x = 0; x < in.w; ++x)
            SetPx(want.d, x, y, bpp,
                  (DWORD)(upsideDown ? in.at(x, in.h - 1 - y) : in.at(in.w - 1 - x, y)));
    return Bytes(want.d);
}

TEST(Geometry, FlipsMatchReference) {
    std::mt19937 rng(3);
    for (int bpp : kDepths)
        for (LONG w : kWidths)
            for (LONG h : kHeights) {
                DibGuard g(RandomDib(rng, w, h, bpp));
                const std::vector<BYTE> orig = Bytes(g.d);
                const std::vector<BYTE> colours = Colours(g.d);
                const std::vector<BYTE> up = Flipped(g.d, true);
                ASSERT_EQ(tovFlipHorizontal(g.d), 0u);
                ASSERT_EQ(Bytes(g.d), up) << bpp << " bits " << w << "x" << h;
                ASSERT_EQ(tovFlipHorizontal(g.d), 0u);
                ASSERT_EQ(Bytes(g.d), orig);
                const std::vector<BYTE> mirrored = Flipped(g.d, false);
                ASSERT_EQ(tovFlipVertical(g.d), 0u);
                ASSERT_EQ(Bytes(g.d), mirrored) << bpp << " bits " << w << "x" << h;
                ASSERT_EQ(tovFlipVertical(g.d), 0u);
                ASSERT_EQ(Bytes(g.d), orig);
                EXPECT_EQ(Colours(g.d), colours);
                EXPECT_EQ(DibBitCount(g.d), bpp);
            }
}

TEST(Geometry, CropMatchesReference) {
    std::mt19937 rng(4);
    for (int bpp : kDepths)
        for (LONG w : kWidths)
            for (LONG h : kHeights)
                for (int round = 0; round < 4; ++round) {
                    DibGuard g(RandomDib(rng, w, h, bpp));
                    const Pic in = Read(g.d);
                    const std::vector<BYTE> colours = Colours(g.d);
                    const DWORD cw = 1 + rng() % w, ch = 1 + rng() % h;
                    const DWORD x = rng() % (w - cw + 1), y = rng() % (h - ch + 1);
                    ASSERT_EQ(tovCrop(g.d, x, y, cw, ch), 0u);
                    const Pic out = Read(g.d);
                    ASSERT_EQ(out.w, (LONG)cw);
                    ASSERT_EQ(out.h, (LONG)ch);
                    for (DWORD j = 0; j < ch; ++j)
                        for (DWORD i = 0; i < cw; ++i)
                            ASSERT_EQ(out.at(i, j), in.at(x + i, y + j))
                                << bpp << " bits " << w << "x" << h << " crop " << x << "," << y
                                << " " << cw << "x" << ch;
                    EXPECT_EQ(Colours(g.d), colours);
                    EXPECT_EQ(DibBitCount(g.d), bpp);
                    ExpectFreshPadding(g.d);
                }
}

TEST(Geometry, CropRefusesRectanglesOutside) {
    std::mt19937 rng(5);
    DibGuard g(RandomDib(rng, 9, 6, 4));
    const std::vector<BYTE> before = Bytes(g.d);
    struct Case {
        DWORD x, y, w, h, want;
    };
    const Case cases[] = {
        {8, 0, 1, 6, 0},            // touches the right edge
        {8, 0, 2, 6, 7},            // one past it
        {0, 5, 9, 2, 7},            // one past the bottom
        {0, 0, 0, 6, 7},            // empty
        {0, 0, 9, 0, 7},            // empty
        {0xFFFFFFFFu, 0, 2, 1, 7},  // end wraps past 2^32
        {0, 0xFFFFFFF0u, 1, 0x20, 7},
        {0, 0, 0xFFFFFFFFu, 1, 7},
        {0x80000000u, 0, 0x80000001u, 1, 7},
    };
    for (const Case& c : cases) {
        DibGuard copy(tovCreateCopyHDIB(g.d));
        EXPECT_EQ(tovCrop(copy.d, c.x, c.y, c.w, c.h), c.want) << c.x << "," << c.y;
        if (c.want != 0) {
            EXPECT_EQ(Bytes(copy.d), before);
        }
    }
    EXPECT_EQ(tovCrop(nullptr, 0, 0, 1, 1), 5u);
}

// New size and sampled positions by the single-precision rules.
struct ScaleRef {
    DWORD w, h;
    float inverse;
};
ScaleRef ScaleOf(LONG w, LONG h, DWORD percent) {
    const float f = (float)((double)(float)percent * 0.01);
    ScaleRef r;
    r.h = (DWORD)((double)((float)h * f) + 0.5);
    r.w = (DWORD)((double)((float)w * f) + 0.5);
    r.inverse = 1.0f / f;
    return r;
}

TEST(Geometry, ScaleMatchesReference) {
    std::mt19937 rng(6);
    std::vector<std::pair<LONG, LONG>> sizes = {{40, 30}, {33, 17}, {7, 9}, {100, 3}, {832, 20}};
    for (int bpp : kDepths)
        for (auto [w, h] : sizes)
            for (DWORD percent = 5; percent <= 100; percent += (bpp == 8 ? 1 : 7)) {
                DibGuard g(RandomDib(rng, w, h, bpp));
                const Pic in = Read(g.d);
                const ScaleRef r = ScaleOf(w, h, percent);
                const DWORD got = tovScale(g.d, percent);
                if (r.w == 0 || r.h == 0) {
                    ASSERT_EQ(got, 6u);
                    continue;
                }
                ASSERT_EQ(got, 0u) << w << "x" << h << " at " << percent;
                const Pic out = Read(g.d);
                ASSERT_EQ(out.w, (LONG)r.w);
                ASSERT_EQ(out.h, (LONG)r.h);
                for (LONG y = 0; y < out.h; ++y) {
                    const LONG sy = (LONG)((float)y * r.inverse);
                    for (LONG x = 0; x < out.w; ++x) {
                        const LONG sx = (LONG)((float)x * r.inverse);
                        ASSERT_EQ(out.at(x, y), in.at(sx, sy))
                            << bpp << " bits " << w << "x" << h << " at " << percent;
                    }
                }
                ExpectFreshPadding(g.d);
            }
}

TEST(Geometry, ScaleKnownSizes) {
    struct Case {
        LONG w, h;
        DWORD percent;
        LONG nw, nh;
        std::vector<LONG> firstColumns;
    };
    const Case cases[] = {
        {640, 480, 50, 320, 240, {0, 2, 4, 6}},
        {640, 480, 33, 211, 158, {0, 3, 6, 9}},
        {640, 480, 5, 32, 24, {0, 20, 40}},
        {832, 640, 75, 624, 480, {0, 1, 2, 4}},
        {10, 7, 50, 5, 4, {0, 2, 4, 6, 8}},
        {9, 4, 100, 9, 4, {0, 1, 2, 3, 4, 5, 6, 7, 8}},
    };
    for (const Case& c : cases) {
        DibGuard g(tovCreateHDIBExt(c.w, c.h, 0, 8));
        for (LONG y = 0; y < c.h; ++y)
            for (LONG x = 0; x < c.w; ++x) g.d->ppRow[y][x] = (BYTE)x;
        ASSERT_EQ(tovScale(g.d, c.percent), 0u);
        ASSERT_EQ(DibWidth(g.d), c.nw);
        ASSERT_EQ(DibHeight(g.d), c.nh);
        for (size_t i = 0; i < c.firstColumns.size(); ++i)
            EXPECT_EQ(g.d->ppRow[c.nh - 1][i], (BYTE)c.firstColumns[i]) << c.percent;
    }
    DibGuard small(tovCreateHDIBExt(3, 3, 77, 8));
    EXPECT_EQ(tovScale(small.d, 5), 6u);  // both sizes round to 0
    EXPECT_EQ(DibWidth(small.d), 3);
    EXPECT_EQ(small.d->ppRow[1][1], 77);
    EXPECT_EQ(tovScale(small.d, 4), 7u);
    EXPECT_EQ(tovScale(small.d, 101), 7u);
    EXPECT_EQ(tovScale(nullptr, 50), 5u);
}

TEST(Geometry, RefusedDepthsAndHandles) {
    BITMAPINFO info = {};
    info.bmiHeader.biSize = 40;
    info.bmiHeader.biWidth = 4;
    info.bmiHeader.biHeight = 4;
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 24;
    info.bmiHeader.biClrUsed = 1;
    DibGuard rgb(DibCreateFromBitmapInfo(&info));
    ASSERT_NE(rgb.d, nullptr);
    EXPECT_EQ(tovFlipHorizontal(rgb.d), 5u);
    EXPECT_EQ(tovFlipVertical(rgb.d), 5u);
    EXPECT_EQ(tovCrop(rgb.d, 0, 0, 1, 1), 5u);
    EXPECT_EQ(tovScale(rgb.d, 50), 5u);
    DibRecord fake = {};
    EXPECT_EQ(tovFlipHorizontal(&fake), 5u);
    EXPECT_EQ(tovFlipVertical(nullptr), 5u);
}

// Each allocation of each operation made to fail: the code of its site,
// nothing left allocated, and the picture kept wherever it still exists.
TEST(Geometry, AllocationFailure) {
    std::mt19937 rng(8);
    using Op = DWORD (*)(HDIB);
    const Op ops[] = {
        [](HDIB d) { return tovFlipHorizontal(d); },
        [](HDIB d) { return tovFlipVertical(d); },
        [](HDIB d) { return tovCrop(d, 1, 2, 5, 3); },
        [](HDIB d) { return tovScale(d, 50); },
    };
    for (int bpp : kDepths)
        for (size_t op = 0; op < 4; ++op) {
            DibGuard src(RandomDib(rng, 13, 9, bpp));
            DibGuard ok(tovCreateCopyHDIB(src.d));
            ASSERT_EQ(ops[op](ok.d), 0u);
            const std::vector<BYTE> want = Bytes(ok.d);
            const std::vector<BYTE> before = Bytes(src.d);
            long sites = 0;
            for (long n = 1; n < 100; ++n) {
                const long live = PlatLiveObjects();
                HDIB d = tovCreateCopyHDIB(src.d);
                const long count = PlatAllocationCount();
                PlatFailAllocation(n);
                const DWORD r = ops[op](d);
                const long used = PlatAllocationCount() - count;
                PlatFailAllocation(0);
                if (used < n) {
                    EXPECT_EQ(r, 0u);
                    EXPECT_EQ(Bytes(d), want);
                } else {
                    ++sites;
                    EXPECT_EQ(r, 6u) << "op " << op << " allocation " << n;
                    // Flips keep the picture; crop and scale keep it until the
                    // bitmap is re-made.
                    if (op < 2 || (DibBitsPtr(d) != nullptr && DibWidth(d) == 13)) {
                        EXPECT_EQ(Bytes(d), before) << "op " << op << " allocation " << n;
                    }
                }
                DibUnload(d);
                EXPECT_EQ(PlatLiveObjects(), live) << "leak: op " << op << " allocation " << n;
                if (used < n) break;
            }
            EXPECT_GE(sites, 3);
        }
}

TEST(Geometry, TraceLines) {
    tovtest::ScratchDir dir;
    DibGuard g(tovCreateHDIBExt(6, 4, 0, 4));
    const std::string h = std::to_string((long long)(intptr_t)g.d);
    tovtest::StartLog(8);
    ASSERT_EQ(tovCrop(g.d, 5, 0, 2, 1), 7u);
    tovtest::StopLog();
    std::vector<std::string> lines = tovtest::LogLines();
    const std::vector<std::string> want = {
        ">tovCrop(" + h + ",5,0,2,1)\r",
        ">DibCrop(" + h + ",5,0,2,1)\r",
        ">DibRegisterPixelIO(4)\r",
        "<DibRegisterPixelIO()=DibOk\r",
        "   !DibCrop():DibErrorInvalidParm\r",
        "<tovCrop()=7 (error)\r",
    };
    EXPECT_EQ(lines, want);
}

}  // namespace
