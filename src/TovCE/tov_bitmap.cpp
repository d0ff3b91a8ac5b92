// Exports of the bitmap lifecycle, the accessors and creation: each a thin
// frame around its Dib function with the entry and exit traces.
#include "tovce.h"

namespace {

// Exit traces of the accessors: a count of 0 is the accessor's error value,
// while a NULL pointer is traced like any other answer.
template <typename T>
T LeaveCount(T value, const WCHAR* okText, const WCHAR* zeroText) {
    if (value == 0)
        DebugError(zeroText);
    else
        DebugTrace(DIB_LEVEL_FRAME, okText, int(value));
    return value;
}

template <typename T>
T* LeavePointer(T* pointer, const WCHAR* okText, const WCHAR* nullText) {
    if (!pointer)
        DebugTrace(DIB_LEVEL_FRAME, nullText);
    else
        DebugTrace(DIB_LEVEL_FRAME, okText, TRACE_PTR(pointer));
    return pointer;
}

}  // namespace

extern "C" {

DWORD tovHDIBIsValid(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovHDIBIsValid (%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibIsValid(hdib), u"<tovHDIBIsValid ()=tovOk\r\n", u"<tovHDIBIsValid ()=%d (error)\r\n");
}

HDIB tovCreateCopyHDIB(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovCopyHDIB(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeaveHandle(DibCreateCopy(hdib), u"<tovCopyHDIB()=%lld\r\n",
                          u"<tovCopyHDIB()=NULL (error)\r\n");
}

DWORD tovUnloadHDIB(HDIB hdib) { return DibUnload(hdib); }

LONG tovWidth(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovWidth(%lld)\r\n", TRACE_PTR(hdib));
    return LeaveCount(DibWidth(hdib), u"<tovWidth()=%d\r\n", u"<tovWidth()=0 (error)\r\n");
}

LONG tovHeight(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovHeight(%lld)\r\n", TRACE_PTR(hdib));
    return LeaveCount(DibHeight(hdib), u"<tovHeight()=%d\r\n", u"!tovHeight()=0 (error)\r\n");
}

DWORD tovBitCount(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovBitCount(%lld)\r\n", TRACE_PTR(hdib));
    return LeaveCount(DWORD(DibBitCount(hdib)), u"<tovBitCount()=%d\r\n", u"<tovBitCount()=0 (error)\r\n");
}

DWORD tovNumColors(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovNumColors(%lld)\r\n", TRACE_PTR(hdib));
    return LeaveCount(DibNumColors(hdib), u"<tovNumColors()=%d\r\n", u"<tovNumColors()=0 (error)\r\n");
}

BYTE* tovBitsPtr(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovBitsPTR(%lld)\r\n", TRACE_PTR(hdib));
    return LeavePointer(DibBitsPtr(hdib), u"<tovBitsPTR()=%lld\r\n", u"<tovBitsPTR()=NULL\r\n");
}

BITMAPINFOHEADER* tovInfoHeaderPtr(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibInfoHeaderPtr(%lld)\r\n", TRACE_PTR(hdib));
    return LeavePointer(DibInfoHeaderPtr(hdib), u"<DibInfoHeaderPtr()=%lld\r\n",
                        u"<DibInfoHeaderPtr()=NULL\r\n");
}

HBITMAP tovBitmapHandle(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovBitmapHandle(%lld)\r\n", TRACE_PTR(hdib));
    return LeavePointer(DibBitmapHandle(hdib), u"<tovBitmapHandle()=%lld\r\n",
                        u"<tovBitmapHandle()=NULL\r\n");
}

HDIB tovCreateHDIBExt(LONG width, LONG height, DWORD clear, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovCreateHDIBExt(%d,%d,%d,%d)\r\n", width, height, clear, bitcount);
    if (bitcount != 8 && bitcount != 4 && bitcount != 1) {
        DebugError(u"!tovCreateHDIBExt():Invalid bitcount\r\n");
        return nullptr;
    }
    DWORD failure = 0;
    HDIB hdib = DibCreateGrey(width, height, bitcount, &failure);
    if (!hdib) {
        DebugError(failure == DIB_GREY_FAILED_INFO ? u"!tovCreateHDIBExt():LocalAlloc:pbmi:Error\r\n"
                                                   : u"!tovCreateHDIBExt():DibCreateFromBitmapInfo:Error\r\n");
        return nullptr;
    }
    DebugTrace(DIB_LEVEL_FRAME, u">tovClear(%lld,%d)\r\n", TRACE_PTR(hdib), clear);
    // A clear value of 256 or more keeps the pixels the section delivered.
    if (clear < 256) tovLeave(DibClear(hdib, clear), u"<tovClear()=tovOk\r\n", u"<tovClear()=%d\r\n");
    DebugTrace(DIB_LEVEL_FRAME, u"<tovCreateHDIBExt()=%lld\r\n", TRACE_PTR(hdib));
    return hdib;
}

DWORD tovRecreateHDIBExt(HDIB hdib, LONG width, LONG height, DWORD clear, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovRecreateHDIB(%lld,%d,%d,%d,%d)\r\n", TRACE_PTR(hdib), width, height,
               clear, bitcount);
    return tovLeave(DibRecreate(hdib, width, height, clear, bitcount), u"<tovRecreateHDIB()=tovOk\r\n",
                    u"<tovRecreateHDIB()=%d (error)\r\n");
}

DWORD tovConvert(HDIB hdib, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovConvert(%lld,%d)\r\n", TRACE_PTR(hdib), bitcount);
    return tovLeave(DibConvert(hdib, bitcount), u"<tovConvert()=tovOk\r\n", u"<tovConvert()=%d (error)\r\n");
}

DWORD tovClear(HDIB hdib, DWORD value) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovClear(%lld,%d)\r\n", TRACE_PTR(hdib), value);
    if (value > 255) return DibErrorInvalidParm;
    return tovLeave(DibClear(hdib, value), u"<tovClear()=tovOk\r\n", u"<tovClear()=%d\r\n");
}

}  // extern "C"
