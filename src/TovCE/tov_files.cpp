// Exports of JPEG, PNG and printer raster files, and the format switch over
// JPEG, PNG and BMP. JPEG and PNG names are copied and completed with their
// extension in a local buffer, never changed in place; the printer file name
// is used as it stands.
#include "imagefiles.h"
#include "tovce.h"

namespace {

// A bounded copy of a caller's name for an entry trace; empty when the
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

DWORD Leave(const WCHAR* okText, const WCHAR* errorText, DWORD result) {
    if (result == DibOk)
        DebugTrace(DIB_LEVEL_FRAME, okText);
    else
        DebugError(errorText, int(result));
    return result;
}

HDIB LeaveLoad(const WCHAR* okText, const WCHAR* errorText, HDIB hdib) {
    if (hdib)
        DebugTrace(DIB_LEVEL_FRAME, okText, TRACE_PTR(hdib));
    else
        DebugError(errorText);
    return hdib;
}

}  // namespace

extern "C" {

DWORD tovSaveJPG(HDIB hdib, const WCHAR* filename, DWORD quality) {
    WCHAR shown[TOV_MAX_PATH];
    TraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSaveJPG(%lld,%s,%d)\r\n", TRACE_PTR(hdib), shown, quality);
    if (quality > DIB_JPG_MAX_QUALITY) return DibErrorInvalidParm;
    WCHAR name[TOV_MAX_PATH];
    DWORD result = tovPrepareFileName(filename, u"jpg", name);
    if (result) return result;
    return Leave(u"<tovSaveJPG()=tovOk\r\n", u"<tovSaveJPG()=%d (error)\r\n", DibJPGSave(name, quality, hdib));
}

HDIB tovLoadJPG(const WCHAR* filename) {
    WCHAR name[TOV_MAX_PATH];
    if (tovPrepareFileName(filename, u"jpg", name)) return nullptr;
    DebugTrace(DIB_LEVEL_FRAME, u">tovLoadJPG(%s)\r\n", name);
    return LeaveLoad(u"<tovLoadJPG()=%lld\r\n", u"<tovLoadJPG()=NULL (error)\r\n", DibJPGLoad(name));
}

DWORD tovSavePNG(HDIB hdib, const WCHAR* filename) {
    WCHAR shown[TOV_MAX_PATH];
    TraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSavePNG(%lld,%s)\r\n", TRACE_PTR(hdib), shown);
    WCHAR name[TOV_MAX_PATH];
    DWORD result = tovPrepareFileName(filename, u"png", name);
    if (result) return result;
    return Leave(u"<tovSavePNG()=tovOk\r\n", u"<tovSavePNG()=%d (error)\r\n", DibPNGSave(name, hdib));
}

HDIB tovLoadPNG(const WCHAR* filename) {
    WCHAR name[TOV_MAX_PATH];
    if (tovPrepareFileName(filename, u"png", name)) return nullptr;
    DebugTrace(DIB_LEVEL_FRAME, u">tovLoadPNG(%s)\r\n", name);
    return LeaveLoad(u"<tovLoadPNG()=%lld\r\n", u"<tovLoadPNG()=NULL (error)\r\n", DibPNGLoad(name));
}

DWORD tovSave(HDIB hdib, const WCHAR* filename, DWORD format, DWORD quality) {
    switch (format) {
    case tovFormatJPG: return tovSaveJPG(hdib, filename, quality);
    case tovFormatPNG: return tovSavePNG(hdib, filename);
    case tovFormatBMP: return tovSaveBMP(hdib, filename);
    default: return tovErrorUnknown;
    }
}

HDIB tovLoad(const WCHAR* filename, DWORD format) {
    switch (format) {
    case tovFormatJPG: return tovLoadJPG(filename);
    case tovFormatPNG: return tovLoadPNG(filename);
    case tovFormatBMP: return tovLoadBMP(filename);
    default: return nullptr;
    }
}

DWORD tovSavePRN(HDIB hdib, const WCHAR* filename, DWORD format, LONG printerwidth, LONG leftmargin) {
    WCHAR shown[TOV_MAX_PATH];
    TraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSavePRN(%lld,%s)\r\n", TRACE_PTR(hdib), shown);
    // The name goes on unchanged, a null one included (the Dib layer refuses
    // it after its work on the bitmap); only a pointer that cannot be read at
    // all is stopped here, before anything would read through it.
    if (filename && tovProbePointer(filename)) return DibErrorInvalidParm;
    return Leave(u"<tovSavePRN()=tovOk\r\n", u"<tovSavePRN()=%d (Error)\r\n",
                 DibPRNSave(filename, hdib, format, printerwidth, leftmargin));
}

}  // extern "C"
