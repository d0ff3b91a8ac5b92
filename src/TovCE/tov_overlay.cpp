// Exports of the text overlays: tovOverlayBuffer, tovOverlayTimeDate.
#include "dibgfx.h"
#include "tovce.h"

namespace {

bool HeightInRange(LONG height) { return height >= DIB_OVERLAY_MIN_HEIGHT && height <= DIB_OVERLAY_MAX_HEIGHT; }

DWORD Exit(const char16_t* name, DWORD result) {
    if (result == DibOk) DebugTrace(DIB_LEVEL_FRAME, u"<%s()=tovOk\r\n", name);
    else DebugError(u"<%s()=%d (error)\r\n", name, result);
    return result;
}

}  // namespace

extern "C" {

DWORD tovOverlayBuffer(HDIB hdib, const WCHAR* text, DWORD alignment, LONG height, DWORD rasterOp) {
    try {
        DebugTrace(DIB_LEVEL_FRAME, u">tovOverlayBuffer(%lld,%d)\r\n", TRACE_PTR(hdib), height);
        if (!HeightInRange(height)) return DibErrorInvalidParm;
        if (tovHDIBIsValid(hdib) != tovOk) return DibErrorInvalidDIB;
        if (tovCannotRead(text)) return DibErrorInvalidParm;
        return Exit(u"tovOverlayBuffer", DibOverlayBuffer(hdib, text, alignment, height, rasterOp));
    } catch (...) {
        return tovErrorUnknown;
    }
}

DWORD tovOverlayTimeDate(HDIB hdib, DWORD alignment, LONG height, DWORD rasterOp) {
    try {
        DebugTrace(DIB_LEVEL_FRAME, u">tovOverlayTimeDate(%lld,%d,%d,%d)\r\n", TRACE_PTR(hdib), alignment, height,
                   rasterOp);
        if (!HeightInRange(height)) return DibErrorInvalidParm;
        if (tovHDIBIsValid(hdib) != tovOk) return DibErrorInvalidDIB;
        return Exit(u"tovOverlayTimeDate", DibOverlayTimeDate(hdib, alignment, height, rasterOp));
    } catch (...) {
        return tovErrorUnknown;
    }
}

}  // extern "C"
