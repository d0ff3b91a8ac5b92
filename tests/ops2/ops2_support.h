// Helpers of the convolution, geometry and dithering tests: a plain picture
// type for the reference implementations, read and written by the
// addressing rules independently of the library.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dibimages.h"
#include "dibops.h"

namespace ops2 {

using tovtest::Dib;
using Bytes = std::vector<BYTE>;

// A picture as the references see it: width x height values, row 0 on top.
struct Pic {
    LONG w = 0, h = 0;
    std::vector<int> v;
    int& at(LONG x, LONG y) { return v[(size_t)y * w + x]; }
    int at(LONG x, LONG y) const { return v[(size_t)y * w + x]; }
};

inline Pic Read(HDIB d) {
    Pic p{DibWidth(d), DibHeight(d), {}};
    for (LONG y = 0; y < p.h; ++y)
        for (LONG x = 0; x < p.w; ++x) p.v.push_back((int)tovtest::StorePixel(d, x, y));
    return p;
}

// The bytes d would have with its pixels replaced by p: padding as it is.
inline Bytes WithPixels(HDIB d, const Pic& p) {
    Dib copy(tovCreateCopyHDIB(d));
    for (LONG y = 0; y < p.h; ++y)
        for (LONG x = 0; x < p.w; ++x) tovtest::StoreSetPixel(copy, x, y, (DWORD)p.at(x, y));
    return tovtest::StoreBytes(copy);
}

inline Bytes Store(HDIB d) { return tovtest::StoreBytes(d); }
inline void SetStore(HDIB d, const Bytes& b) { memcpy(d->pBits, b.data(), b.size()); }
inline Dib Random(LONG w, LONG h, DWORD bits, uint32_t seed) { return Dib(tovtest::MakeRandom(w, h, bits, seed)); }
inline Dib Uniform(LONG w, LONG h, BYTE value) { return Dib(tovCreateHDIBExt(w, h, value, 8)); }
inline std::string Handle(HDIB d) { return std::to_string((long long)(intptr_t)d); }

}  // namespace ops2
