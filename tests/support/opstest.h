// Helpers of the image-operation tests (point, rank, convolution, geometry,
// dither, operations): random bitmaps, the store as bytes, and a plain
// picture type that the references read and write by the addressing rules,
// independently of the library.
#pragma once

#include <gtest/gtest.h>

#include "dibimages.h"
#include "dibops.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

// An operation on the bitmap h, for tables of calls.
#define OP(...) opstest::Op([=](HDIB h) -> DWORD { return __VA_ARGS__; })

namespace opstest {

using tovtest::Dib;
using tovtest::kDepths;
using Bytes = std::vector<BYTE>;
using Op = std::function<DWORD(HDIB)>;

// Heights 1-3 reach the no-interior cases; 9 has rows of every kind.
constexpr LONG kHeights[] = {1, 2, 3, 9};

// colors, when given, is written into the header as an application can,
// below or above the depth's own count.
inline Dib Random(LONG w, LONG h, DWORD bits, uint32_t seed, DWORD colors = 0) {
    Dib d(tovtest::MakeRandom(w, h, bits, seed));
    if (d.h && colors) d.h->ds.dsBmih.biClrUsed = colors;
    return d;
}

inline Dib Uniform(LONG w, LONG h, BYTE value) { return Dib(tovCreateHDIBExt(w, h, value, 8)); }

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
inline Dib Copy(HDIB h) { return Dib(DibCreateCopy(h)); }
// The colour table as bytes.
inline Bytes Colours(HDIB h) {
    const BYTE* c = reinterpret_cast<const BYTE*>(h->pbmiColors);
    return Bytes(c, c + DibNumColors(h) * 4);
}

// A picture as the references see it: width x height values, row 0 on top.
struct Pic {
    LONG w = 0, h = 0;
    std::vector<int> v;
    int& at(LONG x, LONG y) { return v[size_t(y) * size_t(w) + size_t(x)]; }
    int at(LONG x, LONG y) const { return v[size_t(y) * size_t(w) + size_t(x)]; }
};

inline Pic Read(HDIB d) {
    Pic p{DibWidth(d), DibHeight(d), {}};
    for (LONG y = 0; y < p.h; ++y)
        for (LONG x = 0; x < p.w; ++x) p.v.push_back(int(tovtest::StorePixel(d, x, y)));
    return p;
}

// The bytes d would have with its pixels replaced by p: padding as it is.
inline Bytes WithPixels(HDIB d, const Pic& p) {
    Dib copy = Copy(d);
    for (LONG y = 0; y < p.h; ++y)
        for (LONG x = 0; x < p.w; ++x) tovtest::StoreSetPixel(copy, x, y, DWORD(p.at(x, y)));
    return Store(copy);
}

}  // namespace opstest
