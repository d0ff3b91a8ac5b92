// What the imager is: its class, its raw type word, and the engine's
// revision reduced to the part with the digits.
#include "camera.h"

namespace {

bool IsDigit(WCHAR c) { return c >= u'0' && c <= u'9'; }

}  // namespace

// The stretch from the word holding the first digit to the word holding
// the last one; the whole text when it has no digit.
void cmReduceRevision(const WCHAR* raw, WCHAR* out) {
    size_t start = 0, at = 0;
    for (; raw[at] && !IsDigit(raw[at]); ++at)
        if (raw[at] == u' ') start = at + 1;
    size_t end = PlatWideLength(raw);
    if (raw[at]) {
        for (size_t back = end; back > start && !IsDigit(raw[back - 1]); --back)
            if (raw[back - 1] == u' ') end = back - 1;
    } else {
        start = 0;
    }
    size_t n = 0;
    for (size_t i = start; i < end; ++i) out[n++] = raw[i];
    out[n] = 0;
}

extern "C" {

DWORD tovCheckImager(void) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovCheckImager()\r\n");
    DebugTrace(DIB_LEVEL_FRAME, u">tovGetImagerClass()\r\n");
    LONG imagerClass = cmGetImagerClass();
    DebugTrace(DIB_LEVEL_FRAME, u"<tovGetImagerClass()=%d\r\n", int(imagerClass));
    if (imagerClass == 1) {
        DebugTrace(DIB_LEVEL_FRAME, u"<tovCheckImager()=tovOk\r\n");
        return tovOk;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"   !tovGetImagerClass=%d\r\n", int(imagerClass));
    DebugTrace(DIB_LEVEL_FRAME, u"<tovCheckImager()=tovErrorUnknown\r\n");
    return tovErrorUnknown;
}

LONG tovGetImagerType(void) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovGetImagerType()\r\n");
    DWORD word = 0, returned = 0;
    if (!KernelIoControl(PLAT_IOCTL_IMAGER_TYPE, nullptr, 0, &word, sizeof word, &returned)) {
        DebugError(u"   !tovGetImagerType():KernelIoControl:Error\r\n");
        DebugTrace(DIB_LEVEL_FRAME, u"<tovGetImagerType()=-1\r\n");
        return -1;
    }
    return LONG(word);
}

DWORD tovGetScanDriverRevision(WCHAR* buffer) {
    if (tovCannotRead(buffer)) return DibErrorInvalidParm;
    WCHAR raw[CM_REVISION_CHARS + 1] = {}, reduced[CM_REVISION_CHARS + 1];
    {
        TovLockGuard lock;
        if (!Camera.bCameraInitialized) return tovErrorNotInitialized;
        if (!Camera.engine.GetDriverRevision(Camera.hScanSession, raw)) return tovErrorUnknown;
        raw[CM_REVISION_CHARS] = 0;  // an engine's text that runs to the end stays in bounds
        cmReduceRevision(raw, reduced);
    }
    size_t n = PlatWideLength(reduced);
    if (tovCannotRead(buffer + n) || IsBadReadPtr(buffer, (n + 1) * sizeof(WCHAR))) return tovErrorBadOutputBuffer;
    for (size_t i = 0; i <= n; ++i) buffer[i] = reduced[i];
    return tovOk;
}

}  // extern "C"
