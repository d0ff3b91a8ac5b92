/*
 * Dithering of the bitmap layer: error diffusion on a serpentine scan with
 * the weights 7, 3, 5 and 1 sixteenths, in integers.
 *   DibDither2Color   levels 0 and 255
 *   DibDither16Color  levels 0, 16, 32 ... 240 and 255 (17 of them)
 *
 * The bitmap stays an 8-bit one with its colour table; only the pixel
 * values are confined to the levels. Each share is divided on its own,
 * truncating towards zero, so part of every error is dropped on purpose.
 */
#include <string.h>

#include "dibops.h"

namespace {

// Signed division by 16, truncating towards zero, without a divide.
inline int32_t Div16(int32_t v) { return (v + ((v >> 31) & 15)) >> 4; }

struct TwoLevelQuantiser {
    static inline int32_t Quantise(int32_t v) { return v < 128 ? 0 : 255; }
};

// Table form: entry i is (i + 8) with the low four bits cleared, at most 255.
struct SeventeenLevelQuantiser {
    const int32_t* table;
    inline int32_t Quantise(int32_t v) const {
        const int32_t c = v < 0 ? 0 : (v > 255 ? 255 : v);
        return table[c];
    }
};

// One row: the scan over columns 1 .. width-2 in the row's direction, then
// every column through the quantiser into the output. The value ahead is
// carried in a register rather than re-read from the row.
template <class Q>
inline void DitherRow(const Q& q, int32_t* imagerow, int32_t* errordata, BYTE* out, LONG width,
                      bool leftToRight) {
    if (width > 2) {
        const LONG step = leftToRight ? 1 : -1;
        LONG x = leftToRight ? 1 : width - 2;
        int32_t v = imagerow[x];
        for (LONG n = width - 2; n > 0; --n, x += step) {
            const LONG ahead = x + step;
            const LONG behind = x - step;
            const int32_t qv = q.Quantise(v);
            const int32_t e = v - qv;
            imagerow[x] = qv;
            v = imagerow[ahead] + Div16(e * 7);
            errordata[behind] += Div16(e * 3);
            errordata[x] += Div16(e * 5);
            errordata[ahead] += Div16(e);
        }
        imagerow[x] = v; // the column after the scan keeps what reached it
    }
    for (LONG x = 0; x < width; ++x) out[x] = (BYTE)q.Quantise(imagerow[x]);
}

template <class Q>
DWORD Dither(HDIB hdib, const Q& q, const char16_t* errParm, const char16_t* errRow,
             const char16_t* errData) {
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    if (DibBitCount(hdib) != 8 || DibNumColors(hdib) != 256) {
        DebugError(errParm);
        return DibErrorInvalidDIB;
    }
    const LONG width = DibWidth(hdib);
    const LONG height = DibHeight(hdib);
    HDIB copy = DibCreateCopy(hdib);
    if (copy == NULL) return DibErrorUnknown;
    const size_t rowBytes = (size_t)(width > 0 ? width : 1) * sizeof(int32_t);
    int32_t* imagerow = (int32_t*)LocalAlloc(LPTR, rowBytes);
    if (imagerow == NULL) {
        DebugError(errRow);
        DibUnload(copy);
        return DibErrorMemoryAlocation;
    }
    int32_t* errordata = (int32_t*)LocalAlloc(LPTR, rowBytes);
    if (errordata == NULL) {
        DebugError(errData);
        LocalFree(imagerow);
        DibUnload(copy);
        return DibErrorMemoryAlocation;
    }
    for (LONG y = 0; y < height; ++y) {
        const BYTE* src = copy->ppRow[y];
        for (LONG x = 0; x < width; ++x) imagerow[x] = (int32_t)src[x] + errordata[x];
        memset(errordata, 0, rowBytes);
        DitherRow(q, imagerow, errordata, hdib->ppRow[y], width, (y & 1) != 0);
    }
    LocalFree(errordata);
    LocalFree(imagerow);
    DibUnload(copy);
    return DibOk;
}

}  // namespace

extern "C" {

DWORD DibDither2Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibDither2Color(%lld)\r\n", TRACE_PTR(hdib));
    const DWORD result = Dither(hdib, TwoLevelQuantiser(),
                                u"   !DibDither2Color():DibErrorInvalidParm\r\n",
                                u"   !DibDither2Color():LocalAlloc:imagerow:Error\r\n",
                                u"   !DibDither2Color():LocalAlloc:errordata:Error\r\n");
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibDither2Color()=DibOk\r\n");
    return DibOk;
}

DWORD DibDither16Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibDither16Color(%lld)\r\n", TRACE_PTR(hdib));
    int32_t table[256];
    for (int i = 0; i < 256; ++i) {
        const int32_t v = (i + 8) & ~15;
        table[i] = v > 255 ? 255 : v;
    }
    const DWORD result = Dither(hdib, SeventeenLevelQuantiser{table},
                                u"   !DibDither16Color():DibErrorInvalidParm\r\n",
                                u"   !DibDither16Color():LocalAlloc:imagerow:Error\r\n",
                                u"   !DibDither16Color():LocalAlloc:errordata:Error\r\n");
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibDither16Color()=DibOk\r\n");
    return DibOk;
}

}  // extern "C"
