// Exports of the picture files: one row a format (its extension, its load
// and save in the bitmap layer, its frame traces), the exports of each
// format through its row, and the format switch over the rows. Names are
// copied and completed with the format's extension in a local buffer, never
// changed in place; the printer file name is used as it stands.
#include "imagefiles.h"
#include "tovce.h"

namespace {

struct FileFormat {
    DWORD format;  // tovFormat...
    const WCHAR* extension;
    HDIB (*load)(const WCHAR* name);
    DWORD (*save)(const WCHAR* name, HDIB hdib, DWORD quality);
    DWORD qualityMax;  // a higher quality is refused (formats without one take any)
    const WCHAR* loadEntry;  // %s: the completed name
    const WCHAR* loadOk;     // %lld: the new handle
    const WCHAR* loadError;
    const WCHAR* saveEntry;  // %lld, %s, %d: the handle, the name as given, the quality
    const WCHAR* saveOk;
    const WCHAR* saveError;  // %d: the code
};

DWORD SaveJPG(const WCHAR* name, HDIB hdib, DWORD quality) { return DibJPGSave(name, quality, hdib); }
DWORD SavePNG(const WCHAR* name, HDIB hdib, DWORD) { return DibPNGSave(name, hdib); }
DWORD SaveBMP(const WCHAR* name, HDIB hdib, DWORD) { return DibBMPSave(name, hdib); }

constexpr DWORD kAnyQuality = 0xFFFFFFFFu;

const FileFormat kFormats[] = {
    {tovFormatJPG, u"jpg", DibJPGLoad, SaveJPG, TOV_JPG_QUALITY_MAX, u">tovLoadJPG(%s)\r\n", u"<tovLoadJPG()=%lld\r\n",
     u"<tovLoadJPG()=NULL (error)\r\n", u">tovSaveJPG(%lld,%s,%d)\r\n", u"<tovSaveJPG()=tovOk\r\n",
     u"<tovSaveJPG()=%d (error)\r\n"},
    {tovFormatPNG, u"png", DibPNGLoad, SavePNG, kAnyQuality, u">tovLoadPNG(%s)\r\n", u"<tovLoadPNG()=%lld\r\n",
     u"<tovLoadPNG()=NULL (error)\r\n", u">tovSavePNG(%lld,%s)\r\n", u"<tovSavePNG()=tovOk\r\n",
     u"<tovSavePNG()=%d (error)\r\n"},
    {tovFormatBMP, u"bmp", DibBMPLoad, SaveBMP, kAnyQuality, u">tovLoadBMP(%s)\r\n", u"<tovLoadBMP()=%lld\r\n",
     u"<tovLoadBMP()=NULL (error)\r\n", u">tovSaveBMP(%lld,%s)\r\n", u"<tovSaveBMP()=tovOk\r\n",
     u"<tovSaveBMP()=%d (Error)\r\n"},
};

const FileFormat* Find(DWORD format) {
    for (const FileFormat& f : kFormats)
        if (f.format == format) return &f;
    return nullptr;
}

HDIB Load(const FileFormat& f, const WCHAR* filename) {
    return tovLoadFrame(filename, f.extension, f.load, f.loadEntry, f.loadOk, f.loadError);
}

DWORD Save(const FileFormat& f, HDIB hdib, const WCHAR* filename, DWORD quality) {
    WCHAR shown[TOV_TRACE_NAME_MAX];
    tovTraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, f.saveEntry, TRACE_PTR(hdib), shown, quality);
    if (quality > f.qualityMax) return DibErrorInvalidParm;
    WCHAR name[TOV_MAX_PATH];
    const DWORD result = tovPrepareFileName(filename, f.extension, name);
    if (result) return result;
    return tovLeave(f.save(name, hdib, quality), f.saveOk, f.saveError);
}

}  // namespace

extern "C" {

HDIB tovLoadJPG(const WCHAR* filename) { return Load(*Find(tovFormatJPG), filename); }
HDIB tovLoadPNG(const WCHAR* filename) { return Load(*Find(tovFormatPNG), filename); }
HDIB tovLoadBMP(const WCHAR* filename) { return Load(*Find(tovFormatBMP), filename); }

DWORD tovSaveJPG(HDIB hdib, const WCHAR* filename, DWORD quality) {
    return Save(*Find(tovFormatJPG), hdib, filename, quality);
}
DWORD tovSavePNG(HDIB hdib, const WCHAR* filename) { return Save(*Find(tovFormatPNG), hdib, filename, 0); }
DWORD tovSaveBMP(HDIB hdib, const WCHAR* filename) { return Save(*Find(tovFormatBMP), hdib, filename, 0); }

DWORD tovSave(HDIB hdib, const WCHAR* filename, DWORD format, DWORD quality) {
    const FileFormat* f = Find(format);
    return f ? Save(*f, hdib, filename, quality) : DWORD(tovErrorUnknown);
}

HDIB tovLoad(const WCHAR* filename, DWORD format) {
    const FileFormat* f = Find(format);
    return f ? Load(*f, filename) : nullptr;
}

DWORD tovSavePRN(HDIB hdib, const WCHAR* filename, DWORD format, LONG printerwidth, LONG leftmargin) {
    WCHAR shown[TOV_TRACE_NAME_MAX];
    tovTraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSavePRN(%lld,%s)\r\n", TRACE_PTR(hdib), shown);
    // The name goes on unchanged, a null one included (the Dib layer refuses
    // it after its work on the bitmap); only a pointer that cannot be read at
    // all is stopped here, before anything would read through it.
    if (filename && tovCannotRead(filename)) return DibErrorInvalidParm;
    return tovLeave(DibPRNSave(filename, hdib, format, printerwidth, leftmargin), u"<tovSavePRN()=tovOk\r\n",
                    u"<tovSavePRN()=%d (Error)\r\n");
}

}  // extern "C"
