// Helpers of the graphics tests: grey DIB sections, contexts over them and
// pixel access in picture order.
#pragma once

#include <gtest/gtest.h>
#include <tovrel/platform.h>

#include <cstring>
#include <random>
#include <vector>

#include "../../src/platform/gdidc.h"

namespace gfx {

// A DIB section of the standard grey table (1, 4, 8 bits) or without a
// table (16, 24, 32 bits), selected into its own memory context.
struct Canvas {
    HBITMAP bitmap = nullptr;
    HDC dc = nullptr;
    HGDIOBJ old = nullptr;
    BYTE* bits = nullptr;
    LONG width = 0, height = 0, stride = 0;
    int bpp = 8;

    Canvas(LONG w, LONG h, int depth) : width(w), height(h), bpp(depth) {
        std::vector<BYTE> info(40 + 256 * 4, 0);
        auto* bi = reinterpret_cast<BITMAPINFO*>(info.data());
        bi->bmiHeader.biSize = 40;
        bi->bmiHeader.biWidth = w;
        bi->bmiHeader.biHeight = h;
        bi->bmiHeader.biPlanes = 1;
        bi->bmiHeader.biBitCount = WORD(depth);
        if (depth <= 8) {
            int n = 1 << depth;
            bi->bmiHeader.biClrUsed = DWORD(n);
            for (int i = 0; i < n; ++i) {
                BYTE g = BYTE(depth == 1 ? i * 255 : depth == 4 ? i * 17 : i);
                info[40 + 4 * i] = info[41 + 4 * i] = info[42 + 4 * i] = g;
            }
        }
        void* p = nullptr;
        bitmap = CreateDIBSection(nullptr, bi, DIB_RGB_COLORS, &p, nullptr, 0);
        bits = static_cast<BYTE*>(p);
        stride = ((w * depth + 31) / 32) * 4;
        dc = CreateCompatibleDC(nullptr);
        if (bitmap && dc) old = SelectObject(dc, bitmap);
    }
    ~Canvas() {
        if (dc) {
            if (old) SelectObject(dc, old);
            DeleteDC(dc);
        }
        if (bitmap) DeleteObject(bitmap);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    bool ok() const { return bitmap && dc && old; }
    BYTE* Row(LONG y) const { return bits + int64_t(height - 1 - y) * stride; }
    DWORD Get(LONG x, LONG y) const { return GdiGetRaw(Row(y), x, bpp); }
    void Set(LONG x, LONG y, DWORD v) { GdiPutRaw(Row(y), x, bpp, v); }
    void Fill(DWORD v) {
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) Set(x, y, v);
    }
    void Random(std::mt19937& rng) {
        DWORD mask = bpp == 32 ? 0xFFFFFFu : (1u << bpp) - 1u;
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) Set(x, y, DWORD(rng()) & mask);
    }
    std::vector<DWORD> Pixels() const {
        std::vector<DWORD> out;
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) out.push_back(Get(x, y));
        return out;
    }
};

}  // namespace gfx
