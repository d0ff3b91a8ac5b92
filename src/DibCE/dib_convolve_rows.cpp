// The 16-bit row kernels of the convolution engine for AVX2 and AVX-512 BW
// (dibconv.h). The kernels are written once (dib_convolve_rows.inc) and
// compiled for each instruction set inside its own target region; the
// picker hands out the widest one DibCpuHas allows.
#include "dibconv.h"
#include "dibkernels.h"

#ifdef DIB_HAVE_X86_PATHS

DIB_TARGET_BEGIN_AVX2
namespace conv256 {

struct V {
    using T = __m256i;
    static constexpr LONG N = 16;
    static T Load(const BYTE* p) { return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); }
    static T LoadSums(const int16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static T Set(int16_t v) { return _mm256_set1_epi16(v); }
    static T Add(T a, T b) { return _mm256_add_epi16(a, b); }
    static T Sub(T a, T b) { return _mm256_sub_epi16(a, b); }
    static T Xor(T a, T b) { return _mm256_xor_si256(a, b); }
    static T Mul(T a, T b) { return _mm256_mullo_epi16(a, b); }
    static T Abs(T a) { return _mm256_abs_epi16(a); }
    static T MulHi(T a, T m) { return _mm256_mulhi_epu16(a, m); }
    static T Shr(T a, __m128i c) { return _mm256_srl_epi16(a, c); }
    static T SignOf(T q, T s) { return _mm256_sign_epi16(q, s); }
    static T AddSat(T a, T b) { return _mm256_adds_epi16(a, b); }
    // packus/packs interleave the 128-bit halves; 0xD8 puts them in order.
    static void StoreClamp(T lo, T hi, BYTE* out) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_permute4x64_epi64(_mm256_packus_epi16(lo, hi), 0xD8));
    }
    static void StoreAbove(T lo, T hi, T limit, BYTE* out) {
        const T a = _mm256_cmpgt_epi16(lo, limit), b = _mm256_cmpgt_epi16(hi, limit);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_permute4x64_epi64(_mm256_packs_epi16(a, b), 0xD8));
    }
};

#include "dib_convolve_rows.inc"

}  // namespace conv256
DIB_TARGET_END

DIB_TARGET_BEGIN_AVX512BW
namespace conv512 {

struct V {
    using T = __m512i;
    static constexpr LONG N = 32;
    static T Load(const BYTE* p) { return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))); }
    static T LoadSums(const int16_t* p) { return _mm512_loadu_si512(p); }
    static T Set(int16_t v) { return _mm512_set1_epi16(v); }
    static T Add(T a, T b) { return _mm512_add_epi16(a, b); }
    static T Sub(T a, T b) { return _mm512_sub_epi16(a, b); }
    static T Xor(T a, T b) { return _mm512_xor_si512(a, b); }
    static T Mul(T a, T b) { return _mm512_mullo_epi16(a, b); }
    static T Abs(T a) { return _mm512_abs_epi16(a); }
    static T MulHi(T a, T m) { return _mm512_mulhi_epu16(a, m); }
    static T Shr(T a, __m128i c) { return _mm512_srl_epi16(a, c); }
    static T SignOf(T q, T s) { return _mm512_mask_sub_epi16(q, _mm512_movepi16_mask(s), _mm512_setzero_si512(), q); }
    static T AddSat(T a, T b) { return _mm512_adds_epi16(a, b); }
    static void StoreClamp(T lo, T hi, BYTE* out) {
        // packus interleaves the 128-bit quarters; the permute puts them in
        // order (its zeroing form, as the plain one trips a false warning).
        const T order = _mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0);
        _mm512_storeu_si512(out, _mm512_maskz_permutexvar_epi64(0xFF, order, _mm512_packus_epi16(lo, hi)));
    }
    static void StoreAbove(T lo, T hi, T limit, BYTE* out) {
        const __mmask64 m = static_cast<__mmask64>(_mm512_cmpgt_epi16_mask(lo, limit)) |
                            (static_cast<__mmask64>(_mm512_cmpgt_epi16_mask(hi, limit)) << 32);
        _mm512_storeu_si512(out, _mm512_movm_epi8(m));
    }
};

#include "dib_convolve_rows.inc"

}  // namespace conv512
DIB_TARGET_END

#endif

ConvRow3Fn ConvPickRow3(const ConvNarrow& p, LONG n) {
#ifdef DIB_HAVE_X86_PATHS
    if (n >= 2 * conv512::V::N && DibCpuHas(DIB_CPU_AVX512)) return conv512::kRow3[p.kind][p.div][p.threshold];
    if (n >= 2 * conv256::V::N && DibCpuHas(DIB_CPU_AVX2)) return conv256::kRow3[p.kind][p.div][p.threshold];
#endif
    (void)p;
    (void)n;
    return nullptr;
}

ConvFinish16Fn ConvPickFinish16(const ConvNarrow& p, LONG n) {
#ifdef DIB_HAVE_X86_PATHS
    if (n >= 2 * conv512::V::N && DibCpuHas(DIB_CPU_AVX512)) return conv512::kFinish16[p.div][p.threshold];
    if (n >= 2 * conv256::V::N && DibCpuHas(DIB_CPU_AVX2)) return conv256::kFinish16[p.div][p.threshold];
#endif
    (void)p;
    (void)n;
    return nullptr;
}
