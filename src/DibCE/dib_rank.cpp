/*
 * Rank filter and despeckle: 3x3 windows at 1, 4 and 8 bits, read from a
 * private copy of the bitmap and written into the bitmap, so that no changed
 * pixel feeds a later window. The outermost rows and columns stay.
 *
 * The 8-bit kernels work on whole rows with branch-free min/max networks
 * that the compiler turns into vector code: each column of three is sorted
 * once and shared by the three windows that contain it, and each rank has
 * its own selection network on the sorted columns. 1- and 4-bit rows are
 * unpacked into bytes in strips, filtered by the same kernels and packed.
 */
#include <string.h>

#include "dibkernels.h"
#include "dibops.h"

// Columns handled at a time: the strip buffers live on the stack and in L1.
#define DIB_RANK_STRIP 512

// The kernels' bodies are inlined into a plain and an AVX2 wrapper, and the
// processor picks one at run time. (Resolving at load time, as ifunc-based
// clones do, runs before ThreadSanitizer is ready and crashes it.)
#if defined(__x86_64__) && defined(__GNUC__)
#define DIB_HAVE_AVX2_WAY 1
#define DIB_AVX2 __attribute__((target("avx2")))
#endif
#define DIB_INLINE static inline __attribute__((always_inline))

/* ---- 8-bit kernels ---------------------------------------------------------- */

DIB_INLINE BYTE Lo(BYTE a, BYTE b) { return a < b ? a : b; }
DIB_INLINE BYTE Hi(BYTE a, BYTE b) { return a < b ? b : a; }
DIB_INLINE BYTE Min3(BYTE a, BYTE b, BYTE c) { return Lo(Lo(a, b), c); }
DIB_INLINE BYTE Max3(BYTE a, BYTE b, BYTE c) { return Hi(Hi(a, b), c); }
DIB_INLINE BYTE Med3(BYTE a, BYTE b, BYTE c) { return Hi(Lo(a, b), Lo(Hi(a, b), c)); }

// Runs f(i) for i below n: whole blocks of 32 first, whose fixed length lets
// the compiler replace them by vector code entirely (so also at -O2), then
// the rest one by one.
#define DIB_EACH [&](size_t i) __attribute__((always_inline))
template <class F>
DIB_INLINE void ForEach(size_t n, F f) {
    size_t i = 0;
    for (; i + 32 <= n; i += 32)
        for (size_t j = i; j < i + 32; ++j) f(j);
    for (; i < n; ++i) f(i);
}

// Ranks from three sorted columns. Sorting the three lowest values (L), the
// three middle ones (M) and the three highest (H) of the columns gives a
// 3x3 matrix m, sorted along rows and columns:
//   m00 m01 m02 = sorted L,  m10 m11 m12 = sorted M,  m20 m21 m22 = sorted H.
// The value of rank k is the least maximum over the down-closed sets of k + 1
// cells of that matrix (and, mirrored, the greatest minimum over up-closed
// sets of 9 - k cells), which gives one small network a rank.
DIB_INLINE void SelectRank(const BYTE* __restrict L, const BYTE* __restrict M, const BYTE* __restrict H,
                           BYTE* __restrict out, size_t n, DWORD rank) {
    switch (rank) {
    case 1:
        ForEach(n, DIB_EACH { out[i] = Lo(Med3(L[i], L[i + 1], L[i + 2]), Min3(M[i], M[i + 1], M[i + 2])); });
        break;
    case 2:
        ForEach(n, DIB_EACH {
            BYTE m01 = Med3(L[i], L[i + 1], L[i + 2]), m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m10 = Min3(M[i], M[i + 1], M[i + 2]), m20 = Min3(H[i], H[i + 1], H[i + 2]);
            out[i] = Min3(Hi(m01, m10), m02, m20);
        });
        break;
    case 3:
        ForEach(n, DIB_EACH {
            BYTE m01 = Med3(L[i], L[i + 1], L[i + 2]), m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m10 = Min3(M[i], M[i + 1], M[i + 2]), m11 = Med3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]);
            out[i] = Min3(Hi(m02, m10), m11, Hi(m01, m20));
        });
        break;
    case 4:
        ForEach(n, DIB_EACH {
            BYTE m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m11 = Med3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]);
            out[i] = Med3(m02, m11, m20);
        });
        break;
    case 5:
        ForEach(n, DIB_EACH {
            BYTE m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m11 = Med3(M[i], M[i + 1], M[i + 2]), m12 = Max3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]), m21 = Med3(H[i], H[i + 1], H[i + 2]);
            out[i] = Max3(Lo(m20, m12), m11, Lo(m21, m02));
        });
        break;
    case 6:
        ForEach(n, DIB_EACH {
            BYTE m02 = Max3(L[i], L[i + 1], L[i + 2]), m12 = Max3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]), m21 = Med3(H[i], H[i + 1], H[i + 2]);
            out[i] = Max3(Lo(m21, m12), m20, m02);
        });
        break;
    case 7:
        ForEach(n, DIB_EACH { out[i] = Hi(Med3(H[i], H[i + 1], H[i + 2]), Max3(M[i], M[i + 1], M[i + 2])); });
        break;
    default:
        break;
    }
}

// Sorts the n columns of three: L, M and H get the lowest, middle, highest.
DIB_INLINE void SortColumns(const BYTE* __restrict a, const BYTE* __restrict b, const BYTE* __restrict c,
                            BYTE* __restrict L, BYTE* __restrict M, BYTE* __restrict H, size_t n) {
    ForEach(n, DIB_EACH {
        BYTE lo = Lo(a[i], b[i]), hi = Hi(a[i], b[i]);
        L[i] = Lo(lo, c[i]);
        BYTE up = Hi(lo, c[i]);
        M[i] = Lo(hi, up);
        H[i] = Hi(hi, up);
    });
}

// Ranks 0 and 8 need only the extreme of each column.
DIB_INLINE void ExtremeRow(const BYTE* __restrict a, const BYTE* __restrict b, const BYTE* __restrict c,
                           BYTE* __restrict col, BYTE* __restrict out, size_t n, bool maximum) {
    if (maximum) {
        ForEach(n + 2, DIB_EACH { col[i] = Max3(a[i], b[i], c[i]); });
        ForEach(n, DIB_EACH { out[i] = Max3(col[i], col[i + 1], col[i + 2]); });
    } else {
        ForEach(n + 2, DIB_EACH { col[i] = Min3(a[i], b[i], c[i]); });
        ForEach(n, DIB_EACH { out[i] = Min3(col[i], col[i + 1], col[i + 2]); });
    }
}

DIB_INLINE void RankRow(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out, size_t n,
                        DWORD rank) {
    BYTE L[DIB_RANK_STRIP + 2], M[DIB_RANK_STRIP + 2], H[DIB_RANK_STRIP + 2];
    for (size_t x = 0; x < n; x += DIB_RANK_STRIP) {
        const size_t k = n - x < DIB_RANK_STRIP ? n - x : DIB_RANK_STRIP;
        if (rank == 0 || rank >= DIB_RANK_MAX) {
            ExtremeRow(above + x, middle + x, below + x, L, out + x, k, rank != 0);
        } else {
            SortColumns(above + x, middle + x, below + x, L, M, H, k + 2);
            SelectRank(L, M, H, out + x, k, rank);
        }
    }
}

static void RankRowPlain(const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t n, DWORD rank) {
    RankRow(a, b, c, out, n, rank);
}

#ifdef DIB_HAVE_AVX2_WAY
DIB_AVX2 static void RankRowAvx2(const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t n, DWORD rank) {
    RankRow(a, b, c, out, n, rank);
}
#endif

extern "C" void DibRankRow8(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out, size_t n,
                            DWORD rank) {
#ifdef DIB_HAVE_AVX2_WAY
    if (DibCpuHas(DIB_CPU_AVX2)) {
        RankRowAvx2(above, middle, below, out, n, rank);
        return;
    }
#endif
    RankRowPlain(above, middle, below, out, n, rank);
}

DIB_INLINE void DespeckleStrip(const BYTE* __restrict a, const BYTE* __restrict b, const BYTE* __restrict c,
                               BYTE* __restrict count, BYTE* __restrict out, size_t n, BYTE background,
                               BYTE threshold) {
    // Column counts of pixels other than the background, each shared by three windows.
    ForEach(n + 2, DIB_EACH {
        count[i] = (BYTE)((a[i] != background) + (b[i] != background) + (c[i] != background));
    });
    ForEach(n, DIB_EACH {
        BYTE centre = b[i + 1];
        BYTE other = centre != background;
        BYTE neighbours = (BYTE)(count[i] + count[i + 1] + count[i + 2] - other);
        out[i] = (other && neighbours < threshold) ? background : centre;
    });
}

DIB_INLINE void DespeckleRow(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out, size_t n,
                             BYTE background, BYTE threshold) {
    BYTE count[DIB_RANK_STRIP + 2];
    for (size_t x = 0; x < n; x += DIB_RANK_STRIP) {
        const size_t k = n - x < DIB_RANK_STRIP ? n - x : DIB_RANK_STRIP;
        DespeckleStrip(above + x, middle + x, below + x, count, out + x, k, background, threshold);
    }
}

static void DespeckleRowPlain(const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t n, BYTE background,
                              BYTE threshold) {
    DespeckleRow(a, b, c, out, n, background, threshold);
}

#ifdef DIB_HAVE_AVX2_WAY
DIB_AVX2 static void DespeckleRowAvx2(const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t n,
                                      BYTE background, BYTE threshold) {
    DespeckleRow(a, b, c, out, n, background, threshold);
}
#endif

extern "C" void DibDespeckleRow8(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out,
                                 size_t n, BYTE background, DWORD threshold) {
    // No count reaches 9: any higher threshold acts as 9.
    const BYTE limit = threshold > 9 ? 9 : (BYTE)threshold;
#ifdef DIB_HAVE_AVX2_WAY
    if (DibCpuHas(DIB_CPU_AVX2)) {
        DespeckleRowAvx2(above, middle, below, out, n, background, limit);
        return;
    }
#endif
    DespeckleRowPlain(above, middle, below, out, n, background, limit);
}

/* ---- whole bitmaps ---------------------------------------------------------- */

namespace {

// Strips start on a byte boundary at 1 and 4 bits.
static_assert(DIB_RANK_STRIP % 8 == 0, "strip start inside a byte");
#define DIB_UNPACK_SLACK 7 /* values unpacked past the end, from the last byte */

// Pixels x .. x + n - 1 of a packed row as bytes, x the first pixel of a
// byte. Whole bytes are unpacked, so out takes n + DIB_UNPACK_SLACK values;
// no byte past the one holding pixel x + n - 1 is read.
void Unpack(const BYTE* row, DWORD bitcount, size_t x, size_t n, BYTE* out) {
    const BYTE* p = row + x * bitcount / 8;
    if (bitcount == 4) {
        for (size_t i = 0; i < (n + 1) / 2; ++i) {
            out[2 * i] = (BYTE)(p[i] >> 4);
            out[2 * i + 1] = (BYTE)(p[i] & 0x0F);
        }
    } else {
        for (size_t i = 0; i < (n + 7) / 8; ++i)
            for (int j = 0; j < 8; ++j) out[8 * i + j] = (BYTE)((p[i] >> (7 - j)) & 1);
    }
}

// Stores values that fit the depth into pixels x .. x + n - 1; the other
// pixels of the first and last byte stay.
void Pack(BYTE* row, DWORD bitcount, size_t x, size_t n, const BYTE* values) {
    size_t i = 0;
    if (bitcount == 4) {
        if ((x & 1) && n) { // a low nibble first
            row[x >> 1] = (BYTE)((row[x >> 1] & 0xF0) | values[i++]);
        }
        BYTE* p = row + ((x + i) >> 1);
        for (; i + 2 <= n; i += 2) *p++ = (BYTE)((values[i] << 4) | values[i + 1]);
        if (i < n) *p = (BYTE)((*p & 0x0F) | (values[i] << 4));
        return;
    }
    auto put = [&](size_t at, BYTE v) {
        BYTE bit = (BYTE)(0x80 >> (at & 7));
        row[at >> 3] = v ? (BYTE)(row[at >> 3] | bit) : (BYTE)(row[at >> 3] & ~bit);
    };
    for (; i < n && ((x + i) & 7); ++i) put(x + i, values[i]);
    for (; i + 8 <= n; i += 8) {
        const BYTE* v = values + i;
        row[(x + i) >> 3] = (BYTE)((v[0] << 7) | (v[1] << 6) | (v[2] << 5) | (v[3] << 4) | (v[4] << 3) |
                                   (v[5] << 2) | (v[6] << 1) | v[7]);
    }
    for (; i < n; ++i) put(x + i, values[i]);
}

enum class Window { Rank, Despeckle };

struct WindowArgs {
    Window kind;
    DWORD rank;
    BYTE background;
    DWORD threshold;
};

void RunKernel(const WindowArgs& w, const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t n) {
    if (w.kind == Window::Rank) DibRankRow8(a, b, c, out, n, w.rank);
    else DibDespeckleRow8(a, b, c, out, n, w.background, w.threshold);
}

// Runs the kernel over the interior of a bitmap of at least 3x3, reading
// from copy and writing into target. Every written value fits the depth.
void FilterInterior(HDIB target, HDIB copy, DWORD bitcount, LONG width, LONG height, const WindowArgs& w) {
    const size_t n = (size_t)width - 2;
    for (LONG y = 1; y < height - 1; ++y) {
        const BYTE* a = copy->ppRow[y - 1];
        const BYTE* b = copy->ppRow[y];
        const BYTE* c = copy->ppRow[y + 1];
        BYTE* row = target->ppRow[y];
        if (bitcount == 8) {
            RunKernel(w, a, b, c, row + 1, n);
            continue;
        }
        BYTE ua[DIB_RANK_STRIP + 2 + DIB_UNPACK_SLACK], ub[DIB_RANK_STRIP + 2 + DIB_UNPACK_SLACK];
        BYTE uc[DIB_RANK_STRIP + 2 + DIB_UNPACK_SLACK], out[DIB_RANK_STRIP];
        for (size_t x = 0; x < n; x += DIB_RANK_STRIP) {
            const size_t k = n - x < DIB_RANK_STRIP ? n - x : DIB_RANK_STRIP;
            Unpack(a, bitcount, x, k + 2, ua);
            Unpack(b, bitcount, x, k + 2, ub);
            Unpack(c, bitcount, x, k + 2, uc);
            RunKernel(w, ua, ub, uc, out, k);
            Pack(row, bitcount, x + 1, k, out);
        }
    }
}

// What both filters read once before their pixel loops.
struct Setup {
    DibPixelIO io;
    DWORD bitcount;
    LONG width, height;
};

DWORD CheckBitmap(HDIB hdib, Setup* s) {
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    s->bitcount = DibBitCount(hdib);
    if (DibRegisterPixelIO(s->bitcount, &s->io) != DibOk) return DibErrorInvalidDIB;
    s->width = DibWidth(hdib);
    s->height = DibHeight(hdib);
    return DibOk;
}

bool HasInterior(HDIB hdib, HDIB copy, const Setup& s) {
    return s.width >= 3 && s.height >= 3 && hdib->ppRow && copy->ppRow;
}

}  // namespace

/* ---- the operations ---------------------------------------------------------- */

extern "C" DWORD DibRankFilter(HDIB hdib, DWORD rank) {
    DebugTrace(DIB_LEVEL_OP, u">DibRankFilter(%lld,%d)\r\n", TRACE_PTR(hdib), (int)rank);
    Setup s;
    DWORD result = CheckBitmap(hdib, &s);
    if (result != DibOk) return result;
    if (rank > DIB_RANK_MAX) {
        DebugError(u"   !DibRankFilter():(rank<0) || (rank>8):Error\r\n");
        return DibErrorInvalidParm;
    }
    HDIB copy = DibCreateCopy(hdib);
    if (!copy) return DibErrorUnknown;
    if (HasInterior(hdib, copy, s)) {
        WindowArgs w = {Window::Rank, rank, 0, 0};
        FilterInterior(hdib, copy, s.bitcount, s.width, s.height, w);
    }
    DibUnload(copy);
    DebugTrace(DIB_LEVEL_OP, u"<DibRankFilter()=DibOk\r\n");
    return DibOk;
}

extern "C" DWORD DibDespeckle(HDIB hdib, DWORD threshold, DWORD background) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibDespeckle(%lld,%d,%d)\r\n", TRACE_PTR(hdib), (int)threshold,
               (int)background);
    Setup s;
    DWORD result = CheckBitmap(hdib, &s);
    if (result != DibOk) return result;
    HDIB copy = DibCreateCopy(hdib);
    if (!copy) return DibErrorUnknown;
    if (HasInterior(hdib, copy, s) && threshold > 0) {
        if (background < (1u << s.bitcount)) {
            WindowArgs w = {Window::Despeckle, 0, (BYTE)background, threshold};
            FilterInterior(hdib, copy, s.bitcount, s.width, s.height, w);
        } else if (threshold > 8) {
            // No pixel can equal such a background, so every count is 8 and
            // only a threshold above 8 clears. The value does not fit the
            // pixel: the write routine decides what lands in the byte.
            for (LONG y = 1; y < s.height - 1; ++y)
                for (LONG x = 1; x < s.width - 1; ++x) s.io.set(hdib, x, y, background);
        }
    }
    DibUnload(copy);
    DebugTrace(DIB_LEVEL_FRAME, u"<DibDespeckle()=DibOk\r\n");
    return DibOk;
}
