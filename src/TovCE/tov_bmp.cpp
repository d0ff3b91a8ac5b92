// Exports of BMP files: the caller's name is copied and completed with
// ".bmp" in a local buffer, never changed in place.
#include "tovce.h"

extern "C" {

DWORD tovSaveBMP(HDIB hdib, const WCHAR* filename) {
    WCHAR shown[TOV_TRACE_NAME_MAX];
    tovTraceName(filename, shown);
    DebugTrace(DIB_LEVEL_FRAME, u">tovSaveBMP(%lld,%s)\r\n", TRACE_PTR(hdib), shown);
    WCHAR name[TOV_MAX_PATH];
    DWORD result = tovPrepareFileName(filename, u"bmp", name);
    if (result) return result;
    return tovLeave(DibBMPSave(name, hdib), u"<tovSaveBMP()=tovOk\r\n", u"<tovSaveBMP()=%d (Error)\r\n");
}

HDIB tovLoadBMP(const WCHAR* filename) {
    return tovLoadFrame(filename, u"bmp", DibBMPLoad, u">tovLoadBMP(%s)\r\n", u"<tovLoadBMP()=%lld\r\n",
                        u"<tovLoadBMP()=NULL (error)\r\n");
}

}  // extern "C"
