/*
 * Rank filter and despeckle: 3x3 windows at 1, 4 and 8 bits, read from a
 * private copy of the bitmap and written into the bitmap, so that no changed
 * pixel feeds a later window. The outermost rows and columns stay.
 *
 * The 8-bit kernels work on whole rows with branch-free min/max networks
 * that the compiler turns into vector code: each column of three is sorted
 * once and shared by the three windows that contain it, and each rank has
 * its own selection network on the sorted columns; the minimum and maximum
 * separate into columns and rows. 1- and 4-bit rows are unpacked into bytes
 * in strips, filtered by the same kernels and packed. The private copy is
 * filled row by row as the filter reaches the rows.
 */
#include <string.h>

#include "dibkernels.h"
#include "dibops.h"

#include <tovrel/packedpixel.h>

// Columns handled at a time: the strip buffers live on the stack and in L1.
#define DIB_RANK_STRIP 2048

// The kernels' bodies are templates on the block length, inlined into a
// plain, an AVX2 and an AVX-512 wrapper, and the processor picks one at run
// time. (Resolving at load time, as ifunc-based clones do, runs before
// ThreadSanitizer is ready and crashes it.)
#ifdef DIB_HAVE_X86_PATHS
#define DIB_AVX2 __attribute__((target("avx2")))
#if defined(__clang__)  // clang takes no vector-width preference here (the fuzzing build)
#define DIB_AVX512 __attribute__((target("avx2,avx512f,avx512bw,avx512vl")))
#else
#define DIB_AVX512 __attribute__((target("avx2,avx512f,avx512bw,avx512vl,prefer-vector-width=512")))
#endif
#endif
#define DIB_INLINE static inline __attribute__((always_inline))

/* ---- 8-bit kernels ---------------------------------------------------------- */

DIB_INLINE BYTE Lo(BYTE a, BYTE b) { return a < b ? a : b; }
DIB_INLINE BYTE Hi(BYTE a, BYTE b) { return a < b ? b : a; }
DIB_INLINE BYTE Min3(BYTE a, BYTE b, BYTE c) { return Lo(Lo(a, b), c); }
DIB_INLINE BYTE Max3(BYTE a, BYTE b, BYTE c) { return Hi(Hi(a, b), c); }
DIB_INLINE BYTE Med3(BYTE a, BYTE b, BYTE c) { return Hi(Lo(a, b), Lo(Hi(a, b), c)); }

// Runs f(i) for i below n: whole blocks of B first, whose fixed length lets
// the compiler replace them by vector code of that width entirely (so also
// at -O2), then the rest one by one.
#define DIB_EACH [&](size_t i) __attribute__((always_inline))
template <size_t B, class F>
DIB_INLINE void ForEach(size_t n, F f) {
    size_t i = 0;
    for (; i + B <= n; i += B)
        for (size_t j = i; j < i + B; ++j) f(j);
    // The rest as one more block that ends at n, overlapping the last one,
    // when there is room: f(i) only reads what no f writes, so running it
    // twice gives the same values.
    if (i < n && n >= B) {
        i = n - B;
        for (size_t j = i; j < i + B; ++j) f(j);
        return;
    }
    for (; i < n; ++i) f(i);
}

// Ranks from three sorted columns. Sorting the three lowest values (L), the
// three middle ones (M) and the three highest (H) of the columns gives a
// 3x3 matrix m, sorted along rows and columns:
//   m00 m01 m02 = sorted L,  m10 m11 m12 = sorted M,  m20 m21 m22 = sorted H.
// The value of rank k is the least maximum over the down-closed sets of k + 1
// cells of that matrix (and, mirrored, the greatest minimum over up-closed
// sets of 9 - k cells), which gives one small network a rank.
template <size_t B>
DIB_INLINE void SelectRank(const BYTE* __restrict L, const BYTE* __restrict M, const BYTE* __restrict H,
                           BYTE* __restrict out, size_t n, DWORD rank) {
    switch (rank) {
    case 1:
        ForEach<B>(n, DIB_EACH { out[i] = Lo(Med3(L[i], L[i + 1], L[i + 2]), Min3(M[i], M[i + 1], M[i + 2])); });
        break;
    case 2:
        ForEach<B>(n, DIB_EACH {
            BYTE m01 = Med3(L[i], L[i + 1], L[i + 2]), m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m10 = Min3(M[i], M[i + 1], M[i + 2]), m20 = Min3(H[i], H[i + 1], H[i + 2]);
            out[i] = Min3(Hi(m01, m10), m02, m20);
        });
        break;
    case 3:
        ForEach<B>(n, DIB_EACH {
            BYTE m01 = Med3(L[i], L[i + 1], L[i + 2]), m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m10 = Min3(M[i], M[i + 1], M[i + 2]), m11 = Med3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]);
            out[i] = Min3(Hi(m02, m10), m11, Hi(m01, m20));
        });
        break;
    case 4:
        ForEach<B>(n, DIB_EACH {
            BYTE m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m11 = Med3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]);
            out[i] = Med3(m02, m11, m20);
        });
        break;
    case 5:
        ForEach<B>(n, DIB_EACH {
            BYTE m02 = Max3(L[i], L[i + 1], L[i + 2]);
            BYTE m11 = Med3(M[i], M[i + 1], M[i + 2]), m12 = Max3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]), m21 = Med3(H[i], H[i + 1], H[i + 2]);
            out[i] = Max3(Lo(m20, m12), m11, Lo(m21, m02));
        });
        break;
    case 6:
        ForEach<B>(n, DIB_EACH {
            BYTE m02 = Max3(L[i], L[i + 1], L[i + 2]), m12 = Max3(M[i], M[i + 1], M[i + 2]);
            BYTE m20 = Min3(H[i], H[i + 1], H[i + 2]), m21 = Med3(H[i], H[i + 1], H[i + 2]);
            out[i] = Max3(Lo(m21, m12), m20, m02);
        });
        break;
    case 7:
        ForEach<B>(n, DIB_EACH { out[i] = Hi(Med3(H[i], H[i + 1], H[i + 2]), Max3(M[i], M[i + 1], M[i + 2])); });
        break;
    default:
        break;
    }
}

// Sorts the n columns of three: L, M and H get the lowest, middle, highest.
template <size_t B>
DIB_INLINE void SortColumns(const BYTE* __restrict a, const BYTE* __restrict b, const BYTE* __restrict c,
                            BYTE* __restrict L, BYTE* __restrict M, BYTE* __restrict H, size_t n) {
    ForEach<B>(n, DIB_EACH {
        BYTE lo = Lo(a[i], b[i]), hi = Hi(a[i], b[i]);
        L[i] = Lo(lo, c[i]);
        BYTE up = Hi(lo, c[i]);
        M[i] = Lo(hi, up);
        H[i] = Hi(hi, up);
    });
}

// Ranks 0 and 8 are the window's minimum and maximum, which separate: the
// extreme of each column of three, then of three neighbouring columns. The
// column extremes of two rows, centred on b and c, share that of b and c.
template <size_t B, bool Maximum>
DIB_INLINE void ExtremeColumnsOf(const BYTE* __restrict a, const BYTE* __restrict b, const BYTE* __restrict c,
                                 const BYTE* __restrict d, BYTE* __restrict colB, BYTE* __restrict colC, size_t n) {
    auto pick = [](BYTE x, BYTE y) __attribute__((always_inline)) { return Maximum ? Hi(x, y) : Lo(x, y); };
    ForEach<B>(n, DIB_EACH {
        BYTE m = pick(b[i], c[i]);
        colB[i] = pick(a[i], m);
        colC[i] = pick(m, d[i]);
    });
}

template <size_t B, bool Maximum>
DIB_INLINE void ExtremeAcrossOf(const BYTE* __restrict col, BYTE* __restrict out, size_t n) {
    auto pick = [](BYTE x, BYTE y) __attribute__((always_inline)) { return Maximum ? Hi(x, y) : Lo(x, y); };
    ForEach<B>(n, DIB_EACH { out[i] = pick(pick(col[i], col[i + 1]), col[i + 2]); });
}

template <size_t B>
DIB_INLINE void ExtremeColumns(const BYTE* a, const BYTE* b, const BYTE* c, const BYTE* d, BYTE* colB, BYTE* colC,
                               size_t n, bool maximum) {
    if (maximum) ExtremeColumnsOf<B, true>(a, b, c, d, colB, colC, n);
    else ExtremeColumnsOf<B, false>(a, b, c, d, colB, colC, n);
}

template <size_t B>
DIB_INLINE void ExtremeAcross(const BYTE* col, BYTE* out, size_t n, bool maximum) {
    if (maximum) ExtremeAcrossOf<B, true>(col, out, n);
    else ExtremeAcrossOf<B, false>(col, out, n);
}

template <size_t B>
DIB_INLINE void RankRow(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out, size_t n,
                        DWORD rank) {
    if (rank == 0 || rank >= DIB_RANK_MAX) {
        alignas(64) BYTE col[DIB_RANK_STRIP + 2], spare[DIB_RANK_STRIP + 2];
        for (size_t x = 0; x < n; x += DIB_RANK_STRIP) {
            const size_t k = n - x < DIB_RANK_STRIP ? n - x : DIB_RANK_STRIP;
            ExtremeColumns<B>(above + x, middle + x, below + x, below + x, col, spare, k + 2, rank != 0);
            ExtremeAcross<B>(col, out + x, k, rank != 0);
        }
        return;
    }
    alignas(64) BYTE L[DIB_RANK_STRIP + 2], M[DIB_RANK_STRIP + 2], H[DIB_RANK_STRIP + 2];
    for (size_t x = 0; x < n; x += DIB_RANK_STRIP) {
        const size_t k = n - x < DIB_RANK_STRIP ? n - x : DIB_RANK_STRIP;
        SortColumns<B>(above + x, middle + x, below + x, L, M, H, k + 2);
        SelectRank<B>(L, M, H, out + x, k, rank);
    }
}

template <size_t B>
DIB_INLINE void DespeckleStrip(const BYTE* __restrict a, const BYTE* __restrict b, const BYTE* __restrict c,
                               BYTE* __restrict count, BYTE* __restrict out, size_t n, BYTE background,
                               BYTE threshold) {
    // Column counts of pixels other than the background, each shared by three windows.
    ForEach<B>(n + 2, DIB_EACH {
        count[i] = static_cast<BYTE>((a[i] != background) + (b[i] != background) + (c[i] != background));
    });
    ForEach<B>(n, DIB_EACH {
        BYTE centre = b[i + 1];
        BYTE other = centre != background;
        BYTE neighbours = static_cast<BYTE>(count[i] + count[i + 1] + count[i + 2] - other);
        out[i] = (other && neighbours < threshold) ? background : centre;
    });
}

template <size_t B>
DIB_INLINE void DespeckleRow(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out, size_t n,
                             BYTE background, BYTE threshold) {
    alignas(64) BYTE count[DIB_RANK_STRIP + 2];
    for (size_t x = 0; x < n; x += DIB_RANK_STRIP) {
        const size_t k = n - x < DIB_RANK_STRIP ? n - x : DIB_RANK_STRIP;
        DespeckleStrip<B>(above + x, middle + x, below + x, count, out + x, k, background, threshold);
    }
}

// The three ways of each kernel, and the one the processor is given.
#define DIB_KERNEL_WAYS(Name, Body, Params, Args)                     \
    static void Name##Plain Params { Body<32> Args; }                 \
    DIB_WAY_AVX2(static void Name##Avx2 Params { Body<32> Args; })    \
    DIB_WAY_AVX512(static void Name##Avx512 Params { Body<64> Args; })
#ifdef DIB_HAVE_X86_PATHS
#define DIB_WAY_AVX2(f) DIB_AVX2 f
#define DIB_WAY_AVX512(f) DIB_AVX512 f
#define DIB_PICK(Name) \
    (DibCpuHas(DIB_CPU_AVX512) ? Name##Avx512 : DibCpuHas(DIB_CPU_AVX2) ? Name##Avx2 : Name##Plain)
#else
#define DIB_WAY_AVX2(f)
#define DIB_WAY_AVX512(f)
#define DIB_PICK(Name) Name##Plain
#endif

DIB_KERNEL_WAYS(RankRowWay, RankRow, (const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t n, DWORD rank),
                (a, b, c, out, n, rank))
DIB_KERNEL_WAYS(ExtremeColumnsWay, ExtremeColumns,
                (const BYTE* a, const BYTE* b, const BYTE* c, const BYTE* d, BYTE* colB, BYTE* colC, size_t n,
                 bool maximum),
                (a, b, c, d, colB, colC, n, maximum))
DIB_KERNEL_WAYS(ExtremeAcrossWay, ExtremeAcross, (const BYTE* col, BYTE* out, size_t n, bool maximum),
                (col, out, n, maximum))
DIB_KERNEL_WAYS(DespeckleRowWay, DespeckleRow,
                (const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t n, BYTE background,
                 BYTE threshold),
                (a, b, c, out, n, background, threshold))

using RankRowFn = void (*)(const BYTE*, const BYTE*, const BYTE*, BYTE*, size_t, DWORD);
using ExtremeColumnsFn = void (*)(const BYTE*, const BYTE*, const BYTE*, const BYTE*, BYTE*, BYTE*, size_t, bool);
using ExtremeAcrossFn = void (*)(const BYTE*, BYTE*, size_t, bool);
using DespeckleRowFn = void (*)(const BYTE*, const BYTE*, const BYTE*, BYTE*, size_t, BYTE, BYTE);

extern "C" void DibRankRow8(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out, size_t n,
                            DWORD rank) {
    const RankRowFn way = DIB_PICK(RankRowWay);
    way(above, middle, below, out, n, rank);
}

// No count reaches 9: any higher threshold acts as 9.
static BYTE DespeckleLimit(DWORD threshold) { return threshold > 9 ? 9 : static_cast<BYTE>(threshold); }

extern "C" void DibDespeckleRow8(const BYTE* above, const BYTE* middle, const BYTE* below, BYTE* out,
                                 size_t n, BYTE background, DWORD threshold) {
    const DespeckleRowFn way = DIB_PICK(DespeckleRowWay);
    way(above, middle, below, out, n, background, DespeckleLimit(threshold));
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
            out[2 * i] = static_cast<BYTE>(p[i] >> 4);
            out[2 * i + 1] = static_cast<BYTE>(p[i] & 0x0F);
        }
    } else {
        for (size_t i = 0; i < (n + 7) / 8; ++i)
            for (int j = 0; j < 8; ++j) out[8 * i + j] = static_cast<BYTE>((p[i] >> (7 - j)) & 1);
    }
}

// Stores values that fit the depth into pixels x .. x + n - 1; the other
// pixels of the first and last byte stay.
void Pack(BYTE* row, DWORD bitcount, size_t x, size_t n, const BYTE* values) {
    const int bpp = static_cast<int>(bitcount);
    const size_t perByte = 8 / bitcount;
    size_t i = 0;
    // Whole bytes in the middle; single pixels where a byte is shared.
    for (; i < n && ((x + i) % perByte); ++i) PackedPut(row, static_cast<LONG>(x + i), bpp, values[i]);
    if (bitcount == 4) {
        BYTE* p = row + ((x + i) >> 1);
        for (; i + 2 <= n; i += 2) *p++ = static_cast<BYTE>((values[i] << 4) | values[i + 1]);
    } else {
        for (; i + 8 <= n; i += 8) {
            const BYTE* v = values + i;
            row[(x + i) >> 3] = static_cast<BYTE>((v[0] << 7) | (v[1] << 6) | (v[2] << 5) | (v[3] << 4) |
                                                  (v[4] << 3) | (v[5] << 2) | (v[6] << 1) | v[7]);
        }
    }
    for (; i < n; ++i) PackedPut(row, static_cast<LONG>(x + i), bpp, values[i]);
}

enum class Window { Rank, Despeckle };

struct WindowArgs {
    Window kind;
    DWORD rank;
    BYTE background;
    DWORD threshold;
};

// The filter works through the rows in the order they lie in memory, from
// the bottom row up, which the processor's prefetching follows: a 3x3
// window is the same turned upside down, so the results are too. Row k of
// that order is row height - 1 - k of the picture.
inline BYTE* InMemoryOrder(HDIB hdib, LONG height, LONG k) { return hdib->ppRow[height - 1 - k]; }

// The working copy holds the rows the windows still need: each row is
// copied, still as it was, just before the filter first reads it, into one
// of the copy's first kRing rows in turn (a window pass reads at most four
// consecutive rows). So the copy's rows stay in the cache, the picture is
// read once, and no row of the copy that nothing reads is ever written.
class RowFiller {
public:
    static constexpr LONG kRing = 4;
    static constexpr LONG kAhead = 4;
    RowFiller(HDIB target, HDIB copy, DWORD bitcount, LONG width, LONG height)
        : target_(target), copy_(copy), stride_(static_cast<size_t>(DibRowBytes(width, bitcount))),
          height_(height), ring_(height < kRing ? height : kRing) {}
    // Rows up to k (below the height) of the memory order have been copied.
    void Through(LONG k) {
        for (; filled_ <= k; ++filled_) {
            memcpy(Row(filled_), InMemoryOrder(target_, height_, filled_), stride_);
            // The processor's own prefetching stops at page ends, and a wide
            // row is a page or more: ask for the row after next in advance.
            if (filled_ + kAhead < height_) {
                const BYTE* next = InMemoryOrder(target_, height_, filled_ + kAhead);
                for (size_t i = 0; i < stride_; i += 64) __builtin_prefetch(next + i);
            }
        }
    }
    // Row k of the memory order as it was, once copied and while a pass may read it.
    BYTE* Row(LONG k) const { return InMemoryOrder(copy_, height_, k % ring_); }
    // The copy's rows, for a pass that needs none of them as copies.
    BYTE* const* Scratch() const { return copy_->ppRow; }

private:
    HDIB target_, copy_;
    size_t stride_;
    LONG height_, ring_;
    LONG filled_ = 0;
};

// The minimum or maximum needs no copy of the rows: the column extremes of
// a row are taken while the rows above and below it are still as they were,
// and the row is written only after the column extremes of the next row,
// which read it, are known. Rows go in pairs sharing the extreme of their
// two middle rows; three rows of the working copy hold the column extremes.
void ExtremeInPlace(HDIB target, BYTE* const* scratch, LONG width, LONG height, bool maximum) {
    const ExtremeColumnsFn columns = DIB_PICK(ExtremeColumnsWay);
    const ExtremeAcrossFn across = DIB_PICK(ExtremeAcrossWay);
    const size_t all = static_cast<size_t>(width), n = all - 2;
    auto row = [target, height](LONG k) { return InMemoryOrder(target, height, k); };
    BYTE *now = scratch[0], *next = scratch[1], *after = scratch[2];
    columns(row(0), row(1), row(2), row(2), now, next, all, maximum);  // next: unused
    LONG k = 1;
    for (; k + 2 <= height - 2; k += 2) {
        columns(row(k), row(k + 1), row(k + 2), row(k + 3), next, after, all, maximum);
        across(now, row(k) + 1, n, maximum);
        across(next, row(k + 1) + 1, n, maximum);
        BYTE* t = now;
        now = after;
        after = t;
    }
    if (k + 1 == height - 2) {  // two rows left
        columns(row(k), row(k + 1), row(k + 2), row(k + 2), next, after, all, maximum);
        across(now, row(k) + 1, n, maximum);
        across(next, row(k + 1) + 1, n, maximum);
    } else if (k == height - 2) {
        across(now, row(k) + 1, n, maximum);
    }
}

// Runs the kernel over the interior of a bitmap of at least 3x3, reading
// from the working copy's rows (filled on the way) and writing into target. Every written
// value fits the depth.
void FilterInterior(HDIB target, RowFiller& fill, DWORD bitcount, LONG width, LONG height,
                    const WindowArgs& w) {
    const size_t n = static_cast<size_t>(width) - 2;
    const RankRowFn rankRow = DIB_PICK(RankRowWay);
    const DespeckleRowFn despeckleRow = DIB_PICK(DespeckleRowWay);
    const BYTE limit = DespeckleLimit(w.threshold);
    auto kernel = [&](const BYTE* a, const BYTE* b, const BYTE* c, BYTE* out, size_t k) {
        if (w.kind == Window::Rank) rankRow(a, b, c, out, k, w.rank);
        else despeckleRow(a, b, c, out, k, w.background, limit);
    };
    auto src = [&fill](LONG k) { return fill.Row(k); };
    auto dst = [target, height](LONG k) { return InMemoryOrder(target, height, k); };
    if (bitcount == 8 && w.kind == Window::Rank && (w.rank == 0 || w.rank >= DIB_RANK_MAX)) {
        ExtremeInPlace(target, fill.Scratch(), width, height, w.rank != 0);
        return;
    }
    for (LONG y = 1; y < height - 1; ++y) {
        fill.Through(y + 1);
        const BYTE* a = src(y - 1);
        const BYTE* b = src(y);
        const BYTE* c = src(y + 1);
        BYTE* row = dst(y);
        if (bitcount == 8) {
            kernel(a, b, c, row + 1, n);
            continue;
        }
        BYTE ua[DIB_RANK_STRIP + 2 + DIB_UNPACK_SLACK], ub[DIB_RANK_STRIP + 2 + DIB_UNPACK_SLACK];
        BYTE uc[DIB_RANK_STRIP + 2 + DIB_UNPACK_SLACK], out[DIB_RANK_STRIP];
        for (size_t x = 0; x < n; x += DIB_RANK_STRIP) {
            const size_t k = n - x < DIB_RANK_STRIP ? n - x : DIB_RANK_STRIP;
            Unpack(a, bitcount, x, k + 2, ua);
            Unpack(b, bitcount, x, k + 2, ub);
            Unpack(c, bitcount, x, k + 2, uc);
            kernel(ua, ub, uc, out, k);
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
    DebugTrace(DIB_LEVEL_OP, u">DibRankFilter(%lld,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(rank));
    Setup s;
    DWORD result = CheckBitmap(hdib, &s);
    if (result != DibOk) return result;
    if (rank > DIB_RANK_MAX) {
        DebugError(u"   !DibRankFilter():(rank<0) || (rank>8):Error\r\n");
        return DibErrorInvalidParm;
    }
    HDIB copy = DibCreateWorkingCopy(hdib);
    if (!copy) return DibErrorUnknown;
    RowFiller fill(hdib, copy, s.bitcount, s.width, s.height);
    if (HasInterior(hdib, copy, s)) {
        WindowArgs w = {Window::Rank, rank, 0, 0};
        FilterInterior(hdib, fill, s.bitcount, s.width, s.height, w);
    }
    DibUnload(copy);
    DebugTrace(DIB_LEVEL_OP, u"<DibRankFilter()=DibOk\r\n");
    return DibOk;
}

extern "C" DWORD DibDespeckle(HDIB hdib, DWORD threshold, DWORD background) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibDespeckle(%lld,%d,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(threshold),
               static_cast<int>(background));
    Setup s;
    DWORD result = CheckBitmap(hdib, &s);
    if (result != DibOk) return result;
    HDIB copy = DibCreateWorkingCopy(hdib);
    if (!copy) return DibErrorUnknown;
    RowFiller fill(hdib, copy, s.bitcount, s.width, s.height);
    if (HasInterior(hdib, copy, s) && threshold > 0) {
        if (background < (1u << s.bitcount)) {
            WindowArgs w = {Window::Despeckle, 0, static_cast<BYTE>(background), threshold};
            FilterInterior(hdib, fill, s.bitcount, s.width, s.height, w);
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
