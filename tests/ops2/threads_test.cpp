// Operations of different depths running at once on different bitmaps give
// what they give one at a time: no operation shares state with another.
#include <thread>

#include "ops2_support.h"

using namespace ops2;

namespace {

// A fixed chain over one bitmap; its final bytes.
std::vector<BYTE> RunChain(int bpp, unsigned seed) {
    std::mt19937 rng(seed);
    HDIB d = RandomDib(rng, 61 + (LONG)(seed % 7), 43, bpp);
    if (d == NULL) return {};
    for (int round = 0; round < 3; ++round) {
        tovFlipVertical(d);
        tovFlipHorizontal(d);
        if (bpp == 8) {
            tovAverage(d);
            tovSharpen(d, 10 + round);
            tovInfinityFilter(d);
            tovThreshold(d, round == 1 ? 0 : 120);
            const LONG k[6] = {1, -2, 3, 0, 5, -1};
            tovConvolutionFilter(d, k, 2, 3, 3, 9);
            if (round == 2) tovDither16Color(d);
        }
    }
    tovCrop(d, 3, 2, 50, 37);
    tovScale(d, 73);
    std::vector<BYTE> out = Bytes(d);
    out.push_back((BYTE)DibWidth(d));
    out.push_back((BYTE)DibHeight(d));
    DibUnload(d);
    return out;
}

TEST(Threads, ConcurrentOperationsMatchSingleThreaded) {
    const int depths[] = {1, 4, 8, 8, 4, 1, 8, 8};
    std::vector<std::vector<BYTE>> single;
    for (unsigned i = 0; i < 8; ++i) single.push_back(RunChain(depths[i], 100 + i));
    std::vector<std::vector<BYTE>> results(8);
    for (int repeat = 0; repeat < 3; ++repeat) {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < 8; ++i)
            threads.emplace_back([&, i] { results[i] = RunChain(depths[i], 100 + i); });
        for (std::thread& t : threads) t.join();
        for (unsigned i = 0; i < 8; ++i) {
            ASSERT_FALSE(single[i].empty());
            EXPECT_EQ(results[i], single[i]) << "chain " << i << " at " << depths[i] << " bits";
        }
    }
}

}  // namespace
