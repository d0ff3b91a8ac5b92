/*
 * One pixel of a packed row at 1, 2, 4 or 8 bits, the leftmost pixel in the
 * high bits of its byte: the layout of every bitmap of the libraries. The
 * one reader and writer for code that touches single pixels; bulk loops
 * (flips, rank strips) work on whole bytes. Internal; not installed.
 */
#ifndef TOVREL_PACKEDPIXEL_H
#define TOVREL_PACKEDPIXEL_H

#include <tovrel/wintypes.h>

#ifdef __cplusplus

// Pixel x of row; x is not checked. With a constant depth the switch folds.
inline DWORD PackedGet(const BYTE* row, LONG x, int bpp) {
    switch (bpp) {
    case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1u;
    case 2: return (row[x >> 2] >> (6 - 2 * (x & 3))) & 3u;
    case 4: return (row[x >> 1] >> ((x & 1) ? 0 : 4)) & 15u;
    default: return row[x];
    }
}

// Writes the low bpp bits of value to pixel x, leaving its neighbours.
inline void PackedPut(BYTE* row, LONG x, int bpp, DWORD value) {
    if (bpp == 8) {
        row[x] = static_cast<BYTE>(value);
        return;
    }
    const int perByte = 8 / bpp;
    const unsigned shift = static_cast<unsigned>(8 - bpp * (1 + (x & (perByte - 1))));
    const unsigned mask = ((1u << bpp) - 1u) << shift;
    BYTE* p = &row[x / perByte];
    *p = static_cast<BYTE>((*p & ~mask) | ((value << shift) & mask));
}

#endif

#endif
