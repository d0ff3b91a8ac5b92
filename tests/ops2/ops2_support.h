// Helpers of the convolution, geometry and dithering tests: random bitmaps,
// a plain picture type for the reference implementations, pixel access by
// the addressing rules, snapshots of a bitmap's bytes.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "dibops.h"
#include "testsupport.h"

namespace ops2 {

// A picture as the references see it: width x height values, row 0 on top.
struct Pic {
    LONG w = 0, h = 0;
    std::vector<int> v;
    int& at(LONG x, LONG y) { return v[(size_t)y * w + x]; }
    int at(LONG x, LONG y) const { return v[(size_t)y * w + x]; }
};

inline DWORD GetPx(HDIB d, LONG x, LONG y, int bpp) {
    const BYTE* row = d->ppRow[y];
    if (bpp == 8) return row[x];
    if (bpp == 4) return (x & 1) ? (row[x / 2] & 0x0F) : (row[x / 2] >> 4);
    return (row[x / 8] >> (7 - x % 8)) & 1;
}

inline void SetPx(HDIB d, LONG x, LONG y, int bpp, DWORD v) {
    BYTE* row = d->ppRow[y];
    if (bpp == 8) {
        row[x] = (BYTE)v;
    } else if (bpp == 4) {
        const int sh = (x & 1) ? 0 : 4;
        row[x / 2] = (BYTE)((row[x / 2] & ~(0x0F << sh)) | ((v & 0x0F) << sh));
    } else {
        const int sh = 7 - x % 8;
        row[x / 8] = (BYTE)((row[x / 8] & ~(1 << sh)) | ((v & 1) << sh));
    }
}

inline Pic Read(HDIB d) {
    Pic p;
    p.w = DibWidth(d);
    p.h = DibHeight(d);
    const int bpp = DibBitCount(d);
    p.v.resize((size_t)p.w * p.h);
    for (LONG y = 0; y < p.h; ++y)
        for (LONG x = 0; x < p.w; ++x) p.at(x, y) = (int)GetPx(d, x, y, bpp);
    return p;
}

inline std::vector<BYTE> Bytes(HDIB d) {
    const BYTE* b = DibBitsPtr(d);
    return std::vector<BYTE>(b, b + (size_t)DibHeight(d) * DibRowLength(d));
}

// A bitmap of the given size and depth whose every byte, row padding
// included, is random.
inline HDIB RandomDib(std::mt19937& rng, LONG w, LONG h, int bpp) {
    HDIB d = tovCreateHDIBExt(w, h, 0, (DWORD)bpp);
    if (d == NULL) return NULL;
    BYTE* b = DibBitsPtr(d);
    const size_t n = (size_t)DibHeight(d) * DibRowLength(d);
    for (size_t i = 0; i < n; ++i) b[i] = (BYTE)rng();
    return d;
}

inline void FillPic(HDIB d, const Pic& p) {
    const int bpp = DibBitCount(d);
    for (LONG y = 0; y < p.h; ++y)
        for (LONG x = 0; x < p.w; ++x) SetPx(d, x, y, bpp, (DWORD)p.at(x, y));
}

inline HDIB UniformDib(LONG w, LONG h, BYTE value) {
    HDIB d = tovCreateHDIBExt(w, h, value, 8);
    return d;
}

// Unloads at scope end.
struct DibGuard {
    HDIB d;
    explicit DibGuard(HDIB h) : d(h) {}
    ~DibGuard() {
        if (d) DibUnload(d);
    }
    DibGuard(const DibGuard&) = delete;
    DibGuard& operator=(const DibGuard&) = delete;
};

}  // namespace ops2
