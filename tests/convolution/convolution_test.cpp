// The convolution family against a plain reference: the working copy with
// its mirrored borders, the tap-by-tap sum in wrapping 32-bit arithmetic,
// the truncating division, bias and decision.
#include <climits>

#include "opstest.h"

using namespace opstest;

namespace {

// The working copy, step by step; false when a border would take a value
// from outside the picture or from a cell not yet filled.
bool RefCopy(const Pic& src, LONG my, LONG mx, Pic& c) {
    c = Pic{src.w + 2 * mx, src.h + 2 * my, std::vector<int>(size_t(src.w + 2 * mx) * (src.h + 2 * my), -1)};
    auto from = [&](LONG x, LONG y, int& out) {
        const bool inside = x >= 0 && y >= 0 && x < src.w && y < src.h;
        if (inside) out = src.at(x, y);
        return inside;
    };
    for (LONG y = 0; y < src.h; ++y)
        for (LONG x = 0; x < src.w; ++x) c.at(mx + x, my + y) = src.at(x, y);
    for (LONG i = 0; i < my; ++i)
        for (LONG x = 0; x < src.w; ++x)
            if (!from(x, my - i, c.at(mx + x, i)) || !from(x, src.h - my - 1 + i, c.at(mx + x, c.h - 1 - i)))
                return false;
    for (LONG y = 0; y < c.h; ++y)
        for (LONG i = 0; i < mx; ++i) {
            if (2 * mx - i >= c.w || c.at(2 * mx - i, y) < 0) return false;
            c.at(i, y) = c.at(2 * mx - i, y);
            if (src.w - 1 - i < 0 || c.at(src.w - 1 - i, y) < 0) return false;
            c.at(c.w - 1 - i, y) = c.at(src.w - 1 - i, y);
        }
    return true;
}

// The engine on a picture; the code the library gives.
DWORD RefEngine(Pic& pic, const std::vector<LONG>& k, LONG rows, LONG cols, LONG divisor, LONG bias, LONG threshold) {
    if (divisor == 0) return 5;
    Pic c;
    if (rows < 0 || cols < 0 || rows / 2 >= pic.h || cols / 2 >= pic.w || !RefCopy(pic, rows / 2, cols / 2, c))
        return 7;
    for (LONG y = 0; y < pic.h; ++y)
        for (LONG x = 0; x < pic.w; ++x) {
            uint32_t sum = 0;
            for (LONG ky = 0; ky < rows; ++ky)
                for (LONG kx = 0; kx < cols; ++kx)
                    sum += uint32_t(k[size_t(ky) * cols + kx]) * uint32_t(c.at(x + kx, y + ky));
            const int32_t s = int32_t(uint32_t(bias) + uint32_t(int64_t(int32_t(sum)) / divisor));
            pic.at(x, y) = threshold ? (s < threshold ? 0 : 255) : (s > 255 ? 255 : s < 0 ? 0 : s);
        }
    return 0;
}

std::vector<LONG> Sharpen(LONG level) {
    std::vector<LONG> k(9, -1);
    k[4] = level;
    return k;
}

std::vector<LONG> Infinity() {
    const LONG q[5][5] = {{-1, -5, -19, -38, -48}, {-5, -24, -35, -12, 10}, {-19, -35, -3, 1, -25},
                          {-38, -12, 1, 94, 239}, {-48, 10, -25, 239, 419}};
    std::vector<LONG> k(81);
    for (int i = 0; i < 81; ++i) k[i] = q[std::min(i / 9, 8 - i / 9)][std::min(i % 9, 8 - i % 9)];
    return k;
}

std::vector<LONG> ThresholdRing() {
    std::vector<LONG> k(25, 0);
    for (int i = 0; i < 25; ++i) k[i] = (i / 5 % 4 == 0 || i % 5 % 4 == 0) ? -1 : i == 12 ? 16 : 0;
    return k;
}

// Runs op on a random 8-bit bitmap (or one of 0 and 255 only) and compares
// the code and every byte, padding included, with the reference's.
template <class Op>
void Check(uint32_t seed, LONG w, LONG h, const std::vector<LONG>& k, LONG rows, LONG cols, LONG divisor,
           LONG bias, LONG threshold, Op op, bool extreme = false) {
    Dib g = Random(w, h, 8, seed);
    for (LONG y = 0; extreme && y < h; ++y)
        for (LONG x = 0; x < w; ++x) g.h->ppRow[y][x] = (x * 7 + y + seed) % 3 ? 0 : 255;
    Pic pic = Read(g);
    const Bytes before = Store(g);
    const DWORD want = RefEngine(pic, k, rows, cols, divisor, bias, threshold);
    const Bytes after = want ? before : WithPixels(g, pic);
    SCOPED_TRACE(testing::Message() << w << "x" << h << " kernel " << rows << "x" << cols << " divisor " << divisor
                                    << " bias " << bias << " threshold " << threshold);
    ASSERT_EQ(op(g.h), want);
    ASSERT_EQ(Store(g), after);
}

TEST(Convolution, BuiltInFiltersMatchReference) {
    const std::vector<LONG> avg(9, 1), inf = Infinity(), ring = ThresholdRing();
    std::vector<std::pair<LONG, LONG>> sizes = {{97, 61}, {640, 48}};
    for (LONG w : {1, 2, 3, 4, 5, 7, 8, 9, 10, 17, 31, 32, 33})
        for (LONG h : {1, 2, 3, 4, 5, 9}) sizes.push_back({w, h});
    uint32_t seed = 11;
    for (auto [w, h] : sizes) {
        Check(seed++, w, h, avg, 3, 3, 9, 0, 0, tovAverage);
        for (LONG level : {9, 10, 17, 32})
            Check(seed++, w, h, Sharpen(level), 3, 3, level - 8, 0, 0, [level](HDIB d) { return tovSharpen(d, level); });
        Check(seed++, w, h, inf, 9, 9, 512, 0, 0, tovInfinityFilter);
        for (DWORD t : {0u, 1u, 128u, 255u})
            Check(seed++, w, h, ring, 5, 5, 1, 128, LONG(t), [t](HDIB d) { return tovThreshold(d, t); });
    }
}

// Caller kernels of every shape: even, odd and empty sizes, mirror-symmetric
// ones (folded by the fast path), weights whose sums overflow or pass 2^24
// (where the float division stops), divisors of each form, both thresholds.
// Every third picture has rows of 32 pixels and more, which reach the vector
// blocks (32 or 64 pixels) that finish sums fitting 16 bits: small weights,
// bias and threshold around the 16-bit limits.
TEST(Convolution, CallerKernelsMatchReference) {
    std::mt19937 rng(23);
    const LONG wide[] = {32, 33, 63, 64, 65, 97, 128, 129, 640};
    const LONG divisors[] = {1, -1, 2, -4, 512, 3, -7, 9, 24, 1000, 32767, -32768, 40000, 1 << 30, INT_MIN, INT_MAX, 0x12345678};
    const LONG biases[] = {0, 128, -300, 77, 32767, -32768, 32768, -32769, INT_MAX - 32767, INT_MIN + 32767, INT_MAX, INT_MIN};
    const LONG thresholds[] = {0, 0, 0, 0, 1, 128, 255, -5, 1000, 40000, -40000, INT_MIN, INT_MAX};
    for (int round = 0; round < 1300 && !HasFatalFailure(); ++round) {
        const bool vector = round % 3 == 0;
        const LONG w = vector ? wide[rng() % std::size(wide)] : LONG(1 + rng() % 24), h = LONG(1 + rng() % (vector ? 5 : 14));
        const LONG rows = LONG(rng() % 8), cols = vector ? rows | 1 : LONG(rng() % 8);
        // 1, 3: large; 4, 5: medium; 2, 3, 5: symmetric; 6: small and not negative
        const int mode = vector && rng() % 2 ? (rng() % 2 ? 6 : 2) : int(rng() % 6);
        std::vector<LONG> k(size_t(rows) * cols + 1);
        for (LONG& v : k) {
            v = mode == 1 || mode == 3 ? (rng() % 3 ? LONG(rng()) : LONG(rng() % 2001) - 1000)
                : mode == 4 || mode == 5 ? LONG(rng() % 14601) - 7300
                : mode == 6            ? LONG(rng() % 10)
                                       : LONG(rng() % 9) - 4;
        }
        if (mode == 2 || mode == 3 || mode == 5)
            for (LONG y = 0; y < rows; ++y)
                for (LONG x = 0; x < cols; ++x)
                    k[size_t(y) * cols + x] = k[size_t(std::min(y, rows - 1 - y)) * cols + std::min(x, cols - 1 - x)];
        const LONG divisor = divisors[rng() % std::size(divisors)], bias = biases[rng() % std::size(biases)];
        const LONG threshold = thresholds[rng() % std::size(thresholds)];
        const bool extreme = rng() % 4 == 0;
        if (threshold == 0 && rng() % 2)
            Check(rng(), w, h, k, rows, cols, divisor, bias, 0,
                  [&](HDIB d) { return tovConvolutionFilter(d, k.data(), rows, cols, divisor, bias); }, extreme);
        else
            Check(rng(), w, h, k, rows, cols, divisor, bias, threshold, [&](HDIB d) {
                return DibConvolutionFilterThreshhold(d, k.data(), rows, cols, divisor, bias, threshold);
            }, extreme);
    }
}

// Values worked out by hand, which hold the reference to the rules too.
TEST(Convolution, KnownValues) {
    Dib inf = Uniform(13, 11, 100);  // 523/512 of a uniform grey, edges included
    ASSERT_EQ(tovInfinityFilter(inf), 0u);
    EXPECT_EQ(Read(inf).v, std::vector<int>(13 * 11, 102));
    Dib avg = Uniform(8, 10, 0);  // a lone 255 in column 1: column 0 sees it twice
    avg.h->ppRow[5][1] = 255;
    ASSERT_EQ(tovAverage(avg), 0u);
    for (LONG y = 3; y <= 7; ++y) {
        const std::vector<int> want = y == 3 || y == 7 ? std::vector<int>{0, 0, 0, 0} : std::vector<int>{56, 28, 28, 0};
        EXPECT_EQ(std::vector<int>(avg.h->ppRow[y], avg.h->ppRow[y] + 4), want) << y;
    }
}

// Every refusal leaves the picture as it was.
TEST(Convolution, Refusals) {
    const LONG k9[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    Dib g = Random(7, 4, 8, 5);
    const Bytes before = Store(g);
    tovtest::GuardedPage page;  // a kernel whose last entry lies just before an unreadable page
    const LONG* edge = reinterpret_cast<const LONG*>(page.End()) - 8;
    const struct { const char* what; DWORD want, got; } cases[] = {
        {"divisor 0", 5, tovConvolutionFilter(g, k9, 3, 3, 0, 0)},
        {"null kernel", 7, tovConvolutionFilter(g, nullptr, 3, 3, 1, 0)},
        {"kernel past readable memory", 7, tovConvolutionFilter(g, edge, 3, 3, 1, 0)},
        {"negative rows", 7, tovConvolutionFilter(g, k9, -3, 3, 1, 0)},
        {"huge kernel", 7, tovConvolutionFilter(g, k9, 0x40000000, 0x40000000, 1, 0)},
        {"huge rows, no cols", 7, tovConvolutionFilter(g, k9, INT_MAX, 0, 1, 0)},
        {"infinity on 4 rows", 7, tovInfinityFilter(g)},
        {"sharpen 8", 7, tovSharpen(g, 8)},
        {"sharpen 33", 7, tovSharpen(g, 33)},
        {"threshold 256", 7, tovThreshold(g, 256)},
        {"last readable entry", 0, tovConvolutionFilter(Uniform(3, 3, 1), edge + 7, 1, 1, 1, 0)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.got, c.want) << c.what;
        EXPECT_EQ(Store(g), before) << c.what;
    }
}

}  // namespace
