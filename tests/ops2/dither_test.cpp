// Error diffusion against the serpentine scan written out step by step.
#include "ops2_support.h"

using namespace ops2;

namespace {

int Q2(int v) { return v < 128 ? 0 : 255; }
int Q17(int v) {
    const int c = v < 0 ? 0 : (v > 255 ? 255 : v);
    const int t = (c + 8) & ~15;
    return t > 255 ? 255 : t;
}

Pic RefDither(const Pic& in, int (*quant)(int)) {
    Pic out = in;
    std::vector<int> imagerow(in.w), errordata(in.w, 0);
    for (LONG y = 0; y < in.h; ++y) {
        for (LONG x = 0; x < in.w; ++x) imagerow[x] = in.at(x, y) + errordata[x];
        std::fill(errordata.begin(), errordata.end(), 0);
        const bool even = (y % 2) == 0;
        for (LONG i = 0; i < in.w - 2; ++i) {
            const LONG x = even ? in.w - 2 - i : 1 + i;
            const LONG ahead = even ? x - 1 : x + 1;
            const LONG behind = even ? x + 1 : x - 1;
            const int v = imagerow[x];
            const int q = quant(v);
            const int e = v - q;
            imagerow[x] = q;
            imagerow[ahead] += (e * 7) / 16;
            errordata[behind] += (e * 3) / 16;
            errordata[x] += (e * 5) / 16;
            errordata[ahead] += e / 16;
        }
        for (LONG x = 0; x < in.w; ++x) out.at(x, y) = quant(imagerow[x]);
    }
    return out;
}

struct Variant {
    const char* name;
    DWORD (*op)(HDIB);
    int (*quant)(int);
};
const Variant kVariants[] = {
    {"2", [](HDIB d) { return tovDither2Color(d); }, Q2},
    {"16", [](HDIB d) { return tovDither16Color(d); }, Q17},
};

TEST(Dither, MatchesReference) {
    std::mt19937 rng(17);
    std::vector<std::pair<LONG, LONG>> sizes;
    for (LONG w : {1, 2, 3, 4, 5, 8, 17, 33})
        for (LONG h : {1, 2, 3, 6}) sizes.push_back({w, h});
    sizes.push_back({640, 12});
    sizes.push_back({101, 77});
    for (const Variant& v : kVariants)
        for (auto [w, h] : sizes)
            for (int mode = 0; mode < 3; ++mode) {
                DibGuard g(RandomDib(rng, w, h, 8));
                if (mode > 0)  // smooth areas and extremes push errors past 0..255
                    for (LONG y = 0; y < h; ++y)
                        for (LONG x = 0; x < w; ++x)
                            g.d->ppRow[y][x] =
                                mode == 1 ? (BYTE)(120 + (x + y) % 16) : ((rng() % 5) ? 250 : 3);
                const std::vector<BYTE> before = Bytes(g.d);
                const std::vector<BYTE> colours((BYTE*)g.d->pbmiColors,
                                                (BYTE*)g.d->pbmiColors + 1024);
                const Pic want = RefDither(Read(g.d), v.quant);
                ASSERT_EQ(v.op(g.d), 0u);
                DibGuard exp(tovCreateCopyHDIB(g.d));
                memcpy(DibBitsPtr(exp.d), before.data(), before.size());
                FillPic(exp.d, want);
                ASSERT_EQ(Bytes(g.d), Bytes(exp.d)) << v.name << " " << w << "x" << h;
                EXPECT_EQ(std::vector<BYTE>((BYTE*)g.d->pbmiColors, (BYTE*)g.d->pbmiColors + 1024),
                          colours);
            }
}

TEST(Dither, KnownValues) {
    struct Case {
        DWORD (*op)(HDIB);
        BYTE in, out;
    };
    const Case single[] = {
        {tovDither2Color, 127, 0},   {tovDither2Color, 128, 255}, {tovDither16Color, 247, 240},
        {tovDither16Color, 248, 255}, {tovDither16Color, 7, 0},   {tovDither16Color, 8, 16},
    };
    for (const Case& c : single) {
        DibGuard g(UniformDib(1, 1, c.in));
        ASSERT_EQ(c.op(g.d), 0u);
        EXPECT_EQ(g.d->ppRow[0][0], c.out) << (int)c.in;
    }
    for (int level = 0; level < 256; level += 16) {  // levels pass unchanged
        DibGuard g(UniformDib(9, 5, (BYTE)level));
        ASSERT_EQ(tovDither16Color(g.d), 0u);
        for (LONG y = 0; y < 5; ++y)
            for (LONG x = 0; x < 9; ++x) ASSERT_EQ(g.d->ppRow[y][x], level);
    }
    {  // grey 128, row 0: the scan starts at width-2 with an error of -127
        DibGuard g(UniformDib(6, 1, 128));
        ASSERT_EQ(tovDither2Color(g.d), 0u);
        // x=4: 255, e=-127, x=3 gets 128-55=73 -> 0, e=73 ...
        EXPECT_EQ(g.d->ppRow[0][4], 255);
        EXPECT_EQ(g.d->ppRow[0][3], 0);
        EXPECT_EQ(g.d->ppRow[0][5], 255);  // not scanned, quantised alone
    }
}

TEST(Dither, RefusedBitmaps) {
    std::vector<BYTE> block(40 + 5 * 4, 0);
    BITMAPINFO* info = (BITMAPINFO*)block.data();
    info->bmiHeader.biSize = 40;
    info->bmiHeader.biWidth = 4;
    info->bmiHeader.biHeight = 3;
    info->bmiHeader.biPlanes = 1;
    info->bmiHeader.biBitCount = 8;
    info->bmiHeader.biClrUsed = 5;
    DibGuard five(DibCreateFromBitmapInfo(info));
    ASSERT_NE(five.d, nullptr);
    DibGuard four(tovCreateHDIBExt(4, 3, 9, 4));
    tovtest::ScratchDir dir;
    tovtest::StartLog(8);
    EXPECT_EQ(tovDither2Color(five.d), 5u);
    EXPECT_EQ(tovDither16Color(four.d), 5u);
    EXPECT_EQ(tovDither2Color(nullptr), 5u);
    tovtest::StopLog();
    const std::string h5 = std::to_string((long long)(intptr_t)five.d);
    const std::string h4 = std::to_string((long long)(intptr_t)four.d);
    const std::vector<std::string> want = {
        ">tovDither2Color(" + h5 + ")\r",
        ">DibDither2Color(" + h5 + ")\r",
        "   !DibDither2Color():DibErrorInvalidParm\r",
        "<tovDither2Color()=5 (error)\r",
        ">tovDither16Color(" + h4 + ")\r",
        ">DibDither16Color(" + h4 + ")\r",
        "   !DibDither16Color():DibErrorInvalidParm\r",
        "<tovDither16Color()=5 (error)\r",
        ">tovDither2Color(0)\r",
        ">DibDither2Color(0)\r",
        "   !DibIsValid():pdib == NULL:Error\r",
        "<tovDither2Color()=5 (error)\r",
    };
    EXPECT_EQ(tovtest::LogLines(), want);
}

TEST(Dither, AllocationFailure) {
    std::mt19937 rng(2);
    for (const Variant& v : kVariants) {
        DibGuard g(RandomDib(rng, 21, 7, 8));
        const std::vector<BYTE> before = Bytes(g.d);
        DibGuard ok(tovCreateCopyHDIB(g.d));
        ASSERT_EQ(v.op(ok.d), 0u);
        const std::vector<BYTE> want = Bytes(ok.d);
        std::vector<DWORD> codes;
        for (long n = 1; n < 100; ++n) {
            memcpy(DibBitsPtr(g.d), before.data(), before.size());
            const long live = PlatLiveObjects();
            const long count = PlatAllocationCount();
            PlatFailAllocation(n);
            const DWORD r = v.op(g.d);
            const long used = PlatAllocationCount() - count;
            PlatFailAllocation(0);
            EXPECT_EQ(PlatLiveObjects(), live) << v.name << " allocation " << n;
            if (used < n) {
                EXPECT_EQ(r, 0u);
                EXPECT_EQ(Bytes(g.d), want);
                break;
            }
            codes.push_back(r);
            EXPECT_EQ(Bytes(g.d), before) << v.name << " allocation " << n;
        }
        // The copy's sites give 6, the two tables 1.
        ASSERT_GE(codes.size(), 3u);
        EXPECT_EQ(codes[codes.size() - 1], 1u);
        EXPECT_EQ(codes[codes.size() - 2], 1u);
        for (size_t i = 0; i + 2 < codes.size(); ++i) EXPECT_EQ(codes[i], 6u);
    }
}

}  // namespace
