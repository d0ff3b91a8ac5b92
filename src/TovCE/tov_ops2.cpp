/*
 * Exports of the convolution family, geometry and dithering: each a frame
 * around one Dib function (entry trace, the export's own range checks,
 * the call, the exit trace), handing the Dib code on unchanged.
 */
#include "dibops.h"
#include "tovce.h"

namespace {

DWORD Leave(const char16_t* okText, const char16_t* errorText, DWORD result) {
    if (result == DibOk)
        DebugTrace(DIB_LEVEL_FRAME, okText);
    else
        DebugError(errorText, (int)result);
    return result;
}

}  // namespace

extern "C" {

DWORD tovConvolutionFilter(HDIB hdib, const LONG* kernel, LONG rows, LONG cols, LONG divisor,
                           LONG bias) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovConvolutionFilter(%lld,%lld,%d,%d,%d,%d)\r\n",
               TRACE_PTR(hdib), TRACE_PTR(kernel), rows, cols, divisor, bias);
    return Leave(u"<tovConvolutionFilter()=tovOk\r\n", u"<tovConvolutionFilter()=%d (error)\r\n",
                 DibConvolutionFilter(hdib, kernel, rows, cols, divisor, bias));
}

DWORD tovAverage(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovAverage(%lld)\r\n", TRACE_PTR(hdib));
    return Leave(u"<tovAverage()=tovOk\r\n", u"<tovAverage()=%d (error)\r\n", DibAverage(hdib));
}

DWORD tovSharpen(HDIB hdib, LONG level) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovSharpen(%lld,%d)\r\n", TRACE_PTR(hdib), level);
    if (level < DIB_SHARPEN_MIN || level > DIB_SHARPEN_MAX) return DibErrorInvalidParm;
    return Leave(u"<tovSharpen()=tovOk\r\n", u"<tovSharpen()=%d (error)\r\n",
                 DibSharpen(hdib, level));
}

DWORD tovInfinityFilter(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovInfinityFilter(%lld)\r\n", TRACE_PTR(hdib));
    return Leave(u"<tovInfinityFilter()=tovOk\r\n", u"<tovInfinityFilter()=%d (error)\r\n",
                 DibInfinityFilter(hdib));
}

DWORD tovThreshold(HDIB hdib, DWORD threshold) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovThreshold(%lld,%d)\r\n", TRACE_PTR(hdib), (int)threshold);
    if (threshold > DIB_THRESHOLD_MAX) return DibErrorInvalidParm;
    return Leave(u"<tovThreshold()=tovOk\r\n", u"<tovThreshold()=%d (error)\r\n",
                 DibThreshold(hdib, threshold));
}

DWORD tovFlipHorizontal(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovFlipHorizontal(%lld)\r\n", TRACE_PTR(hdib));
    return Leave(u"<tovFlipHorizontal()=tovOk\r\n", u"<tovFlipHorizontal()=%d (error)\r\n",
                 DibFlipHorizontal(hdib));
}

DWORD tovFlipVertical(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovFlipVertical(%lld)\r\n", TRACE_PTR(hdib));
    return Leave(u"<tovFlipVertical()=tovOk\r\n", u"<tovFlipVertical()=%d (error)\r\n",
                 DibFlipVertical(hdib));
}

DWORD tovCrop(HDIB hdib, DWORD x, DWORD y, DWORD width, DWORD height) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovCrop(%lld,%d,%d,%d,%d)\r\n", TRACE_PTR(hdib), (int)x, (int)y,
               (int)width, (int)height);
    return Leave(u"<tovCrop()=tovOk\r\n", u"<tovCrop()=%d (error)\r\n",
                 DibCrop(hdib, x, y, width, height));
}

DWORD tovScale(HDIB hdib, DWORD percent) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovScale(%lld,%d)\r\n", TRACE_PTR(hdib), (int)percent);
    if (percent < DIB_SCALE_MIN || percent > DIB_SCALE_MAX) return DibErrorInvalidParm;
    return Leave(u"<tovScale()=tovOk\r\n", u"<tovScale()=%d (error)\r\n", DibScale(hdib, percent));
}

DWORD tovDither16Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovDither16Color(%lld)\r\n", TRACE_PTR(hdib));
    return Leave(u"<tovDither16Color()=tovOk\r\n", u"<tovDither16Color()=%d (error)\r\n",
                 DibDither16Color(hdib));
}

DWORD tovDither2Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovDither2Color(%lld)\r\n", TRACE_PTR(hdib));
    return Leave(u"<tovDither2Color()=tovOk\r\n", u"<tovDither2Color()=%d (error)\r\n",
                 DibDither2Color(hdib));
}

}  // extern "C"
