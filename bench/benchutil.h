// Shared pieces of the benchmarks: the picture sizes, random 8-bit pictures,
// the Mpix/s counter, and the comparison with OpenCV.
//
// Conventions, so that all benchmarks read alike:
// - Every image operation is measured at 640x480 (a frame) and 4096x4096,
//   8 bits, one thread, through its export, in place on one picture. The
//   operations' cost does not depend on the pixel values (branch-free
//   kernels), so the picture is not restored between iterations.
// - Counter "Mpix": million pixels processed a second (the console shows
//   it as a rate, e.g. "Mpix=2.5k/s" for 2500 Mpix/s).
// - Counter "x_opencv" (only when built with OpenCV): OpenCV's time for its
//   equivalent operation on the same picture divided by ours, with
//   cv::setNumThreads(1). Both are timed in the same run right after the
//   benchmark loop, in turns (ours, theirs, ours, ...) over several rounds,
//   in thread CPU time, so that other work on the machine hits both sides
//   alike; the counter is the median of the rounds' ratios. Above 1 means
//   faster than OpenCV. Compare these ratios, not absolute numbers from
//   different runs.
#pragma once

#include <benchmark/benchmark.h>

#include "dibce.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

#ifdef TOV_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace benchutil {

// Arguments {width, height} of the two standard sizes.
inline void Sizes(benchmark::internal::Benchmark* b) {
    b->Args({640, 480})->Args({4096, 4096})->ArgNames({"w", "h"})->Unit(benchmark::kMicrosecond);
}

// An 8-bit grey bitmap of random pixels; the same seed gives the same picture.
class Picture {
public:
    Picture(LONG width, LONG height, uint32_t seed = 1) : width_(width), height_(height) {
        hdib_ = DibCreateGrey(width, height, 8, nullptr);
        if (!hdib_) return;
        uint64_t state = 0x9E3779B97F4A7C15ull ^ seed;
        for (LONG y = 0; y < height; ++y) {
            for (LONG x = 0; x < width; x += 8) {
                state ^= state << 13, state ^= state >> 7, state ^= state << 17; // xorshift64
                std::memcpy(hdib_->ppRow[y] + x, &state, width - x < 8 ? size_t(width - x) : 8);
            }
        }
    }
    ~Picture() {
        if (hdib_) DibUnload(hdib_);
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    HDIB get() const { return hdib_; }
    double pixels() const { return double(width_) * double(height_); }

private:
    HDIB hdib_ = nullptr;
    LONG width_, height_;
};

// Fails the benchmark when the picture could not be made.
inline bool Ready(benchmark::State& state, const Picture& p) {
    if (p.get()) return true;
    state.SkipWithError("picture not created");
    return false;
}

inline void ReportRate(benchmark::State& state, double pixels) {
    state.counters["Mpix"] =
        benchmark::Counter(pixels * double(state.iterations()) / 1e6, benchmark::Counter::kIsRate);
}

// Mpix/s of fn over a picture of that many pixels, run for at least
// minSeconds after one warm-up call.
inline double MeasureRate(const std::function<void()>& fn, double pixels, double minSeconds = 0.25) {
    using Clock = std::chrono::steady_clock;
    fn();
    long runs = 0;
    const Clock::time_point start = Clock::now();
    double elapsed = 0;
    do {
        fn();
        ++runs;
        elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    } while (elapsed < minSeconds);
    return pixels * double(runs) / elapsed / 1e6;
}

#ifdef TOV_HAVE_OPENCV
// The bitmap's pixels as an 8-bit Mat, sharing the memory (rows bottom-up,
// which no operation here cares about).
inline cv::Mat View(HDIB hdib) {
    const BITMAPINFOHEADER& h = hdib->ds.dsBmih;
    const size_t stride = size_t((h.biWidth * 8 + 31) / 32 * 4);
    return cv::Mat(h.biHeight, h.biWidth, CV_8UC1, hdib->pBits, stride);
}

inline double ThreadCpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// Thread CPU seconds a call of fn, over calls adding up to at least
// minSeconds. With prepare, each call is timed on its own and prepare runs
// untimed before it.
inline double CpuPerCall(const std::function<void()>& fn, double minSeconds,
                         const std::function<void()>& prepare) {
    double spent = 0;
    long calls = 0;
    do {
        if (prepare) prepare();
        const double t0 = ThreadCpuSeconds();
        fn();
        if (prepare) {
            spent += ThreadCpuSeconds() - t0;
        } else {
            long more = 1;
            while (ThreadCpuSeconds() - t0 < minSeconds / 4) fn(), ++more;
            spent += ThreadCpuSeconds() - t0;
            calls += more - 1;
        }
        ++calls;
    } while (spent < minSeconds);
    return spent / double(calls);
}

// OpenCV's time over ours, as described at the top of this file. prepare
// (optional) restores what ours changes; it runs untimed before each of our
// calls, and both sides are then timed call by call.
inline double OpenCvRatio(const std::function<void()>& ours, const std::function<void()>& theirs,
                          const std::function<void()>& prepare = nullptr) {
    cv::setNumThreads(1);
    const std::function<void()> nothing = [] {};
    const std::function<void()>& theirPrepare = prepare ? nothing : prepare;
    if (prepare) prepare();
    ours();
    theirs();
    std::vector<double> ratios;
    for (int round = 0; round < 9; ++round) {
        const double our = CpuPerCall(ours, 0.03, prepare);
        const double their = CpuPerCall(theirs, 0.03, theirPrepare);
        ratios.push_back(their / our);
    }
    std::nth_element(ratios.begin(), ratios.begin() + 4, ratios.end());
    return ratios[4];
}

// Sets counter "x_opencv" as described at the top of this file.
inline void ReportOpenCvRatio(benchmark::State& state, const std::function<void()>& ours,
                              const std::function<void()>& theirs, double pixels) {
    (void)pixels;
    state.counters["x_opencv"] = OpenCvRatio(ours, theirs);
}
#endif

}  // namespace benchutil
