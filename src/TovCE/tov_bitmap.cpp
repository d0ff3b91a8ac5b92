// Exports of the bitmap lifecycle, the accessors and creation: each a thin
// frame around its Dib function with the entry and exit traces.
#include "tovce.h"

extern "C" {

DWORD tovHDIBIsValid(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovHDIBIsValid (%lld)\r\n", TRACE_PTR(hdib));
    DWORD result = DibIsValid(hdib);
    if (result == DibOk) {
        DebugTrace(DIB_LEVEL_FRAME, u"<tovHDIBIsValid ()=tovOk\r\n");
        return tovOk;
    }
    DebugError(u"<tovHDIBIsValid ()=%d (error)\r\n", result);
    return result;
}

HDIB tovCreateCopyHDIB(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovCopyHDIB(%lld)\r\n", TRACE_PTR(hdib));
    HDIB copy = DibCreateCopy(hdib);
    if (!copy) {
        DebugError(u"<tovCopyHDIB()=NULL (error)\r\n");
        return nullptr;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<tovCopyHDIB()=%lld\r\n", TRACE_PTR(copy));
    return copy;
}

DWORD tovUnloadHDIB(HDIB hdib) { return DibUnload(hdib); }

LONG tovWidth(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovWidth(%lld)\r\n", TRACE_PTR(hdib));
    LONG value = DibWidth(hdib);
    if (value == 0)
        DebugError(u"<tovWidth()=0 (error)\r\n");
    else
        DebugTrace(DIB_LEVEL_FRAME, u"<tovWidth()=%d\r\n", value);
    return value;
}

LONG tovHeight(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovHeight(%lld)\r\n", TRACE_PTR(hdib));
    LONG value = DibHeight(hdib);
    if (value == 0)
        DebugError(u"!tovHeight()=0 (error)\r\n");
    else
        DebugTrace(DIB_LEVEL_FRAME, u"<tovHeight()=%d\r\n", value);
    return value;
}

DWORD tovBitCount(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovBitCount(%lld)\r\n", TRACE_PTR(hdib));
    DWORD value = DibBitCount(hdib);
    if (value == 0)
        DebugError(u"<tovBitCount()=0 (error)\r\n");
    else
        DebugTrace(DIB_LEVEL_FRAME, u"<tovBitCount()=%d\r\n", value);
    return value;
}

DWORD tovNumColors(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovNumColors(%lld)\r\n", TRACE_PTR(hdib));
    DWORD value = DibNumColors(hdib);
    if (value == 0)
        DebugError(u"<tovNumColors()=0 (error)\r\n");
    else
        DebugTrace(DIB_LEVEL_FRAME, u"<tovNumColors()=%d\r\n", value);
    return value;
}

BYTE* tovBitsPtr(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovBitsPTR(%lld)\r\n", TRACE_PTR(hdib));
    BYTE* bits = DibBitsPtr(hdib);
    if (!bits)
        DebugTrace(DIB_LEVEL_FRAME, u"<tovBitsPTR()=NULL\r\n");
    else
        DebugTrace(DIB_LEVEL_FRAME, u"<tovBitsPTR()=%lld\r\n", TRACE_PTR(bits));
    return bits;
}

BITMAPINFOHEADER* tovInfoHeaderPtr(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibInfoHeaderPtr(%lld)\r\n", TRACE_PTR(hdib));
    BITMAPINFOHEADER* header = DibInfoHeaderPtr(hdib);
    if (!header)
        DebugTrace(DIB_LEVEL_FRAME, u"<DibInfoHeaderPtr()=NULL\r\n");
    else
        DebugTrace(DIB_LEVEL_FRAME, u"<DibInfoHeaderPtr()=%lld\r\n", TRACE_PTR(header));
    return header;
}

HBITMAP tovBitmapHandle(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovBitmapHandle(%lld)\r\n", TRACE_PTR(hdib));
    HBITMAP bitmap = DibBitmapHandle(hdib);
    if (!bitmap)
        DebugTrace(DIB_LEVEL_FRAME, u"<tovBitmapHandle()=NULL\r\n");
    else
        DebugTrace(DIB_LEVEL_FRAME, u"<tovBitmapHandle()=%lld\r\n", TRACE_PTR(bitmap));
    return bitmap;
}

HDIB tovCreateHDIBExt(LONG width, LONG height, DWORD clear, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovCreateHDIBExt(%d,%d,%d,%d)\r\n", width, height, clear, bitcount);
    if (bitcount != 8 && bitcount != 4 && bitcount != 1) {
        DebugError(u"!tovCreateHDIBExt():Invalid bitcount\r\n");
        return nullptr;
    }
    BITMAPINFO* bmi = DibGreyInfoBlock(width, height, bitcount);
    if (!bmi) {
        DebugError(u"!tovCreateHDIBExt():LocalAlloc:pbmi:Error\r\n");
        return nullptr;
    }
    HDIB hdib = DibCreateFromBitmapInfo(bmi);
    if (!hdib) {
        DebugError(u"!tovCreateHDIBExt():DibCreateFromBitmapInfo:Error\r\n");
        LocalFree(bmi);
        return nullptr;
    }
    DebugTrace(DIB_LEVEL_FRAME, u">tovClear(%lld,%d)\r\n", TRACE_PTR(hdib), clear);
    // A clear value of 256 or more keeps the pixels the section delivered.
    if (clear < 256) {
        DWORD result = DibClear(hdib, clear);
        if (result == DibOk)
            DebugTrace(DIB_LEVEL_FRAME, u"<tovClear()=tovOk\r\n");
        else
            DebugError(u"<tovClear()=%d\r\n", result);
    }
    LocalFree(bmi);
    DebugTrace(DIB_LEVEL_FRAME, u"<tovCreateHDIBExt()=%lld\r\n", TRACE_PTR(hdib));
    return hdib;
}

DWORD tovRecreateHDIBExt(HDIB hdib, LONG width, LONG height, DWORD clear, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovRecreateHDIB(%lld,%d,%d,%d,%d)\r\n", TRACE_PTR(hdib), width, height,
               clear, bitcount);
    DWORD result = DibRecreate(hdib, width, height, clear, bitcount);
    if (result == DibOk) {
        DebugTrace(DIB_LEVEL_FRAME, u"<tovRecreateHDIB()=tovOk\r\n");
        return tovOk;
    }
    DebugError(u"<tovRecreateHDIB()=%d (error)\r\n", result);
    return result;
}

DWORD tovConvert(HDIB hdib, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovConvert(%lld,%d)\r\n", TRACE_PTR(hdib), bitcount);
    DWORD result = DibConvert(hdib, bitcount);
    if (result == DibOk) {
        DebugTrace(DIB_LEVEL_FRAME, u"<tovConvert()=tovOk\r\n");
        return tovOk;
    }
    DebugError(u"<tovConvert()=%d (error)\r\n", result);
    return result;
}

DWORD tovClear(HDIB hdib, DWORD value) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovClear(%lld,%d)\r\n", TRACE_PTR(hdib), value);
    if (value > 255) return DibErrorInvalidParm;
    DWORD result = DibClear(hdib, value);
    if (result == DibOk) {
        DebugTrace(DIB_LEVEL_FRAME, u"<tovClear()=tovOk\r\n");
        return tovOk;
    }
    DebugError(u"<tovClear()=%d\r\n", result);
    return result;
}

}  // extern "C"
