/*
 * The image operations of the bitmap layer. Each changes the bitmap behind
 * the handle in place and returns a shared result code (tovrel.h).
 */
#ifndef TOVREL_DIBOPS_H
#define TOVREL_DIBOPS_H

#include "dibce.h"

/* The ranges of the operations' numbers are declared once, beside the
 * exports, in <tovrel/tovranges.h>; the DIB_ names below are the same
 * constants under the names the bitmap layer's own checks use. */
#include <tovrel/tovranges.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- point operations (dib_point.cpp) -----------------------------------
 * Each pixel gets a new value from its old value alone; the colour table is
 * never consulted. Brightness, contrast and inversion work at 1, 4 and 8 bits
 * and clamp to 0 .. DibNumColors - 1; gamma correction works at 8 bits only
 * (5 for another depth). */
DWORD DibBrightness(HDIB hdib, LONG brightness);
/* contrast: gain (contrast + 255) / 255 in 16.16; offset: added afterwards. */
DWORD DibContrast(HDIB hdib, LONG contrast, LONG offset);
DWORD DibInvert(HDIB hdib);
/* gamma is the exponent itself: above 1 darkens the mid-tones. */
DWORD DibGammaCorrection(HDIB hdib, double gamma);

/* ---- histogram (dib_histogram.cpp) --------------------------------------
 * 8-bit bitmaps only. */
#define DIB_HISTOGRAM_LEVELS 256
#define DIB_STRETCH_LEVEL_MAX TOV_STRETCH_LEVEL_MAX     /* mode 0: black and white points */
#define DIB_STRETCH_PERCENT_MAX TOV_STRETCH_PERCENT_MAX /* mode 1: cut-offs at each end */
#define DIB_STRETCH_DEFAULT_PERCENT TOV_STRETCH_DEFAULT_PERCENT

/* Adds each pixel of an 8-bit bitmap to counters[DIB_HISTOGRAM_LEVELS];
 * padding bytes are not counted and the table is not cleared. 5 for a bad
 * handle or another depth, 7 for NULL counters. */
DWORD DibHistogram(HDIB hdib, DWORD* counters);
/* The first level from the dark end (from the light end) at which the
 * running sum of counters exceeds count; 255 (0) when none does. */
DWORD DibHistogramBlackValue(const DWORD* counters, LONG count);
DWORD DibHistogramWhiteValue(const DWORD* counters, LONG count);
/* mode 0: low and high are the black and white points (0 .. 255);
 * mode 1: percentages of the pixels cut off at the dark and light ends. */
DWORD DibHistogramStretchEx(HDIB hdib, LONG low, LONG high, DWORD mode);
/* The fixed stretch: mode 1 with 2 percent at each end. */
DWORD DibHistogramStretch(HDIB hdib);

/* ---- rank filter and despeckle (dib_rank.cpp) ---------------------------
 * 3x3 windows at 1, 4 and 8 bits, read from a private copy; the outermost
 * rows and columns are left as they were. */
#define DIB_RANK_MAX TOV_RANK_MAX /* 0 minimum, 4 median, 8 maximum */

DWORD DibRankFilter(HDIB hdib, DWORD rank);
/* A pixel other than background with fewer than threshold neighbours other
 * than background becomes background. */
DWORD DibDespeckle(HDIB hdib, DWORD threshold, DWORD background);

/* ---- convolution family (dib_convolve.cpp) ------------------------------
 * 8-bit bitmaps only. Kernels are rows x cols signed weights, row-major,
 * applied as a correlation. Refused with 7: negative sizes, a NULL or
 * unreadable kernel, more than DIB_CONV_MAX_ENTRIES weights, and a kernel
 * whose working-copy borders the picture cannot fill (half size my at or
 * above the height, mx at or above the width, or a width below 2*mx - 1). */
#define DIB_CONV_MAX_ENTRIES TOV_KERNEL_MAX_ENTRIES /* kernel weights read from a caller */

/* A copy of hdib, newHeight x newWidth, with the picture centred and
 * mirrored borders; NULL on failure. The height comes first. */
HDIB DibCreateCopyConvolve(HDIB hdib, LONG newHeight, LONG newWidth);
/* "Threshhold" (sic) is the device's spelling, in the name and in its traces. */
DWORD DibConvolutionFilterThreshhold(HDIB hdib, const LONG* kernel, LONG rows, LONG cols,
                                     LONG divisor, LONG bias, LONG threshold);
DWORD DibConvolutionFilter(HDIB hdib, const LONG* kernel, LONG rows, LONG cols,
                           LONG divisor, LONG bias);
DWORD DibAverage(HDIB hdib);
DWORD DibSharpen(HDIB hdib, LONG level);
DWORD DibInfinityFilter(HDIB hdib);
DWORD DibThreshold(HDIB hdib, DWORD threshold);

#define DIB_SHARPEN_MIN TOV_SHARPEN_MIN
#define DIB_SHARPEN_MAX TOV_SHARPEN_MAX

/* ---- geometry (dib_geometry.cpp) ----------------------------------------
 * 1, 4 and 8 bits; depth and colour table are kept. */
DWORD DibFlipHorizontal(HDIB hdib); /* upside down */
DWORD DibFlipVertical(HDIB hdib);   /* left to right */
DWORD DibCrop(HDIB hdib, DWORD x, DWORD y, DWORD width, DWORD height);
DWORD DibScale(HDIB hdib, DWORD percent);

/* ---- dithering (dib_dither.cpp) -----------------------------------------
 * 8-bit bitmaps of 256 colours; the levels are 0/255, or 0, 16 ... 240, 255. */
DWORD DibDither2Color(HDIB hdib);
DWORD DibDither16Color(HDIB hdib);

#ifdef __cplusplus
}
#endif

#endif
