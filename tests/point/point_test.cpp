// Point operations, the histogram and its stretch against plain references
// pixel by pixel through the bitmap's own routines, telling values and
// extreme arguments. The cpu runs repeat them on each way of the table lookup
// and the stretch's counts.
#include "opstest.h"

#include <tovrel/tovrel.h>

#include "dibkernels.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <iterator>

using namespace opstest;

namespace {

template <class F>
void RefMap(HDIB h, F f) {
    DibPixelIO io = IO(h);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) io.set(h, x, y, f(int64_t(io.get(h, x, y))));
}

DWORD Clamp(int64_t v, DWORD colors) { return DWORD(v < 0 ? 0 : v >= colors ? colors - 1 : v); }

// Gain in 16.16, worked out in single precision as the device does.
LONG RefGain(LONG contrast) { return LONG(float(contrast + 255) * 0.003921569f * 65536.0f); }

void RefStretch(HDIB h, LONG low, LONG high, DWORD mode) {
    DWORD black = DWORD(low), white = DWORD(high);
    if (mode == 1) {
        DWORD hist[256] = {};
        RefMap(h, [&](int64_t v) { return ++hist[v], DWORD(v); });
        const double pixels = double(DWORD(DibWidth(h)) * DWORD(DibHeight(h)));
        const int64_t dark = int64_t(low * 0.01 * pixels), light = int64_t(high * 0.01 * pixels);
        int64_t sum = 0;
        for (black = 0; black < 255 && (sum += hist[black]) <= dark;) ++black;
        for (sum = 0, white = 255; white > 0 && (sum += hist[white]) <= light;) --white;
    }
    const DWORD range = white - black;
    RefMap(h, [&](int64_t p) -> DWORD {
        if (range == 0) return p > black ? 255 : p < black ? 0 : DWORD(p);
        return Clamp(int64_t(DWORD(p) * 255 / range) - int64_t(black * 255 / range), 256);
    });
}

}  // namespace

// Every depth, colour counts below and above the depth's own (the clamp is
// to the count, not the depth), and for the 8-bit operations also pictures
// of three values (narrow histograms, range 0): the whole store equals the
// reference's. The fixed stretch equals mode 1 with 2 and 2.
TEST(PointOperations, MatchReference) {
    struct Case { Op op; std::function<void(HDIB)> ref; bool eightOnly; };
    std::vector<Case> cases = {{DibInvert, [](HDIB h) { RefMap(h, [&](int64_t v) { return DWORD(DibNumColors(h) - v - 1); }); }, false},
                               {tovHistogramStretch, [](HDIB h) { RefStretch(h, 2, 2, 1); }, true}};
    for (LONG b : {-255, -1, 7, 255})
        cases.push_back({OP(DibBrightness(h, b)), [b](HDIB h) { RefMap(h, [&](int64_t v) { return Clamp(v + b, DibNumColors(h)); }); }, false});
    for (LONG c : {-255, -128, -1, 0, 64, 255})
        for (LONG off : {-(c / 2), LONG(-300), LONG(300)})
            cases.push_back({OP(DibContrast(h, c, off)), [=](HDIB h) {
                                 RefMap(h, [&](int64_t v) { return Clamp(off + ((v * RefGain(c)) >> 16), DibNumColors(h)); });
                             }, false});
    for (double g : {0.1, 0.5, 1.0, 1.7, 10.0})
        cases.push_back({OP(DibGammaCorrection(h, g)), [g](HDIB h) {
                             const double k = std::pow(255.0, 1.0 - g);
                             RefMap(h, [&](int64_t x) {
                                 return x == 0 || g == 1.0 ? DWORD(x) : std::min(255u, DWORD(std::pow(double(x), g) * k + 0.5));
                             });
                         }, true});
    for (const auto& s : {std::array<LONG, 3>{0, 255, 0}, {50, 200, 0}, {77, 77, 0}, {200, 201, 0}, {0, 0, 1},
                          {10, 40, 1}, {30, 30, 1}, {0, 100, 1}, {45, 90, 1}})
        cases.push_back({OP(DibHistogramStretchEx(h, s[0], s[1], DWORD(s[2]))),
                         [s](HDIB h) { RefStretch(h, s[0], s[1], DWORD(s[2])); }, true});
    const std::pair<DWORD, DWORD> shapes[] = {{1, 0}, {4, 0}, {8, 0}, {8, 5}, {8, 300}, {4, 10}, {4, 256}, {1, 16}};
    uint32_t seed = 1;
    for (const Case& c : cases)
        for (auto [bits, colors] : shapes)
            for (LONG w : tovtest::kWidths)
                for (LONG h : kHeights)
                    for (bool narrow : {false, true}) {
                        if ((c.eightOnly && bits != 8) || (narrow && (bits != 8 || colors))) continue;
                        Dib a = Random(w, h, bits, seed, colors), b = Random(w, h, bits, seed++, colors);
                        if (narrow) FillFrom(a, {40, 41, 200}, seed), FillFrom(b, {40, 41, 200}, seed);
                        ASSERT_EQ(c.op(a), DWORD(DibOk));
                        c.ref(b);
                        ASSERT_EQ(Store(a), Store(b)) << bits << " bits, " << colors << " colours, " << w << "x" << h;
                    }
}

// From 16384 pixels the stretch finds its points from a sample of rows and
// exact counts near them: pictures whose points a sample misjudges (a narrow
// band, one dominant level, heavy extremes, a single level) and cut-offs at
// and between the ends must still give the full histogram's answer.
TEST(HistogramStretch, LargePicturesMatchReference) {
    std::mt19937 rng(41);
    std::vector<std::array<LONG, 2>> cuts = {{0, 0}, {100, 100}, {2, 2}, {7, 7}, {0, 100}, {49, 51}};
    for (int i = 0; i < 4; ++i) {
        const LONG a = LONG(rng() % 101), b = LONG(rng() % 101);
        cuts.push_back({std::min(a, b), std::max(a, b)});
    }
    const std::function<BYTE(unsigned, BYTE)> shapes[] = {
        [](unsigned, BYTE p) { return p; },                                   // uniform
        [](unsigned r, BYTE) { return BYTE(120 + r % 6); },                   // a narrow band
        [](unsigned r, BYTE) { return BYTE(r % 20 ? 90 : r >> 8); },          // 95% one level
        [](unsigned r, BYTE) { return BYTE(r % 64 + (r >> 8) % 64 + (r >> 16) % 64 + (r >> 24) % 64); },
        [](unsigned r, BYTE) { return BYTE(r % 3 == 0 ? 0 : r % 3 == 1 ? 255 : r >> 8); },
        [](unsigned, BYTE) { return BYTE(17); }};                             // a single level
    for (auto [w, h] : {std::pair<LONG, LONG>{640, 48}, {4096, 5}, {3, 6000}, {200, 100}})
        for (const auto& shape : shapes)
            for (const auto& c : cuts) {
                Dib a = Random(w, h, 8, rng());
                for (LONG y = 0; y < h; ++y)
                    for (LONG x = 0; x < w; ++x) a.h->ppRow[y][x] = shape(rng(), a.h->ppRow[y][x]);
                Dib b = Copy(a);
                ASSERT_EQ(DibHistogramStretchEx(a, c[0], c[1], 1), DWORD(DibOk));
                RefStretch(b, c[0], c[1], 1);
                ASSERT_EQ(Store(a), Store(b)) << w << "x" << h << " shape " << (&shape - shapes) << " cut " << c[0] << "," << c[1];
            }
}

// Values worked out by hand: they hold the reference to the rules too
// (the last two: a uniform picture has no range, and crossed cut-offs).
TEST(PointOperations, TellingValues) {
    const struct { Op op; BYTE in, out; } rows[] = {
        {OP(tovContrast(h, -1)), 255, 254}, {OP(tovContrast(h, 255)), 64, 1}, {OP(tovContrast(h, 255)), 128, 129},
        {OP(tovContrast(h, -255)), 0, 127}, {OP(tovContrast(h, -255)), 255, 127},
        {OP(tovGammaCorrection(h, 2.0)), 128, 64}, {OP(tovGammaCorrection(h, 0.5)), 1, 16},
        {OP(tovGammaCorrection(h, 10.0)), 192, 15}, {OP(tovHistogramStretchEx(h, 50, 200, 0)), 49, 0},
        {OP(tovHistogramStretchEx(h, 50, 200, 0)), 125, 127}, {OP(tovHistogramStretchEx(h, 50, 200, 0)), 201, 255},
        {tovHistogramStretch, 77, 77}, {OP(tovHistogramStretchEx(h, 100, 100, 1)), 200, 0}};
    for (const auto& r : rows) {
        Dib d = Uniform(3, 2, r.in);
        ASSERT_EQ(r.op(d), DWORD(tovOk));
        EXPECT_EQ(d.h->ppRow[1][2], r.out) << int(r.in) << " -> " << int(r.out);
    }
}

// Widths round the counting kernel's blocks as well; counts are added to,
// not cleared. The points at and either side of each count that settles
// them; levels 0 and 255 are each read by one search only.
TEST(Histogram, CountsPixelsAndFindsPoints) {
    uint32_t seed = 11;
    for (LONG w : {1, 7, 8, 9, 31, 32, 33, 63, 64, 65, 1000})
        for (LONG h : kHeights) {
            Dib d = Random(w, h, 8, seed++);
            DWORD got[256] = {}, want[256] = {};
            got[3] = want[3] = 10;
            for (LONG y = 0; y < h; ++y)
                for (LONG x = 0; x < w; ++x) ++want[d.h->ppRow[y][x]];
            ASSERT_EQ(DibHistogram(d, got), DWORD(DibOk));
            ASSERT_TRUE(std::equal(got, got + 256, want)) << w << "x" << h;
        }
    DWORD c[256] = {};
    c[0] = c[255] = 100;
    c[10] = c[20] = 5;
    c[200] = 3;
    const struct { LONG count; DWORD black, white; } points[] = {
        {-1, 0, 255}, {0, 0, 255}, {99, 0, 255}, {100, 10, 200}, {104, 10, 20},
        {105, 20, 20}, {109, 20, 10}, {110, 200, 10}, {112, 200, 10}, {113, 255, 0}};
    for (const auto& p : points) {
        EXPECT_EQ(DibHistogramBlackValue(c, p.count), p.black) << p.count;
        EXPECT_EQ(DibHistogramWhiteValue(c, p.count), p.white) << p.count;
    }
}

// The bitmap layer has no ranges of its own: extreme values clamp as the
// arithmetic says, without overflow (the sanitizer build watches this).
TEST(PointOperations, ExtremeArguments) {
    static constexpr LONG kMin = LONG(0x80000000), kMax = 0x7FFFFFFF;
    const struct { Op op; int want; } steps[] = {  // -1: the top value; the last on pixels of 1: the largest gain
        {OP(DibBrightness(h, kMax)), -1}, {OP(DibBrightness(h, kMin)), 0}, {OP(DibContrast(h, 0, kMax)), -1},
        {OP(DibContrast(h, kMin, 0)), 0}, {OP(DibBrightness(h, 1)), 1}, {OP(DibContrast(h, kMax, kMin + 1)), 0}};
    for (DWORD bits : kDepths) {
        Dib d = Random(11, 5, bits, 70 + bits);
        for (const auto& s : steps) {
            ASSERT_EQ(s.op(d), DWORD(DibOk));
            const int want = s.want < 0 ? int(1u << bits) - 1 : s.want;
            for (int v : Read(d).v) ASSERT_EQ(v, want) << bits << " bits, step " << (&s - steps);
        }
    }
    Dib g = Random(9, 3, 8, 1);
    for (double gamma : {-3.0, 0.0, 1e-300, 1e300, std::nan(""), double(INFINITY)})
        ASSERT_EQ(DibGammaCorrection(g, gamma), DWORD(DibOk)) << gamma;
    DWORD counters[256] = {};
    counters[7] = counters[9] = 0xFFFFFFFF;
    EXPECT_EQ(DibHistogramBlackValue(counters, kMax), 7u);
    EXPECT_EQ(DibHistogramWhiteValue(counters, kMax), 9u);
    EXPECT_EQ(DibHistogramWhiteValue(counters, kMin), 255u);  // 0 at level 255 already exceeds it
}

// The cpu runs are only worth their time if TOVREL_CPU and the setter really
// move the choice: the processor's own features, capped by the ceiling.
TEST(Processor, ChoiceFollowsTheEnvironmentAndTheSetter) {
    const char* env = std::getenv("TOVREL_CPU");
    const std::string ceiling = env ? env : "";
    const bool avx2 = ceiling != "portable" && __builtin_cpu_supports("avx2");
    EXPECT_TRUE(DibCpuHas(DIB_CPU_PORTABLE));
    EXPECT_EQ(bool(DibCpuHas(DIB_CPU_AVX2)), avx2);
    if (ceiling == "portable" || ceiling == "avx2") {
        EXPECT_FALSE(DibCpuHas(DIB_CPU_AVX512));
    }
    DibCpuSetCeiling(DIB_CPU_PORTABLE);
    EXPECT_FALSE(DibCpuHas(DIB_CPU_AVX2));
    DibCpuSetCeiling(-1);  // back to the environment's choice
    EXPECT_EQ(bool(DibCpuHas(DIB_CPU_AVX2)), avx2);
}
