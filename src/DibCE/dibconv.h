/*
 * The 16-bit row kernels of the convolution engine (dib_convolve_rows.cpp),
 * for kernels whose every partial sum stays within 16 signed bits.
 *
 * The weighted sum s, the truncated quotient q = s / divisor and the
 * decision are taken in 16-bit lanes. A negative divisor is carried by the
 * weights (the sum of the negated weights is -s exactly) or, for sums taken
 * elsewhere, by `negate`. The quotient of |s| < 2^15 by 2 <= d < 2^15 is
 * (|s| * magic) >> (16 + shift) with magic = ceil(2^(15 + l) / d), l the
 * bits of d - 1, shift = l - 1: the error of the rounded-up reciprocal stays
 * below the gap to the next multiple of d for every |s| < 2^15, which holds
 * for each divisor in that range (checked for all of them). A divisor of
 * 2^15 or more gives magic 0, so q = 0.
 */
#ifndef TOVREL_DIBCONV_H
#define TOVREL_DIBCONV_H

#include <stdint.h>

#include "dibce.h"

enum ConvKind3 {
    ConvKindTaps, // nine weights
    ConvKindBox,  // s = the window's sum
    ConvKindRing  // s = ringA * window's sum + ringB * centre
};

enum ConvDiv16 {
    ConvDivIdent,    // q = s
    ConvDivUnsigned, // s >= 0 always: q = (s * magic) >> (16 + shift)
    ConvDivSigned    // the same on |s|, with the sign of s
};

struct ConvNarrow {
    int16_t taps[9]; // 3x3 weights, row by row
    int16_t ringA;
    int16_t ringB;
    int kind;        // ConvKind3
    int div;         // ConvDiv16
    bool negate;     // finishing sums of the plain weights: negate them first
    uint16_t magic;
    int shift;
    bool threshold;  // decide: 255 where q > limit, else 0
    int16_t bias;    // clamp: the grey level q + bias, saturated to 0..255
    int16_t limit;
};

typedef void (*ConvRow3Fn)(const BYTE* r0, const BYTE* r1, const BYTE* r2, BYTE* out, LONG n,
                           const ConvNarrow& p);
typedef void (*ConvFinish16Fn)(const int16_t* sums, BYTE* out, LONG n, const ConvNarrow& p);

/* The widest way this processor has (DibCpuHas), or NULL where there is no
 * vector way for rows of n pixels. */
ConvRow3Fn ConvPickRow3(const ConvNarrow& p, LONG n);
ConvFinish16Fn ConvPickFinish16(const ConvNarrow& p, LONG n);

#endif
