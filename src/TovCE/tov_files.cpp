// Exports of JPEG, PNG and printer raster files, and the format switch over
// JPEG, PNG and BMP. JPEG and PNG names are copied and completed with their
// extension in a local buffer, never changed in place; the printer file name
// is used as it stands.
#include "imagefiles.h"
#include "tovce.h"

extern "C" {

DWORD tovSaveJPG(HDIB hdib, const WCHAR* filename, DWORD quality) {
    WCHAR shown[TOV_TRACE_NAME_MAX];
    tovTraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSaveJPG(%lld,%s,%d)\r\n", TRACE_PTR(hdib), shown, quality);
    if (quality > DIB_JPG_MAX_QUALITY) return DibErrorInvalidParm;
    WCHAR name[TOV_MAX_PATH];
    DWORD result = tovPrepareFileName(filename, u"jpg", name);
    if (result) return result;
    return tovLeave(DibJPGSave(name, quality, hdib), u"<tovSaveJPG()=tovOk\r\n", u"<tovSaveJPG()=%d (error)\r\n");
}

HDIB tovLoadJPG(const WCHAR* filename) {
    return tovLoadFrame(filename, u"jpg", DibJPGLoad, u">tovLoadJPG(%s)\r\n", u"<tovLoadJPG()=%lld\r\n",
                        u"<tovLoadJPG()=NULL (error)\r\n");
}

DWORD tovSavePNG(HDIB hdib, const WCHAR* filename) {
    WCHAR shown[TOV_TRACE_NAME_MAX];
    tovTraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSavePNG(%lld,%s)\r\n", TRACE_PTR(hdib), shown);
    WCHAR name[TOV_MAX_PATH];
    DWORD result = tovPrepareFileName(filename, u"png", name);
    if (result) return result;
    return tovLeave(DibPNGSave(name, hdib), u"<tovSavePNG()=tovOk\r\n", u"<tovSavePNG()=%d (error)\r\n");
}

HDIB tovLoadPNG(const WCHAR* filename) {
    return tovLoadFrame(filename, u"png", DibPNGLoad, u">tovLoadPNG(%s)\r\n", u"<tovLoadPNG()=%lld\r\n",
                        u"<tovLoadPNG()=NULL (error)\r\n");
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
    WCHAR shown[TOV_TRACE_NAME_MAX];
    tovTraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSavePRN(%lld,%s)\r\n", TRACE_PTR(hdib), shown);
    // The name goes on unchanged, a null one included (the Dib layer refuses
    // it after its work on the bitmap); only a pointer that cannot be read at
    // all is stopped here, before anything would read through it.
    if (filename && tovProbePointer(filename)) return DibErrorInvalidParm;
    return tovLeave(DibPRNSave(filename, hdib, format, printerwidth, leftmargin), u"<tovSavePRN()=tovOk\r\n",
                    u"<tovSavePRN()=%d (Error)\r\n");
}

}  // extern "C"
