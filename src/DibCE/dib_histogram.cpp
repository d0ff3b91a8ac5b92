/*
 * Histogram operations on 8-bit bitmaps: the histogram, the black and white
 * points found from it, and the contrast stretch in its two forms.
 *
 * The stretch computes the new value of each of the 256 levels once and
 * maps the rows through that table.
 *
 * The stretch by percentages needs of its histogram only what the two
 * search functions read: the running sums near the black and the white
 * point. It guesses both points from a sample of rows, counts exactly how
 * many pixels lie at or below the few levels each could be settled by
 * (vector shuffles, far cheaper than a full histogram), and, when those
 * counts settle both points, fills its private histogram with counters that have
 * exactly those running sums. The search functions then return the points
 * the full histogram would give. When the guesses miss, it counts in full.
 *
 * The counts and the map run through the rows in the order they lie in
 * memory, the last row of the table first: on a picture larger than the
 * cache that is about a quarter faster than the other way.
 */
#include <string.h>

#include "dibkernels.h"
#include "dibops.h"

namespace {

// Four tables, so that runs of equal bytes do not wait on each other's
// increments.
struct PartCounters {
    DWORD part[4][256];
};

void CountRow(PartCounters& c, const BYTE* row, size_t width) {
    size_t x = 0;
    for (; x + 8 <= width; x += 8) {
        uint64_t v;
        memcpy(&v, row + x, 8);
        ++c.part[0][v & 0xFF];
        ++c.part[1][(v >> 8) & 0xFF];
        ++c.part[2][(v >> 16) & 0xFF];
        ++c.part[3][(v >> 24) & 0xFF];
        ++c.part[0][(v >> 32) & 0xFF];
        ++c.part[1][(v >> 40) & 0xFF];
        ++c.part[2][(v >> 48) & 0xFF];
        ++c.part[3][v >> 56];
    }
    for (; x < width; ++x) ++c.part[0][row[x]];
}

// Counts every step-th row from `first`, the last first (see the top).
void CountRowsEvery(BYTE* const* rows, size_t first, size_t step, size_t height, size_t width, DWORD* counters) {
    PartCounters c;
    memset(&c, 0, sizeof c);
    for (size_t k = first < height ? (height - 1 - first) / step + 1 : 0; k-- > 0;) CountRow(c, rows[first + k * step], width);
    for (int v = 0; v < 256; ++v) counters[v] += c.part[0][v] + c.part[1][v] + c.part[2][v] + c.part[3][v];
}

/* ---- pixels at or below the levels of two windows -------------------------- */

void CountNearPortable(BYTE* const* rows, size_t height, size_t width, const BYTE* base, int per,
                       unsigned long long* counts) {
    for (int w = 0; w < 2; ++w)
        for (int j = 0; j < 4; ++j) {
            unsigned long long c = 0;
            for (size_t y = height; j < per && y-- > 0;)
                for (size_t x = 0; x < width; ++x) c += rows[y][x] <= base[w] + j;
            counts[4 * w + j] = c;
        }
}

#ifdef DIB_HAVE_X86_PATHS
// d = min(pixel - base, 4) (0 at or below the base) is at or below j exactly
// where the pixel is at or below base + j. A byte shuffle of d gives two such
// answers a byte, one a nibble ([d <= 0] + 16 [d <= 1], and [d <= 2] +
// 16 [d <= 3]); byte sums of those count up to 15 steps before each nibble
// is added into 64-bit sums. Both ways are the same code over a vector type.
#define HIST_NEAR_BODY                                                                                   \
    const T b0 = Set1(static_cast<char>(base[0])), b1 = Set1(static_cast<char>(base[1])), four = Set1(4), nibble = Set1(0x0F);    \
    const T lutLow = Lut(0x11, 0x10, 0, 0), lutHigh = Lut(0x11, 0x11, 0x11, 0x10);                      \
    T acc[4] = {Zero(), Zero(), Zero(), Zero()};                                                         \
    T sum[8] = {Zero(), Zero(), Zero(), Zero(), Zero(), Zero(), Zero(), Zero()};                         \
    size_t pending = 0;                                                                                  \
    for (size_t y = 0; y < height; ++y) {                                                                \
        const BYTE* row = rows[height - 1 - y];                                                          \
        for (size_t x = 0; x < full;) {                                                                  \
            const size_t steps = (full - x) / kStep < 15 - pending ? (full - x) / kStep : 15 - pending;  \
            for (const BYTE *p = row + x, *end = p + steps * kStep; p < end; p += kStep) {               \
                const T v = Load(p);                                                                     \
                const T d0 = MinU8(SubSatU8(v, b0), four), d1 = MinU8(SubSatU8(v, b1), four);            \
                acc[0] = AddU8(acc[0], Shuffle(lutLow, d0));                                             \
                acc[2] = AddU8(acc[2], Shuffle(lutLow, d1));                                             \
                if (Four) {                                                                              \
                    acc[1] = AddU8(acc[1], Shuffle(lutHigh, d0));                                        \
                    acc[3] = AddU8(acc[3], Shuffle(lutHigh, d1));                                        \
                }                                                                                        \
            }                                                                                            \
            x += steps * kStep;                                                                          \
            if ((pending += steps) == 15) {                                                              \
                FLUSH;                                                                                   \
                pending = 0;                                                                             \
            }                                                                                            \
        }                                                                                                \
        TAIL;                                                                                            \
    }                                                                                                    \
    FLUSH;                                                                                               \
    for (int i = 0; i < 8; ++i) counts[i] = Total(sum[i]) + extra[i];

#define HIST_NEAR_FLUSH                                                                                 \
    for (int i = 0; i < 4; ++i) {                                                                        \
        sum[2 * i] = Add64(sum[2 * i], Sad(And(acc[i], nibble)));                                        \
        sum[2 * i + 1] = Add64(sum[2 * i + 1], Sad(And(Shr16(acc[i], 4), nibble)));                      \
        acc[i] = Zero();                                                                                 \
    }

namespace near256 {
DIB_TARGET_BEGIN_AVX2
using T = __m256i;
constexpr size_t kStep = 32;
inline T Set1(char v) { return _mm256_set1_epi8(v); }
inline T Zero() { return _mm256_setzero_si256(); }
inline T Lut(char a, char b, char c, char d) {
    return _mm256_setr_epi8(a, b, c, d, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, a, b, c, d, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
}
inline T Load(const BYTE* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline T MinU8(T a, T b) { return _mm256_min_epu8(a, b); }
inline T SubSatU8(T a, T b) { return _mm256_subs_epu8(a, b); }
inline T AddU8(T a, T b) { return _mm256_add_epi8(a, b); }
inline T Shuffle(T lut, T i) { return _mm256_shuffle_epi8(lut, i); }
inline T And(T a, T b) { return _mm256_and_si256(a, b); }
inline T Shr16(T a, int n) { return _mm256_srli_epi16(a, n); }
inline T Sad(T a) { return _mm256_sad_epu8(a, _mm256_setzero_si256()); }
inline T Add64(T a, T b) { return _mm256_add_epi64(a, b); }
inline unsigned long long Total(T a) {
    unsigned long long lanes[4];
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(lanes), a);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3];
}
template <bool Four>
void CountNear(BYTE* const* rows, size_t height, size_t width, const BYTE* base, unsigned long long* counts) {
    const size_t full = width & ~(kStep - 1);
    unsigned long long extra[8] = {0};
#define FLUSH HIST_NEAR_FLUSH
#define TAIL                                                                     \
    for (size_t x = full; x < width; ++x)                                        \
        for (int i = 0; i < 8; ++i) extra[i] += i % 4 < (Four ? 4 : 2) && row[x] <= base[i / 4] + i % 4;
    HIST_NEAR_BODY
#undef TAIL
#undef FLUSH
}
DIB_TARGET_END
}  // namespace near256

namespace near512 {
DIB_TARGET_BEGIN_AVX512BW
using T = __m512i;
constexpr size_t kStep = 64;
inline T Set1(char v) { return _mm512_set1_epi8(v); }
inline T Zero() { return _mm512_setzero_si512(); }
inline T Lut(char a, char b, char c, char d) {
    // (the zeroing form: the plain one trips a false warning)
    return _mm512_maskz_broadcast_i32x4(0xFFFF, _mm_setr_epi8(a, b, c, d, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
}
inline T Load(const BYTE* p) { return _mm512_loadu_si512(p); }
inline T MinU8(T a, T b) { return _mm512_min_epu8(a, b); }
inline T SubSatU8(T a, T b) { return _mm512_subs_epu8(a, b); }
inline T AddU8(T a, T b) { return _mm512_add_epi8(a, b); }
inline T Shuffle(T lut, T i) { return _mm512_shuffle_epi8(lut, i); }
inline T And(T a, T b) { return _mm512_and_si512(a, b); }
inline T Shr16(T a, int n) { return _mm512_srli_epi16(a, n); }
inline T Sad(T a) { return _mm512_sad_epu8(a, _mm512_setzero_si512()); }
inline T Add64(T a, T b) { return _mm512_add_epi64(a, b); }
inline unsigned long long Total(T a) {
    unsigned long long lanes[8];
    _mm512_storeu_si512(lanes, a);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3] + lanes[4] + lanes[5] + lanes[6] + lanes[7];
}
template <bool Four>
void CountNear(BYTE* const* rows, size_t height, size_t width, const BYTE* base, unsigned long long* counts) {
    const size_t full = width & ~(kStep - 1);
    // The last, partial step of a row loads and adds only the row's bytes.
    const __mmask64 in = width > full ? (static_cast<__mmask64>(1) << (width - full)) - 1 : 0;
    const unsigned long long extra[8] = {0};
#define FLUSH HIST_NEAR_FLUSH
#define TAIL                                                                                  \
    if (in) {                                                                                 \
        const T v = _mm512_maskz_loadu_epi8(in, row + full);                                  \
        const T d0 = MinU8(SubSatU8(v, b0), four), d1 = MinU8(SubSatU8(v, b1), four);         \
        acc[0] = _mm512_mask_add_epi8(acc[0], in, acc[0], Shuffle(lutLow, d0));               \
        acc[2] = _mm512_mask_add_epi8(acc[2], in, acc[2], Shuffle(lutLow, d1));               \
        if (Four) {                                                                           \
            acc[1] = _mm512_mask_add_epi8(acc[1], in, acc[1], Shuffle(lutHigh, d0));          \
            acc[3] = _mm512_mask_add_epi8(acc[3], in, acc[3], Shuffle(lutHigh, d1));          \
        }                                                                                     \
        if (++pending == 15) {                                                                \
            FLUSH;                                                                            \
            pending = 0;                                                                      \
        }                                                                                     \
    }
    HIST_NEAR_BODY
#undef TAIL
#undef FLUSH
}
DIB_TARGET_END
}  // namespace near512
#undef HIST_NEAR_FLUSH
#undef HIST_NEAR_BODY
#endif

/* ---- the black and white points without a full histogram ------------------ */

// Cut-offs and levels as the search functions see them.
struct Points {
    int64_t black; // cut-off from the dark end
    int64_t white; // from the light end
};

// atMost[v] for the levels counted (-1 where unknown); total = pixels.
// Whether the known sums settle the black point: a level v whose sum
// exceeds the cut-off while the sum at v - 1 does not (nothing lies below
// 0), or a sum at 254 that does not.
bool BlackSettled(const int64_t* atMost, int64_t cut) {
    if (atMost[254] >= 0 && atMost[254] <= cut) return true;
    for (int v = 0; v < 255; ++v)
        if (atMost[v] > cut && (v == 0 || (atMost[v - 1] >= 0 && atMost[v - 1] <= cut))) return true;
    return false;
}
// From the light end the running sum at v is total - atMost[v - 1].
bool WhiteSettled(const int64_t* atMost, int64_t total, int64_t cut) {
    if (atMost[0] >= 0 && total - atMost[0] <= cut) return true;
    for (int v = 1; v < 256; ++v) {
        const bool above = atMost[v - 1] >= 0 && total - atMost[v - 1] > cut;
        if (above && (v == 255 || (atMost[v] >= 0 && total - atMost[v] <= cut))) return true;
    }
    return false;
}

void CountNear(BYTE* const* rows, size_t height, size_t width, const BYTE* base, int per,
               unsigned long long* counts) {
#ifdef DIB_HAVE_X86_PATHS
    if (DibCpuHas(DIB_CPU_AVX512))
        return per == 4 ? near512::CountNear<true>(rows, height, width, base, counts)
                        : near512::CountNear<false>(rows, height, width, base, counts);
    if (DibCpuHas(DIB_CPU_AVX2))
        return per == 4 ? near256::CountNear<true>(rows, height, width, base, counts)
                        : near256::CountNear<false>(rows, height, width, base, counts);
#endif
    CountNearPortable(rows, height, width, base, per, counts);
}

// The levels whose running sums can settle a point, from a sample: every
// level v - 1 and v for each point v the sample cannot rule out, the sums
// known to within three standard deviations. above: the white point, whose
// sums run from 255 down.
struct Window {
    int first;
    int count;
};
Window Candidates(const DWORD* sample, int64_t sampled, int64_t total, int64_t cut, bool above) {
    int64_t atMost[256];
    int64_t sum = 0;
    for (int v = 0; v < 256; ++v) atMost[v] = sum += sample[v];
    const double scale = static_cast<double>(total) / static_cast<double>(sampled), c = static_cast<double>(cut), t = static_cast<double>(total);
    // The true sum at v, scaled from the sample, give or take `spread`.
    auto sumAt = [&](int v, double spread) {
        const int64_t k = atMost[v] < sampled - atMost[v] ? atMost[v] : sampled - atMost[v];
        return (static_cast<double>(atMost[v]) + spread * 3.0 * __builtin_sqrt(static_cast<double>(k) + 1.0)) * scale + spread;
    };
    // Black v: the sum at v - 1 can be at most c and the sum at v above it.
    // White v: the pixels above v - 1 can be more than c, those above v at
    // most c. Each condition holds on one side of a level, so a binary
    // search finds the range of points the sample cannot rule out.
    auto lowerOk = [&](int v) {
        return above ? v == 255 || t - sumAt(v, 1.0) <= c : v == 255 || sumAt(v, 1.0) > c;
    };
    auto upperOk = [&](int v) {
        return above ? v == 0 || t - sumAt(v - 1, -1.0) > c : v == 0 || sumAt(v - 1, -1.0) <= c;
    };
    int from = 0, to = 255;
    for (int lo = 0, hi = 255; lo <= hi;) { // the first v that lowerOk holds for
        const int mid = (lo + hi) / 2;
        if (lowerOk(mid)) from = mid, hi = mid - 1;
        else lo = mid + 1;
    }
    for (int lo = 0, hi = 255; lo <= hi;) { // the last v that upperOk holds for
        const int mid = (lo + hi) / 2;
        if (upperOk(mid)) to = mid, lo = mid + 1;
        else hi = mid - 1;
    }
    if (to < from) to = from;
    Window w;
    w.first = from - 1 < 0 ? 0 : from - 1;
    const int last = to > 254 ? 254 : to;
    w.count = last - w.first + 1;
    if (w.count > 4) { // too wide to count at once: the middle, and the full count if it misses
        w.first = (w.first + last) / 2 - 1;
        w.count = 4;
    }
    if (w.count < 1) w.count = 1;
    return w;
}

// Fills counters (zeroed) so that the search functions find in it, with
// these cut-offs, the points of the picture's full histogram. A counter
// holds the pixels between its level and the next lower level counted, so
// the running sums at the counted levels are the true ones.
void FillForPoints(BYTE* const* rows, size_t height, size_t width, DWORD* counters, Points cut) {
    const uint64_t total = static_cast<uint64_t>(height) * width;
    // Small pictures, pictures whose counters would wrap, and processors
    // without vector compares: the full histogram.
    if (total < 16384 || total > 0xFFFFFFFFull || !DibCpuHas(DIB_CPU_AVX2)) {
        DibCountRows8(rows, height, width, counters);
        return;
    }
    // A sample of about one row in 32, at most some 64K pixels.
    size_t step = 32;
    while (step < height && (height / step) * width > 65536) step *= 2;
    if (step > height) step = height;
    DWORD sample[256] = {0};
    CountRowsEvery(rows, step / 2, step, height, width, sample);
    int64_t sampled = 0;
    for (DWORD c : sample) sampled += c;
    const Window window[2] = {Candidates(sample, sampled, static_cast<int64_t>(total), cut.black, false),
                              Candidates(sample, sampled, static_cast<int64_t>(total), cut.white, true)};
    const BYTE base[2] = {static_cast<BYTE>(window[0].first), static_cast<BYTE>(window[1].first)};
    const int per = window[0].count <= 2 && window[1].count <= 2 ? 2 : 4;
    unsigned long long counts[8];
    CountNear(rows, height, width, base, per, counts);
    int64_t atMost[256];
    for (int64_t& a : atMost) a = -1;
    atMost[255] = static_cast<int64_t>(total);
    for (int w = 0; w < 2; ++w)
        for (int j = 0; j < per && base[w] + j < 255; ++j) atMost[base[w] + j] = static_cast<int64_t>(counts[4 * w + j]);
    if (!BlackSettled(atMost, cut.black) || !WhiteSettled(atMost, static_cast<int64_t>(total), cut.white)) {
        DibCountRows8(rows, height, width, counters);
        return;
    }
    int64_t below = 0;
    for (int v = 0; v < 256; ++v) {
        if (atMost[v] < 0) continue;
        counters[v] = static_cast<DWORD>(atMost[v] - below);
        below = atMost[v];
    }
}

// DibHistogram's checks and traces around a way of filling the counters.
template <class Fill>
DWORD HistogramFrame(HDIB hdib, DWORD* counters, Fill fill) {
    DebugTrace(DIB_LEVEL_OP, u"<DibHistogram(%lld,%lld)\r\n", TRACE_PTR(hdib), TRACE_PTR(counters));
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    if (!counters) return DibErrorInvalidParm;
    // A row of another depth holds fewer bytes than pixels.
    if (DibBitCount(hdib) != 8) return DibErrorInvalidDIB;
    const LONG width = DibWidth(hdib), height = DibHeight(hdib);
    if (width > 0 && height > 0) {
        if (!hdib->ppRow) return DibErrorInvalidDIB;
        fill(hdib->ppRow, static_cast<size_t>(height), static_cast<size_t>(width), counters);
    }
    DebugTrace(DIB_LEVEL_OP, u">DibHistogram()=DibOk\r\n");
    return DibOk;
}

}  // namespace

extern "C" void DibCountRows8(BYTE* const* rows, size_t height, size_t width, DWORD* counters) {
    CountRowsEvery(rows, 0, 1, height, width, counters);
}

extern "C" void DibCountNear8(BYTE* const* rows, size_t height, size_t width, const BYTE* base, int per,
                              unsigned long long* counts) {
    if (per == 2 || per == 4) CountNear(rows, height, width, base, per, counts);
}

extern "C" DWORD DibHistogram(HDIB hdib, DWORD* counters) {
    return HistogramFrame(hdib, counters, DibCountRows8);
}

extern "C" DWORD DibHistogramBlackValue(const DWORD* counters, LONG count) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramBlackValue(%lld,%d)\r\n", TRACE_PTR(counters), count);
    DWORD level = 255; // the counter of 255 is never read
    int64_t sum = 0;
    for (DWORD v = 0; counters && v < 255; ++v) {
        sum += counters[v];
        if (sum > count) {
            level = v;
            break;
        }
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<DibHistogramBlackValue()=%d\r\n", static_cast<int>(level));
    return level;
}

extern "C" DWORD DibHistogramWhiteValue(const DWORD* counters, LONG count) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramWhiteValue(%lld,%d)\r\n", TRACE_PTR(counters), count);
    DWORD level = 0; // the counter of 0 is never read
    int64_t sum = 0;
    for (DWORD v = 255; counters && v > 0; --v) {
        sum += counters[v];
        if (sum > count) {
            level = v;
            break;
        }
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<DibHistogramWhiteValue()=%d\r\n", static_cast<int>(level));
    return level;
}

namespace {

// A cut-off as the search functions' signed count.
LONG CutOff(double pixels) {
    if (pixels >= 2147483647.0) return 0x7FFFFFFF;
    return static_cast<LONG>(pixels);
}

// The new value of each level between the black and the white point. The two
// quotients are truncated separately, as the filter has always done.
void StretchTable(DWORD black, DWORD white, BYTE* table) {
    const DWORD range = white - black; // unsigned: crossed points give a huge range
    if (range == 0) {
        for (DWORD v = 0; v < 256; ++v) table[v] = v > black ? 255 : v < black ? 0 : static_cast<BYTE>(v);
        return;
    }
    const DWORD base = (black * 255) / range;
    for (DWORD v = 0; v < 256; ++v) {
        LONG value = static_cast<LONG>((v * 255) / range) - static_cast<LONG>(base);
        table[v] = value > 255 ? 255 : value < 0 ? 0 : static_cast<BYTE>(value);
    }
}

// Both forms after their argument checks. fixed: the form without
// arguments, which cuts off DIB_STRETCH_DEFAULT_PERCENT at each end.
DWORD Stretch(HDIB hdib, LONG low, LONG high, DWORD mode, bool fixed) {
    if (DibIsValid(hdib) == DibErrorInvalidDIB || DibBitCount(hdib) != 8) return DibErrorInvalidDIB;
    const LONG width = DibWidth(hdib), height = DibHeight(hdib);
    if (width > 0 && height > 0 && !hdib->ppRow) return DibErrorInvalidDIB;
    DWORD* histogram = static_cast<DWORD*>(LocalAlloc(LPTR, DIB_HISTOGRAM_LEVELS * sizeof(DWORD)));
    if (!histogram) return DibErrorMemoryAlocation;

    DWORD black = static_cast<DWORD>(low), white = static_cast<DWORD>(high);
    if (mode == 1) {
        const double pixels = static_cast<double>(static_cast<DWORD>(width) * static_cast<DWORD>(height));
        const LONG cutBlack = fixed ? CutOff(pixels * 0.02) : CutOff(static_cast<double>(low) * 0.01 * pixels);
        const LONG cutWhite = fixed ? cutBlack : CutOff(static_cast<double>(high) * 0.01 * pixels);
        // Filled only as far as the two searches read it (see the top).
        HistogramFrame(hdib, histogram, [cutBlack, cutWhite](BYTE* const* rows, size_t h, size_t w, DWORD* c) {
            FillForPoints(rows, h, w, c, Points{cutBlack, cutWhite});
        });
        black = DibHistogramBlackValue(histogram, cutBlack);
        white = DibHistogramWhiteValue(histogram, cutWhite);
    }
    BYTE table[256];
    StretchTable(black, white, table);
    if (width > 0 && height > 0)
        DibStretchRows8(table, black, white, hdib->ppRow, static_cast<size_t>(height), static_cast<size_t>(width));
    LocalFree(histogram);
    if (white == black) DebugTrace(DIB_LEVEL_FRAME, u"   !range==0\r\n");
    DebugTrace(DIB_LEVEL_FRAME, u"<DibHistogramStretch()=DibOk\r\n");
    return DibOk;
}

}  // namespace

extern "C" DWORD DibHistogramStretchEx(HDIB hdib, LONG low, LONG high, DWORD mode) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramStretch(%lld,%d,%d,%d)\r\n", TRACE_PTR(hdib), low, high,
               static_cast<int>(mode));
    // The arguments come before the handle.
    if (mode > TOV_STRETCH_MODE_MAX || low < 0 || high < 0 || high < low) return DibErrorInvalidParm;
    if (high > (mode == 0 ? DIB_STRETCH_LEVEL_MAX : DIB_STRETCH_PERCENT_MAX)) return DibErrorInvalidParm;
    return Stretch(hdib, low, high, mode, false);
}

extern "C" DWORD DibHistogramStretch(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibHistogramStretch(%lld,%d,%d,%d)\r\n", TRACE_PTR(hdib),
               DIB_STRETCH_DEFAULT_PERCENT, DIB_STRETCH_DEFAULT_PERCENT, 1);
    return Stretch(hdib, DIB_STRETCH_DEFAULT_PERCENT, DIB_STRETCH_DEFAULT_PERCENT, 1, true);
}
