// Pixels and colours of a surface, and the table of the 256 ternary raster
// operations.
//
// Depths: 1, 2 and 4 bits pack the leftmost pixel into the high bits of a
// byte; 16 bits are 5-5-5 RGB; 24 bits are blue, green, red bytes; 32 bits
// little-endian XRGB words. Raw values of 24 and 32 bits read as 0x00RRGGBB.
#include "gdidc.h"

#include <tovrel/packedpixel.h>

#include <array>
#include <utility>

DWORD GdiGetRaw(const BYTE* row, LONG x, int bpp) {
    switch (bpp) {
    case 1:
    case 2:
    case 4:
    case 8: return PackedGet(row, x, bpp);
    case 16: return DWORD(row[2 * x]) | DWORD(row[2 * x + 1]) << 8;
    case 24: {
        const BYTE* p = row + 3 * int64_t(x);
        return DWORD(p[0]) | DWORD(p[1]) << 8 | DWORD(p[2]) << 16;
    }
    default: {
        const BYTE* p = row + 4 * int64_t(x);
        return DWORD(p[0]) | DWORD(p[1]) << 8 | DWORD(p[2]) << 16 | DWORD(p[3]) << 24;
    }
    }
}

void GdiPutRaw(BYTE* row, LONG x, int bpp, DWORD v) {
    switch (bpp) {
    case 1:
    case 2:
    case 4:
    case 8: PackedPut(row, x, bpp, v); break;
    case 16:
        row[2 * x] = BYTE(v);
        row[2 * x + 1] = BYTE(v >> 8);
        break;
    case 24: {
        BYTE* p = row + 3 * int64_t(x);
        p[0] = BYTE(v);
        p[1] = BYTE(v >> 8);
        p[2] = BYTE(v >> 16);
        break;
    }
    default: {
        BYTE* p = row + 4 * int64_t(x);
        p[0] = BYTE(v);
        p[1] = BYTE(v >> 8);
        p[2] = BYTE(v >> 16);
        p[3] = BYTE(v >> 24);
        break;
    }
    }
}

namespace {

inline DWORD Expand5(DWORD c) { return (c << 3) | (c >> 2); }

}  // namespace

COLORREF GdiRawToColour(const GdiSurface& s, DWORD raw) {
    if (s.bpp <= 8) {
        if (raw >= s.colorCount) return RGB(0, 0, 0);
        const RGBQUAD& q = s.colors[raw];
        return RGB(q.rgbRed, q.rgbGreen, q.rgbBlue);
    }
    if (s.bpp == 16) return RGB(Expand5((raw >> 10) & 31), Expand5((raw >> 5) & 31), Expand5(raw & 31));
    return RGB((raw >> 16) & 255, (raw >> 8) & 255, raw & 255);
}

DWORD GdiNearestIndex(const RGBQUAD* table, DWORD count, COLORREF colour) {
    int r = colour & 255, g = (colour >> 8) & 255, b = (colour >> 16) & 255;
    DWORD best = 0;
    int bestDistance = 1 << 30;
    for (DWORD i = 0; i < count; ++i) {
        int dr = table[i].rgbRed - r, dg = table[i].rgbGreen - g, db = table[i].rgbBlue - b;
        int distance = dr * dr + dg * dg + db * db;
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
            if (!distance) break;
        }
    }
    return best;
}

DWORD GdiColourToRaw(const GdiSurface& s, COLORREF colour) {
    DWORD r = colour & 255, g = (colour >> 8) & 255, b = (colour >> 16) & 255;
    if (s.bpp <= 8) return GdiNearestIndex(s.colors, s.colorCount, colour);
    if (s.bpp == 16) return (r >> 3) << 10 | (g >> 3) << 5 | (b >> 3);
    return r << 16 | g << 8 | b;
}

namespace {

// The operation with truth table R, written as the sum of its minterms; with
// R a constant the compiler folds each entry to a few bitwise instructions.
template <unsigned R>
uint32_t Rop(uint32_t p, uint32_t s, uint32_t d) {
    uint32_t result = 0;
    for (unsigned i = 0; i < 8; ++i) {
        if (R & (1u << i)) result |= ((i & 4) ? p : ~p) & ((i & 2) ? s : ~s) & ((i & 1) ? d : ~d);
    }
    return result;
}

// A row at a time: one call a row, and a loop the compiler can vectorise.
template <unsigned R>
void RopRow(uint32_t p, const uint32_t* s, uint32_t* d, size_t n) {
    for (size_t i = 0; i < n; ++i) d[i] = Rop<R>(p, s[i], d[i]);
}

template <std::size_t... I>
constexpr std::array<GdiRopFn, 256> MakeRopTable(std::index_sequence<I...>) {
    return {{&Rop<unsigned(I)>...}};
}

template <std::size_t... I>
constexpr std::array<GdiRopRowFn, 256> MakeRopRowTable(std::index_sequence<I...>) {
    return {{&RopRow<unsigned(I)>...}};
}

constexpr std::array<GdiRopFn, 256> kRopTable = MakeRopTable(std::make_index_sequence<256>());
constexpr std::array<GdiRopRowFn, 256> kRopRowTable = MakeRopRowTable(std::make_index_sequence<256>());

}  // namespace

GdiRopFn GdiRopFunction(uint32_t rop8) { return kRopTable[rop8 & 255u]; }
GdiRopRowFn GdiRopRowFunction(uint32_t rop8) { return kRopRowTable[rop8 & 255u]; }
