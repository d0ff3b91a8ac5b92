/*
 * Export frames of the point operations, the histogram stretch, the rank
 * filter and despeckle: trace, the range checks that belong to the export,
 * the call into the bitmap layer, and its code handed on unchanged.
 */
#include "dibops.h"
#include "tovce.h"

extern "C" DWORD tovBrightness(HDIB hdib, LONG brightness) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovBrightness(%lld,%d)\r\n", TRACE_PTR(hdib), brightness);
    if (brightness < TOV_BRIGHTNESS_MIN || brightness > TOV_BRIGHTNESS_MAX) return DibErrorInvalidParm;
    return tovLeave(DibBrightness(hdib, brightness), u"<tovBrightness()=tovOk\r\n",
                 u"<tovBrightness()=%d (error)\r\n");
}

extern "C" DWORD tovContrast(HDIB hdib, LONG contrast) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovContrast(%lld,%d)\r\n", TRACE_PTR(hdib), contrast);
    if (contrast < TOV_CONTRAST_MIN || contrast > TOV_CONTRAST_MAX) return DibErrorInvalidParm;
    // Holds mid-grey about still; the division truncates towards zero.
    return tovLeave(DibContrast(hdib, contrast, -(contrast / 2)), u"<tovContrast()=tovOk\r\n",
                 u"<tovContrast()=%d\r\n");
}

extern "C" DWORD tovInvert(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovInvert(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibInvert(hdib), u"<tovInvert()=tovOk\r\n", u"<tovInvert()=%d (error)\r\n");
}

extern "C" DWORD tovGammaCorrection(HDIB hdib, double gamma) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovGammaCorrection(%lld,%.2f)\r\n", TRACE_PTR(hdib), gamma);
    if (!(gamma >= TOV_GAMMA_MIN && gamma <= TOV_GAMMA_MAX)) return DibErrorInvalidParm; // NaN too
    // The handle is checked here, through tovHDIBIsValid and its traces.
    DWORD valid = tovHDIBIsValid(hdib);
    if (valid != DibOk) return valid;
    return tovLeave(DibGammaCorrection(hdib, gamma), u"<tovGammaCorrection()=tovOk\r\n",
                 u"<tovGammaCorrection()=%d (error)\r\n");
}

extern "C" DWORD tovHistogramStretch(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovHistogramStretch(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibHistogramStretch(hdib), u"<tovHistogramStretch()=tovOk\r\n",
                 u"<tovHistogramStretch()=%d (error)\r\n");
}

extern "C" DWORD tovHistogramStretchEx(HDIB hdib, LONG low, LONG high, DWORD mode) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovHistogramStretchEx(%lld,%d,%d,%d)\r\n", TRACE_PTR(hdib), low, high,
               static_cast<int>(mode));
    return tovLeave(DibHistogramStretchEx(hdib, low, high, mode), u"<tovHistogramStretchEx()=tovOk\r\n",
                 u"<tovHistogramStretchEx()=%d (error)\r\n");
}

extern "C" DWORD tovRankFilter(HDIB hdib, DWORD rank) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovRankFilter(%lld,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(rank));
    return tovLeave(DibRankFilter(hdib, rank), u"<tovRankFilter()=tovOk\r\n", u"<tovRankFilter()=%d (error)\r\n");
}

extern "C" DWORD tovDespeckle(HDIB hdib, DWORD threshold, DWORD background) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovDespeckle(%lld,%d,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(threshold),
               static_cast<int>(background));
    if (threshold > TOV_DESPECKLE_THRESHOLD_MAX || background > TOV_DESPECKLE_BACKGROUND_MAX)
        return DibErrorInvalidParm;
    return tovLeave(DibDespeckle(hdib, threshold, background), u"<tovDespeckle()=tovOk\r\n",
                 u"<tovDespeckle()=%d\r\n");
}
