// Error diffusion against the serpentine scan written out step by step.
#include "opstest.h"

using namespace opstest;

namespace {

int Q2(int v) { return v < 128 ? 0 : 255; }
int Q17(int v) { return std::min(255, (std::clamp(v, 0, 255) + 8) & ~15); }

Pic RefDither(Pic p, int (*quant)(int)) {
    std::vector<int> row(p.w), carried(p.w, 0);
    for (LONG y = 0; y < p.h; ++y) {
        for (LONG x = 0; x < p.w; ++x) row[x] = p.at(x, y) + carried[x];
        std::fill(carried.begin(), carried.end(), 0);
        const LONG dir = y % 2 ? 1 : -1;  // even rows right to left
        for (LONG i = 0; i < p.w - 2; ++i) {
            const LONG x = dir < 0 ? p.w - 2 - i : 1 + i;
            const int q = quant(row[x]), e = row[x] - q;
            row[x] = q;
            row[x + dir] += e * 7 / 16;
            carried[x - dir] += e * 3 / 16;
            carried[x] += e * 5 / 16;
            carried[x + dir] += e / 16;
        }
        for (LONG x = 0; x < p.w; ++x) p.at(x, y) = quant(row[x]);
    }
    return p;
}

struct Variant { DWORD (*op)(HDIB); int (*quant)(int); };
const Variant kVariants[] = {{tovDither2Color, Q2}, {tovDither16Color, Q17}};

// Random, smooth and extreme pictures (errors pushed past 0..255); the
// colour table stays.
TEST(Dither, MatchesReference) {
    std::vector<std::pair<LONG, LONG>> sizes = {{640, 12}, {101, 77}};
    for (LONG w : {1, 2, 3, 4, 5, 8, 9, 17, 31, 32, 33})
        for (LONG h : {1, 2, 3, 6}) sizes.push_back({w, h});
    uint32_t seed = 17;
    for (const Variant& v : kVariants)
        for (auto [w, h] : sizes)
            for (int mode = 0; mode < 3; ++mode) {
                Dib g = Random(w, h, 8, seed++);
                for (LONG y = 0; mode && y < h; ++y)
                    for (LONG x = 0; x < w; ++x)
                        g.h->ppRow[y][x] = mode == 1 ? BYTE(120 + (x + y) % 16) : (x * 5 + y) % 7 ? 250 : 3;
                const Bytes want = WithPixels(g, RefDither(Read(g), v.quant));
                const Bytes colours = Colours(g);
                ASSERT_EQ(v.op(g), 0u);
                ASSERT_EQ(Store(g), want) << w << "x" << h << " mode " << mode;
                EXPECT_EQ(Colours(g), colours);
            }
}

TEST(Dither, KnownValues) {
    const struct { DWORD (*op)(HDIB); BYTE in, out; } single[] = {
        {tovDither2Color, 127, 0},    {tovDither2Color, 128, 255}, {tovDither16Color, 247, 240},
        {tovDither16Color, 248, 255}, {tovDither16Color, 7, 0},    {tovDither16Color, 8, 16},
    };
    for (const auto& c : single) {
        Dib g = Uniform(1, 1, c.in);
        ASSERT_EQ(c.op(g), 0u);
        EXPECT_EQ(g.h->ppRow[0][0], c.out) << int(c.in);
    }
    Dib g = Uniform(6, 1, 128);  // the scan starts at x=4 with an error of -127; x=5 alone
    ASSERT_EQ(tovDither2Color(g), 0u);
    EXPECT_EQ(Read(g).v, (std::vector<int>{255, 0, 255, 0, 255, 255}));
}

}  // namespace
