// Overlays: a two-line text label and the time stamp on a 640x480 frame,
// the way a capture program stamps every picture. Each call makes its font,
// so the time includes finding the face and loading it.
#include "benchutil.h"

namespace {

void BM_OverlayBuffer(benchmark::State& state) {
    benchutil::Picture picture(640, 480);
    for (auto _ : state) benchmark::DoNotOptimize(tovOverlayBuffer(picture.get(), u"Lot 4711\nShelf 12", 3, 24, 0));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OverlayBuffer)->Unit(benchmark::kMicrosecond);

void BM_OverlayTimeDate(benchmark::State& state) {
    benchutil::Picture picture(640, 480);
    for (auto _ : state) benchmark::DoNotOptimize(tovOverlayTimeDate(picture.get(), 2, 16, 1));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_OverlayTimeDate)->Unit(benchmark::kMicrosecond);

}  // namespace
