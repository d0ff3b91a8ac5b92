// Pixel access at 1, 4 and 8 bits. The routines check nothing: callers have
// validated the handle and keep x and y inside the picture. A caller gets the
// pair of its bitmap's depth from DibRegisterPixelIO into a DibPixelIO of its
// own, so that operations on other threads never swap its routines.
#include "dibce.h"

#include <tovrel/packedpixel.h>

extern "C" {

DWORD DibGetPixel8(HDIB hdib, LONG x, LONG y) { return hdib->ppRow[y][x]; }

DWORD DibGetPixel4(HDIB hdib, LONG x, LONG y) { return PackedGet(hdib->ppRow[y], x, 4); }

DWORD DibGetPixel1(HDIB hdib, LONG x, LONG y) { return PackedGet(hdib->ppRow[y], x, 1); }

void DibSetPixel8(HDIB hdib, LONG x, LONG y, DWORD value) {
    hdib->ppRow[y][x] = static_cast<BYTE>(value);
}

// Unlike PackedPut, the value is not masked: bits above the pixel's field
// fall on the neighbours to its left in the same byte, and those past the
// byte are lost. Callers of the exported setters see that, so it stays.
void DibSetPixel4(HDIB hdib, LONG x, LONG y, DWORD value) {
    BYTE* p = &hdib->ppRow[y][x >> 1];
    if (x & 1)
        *p = static_cast<BYTE>((*p & 0xF0u) | value);
    else
        *p = static_cast<BYTE>((*p & 0x0Fu) | (value << 4));
}

void DibSetPixel1(HDIB hdib, LONG x, LONG y, DWORD value) {
    BYTE* p = &hdib->ppRow[y][x >> 3];
    unsigned shift = 7u - unsigned(x & 7);
    *p = static_cast<BYTE>((*p & ~(1u << shift)) | (value << shift));
}

DWORD DibRegisterPixelIO(DWORD bitcount, DibPixelIO* io) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibRegisterPixelIO(%d)\r\n", bitcount);
    DibPixelIO pair;
    switch (bitcount) {
    case 8:
        pair = {DibGetPixel8, DibSetPixel8};
        break;
    case 4:
        pair = {DibGetPixel4, DibSetPixel4};
        break;
    case 1:
        pair = {DibGetPixel1, DibSetPixel1};
        break;
    default:
        DebugTrace(DIB_LEVEL_FRAME, u">DibRegisterPixelIO()=DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }
    if (!io) {
        DebugTrace(DIB_LEVEL_FRAME, u">DibRegisterPixelIO()=DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }
    *io = pair;
    DebugTrace(DIB_LEVEL_FRAME, u"<DibRegisterPixelIO()=DibOk\r\n");
    return DibOk;
}

}  // extern "C"
