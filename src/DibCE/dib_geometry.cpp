/*
 * Geometry of the bitmap layer, at 1, 4 and 8 bits:
 *   DibFlipHorizontal  upside down (top row changes place with bottom row)
 *   DibFlipVertical    left to right (first column with last)
 *   DibCrop            cut out a rectangle
 *   DibScale           nearest-pixel decimation by a percentage
 *
 * All four work from a private copy of the picture (DibCreateCopy), as
 * their traces and failure codes tell; crop and scale re-make the bitmap at
 * its new size and write the surviving pixels from the copy. The loops move
 * whole bytes where the
 * pixels are byte aligned and shift bit fields otherwise; bits of a row
 * past its last pixel are never written, as with one write per pixel.
 */
#include <string.h>

#include "dibkernels.h"
#include "dibops.h"

#include <tovrel/packedpixel.h>

namespace {

// Bit-reversed bytes, for mirroring 1-bit rows.
struct ReverseTable {
    BYTE v[256];
    constexpr ReverseTable() : v() {
        for (int i = 0; i < 256; ++i) {
            int r = 0;
            for (int b = 0; b < 8; ++b)
                if (i & (1 << b)) r |= 0x80 >> b;
            v[i] = static_cast<BYTE>(r);
        }
    }
};
constexpr ReverseTable kReverse;

// Writes the last, partial byte: the bits of `keep` stay as they are.
inline void MergeByte(BYTE* dst, BYTE value, BYTE keep) {
    *dst = static_cast<BYTE>((*dst & keep) | (value & static_cast<BYTE>(~keep)));
}

// Mask of the bits of a byte past its first `bits` bits (1 to 8).
inline BYTE TailKeep(LONG bits) { return static_cast<BYTE>(0xFFu >> bits); }

// dst pixels 0 .. count-1 take src pixels sx .. sx+count-1 (count >= 1).
// Reads no byte of src beyond the one holding pixel sx+count-1.
void CopyPixelRun(BYTE* dst, const BYTE* src, int64_t sx, LONG count, int bpp) {
    if (bpp == 8) {
        memcpy(dst, src + sx, static_cast<size_t>(count));
        return;
    }
    const int64_t sbit = sx * bpp;
    const int64_t nbits = static_cast<int64_t>(count) * bpp;
    const int64_t full = nbits / 8;
    const LONG rest = static_cast<LONG>(nbits % 8);
    const BYTE* s = src + (sbit >> 3);
    const int sh = static_cast<int>(sbit & 7);
    const int64_t lastSrcByte = (sbit + nbits - 1) >> 3; // relative to src
    if (sh == 0) {
        memcpy(dst, s, static_cast<size_t>(full));
        if (rest) MergeByte(dst + full, s[full], TailKeep(rest));
        return;
    }
    for (int64_t i = 0; i < full; ++i) {
        // Bits of s[i+1] are wanted: the run goes on past s[i].
        dst[i] = static_cast<BYTE>((s[i] << sh) | (s[i + 1] >> (8 - sh)));
    }
    if (rest) {
        unsigned v = static_cast<unsigned>(s[full]) << sh;
        if ((sbit >> 3) + full + 1 <= lastSrcByte) v |= s[full + 1] >> (8 - sh);
        MergeByte(dst + full, static_cast<BYTE>(v), TailKeep(rest));
    }
}

#ifdef DIB_HAVE_X86_PATHS
// The exchange is bound by stores: a 32-byte store moves twice the bytes of
// a 16-byte one in the same cycle. Gives how many bytes it exchanged.
__attribute__((target("avx2"))) size_t SwapBytesAvx2(BYTE* a, BYTE* b, size_t n) {
    size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const __m256i t = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(a + i));
        const __m256i u = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(b + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(a + i), u);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(b + i), t);
    }
    return i;
}
#endif

// Rows a and b exchange their first `width` pixels; bits past them stay.
// Sixteen bytes of each row at a time (32 with AVX2) pass through
// registers, so each byte is read once and written once.
void SwapPixelRuns(BYTE* a, BYTE* b, LONG width, int bpp, bool avx2) {
    const int64_t nbits = static_cast<int64_t>(width) * bpp;
    const size_t full = static_cast<size_t>(nbits / 8);
    const LONG rest = static_cast<LONG>(nbits % 8);
    size_t i = 0;
#ifdef DIB_HAVE_X86_PATHS
    if (avx2) i = SwapBytesAvx2(a, b, full);
#else
    (void)avx2;
#endif
    for (; i + 16 <= full; i += 16) {
        BYTE t[16], u[16];
        memcpy(t, a + i, 16);
        memcpy(u, b + i, 16);
        memcpy(a + i, u, 16);
        memcpy(b + i, t, 16);
    }
    for (; i < full; ++i) {
        const BYTE t = a[i];
        a[i] = b[i];
        b[i] = t;
    }
    if (rest) {
        const BYTE t = a[full];
        MergeByte(a + full, b[full], TailKeep(rest));
        MergeByte(b + full, t, TailKeep(rest));
    }
}

// dst pixel x takes src pixel width-1-x, for x from 0 to width-1.
void MirrorRow(BYTE* dst, const BYTE* src, LONG width, int bpp) {
    if (bpp == 8) {
        // Eight pixels at a time: a byte swap of a word mirrors it.
        LONG x = 0;
        for (; x + 8 <= width; x += 8) {
            uint64_t w;
            memcpy(&w, src + width - 8 - x, 8);
            w = __builtin_bswap64(w);
            memcpy(dst + x, &w, 8);
        }
        for (; x < width; ++x) dst[x] = src[width - 1 - x];
        return;
    }
    if (bpp == 4) {
        const LONG half = width / 2;
        if ((width & 1) == 0) {
            // Eight bytes at a time: a byte swap, then the nibbles of each byte.
            LONG i = 0;
            for (; i + 8 <= half; i += 8) {
                uint64_t w;
                memcpy(&w, src + half - 8 - i, 8);
                w = __builtin_bswap64(w);
                w = ((w & 0xF0F0F0F0F0F0F0F0ull) >> 4) | ((w & 0x0F0F0F0F0F0F0F0Full) << 4);
                memcpy(dst + i, &w, 8);
            }
            for (; i < half; ++i) {
                const BYTE b = src[half - 1 - i];
                dst[i] = static_cast<BYTE>((b << 4) | (b >> 4));
            }
        } else {
            // Pixel 2i is the high nibble of src[k], pixel 2i+1 the low
            // nibble of src[k-1], with k = half - i.
            for (LONG i = 0; i < half; ++i) {
                const LONG k = half - i;
                dst[i] = static_cast<BYTE>((src[k] & 0xF0) | (src[k - 1] & 0x0F));
            }
            MergeByte(dst + half, src[0], 0x0F);
        }
        return;
    }
    // 1 bit: the byte-reversed row is the mirror shifted by the padding.
    const LONG nb = (width + 7) / 8;
    const int pad = static_cast<int>(nb * 8 - width);
    const LONG full = width / 8;
    for (LONG i = 0; i < full; ++i) {
        unsigned v = static_cast<unsigned>(kReverse.v[src[nb - 1 - i]]) << pad;
        if (pad) v |= kReverse.v[src[nb - 2 - i]] >> (8 - pad);
        dst[i] = static_cast<BYTE>(v);
    }
    const LONG rest = width % 8;
    if (rest) {
        unsigned v = static_cast<unsigned>(kReverse.v[src[nb - 1 - full]]) << pad;
        if (nb - 2 - full >= 0) v |= kReverse.v[src[nb - 2 - full]] >> (8 - pad);
        MergeByte(dst + full, static_cast<BYTE>(v), TailKeep(rest));
    }
}

// Source row or column of an output one: the truncated single-precision
// product with the inverse factor.
inline LONG SourceIndex(LONG i, float inverse, LONG limit) {
    const LONG s = static_cast<LONG>(static_cast<float>(i) * inverse);
    return s < limit ? s : limit - 1; // cannot trigger for a factor up to 1
}

// Output columns are worked in stretches whose source columns are worked
// out once for all rows.
const LONG kColumnChunk = 2048;

void ScaleRows(BYTE* const* srcRows, BYTE* const* dstRows, LONG newWidth, LONG newHeight, LONG width, LONG height,
               float inverse, int bpp) {
    LONG cols[kColumnChunk];
    for (LONG x0 = 0; x0 < newWidth; x0 += kColumnChunk) {
        const LONG n = newWidth - x0 < kColumnChunk ? newWidth - x0 : kColumnChunk;
        for (LONG i = 0; i < n; ++i) cols[i] = SourceIndex(x0 + i, inverse, width);
        // A stretch that samples every k-th column from its first one is
        // copied by a strided loop the compiler vectorises.
        LONG step = n > 1 ? cols[1] - cols[0] : 1;
        for (LONG i = 1; i < n && step > 0; ++i)
            if (cols[i] - cols[i - 1] != step) step = 0;
        for (LONG y = newHeight; y-- > 0;) {  // in memory order, see DibCrop
            const BYTE* src = srcRows[SourceIndex(y, inverse, height)];
            BYTE* dst = dstRows[y];
            if (bpp == 8) {
                const BYTE* s0 = src + cols[0];
                BYTE* d0 = dst + x0;
                if (step == 1)
                    memcpy(d0, s0, static_cast<size_t>(n));
                else if (step == 2)
                    for (LONG i = 0; i < n; ++i) d0[i] = s0[2 * i];
                else
                    for (LONG i = 0; i < n; ++i) d0[i] = src[cols[i]];
            } else {
                for (LONG i = 0; i < n; ++i)
                    PackedPut(dst, x0 + i, bpp, PackedGet(src, cols[i], bpp));
            }
        }
    }
}

// Crop and scale work from a private copy of the whole picture, made before
// the bitmap is re-made at its new size (DibResize) and unloaded after the
// surviving pixels are written. The bitmap's own store is given up by the
// re-make, so the copy takes it over (it holds the picture exactly) and the
// store made for the copy goes to the re-make in its place; a re-make that
// refuses gives the store back, so the picture stays as it was. The new
// store is not cleared: the callers write every byte of it.
HDIB CopyThenResize(HDIB hdib, DWORD width, DWORD height, const WCHAR* failText) {
    HDIB copy = DibCreateWorkingCopy(hdib);
    if (copy == nullptr) return nullptr;
    BYTE* const own = hdib->pBits;
    if (!DibExchangeStores(hdib, copy)) memcpy(copy->pBits, own, DibBitsSize(hdib));
    if (DibResizeUncleared(hdib, static_cast<LONG>(width), static_cast<LONG>(height)) != DibOk) {
        if (hdib->pBits && hdib->pBits != own && copy->pBits == own) DibExchangeStores(hdib, copy);
        DebugTrace(DIB_LEVEL_OP, failText);
        DibUnload(copy);
        return nullptr;
    }
    return copy;
}

// Clears what the pixels of a new row leave: the bytes past the last whole
// byte of pixels (at 1 and 4 bits all of them, as pixels are merged in).
void ClearRowTails(HDIB hdib, LONG width, LONG height, int bpp) {
    const size_t stride = static_cast<size_t>(DibRowBytes(width, bpp));
    const size_t kept = bpp == 8 ? static_cast<size_t>(width) : 0;
    if (kept == stride) return;
    for (LONG y = 0; y < height; ++y) memset(hdib->ppRow[y] + kept, 0, stride - kept);
}

// Entry checks shared by the four: a good handle of a depth with pixel
// routines. Gives 0 and the depth, or 5.
DWORD CheckGeometry(HDIB hdib, int* bpp) {
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    const WORD bits = DibBitCount(hdib);
    DibPixelIO io;
    if (DibRegisterPixelIO(bits, &io) != DibOk) return DibErrorInvalidDIB;
    *bpp = bits;
    return DibOk;
}

// Both flips make the working copy (its traces, and its failure as 6), but
// write only what they read back: upside down, the two rows of a pair
// change places through registers, so the copy is never written; left to
// right, each row passes through the copy's first row, which stays in the
// first-level cache, just before it is mirrored back.
DWORD Flip(HDIB hdib, bool upsideDown) {
    int bpp = 0;
    if (CheckGeometry(hdib, &bpp) != DibOk) return DibErrorInvalidDIB;
    HDIB copy = DibCreateWorkingCopy(hdib);
    if (copy == nullptr) return DibErrorUnknown;
    const LONG width = DibWidth(hdib);
    const LONG height = DibHeight(hdib);
    const size_t stride = static_cast<size_t>(DibRowBytes(width, bpp));
    BYTE* const* dst = hdib->ppRow;
    BYTE* const a = copy->ppRow[0];
    if (upsideDown) {
        const bool avx2 = DibCpuHas(DIB_CPU_AVX2);
        for (LONG y = 0, z = height - 1; y < z; ++y, --z)  // the middle row stays
            SwapPixelRuns(dst[y], dst[z], width, bpp, avx2);
    } else {
        for (LONG y = height; y-- > 0;) {  // in memory order, see DibCrop
            memcpy(a, dst[y], stride);
            MirrorRow(dst[y], a, width, bpp);
        }
    }
    DibUnload(copy);
    return DibOk;
}

}  // namespace

extern "C" {

DWORD DibFlipHorizontal(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibFlipHorizontal(%lld)\r\n", TRACE_PTR(hdib));
    const DWORD result = Flip(hdib, true);
    if (result == DibOk) DebugTrace(DIB_LEVEL_OP, u"<DibFlipHorizontal()=DibOk\r\n");
    return result;
}

DWORD DibFlipVertical(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibFlipVertical(%lld)\r\n", TRACE_PTR(hdib));
    const DWORD result = Flip(hdib, false);
    if (result == DibOk) DebugTrace(DIB_LEVEL_OP, u"<DibFlipVertical()=DibOk\r\n");
    return result;
}

DWORD DibCrop(HDIB hdib, DWORD x, DWORD y, DWORD width, DWORD height) {
    DebugTrace(DIB_LEVEL_OP, u">DibCrop(%lld,%d,%d,%d,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(x), static_cast<int>(y),
               static_cast<int>(width), static_cast<int>(height));
    int bpp = 0;
    if (CheckGeometry(hdib, &bpp) != DibOk) return DibErrorInvalidDIB;
    const LONG oldWidth = DibWidth(hdib);
    const LONG oldHeight = DibHeight(hdib);
    // In 64 bits: a rectangle whose end passes 2^32 is out of bounds, not
    // wrapped back into the picture.
    if (static_cast<uint64_t>(x) + width > static_cast<uint64_t>(oldWidth > 0 ? oldWidth : 0) ||
        static_cast<uint64_t>(y) + height > static_cast<uint64_t>(oldHeight > 0 ? oldHeight : 0) || width == 0 ||
        height == 0) {
        DebugTrace(DIB_LEVEL_OP, u"   !DibCrop():DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }
    HDIB copy = CopyThenResize(hdib, width, height, u"   !DibCrop():DibErrorUnknown\r\n");
    if (copy == nullptr) return DibErrorUnknown;
    ClearRowTails(hdib, static_cast<LONG>(width), static_cast<LONG>(height), bpp);
    // In the order the rows lie in memory (the bottom row first): on a large
    // picture the copy runs about a fifth faster than against it.
    for (DWORD j = height; j-- > 0;) CopyPixelRun(hdib->ppRow[j], copy->ppRow[y + j], x, static_cast<LONG>(width), bpp);
    DibUnload(copy);
    DebugTrace(DIB_LEVEL_OP, u"<DibCrop()=DibOk\r\n");
    return DibOk;
}

DWORD DibScale(HDIB hdib, DWORD percent) {
    DebugTrace(DIB_LEVEL_OP, u">DibScale(%lld,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(percent));
    int bpp = 0;
    if (CheckGeometry(hdib, &bpp) != DibOk) return DibErrorInvalidDIB;
    const LONG width = DibWidth(hdib);
    const LONG height = DibHeight(hdib);
    const float scalefactor = static_cast<float>(static_cast<double>(static_cast<float>(percent)) * 0.01);
    const double h = static_cast<double>(static_cast<float>(height) * scalefactor) + 0.5;
    const double w = static_cast<double>(static_cast<float>(width) * scalefactor) + 0.5;
    // Only reachable by a direct call with a large percentage: a size that
    // no bitmap can have is refused before it is converted.
    if (!(h < static_cast<double>(DIB_MAX_DIMENSION) + 1) || !(w < static_cast<double>(DIB_MAX_DIMENSION) + 1)) {
        DebugTrace(DIB_LEVEL_OP, u"   !DibScale():DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }
    const DWORD newHeight = static_cast<DWORD>(h);
    const DWORD newWidth = static_cast<DWORD>(w);
    // A size of 0 is refused by the re-make, which leaves the picture.
    HDIB copy = CopyThenResize(hdib, newWidth, newHeight, u"   !DibScale():DibErrorUnknown\r\n");
    if (copy == nullptr) return DibErrorUnknown;
    DIB_ASSERT(scalefactor != 0);
    ClearRowTails(hdib, static_cast<LONG>(newWidth), static_cast<LONG>(newHeight), bpp);
    const float inverse = 1.0f / scalefactor;
    ScaleRows(copy->ppRow, hdib->ppRow, static_cast<LONG>(newWidth), static_cast<LONG>(newHeight), width, height, inverse, bpp);
    DibUnload(copy);
    DebugTrace(DIB_LEVEL_OP, u"<DibScale()=DibOk\r\n");
    return DibOk;
}

}  // extern "C"
