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
    LONG width, height, stride;
    int bpp;

    Canvas(LONG w, LONG h, int depth) : width(w), height(h), stride(((w * depth + 31) / 32) * 4), bpp(depth) {
        std::vector<BYTE> info(40 + 256 * 4, 0);
        auto* bi = reinterpret_cast<BITMAPINFO*>(info.data());
        bi->bmiHeader = {40, w, h, 1, WORD(depth), 0, 0, 0, 0, depth <= 8 ? 1u << depth : 0u, 0};
        for (int i = 0; depth <= 8 && i < (1 << depth); ++i)
            std::memset(&info[40 + 4 * size_t(i)], depth == 1 ? i * 255 : depth == 4 ? i * 17 : i, 3);
        void* p = nullptr;
        bitmap = CreateDIBSection(nullptr, bi, DIB_RGB_COLORS, &p, nullptr, 0);
        bits = static_cast<BYTE*>(p);
        dc = CreateCompatibleDC(nullptr);
        if (bitmap && dc) old = SelectObject(dc, bitmap);
    }
    ~Canvas() {
        if (old) SelectObject(dc, old);
        if (dc) DeleteDC(dc);
        if (bitmap) DeleteObject(bitmap);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    bool ok() const { return bitmap && dc && old; }
    BYTE* Row(LONG y) const { return bits + int64_t(height - 1 - y) * stride; }
    DWORD Get(LONG x, LONG y) const { return GdiGetRaw(Row(y), x, bpp); }
    void Set(LONG x, LONG y, DWORD v) { GdiPutRaw(Row(y), x, bpp, v); }
    template <class F>
    void Each(F f) {
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) Set(x, y, f());
    }
    void Fill(DWORD v) { Each([v] { return v; }); }
    void Random(std::mt19937& rng) {
        DWORD mask = bpp == 32 ? 0xFFFFFFu : (1u << bpp) - 1u;
        Each([&] { return DWORD(rng()) & mask; });
    }
    std::vector<DWORD> Pixels() const {
        std::vector<DWORD> out;
        for (LONG y = 0; y < height; ++y)
            for (LONG x = 0; x < width; ++x) out.push_back(Get(x, y));
        return out;
    }
};

}  // namespace gfx
