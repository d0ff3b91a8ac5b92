// Grey bitmaps: the standard grey info block, clearing, creation,
// re-creation, depth conversion and copying between handles.
#include "dibce.h"

#include <cstring>

#include <tovrel/scopeguard.h>

namespace {

bool GreyDepth(DWORD bitcount) { return bitcount == 8 || bitcount == 4 || bitcount == 1; }

// 4 to 8 bits: 17 x v, worked out once in single precision.
struct Expand4Table {
    BYTE v[16];
    Expand4Table() {
        for (int i = 0; i < 16; ++i) v[i] = static_cast<BYTE>(static_cast<float>(i) * (255.0f / 15.0f));
    }
};
const Expand4Table kExpand4;

DWORD ConvertValue(DWORD from, DWORD to, DWORD v) {
    switch (from * 16 + to) {
    case 8 * 16 + 4: return v >> 4;
    case 8 * 16 + 1: return v >= 128 ? 1 : 0;
    case 4 * 16 + 8: return kExpand4.v[v & 15];
    case 4 * 16 + 1: return v >= 8 ? 1 : 0;
    case 1 * 16 + 8: return v ? 255 : 0;
    case 1 * 16 + 4: return v ? 15 : 0;
    default: return v;
    }
}

}  // namespace

extern "C" {

BITMAPINFO* DibGreyInfoBlock(LONG width, LONG height, DWORD bitcount) {
    if (!GreyDepth(bitcount)) return nullptr;
    DWORD colours = 1u << bitcount;
    BITMAPINFO* bmi = DibNewInfoBlock(width, height, colours);
    if (!bmi) return nullptr;
    bmi->bmiHeader.biBitCount = static_cast<WORD>(bitcount);
    auto* table = reinterpret_cast<RGBQUAD*>(reinterpret_cast<BYTE*>(bmi) + DIB_HEADER_BYTES);
    DWORD step = 255 / (colours - 1);  // 255, 17 or 1
    for (DWORD i = 0; i < colours; ++i) {
        BYTE grey = static_cast<BYTE>(i * step);
        table[i].rgbBlue = table[i].rgbGreen = table[i].rgbRed = grey;
    }
    return bmi;
}

HDIB DibCreateGrey(LONG width, LONG height, DWORD bitcount, DWORD* failure) {
    BITMAPINFO* bmi = DibGreyInfoBlock(width, height, bitcount);
    if (!bmi) {
        if (failure) *failure = DIB_GREY_FAILED_INFO;
        return nullptr;
    }
    HDIB hdib = DibCreateFromBitmapInfo(bmi);
    LocalFree(bmi);
    if (!hdib && failure) *failure = DIB_GREY_FAILED_BITMAP;
    return hdib;
}

DWORD DibClear(HDIB hdib, DWORD value) {
    DebugTrace(DIB_LEVEL_OP, u">DibClear(%lld, %d)\r\n", TRACE_PTR(hdib), value);
    if (DibIsInvalid(hdib)) return DibErrorInvalidDIB;
    DibPixelIO io;
    if (DibRegisterPixelIO(DibBitCount(hdib), &io)) return DibErrorInvalidDIB;
    LONG width = DibWidth(hdib), height = DibHeight(hdib);
    // A row fill with the bytes the pixel routine leaves: a whole byte's
    // pixels written in order give the same byte whatever it held, so the
    // first byte of the first row, written pixel by pixel, is the pattern;
    // only the pixels of a last, partly used byte go one by one.
    const LONG perByte = LONG(8 / DibBitCount(hdib));
    const LONG fullBytes = width / perByte;
    if (height > 0 && fullBytes > 0) {
        for (LONG x = 0; x < perByte; ++x) io.set(hdib, x, 0, value);
        const BYTE pattern = hdib->ppRow[0][0];
        for (LONG y = 0; y < height; ++y) std::memset(hdib->ppRow[y], pattern, size_t(fullBytes));
    }
    for (LONG y = 0; y < height; ++y)
        for (LONG x = fullBytes * perByte; x < width; ++x) io.set(hdib, x, y, value);
    DebugTrace(DIB_LEVEL_OP, u"<DibClear()=DibOk\r\n");
    return DibOk;
}

HDIB DibCreate(LONG width, LONG height, DWORD clear) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibCreate()\r\n");
    DWORD failure = 0;
    HDIB hdib = DibCreateGrey(width, height, 8, &failure);
    if (!hdib) {
        DebugError(failure == DIB_GREY_FAILED_INFO ? u"!DibCreate():LocalAlloc:pbmi:Error\r\n"
                                                   : u"!DibCreate():DibCreateFromBitmapInfo:Error\r\n");
        return nullptr;
    }
    DibClear(hdib, clear);
    DebugTrace(DIB_LEVEL_FRAME, u"<DibCreate()=%lld\r\n", TRACE_PTR(hdib));
    return hdib;
}

DWORD DibRecreate(HDIB hdib, LONG width, LONG height, DWORD clear, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibRecreate()\r\n");
    if (DibIsInvalid(hdib)) return DibErrorInvalidDIB;
    if (!GreyDepth(bitcount)) {
        DebugError(u"!DibRecreate():Invalid bitcount\r\n");
        return DibErrorInvalidParm;
    }
    BITMAPINFO* bmi = DibGreyInfoBlock(width, height, bitcount);
    if (!bmi) {
        DebugError(u"!DibRecreate():LocalAlloc:pbmi:Error\r\n");
        return DibErrorUnknown;
    }
    TovScopeGuard freeBmi([bmi] { LocalFree(bmi); });
    if (DibReCreateFromBitmapInfo(bmi, hdib)) {
        DebugError(u"!DibRecreate():DibReCreateFromBitmapInfo():Error\r\n");
        return DibErrorUnknown;
    }
    DibClear(hdib, clear);
    DebugTrace(DIB_LEVEL_FRAME, u"<DibRecreate()=%lld\r\n", TRACE_PTR(hdib));
    return DibOk;
}

DWORD DibConvert(HDIB hdib, DWORD bitcount) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibConvert(%lld,%d)\r\n", TRACE_PTR(hdib), bitcount);
    if (DibIsInvalid(hdib)) return DibErrorInvalidDIB;
    DWORD from = DibBitCount(hdib);
    if (bitcount == from) return DibOk;
    if (!GreyDepth(from)) return DibErrorInvalidDIB;
    if (!GreyDepth(bitcount)) return DibErrorInvalidParm;

    HDIB old = DibCreateCopy(hdib);
    if (!old) return DibErrorUnknown;
    {  // the copy and the block go before the exit trace
        TovScopeGuard unloadOld([old] { DibUnload(old); });
        LONG width = DibWidth(hdib), height = DibHeight(hdib);
        BITMAPINFO* bmi = DibGreyInfoBlock(width, height, bitcount);
        if (!bmi) {
            DebugError(u"   !DibConvert():LocalAlloc:pbmi:Error\r\n");
            DebugMemoryStatus(DIB_LEVEL_FRAME);
            return DibErrorUnknown;
        }
        TovScopeGuard freeBmi([bmi] { LocalFree(bmi); });
        if (DibReCreateFromBitmapInfo(bmi, hdib)) {
            DebugError(u"   !DibConvert():DibReCreateFromBitmapInfo:Error\r\n");
            return DibErrorUnknown;
        }
        DibPixelIO in, out;
        DibRegisterPixelIO(from, &in);
        DibRegisterPixelIO(bitcount, &out);
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x)
                out.set(hdib, x, y, ConvertValue(from, bitcount, in.get(old, x, y)));
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<DibConvert()=DibOk\r\n");
    return DibOk;
}

DWORD DibCopy(HDIB destination, HDIB source) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibCopy (%lld, %lld)\r\n", TRACE_PTR(destination), TRACE_PTR(source));
    if (DibIsInvalid(destination) || DibIsInvalid(source)) return DibErrorInvalidDIB;
    LONG width = DibWidth(source), height = DibHeight(source);
    WORD bits = DibBitCount(source);
    if (width != DibWidth(destination) || height != DibHeight(destination) ||
        bits != DibBitCount(destination)) {
        if (DibRecreate(destination, width, height, 0, bits)) {
            DebugTrace(DIB_LEVEL_FRAME, u"   !DibRecreate() failed\r\n");
            DebugTrace(DIB_LEVEL_FRAME, u"<DibCopy()=dibErrorUnknown\r\n");
            return DibErrorUnknown;
        }
    }
    // Rows x row length: equal on both sides now, and within both stores even
    // where a loaded header carries its own biSizeImage.
    int64_t bytes = int64_t(height) * DibRowBytes(width, bits);
    if (bytes > 0) std::memcpy(destination->pBits, source->pBits, size_t(bytes));
    DebugTrace(DIB_LEVEL_FRAME, u"<DibCopy ()=%s\r\n", u"DibOk");
    return DibOk;
}

}  // extern "C"
