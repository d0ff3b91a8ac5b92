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
    ~Scratch() {
        PlatFree(cols);
        PlatFree(rows);
        PlatFree(copy);
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

    const int bpp = ds.bpp;
    // The unused top byte of 32-bit pixels is no colour: operations keep it.
    const uint32_t mask = bpp == 32 ? 0x00FFFFFFu : ((1u << bpp) - 1u);
    const uint32_t keep = bpp == 32 ? 0xFF000000u : 0u;
    const uint32_t pattern = GdiColourToRaw(ds, d->brushColour);
    const GdiRopFn fn = GdiRopFunction(rop8);
    const bool plainCopy = rop8 == 0xCC && SameTable(ss, ds) && bpp >= 8;

    Converter* convert = nullptr;
    if (usesSource && !plainCopy) {
        convert = static_cast<Converter*>(PlatAlloc(sizeof(Converter), false));
        if (!convert) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return FALSE;
        }
        new (convert) Converter(ss, ds);
    }

    for (int64_t r = 0; r < nrows; ++r) {
        int32_t srow = scratch.rows[r];
        if (srow < 0) continue;
        BYTE* drow = ds.Row(LONG(row0 + r));
        const BYTE* sline = usesSource ? ss.Row(srow) : nullptr;
        if (plainCopy) {
            const int bytes = bpp / 8;
            for (int64_t c = 0; c < ncols; ++c) {
                int32_t scol = scratch.cols[c];
                if (scol >= 0)
                    std::memcpy(drow + (col0 + c) * bytes, sline + int64_t(scol) * bytes, size_t(bytes));
            }
            continue;
        }
        for (int64_t c = 0; c < ncols; ++c) {
            int32_t scol = scratch.cols[c];
            if (scol < 0) continue;
            LONG xd = LONG(col0 + c);
            uint32_t sv = usesSource ? (*convert)(GdiGetRaw(sline, scol, ss.bpp)) : 0;
            uint32_t dv = GdiGetRaw(drow, xd, bpp);
            GdiPutRaw(drow, xd, bpp, (fn(pattern, sv, dv) & mask) | (dv & keep));
        }
    }
    if (convert) {
        convert->~Converter();
        PlatFree(convert);
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
