// Operations of different depths running at once on different bitmaps give
// what they give one at a time: no operation shares state with another.
#include <thread>

#include "ops2_support.h"

using namespace ops2;

namespace {

// A fixed chain over one bitmap; its final bytes and size.
Bytes RunChain(DWORD bits, unsigned seed) {
    Dib d = Random(61 + (LONG)(seed % 7), 43, bits, seed);
    const LONG k[6] = {1, -2, 3, 0, 5, -1};
    for (int round = 0; round < 3; ++round) {
        tovFlipVertical(d);
        tovFlipHorizontal(d);
        if (bits != 8) continue;
        tovAverage(d);
        tovSharpen(d, 10 + round);
        tovInfinityFilter(d);
        tovThreshold(d, round == 1 ? 0 : 120);
        tovConvolutionFilter(d, k, 2, 3, 3, 9);
        if (round == 2) tovDither16Color(d);
    }
    tovCrop(d, 3, 2, 50, 37);
    tovScale(d, 73);
    Bytes out = Store(d);
    out.insert(out.end(), {(BYTE)DibWidth(d), (BYTE)DibHeight(d)});
    return out;
}

TEST(Threads, ConcurrentOperationsMatchSingleThreaded) {
    const DWORD depths[] = {1, 4, 8, 8, 4, 1, 8, 8};
    std::vector<Bytes> single, results(8);
    for (unsigned i = 0; i < 8; ++i) single.push_back(RunChain(depths[i], 100 + i));
    for (int repeat = 0; repeat < 3; ++repeat) {
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < 8; ++i) threads.emplace_back([&, i] { results[i] = RunChain(depths[i], 100 + i); });
        for (std::thread& t : threads) t.join();
        EXPECT_EQ(results, single);
    }
}

}  // namespace
