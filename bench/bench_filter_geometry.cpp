// Speed of the convolution family, geometry and dithering, one thread, at
// the standard sizes (benchutil.h), counter "Mpix/s" in pixels of the
// source picture. Convolutions and flips run in place on one picture, as
// their cost does not depend on the values. Crop and scale change the size
// and dithering's cost does depend on the values, so those restore the
// picture before each run and time only the operation (manual time).
// With OpenCV: filter2D 3x3 / 5x5 / 9x9, flip, an ROI copy and resize
// INTER_NEAREST at 50% as the equivalents, ratio in "x_opencv".
#include <chrono>
#include <cstring>

#include "benchutil.h"
#include "dibops.h"

namespace {

using benchutil::Picture;
using Op = DWORD (*)(HDIB);

#ifdef TOV_HAVE_OPENCV
cv::Mat CvKernel(int n) {
    cv::Mat k(n, n, CV_32F);
    for (int i = 0; i < n * n; ++i) k.at<float>(i / n, i % n) = float((i * 7) % 11 - 5) / 13.0f;
    return k;
}
#endif

// In place, no restore. theirs(src, dst) is OpenCV's equivalent, or null.
void InPlace(benchmark::State& state, Op op, int cvKernel, int cvFlip) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    for (auto _ : state) {
        if (op(p.get()) != 0) {
            state.SkipWithError("operation failed");
            return;
        }
    }
    benchutil::ReportRate(state, p.pixels());
#ifdef TOV_HAVE_OPENCV
    cv::Mat src = benchutil::View(p.get()).clone(), dst;
    const cv::Mat k = cvKernel ? CvKernel(cvKernel) : cv::Mat();
    benchutil::ReportOpenCvRatio(
        state, [&] { op(p.get()); },
        [&] {
            if (cvKernel)
                cv::filter2D(src, dst, -1, k, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101);
            else
                cv::flip(src, dst, cvFlip);
        },
        p.pixels());
#else
    (void)cvKernel;
    (void)cvFlip;
#endif
}

// Restores the picture before each run; times the operation alone.
void Restored(benchmark::State& state, Op op, bool resizes) {
    Picture src(LONG(state.range(0)), LONG(state.range(1)));
    Picture work(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, src) || !benchutil::Ready(state, work)) return;
    const size_t bytes = size_t(DibRowLength(src.get())) * size_t(state.range(1));
    auto restore = [&] {
        if (resizes)
            DibCopy(work.get(), src.get());
        else
            std::memcpy(DibBitsPtr(work.get()), DibBitsPtr(src.get()), bytes);
    };
    for (auto _ : state) {
        restore();
        const auto t0 = std::chrono::steady_clock::now();
        const DWORD r = op(work.get());
        const auto t1 = std::chrono::steady_clock::now();
        if (r != 0) {
            state.SkipWithError("operation failed");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    benchutil::ReportRate(state, src.pixels());
}

void ManualSizes(benchmark::internal::Benchmark* b) { benchutil::Sizes(b->UseManualTime()); }

DWORD Kernel3x3(HDIB d) {  // not symmetric: every tap on its own
    const LONG k[9] = {1, 2, -1, 0, 5, -2, 3, 1, -1};
    return tovConvolutionFilter(d, k, 3, 3, 7, 4);
}
DWORD Kernel5x5(HDIB d) {
    LONG k[25];
    for (int i = 0; i < 25; ++i) k[i] = (i * 7) % 11 - 5;
    return tovConvolutionFilter(d, k, 5, 5, 13, 0);
}

void BM_Average(benchmark::State& s) { InPlace(s, tovAverage, 3, 0); }
void BM_Sharpen(benchmark::State& s) {
    InPlace(s, [](HDIB d) { return tovSharpen(d, 12); }, 3, 0);
}
void BM_Kernel3x3(benchmark::State& s) { InPlace(s, Kernel3x3, 3, 0); }
void BM_Kernel5x5(benchmark::State& s) { InPlace(s, Kernel5x5, 5, 0); }
void BM_Threshold(benchmark::State& s) {
    InPlace(s, [](HDIB d) { return tovThreshold(d, 120); }, 5, 0);
}
void BM_InfinityFilter(benchmark::State& s) { InPlace(s, tovInfinityFilter, 9, 0); }
void BM_FlipHorizontal(benchmark::State& s) { InPlace(s, tovFlipHorizontal, 0, 0); }
void BM_FlipVertical(benchmark::State& s) { InPlace(s, tovFlipVertical, 0, 1); }
void BM_Dither2Color(benchmark::State& s) { Restored(s, tovDither2Color, false); }
void BM_Dither16Color(benchmark::State& s) { Restored(s, tovDither16Color, false); }

DWORD CropInner(HDIB d) {
    return tovCrop(d, 8, 8, DWORD(DibWidth(d)) - 16, DWORD(DibHeight(d)) - 16);
}
DWORD Scale50(HDIB d) { return tovScale(d, 50); }

void BM_Crop(benchmark::State& s) { Restored(s, CropInner, true); }
void BM_Scale50(benchmark::State& s) { Restored(s, Scale50, true); }

// The working copy alone (made, bordered and freed), the part of every
// convolution that its behaviour prescribes, against OpenCV's whole 3x3
// filter: the bound on how far ahead the 3x3 filters can get.
void BM_ConvolveCopy(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    const LONG w = LONG(state.range(0)), h = LONG(state.range(1));
    const auto copy = [&] { DibUnload(DibCreateCopyConvolve(p.get(), h + 2, w + 2)); };
    for (auto _ : state) copy();
    benchutil::ReportRate(state, p.pixels());
#ifdef TOV_HAVE_OPENCV
    cv::Mat src = benchutil::View(p.get()).clone(), dst;
    const cv::Mat k = CvKernel(3);
    benchutil::ReportOpenCvRatio(
        state, copy, [&] { cv::filter2D(src, dst, -1, k, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101); },
        p.pixels());
#endif
}

BENCHMARK(BM_Average)->Apply(benchutil::Sizes);
BENCHMARK(BM_ConvolveCopy)->Apply(benchutil::Sizes);
BENCHMARK(BM_Sharpen)->Apply(benchutil::Sizes);
BENCHMARK(BM_Kernel3x3)->Apply(benchutil::Sizes);
BENCHMARK(BM_Kernel5x5)->Apply(benchutil::Sizes);
BENCHMARK(BM_Threshold)->Apply(benchutil::Sizes);
BENCHMARK(BM_InfinityFilter)->Apply(benchutil::Sizes);
BENCHMARK(BM_FlipHorizontal)->Apply(benchutil::Sizes);
BENCHMARK(BM_FlipVertical)->Apply(benchutil::Sizes);
BENCHMARK(BM_Crop)->Apply(ManualSizes);
BENCHMARK(BM_Scale50)->Apply(ManualSizes);
BENCHMARK(BM_Dither2Color)->Apply(ManualSizes);
BENCHMARK(BM_Dither16Color)->Apply(ManualSizes);

#ifdef TOV_HAVE_OPENCV
// Crop and scale against OpenCV with the same restore-and-time loop: an ROI
// copied out, and a nearest-pixel resize to half size.
void CvTimed(benchmark::State& state, void (*f)(const cv::Mat&, cv::Mat&)) {
    cv::setNumThreads(1);
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    const cv::Mat src = benchutil::View(p.get());
    cv::Mat dst;
    for (auto _ : state) {
        dst.release();  // a new picture each time, as the library makes one
        const auto t0 = std::chrono::steady_clock::now();
        f(src, dst);
        const auto t1 = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(dst.data);
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    benchutil::ReportRate(state, p.pixels());
}
void BM_OpenCvCrop(benchmark::State& s) {
    CvTimed(s, [](const cv::Mat& a, cv::Mat& b) {
        a(cv::Rect(8, 8, a.cols - 16, a.rows - 16)).copyTo(b);
    });
}
void BM_OpenCvResizeNearest50(benchmark::State& s) {
    CvTimed(s, [](const cv::Mat& a, cv::Mat& b) {
        cv::resize(a, b, cv::Size(), 0.5, 0.5, cv::INTER_NEAREST);
    });
}
BENCHMARK(BM_OpenCvCrop)->Apply(ManualSizes);
BENCHMARK(BM_OpenCvResizeNearest50)->Apply(ManualSizes);
#endif

}  // namespace

// The one main of tovbench.
BENCHMARK_MAIN();
