// Helpers of the point, histogram and neighbourhood tests: random bitmaps of
// any depth and colour count, the pixel store as bytes, and plain reference
// versions of the operations, written pixel by pixel through the bitmap's
// read and write routines as the operations are described.
#pragma once

#include <gtest/gtest.h>

#include "dibce.h"
#include "dibops.h"
#include "testsupport.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace ops1test {

constexpr DWORD kDepths[] = {1, 4, 8};
constexpr LONG kSizes[] = {1, 2, 3, 4, 7, 8, 9, 31, 32, 33, 70};

// Owns a handle for the length of a test.
struct Dib {
    HDIB h = nullptr;
    Dib() = default;
    explicit Dib(HDIB handle) : h(handle) {}
    ~Dib() {
        if (h) DibUnload(h);
    }
    Dib(const Dib&) = delete;
    Dib& operator=(const Dib&) = delete;
    Dib(Dib&& o) noexcept : h(o.h) { o.h = nullptr; }
    operator HDIB() const { return h; }
};

// A bitmap of the depth with colours table entries (0: the depth's own
// count), every byte of the store random, padding included. A count above
// the depth's is written into the header afterwards, as an application can
// through tovInfoHeaderPtr.
inline Dib MakeRandom(LONG width, LONG height, DWORD bits, uint32_t seed, DWORD colors = 0) {
    const DWORD most = bits <= 8 ? 1u << bits : 256;
    const DWORD patched = colors > most ? colors : 0;
    if (patched) colors = 0;
    const DWORD entries = colors ? colors : (bits <= 8 ? 1u << bits : 0);
    auto* info = static_cast<BITMAPINFO*>(LocalAlloc(LPTR, 40 + 4 * (entries + 1)));
    info->bmiHeader.biSize = 40;
    info->bmiHeader.biWidth = width;
    info->bmiHeader.biHeight = height;
    info->bmiHeader.biPlanes = 1;
    info->bmiHeader.biBitCount = WORD(bits);
    info->bmiHeader.biClrUsed = colors;
    auto* table = reinterpret_cast<RGBQUAD*>(reinterpret_cast<BYTE*>(info) + 40);
    for (DWORD i = 0; i < entries; ++i) table[i].rgbBlue = table[i].rgbGreen = table[i].rgbRed = BYTE(i);
    Dib d(DibCreateFromBitmapInfo(info));
    LocalFree(info);
    EXPECT_NE(d.h, nullptr);
    if (d.h) {
        if (patched) d.h->ds.dsBmih.biClrUsed = patched;
        std::mt19937 rng(seed);
        for (DWORD i = 0; i < DibBitsSize(d); ++i) d.h->pBits[i] = BYTE(rng());
    }
    return d;
}

// Random pixels drawn from a few values, so that equal values, runs and a
// background are common.
inline void FillFromValues(HDIB h, const std::vector<BYTE>& values, uint32_t seed) {
    std::mt19937 rng(seed);
    DibPixelIO io;
    DibRegisterPixelIO(DibBitCount(h), &io);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) io.set(h, x, y, values[rng() % values.size()]);
}

inline std::vector<BYTE> Bytes(HDIB h) { return std::vector<BYTE>(h->pBits, h->pBits + DibBitsSize(h)); }
inline void SetBytes(HDIB h, const std::vector<BYTE>& b) { std::memcpy(h->pBits, b.data(), b.size()); }

inline Dib Copy(HDIB h) {
    Dib d(DibCreateCopy(h));
    EXPECT_NE(d.h, nullptr);
    return d;
}

/* ---- reference operations ------------------------------------------------- */

// New value = f(old) for every pixel, rows outside, through the slots.
template <class F>
void RefMap(HDIB h, F f) {
    DibPixelIO io;
    ASSERT_EQ(DibRegisterPixelIO(DibBitCount(h), &io), DWORD(DibOk));
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) io.set(h, x, y, f(io.get(h, x, y)));
}

inline LONG RefClamp(int64_t value, DWORD colors) {
    if (value >= int64_t(colors)) value = int64_t(colors) - 1;
    if (value < 0) value = 0;
    return LONG(value);
}

inline void RefBrightness(HDIB h, LONG brightness) {
    const DWORD colors = DibNumColors(h);
    RefMap(h, [&](DWORD old) { return DWORD(RefClamp(int64_t(old) + brightness, colors)); });
}

inline LONG RefContrastAdj(LONG contrast) {
    float first = float(contrast + 255) * 0.003921569f;
    float second = first * 65536.0f;
    return LONG(second);
}

inline void RefContrast(HDIB h, LONG contrast, LONG offset) {
    const DWORD colors = DibNumColors(h);
    const LONG adj = RefContrastAdj(contrast);
    RefMap(h, [&](DWORD old) {
        int64_t product = int64_t(old) * adj;
        int64_t shifted = product >= 0 ? product / 65536 : -((-product + 65535) / 65536); // floor
        return DWORD(RefClamp(offset + shifted, colors));
    });
}

inline void RefInvert(HDIB h) {
    const DWORD colors = DibNumColors(h);
    RefMap(h, [&](DWORD old) { return colors - old - 1; });
}

inline std::vector<BYTE> RefGammaTable(double gamma) {
    std::vector<BYTE> t(256);
    for (int x = 0; x < 256; ++x) t[x] = BYTE(x);
    if (gamma == 1.0) return t;
    t[0] = 0;
    double k = std::pow(255.0, 1.0 - gamma);
    for (int x = 1; x < 256; ++x) {
        unsigned v = unsigned(std::pow(double(x), gamma) * k + 0.5);
        t[x] = v > 255 ? 255 : BYTE(v);
    }
    return t;
}

inline void RefGamma(HDIB h, double gamma) {
    std::vector<BYTE> t = RefGammaTable(gamma);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) h->ppRow[y][x] = t[h->ppRow[y][x]];
}

inline DWORD RefBlack(const DWORD* c, int64_t count) {
    int64_t sum = 0;
    for (int v = 0; v <= 254; ++v)
        if ((sum += c[v]) > count) return DWORD(v);
    return 255;
}

inline DWORD RefWhite(const DWORD* c, int64_t count) {
    int64_t sum = 0;
    for (int v = 255; v >= 1; --v)
        if ((sum += c[v]) > count) return DWORD(v);
    return 0;
}

// The stretch of an 8-bit bitmap with black and white found as described.
inline void RefStretch(HDIB h, LONG low, LONG high, DWORD mode) {
    const LONG width = DibWidth(h), height = DibHeight(h);
    DWORD black = DWORD(low), white = DWORD(high);
    if (mode == 1) {
        DWORD hist[256] = {};
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) ++hist[h->ppRow[y][x]];
        double pixels = double(DWORD(width) * DWORD(height));
        black = RefBlack(hist, int64_t(double(low) * 0.01 * pixels));
        white = RefWhite(hist, int64_t(double(high) * 0.01 * pixels));
    }
    DWORD range = white - black;
    for (LONG y = 0; y < height; ++y) {
        for (LONG x = 0; x < width; ++x) {
            BYTE& p = h->ppRow[y][x];
            if (range == 0) {
                if (p > black) p = 255;
                else if (p < black) p = 0;
                continue;
            }
            DWORD base = (black * 255) / range;
            LONG v = LONG((DWORD(p) * 255) / range) - LONG(base);
            p = v > 255 ? 255 : v < 0 ? 0 : BYTE(v);
        }
    }
}

// Rank filter: nine pixels from a copy, an exchange sort, index rank.
inline void RefRank(HDIB h, DWORD rank) {
    Dib copy = Copy(h);
    DibPixelIO io;
    ASSERT_EQ(DibRegisterPixelIO(DibBitCount(h), &io), DWORD(DibOk));
    const LONG width = DibWidth(h), height = DibHeight(h);
    for (LONG y = 1; y <= height - 2; ++y) {
        for (LONG x = 1; width >= 3 && x <= width - 2; ++x) {
            LONG win[9];
            int n = 0;
            for (LONG dy = -1; dy <= 1; ++dy)
                for (LONG dx = -1; dx <= 1; ++dx) win[n++] = LONG(io.get(copy, x + dx, y + dy));
            for (int pass = 8; pass >= 1; --pass)
                for (int i = 0; i < pass; ++i)
                    if (win[i] > win[i + 1]) std::swap(win[i], win[i + 1]);
            io.set(h, x, y, DWORD(win[rank]));
        }
    }
}

inline void RefDespeckle(HDIB h, DWORD threshold, DWORD background) {
    Dib copy = Copy(h);
    DibPixelIO io;
    ASSERT_EQ(DibRegisterPixelIO(DibBitCount(h), &io), DWORD(DibOk));
    const LONG width = DibWidth(h), height = DibHeight(h);
    for (LONG y = 1; y <= height - 2; ++y) {
        for (LONG x = 1; width >= 3 && x <= width - 2; ++x) {
            if (io.get(copy, x, y) == background) continue;
            DWORD count = 0;
            for (LONG dy = -1; dy <= 1; ++dy)
                for (LONG dx = -1; dx <= 1; ++dx)
                    if ((dx || dy) && io.get(copy, x + dx, y + dy) != background) ++count;
            if (count < threshold) io.set(h, x, y, background);
        }
    }
}

}  // namespace ops1test
