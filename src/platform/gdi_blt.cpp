// BitBlt and StretchBlt: copies a rectangle between two contexts, stretching
// by nearest pixel, mirroring on negative extents, clipping to both
// surfaces, converting depths by the nearest colour of the destination's
// table and combining pattern, source and destination by one of the 256
// ternary raster operations.
//
// Geometry. A rectangle with a negative extent covers [x + w, x) and is read
// or written mirrored, so StretchBlt(d, w, h, -w, -h, s, 0, 0, w, h) turns a
// picture by 180 degrees in place. Target pixel i of n takes source pixel
// ((2i + 1) * m) / (2n) of m (pixel centres). A target pixel is written only
// if it and its source pixel lie on their surfaces.
#include "gdidc.h"

#include <cstring>
#include <new>

namespace {

struct Span {
    int64_t origin;  // first pixel of the normalised rectangle
    int64_t extent;  // > 0
    bool mirrored;
};

Span Normalise(int64_t pos, int64_t extent) {
    if (extent < 0) return {pos + extent, -extent, true};
    return {pos, extent, false};
}

// Source coordinate of each target pixel in [first, first + count) of the
// destination surface's axis; -1 where the source pixel is off its surface.
void MapAxis(const Span& dst, const Span& src, int64_t srcSize, int64_t first, int64_t count,
             int32_t* out) {
    bool mirror = dst.mirrored != src.mirrored;
    for (int64_t k = 0; k < count; ++k) {
        int64_t i = first + k - dst.origin;
        // 128 bits: extents and offsets reach 2^32 each
        int64_t j = int64_t((__int128(2 * i + 1) * src.extent) / (2 * dst.extent));
        if (mirror) j = src.extent - 1 - j;
        int64_t s = src.origin + j;
        out[k] = (s >= 0 && s < srcSize) ? int32_t(s) : -1;
    }
}

// The part of [origin, origin + extent) on an axis of `size` pixels.
bool ClipAxis(const Span& span, int64_t size, int64_t* first, int64_t* count) {
    int64_t a = span.origin < 0 ? 0 : span.origin;
    int64_t b = span.origin + span.extent;
    if (b > size) b = size;
    if (a >= b) return false;
    *first = a;
    *count = b - a;
    return true;
}

bool SameTable(const GdiSurface& a, const GdiSurface& b) {
    return a.bpp == b.bpp && a.colorCount == b.colorCount &&
           (a.bpp > 8 || std::memcmp(a.colors, b.colors, a.colorCount * sizeof(RGBQUAD)) == 0);
}

// Converts source pixel values into destination values. Tables up to 8 bits
// are translated once; deeper sources go by colour with a small cache.
class Converter {
public:
    Converter(const GdiSurface& src, const GdiSurface& dst) : src_(src), dst_(dst) {
        identity_ = SameTable(src, dst);
        if (!identity_ && src.bpp <= 8) {
            for (DWORD v = 0; v < (1u << src.bpp); ++v) table_[v] = GdiColourToRaw(dst, GdiRawToColour(src, v));
        }
    }
    bool Identity() const { return identity_; }
    // The translation of every value of a source of 8 bits or fewer, else null.
    const DWORD* Table() const { return !identity_ && src_.bpp <= 8 ? table_ : nullptr; }
    DWORD operator()(DWORD raw) {
        if (identity_) return raw;
        if (src_.bpp <= 8) return table_[raw];
        if (dst_.bpp > 8) return GdiColourToRaw(dst_, GdiRawToColour(src_, raw));
        DWORD slot = (raw ^ (raw >> 11) ^ (raw >> 19)) & (kCache - 1);
        if (cacheKey_[slot] != raw + 1) {
            cacheKey_[slot] = raw + 1;
            cacheValue_[slot] = GdiColourToRaw(dst_, GdiRawToColour(src_, raw));
        }
        return cacheValue_[slot];
    }

private:
    static constexpr DWORD kCache = 1024;
    const GdiSurface& src_;
    const GdiSurface& dst_;
    bool identity_ = false;
    DWORD table_[256] = {};
    DWORD cacheKey_[kCache] = {};
    DWORD cacheValue_[kCache] = {};
};

struct Scratch {
    int32_t* cols = nullptr;
    int32_t* rows = nullptr;
    BYTE* copy = nullptr;
    uint32_t* source = nullptr;  // a row of source values, converted
    uint32_t* dest = nullptr;    // a row of destination values
    Converter* convert = nullptr;
    ~Scratch() {
        PlatFree(cols);
        PlatFree(rows);
        PlatFree(copy);
        PlatFree(source);
        PlatFree(dest);
        if (convert) {
            convert->~Converter();
            PlatFree(convert);
        }
    }
};

BOOL Blit(HDC dest, int x, int y, int width, int height, HDC src, int sx, int sy, int swidth,
          int sheight, DWORD rop) {
    GdiDcTag* d = GdiLookupDc(dest);
    if (!d) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    const uint32_t rop8 = (rop >> 16) & 255u;
    const bool usesSource = GdiRopUsesSource(rop8);
    GdiDcTag* s = nullptr;
    if (usesSource) {
        s = GdiLookupDc(src);
        if (!s) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        if (swidth == 0 || sheight == 0) {
            if (width == 0 || height == 0) return TRUE;
            SetLastError(ERROR_INVALID_PARAMETER);
            return FALSE;
        }
    }
    if (width == 0 || height == 0) return TRUE;

    GdiSurface ds;
    if (!GdiDcSurface(d, &ds)) return TRUE;  // the screen has no pixels to change
    GdiSurface ss;
    if (usesSource && !GdiDcSurface(s, &ss)) return TRUE;  // nor any to read

    Span dx = Normalise(x, width), dy = Normalise(y, height);
    Span sxs = Normalise(sx, usesSource ? swidth : width), sys = Normalise(sy, usesSource ? sheight : height);
    int64_t col0, ncols, row0, nrows;
    if (!ClipAxis(dx, ds.width, &col0, &ncols) || !ClipAxis(dy, ds.height, &row0, &nrows)) return TRUE;

    Scratch scratch;
    scratch.cols = static_cast<int32_t*>(PlatAlloc(size_t(ncols) * sizeof(int32_t), false));
    scratch.rows = static_cast<int32_t*>(PlatAlloc(size_t(nrows) * sizeof(int32_t), false));
    if (!scratch.cols || !scratch.rows) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    if (usesSource) {
        MapAxis(dx, sxs, ss.width, col0, ncols, scratch.cols);
        MapAxis(dy, sys, ss.height, row0, nrows, scratch.rows);
        // A context may read the pixels it writes (the same bitmap in both):
        // read from a copy so that written pixels are not read again.
        if (ss.bits == ds.bits) {
            size_t bytes = size_t(int64_t(ss.stride) * ss.height);
            scratch.copy = static_cast<BYTE*>(PlatAlloc(bytes, false));
            if (!scratch.copy) {
                SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                return FALSE;
            }
            std::memcpy(scratch.copy, ss.bits, bytes);
            ss.bits = scratch.copy;
        }
    } else {
        for (int64_t k = 0; k < ncols; ++k) scratch.cols[k] = 0;
        for (int64_t k = 0; k < nrows; ++k) scratch.rows[k] = 0;
    }

    // Mapped columns and rows whose source lies on its surface form one run
    // each, since the mapping is monotonic: find the runs.
    int64_t c0 = 0, c1 = ncols, r0 = 0, r1 = nrows;
    while (c0 < c1 && scratch.cols[c0] < 0) ++c0;
    while (c1 > c0 && scratch.cols[c1 - 1] < 0) --c1;
    while (r0 < r1 && scratch.rows[r0] < 0) ++r0;
    while (r1 > r0 && scratch.rows[r1 - 1] < 0) --r1;
    if (c0 >= c1 || r0 >= r1) return TRUE;
    const int64_t n = c1 - c0;
    const int32_t* cols = scratch.cols + c0;
    const int64_t xFirst = col0 + c0;
    const int bpp = ds.bpp;

    // Same layout and SRCCOPY: bytes move as they are.
    if (rop8 == 0xCC && SameTable(ss, ds) && bpp >= 8) {
        const int bytes = bpp / 8;
        const bool straight = cols[n - 1] - cols[0] == n - 1;
        for (int64_t r = r0; r < r1; ++r) {
            BYTE* drow = ds.Row(LONG(row0 + r)) + xFirst * bytes;
            const BYTE* sline = ss.Row(scratch.rows[r]);
            if (straight) {
                std::memmove(drow, sline + int64_t(cols[0]) * bytes, size_t(n * bytes));
                continue;
            }
            for (int64_t c = 0; c < n; ++c)
                std::memcpy(drow + c * bytes, sline + int64_t(cols[c]) * bytes, size_t(bytes));
        }
        return TRUE;
    }

    scratch.source = static_cast<uint32_t*>(PlatAlloc(size_t(n) * sizeof(uint32_t), true));
    scratch.dest = static_cast<uint32_t*>(PlatAlloc(size_t(n) * sizeof(uint32_t), false));
    if (usesSource) {
        scratch.convert = static_cast<Converter*>(PlatAlloc(sizeof(Converter), false));
        if (scratch.convert) new (scratch.convert) Converter(ss, ds);
    }
    if (!scratch.source || !scratch.dest || (usesSource && !scratch.convert)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return FALSE;
    }
    uint32_t* sv = scratch.source;
    uint32_t* dv = scratch.dest;
    Converter* convert = scratch.convert;
    const uint32_t pattern = GdiColourToRaw(ds, d->brushColour);
    const GdiRopRowFn combine = GdiRopRowFunction(rop8);

    for (int64_t r = r0; r < r1; ++r) {
        BYTE* drow = ds.Row(LONG(row0 + r));
        if (usesSource) {
            const BYTE* sline = ss.Row(scratch.rows[r]);
            if (ss.bpp == 8) {
                for (int64_t c = 0; c < n; ++c) sv[c] = sline[cols[c]];
            } else {
                for (int64_t c = 0; c < n; ++c) sv[c] = GdiGetRaw(sline, cols[c], ss.bpp);
            }
            if (const DWORD* table = convert->Table()) {
                for (int64_t c = 0; c < n; ++c) sv[c] = table[sv[c]];
            } else if (!convert->Identity()) {
                for (int64_t c = 0; c < n; ++c) sv[c] = (*convert)(sv[c]);
            }
        }
        if (bpp == 8) {
            for (int64_t c = 0; c < n; ++c) dv[c] = drow[xFirst + c];
        } else if (bpp == 32) {
            std::memcpy(dv, drow + 4 * xFirst, size_t(n) * 4);  // little-endian words
        } else {
            for (int64_t c = 0; c < n; ++c) dv[c] = GdiGetRaw(drow, LONG(xFirst + c), bpp);
        }
        combine(pattern, sv, dv, size_t(n));
        if (bpp == 8) {
            for (int64_t c = 0; c < n; ++c) drow[xFirst + c] = BYTE(dv[c]);
        } else if (bpp == 32) {
            // The unused top byte of 32-bit pixels is no colour: operations keep it.
            for (int64_t c = 0; c < n; ++c) {
                BYTE* px = drow + 4 * (xFirst + c);
                px[0] = BYTE(dv[c]);
                px[1] = BYTE(dv[c] >> 8);
                px[2] = BYTE(dv[c] >> 16);
            }
        } else {
            for (int64_t c = 0; c < n; ++c) GdiPutRaw(drow, LONG(xFirst + c), bpp, dv[c]);
        }
    }
    return TRUE;
}

}  // namespace

extern "C" {

BOOL BitBlt(HDC dest, int x, int y, int width, int height, HDC src, int sx, int sy, DWORD rop) {
    return Blit(dest, x, y, width, height, src, sx, sy, width, height, rop);
}

BOOL StretchBlt(HDC dest, int x, int y, int width, int height, HDC src, int sx, int sy, int swidth,
                int sheight, DWORD rop) {
    return Blit(dest, x, y, width, height, src, sx, sy, swidth, sheight, rop);
}

}  // extern "C"
