/*
 * Histogram operations on 8-bit bitmaps: the histogram, the black and white
 * points found from it, and the contrast stretch in its two forms.
 *
 * The stretch computes the new value of each of the 256 levels once and
 * maps the rows through that table.
 */
#include <string.h>

#include "dibkernels.h"
#include "dibops.h"

extern "C" void DibCountRows8(BYTE* const* rows, size_t height, size_t width, DWORD* counters) {
    // Four tables, so that runs of equal bytes do not wait on each other's
    // increments.
    DWORD part[4][256];
    memset(part, 0, sizeof part);
    for (size_t y = 0; y < height; ++y) {
        const BYTE* row = rows[y];
        size_t x = 0;
        for (; x + 8 <= width; x += 8) {
            uint64_t v;
            memcpy(&v, row + x, 8);
            ++part[0][v & 0xFF];
            ++part[1][(v >> 8) & 0xFF];
            ++part[2][(v >> 16) & 0xFF];
            ++part[3][(v >> 24) & 0xFF];
            ++part[0][(v >> 32) & 0xFF];
            ++part[1][(v >> 40) & 0xFF];
            ++part[2][(v >> 48) & 0xFF];
            ++part[3][v >> 56];
        }
        for (; x < width; ++x) ++part[0][row[x]];
    }
    for (int v = 0; v < 256; ++v) counters[v] += part[0][v] + part[1][v] + part[2][v] + part[3][v];
}

extern "C" DWORD DibHistogram(HDIB hdib, DWORD* counters) {
    DebugTrace(DIB_LEVEL_OP, u"<DibHistogram(%lld,%lld)\r\n", TRACE_PTR(hdib), TRACE_PTR(counters));
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    if (!counters) return DibErrorInvalidParm;
    // A row of another depth holds fewer bytes than pixels.
    if (DibBitCount(hdib) != 8) return DibErrorInvalidDIB;
    const LONG width = DibWidth(hdib), height = DibHeight(hdib);
    if (width > 0 && height > 0) {
        if (!hdib->ppRow) return DibErrorInvalidDIB;
        DibCountRows8(hdib->ppRow, (size_t)height, (size_t)width, counters);
    }
    DebugTrace(DIB_LEVEL_OP, u">DibHistogram()=DibOk\r\n");
    return DibOk;
}

extern "C" DWORD DibHistogramBlackValue(const DWORD* counters, LONG count) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramBlackValue(%lld,%d)\r\n", TRACE_PTR(counters), count);
    DWORD level = 255; // the counter of 255 is never read
    int64_t sum = 0;
    for (DWORD v = 0; counters && v < 255; ++v) {
        sum += counters[v];
        if (sum > count) {
            level = v;
            break;
        }
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<DibHistogramBlackValue()=%d\r\n", (int)level);
    return level;
}

extern "C" DWORD DibHistogramWhiteValue(const DWORD* counters, LONG count) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramWhiteValue(%lld,%d)\r\n", TRACE_PTR(counters), count);
    DWORD level = 0; // the counter of 0 is never read
    int64_t sum = 0;
    for (DWORD v = 255; counters && v > 0; --v) {
        sum += counters[v];
        if (sum > count) {
            level = v;
            break;
        }
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<DibHistogramWhiteValue()=%d\r\n", (int)level);
    return level;
}

namespace {

// A cut-off as the search functions' signed count.
LONG CutOff(double pixels) {
    if (pixels >= 2147483647.0) return 0x7FFFFFFF;
    return (LONG)pixels;
}

// The new value of each level between the black and the white point. The two
// quotients are truncated separately, as the filter has always done.
void StretchTable(DWORD black, DWORD white, BYTE* table) {
    const DWORD range = white - black; // unsigned: crossed points give a huge range
    if (range == 0) {
        for (DWORD v = 0; v < 256; ++v) table[v] = v > black ? 255 : v < black ? 0 : (BYTE)v;
        return;
    }
    const DWORD base = (black * 255) / range;
    for (DWORD v = 0; v < 256; ++v) {
        LONG value = (LONG)((v * 255) / range) - (LONG)base;
        table[v] = value > 255 ? 255 : value < 0 ? 0 : (BYTE)value;
    }
}

// Both forms after their argument checks. fixed: the form without
// arguments, which cuts off DIB_STRETCH_DEFAULT_PERCENT at each end.
DWORD Stretch(HDIB hdib, LONG low, LONG high, DWORD mode, bool fixed) {
    if (DibIsValid(hdib) == DibErrorInvalidDIB || DibBitCount(hdib) != 8) return DibErrorInvalidDIB;
    const LONG width = DibWidth(hdib), height = DibHeight(hdib);
    if (width > 0 && height > 0 && !hdib->ppRow) return DibErrorInvalidDIB;
    DWORD* histogram = (DWORD*)LocalAlloc(LPTR, DIB_HISTOGRAM_LEVELS * sizeof(DWORD));
    if (!histogram) return DibErrorMemoryAlocation;

    DWORD black = (DWORD)low, white = (DWORD)high;
    if (mode == 1) {
        DibHistogram(hdib, histogram);
        const double pixels = (double)((DWORD)width * (DWORD)height);
        if (fixed) {
            const LONG count = CutOff(pixels * 0.02);
            black = DibHistogramBlackValue(histogram, count);
            white = DibHistogramWhiteValue(histogram, count);
        } else {
            black = DibHistogramBlackValue(histogram, CutOff((double)low * 0.01 * pixels));
            white = DibHistogramWhiteValue(histogram, CutOff((double)high * 0.01 * pixels));
        }
    }
    BYTE table[256];
    StretchTable(black, white, table);
    if (width > 0)
        for (LONG y = 0; y < height; ++y) DibTableRow8(table, hdib->ppRow[y], (size_t)width);
    LocalFree(histogram);
    if (white == black) DebugTrace(DIB_LEVEL_FRAME, u"   !range==0\r\n");
    DebugTrace(DIB_LEVEL_FRAME, u"<DibHistogramStretch()=DibOk\r\n");
    return DibOk;
}

}  // namespace

extern "C" DWORD DibHistogramStretchEx(HDIB hdib, LONG low, LONG high, DWORD mode) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramStretch(%lld,%d,%d,%d)\r\n", TRACE_PTR(hdib), low, high,
               (int)mode);
    // The arguments come before the handle.
    if (mode > 1 || low < 0 || high < 0 || high < low) return DibErrorInvalidParm;
    if (high > (mode == 0 ? DIB_STRETCH_LEVEL_MAX : DIB_STRETCH_PERCENT_MAX)) return DibErrorInvalidParm;
    return Stretch(hdib, low, high, mode, false);
}

extern "C" DWORD DibHistogramStretch(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramStretch(%lld,%d,%d,%d)\r\n", TRACE_PTR(hdib),
               DIB_STRETCH_DEFAULT_PERCENT, DIB_STRETCH_DEFAULT_PERCENT, 1);
    return Stretch(hdib, DIB_STRETCH_DEFAULT_PERCENT, DIB_STRETCH_DEFAULT_PERCENT, 1, true);
}
