// Speed of the convolution family, geometry and dithering, one thread, in
// pixels of the source picture per second. Each iteration starts from the
// same random picture; only the operation itself is timed. With OpenCV
// present (TOV_HAVE_OPENCV) its equivalents run in the same program, on one
// thread, for a ratio measured in one run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <random>
#include <vector>

#include "dibops.h"

#ifdef TOV_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

HDIB MakePicture(LONG w, LONG h, int bpp) {
    HDIB d = tovCreateHDIBExt(w, h, 0, (DWORD)bpp);
    if (d == NULL) return NULL;
    std::mt19937 rng(7);
    BYTE* b = DibBitsPtr(d);
    const size_t n = (size_t)DibRowLength(d) * (size_t)h;
    // Smooth with noise: like a camera frame, not like white noise.
    for (size_t i = 0; i < n; ++i) b[i] = (BYTE)((i / 7 % 200) + rng() % 40);
    return d;
}

using Op = DWORD (*)(HDIB);

// Times op on a bitmap restored before each run. Same-size operations are
// restored by a copy of the bytes, the others by DibCopy.
void RunOp(benchmark::State& state, Op op, int bpp, bool resizes) {
    const LONG w = (LONG)state.range(0), h = (LONG)state.range(1);
    HDIB src = MakePicture(w, h, bpp);
    HDIB work = tovCreateCopyHDIB(src);
    if (src == NULL || work == NULL) {
        state.SkipWithError("no bitmap");
        return;
    }
    const size_t bytes = (size_t)DibRowLength(src) * (size_t)h;
    for (auto _ : state) {
        if (resizes)
            DibCopy(work, src);
        else
            memcpy(DibBitsPtr(work), DibBitsPtr(src), bytes);
        const auto t0 = std::chrono::steady_clock::now();
        const DWORD r = op(work);
        const auto t1 = std::chrono::steady_clock::now();
        if (r != 0) {
            state.SkipWithError("operation failed");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    state.SetItemsProcessed(state.iterations() * (int64_t)w * h);
    DibUnload(work);
    DibUnload(src);
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->Args({640, 480})->Args({4096, 4096})->UseManualTime()->Unit(benchmark::kMicrosecond);
}

DWORD Average(HDIB d) { return tovAverage(d); }
DWORD Sharpen(HDIB d) { return tovSharpen(d, 12); }
DWORD Kernel3x3(HDIB d) {  // not symmetric: no folding
    const LONG k[9] = {1, 2, -1, 0, 5, -2, 3, 1, -1};
    return tovConvolutionFilter(d, k, 3, 3, 7, 4);
}
DWORD Kernel5x5(HDIB d) {
    LONG k[25];
    for (int i = 0; i < 25; ++i) k[i] = (i * 7) % 11 - 5;
    return tovConvolutionFilter(d, k, 5, 5, 13, 0);
}
DWORD Threshold(HDIB d) { return tovThreshold(d, 120); }
DWORD Infinity(HDIB d) { return tovInfinityFilter(d); }
DWORD FlipH(HDIB d) { return tovFlipHorizontal(d); }
DWORD FlipV(HDIB d) { return tovFlipVertical(d); }
DWORD Crop(HDIB d) { return tovCrop(d, 8, 8, (DWORD)DibWidth(d) - 16, (DWORD)DibHeight(d) - 16); }
DWORD Scale50(HDIB d) { return tovScale(d, 50); }
DWORD Dither2(HDIB d) { return tovDither2Color(d); }
DWORD Dither16(HDIB d) { return tovDither16Color(d); }

void BM_Average(benchmark::State& s) { RunOp(s, Average, 8, false); }
void BM_Sharpen(benchmark::State& s) { RunOp(s, Sharpen, 8, false); }
void BM_Kernel3x3(benchmark::State& s) { RunOp(s, Kernel3x3, 8, false); }
void BM_Kernel5x5(benchmark::State& s) { RunOp(s, Kernel5x5, 8, false); }
void BM_Threshold(benchmark::State& s) { RunOp(s, Threshold, 8, false); }
void BM_Infinity(benchmark::State& s) { RunOp(s, Infinity, 8, false); }
void BM_FlipHorizontal(benchmark::State& s) { RunOp(s, FlipH, (int)s.range(2), false); }
void BM_FlipVertical(benchmark::State& s) { RunOp(s, FlipV, (int)s.range(2), false); }
void BM_Crop(benchmark::State& s) { RunOp(s, Crop, (int)s.range(2), true); }
void BM_Scale50(benchmark::State& s) { RunOp(s, Scale50, (int)s.range(2), true); }
void BM_Dither2(benchmark::State& s) { RunOp(s, Dither2, 8, false); }
void BM_Dither16(benchmark::State& s) { RunOp(s, Dither16, 8, false); }

void SizesDepths(benchmark::internal::Benchmark* b) {
    for (int bpp : {8, 4, 1}) b->Args({640, 480, bpp});
    b->Args({4096, 4096, 8})->UseManualTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_Average)->Apply(Sizes);
BENCHMARK(BM_Sharpen)->Apply(Sizes);
BENCHMARK(BM_Kernel3x3)->Apply(Sizes);
BENCHMARK(BM_Kernel5x5)->Apply(Sizes);
BENCHMARK(BM_Threshold)->Apply(Sizes);
BENCHMARK(BM_Infinity)->Apply(Sizes);
BENCHMARK(BM_FlipHorizontal)->Apply(SizesDepths);
BENCHMARK(BM_FlipVertical)->Apply(SizesDepths);
BENCHMARK(BM_Crop)->Apply(SizesDepths);
BENCHMARK(BM_Scale50)->Apply(SizesDepths);
BENCHMARK(BM_Dither2)->Apply(Sizes);
BENCHMARK(BM_Dither16)->Apply(Sizes);

#ifdef TOV_HAVE_OPENCV
// OpenCV on one thread, same pictures, output into a separate matrix.
template <class F>
void RunCv(benchmark::State& state, F f) {
    cv::setNumThreads(1);
    const int w = (int)state.range(0), h = (int)state.range(1);
    cv::Mat src(h, w, CV_8UC1), dst;
    std::mt19937 rng(7);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) src.at<uchar>(y, x) = (uchar)(((y * w + x) / 7 % 200) + rng() % 40);
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        f(src, dst);
        const auto t1 = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(dst.data);
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    state.SetItemsProcessed(state.iterations() * (int64_t)w * h);
}

cv::Mat CvKernel(int n) {
    cv::Mat k(n, n, CV_32F);
    for (int i = 0; i < n * n; ++i) k.at<float>(i / n, i % n) = (float)((i * 7) % 11 - 5) / 13.0f;
    return k;
}

void BM_CvFilter3x3(benchmark::State& s) {
    const cv::Mat k = CvKernel(3);
    RunCv(s, [&](const cv::Mat& a, cv::Mat& b) { cv::filter2D(a, b, -1, k, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101); });
}
void BM_CvFilter5x5(benchmark::State& s) {
    const cv::Mat k = CvKernel(5);
    RunCv(s, [&](const cv::Mat& a, cv::Mat& b) { cv::filter2D(a, b, -1, k, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101); });
}
void BM_CvFilter9x9(benchmark::State& s) {
    const cv::Mat k = CvKernel(9);
    RunCv(s, [&](const cv::Mat& a, cv::Mat& b) { cv::filter2D(a, b, -1, k, cv::Point(-1, -1), 0, cv::BORDER_REFLECT_101); });
}
void BM_CvFlipUpsideDown(benchmark::State& s) {
    RunCv(s, [](const cv::Mat& a, cv::Mat& b) { cv::flip(a, b, 0); });
}
void BM_CvFlipLeftRight(benchmark::State& s) {
    RunCv(s, [](const cv::Mat& a, cv::Mat& b) { cv::flip(a, b, 1); });
}
void BM_CvResizeNearest50(benchmark::State& s) {
    RunCv(s, [](const cv::Mat& a, cv::Mat& b) { cv::resize(a, b, cv::Size(), 0.5, 0.5, cv::INTER_NEAREST); });
}

BENCHMARK(BM_CvFilter3x3)->Apply(Sizes);
BENCHMARK(BM_CvFilter5x5)->Apply(Sizes);
BENCHMARK(BM_CvFilter9x9)->Apply(Sizes);
BENCHMARK(BM_CvFlipUpsideDown)->Apply(Sizes);
BENCHMARK(BM_CvFlipLeftRight)->Apply(Sizes);
BENCHMARK(BM_CvResizeNearest50)->Apply(Sizes);
#endif

}  // namespace

BENCHMARK_MAIN();
