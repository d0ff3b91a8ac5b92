/*
 * The ranges of the image operations' numbers, both ends included: the one
 * place each is declared. The exports (and the Dib functions that check a
 * number of their own) refuse a number outside with DibErrorInvalidParm (7);
 * tools and applications read the same names to check or offer a number
 * before they call. Plain constants, so that C callers can use them too.
 */
#ifndef TOVREL_TOVRANGES_H
#define TOVREL_TOVRANGES_H

/* tovBrightness, tovContrast: added to (or the gain of) every level. */
#define TOV_BRIGHTNESS_MIN (-255)
#define TOV_BRIGHTNESS_MAX 255
#define TOV_CONTRAST_MIN (-255)
#define TOV_CONTRAST_MAX 255

/* tovGammaCorrection: the exponent itself (NaN is outside). */
#define TOV_GAMMA_MIN 0.1
#define TOV_GAMMA_MAX 10.0

/* tovHistogramStretchEx: mode 0 takes levels, mode 1 percentages cut off at
 * each end; low at least 0 and at most high in both. */
#define TOV_STRETCH_MODE_MAX 1
#define TOV_STRETCH_LEVEL_MAX 255
#define TOV_STRETCH_PERCENT_MAX 100
/* tovHistogramStretch: the percentage it cuts off at each end. */
#define TOV_STRETCH_DEFAULT_PERCENT 2

/* tovRankFilter: 0 the minimum, 4 the median, 8 the maximum of 3x3. */
#define TOV_RANK_MAX 8

/* tovDespeckle: neighbours (of 8) below which a pixel goes, and the
 * background level. */
#define TOV_DESPECKLE_THRESHOLD_MAX 9
#define TOV_DESPECKLE_BACKGROUND_MAX 255

/* tovConvolutionFilter: the most weights read from a caller's kernel. */
#define TOV_KERNEL_MAX_ENTRIES (1 << 20)

/* tovSharpen: the centre weight (9 the strongest). */
#define TOV_SHARPEN_MIN 9
#define TOV_SHARPEN_MAX 32

/* tovThreshold: 0 is the grey high-pass, 1 .. 255 the two-level decision. */
#define TOV_THRESHOLD_MAX 255

/* tovScale: percent of the width and height kept. */
#define TOV_SCALE_MIN 5
#define TOV_SCALE_MAX 100

/* tovSaveJPG: 0 .. 100. */
#define TOV_JPG_QUALITY_MAX 100

#endif
