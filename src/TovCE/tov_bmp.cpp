// Exports of BMP files: the caller's name is copied and completed with
// ".bmp" in a local buffer, never changed in place.
#include "tovce.h"

namespace {

// A bounded copy of a caller's name for the entry trace; empty when the
// pointer cannot be read.
void TraceName(const WCHAR* filename, WCHAR* out) {
    out[0] = 0;
    if (tovProbePointer(filename)) return;
    size_t n = 0;
    while (n < TOV_MAX_PATH - 1 && filename[n]) {
        out[n] = filename[n];
        ++n;
    }
    out[n] = 0;
}

}  // namespace

extern "C" {

DWORD tovSaveBMP(HDIB hdib, const WCHAR* filename) {
    WCHAR shown[TOV_MAX_PATH];
    TraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSaveBMP(%lld,%s)\r\n", TRACE_PTR(hdib), shown);
    WCHAR name[TOV_MAX_PATH];
    DWORD result = tovPrepareFileName(filename, u"bmp", name);
    if (result) return result;
    result = DibBMPSave(name, hdib);
    if (result == DibOk) {
        DebugTrace(DIB_LEVEL_FRAME, u"<tovSaveBMP()=tovOk\r\n");
        return tovOk;
    }
    DebugError(u"<tovSaveBMP()=%d (Error)\r\n", result);
    return result;
}

HDIB tovLoadBMP(const WCHAR* filename) {
    WCHAR name[TOV_MAX_PATH];
    if (tovPrepareFileName(filename, u"bmp", name)) return nullptr;
    DebugTrace(DIB_LEVEL_FRAME, u">tovLoadBMP(%s)\r\n", name);
    HDIB hdib = DibBMPLoad(name);
    if (!hdib) {
        DebugError(u"<tovLoadBMP()=NULL (error)\r\n");
        return nullptr;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<tovLoadBMP()=%lld\r\n", TRACE_PTR(hdib));
    return hdib;
}

}  // extern "C"
