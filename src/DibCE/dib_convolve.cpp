/*
 * Convolution family of the bitmap layer:
 *   DibCreateCopyConvolve           working copy with mirrored borders
 *   DibConvolutionFilterThreshhold  the engine: kernel, divisor, bias, decision
 *   DibConvolutionFilter            the engine without a decision
 *   DibAverage, DibSharpen, DibInfinityFilter, DibThreshold  built-in kernels
 *
 * The engine works on 8-bit bitmaps. The weighted sums are taken in 32-bit
 * modular arithmetic, so any regrouping of the terms gives exactly the sum
 * of the plain tap-by-tap walk, overflow included. That lets the row loops
 * run a 3x3 kernel in one fused pass, fold the mirror-symmetric rows and
 * columns of larger kernels (add the pixels first, multiply once), work in
 * 16-bit lanes where no sum can leave 16 bits, and
 * divide through an exact vectorisable form: a shift for powers of two, a
 * float division where every sum stays below 2^24 (then the correctly
 * rounded float quotient always truncates to the integer quotient).
 * Kernels that fit 16 bits finish (and, at 3x3, sum) in the vector row
 * kernels of dibconv.h.
 *
 * The working copy is filled row by row just ahead of the rows that read
 * it, so that each copy row is still in the cache when the window passes
 * over it; the bitmap's own rows are overwritten only after their copies
 * are made.
 */
#include <string.h>

#include "dibconv.h"
#include "dibkernels.h"
#include "dibops.h"

// The rows are compiled twice, plain and for AVX2, and DibCpuHas picks one
// at each call (so that tests can run both on any machine).
#ifdef DIB_HAVE_X86_PATHS
#define CONV_AVX2 __attribute__((target("avx2")))
#endif
#define CONV_INLINE static inline __attribute__((always_inline))

namespace {

// Whether the mirrored borders of a copy grown by 2*mx columns and 2*my
// rows take every value from the picture. The top, bottom and left mirrors
// need a half size below the picture's size; the right border, which copies
// the column 2*mx places to its left, may reach into the left border only
// where that column has already been filled.
bool BordersFromPicture(LONG width, LONG height, int64_t mx, int64_t my) {
    if (mx < 0 || my < 0) return false;
    if (my >= height || mx >= width) return false;
    return mx == 0 || width >= 2 * mx - 1;
}

// One kernel row as the row loops see it: its weights and one or two copy
// rows (two when the kernel row is equal to its mirror row, whose pixels are
// then added before weighting).
struct ConvRow {
    const LONG* weights;
    LONG ky1;
    LONG ky2;        // -1: no partner
    bool palindrome; // weights[j] == weights[cols-1-j] for all j
};

enum DivKind { DivOne, DivNegate, DivShift, DivShiftNeg, DivFloat, DivScalar };

struct ConvPlan {
    const ConvRow* rows;
    LONG nrows;
    LONG cols;
    LONG width;      // picture width
    LONG copyWidth;  // width + 2*mx
    bool narrow;     // 16-bit lanes suffice
    DivKind kind;
    LONG divisor;
    int shift;
    LONG bias;
    LONG threshold;
    const LONG* kernel; // for the fused 3x3 loop
    bool fused3;
    ConvNarrow n16;            // the 16-bit finish, where it applies
    ConvRow3Fn row3;           // a whole 3x3 row in vector lanes, or NULL
    ConvFinish16Fn finish16;   // the finish of 16-bit sums, or NULL
};

template <class Acc, class Src>
CONV_INLINE void AddTap(Acc* acc, const Src* s, LONG w, LONG n) {
    if (w == 1) {
        for (LONG x = 0; x < n; ++x) acc[x] = (Acc)(acc[x] + (Acc)s[x]);
    } else if (w == -1) {
        for (LONG x = 0; x < n; ++x) acc[x] = (Acc)(acc[x] - (Acc)s[x]);
    } else {
        const Acc wa = (Acc)w;
        for (LONG x = 0; x < n; ++x) acc[x] = (Acc)(acc[x] + (Acc)(wa * (Acc)s[x]));
    }
}

// Two taps of equal weight: s[x] and s[x + gap].
template <class Acc, class Src>
CONV_INLINE void AddTapPair(Acc* acc, const Src* s, LONG gap, LONG w, LONG n) {
    const Src* t = s + gap;
    if (w == 1) {
        for (LONG x = 0; x < n; ++x) acc[x] = (Acc)(acc[x] + (Acc)((Acc)s[x] + (Acc)t[x]));
    } else if (w == -1) {
        for (LONG x = 0; x < n; ++x) acc[x] = (Acc)(acc[x] - (Acc)((Acc)s[x] + (Acc)t[x]));
    } else {
        const Acc wa = (Acc)w;
        for (LONG x = 0; x < n; ++x)
            acc[x] = (Acc)(acc[x] + (Acc)(wa * (Acc)((Acc)s[x] + (Acc)t[x])));
    }
}

template <class Acc, class Src>
CONV_INLINE void AddKernelRow(Acc* acc, const Src* s, const ConvRow& r, LONG cols, LONG n) {
    if (r.palindrome) {
        for (LONG j = 0; j < cols / 2; ++j)
            if (r.weights[j] != 0) AddTapPair(acc, s + j, cols - 1 - 2 * j, r.weights[j], n);
        if ((cols & 1) && r.weights[cols / 2] != 0)
            AddTap(acc, s + cols / 2, r.weights[cols / 2], n);
    } else {
        for (LONG j = 0; j < cols; ++j)
            if (r.weights[j] != 0) AddTap(acc, s + j, r.weights[j], n);
    }
}

template <bool Thr>
CONV_INLINE BYTE Decide(int32_t q, LONG bias, LONG threshold) {
    const int32_t s = static_cast<int32_t>(static_cast<uint32_t>(bias) + static_cast<uint32_t>(q));
    if (Thr) return s < threshold ? 0 : 255;
    return static_cast<BYTE>(s > 255 ? 255 : (s < 0 ? 0 : s));
}

template <DivKind K, bool Thr, class Acc>
CONV_INLINE void FinishKind(const Acc* acc, BYTE* out, const ConvPlan& p) {
    const LONG bias = p.bias;
    const LONG threshold = p.threshold;
    const LONG n = p.width;
    const int sh = p.shift;
    const int32_t mask = static_cast<int32_t>((1u << sh) - 1u);
    const float fd = static_cast<float>(p.divisor);
    for (LONG x = 0; x < n; ++x) {
        const int32_t s = static_cast<int32_t>(acc[x]);
        int32_t q;
        if (K == DivOne) {
            q = s;
        } else if (K == DivNegate) {
            q = static_cast<int32_t>(0u - static_cast<uint32_t>(s));
        } else if (K == DivShift) {
            q = (s + ((s >> 31) & mask)) >> sh;
        } else if (K == DivShiftNeg) {
            q = -((s + ((s >> 31) & mask)) >> sh);
        } else if (K == DivFloat) {
            q = static_cast<int32_t>(static_cast<float>(s) / fd);
        } else {
            q = s / p.divisor;
        }
        out[x] = Decide<Thr>(q, bias, threshold);
    }
}

template <bool Thr, class Acc>
CONV_INLINE void FinishT(const Acc* acc, BYTE* out, const ConvPlan& p) {
    switch (p.kind) {
    case DivOne: FinishKind<DivOne, Thr>(acc, out, p); break;
    case DivNegate: FinishKind<DivNegate, Thr>(acc, out, p); break;
    case DivShift: FinishKind<DivShift, Thr>(acc, out, p); break;
    case DivShiftNeg: FinishKind<DivShiftNeg, Thr>(acc, out, p); break;
    case DivFloat: FinishKind<DivFloat, Thr>(acc, out, p); break;
    case DivScalar: FinishKind<DivScalar, Thr>(acc, out, p); break;
    }
}

template <class Acc>
CONV_INLINE void Finish(const Acc* acc, BYTE* out, const ConvPlan& p) {
    if (p.threshold != 0)
        FinishT<true>(acc, out, p);
    else
        FinishT<false>(acc, out, p);
}

// A 3x3 kernel in one pass over the row: nine products a pixel, no
// partial sums in memory.
template <class Acc>
CONV_INLINE void Fused3x3(Acc* acc, const BYTE* r0, const BYTE* r1, const BYTE* r2, const LONG* k,
                          LONG n) {
    const Acc w0 = (Acc)k[0], w1 = (Acc)k[1], w2 = (Acc)k[2];
    const Acc w3 = (Acc)k[3], w4 = (Acc)k[4], w5 = (Acc)k[5];
    const Acc w6 = (Acc)k[6], w7 = (Acc)k[7], w8 = (Acc)k[8];
    for (LONG x = 0; x < n; ++x) {
        const Acc a = (Acc)(w0 * (Acc)r0[x] + w1 * (Acc)r0[x + 1] + w2 * (Acc)r0[x + 2]);
        const Acc b = (Acc)(w3 * (Acc)r1[x] + w4 * (Acc)r1[x + 1] + w5 * (Acc)r1[x + 2]);
        const Acc c = (Acc)(w6 * (Acc)r2[x] + w7 * (Acc)r2[x + 1] + w8 * (Acc)r2[x + 2]);
        acc[x] = (Acc)(a + b + c);
    }
}

// One output row from the copy rows starting at the window's top row.
template <class Acc>
CONV_INLINE void ConvolveRowT(const ConvPlan& p, BYTE* const* copyRows, BYTE* out, Acc* acc, uint16_t* fold) {
    const LONG n = p.width;
    if (p.fused3) {
        Fused3x3(acc, copyRows[0], copyRows[1], copyRows[2], p.kernel, n);
    } else {
        memset(acc, 0, sizeof(Acc) * static_cast<size_t>(n));
        for (LONG i = 0; i < p.nrows; ++i) {
            const ConvRow& r = p.rows[i];
            const BYTE* a = copyRows[r.ky1];
            if (r.ky2 < 0) {
                AddKernelRow(acc, a, r, p.cols, n);
            } else {
                const BYTE* b = copyRows[r.ky2];
                for (LONG c = 0; c < p.copyWidth; ++c) fold[c] = static_cast<uint16_t>(a[c] + b[c]);
                AddKernelRow(acc, reinterpret_cast<const uint16_t*>(fold), r, p.cols, n);
            }
        }
    }
    if (sizeof(Acc) == 2 && p.finish16)
        p.finish16(reinterpret_cast<const int16_t*>(acc), out, n, p.n16);
    else
        Finish(acc, out, p);
}

#define CONV_ROW_BODY                                                   \
    if (p.narrow)                                                       \
        ConvolveRowT(p, copyRows, out, reinterpret_cast<int16_t*>(acc), fold);            \
    else                                                                \
        ConvolveRowT(p, copyRows, out, reinterpret_cast<uint32_t*>(acc), fold);

typedef void (*ConvolveRowFn)(const ConvPlan& p, BYTE* const* copyRows, BYTE* out, void* acc, uint16_t* fold);

void ConvolveRowPlain(const ConvPlan& p, BYTE* const* copyRows, BYTE* out, void* acc, uint16_t* fold) {
    CONV_ROW_BODY
}

#ifdef DIB_HAVE_X86_PATHS
CONV_AVX2 void ConvolveRowAvx2(const ConvPlan& p, BYTE* const* copyRows, BYTE* out, void* acc, uint16_t* fold) {
    CONV_ROW_BODY
}
#endif

ConvolveRowFn PickConvolveRow() {
#ifdef DIB_HAVE_X86_PATHS
    if (DibCpuHas(DIB_CPU_AVX2)) return ConvolveRowAvx2;
#endif
    return ConvolveRowPlain;
}

bool RowsEqual(const LONG* a, const LONG* b, LONG cols) {
    return cols == 0 || memcmp(a, b, sizeof(LONG) * static_cast<size_t>(cols)) == 0;
}

bool Palindrome(const LONG* w, LONG cols) {
    for (LONG j = 0; j < cols / 2; ++j)
        if (w[j] != w[cols - 1 - j]) return false;
    return true;
}

// The 16-bit finish (dibconv.h) for a narrow kernel, and at 3x3 the whole
// row in vector lanes; left off where the bias or the threshold would take
// the 32-bit sum bias + q outside what the 16-bit lanes can decide.
void PlanNarrow(ConvPlan& plan, LONG rows, LONG cols) {
    plan.row3 = nullptr;
    plan.finish16 = nullptr;
    if (!plan.narrow) return;
    ConvNarrow& q = plan.n16;
    memset(&q, 0, sizeof q);
    const int64_t bias = plan.bias;
    if (plan.threshold == 0) {
        if (bias < INT16_MIN || bias > INT16_MAX) return;
        q.bias = static_cast<int16_t>(bias);
    } else {
        // |q| < 2^15, so bias + q cannot wrap and 255 goes where q >= threshold - bias.
        if (bias < static_cast<int64_t>(INT32_MIN) + INT16_MAX || bias > static_cast<int64_t>(INT32_MAX) - INT16_MAX) return;
        int64_t limit = static_cast<int64_t>(plan.threshold) - bias - 1;
        limit = limit < INT16_MIN ? INT16_MIN : limit > INT16_MAX ? INT16_MAX : limit;
        q.threshold = true;
        q.limit = static_cast<int16_t>(limit);
    }
    const int64_t ad = plan.divisor < 0 ? -static_cast<int64_t>(plan.divisor) : static_cast<int64_t>(plan.divisor);
    q.div = ad == 1 ? ConvDivIdent : ConvDivSigned;
    if (ad >= 2 && ad <= INT16_MAX) {
        int bits = 0;
        while ((static_cast<int64_t>(1) << bits) < ad) ++bits;
        q.magic = static_cast<uint16_t>(((static_cast<int64_t>(1) << (15 + bits)) + ad - 1) / ad);
        q.shift = bits - 1;
    } // a larger divisor leaves magic 0: every quotient is 0
    if (rows == 3 && cols == 3) {
        // The divisor's sign goes into the weights: they then sum to -s.
        bool positive = true;
        for (int i = 0; i < 9; ++i) {
            const LONG w = plan.divisor < 0 ? -plan.kernel[i] : plan.kernel[i];
            q.taps[i] = static_cast<int16_t>(w);
            positive = positive && w >= 0;
        }
        bool ring = true;
        for (int i = 0; i < 9; ++i) ring = ring && (i == 4 || q.taps[i] == q.taps[0]);
        q.kind = !ring ? ConvKindTaps : (q.taps[0] == 1 && q.taps[4] == 1) ? ConvKindBox : ConvKindRing;
        q.ringA = q.taps[0];
        q.ringB = static_cast<int16_t>(q.taps[4] - q.taps[0]);
        if (positive && q.div == ConvDivSigned) q.div = ConvDivUnsigned;
        plan.row3 = ConvPickRow3(q, plan.width);
    } else {
        q.negate = plan.divisor < 0;
        plan.finish16 = ConvPickFinish16(q, plan.width);
    }
}

// Fills plan.rows (room for `rows` entries) and the arithmetic choices.
void BuildPlan(ConvPlan& plan, ConvRow* out, const LONG* kernel, LONG rows, LONG cols,
               LONG divisor, LONG bias, LONG threshold, LONG width, LONG mx) {
    LONG n = 0;
    int64_t absSum = 0;
    for (LONG ky = 0; ky < rows; ++ky) {
        const LONG* w = kernel + static_cast<size_t>(ky) * static_cast<size_t>(cols);
        bool any = false;
        for (LONG j = 0; j < cols; ++j) {
            absSum += w[j] < 0 ? -static_cast<int64_t>(w[j]) : static_cast<int64_t>(w[j]);
            any = any || w[j] != 0;
        }
        const LONG mirror = rows - 1 - ky;
        if (mirror < ky && RowsEqual(w, kernel + static_cast<size_t>(mirror) * static_cast<size_t>(cols), cols))
            continue; // folded into its mirror row
        if (!any) continue;
        ConvRow& r = out[n++];
        r.weights = w;
        r.ky1 = ky;
        r.ky2 = (mirror > ky && RowsEqual(w, kernel + static_cast<size_t>(mirror) * static_cast<size_t>(cols), cols)) ? mirror : -1;
        r.palindrome = Palindrome(w, cols);
    }
    plan.rows = out;
    plan.nrows = n;
    plan.kernel = kernel;
    plan.fused3 = rows == 3 && cols == 3;
    plan.cols = cols;
    plan.width = width;
    plan.copyWidth = width + 2 * mx;
    const int64_t bound = absSum * 255; // largest |sum| and |partial sum|
    plan.narrow = bound <= 32767;
    plan.divisor = divisor;
    plan.bias = bias;
    plan.threshold = threshold;
    plan.shift = 0;
    const int64_t ad = divisor < 0 ? -static_cast<int64_t>(divisor) : static_cast<int64_t>(divisor);
    if (divisor == 1) {
        plan.kind = DivOne;
    } else if (divisor == -1) {
        plan.kind = DivNegate;
    } else if ((ad & (ad - 1)) == 0 && ad <= (static_cast<int64_t>(1) << 30)) {
        while ((static_cast<int64_t>(1) << plan.shift) < ad) ++plan.shift;
        plan.kind = divisor > 0 ? DivShift : DivShiftNeg;
    } else if (bound < (static_cast<int64_t>(1) << 24) && ad < (static_cast<int64_t>(1) << 24)) {
        plan.kind = DivFloat;
    } else {
        plan.kind = DivScalar;
    }
    PlanNarrow(plan, rows, cols);
}

// Fills the rows of a working copy: the mirrored top and bottom rows first,
// then the picture's rows in order, each row with its left and right border.
struct CopyFiller {
    BYTE* const* src;
    BYTE* const* dst;
    LONG width, height, mx, my, newWidth, newHeight;
    LONG done; // picture rows copied

    CopyFiller(HDIB hdib, HDIB copy)
        : src(hdib->ppRow), dst(copy->ppRow), width(DibWidth(hdib)), height(DibHeight(hdib)),
          mx((DibWidth(copy) - DibWidth(hdib)) / 2), my((DibHeight(copy) - DibHeight(hdib)) / 2),
          newWidth(DibWidth(copy)), newHeight(DibHeight(copy)), done(0) {}

    void Row(LONG r, const BYTE* from) const {
        BYTE* row = dst[r];
        memcpy(row + mx, from, static_cast<size_t>(width));
        for (LONG i = 0; i < mx; ++i) {
            row[i] = row[2 * mx - i];
            row[newWidth - 1 - i] = row[width - 1 - i];
        }
    }
    // The border rows, while every picture row still holds its own pixels.
    void Start() const {
        for (LONG i = 0; i < my; ++i) {
            Row(i, src[my - i]);
            Row(newHeight - 1 - i, src[height - my - 1 + i]);
        }
    }
    // Copies picture rows up to and including `last`.
    void Through(LONG last) {
        if (last >= height) last = height - 1;
        for (; done <= last; ++done) Row(my + done, src[done]);
    }
};

// The working copy as DibCreateCopyConvolve traces and makes it; with fill
// false its rows are left to a CopyFiller of the caller.
HDIB MakeCopy(HDIB hdib, LONG newHeight, LONG newWidth, bool fill) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibCreateCopyConvolve(%lld,%d,%d)\r\n", TRACE_PTR(hdib),
               newHeight, newWidth);
    if (DibIsInvalid(hdib)) return nullptr;
    const LONG width = DibWidth(hdib);
    const LONG height = DibHeight(hdib);
    const DWORD colours = DibNumColors(hdib);
    const int64_t gw = static_cast<int64_t>(newWidth) - width;
    const int64_t gh = static_cast<int64_t>(newHeight) - height;
    // The rows are copied byte for byte: 8 bits only, and only borders
    // that the picture can supply.
    if (DibBitCount(hdib) != 8 || (gw & 1) || (gh & 1) ||
        !BordersFromPicture(width, height, gw / 2, gh / 2)) {
        DebugError(u"   !DibCreateCopyConvolve():DibErrorInvalidParm\r\n");
        return nullptr;
    }
    BITMAPINFO* info = static_cast<BITMAPINFO*>(LocalAlloc(LPTR, (static_cast<size_t>(colours) + 10) * 4));
    if (info == nullptr) {
        DebugError(u"   !DibCreateCopyConvolve():LocalAlloc:pbmi:Error\r\n");
        return nullptr;
    }
    memcpy(&info->bmiHeader, &hdib->ds.dsBmih, sizeof(BITMAPINFOHEADER));
    memcpy(info->bmiColors, hdib->pbmiColors, static_cast<size_t>(colours) * 4);
    info->bmiHeader.biHeight = newHeight;
    info->bmiHeader.biWidth = newWidth;
    info->bmiHeader.biSizeImage = 0; // the old size would describe the old picture
    HDIB copy = DibCreateFromBitmapInfo(info);
    LocalFree(info);
    if (copy == nullptr) {
        DebugError(u"   !DibCreateCopyConvolve():DibCreateFromBitmapInfo:Error\r\n");
        return nullptr;
    }
    if (fill) {
        CopyFiller filler(hdib, copy);
        filler.Start();
        filler.Through(height - 1);
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<DibCreateCopyConvolve()=%lld\r\n", TRACE_PTR(copy));
    return copy;
}

}  // namespace

extern "C" {

HDIB DibCreateCopyConvolve(HDIB hdib, LONG newHeight, LONG newWidth) {
    return MakeCopy(hdib, newHeight, newWidth, true);
}

DWORD DibConvolutionFilterThreshhold(HDIB hdib, const LONG* kernel, LONG rows, LONG cols,
                                     LONG divisor, LONG bias, LONG threshold) {
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    DebugTrace(DIB_LEVEL_OP, u">DibConvolutionFilterThreshhold()\r\n");
    if (divisor == 0) return DibErrorInvalidDIB;
    if (DibBitCount(hdib) != 8) return DibErrorInvalidDIB;
    const LONG width = DibWidth(hdib);
    const LONG height = DibHeight(hdib);
    const int64_t entries = static_cast<int64_t>(rows) * static_cast<int64_t>(cols);
    // Sizes and the kernel come from the caller: refuse what would make the
    // borders reach past the picture, and a kernel that cannot be read.
    if (rows < 0 || cols < 0 || !BordersFromPicture(width, height, cols / 2, rows / 2) ||
        kernel == nullptr || entries > DIB_CONV_MAX_ENTRIES ||
        (entries > 0 && IsBadReadPtr(kernel, static_cast<size_t>(entries) * sizeof(LONG)))) {
        DebugError(u"   !DibConvolutionFilterThreshhold():DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }
    const LONG my = rows / 2;
    const LONG mx = cols / 2;
    HDIB copy = MakeCopy(hdib, height + 2 * my, width + 2 * mx, false);
    if (copy == nullptr) return DibErrorUnknown;

    // Row scratch: the sums of one output row, a folded pair of copy rows and
    // the plan's kernel rows.
    const size_t accBytes = (static_cast<size_t>(width) * 4 + 63) & ~static_cast<size_t>(63);
    const size_t foldBytes = ((static_cast<size_t>(width) + 2 * static_cast<size_t>(mx)) * 2 + 63) & ~static_cast<size_t>(63);
    const size_t planBytes = static_cast<size_t>(rows > 0 ? rows : 1) * sizeof(ConvRow);
    BYTE* scratch = static_cast<BYTE*>(LocalAlloc(LMEM_FIXED, accBytes + foldBytes + planBytes + 64));
    if (scratch == nullptr) {
        DebugError(u"   !DibConvolutionFilterThreshhold():LocalAlloc:rowbuffer:Error\r\n");
        DibUnload(copy);
        return DibErrorMemoryAlocation;
    }
    BYTE* aligned = reinterpret_cast<BYTE*>((reinterpret_cast<uintptr_t>(scratch) + 63) & ~static_cast<uintptr_t>(63));
    uint16_t* fold = reinterpret_cast<uint16_t*>(aligned + accBytes);
    ConvPlan plan;
    BuildPlan(plan, reinterpret_cast<ConvRow*>(aligned + accBytes + foldBytes), kernel, rows, cols, divisor,
              bias, threshold, width, mx);
    const ConvolveRowFn convolveRow = PickConvolveRow();
    // Output row y reads copy rows y .. y + rows - 1, the last of them
    // picture row y + rows - 1 - my; picture row y is overwritten after it.
    const LONG ahead = rows > 0 ? rows - 1 - my : 0;
    CopyFiller filler(hdib, copy);
    filler.Start();
    BYTE* const* copyRows = copy->ppRow;
    BYTE* const* outRows = hdib->ppRow;
    for (LONG y = 0; y < height; ++y) {
        filler.Through(y + ahead);
        if (plan.row3)
            plan.row3(copyRows[y], copyRows[y + 1], copyRows[y + 2], outRows[y], width, plan.n16);
        else
            convolveRow(plan, copyRows + y, outRows[y], aligned, fold);
    }
    LocalFree(scratch);
    DibUnload(copy);
    DebugTrace(DIB_LEVEL_OP, u"<DibConvolutionFilterThreshhold()=DibOk\r\n");
    return DibOk;
}

DWORD DibConvolutionFilter(HDIB hdib, const LONG* kernel, LONG rows, LONG cols, LONG divisor,
                           LONG bias) {
    DebugTrace(DIB_LEVEL_OP, u">DibConvolutionFilter()\r\n");
    const DWORD result = DibConvolutionFilterThreshhold(hdib, kernel, rows, cols, divisor, bias, 0);
    DebugTrace(DIB_LEVEL_OP, u"<DibConvolutionFilter()=%d\r\n", static_cast<int>(result));
    return result;
}

DWORD DibAverage(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u"<DibAverage(%lld)\r\n", TRACE_PTR(hdib));
    LONG kernel[9];
    for (LONG& k : kernel) k = 1;
    DebugTrace(DIB_LEVEL_OP, u">DibAverage()\r\n");
    const DWORD result = DibConvolutionFilter(hdib, kernel, 3, 3, 9, 0);
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibAverage()=DibOk\r\n");
    return DibOk;
}

DWORD DibSharpen(HDIB hdib, LONG level) {
    DebugTrace(DIB_LEVEL_OP, u"<DibSharpen(%lld, &d)\r\n", TRACE_PTR(hdib));
    if (level < DIB_SHARPEN_MIN || level > DIB_SHARPEN_MAX) return DibErrorInvalidParm;
    LONG kernel[9];
    for (LONG& k : kernel) k = -1;
    kernel[4] = level;
    DebugTrace(DIB_LEVEL_OP, u">DibSharpen()\r\n");
    const DWORD result = DibConvolutionFilter(hdib, kernel, 3, 3, level - 8, 0);
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibSharpen()=DibOk\r\n");
    return DibOk;
}

DWORD DibInfinityFilter(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u"<DibInfinityFilter(%lld, &d)\r\n", TRACE_PTR(hdib));
    // One quadrant with its centre row and column; the kernel is symmetric
    // about both axes.
    const LONG quadrant[5][5] = {
        {-1, -5, -19, -38, -48},
        {-5, -24, -35, -12, 10},
        {-19, -35, -3, 1, -25},
        {-38, -12, 1, 94, 239},
        {-48, 10, -25, 239, 419},
    };
    LONG kernel[81];
    for (int ky = 0; ky < 9; ++ky)
        for (int kx = 0; kx < 9; ++kx)
            kernel[ky * 9 + kx] = quadrant[ky < 5 ? ky : 8 - ky][kx < 5 ? kx : 8 - kx];
    const DWORD result = DibConvolutionFilter(hdib, kernel, 9, 9, 512, 0);
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibInfinityFilter()=DibOk\r\n");
    return DibOk;
}

DWORD DibThreshold(HDIB hdib, DWORD threshold) {
    DebugTrace(DIB_LEVEL_OP, u">DibThreshold(%lld,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(threshold));
    LONG kernel[25];
    for (int ky = 0; ky < 5; ++ky)
        for (int kx = 0; kx < 5; ++kx)
            kernel[ky * 5 + kx] = (ky == 0 || ky == 4 || kx == 0 || kx == 4) ? -1 : 0;
    kernel[12] = 16;
    const DWORD result =
        DibConvolutionFilterThreshhold(hdib, kernel, 5, 5, 1, 128, static_cast<LONG>(threshold));
    if (result != DibOk) return result;
    DebugTrace(DIB_LEVEL_OP, u"<DibThreshold()=DibOk\r\n");
    return DibOk;
}

}  // extern "C"
