// Speed of the point operations, the histogram stretch, the rank filter and
// despeckle, through their exports (conventions in benchutil.h).
#include "benchutil.h"
#include "dibkernels.h"

#include <tovrel/tovrel.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>

using benchutil::Picture;

namespace {

using Call = std::function<DWORD(HDIB)>;

void RunExport(benchmark::State& state, const Call& call, const Picture& p) {
    for (auto _ : state) {
        if (call(p.get()) != tovOk) {
            state.SkipWithError("operation failed");
            return;
        }
    }
    benchutil::ReportRate(state, p.pixels());
}

#ifdef TOV_HAVE_OPENCV
void CompareLut(benchmark::State& state, const Call& call, const Picture& p, const BYTE* table) {
    cv::Mat src = benchutil::View(p.get()).clone(), dst;
    cv::Mat lut(1, 256, CV_8UC1, const_cast<BYTE*>(table));
    benchutil::ReportOpenCvRatio(state, [&] { call(p.get()); }, [&] { cv::LUT(src, lut, dst); }, p.pixels());
}
#endif

void BM_RankFilter(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    const DWORD rank = DWORD(state.range(2));
    const Call call = [rank](HDIB h) { return tovRankFilter(h, rank); };
    RunExport(state, call, p);
#ifdef TOV_HAVE_OPENCV
    if (rank == 0 || rank == 4 || rank == 8) {
        cv::Mat src = benchutil::View(p.get()).clone(), dst;
        cv::Mat box = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
        std::function<void()> theirs;
        if (rank == 4) theirs = [&] { cv::medianBlur(src, dst, 3); };
        else if (rank == 0) theirs = [&] { cv::erode(src, dst, box); };
        else theirs = [&] { cv::dilate(src, dst, box); };
        benchutil::ReportOpenCvRatio(state, [&] { call(p.get()); }, theirs, p.pixels());
    }
#endif
}
BENCHMARK(BM_RankFilter)
    ->ArgsProduct({{640}, {480}, {0, 1, 2, 3, 4, 5, 6, 7, 8}})
    ->ArgsProduct({{4096}, {4096}, {0, 4, 8}})
    ->ArgNames({"w", "h", "rank"})
    ->Unit(benchmark::kMicrosecond);

void BM_Despeckle(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    RunExport(state, [](HDIB h) { return tovDespeckle(h, 3, 255); }, p);
}
BENCHMARK(BM_Despeckle)->Apply(benchutil::Sizes);

// A point operation through its export and, with OpenCV, the table it
// builds (entry(v) for each value) through cv::LUT.
void RunPointOperation(benchmark::State& state, const Call& call, BYTE (*entry)(int v)) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    RunExport(state, call, p);
#ifdef TOV_HAVE_OPENCV
    BYTE table[256];
    for (int v = 0; v < 256; ++v) table[v] = entry(v);
    CompareLut(state, call, p, table);
#else
    (void)entry;
#endif
}

BYTE Inverted(int v) { return BYTE(255 - v); }

void BM_Brightness(benchmark::State& state) {
    // Alternating signs keep the picture from saturating.
    LONG sign = 1;
    RunPointOperation(state, [&sign](HDIB h) { return tovBrightness(h, 40 * (sign = -sign)); },
                      [](int v) { return BYTE(v + 40 > 255 ? 255 : v + 40); });
}
BENCHMARK(BM_Brightness)->Apply(benchutil::Sizes);

void BM_Contrast(benchmark::State& state) {
    RunPointOperation(state, [](HDIB h) { return tovContrast(h, 60); }, Inverted);
}
BENCHMARK(BM_Contrast)->Apply(benchutil::Sizes);

void BM_Invert(benchmark::State& state) {
    RunPointOperation(state, [](HDIB h) { return tovInvert(h); }, Inverted);
}
BENCHMARK(BM_Invert)->Apply(benchutil::Sizes);

void BM_GammaCorrection(benchmark::State& state) {
    RunPointOperation(state, [](HDIB h) { return tovGammaCorrection(h, 1.8); },
                      [](int v) { return BYTE(std::pow(v / 255.0, 1.8) * 255.0 + 0.5); });
}
BENCHMARK(BM_GammaCorrection)->Apply(benchutil::Sizes);

// The stretch's cost depends on the picture (it counts near its black and
// white points), so each run starts from the same random picture again and
// only the stretch is timed. OpenCV: normalize, and what the stretch does,
// a histogram (calcHist) and a table (LUT).
void BM_HistogramStretch(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1))), original(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p) || !benchutil::Ready(state, original)) return;
    const size_t bytes = size_t(DibRowLength(p.get())) * size_t(state.range(1));
    const auto restore = [&] { std::memcpy(DibBitsPtr(p.get()), DibBitsPtr(original.get()), bytes); };
    for (auto _ : state) {
        restore();
        const auto t0 = std::chrono::steady_clock::now();
        const DWORD r = tovHistogramStretch(p.get());
        const auto t1 = std::chrono::steady_clock::now();
        if (r != tovOk) {
            state.SkipWithError("operation failed");
            return;
        }
        state.SetIterationTime(std::chrono::duration<double>(t1 - t0).count());
    }
    benchutil::ReportRate(state, p.pixels());
#ifdef TOV_HAVE_OPENCV
    cv::Mat src = benchutil::View(original.get()).clone(), dst, hist;
    const auto ours = [&] { tovHistogramStretch(p.get()); };
    state.counters["x_opencv"] =
        benchutil::OpenCvRatio(ours, [&] { cv::normalize(src, dst, 0, 255, cv::NORM_MINMAX); }, restore);
    const int channel = 0, levels = 256;
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    cv::Mat lut(1, 256, CV_8UC1);
    state.counters["x_opencv_hist_lut"] = benchutil::OpenCvRatio(
        ours,
        [&] {
            cv::calcHist(&src, 1, &channel, cv::Mat(), hist, 1, &levels, ranges);
            // Both points at 2 percent, then the table.
            const double cut = 0.02 * double(src.total());
            int black = 0, white = 255;
            for (double sum = 0; black < 255 && (sum += hist.at<float>(black)) <= cut;) ++black;
            for (double sum = 0; white > 0 && (sum += hist.at<float>(white)) <= cut;) --white;
            const int span = white > black ? white - black : 1;
            for (int v = 0; v < 256; ++v) lut.at<uchar>(v) = cv::saturate_cast<uchar>((v - black) * 255 / span);
            cv::LUT(src, lut, dst);
        },
        restore);
#endif
}
BENCHMARK(BM_HistogramStretch)->Apply(benchutil::Sizes)->UseManualTime();

// The stretch's passes on their own against normalize's whole work: a
// table over every row (part 0), the exact count at four levels near each
// end (part 1), the most it counts when its sample settles the points, and
// the stretch's own table from 5 to 250 over every row (part 2).
void BM_StretchParts(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    const size_t w = size_t(state.range(0)), h = size_t(state.range(1));
    BYTE table[256];
    for (int v = 0; v < 256; ++v) table[v] = BYTE(v);
    const BYTE base[2] = {3, 250};
    unsigned long long counts[8];
    BYTE stretch[256];
    for (int v = 0; v < 256; ++v) stretch[v] = BYTE(std::clamp(v * 255 / 245 - 5 * 255 / 245, 0, 255));
    const std::function<void()> parts[] = {[&] { DibTableRows8(table, p.get()->ppRow, h, w); },
                                           [&] { DibCountNear8(p.get()->ppRow, h, w, base, 4, counts); },
                                           [&] { DibStretchRows8(stretch, 5, 250, p.get()->ppRow, h, w); }};
    const std::function<void()>& part = parts[state.range(2)];
    for (auto _ : state) part();
    benchutil::ReportRate(state, p.pixels());
#ifdef TOV_HAVE_OPENCV
    cv::Mat src = benchutil::View(p.get()).clone(), dst;
    benchutil::ReportOpenCvRatio(state, part, [&] { cv::normalize(src, dst, 0, 255, cv::NORM_MINMAX); }, p.pixels());
#endif
}
BENCHMARK(BM_StretchParts)
    ->ArgsProduct({{640}, {480}, {0, 1, 2}})
    ->ArgsProduct({{4096}, {4096}, {0, 1, 2}})
    ->ArgNames({"w", "h", "part"})
    ->Unit(benchmark::kMicrosecond);

void BM_HistogramStretchLevels(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    RunExport(state, [](HDIB h) { return tovHistogramStretchEx(h, 20, 230, 0); }, p);
}
BENCHMARK(BM_HistogramStretchLevels)->Apply(benchutil::Sizes);

// Each way of the table kernel on its own (the point operations take the
// best one the processor has).
void BM_TableRow(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    BYTE table[256];
    for (int v = 0; v < 256; ++v) table[v] = BYTE(255 - v);
    const int way = int(state.range(2));
    const LONG height = LONG(state.range(1));
    if (!DibTableRow8With(way, table, p.get()->ppRow[0], 0)) {
        state.SkipWithError("not on this processor");
        return;
    }
    for (auto _ : state)
        for (LONG y = 0; y < height; ++y) DibTableRow8With(way, table, p.get()->ppRow[y], size_t(state.range(0)));
    benchutil::ReportRate(state, p.pixels());
}
BENCHMARK(BM_TableRow)
    ->ArgsProduct({{640}, {480}, {DIB_TABLE_PORTABLE, DIB_TABLE_AVX2, DIB_TABLE_VBMI}})
    ->ArgNames({"w", "h", "way"})
    ->Unit(benchmark::kMicrosecond);

}  // namespace

namespace {
// Parts of the rank filter's cost: the working copy, and the kernel alone.
void BM_RankParts(benchmark::State& state) {
    Picture p(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, p)) return;
    const LONG w = LONG(state.range(0)), h = LONG(state.range(1));
    const bool copyOnly = state.range(2) == 0;
    HDIB src = DibCreateCopy(p.get());
    for (auto _ : state) {
        if (copyOnly) {
            DibUnload(DibCreateCopy(p.get()));
        } else {
            for (LONG y = 1; y < h - 1; ++y)
                DibRankRow8(src->ppRow[y - 1], src->ppRow[y], src->ppRow[y + 1], p.get()->ppRow[y] + 1,
                            size_t(w - 2), 4);
        }
    }
    DibUnload(src);
    benchutil::ReportRate(state, p.pixels());
}
BENCHMARK(BM_RankParts)->Args({640, 480, 0})->Args({640, 480, 1})->Args({4096, 4096, 0})->Args({4096, 4096, 1})
    ->ArgNames({"w", "h", "kernel"})->Unit(benchmark::kMicrosecond);
}  // namespace

namespace {
// The 1- and 4-bit paths (unpacked into bytes in strips, packed back).
void BM_LowDepth(benchmark::State& state) {
    const LONG w = LONG(state.range(0)), h = LONG(state.range(1));
    const DWORD bits = DWORD(state.range(2));
    HDIB hdib = tovCreateHDIBExt(w, h, 0, bits);
    if (!hdib) {
        state.SkipWithError("picture not created");
        return;
    }
    Picture noise(DibRowLength(hdib), h); // random bytes for the packed rows
    for (LONG y = 0; y < h; ++y) std::memcpy(hdib->ppRow[y], noise.get()->ppRow[y], size_t(DibRowLength(hdib)));
    const int op = int(state.range(3));
    for (auto _ : state) {
        DWORD r = op == 0 ? tovRankFilter(hdib, 4) : op == 1 ? tovDespeckle(hdib, 3, 0) : tovBrightness(hdib, 1);
        if (r != tovOk) {
            state.SkipWithError("operation failed");
            break;
        }
    }
    DibUnload(hdib);
    benchutil::ReportRate(state, double(w) * double(h));
}
BENCHMARK(BM_LowDepth)
    ->ArgsProduct({{640}, {480}, {1, 4}, {0, 1, 2}})
    ->ArgNames({"w", "h", "bits", "op"})
    ->Unit(benchmark::kMicrosecond);
}  // namespace
