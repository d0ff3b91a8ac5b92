// Helpers of the bitmap-core tests: grey bitmaps with known pixels, a
// reference reader of the pixel store, and a leak guard.
#pragma once

#include <gtest/gtest.h>

#include "dibce.h"
#include "testsupport.h"
#include "tovce.h"

#include <cstdint>
#include <string>
#include <vector>

namespace dibtest {

constexpr DWORD kDepths[] = {1, 4, 8};
constexpr LONG kWidths[] = {1, 7, 8, 9, 31, 32, 33};

// Row length of the pixel store, worked out independently of the library.
inline LONG Stride(LONG width, DWORD bits) { return ((width * LONG(bits) + 31) / 32) * 4; }

// A pixel read straight from the bottom-up store, by the addressing table.
inline DWORD StorePixel(HDIB h, LONG x, LONG y) {
    const BITMAPINFOHEADER& hdr = h->ds.dsBmih;
    const BYTE* row = h->pBits + size_t(hdr.biHeight - 1 - y) * Stride(hdr.biWidth, hdr.biBitCount);
    switch (hdr.biBitCount) {
    case 8: return row[x];
    case 4: return (x & 1) ? (row[x / 2] & 0x0F) : (row[x / 2] >> 4);
    default: return (row[x / 8] >> (7 - x % 8)) & 1;
    }
}

inline void StoreSetPixel(HDIB h, LONG x, LONG y, DWORD v) {
    const BITMAPINFOHEADER& hdr = h->ds.dsBmih;
    BYTE* row = h->pBits + size_t(hdr.biHeight - 1 - y) * Stride(hdr.biWidth, hdr.biBitCount);
    switch (hdr.biBitCount) {
    case 8: row[x] = BYTE(v); break;
    case 4:
        if (x & 1) row[x / 2] = BYTE((row[x / 2] & 0xF0) | (v & 15));
        else row[x / 2] = BYTE((row[x / 2] & 0x0F) | ((v & 15) << 4));
        break;
    default: row[x / 8] = BYTE((row[x / 8] & ~(0x80 >> (x % 8))) | ((v & 1) << (7 - x % 8)));
    }
}

// Deterministic pixel value of (x, y) within the range of a depth.
inline DWORD Pattern(LONG x, LONG y, DWORD bits, DWORD seed = 0) {
    uint32_t v = uint32_t(x) * 2654435761u ^ (uint32_t(y) + seed) * 40503u;
    v ^= v >> 13;
    return v & ((1u << bits) - 1);
}

// A grey bitmap filled with Pattern; fails the test when it cannot be made.
inline HDIB MakePatterned(LONG width, LONG height, DWORD bits, DWORD seed = 0) {
    HDIB h = tovCreateHDIBExt(width, height, 0, bits);
    EXPECT_NE(h, nullptr);
    if (!h) return nullptr;
    for (LONG y = 0; y < height; ++y)
        for (LONG x = 0; x < width; ++x) StoreSetPixel(h, x, y, Pattern(x, y, bits, seed));
    return h;
}

inline std::vector<BYTE> StoreBytes(HDIB h) {
    size_t n = size_t(h->ds.dsBmih.biHeight) * Stride(h->ds.dsBmih.biWidth, h->ds.dsBmih.biBitCount);
    return std::vector<BYTE>(h->pBits, h->pBits + n);
}

// Checks that the platform holds as many blocks and objects at the end of
// a scope as at its start.
class LeakGuard {
public:
    LeakGuard() : before_(PlatLiveObjects()), count_(DibLiveCount()) {}
    ~LeakGuard() {
        EXPECT_EQ(PlatLiveObjects(), before_) << "platform objects leaked";
        EXPECT_EQ(DibLiveCount(), count_) << "records leaked";
    }
private:
    long before_;
    LONG count_;
};

inline std::u16string Wide(const std::string& s) { return tovtest::W(s); }

}  // namespace dibtest
