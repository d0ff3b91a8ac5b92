// Image files: PNG saves at the library's zlib settings against other
// settings of the same libpng on the same picture, PNG loads, JPEG saves and
// loads. Pictures are camera-like (a lit label: gradient, bars, sensor
// noise), since random pixels say nothing about a compressor.
//
// Counters: "Mpix" as everywhere; "bytes" the size of the file written;
// "x_default" (on the library's own save) its rate divided by that of
// libpng's default settings (level 6, adaptive filters) in the same run.
#include "benchutil.h"
#include "imagefiles.h"

#include <png.h>
#include <zlib.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace {

const WCHAR* const kSink = u"/dev/null";

// A label under the imager: a bright gradient with dark bars and a little
// noise, deterministic.
void FillLabel(HDIB hdib, LONG width, LONG height) {
    uint32_t state = 12345;
    for (LONG y = 0; y < height; ++y) {
        BYTE* row = hdib->ppRow[y];
        for (LONG x = 0; x < width; ++x) {
            state = state * 1664525u + 1013904223u;
            int v = 150 + (x + y) * 60 / (width + height);
            bool bar = y > height / 3 && y < 2 * height / 3 && ((x / 7) % 3 == 0 || (x / 11) % 5 == 1);
            if (bar) v = 30;
            v += int(state >> 30) - 2;  // noise of +-2
            row[x] = BYTE(v < 0 ? 0 : v > 255 ? 255 : v);
        }
    }
}

struct Label {
    benchutil::Picture picture;
    Label(LONG w, LONG h) : picture(w, h) {
        if (picture.get()) FillLabel(picture.get(), w, h);
    }
};

struct Sink {
    size_t bytes = 0;
};

void CountWrite(png_structp png, png_bytep, size_t length) { static_cast<Sink*>(png_get_io_ptr(png))->bytes += length; }
void NoFlush(png_structp) {}

// The same rows through libpng at the given zlib settings and filters,
// into a byte counter. Returns the size of the file.
size_t EncodeReference(HDIB hdib, int level, int strategy, int filters) {
    Sink sink;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return 0;
    }
    png_set_write_fn(png, &sink, CountWrite, NoFlush);
    png_set_IHDR(png, info, png_uint_32(DibWidth(hdib)), png_uint_32(DibHeight(hdib)), DibBitCount(hdib),
                 PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (level >= 0) png_set_compression_level(png, level);
    if (strategy >= 0) png_set_compression_strategy(png, strategy);
    if (filters >= 0) png_set_filter(png, 0, filters);
    png_write_info(png, info);
    png_write_image(png, hdib->ppRow);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return sink.bytes;
}

size_t FileBytes(const char* path) {
    FILE* f = std::fopen(path, "rb");
    if (!f) return 0;
    std::fseek(f, 0, SEEK_END);
    long n = std::ftell(f);
    std::fclose(f);
    return n < 0 ? 0 : size_t(n);
}

double RateOf(HDIB hdib, int level, int strategy, int filters) {
    return benchutil::MeasureRate([&] { EncodeReference(hdib, level, strategy, filters); },
                                  double(DibWidth(hdib)) * DibHeight(hdib));
}

void BM_PngSave(benchmark::State& state) {
    Label label(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, label.picture)) return;
    HDIB hdib = label.picture.get();
    for (auto _ : state) {
        if (DibPNGSave(kSink, hdib) != DibOk) state.SkipWithError("save failed");
    }
    benchutil::ReportRate(state, label.picture.pixels());
    DibPNGSave(u"/tmp/tovbench_files.png", hdib);
    state.counters["bytes"] = double(FileBytes("/tmp/tovbench_files.png"));
    std::remove("/tmp/tovbench_files.png");
    double ours = benchutil::MeasureRate([&] { DibPNGSave(kSink, hdib); }, label.picture.pixels());
    state.counters["x_default"] = ours / RateOf(hdib, -1, -1, -1);
}
BENCHMARK(BM_PngSave)->Apply(benchutil::Sizes);

// The settings considered, for the record: {level, strategy, filters}.
void BM_PngReference(benchmark::State& state, int level, int strategy, int filters) {
    Label label(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, label.picture)) return;
    size_t bytes = 0;
    for (auto _ : state) bytes = EncodeReference(label.picture.get(), level, strategy, filters);
    benchutil::ReportRate(state, label.picture.pixels());
    state.counters["bytes"] = double(bytes);
}
BENCHMARK_CAPTURE(BM_PngReference, libpng_default, -1, -1, -1)->Apply(benchutil::Sizes);
BENCHMARK_CAPTURE(BM_PngReference, level1_rle_adaptive, 1, Z_RLE, PNG_ALL_FILTERS)->Apply(benchutil::Sizes);
BENCHMARK_CAPTURE(BM_PngReference, level1_rle_sub, 1, Z_RLE, PNG_FILTER_SUB)->Apply(benchutil::Sizes);
BENCHMARK_CAPTURE(BM_PngReference, level1_default_adaptive, 1, Z_DEFAULT_STRATEGY, PNG_ALL_FILTERS)
    ->Apply(benchutil::Sizes);

// Loads of one file, written once by the library's own save. The name is
// given twice: for the library, and for removing the file afterwards.
void RunLoad(benchmark::State& state, const WCHAR* name, const char* path,
             const std::function<DWORD(const WCHAR*, HDIB)>& save, HDIB (*load)(const WCHAR*)) {
    Label label(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, label.picture)) return;
    save(name, label.picture.get());
    for (auto _ : state) {
        HDIB back = load(name);
        if (!back) state.SkipWithError("load failed");
        else DibUnload(back);
    }
    benchutil::ReportRate(state, label.picture.pixels());
    std::remove(path);
}

void BM_PngLoad(benchmark::State& state) {
    RunLoad(state, u"/tmp/tovbench_load.png", "/tmp/tovbench_load.png", DibPNGSave, DibPNGLoad);
}
BENCHMARK(BM_PngLoad)->Apply(benchutil::Sizes);

void BM_JpegSave(benchmark::State& state) {
    Label label(LONG(state.range(0)), LONG(state.range(1)));
    if (!benchutil::Ready(state, label.picture)) return;
    for (auto _ : state) {
        if (DibJPGSave(kSink, 80, label.picture.get()) != DibOk) state.SkipWithError("save failed");
    }
    benchutil::ReportRate(state, label.picture.pixels());
}
BENCHMARK(BM_JpegSave)->Apply(benchutil::Sizes);

void BM_JpegLoad(benchmark::State& state) {
    RunLoad(state, u"/tmp/tovbench_load.jpg", "/tmp/tovbench_load.jpg",
            [](const WCHAR* name, HDIB hdib) { return DibJPGSave(name, 80, hdib); }, DibJPGLoad);
}
BENCHMARK(BM_JpegLoad)->Apply(benchutil::Sizes);

}  // namespace
