// Capture: a frame from the scan space into a bitmap at full size, as a
// preview, and turned, through tovCaptureImage with the scan stopped, so
// that the engine's grab is not timed (the last frame is delivered again).
// 640x480 frames of the stand-in engine; "Mpix" counts the picture's pixels.
#include "benchutil.h"
#include "qdxcontrol.h"

namespace {

void BM_Capture(benchmark::State& state) {
    const DWORD mode = DWORD(state.range(0));
    const bool turned = state.range(1) != 0;
    HMODULE engine = LoadLibraryW(u"qdxengine.dll");
    auto geometry = reinterpret_cast<void (*)(uint32_t, uint32_t, uint32_t)>(
        GetProcAddressW(engine, u"QdxCtlSetGeometry"));
    if (!geometry) {
        state.SkipWithError("no stand-in engine");
        return;
    }
    geometry(640, 480, turned ? 2 : 0);
    if (tovInitCamera(u"" TOV_SAMPLE_PROFILES, u"Labels", nullptr) != tovOk) {
        state.SkipWithError("camera not started");
        FreeLibrary(engine);
        return;
    }
    tovStartCapture();
    tovStopCapture();  // the last of its frames stays in the scan space
    HDIB h = tovCreateHDIB();
    tovCaptureImage(h, mode);
    for (auto _ : state) benchmark::DoNotOptimize(tovCaptureImage(h, mode));
    benchutil::ReportRate(state, double(DibWidth(h)) * DibHeight(h));
    tovUnloadHDIB(h);
    tovUninitCamera();
    FreeLibrary(engine);
}
BENCHMARK(BM_Capture)
    ->Args({tovCaptureFull, 0})
    ->Args({tovCaptureFull, 1})
    ->Args({tovCapturePreview, 0})
    ->Args({tovCapturePreview, 1})
    ->ArgNames({"mode", "turned"})
    ->Unit(benchmark::kMicrosecond);

}  // namespace
