// The working copy that the rank filter and the geometry operations make of
// their picture, alone and against the whole of OpenCV's equivalent: how
// much of OpenCV's time the copy alone already takes, and how close each
// operation runs to the copy plus OpenCV's whole work (conventions in
// benchutil.h).
//
// BM_CreateCopy: DibCreateCopy and DibUnload of a picture.
// BM_WorkingCopy: the same without filling the copy, as the flips and the
// rank filter make it (they copy only the rows in hand).
// BM_CopyLimit/op: the operation, the copy alone and OpenCV's equivalent,
// timed in turns (several rounds, each a few calls of each; for crop and
// scale the picture is restored before every call of each, untimed), with the
// medians over the rounds of
//   x_opencv     OpenCV's time / ours
//   copy_bound   OpenCV's time / the copy's: the best x_opencv an operation
//                could reach if all but its copy were free
//   x_copy_plus  (copy + OpenCV's time) / ours: above 1, the operation
//                costs less than its copy plus OpenCV's whole work.
#include <algorithm>
#include <chrono>
#include <vector>

#include "benchutil.h"
#include "dibops.h"

namespace {

using benchutil::Picture;

void BM_CreateCopy(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    for (auto _ : state) {
        HDIB copy = DibCreateCopy(p.get());
        if (!copy) {
            state.SkipWithError("copy failed");
            return;
        }
        DibUnload(copy);
    }
    benchutil::ReportRate(state, p.pixels());
#ifdef TOV_HAVE_OPENCV
    // Against a plain copy of the pixels into a matrix made beforehand.
    cv::Mat src = benchutil::View(p.get()).clone(), dst = src.clone();
    benchutil::ReportOpenCvRatio(state, [&] { DibUnload(DibCreateCopy(p.get())); }, [&] { src.copyTo(dst); },
                                 p.pixels());
#endif
}
BENCHMARK(BM_CreateCopy)->Apply(benchutil::Sizes);

// What the flips and the rank filter cannot avoid: the working copy made
// (record, store, row table, traces) and released, none of its rows filled.
void BM_WorkingCopy(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    for (auto _ : state) {
        HDIB copy = DibCreateWorkingCopy(p.get());
        if (!copy) {
            state.SkipWithError("copy failed");
            return;
        }
        DibUnload(copy);
    }
    benchutil::ReportRate(state, p.pixels());
}
BENCHMARK(BM_WorkingCopy)->Apply(benchutil::Sizes);

#ifdef TOV_HAVE_OPENCV
enum LimitOp { kFlip, kRank0, kRank4, kRank8, kCrop, kScale };

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void BM_CopyLimit(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    cv::setNumThreads(1);
    const LONG w = LONG(state.range(0)), h = LONG(state.range(1));
    const auto op = LimitOp(state.range(2));
    Picture src(w, h), work(w, h);
    if (!benchutil::Ready(state, src) || !benchutil::Ready(state, work)) return;
    const bool resizes = op == kCrop || op == kScale;
    cv::Mat in = benchutil::View(src.get()).clone(), out;
    const cv::Mat box = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    auto ours = [&]() -> DWORD {
        HDIB d = work.get();
        switch (op) {
        case kFlip: return DibFlipHorizontal(d);
        case kRank0: return DibRankFilter(d, 0);
        case kRank4: return DibRankFilter(d, 4);
        case kRank8: return DibRankFilter(d, 8);
        case kCrop: return DibCrop(d, 8, 8, DWORD(w - 16), DWORD(h - 16));
        default: return DibScale(d, 50);
        }
    };
    auto theirs = [&] {
        switch (op) {
        case kFlip: cv::flip(in, out, 0); break;
        case kRank0: cv::erode(in, out, box); break;
        case kRank4: cv::medianBlur(in, out, 3); break;
        case kRank8: cv::dilate(in, out, box); break;
        case kCrop:
            out.release();  // a new picture each time, as the library makes one
            in(cv::Rect(8, 8, w - 16, h - 16)).copyTo(out);
            break;
        default:
            out.release();
            cv::resize(in, out, cv::Size(), 0.5, 0.5, cv::INTER_NEAREST);
            break;
        }
    };
    auto copy = [&] { DibUnload(DibCreateCopy(work.get())); };
    const int calls = w * h > 1000000 ? 2 : 20;
    // Seconds of `calls` calls of f, each after restore (not timed).
    auto timed = [&](auto f, bool restore) {
        double total = 0;
        for (int i = 0; i < calls; ++i) {
            if (restore) DibCopy(work.get(), src.get());
            const auto t0 = Clock::now();
            f();
            total += std::chrono::duration<double>(Clock::now() - t0).count();
        }
        return total;
    };
    std::vector<double> xOpenCv, copyBound, xCopyPlus;
    for (auto _ : state) {
        // The restore (untimed) before each call of all three when ours
        // changes the size: its writes still draining from the caches cost
        // the call after it, so all three pay it alike.
        double a = timed(ours, resizes), c = timed(copy, resizes), t = timed(theirs, resizes);
        if (resizes) DibCopy(work.get(), src.get());
        if (ours() != 0) {
            state.SkipWithError("operation failed");
            return;
        }
        xOpenCv.push_back(t / a);
        copyBound.push_back(t / c);
        xCopyPlus.push_back((c + t) / a);
        state.SetIterationTime(a / calls);
    }
    state.counters["x_opencv"] = Median(xOpenCv);
    state.counters["copy_bound"] = Median(copyBound);
    state.counters["x_copy_plus"] = Median(xCopyPlus);
    benchutil::ReportRate(state, src.pixels());
}
BENCHMARK(BM_CopyLimit)
    ->ArgsProduct({{640}, {480}, {kFlip, kRank0, kRank4, kRank8, kCrop, kScale}})
    ->ArgsProduct({{4096}, {4096}, {kFlip, kRank0, kRank4, kRank8, kCrop, kScale}})
    ->ArgNames({"w", "h", "op"})
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
