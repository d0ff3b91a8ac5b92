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

#include <tovrel/scopeguard.h>

namespace {

// Signed division by 16, truncating towards zero, without a divide.
inline int32_t Div16(int32_t v) { return (v + ((v >> 31) & 15)) >> 4; }

struct TwoLevelQuantiser {
    static inline int32_t Quantise(int32_t v) { return v < 128 ? 0 : 255; }
};

// Entry i of the table is (i + 8) with the low four bits cleared, at most
// 255; for a clamped value that is this expression, which vectorises.
struct SeventeenLevelQuantiser {
    static inline int32_t Quantise(int32_t v) {
        const int32_t t = (v + 8) & ~15;
        return t < 0 ? 0 : (t > 255 ? 255 : t);
    }
};

// Values that reach the quantiser stay within [-kReach, 255 + kReach]: an
// error is at most 127 (two levels) or 8 (seventeen) in size, and what a
// pixel receives from its neighbours is at most 7 + 3 + 5 + 1 sixteenths
// of that. The scan looks its quantised value and the four shares up in
// tables over that range, so the chain from one pixel to the next is one
// load and one addition; a value outside the range (none can occur) takes
// the arithmetic path.
const int32_t kReach = 160;
const int32_t kSpan = 256 + 2 * kReach;

struct ShareTables {
    int32_t q[kSpan], s7[kSpan], s3[kSpan], s5[kSpan], s1[kSpan];
};

template <class Q>
void BuildShares(ShareTables& t) {
    for (int32_t i = 0; i < kSpan; ++i) {
        const int32_t v = i - kReach;
        const int32_t q = Q::Quantise(v);
        const int32_t e = v - q;
        t.q[i] = q;
        t.s7[i] = (e * 7) / 16;
        t.s3[i] = (e * 3) / 16;
        t.s5[i] = (e * 5) / 16;
        t.s1[i] = e / 16;
    }
}

// One row. The scan runs over columns 1 .. width-2 in the row's direction;
// within it a column's error share for the next row is complete once the
// pixel after it is done: 1/16 from the pixel before, 5/16 from its own,
// 3/16 from the pixel after (the table was cleared). The scan so keeps the
// shares in registers and stores each column once, and writes a scanned
// pixel straight out as its quantised value, which the quantiser keeps.
// The two columns outside the scan go through the quantiser at the end.
template <class Q>
inline void DitherRow(const ShareTables& t, const int32_t* imagerow, int32_t* errordata, BYTE* out,
                      LONG width, bool leftToRight) {
    if (width <= 2) {
        memset(errordata, 0, sizeof(int32_t) * static_cast<size_t>(width));
        for (LONG x = 0; x < width; ++x) out[x] = static_cast<BYTE>(Q::Quantise(imagerow[x]));
        return;
    }
    const LONG step = leftToRight ? 1 : -1;
    const LONG first = leftToRight ? 1 : width - 2;
    // Tables indexed by the value itself, and the value kept pointer-wide,
    // so that a lookup is one load: the chain from one pixel to the next is
    // that load and one addition.
    const int32_t* const q0 = t.q + kReach;
    const int32_t* const s70 = t.s7 + kReach;
    const int32_t* const s30 = t.s3 + kReach;
    const int32_t* const s50 = t.s5 + kReach;
    const int32_t* const s10 = t.s1 + kReach;
    LONG x = first;
    intptr_t v = imagerow[x];
    int32_t pendBehind = 0; // share of the column behind, lacking 3/16 of this pixel
    int32_t pendHere = 0;   // share of this column so far
    for (LONG n = width - 2; n > 0; --n, x += step) {
        const LONG ahead = x + step;
        int32_t q, s7, s3, s5, s1;
        if (static_cast<uintptr_t>(v + kReach) < static_cast<uintptr_t>(kSpan)) {
            q = q0[v], s7 = s70[v], s3 = s30[v], s5 = s50[v], s1 = s10[v];
        } else {
            q = Q::Quantise(static_cast<int32_t>(v));
            const int32_t e = static_cast<int32_t>(v) - q;
            s7 = Div16(e * 7), s3 = Div16(e * 3), s5 = Div16(e * 5), s1 = Div16(e);
        }
        out[x] = static_cast<BYTE>(q);
        v = static_cast<intptr_t>(imagerow[ahead]) + s7;
        errordata[x - step] = pendBehind + s3;
        pendBehind = pendHere + s5;
        pendHere = s1;
    }
    // x is now the column after the scan.
    errordata[x - step] = pendBehind;
    errordata[x] = pendHere;
    out[x] = static_cast<BYTE>(Q::Quantise(static_cast<int32_t>(v)));
    out[first - step] = static_cast<BYTE>(Q::Quantise(imagerow[first - step]));
}

template <class Q>
DWORD Dither(HDIB hdib, const char16_t* errParm, const char16_t* errRow,
             const char16_t* errData) {
    if (DibIsInvalid(hdib)) return DibErrorInvalidDIB;
    if (DibBitCount(hdib) != 8 || DibNumColors(hdib) != 256) {
        DebugError(errParm);
        return DibErrorInvalidDIB;
    }
    const LONG width = DibWidth(hdib);
    const LONG height = DibHeight(hdib);
    HDIB copy = DibCreateCopy(hdib);
    if (!copy) return DibErrorUnknown;
    TovScopeGuard unloadCopy([copy] { DibUnload(copy); });
    const size_t rowBytes = static_cast<size_t>(width > 0 ? width : 1) * sizeof(int32_t);
    auto* imagerow = static_cast<int32_t*>(LocalAlloc(LPTR, rowBytes));
    if (!imagerow) {
        DebugError(errRow);
        return DibErrorMemoryAlocation;
    }
    TovScopeGuard freeImagerow([imagerow] { LocalFree(imagerow); });
    auto* errordata = static_cast<int32_t*>(LocalAlloc(LPTR, rowBytes));
    if (!errordata) {
        DebugError(errData);
        return DibErrorMemoryAlocation;
    }
    TovScopeGuard freeErrordata([errordata] { LocalFree(errordata); });
    ShareTables tables;
    BuildShares<Q>(tables);
    for (LONG y = 0; y < height; ++y) {
        const BYTE* src = copy->ppRow[y];
        for (LONG x = 0; x < width; ++x) imagerow[x] = static_cast<int32_t>(src[x]) + errordata[x];
        DitherRow<Q>(tables, imagerow, errordata, hdib->ppRow[y], width, (y & 1) != 0);
    }
    return DibOk;
}

}  // namespace

extern "C" {

DWORD DibDither2Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibDither2Color(%lld)\r\n", TRACE_PTR(hdib));
    const DWORD result = Dither<TwoLevelQuantiser>(hdib,
                                u"   !DibDither2Color():DibErrorInvalidParm\r\n",
                                u"   !DibDither2Color():LocalAlloc:imagerow:Error\r\n",
                                u"   !DibDither2Color():LocalAlloc:errordata:Error\r\n");
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibDither2Color()=DibOk\r\n");
    return DibOk;
}

DWORD DibDither16Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibDither16Color(%lld)\r\n", TRACE_PTR(hdib));
    const DWORD result = Dither<SeventeenLevelQuantiser>(hdib,
                                u"   !DibDither16Color():DibErrorInvalidParm\r\n",
                                u"   !DibDither16Color():LocalAlloc:imagerow:Error\r\n",
                                u"   !DibDither16Color():LocalAlloc:errordata:Error\r\n");
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibDither16Color()=DibOk\r\n");
    return DibOk;
}

}  // extern "C"
