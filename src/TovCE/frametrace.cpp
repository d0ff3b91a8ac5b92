// The exit traces the export frames share: each export passes its own texts,
// so that every line reads as the export wrote it.
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

}  // extern "C"
