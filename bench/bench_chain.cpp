// The processing chain: four filters (rank, sharpen, histogram stretch,
// threshold) run by tovProcessImage from a profile, against the same four
// exports called directly, on one 640x480 frame. Counter "x_direct": the
// chain's rate divided by the direct calls' in the same run (1.0: the chain
// costs nothing of its own).
#include "benchutil.h"
#include "session.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

const char* const kProfile =
    "<p><Section name=\"\"><Section name=\"Processing\">"
    "<Section name=\"Rank Filter\"><Key name=\"Rank\">4</Key></Section>"
    "<Section name=\"Sharpen\"><Key name=\"Val\">12</Key></Section>"
    "<Section name=\"Histogram Stretch\"><Key name=\"Low\">2</Key><Key name=\"High\">2</Key>"
    "<Key name=\"Mode\">1</Key></Section>"
    "<Section name=\"Threshold\"><Key name=\"Level\">128</Key></Section>"
    "</Section></Section></p>";

void Direct(HDIB h) {
    tovRankFilter(h, 4);
    tovSharpen(h, 12);
    tovHistogramStretchEx(h, 2, 2, 1);
    tovThreshold(h, 128);
}

void BM_ChainOfFour(benchmark::State& state) {
    const std::string file = "/tmp/tovbench-chain.zpf";
    if (FILE* f = std::fopen(file.c_str(), "w")) {
        std::fputs(kProfile, f);
        std::fclose(f);
    }
    std::u16string name(file.begin(), file.end());
    if (ProfileOpenSession(name.c_str(), u"") != 0) {
        state.SkipWithError("profile not opened");
        return;
    }
    benchutil::Picture picture(640, 480);
    if (!benchutil::Ready(state, picture)) return;
    for (auto _ : state) benchmark::DoNotOptimize(tovProcessImage(picture.get(), picture.get()));
    benchutil::ReportRate(state, picture.pixels());
    // Interleaved rounds, the median ratio: a neighbour's load hits both.
    std::vector<double> ratios;
    for (int round = 0; round < 7; ++round) {
        double chain = benchutil::MeasureRate([&] { tovProcessImage(picture.get(), picture.get()); },
                                              picture.pixels(), 0.1);
        double direct = benchutil::MeasureRate([&] { Direct(picture.get()); }, picture.pixels(), 0.1);
        ratios.push_back(chain / direct);
    }
    std::sort(ratios.begin(), ratios.end());
    state.counters["x_direct"] = ratios[ratios.size() / 2];
    ProfileCloseSession();
    std::remove(file.c_str());
}
BENCHMARK(BM_ChainOfFour)->Unit(benchmark::kMicrosecond);

}  // namespace
