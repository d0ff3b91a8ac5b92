// The convolution family against a plain reference written after the
// rules: the working copy with its mirrored borders, the tap-by-tap sum in
// wrapping 32-bit arithmetic, the truncating division, bias and decision.
#include <sys/mman.h>
#include <unistd.h>

#include <climits>

#include "ops2_support.h"

using namespace ops2;

namespace {

// The working copy, step by step; false when a border would take a value
// from outside the picture or from a copy cell not yet filled.
bool RefCopy(const Pic& src, LONG newH, LONG newW, Pic& c) {
    const LONG my = (newH - src.h) / 2, mx = (newW - src.w) / 2;
    c.w = newW;
    c.h = newH;
    c.v.assign((size_t)newW * newH, -1);
    auto srcAt = [&](LONG x, LONG y, int& out) {
        if (x < 0 || y < 0 || x >= src.w || y >= src.h) return false;
        out = src.at(x, y);
        return true;
    };
    for (LONG r = 0; r < src.h; ++r)
        for (LONG x = 0; x < src.w; ++x) c.at(mx + x, my + r) = src.at(x, r);
    for (LONG i = 0; i < my; ++i)
        for (LONG x = 0; x < src.w; ++x) {
            if (!srcAt(x, my - i, c.at(mx + x, i))) return false;
            if (!srcAt(x, src.h - my - 1 + i, c.at(mx + x, newH - 1 - i))) return false;
        }
    for (LONG r = 0; r < newH; ++r)
        for (LONG i = 0; i < mx; ++i) {
            if (2 * mx - i >= newW || c.at(2 * mx - i, r) < 0) return false;
            c.at(i, r) = c.at(2 * mx - i, r);
            if (src.w - 1 - i < 0 || c.at(src.w - 1 - i, r) < 0) return false;
            c.at(newW - 1 - i, r) = c.at(src.w - 1 - i, r);
        }
    return true;
}

// The engine on a picture; 7 for a case the library refuses.
DWORD RefEngine(Pic& pic, const std::vector<LONG>& k, LONG rows, LONG cols, LONG divisor,
                LONG bias, LONG threshold) {
    if (divisor == 0) return 5;
    if (rows < 0 || cols < 0) return 7;
    const LONG my = rows / 2, mx = cols / 2;
    Pic c;
    if ((int64_t)my >= pic.h || (int64_t)mx >= pic.w) return 7;
    if (!RefCopy(pic, pic.h + 2 * my, pic.w + 2 * mx, c)) return 7;
    for (LONG y = 0; y < pic.h; ++y)
        for (LONG x = 0; x < pic.w; ++x) {
            uint32_t sum = 0;
            for (LONG ky = 0; ky < rows; ++ky)
                for (LONG kx = 0; kx < cols; ++kx)
                    sum += (uint32_t)k[(size_t)ky * cols + kx] * (uint32_t)c.at(x + kx, y + ky);
            const int64_t q = (int64_t)(int32_t)sum / divisor;  // truncates
            const int32_t s = (int32_t)((uint32_t)bias + (uint32_t)q);
            int out;
            if (threshold != 0)
                out = s < threshold ? 0 : 255;
            else
                out = s > 255 ? 255 : (s < 0 ? 0 : s);
            pic.at(x, y) = out;
        }
    return 0;
}

std::vector<LONG> SharpenKernel(LONG level) {
    std::vector<LONG> k(9, -1);
    k[4] = level;
    return k;
}

std::vector<LONG> InfinityKernel() {
    const LONG q[5][5] = {{-1, -5, -19, -38, -48},
                          {-5, -24, -35, -12, 10},
                          {-19, -35, -3, 1, -25},
                          {-38, -12, 1, 94, 239},
                          {-48, 10, -25, 239, 419}};
    std::vector<LONG> k(81);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 9; ++x) k[y * 9 + x] = q[y < 5 ? y : 8 - y][x < 5 ? x : 8 - x];
    return k;
}

std::vector<LONG> ThresholdKernel() {
    std::vector<LONG> k(25, 0);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x)
            if (y == 0 || y == 4 || x == 0 || x == 4) k[y * 5 + x] = -1;
    k[12] = 16;
    return k;
}

// Runs `op` on a random 8-bit bitmap and compares every byte, row padding
// included, with the reference's result.
template <class Op>
void Check(std::mt19937& rng, LONG w, LONG h, const std::vector<LONG>& k, LONG rows, LONG cols,
           LONG divisor, LONG bias, LONG threshold, Op op, bool extreme = false) {
    DibGuard g(RandomDib(rng, w, h, 8));
    ASSERT_NE(g.d, nullptr);
    if (extreme) {
        for (LONG y = 0; y < h; ++y)
            for (LONG x = 0; x < w; ++x) g.d->ppRow[y][x] = (rng() & 1) ? 255 : 0;
    }
    Pic pic = Read(g.d);
    const std::vector<BYTE> before = Bytes(g.d);
    const DWORD want = RefEngine(pic, k, rows, cols, divisor, bias, threshold);
    const DWORD got = op(g.d);
    ASSERT_EQ(got, want) << w << "x" << h << " kernel " << rows << "x" << cols << " divisor "
                         << divisor << " bias " << bias << " threshold " << threshold;
    if (got != 0) {
        EXPECT_EQ(Bytes(g.d), before) << "refused call changed the bitmap";
        return;
    }
    DibGuard want8(tovCreateHDIBExt(w, h, 0, 8));
    memcpy(DibBitsPtr(want8.d), before.data(), before.size());
    FillPic(want8.d, pic);
    ASSERT_EQ(Bytes(g.d), Bytes(want8.d))
        << w << "x" << h << " kernel " << rows << "x" << cols << " divisor " << divisor
        << " bias " << bias << " threshold " << threshold;
}

const LONG kWidths[] = {1, 2, 3, 4, 5, 6, 7, 9, 10, 17, 33};
const LONG kHeights[] = {1, 2, 3, 4, 5, 9, 12};

TEST(Convolution, BuiltInFiltersMatchReference) {
    std::mt19937 rng(11);
    const std::vector<LONG> avg(9, 1), inf = InfinityKernel(), thr = ThresholdKernel();
    std::vector<std::pair<LONG, LONG>> sizes;
    for (LONG w : kWidths)
        for (LONG h : kHeights) sizes.push_back({w, h});
    sizes.push_back({97, 61});
    sizes.push_back({640, 48});
    for (auto [w, h] : sizes) {
        Check(rng, w, h, avg, 3, 3, 9, 0, 0, [](HDIB d) { return tovAverage(d); });
        for (LONG level : {9, 10, 12, 17, 24, 32})
            Check(rng, w, h, SharpenKernel(level), 3, 3, level - 8, 0, 0,
                  [level](HDIB d) { return tovSharpen(d, level); });
        Check(rng, w, h, inf, 9, 9, 512, 0, 0, [](HDIB d) { return tovInfinityFilter(d); });
        for (DWORD t : {0u, 1u, 100u, 128u, 129u, 255u})
            Check(rng, w, h, thr, 5, 5, 1, 128, (LONG)t,
                  [t](HDIB d) { return tovThreshold(d, t); });
    }
}

// Caller kernels of every shape: even and odd sizes, empty ones, mirror
// symmetric ones (folded by the fast path), weights that overflow the sum,
// divisors of each arithmetic form, thresholds of both signs.
TEST(Convolution, CallerKernelsMatchReference) {
    std::mt19937 rng(23);
    const LONG divisors[] = {1, -1, 2, -4, 512, 3, -7, 9, 24, 1000, 1 << 30, INT_MIN, INT_MAX,
                             (LONG)0x12345678};
    const LONG biases[] = {0, 128, -300, INT_MAX, INT_MIN, 77};
    const LONG thresholds[] = {0, 0, 0, 1, 128, 255, -5, 1000};
    int cases = 0;
    for (int round = 0; round < 900; ++round) {
        const LONG w = (LONG)(1 + rng() % 24), h = (LONG)(1 + rng() % 14);
        const LONG rows = (LONG)(rng() % 8), cols = (LONG)(rng() % 8);
        // Weights: small (16-bit sums), large (sums that overflow), or medium
        // (sums near 2^24, where the float division stops being used); each
        // also mirror symmetric.
        const int mode = (int)(rng() % 6);
        const bool large = mode == 1 || mode == 3, medium = mode >= 4;
        const bool symmetric = mode == 2 || mode == 3 || mode == 5;
        std::vector<LONG> k((size_t)rows * cols + 1);
        for (LONG y = 0; y < rows; ++y)
            for (LONG x = 0; x < cols; ++x) {
                LONG v = large ? (LONG)rng() : (LONG)(rng() % 9) - 4;
                if (large && rng() % 3 == 0) v = (LONG)(rng() % 2001) - 1000;
                if (medium) v = (LONG)(rng() % 14601) - 7300;
                k[(size_t)y * cols + x] = v;
            }
        if (symmetric) {  // mirror about both axes
            for (LONG y = 0; y < rows; ++y)
                for (LONG x = 0; x < cols; ++x) {
                    const LONG sy = y < rows - 1 - y ? y : rows - 1 - y;
                    const LONG sx = x < cols - 1 - x ? x : cols - 1 - x;
                    k[(size_t)y * cols + x] = k[(size_t)sy * cols + sx];
                }
        }
        const LONG divisor = divisors[rng() % (sizeof divisors / sizeof *divisors)];
        const LONG bias = biases[rng() % (sizeof biases / sizeof *biases)];
        const LONG threshold = thresholds[rng() % (sizeof thresholds / sizeof *thresholds)];
        const bool extreme = rng() % 4 == 0;
        if (threshold == 0 && rng() % 2)
            Check(rng, w, h, k, rows, cols, divisor, bias, 0,
                  [&](HDIB d) { return tovConvolutionFilter(d, k.data(), rows, cols, divisor, bias); },
                  extreme);
        else
            Check(rng, w, h, k, rows, cols, divisor, bias, threshold,
                  [&](HDIB d) {
                      return DibConvolutionFilterThreshhold(d, k.data(), rows, cols, divisor,
                                                            bias, threshold);
                  },
                  extreme);
        if (HasFatalFailure()) return;
        ++cases;
    }
    EXPECT_EQ(cases, 900);
}

TEST(Convolution, KnownValues) {
    {  // infinity filter: 523/512 of a uniform grey, edges included
        DibGuard g(UniformDib(13, 11, 100));
        ASSERT_EQ(tovInfinityFilter(g.d), 0u);
        for (LONG y = 0; y < 11; ++y)
            for (LONG x = 0; x < 13; ++x) ASSERT_EQ(g.d->ppRow[y][x], 102);
    }
    {  // lone 255 in column 1 of row 5: column 0 sees it twice
        DibGuard g(UniformDib(8, 10, 0));
        g.d->ppRow[5][1] = 255;
        ASSERT_EQ(tovAverage(g.d), 0u);
        for (LONG y = 4; y <= 6; ++y) {
            EXPECT_EQ(g.d->ppRow[y][0], 56);
            EXPECT_EQ(g.d->ppRow[y][1], 28);
            EXPECT_EQ(g.d->ppRow[y][2], 28);
            EXPECT_EQ(g.d->ppRow[y][3], 0);
        }
        EXPECT_EQ(g.d->ppRow[3][1], 0);
    }
    for (DWORD t : {0u, 1u, 128u, 129u, 255u}) {  // threshold of a uniform grey
        DibGuard g(UniformDib(6, 6, 37));
        ASSERT_EQ(tovThreshold(g.d, t), 0u);
        const int want = t == 0 ? 128 : (t <= 128 ? 255 : 0);
        for (LONG y = 0; y < 6; ++y)
            for (LONG x = 0; x < 6; ++x) ASSERT_EQ(g.d->ppRow[y][x], want) << t;
    }
    {  // an empty kernel leaves the clamped bias
        DibGuard g(UniformDib(4, 4, 9));
        const LONG k[1] = {5};
        ASSERT_EQ(tovConvolutionFilter(g.d, k, 0, 3, 1, 300), 0u);
        EXPECT_EQ(g.d->ppRow[2][2], 255);
    }
}

TEST(Convolution, WorkingCopyBorders) {
    // Columns seen along a row of a 10-wide picture: 2 1 | 0..9 | 6 7 for a
    // half size of 2, and 1 | 0..9 | 8 for 1.
    for (LONG mx : {1, 2}) {
        DibGuard g(UniformDib(10, 3, 0));
        for (LONG y = 0; y < 3; ++y)
            for (LONG x = 0; x < 10; ++x) g.d->ppRow[y][x] = (BYTE)(x + 10 * y);
        DibGuard c(DibCreateCopyConvolve(g.d, 3 + 2, 10 + 2 * mx));
        ASSERT_NE(c.d, nullptr);
        std::vector<int> row;
        for (LONG x = 0; x < 10 + 2 * mx; ++x) row.push_back(c.d->ppRow[2][x]);
        const std::vector<int> want2 = {12, 11, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 16, 17};
        const std::vector<int> want1 = {11, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 18};
        EXPECT_EQ(row, mx == 2 ? want2 : want1);
        EXPECT_EQ(c.d->ppRow[0][mx], 10);  // top mirrors row 1
        EXPECT_EQ(c.d->ppRow[4][mx], 10);  // bottom mirrors row 1
        EXPECT_EQ(DibBitCount(c.d), 8);
    }
}

TEST(Convolution, RefusedInput) {
    std::mt19937 rng(5);
    const LONG k9[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    DibGuard g(RandomDib(rng, 7, 4, 8));
    const std::vector<BYTE> before = Bytes(g.d);
    struct Case {
        const char* what;
        DWORD want;
        DWORD got;
    };
    // A kernel whose last entry lies on an unreadable page.
    const long page = sysconf(_SC_PAGESIZE);
    void* mem = mmap(nullptr, (size_t)page * 2, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(mem, MAP_FAILED);
    ASSERT_EQ(mprotect((char*)mem + page, (size_t)page, PROT_NONE), 0);
    const LONG* edge = (const LONG*)((char*)mem + page) - 8;
    const Case cases[] = {
        {"divisor 0", 5, tovConvolutionFilter(g.d, k9, 3, 3, 0, 0)},
        {"null kernel", 7, tovConvolutionFilter(g.d, nullptr, 3, 3, 1, 0)},
        {"kernel past readable memory", 7, tovConvolutionFilter(g.d, edge, 3, 3, 1, 0)},
        {"negative rows", 7, tovConvolutionFilter(g.d, k9, -3, 3, 1, 0)},
        {"negative cols", 7, tovConvolutionFilter(g.d, k9, 3, -1, 1, 0)},
        {"kernel taller than picture", 7, tovConvolutionFilter(g.d, k9, 11, 1, 1, 0)},
        {"kernel wider than picture", 7, tovConvolutionFilter(g.d, k9, 1, 15, 1, 0)},
        {"huge kernel", 7, tovConvolutionFilter(g.d, k9, 0x40000000, 0x40000000, 1, 0)},
        {"huge rows, no cols", 7, tovConvolutionFilter(g.d, k9, INT_MAX, 0, 1, 0)},
        {"infinity on 4 rows", 7, tovInfinityFilter(g.d)},
        {"sharpen 8", 7, tovSharpen(g.d, 8)},
        {"sharpen 33", 7, tovSharpen(g.d, 33)},
        {"threshold 256", 7, tovThreshold(g.d, 256)},
        {"null handle", 5, tovAverage(nullptr)},
        {"null handle, threshold", 5, tovThreshold(nullptr, 3)},
        {"handle without signature", 5, tovInfinityFilter((HDIB)mem)},
        {"unreadable handle", 5, tovSharpen((HDIB)((char*)mem + page), 9)},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.got, c.want) << c.what;
        EXPECT_EQ(Bytes(g.d), before) << c.what;
    }
    ASSERT_EQ(tovConvolutionFilter(g.d, edge + 7, 1, 1, 1, 0), 0u);  // last readable entry
    munmap(mem, (size_t)page * 2);
    for (int bpp : {1, 4}) {
        DibGuard low(RandomDib(rng, 9, 9, bpp));
        const std::vector<BYTE> b = Bytes(low.d);
        EXPECT_EQ(tovAverage(low.d), 5u);
        EXPECT_EQ(tovSharpen(low.d, 9), 5u);
        EXPECT_EQ(tovThreshold(low.d, 9), 5u);
        EXPECT_EQ(Bytes(low.d), b);
    }
    {  // tiny pictures: what fits works, what does not is refused
        DibGuard one(UniformDib(1, 1, 200));
        EXPECT_EQ(tovAverage(one.d), 7u);
        EXPECT_EQ(tovConvolutionFilter(one.d, k9, 1, 1, 1, 0), 0u);
        EXPECT_EQ(one.d->ppRow[0][0], 200);
        DibGuard two(UniformDib(2, 9, 50));
        EXPECT_EQ(tovAverage(two.d), 0u);
        EXPECT_EQ(tovThreshold(two.d, 0), 7u);
    }
}

TEST(Convolution, AllocationFailureLeavesPictureAndLeaksNothing) {
    std::mt19937 rng(99);
    using Op = DWORD (*)(HDIB);
    const Op ops[] = {
        [](HDIB d) { return tovAverage(d); },
        [](HDIB d) { return tovSharpen(d, 12); },
        [](HDIB d) { return tovInfinityFilter(d); },
        [](HDIB d) { return tovThreshold(d, 100); },
    };
    for (Op op : ops) {
        DibGuard g(RandomDib(rng, 23, 17, 8));
        const std::vector<BYTE> before = Bytes(g.d);
        DibGuard ok(tovCreateCopyHDIB(g.d));
        ASSERT_EQ(op(ok.d), 0u);
        const std::vector<BYTE> want = Bytes(ok.d);
        long sites = 0;
        for (long n = 1; n < 100; ++n) {
            memcpy(DibBitsPtr(g.d), before.data(), before.size());
            const long live = PlatLiveObjects();
            const long count = PlatAllocationCount();
            PlatFailAllocation(n);
            const DWORD r = op(g.d);
            const long used = PlatAllocationCount() - count;
            PlatFailAllocation(0);
            EXPECT_EQ(PlatLiveObjects(), live) << "leak at allocation " << n;
            if (used < n) {
                EXPECT_EQ(r, 0u);
                EXPECT_EQ(Bytes(g.d), want);
                break;
            }
            ++sites;
            EXPECT_TRUE(r == 6 || r == 1) << "allocation " << n << " gave " << r;
            EXPECT_EQ(Bytes(g.d), before) << "allocation " << n;
        }
        EXPECT_GE(sites, 4);
    }
}

TEST(Convolution, TraceLines) {
    tovtest::ScratchDir dir;
    DibGuard g(UniformDib(5, 5, 10));
    tovtest::StartLog(8);
    ASSERT_EQ(tovSharpen(g.d, 9), 0u);
    ASSERT_EQ(tovSharpen(g.d, 40), 7u);
    ASSERT_EQ(tovAverage(nullptr), 5u);
    tovtest::StopLog();
    const std::string h = std::to_string((long long)(intptr_t)g.d);
    std::vector<std::string> mine;
    for (const std::string& l : tovtest::LogLines()) {
        if (l.rfind("<DibCreateCopyConvolve()=", 0) == 0)
            mine.push_back("<DibCreateCopyConvolve()=copy\r");
        else if (l.find("Sharpen") != std::string::npos || l.find("Convol") != std::string::npos ||
                 l.find("Average") != std::string::npos || l.find("DibIsValid") != std::string::npos)
            mine.push_back(l);
    }
    const std::vector<std::string> want = {
        ">tovSharpen(" + h + ",9)\r",
        "<DibSharpen(" + h + ", &d)\r",
        ">DibSharpen()\r",
        ">DibConvolutionFilter()\r",
        ">DibConvolutionFilterThreshhold()\r",
        ">DibCreateCopyConvolve(" + h + ",7,7)\r",
        "<DibCreateCopyConvolve()=copy\r",
        "<DibConvolutionFilterThreshhold()=DibOk\r",
        "<DibConvolutionFilter()=0\r",
        "<DibSharpen()=DibOk\r",
        "<tovSharpen()=tovOk\r",
        ">tovSharpen(" + h + ",40)\r",
        ">tovAverage(0)\r",
        "<DibAverage(0)\r",
        ">DibAverage()\r",
        ">DibConvolutionFilter()\r",
        "   !DibIsValid():pdib == NULL:Error\r",
        "<DibConvolutionFilter()=5\r",
        "<tovAverage()=5 (error)\r",
    };
    EXPECT_EQ(mine, want);
}

}  // namespace
