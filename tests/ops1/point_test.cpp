// Point operations against the reference, the table kernel's two paths, and
// the telling values of contrast and gamma.
#include "dibkernels.h"
#include "ops1test.h"

#include <tovrel/tovrel.h>

#include <functional>
#include <string>

using namespace ops1test;

namespace {

struct PointCase {
    const char* name;
    std::function<DWORD(HDIB)> op;
    std::function<void(HDIB)> ref;
    bool eightBitOnly;
};

std::vector<PointCase> PointCases() {
    std::vector<PointCase> cases;
    for (LONG b : {-255, -100, -1, 0, 1, 7, 200, 255})
        cases.push_back({"brightness", [b](HDIB h) { return DibBrightness(h, b); },
                         [b](HDIB h) { RefBrightness(h, b); }, false});
    for (LONG c : {-255, -128, -1, 0, 1, 64, 128, 255})
        cases.push_back({"contrast", [c](HDIB h) { return DibContrast(h, c, -(c / 2)); },
                         [c](HDIB h) { RefContrast(h, c, -(c / 2)); }, false});
    // The offset is free when the function is called directly.
    for (LONG off : {-300, -7, 9, 300})
        cases.push_back({"contrast offset", [off](HDIB h) { return DibContrast(h, 100, off); },
                         [off](HDIB h) { RefContrast(h, 100, off); }, false});
    cases.push_back({"invert", [](HDIB h) { return DibInvert(h); }, [](HDIB h) { RefInvert(h); }, false});
    for (double g : {0.1, 0.5, 0.9, 1.0, 1.7, 2.0, 10.0})
        cases.push_back({"gamma", [g](HDIB h) { return DibGammaCorrection(h, g); },
                         [g](HDIB h) { RefGamma(h, g); }, true});
    return cases;
}

}  // namespace

// Every depth, sizes 1 to 70 with odd widths, and colour counts below and
// above the depth's own: bytes of the whole store (padding included) equal
// the reference's.
TEST(PointOperations, MatchReferenceOnRandomBitmaps) {
    struct Shape { DWORD bits; DWORD colors; };
    const Shape shapes[] = {{1, 0}, {4, 0}, {8, 0}, {8, 5}, {8, 300}, {4, 10}, {4, 256}, {1, 16}};
    uint32_t seed = 1;
    for (const PointCase& c : PointCases()) {
        for (const Shape& s : shapes) {
            if (c.eightBitOnly && s.bits != 8) continue;
            for (LONG w : kSizes) {
                for (LONG h : {1, 2, 3, 5}) {
                    // Twins rather than a copy: a copy cannot carry an
                    // oversized colour count.
                    Dib a = MakeRandom(w, h, s.bits, seed, s.colors);
                    Dib b = MakeRandom(w, h, s.bits, seed++, s.colors);
                    ASSERT_TRUE(a.h && b.h);
                    ASSERT_EQ(c.op(a), DWORD(DibOk)) << c.name;
                    c.ref(b);
                    ASSERT_EQ(Bytes(a), Bytes(b)) << c.name << " bits " << s.bits << " colors " << s.colors
                                                  << " " << w << "x" << h;
                }
            }
        }
    }
}

TEST(PointOperations, ContrastGainInSinglePrecision) {
    const std::pair<LONG, LONG> gains[] = {{-255, 0}, {0, 65536}, {255, 131072}, {128, 98432}, {-1, 65279}};
    for (auto [contrast, gain] : gains) EXPECT_EQ(RefContrastAdj(contrast), gain) << contrast;
    // Pixel values of the telling cases, through the export.
    struct Row { LONG contrast; BYTE in, out; };
    const Row rows[] = {{-1, 255, 254}, {255, 64, 1}, {255, 128, 129}, {255, 192, 255},
                        {-255, 0, 127}, {-255, 255, 127}, {0, 77, 77}};
    for (const Row& r : rows) {
        Dib d = MakeRandom(3, 2, 8, 7);
        for (LONG y = 0; y < 2; ++y) std::memset(d.h->ppRow[y], r.in, 3);
        ASSERT_EQ(tovContrast(d, r.contrast), DWORD(tovOk));
        EXPECT_EQ(d.h->ppRow[1][2], r.out) << r.contrast << " " << int(r.in);
    }
    // A 1-bit bitmap at -255: everything is clamped to 1.
    Dib one = MakeRandom(9, 3, 1, 3);
    ASSERT_EQ(tovContrast(one, -255), DWORD(tovOk));
    for (LONG x = 0; x < 9; ++x) EXPECT_EQ(DibGetPixel1(one, x, 1), 1u);
}

TEST(PointOperations, GammaTableValues) {
    struct Row { double gamma; int x; BYTE value; };
    const Row rows[] = {{2.0, 128, 64}, {0.5, 128, 181}, {0.5, 1, 16}, {10.0, 192, 15}};
    for (const Row& r : rows) {
        Dib d = MakeRandom(1, 1, 8, 1);
        d.h->ppRow[0][0] = BYTE(r.x);
        ASSERT_EQ(tovGammaCorrection(d, r.gamma), DWORD(tovOk));
        EXPECT_EQ(d.h->ppRow[0][0], r.value) << r.gamma;
    }
    for (double g : {0.1, 0.37, 3.3, 10.0}) {
        std::vector<BYTE> t = RefGammaTable(g);
        EXPECT_EQ(t[0], 0);
        EXPECT_EQ(t[255], 255) << g;
    }
}

TEST(PointOperations, BrightnessExtremesAndOneBit) {
    Dib d = MakeRandom(33, 4, 8, 9);
    ASSERT_EQ(tovBrightness(d, 255), DWORD(tovOk));
    for (LONG y = 0; y < 4; ++y)
        for (LONG x = 0; x < 33; ++x) ASSERT_EQ(d.h->ppRow[y][x], 255);
    ASSERT_EQ(tovBrightness(d, -255), DWORD(tovOk));
    for (LONG y = 0; y < 4; ++y)
        for (LONG x = 0; x < 33; ++x) ASSERT_EQ(d.h->ppRow[y][x], 0);
    Dib one = MakeRandom(17, 2, 1, 4);
    ASSERT_EQ(DibBrightness(one, 1), DWORD(DibOk));
    for (LONG x = 0; x < 17; ++x) EXPECT_EQ(DibGetPixel1(one, x, 0), 1u);
}

TEST(PointOperations, InvertTwiceRestores) {
    for (DWORD bits : kDepths) {
        Dib d = MakeRandom(31, 5, bits, bits);
        std::vector<BYTE> before = Bytes(d);
        ASSERT_EQ(tovInvert(d), DWORD(tovOk));
        EXPECT_NE(Bytes(d), before);
        ASSERT_EQ(tovInvert(d), DWORD(tovOk));
        EXPECT_EQ(Bytes(d), before) << bits;
    }
}

// Every way of the table kernel this processor has, at every length round
// the vector widths and at unaligned starts; the bytes past the end stay.
TEST(TableKernel, EveryWayMatchesPlainLookup) {
    std::mt19937 rng(5);
    BYTE table[256];
    int ways = 0;
    for (int way = 0; way < DIB_TABLE_WAYS; ++way) {
        std::vector<BYTE> probe(1);
        if (!DibTableRow8With(way, table, probe.data(), 0)) continue;
        ++ways;
        for (int round = 0; round < 3; ++round) {
            for (BYTE& t : table) t = BYTE(rng());
            for (size_t n = 0; n <= 200; ++n) {
                for (size_t start : {0, 1, 7}) {
                    std::vector<BYTE> row(start + n + 70);
                    for (BYTE& b : row) b = BYTE(rng());
                    std::vector<BYTE> want = row, got = row;
                    for (size_t i = 0; i < n; ++i) want[start + i] = table[want[start + i]];
                    ASSERT_TRUE(DibTableRow8With(way, table, got.data() + start, n));
                    ASSERT_EQ(got, want) << "way " << way << " n " << n;
                    if (way == 0) {
                        got = row;
                        DibTableRow8(table, got.data() + start, n);
                        ASSERT_EQ(got, want) << "best way, n " << n;
                    }
                }
            }
        }
    }
    EXPECT_GE(ways, 1);
    EXPECT_FALSE(DibTableRow8With(DIB_TABLE_WAYS, table, nullptr, 0));
}
