/*
 * Point operations: brightness, contrast, inversion, gamma correction.
 *
 * Each builds the new value of every possible old value once per call and
 * then maps the rows through that table. At 1 and 4 bits whole bytes are
 * mapped at once; only a table whose values do not fit the pixel (a colour
 * count above the depth's) goes pixel by pixel through the bitmap's own
 * write routine, whose overflow into neighbouring pixels is then part of
 * the result.
 */
#include <math.h>
#include <string.h>

#include <atomic>

#include "dibkernels.h"
#include "dibops.h"

/* ---- the 8-bit table kernel ------------------------------------------------ */

// Every way maps the rows in the order they lie in memory, the last row of
// the table (the bottom row) first: on a picture larger than the cache that
// is about a quarter faster than from the top.

namespace {

void TableRowPortable(const BYTE* table, BYTE* row, size_t n) {
    size_t i = 0;
    // Eight pixels a load and a store: the lookups are independent.
    for (; i + 8 <= n; i += 8) {
        uint64_t v;
        memcpy(&v, row + i, 8);
        uint64_t r = 0;
        for (int k = 0; k < 8; ++k) r |= static_cast<uint64_t>(table[(v >> (8 * k)) & 0xFF]) << (8 * k);
        memcpy(row + i, &r, 8);
    }
    for (; i < n; ++i) row[i] = table[row[i]];
}

#ifdef DIB_HAVE_X86_PATHS
// Sixteen shuffles of 16 entries each, indexed by the pixel's low four
// bits, then a tree of blends picks among them by bits 4, 5, 6 and 7 (a
// blend reads the top bit of each byte, so the pixel shifted left by 3, 2,
// 1 and 0 places brings each bit there). The table is loaded once for all
// rows.
__attribute__((target("avx2")))
void TableRowsAvx2(const BYTE* table, BYTE* const* rows, size_t height, size_t n) {
    __m256i slice[16];
    for (int k = 0; k < 16; ++k)
        slice[k] = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16 * k)));
    const __m256i lowBits = _mm256_set1_epi8(0x0F);
    for (size_t y = height; y-- > 0;) {
        BYTE* row = rows[y];
        size_t i = 0;
        for (; i + 32 <= n; i += 32) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + i));
            const __m256i low = _mm256_and_si256(v, lowBits);
            __m256i r[16];
            for (int k = 0; k < 16; ++k) r[k] = _mm256_shuffle_epi8(slice[k], low);
            for (int bit = 4, count = 16; bit < 8; ++bit, count /= 2) {
                const __m256i pick = _mm256_slli_epi16(v, 7 - bit);
                for (int k = 0; k < count / 2; ++k) r[k] = _mm256_blendv_epi8(r[2 * k], r[2 * k + 1], pick);
            }
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(row + i), r[0]);
        }
        TableRowPortable(table, row + i, n - i);
    }
}

// Two 128-entry byte permutes cover the table; bit 7 of the pixel picks one.
__attribute__((target("avx512f,avx512bw,avx512vbmi")))
void TableRowsVbmi(const BYTE* table, BYTE* const* rows, size_t height, size_t n) {
    const __m512i t0 = _mm512_loadu_si512(table);
    const __m512i t1 = _mm512_loadu_si512(table + 64);
    const __m512i t2 = _mm512_loadu_si512(table + 128);
    const __m512i t3 = _mm512_loadu_si512(table + 192);
    const __mmask64 tail = n % 64 ? (static_cast<__mmask64>(1) << (n % 64)) - 1 : 0;
    for (size_t y = height; y-- > 0;) {
        BYTE* row = rows[y];
        size_t i = 0;
        for (; i + 64 <= n; i += 64) {
            __m512i v = _mm512_loadu_si512(row + i);
            __m512i low = _mm512_permutex2var_epi8(t0, v, t1);
            __m512i high = _mm512_permutex2var_epi8(t2, v, t3);
            _mm512_storeu_si512(row + i, _mm512_mask_blend_epi8(_mm512_movepi8_mask(v), low, high));
        }
        if (tail) {
            __m512i v = _mm512_maskz_loadu_epi8(tail, row + i);
            __m512i low = _mm512_permutex2var_epi8(t0, v, t1);
            __m512i high = _mm512_permutex2var_epi8(t2, v, t3);
            _mm512_mask_storeu_epi8(row + i, tail, _mm512_mask_blend_epi8(_mm512_movepi8_mask(v), low, high));
        }
    }
}
#endif

void TableRowsPortable(const BYTE* table, BYTE* const* rows, size_t height, size_t n) {
    for (size_t y = height; y-- > 0;) TableRowPortable(table, rows[y], n);
}

bool HaveWay(int way) {
    switch (way) {
    case DIB_TABLE_PORTABLE: return true;
#ifdef DIB_HAVE_X86_PATHS
    case DIB_TABLE_AVX2: return DibCpuHas(DIB_CPU_AVX2);
    case DIB_TABLE_VBMI: return DibCpuHas(DIB_CPU_AVX512);
#endif
    default: return false;
    }
}

// The way DibTableRow8 takes on this processor.
typedef void (*TableRowsFn)(const BYTE* table, BYTE* const* rows, size_t height, size_t n);
TableRowsFn WayFn(int way) {
    switch (way) {
#ifdef DIB_HAVE_X86_PATHS
    case DIB_TABLE_AVX2: return TableRowsAvx2;
    case DIB_TABLE_VBMI: return TableRowsVbmi;
#endif
    default: return TableRowsPortable;
    }
}
TableRowsFn BestWay() {
    for (int way = DIB_TABLE_WAYS - 1; way > DIB_TABLE_PORTABLE; --way)
        if (HaveWay(way)) return WayFn(way);
    return TableRowsPortable;
}

}  // namespace

extern "C" BOOL DibTableRow8With(int way, const BYTE* table, BYTE* row, size_t n) {
    if (!HaveWay(way)) return FALSE;
    WayFn(way)(table, &row, 1, n);
    return TRUE;
}

extern "C" void DibTableRow8(const BYTE* table, BYTE* row, size_t n) { BestWay()(table, &row, 1, n); }

extern "C" void DibTableRows8(const BYTE* table, BYTE* const* rows, size_t height, size_t n) {
    BestWay()(table, rows, height, n);
}

/* ---- the stretch's table by arithmetic ---------------------------------- */

namespace {

// floor(255 v / d) for every byte v in one multiply a lane: the high half of
// (256 v + offset) * magic, shifted right by `shift`. The unpack that widens
// the pixels puts them in the high byte and the offset in the low one, so the
// offset costs nothing.
struct Reciprocal {
    uint16_t magic;
    uint8_t offset;
    uint8_t shift;
};

DWORD QuotientOf(DWORD v, const Reciprocal& r) { return ((256 * v + r.offset) * r.magic) >> (16 + r.shift); }

// The largest shift whose least sufficient multiplier fits 16 bits, the
// smallest offset, each candidate checked on all 256 values; every range
// from 2 to 255 has one with offset 0 or 1.
bool SearchReciprocal(DWORD d, Reciprocal* r) {
    for (int shift = 8; shift >= 0; --shift) {
        for (DWORD offset = 0; offset < 4; ++offset) {
            uint64_t magic = 0;
            for (DWORD v = 1; v < 256; ++v) {
                const uint64_t x = 256 * v + offset, need = static_cast<uint64_t>(255 * v / d) << (16 + shift);
                if ((need + x - 1) / x > magic) magic = (need + x - 1) / x;
            }
            if (magic > 0xFFFF) break;
            *r = Reciprocal{static_cast<uint16_t>(magic), static_cast<uint8_t>(offset), static_cast<uint8_t>(shift)};
            bool exact = true;
            for (DWORD v = 0; v < 256 && exact; ++v) exact = QuotientOf(v, *r) == 255 * v / d;
            if (exact) return true;
        }
    }
    return false;
}

// The search costs some microseconds, so each range's answer is kept:
// magic, offset << 16, shift << 24, and kFound.
constexpr uint32_t kFound = 1u << 31, kNone = 1u << 30;
std::atomic<uint32_t> g_reciprocals[256];

bool MakeReciprocal(DWORD d, Reciprocal* r) {
    if (d < 2 || d > 255) return false;  // 255 v / 1 does not fit a signed lane
    uint32_t kept = g_reciprocals[d].load(std::memory_order_relaxed);
    if (!kept) {
        kept = SearchReciprocal(d, r) ? kFound | r->magic | static_cast<uint32_t>(r->offset) << 16 |
                                            static_cast<uint32_t>(r->shift) << 24
                                      : kNone;
        g_reciprocals[d].store(kept, std::memory_order_relaxed);
    }
    if (!(kept & kFound)) return false;
    *r = Reciprocal{static_cast<uint16_t>(kept), static_cast<uint8_t>(kept >> 16), static_cast<uint8_t>((kept >> 24) & 0xF)};
    return true;
}

// One lane as the vector code computes it: the quotient less the base, saturated to a byte.
BYTE QuotientLane(DWORD v, const Reciprocal& r, DWORD base) {
    const int32_t q = static_cast<int32_t>(QuotientOf(v, r)) - static_cast<int32_t>(base);
    return static_cast<BYTE>(q < 0 ? 0 : q > 255 ? 255 : q);
}

#ifdef DIB_HAVE_X86_PATHS
// Sixteen 16-bit lanes a half, packed back with saturation: a quarter of the
// instructions of the sixteen-shuffle lookup.
__attribute__((target("avx2")))
void QuotientRowsAvx2(const BYTE* table, const Reciprocal& r, DWORD base, BYTE* const* rows, size_t height, size_t n) {
    const __m256i offset = _mm256_set1_epi8(static_cast<char>(r.offset)), magic = _mm256_set1_epi16(static_cast<short>(r.magic));
    const __m256i b = _mm256_set1_epi16(static_cast<short>(base));
    const __m128i shift = _mm_cvtsi32_si128(r.shift);
    for (size_t y = height; y-- > 0;) {
        BYTE* row = rows[y];
        size_t i = 0;
        for (; i + 32 <= n; i += 32) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + i));
            const __m256i lo = _mm256_srl_epi16(_mm256_mulhi_epu16(_mm256_unpacklo_epi8(offset, v), magic), shift);
            const __m256i hi = _mm256_srl_epi16(_mm256_mulhi_epu16(_mm256_unpackhi_epi8(offset, v), magic), shift);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(row + i),
                                _mm256_packus_epi16(_mm256_sub_epi16(lo, b), _mm256_sub_epi16(hi, b)));
        }
        TableRowPortable(table, row + i, n - i);
    }
}
#endif

}  // namespace

extern "C" void DibStretchRows8(const BYTE* table, DWORD black, DWORD white, BYTE* const* rows, size_t height,
                                size_t n) {
#ifdef DIB_HAVE_X86_PATHS
    Reciprocal r;
    const DWORD range = white - black;
    if (!DibCpuHas(DIB_CPU_AVX512) && DibCpuHas(DIB_CPU_AVX2) && MakeReciprocal(range, &r)) {
        const DWORD base = black * 255 / range;
        bool same = true;  // the arithmetic is only taken where it gives the table
        for (DWORD v = 0; v < 256; ++v) same &= QuotientLane(v, r, base) == table[v];
        if (same) {
            QuotientRowsAvx2(table, r, base, rows, height, n);
            return;
        }
    }
#else
    (void)black;
    (void)white;
#endif
    DibTableRows8(table, rows, height, n);
}

/* ---- mapping a bitmap through a table of new values ---------------------- */

namespace {

// The new value of each old value, as the write routine would receive it.
struct PointTable {
    DWORD value[256];
};

struct Picture {
    BYTE** rows;
    LONG width;
    LONG height;
    DWORD bitcount;
    DWORD colors;
};

// Reads what the operations need once; 5 when the record has no rows to
// work on, which only a failed re-creation leaves behind.
DWORD ReadPicture(HDIB hdib, DWORD bitcount, Picture* pic) {
    pic->rows = hdib->ppRow;
    pic->width = DibWidth(hdib);
    pic->height = DibHeight(hdib);
    pic->bitcount = bitcount;
    pic->colors = DibNumColors(hdib);
    if (pic->width > 0 && pic->height > 0 && (!pic->rows || !hdib->pBits)) {
        DebugError(u"   !ppRow == NULL:Error\r\n");
        return DibErrorInvalidDIB;
    }
    return DibOk;
}

void MapPixelByPixel(HDIB hdib, const Picture& pic, const PointTable& t, const DibPixelIO& io) {
    for (LONG y = 0; y < pic.height; ++y)
        for (LONG x = 0; x < pic.width; ++x) io.set(hdib, x, y, t.value[io.get(hdib, x, y)]);
}

// Maps every pixel; padding bits and bytes at the row ends stay.
void MapPixels(HDIB hdib, const Picture& pic, const PointTable& t, const DibPixelIO& io) {
    if (pic.width <= 0 || pic.height <= 0) return;
    const DWORD levels = 1u << pic.bitcount;
    BYTE bytes[256];
    if (pic.bitcount == 8) {
        for (int v = 0; v < 256; ++v) bytes[v] = static_cast<BYTE>(t.value[v]);
    } else {
        for (DWORD v = 0; v < levels; ++v) {
            if (t.value[v] >= levels) {
                MapPixelByPixel(hdib, pic, t, io);
                return;
            }
        }
        // A table of whole bytes: two pixels or eight at once.
        const int per = 8 / static_cast<int>(pic.bitcount);
        for (int b = 0; b < 256; ++b) {
            DWORD r = 0;
            for (int k = 0; k < per; ++k) {
                int shift = k * static_cast<int>(pic.bitcount);
                r |= t.value[(b >> shift) & (levels - 1)] << shift;
            }
            bytes[b] = static_cast<BYTE>(r);
        }
    }
    const size_t width = static_cast<size_t>(pic.width);
    const size_t full = width * pic.bitcount / 8;
    const DWORD rest = static_cast<DWORD>(width * pic.bitcount % 8); // bits of a last, partial byte
    const BYTE restMask = static_cast<BYTE>(0xFF00u >> rest);        // its leftmost pixels
    DibTableRows8(bytes, pic.rows, static_cast<size_t>(pic.height), full);
    for (LONG y = 0; rest && y < pic.height; ++y) {
        BYTE* row = pic.rows[y];
        row[full] = static_cast<BYTE>((row[full] & ~restMask) | (bytes[row[full]] & restMask));
    }
}

// Entry checks of the three operations that use pixel access.
DWORD StartPixelOperation(HDIB hdib, DibPixelIO* io, Picture* pic) {
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    DWORD bitcount = DibBitCount(hdib);
    if (DibRegisterPixelIO(bitcount, io) != DibOk) return DibErrorInvalidDIB;
    return ReadPicture(hdib, bitcount, pic);
}

DWORD Clamp(int64_t value, DWORD colors) {
    if (value >= static_cast<int64_t>(colors)) value = static_cast<int64_t>(colors) - 1;
    if (value < 0) value = 0;
    return static_cast<DWORD>(value);
}

// The 16.16 gain of a contrast, in single precision as the filter has always
// computed it: 1/255 as the float 0x3B808081, each product rounded to float.
LONG ContrastGain(LONG contrast) {
    float scaled = static_cast<float>(static_cast<int64_t>(contrast) + 255) * 0.003921569f;
    float gain = scaled * 65536.0f;
    if (gain >= 2147483648.0f) return 0x7FFFFFFF;
    if (gain < -2147483648.0f) return static_cast<LONG>(0x80000000);
    return static_cast<LONG>(gain);
}

}  // namespace

/* ---- the operations ---------------------------------------------------------- */

extern "C" DWORD DibBrightness(HDIB hdib, LONG brightness) {
    DebugTrace(DIB_LEVEL_OP, u">DibBrightness(%lld,%d)\r\n", TRACE_PTR(hdib), brightness);
    DibPixelIO io;
    Picture pic;
    DWORD result = StartPixelOperation(hdib, &io, &pic);
    if (result != DibOk) return result;
    PointTable t;
    for (DWORD v = 0; v < 256; ++v) t.value[v] = Clamp(static_cast<int64_t>(v) + brightness, pic.colors);
    MapPixels(hdib, pic, t, io);
    DebugTrace(DIB_LEVEL_OP, u"<DibBrightness()=DibOk\r\n");
    return DibOk;
}

extern "C" DWORD DibContrast(HDIB hdib, LONG contrast, LONG offset) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibContrast(%lld,%d)\r\n", TRACE_PTR(hdib), contrast);
    DibPixelIO io;
    Picture pic;
    DWORD result = StartPixelOperation(hdib, &io, &pic);
    if (result != DibOk) return result;
    const LONG contrastadj = ContrastGain(contrast);
    DebugTrace(DIB_LEVEL_OP, u">DibContrast():contrastadj=%d\r\n", contrastadj);
    PointTable t;
    for (DWORD v = 0; v < 256; ++v) {
        // The shift drops the fraction: it rounds down, also below zero.
        int64_t scaled = (static_cast<int64_t>(v) * contrastadj) >> 16;
        t.value[v] = Clamp(static_cast<int64_t>(offset) + scaled, pic.colors);
    }
    MapPixels(hdib, pic, t, io);
    DebugTrace(DIB_LEVEL_FRAME, u"<DibContrast()=DibOk\r\n");
    return DibOk;
}

extern "C" DWORD DibInvert(HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibInvert(%lld)\r\n", TRACE_PTR(hdib));
    DibPixelIO io;
    Picture pic;
    DWORD result = StartPixelOperation(hdib, &io, &pic);
    if (result != DibOk) return result;
    PointTable t;
    // Unsigned on purpose: a pixel beyond a short colour table wraps round.
    for (DWORD v = 0; v < 256; ++v) t.value[v] = pic.colors - v - 1;
    MapPixels(hdib, pic, t, io);
    DebugTrace(DIB_LEVEL_OP, u"<DibInvert()=DibOk\r\n");
    return DibOk;
}

extern "C" DWORD DibGammaCorrection(HDIB hdib, double gamma) {
    DebugTrace(DIB_LEVEL_OP, u">DibGammaCorrection(%lld,%.2f)\r\n", TRACE_PTR(hdib), gamma);
    if (DibIsValid(hdib) == DibErrorInvalidDIB) return DibErrorInvalidDIB;
    const DWORD bitcount = DibBitCount(hdib);
    if (bitcount != 8) {
        // One byte is one pixel only at 8 bits.
        DebugError(u"   !DibGammaCorrection():DibBitCount=%d:Error\r\n", static_cast<int>(bitcount));
        return DibErrorInvalidDIB;
    }
    Picture pic;
    DWORD result = ReadPicture(hdib, bitcount, &pic);
    if (result != DibOk) return result;
    BYTE table[256];
    if (gamma == 1.0) {
        for (int x = 0; x < 256; ++x) table[x] = static_cast<BYTE>(x);
    } else {
        table[0] = 0;
        const double k = pow(255.0, 1.0 - gamma);
        for (int x = 1; x < 256; ++x) {
            double v = pow(static_cast<double>(x), gamma) * k + 0.5;
            table[x] = (v <= 255.0) ? static_cast<BYTE>(static_cast<DWORD>(v)) : 255; // also catches NaN
        }
    }
    if (pic.width > 0) DibTableRows8(table, pic.rows, static_cast<size_t>(pic.height), static_cast<size_t>(pic.width));
    DebugTrace(DIB_LEVEL_OP, u"<DibGammaCorrection()=DibOk\r\n");
    return DibOk;
}
