/*
 * The unchecked row kernels behind the point, histogram and neighbourhood
 * operations. The operations check and set up; these run the pixel loops.
 * Tests and benchmarks call them directly to compare the code paths.
 */
#ifndef TOVREL_DIBKERNELS_H
#define TOVREL_DIBKERNELS_H

#include <stddef.h>
#include <tovrel/platform.h>

/* Vector code for x86 (intrinsics and per-function target attributes) is
 * built with GCC or clang on x86-64; elsewhere only the portable ways. */
#if defined(__x86_64__) && defined(__GNUC__)
#define DIB_HAVE_X86_PATHS 1
#include <immintrin.h>
#endif

/* A region of code compiled for an instruction set, with either compiler:
 * GCC's target pragmas or clang's attribute region (the fuzzing build). */
#if defined(__clang__)
#define DIB_TARGET_BEGIN_AVX2 \
    _Pragma("clang attribute push(__attribute__((target(\"avx2\"))), apply_to = function)")
#define DIB_TARGET_BEGIN_AVX512BW \
    _Pragma("clang attribute push(__attribute__((target(\"avx512f,avx512bw\"))), apply_to = function)")
#define DIB_TARGET_END _Pragma("clang attribute pop")
#else
#define DIB_TARGET_BEGIN_AVX2 _Pragma("GCC push_options") _Pragma("GCC target(\"avx2\")")
#define DIB_TARGET_BEGIN_AVX512BW _Pragma("GCC push_options") _Pragma("GCC target(\"avx512f,avx512bw\")")
#define DIB_TARGET_END _Pragma("GCC pop_options")
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The one choice of code by processor (dib_cpu.cpp). Where a kernel has a
 * way for a feature, it runs it when DibCpuHas says so: the processor has
 * the feature and the ceiling allows it. The ceiling comes from the
 * environment variable TOVREL_CPU ("portable", "avx2" or "avx512"; unset:
 * everything the processor has), read once, or from DibCpuSetCeiling, so
 * that tests run every way on any machine. */
enum {
    DIB_CPU_PORTABLE = 0,
    DIB_CPU_AVX2 = 1,
    DIB_CPU_AVX512 = 2, /* AVX-512 BW with VBMI */
    DIB_CPU_ALL = 3
};
BOOL DibCpuHas(int feature);
/* Sets the ceiling (DIB_CPU_ALL: none); a negative level returns to the
 * environment's. */
void DibCpuSetCeiling(int level);

/* row[i] = table[row[i]] for i < n, by the fastest way this processor has
 * (dib_point.cpp). */
void DibTableRow8(const BYTE* table, BYTE* row, size_t n);

/* The same on each of height rows, the way chosen once. */
void DibTableRows8(const BYTE* table, BYTE* const* rows, size_t height, size_t n);

/* DibTableRows8 with the stretch's table from black to white: where a
 * lookup costs sixteen shuffles the same values come from arithmetic
 * instead, 255 v / range less 255 black / range (dib_point.cpp). */
void DibStretchRows8(const BYTE* table, DWORD black, DWORD white, BYTE* const* rows, size_t height, size_t n);

/* The ways of DibTableRow8, for tests and benchmarks. */
enum {
    DIB_TABLE_PORTABLE = 0, /* plain code, every processor */
    DIB_TABLE_AVX2 = 1,     /* sixteen 16-byte shuffles */
    DIB_TABLE_VBMI = 2,     /* two 128-byte permutes (AVX-512 VBMI) */
    DIB_TABLE_WAYS = 3
};
/* Runs one way; FALSE, with nothing done, when this processor lacks it. */
BOOL DibTableRow8With(int way, const BYTE* table, BYTE* row, size_t n);

/* Adds the first width bytes of each of the height rows to counters[256]
 * (dib_histogram.cpp). */
void DibCountRows8(BYTE* const* rows, size_t height, size_t width, DWORD* counters);

/* Pixels at or below each level of two windows of consecutive levels,
 * base[w] + j for j < per (2 or 4), in the first width bytes of each of the
 * height rows: counts[4 * w + j] (dib_histogram.cpp). A level past 255
 * counts every pixel. */
void DibCountNear8(BYTE* const* rows, size_t height, size_t width, const BYTE* base, int per,
                   unsigned long long* counts);

/* 3x3 windows over three rows of one byte a pixel (dib_rank.cpp). Each row
 * holds n + 2 values; out[i] gets the result for the window centred on
 * column i + 1. out must not overlap the rows. */
void DibRankRow8(const BYTE* above, const BYTE* middle, const BYTE* below,
                 BYTE* out, size_t n, DWORD rank);
/* out[i] = background when middle[i + 1] is not background and fewer than
 * threshold of its eight neighbours are not background; middle[i + 1]
 * otherwise. */
void DibDespeckleRow8(const BYTE* above, const BYTE* middle, const BYTE* below,
                      BYTE* out, size_t n, BYTE background, DWORD threshold);

#ifdef __cplusplus
}
#endif

#endif
