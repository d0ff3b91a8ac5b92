// Helpers of the point, histogram and neighbourhood tests, and plain
// reference versions of the operations, pixel by pixel through the bitmap's
// own read and write routines.
#pragma once

#include <gtest/gtest.h>

#include "dibimages.h"
#include "dibops.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace ops1test {

using tovtest::Dib;
using tovtest::kDepths;
using Bytes = std::vector<BYTE>;

// Heights 1-3 reach the no-interior cases; 9 has rows of every kind.
constexpr LONG kHeights[] = {1, 2, 3, 9};

// A random bitmap (padding included); colors, when given, is written into
// the header as an application can, below or above the depth's own count.
inline Dib Random(LONG w, LONG h, DWORD bits, uint32_t seed, DWORD colors = 0) {
    Dib d(tovtest::MakeRandom(w, h, bits, seed));
    if (d.h && colors) d.h->ds.dsBmih.biClrUsed = colors;
    return d;
}

// A 24-bit bitmap, refused by every operation here.
inline Dib Deep() {
    BITMAPINFO info = {};
    info.bmiHeader = {40, 5, 5, 1, 24, 0, 0, 0, 0, 1, 0};
    return Dib(DibCreateFromBitmapInfo(&info));
}

inline DibPixelIO IO(HDIB h) {
    DibPixelIO io;
    EXPECT_EQ(DibRegisterPixelIO(DibBitCount(h), &io), DWORD(DibOk));
    return io;
}

// Pixels drawn from a few values, so that runs and a background are common.
inline void FillFrom(HDIB h, const Bytes& values, uint32_t seed) {
    std::mt19937 rng(seed);
    DibPixelIO io = IO(h);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) io.set(h, x, y, values[rng() % values.size()]);
}

inline Bytes Store(HDIB h) { return tovtest::StoreBytes(h); }
inline void SetStore(HDIB h, const Bytes& b) { std::memcpy(h->pBits, b.data(), b.size()); }
inline Dib Copy(HDIB h) { return Dib(DibCreateCopy(h)); }

/* ---- reference operations ---- */

template <class F>
void RefMap(HDIB h, F f) {
    DibPixelIO io = IO(h);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) io.set(h, x, y, f(int64_t(io.get(h, x, y))));
}

inline DWORD Clamp(int64_t v, DWORD colors) { return DWORD(v < 0 ? 0 : v >= colors ? colors - 1 : v); }

inline void RefBrightness(HDIB h, LONG b) {
    RefMap(h, [&](int64_t old) { return Clamp(old + b, DibNumColors(h)); });
}

// Gain in 16.16, worked out in single precision as the device does.
inline LONG RefGain(LONG contrast) { return LONG(float(contrast + 255) * 0.003921569f * 65536.0f); }

inline void RefContrast(HDIB h, LONG contrast, LONG offset) {
    RefMap(h, [&](int64_t old) { return Clamp(offset + ((old * RefGain(contrast)) >> 16), DibNumColors(h)); });
}

inline void RefInvert(HDIB h) {
    RefMap(h, [&](int64_t old) { return DWORD(DibNumColors(h) - old - 1); });
}

inline void RefGamma(HDIB h, double gamma) {
    const double k = std::pow(255.0, 1.0 - gamma);
    RefMap(h, [&](int64_t x) {
        return x == 0 || gamma == 1.0 ? DWORD(x) : std::min(255u, DWORD(std::pow(double(x), gamma) * k + 0.5));
    });
}

inline void RefStretch(HDIB h, LONG low, LONG high, DWORD mode) {
    DWORD black = DWORD(low), white = DWORD(high);
    if (mode == 1) {
        DWORD hist[256] = {};
        RefMap(h, [&](int64_t v) { return ++hist[v], DWORD(v); });
        const double pixels = double(DWORD(DibWidth(h)) * DWORD(DibHeight(h)));
        const int64_t dark = int64_t(low * 0.01 * pixels), light = int64_t(high * 0.01 * pixels);
        int64_t sum = 0;
        for (black = 0; black < 255 && (sum += hist[black]) <= dark;) ++black;
        for (sum = 0, white = 255; white > 0 && (sum += hist[white]) <= light;) --white;
    }
    const DWORD range = white - black;
    RefMap(h, [&](int64_t p) -> DWORD {
        if (range == 0) return p > black ? 255 : p < black ? 0 : DWORD(p);
        return Clamp(int64_t(DWORD(p) * 255 / range) - int64_t(black * 255 / range), 256);
    });
}

// f(copy, x, y) for every interior pixel, reading the unchanged copy.
template <class F>
void RefInterior(HDIB h, F f) {
    Dib copy = Copy(h);
    DibPixelIO io = IO(h);
    for (LONG y = 1; y + 1 < DibHeight(h); ++y)
        for (LONG x = 1; x + 1 < DibWidth(h); ++x) f(io, copy.h, x, y);
}

inline void RefRank(HDIB h, DWORD rank) {
    RefInterior(h, [&](DibPixelIO& io, HDIB c, LONG x, LONG y) {
        DWORD win[9];
        for (int i = 0; i < 9; ++i) win[i] = io.get(c, x + i % 3 - 1, y + i / 3 - 1);
        std::sort(win, win + 9);
        io.set(h, x, y, win[rank]);
    });
}

inline void RefDespeckle(HDIB h, DWORD threshold, DWORD background) {
    RefInterior(h, [&](DibPixelIO& io, HDIB c, LONG x, LONG y) {
        DWORD count = 0;
        for (int i = 0; i < 9; ++i) count += i != 4 && io.get(c, x + i % 3 - 1, y + i / 3 - 1) != background;
        if (io.get(c, x, y) != background && count < threshold) io.set(h, x, y, background);
    });
}

}  // namespace ops1test
