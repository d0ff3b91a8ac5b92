// The exit traces the export frames share, and the whole frame of the file
// loads: each export passes its own texts, so that every line reads as the
// export wrote it.
#include "tovce.h"

extern "C" {

DWORD tovLeave(DWORD result, const WCHAR* okText, const WCHAR* errorText) {
    if (result == DibOk)
        DebugTrace(DIB_LEVEL_FRAME, okText);
    else
        DebugError(errorText, int(result));
    return result;
}

HDIB tovLeaveHandle(HDIB hdib, const WCHAR* okText, const WCHAR* errorText) {
    if (hdib)
        DebugTrace(DIB_LEVEL_FRAME, okText, TRACE_PTR(hdib));
    else
        DebugError(errorText);
    return hdib;
}

HDIB tovLoadFrame(const WCHAR* filename, const WCHAR* extension, HDIB (*load)(const WCHAR* name),
                  const WCHAR* entryText, const WCHAR* okText, const WCHAR* errorText) {
    WCHAR name[TOV_MAX_PATH];
    if (tovPrepareFileName(filename, extension, name)) return nullptr;
    DebugTrace(DIB_LEVEL_FRAME, entryText, name);
    return tovLeaveHandle(load(name), okText, errorText);
}

}  // extern "C"
