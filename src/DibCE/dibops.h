/*
 * The image operations of the bitmap layer. Each changes the bitmap behind
 * the handle in place and returns a shared result code (tovrel.h).
 */
#ifndef TOVREL_DIBOPS_H
#define TOVREL_DIBOPS_H

#include "dibce.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- point operations, histogram, rank filter, despeckle ---------------- */

/* ---- convolution family (dib_convolve.cpp) ------------------------------
 * 8-bit bitmaps only. Kernels are rows x cols signed weights, row-major,
 * applied as a correlation. A kernel whose half size reaches the picture's
 * size, negative sizes and an unreadable kernel are refused with 7. */
#define DIB_CONV_MAX_ENTRIES (1 << 20) /* kernel weights read from a caller */

/* A copy of hdib, newHeight x newWidth, with the picture centred and
 * mirrored borders; NULL on failure. The height comes first. */
HDIB DibCreateCopyConvolve(HDIB hdib, LONG newHeight, LONG newWidth);
DWORD DibConvolutionFilterThreshhold(HDIB hdib, const LONG* kernel, LONG rows, LONG cols,
                                     LONG divisor, LONG bias, LONG threshold);
DWORD DibConvolutionFilter(HDIB hdib, const LONG* kernel, LONG rows, LONG cols,
                           LONG divisor, LONG bias);
DWORD DibAverage(HDIB hdib);
DWORD DibSharpen(HDIB hdib, LONG level);
DWORD DibInfinityFilter(HDIB hdib);
DWORD DibThreshold(HDIB hdib, DWORD threshold);

#define DIB_SHARPEN_MIN 9
#define DIB_SHARPEN_MAX 32
#define DIB_THRESHOLD_MAX 255

/* ---- geometry (dib_geometry.cpp) ----------------------------------------
 * 1, 4 and 8 bits; depth and colour table are kept. */
DWORD DibFlipHorizontal(HDIB hdib); /* upside down */
DWORD DibFlipVertical(HDIB hdib);   /* left to right */
DWORD DibCrop(HDIB hdib, DWORD x, DWORD y, DWORD width, DWORD height);
DWORD DibScale(HDIB hdib, DWORD percent);

#define DIB_SCALE_MIN 5
#define DIB_SCALE_MAX 100

/* ---- dithering (dib_dither.cpp) -----------------------------------------
 * 8-bit bitmaps of 256 colours; the levels are 0/255, or 0, 16 ... 240, 255. */
DWORD DibDither2Color(HDIB hdib);
DWORD DibDither16Color(HDIB hdib);

#ifdef __cplusplus
}
#endif

#endif
