// Capture: starting and stopping the scan, and frames from the scan space
// into the caller's bitmap, at full size or as a preview of every third
// row and column, turned back where the imager delivers them turned, and
// through the chain in the processed modes.
//
// The copies read only inside the frame the engine reported and write only
// inside rows the bitmap has at exactly the size asked for, so they cannot
// fault: no exception guard is needed around them.
#include "camera.h"

#include <cstdint>
#include <cstring>

namespace {

constexpr DWORD kPreview = tovCapturePreview, kFullProcessed = tovCaptureFullProcessed,
                kPreviewProcessed = tovCapturePreviewProcessed;
constexpr DWORD kStopFrames = 4;
constexpr LONG kPreviewStep = 3;

// Picture row y of a full frame W wide, H high.
void CopyFullRow(const BYTE* frame, LONG W, LONG H, LONG y, bool turned, BYTE* out) {
    if (!turned) {
        std::memcpy(out, frame + size_t(y) * size_t(W), size_t(W));
        return;
    }
    // A row read backwards, eight bytes at a time with their order swapped.
    const BYTE* from = frame + size_t(H - 1 - y) * size_t(W) + size_t(W - 1);
    LONG x = 0;
    for (; x + 8 <= W; x += 8) {
        uint64_t v;
        std::memcpy(&v, from - x - 7, sizeof v);
        v = __builtin_bswap64(v);
        std::memcpy(out + x, &v, sizeof v);
    }
    for (; x < W; ++x) out[x] = from[-x];
}

// Picture row y of a preview w wide: every third pixel from column d.
void CopyPreviewRow(const BYTE* frame, LONG W, LONG H, LONG w, LONG d, LONG y, bool turned, BYTE* out) {
    if (!turned) {
        const BYTE* from = frame + size_t(kPreviewStep * y) * size_t(W) + size_t(d);
        for (LONG x = 0; x < w; ++x) out[x] = from[kPreviewStep * x];
        return;
    }
    const BYTE* from = frame + size_t(H - 1 - kPreviewStep * y) * size_t(W) + size_t(W - 1 - d);
    for (LONG x = 0; x < w; ++x) out[x] = from[-kPreviewStep * x];
}

// Steps 5 to 7 of a capture, under the lock: sizes, the copy, the chain.
DWORD Deliver(HDIB hDib, DWORD mode) {
    const LONG W = LONG(tovGetImagerFullWidth()), H = LONG(tovGetImagerFullHeight());
    const LONG w = LONG(tovGetImagerPreviewWidth()), h = LONG(tovGetImagerPreviewHeight());
    const bool turned = SessionEngineInfo.dwOrientation == CM_ORIENTATION_TURNED;
    const bool preview = mode == kPreview || mode == kPreviewProcessed;
    if (mode > kPreviewProcessed) return tovOk;
    const LONG width = preview ? w : W, height = preview ? h : H;
    if ((DibWidth(hDib) != width || DibHeight(hDib) != height) && DibResize(hDib, width, height) != DibOk)
        return tovErrorUnknown;
    const LONG d = (W - kPreviewStep * w + 2) / 2;
    for (LONG y = 0; y < height; ++y) {
        if (preview)
            CopyPreviewRow(Camera.pScanSpace, W, H, w, d, y, turned, hDib->ppRow[y]);
        else
            CopyFullRow(Camera.pScanSpace, W, H, y, turned, hDib->ppRow[y]);
    }
    if (mode == kFullProcessed || mode == kPreviewProcessed) tovProcessImage(hDib, hDib);
    return tovOk;
}

}  // namespace

extern "C" {

DWORD tovStartCapture(void) {
    TovLockGuard lock;
    if (!Camera.bCameraInitialized) return tovErrorNotInitialized;
    if (Camera.bCapturing) return tovErrorAlreadyCapturing;
    LONG value = 0;
    if (DWORD result = tovGetIllumination(&value)) return result;
    Camera.engine.SetIllumination(Camera.hScanSession, value);
    if (DWORD result = tovGetAimer(&value)) return result;
    Camera.engine.SetAimer(Camera.hScanSession, value);
    if (!cmStartCapturing()) return tovErrorUnknown;
    Camera.bCapturing = TRUE;
    return tovOk;
}

DWORD tovStopCapture(void) {
    TovLockGuard lock;
    if (!Camera.bCameraInitialized) return tovErrorNotInitialized;
    if (!Camera.bCapturing) return tovErrorNotCapturing;
    Camera.engine.SetAimer(Camera.hScanSession, 0);
    // Frames the imager took with the aimer still on pass here unseen.
    for (DWORD i = 0; i < kStopFrames; ++i)
        if (!cmGrab()) return tovErrorUnknown;
    cmStopCapturing();
    Camera.engine.SetIllumination(Camera.hScanSession, 0);
    Camera.bCapturing = FALSE;
    return tovOk;
}

DWORD tovCaptureImage(HDIB hDib, DWORD mode) {
    if (DibBitCount(hDib) != 8 && DibConvert(hDib, 8) != DibOk) return DibErrorInvalidDIB;
    TovLockGuard lock;
    if (!Camera.bCameraInitialized) return tovErrorNotInitialized;
    if (Camera.bCapturing && !cmGrab()) return tovErrorUnknown;
    return Deliver(hDib, mode);
}

HDIB tovCreateHDIB(void) {
    LONG width, height;
    {
        TovLockGuard lock;
        width = LONG(tovGetImagerFullWidth());
        height = LONG(tovGetImagerFullHeight());
    }
    return tovCreateHDIBExt(width, height, 0, 8);
}

}  // extern "C"
