/*
 * Exports of the convolution family, geometry and dithering: each a frame
 * around one Dib function (entry trace, the export's own range checks,
 * the call, the exit trace), handing the Dib code on unchanged.
 */
#include "dibops.h"
#include "tovce.h"

extern "C" {

DWORD tovConvolutionFilter(HDIB hdib, const LONG* kernel, LONG rows, LONG cols, LONG divisor,
                           LONG bias) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovConvolutionFilter(%lld,%lld,%d,%d,%d,%d)\r\n",
               TRACE_PTR(hdib), TRACE_PTR(kernel), rows, cols, divisor, bias);
    return tovLeave(DibConvolutionFilter(hdib, kernel, rows, cols, divisor, bias),
                    u"<tovConvolutionFilter()=tovOk\r\n", u"<tovConvolutionFilter()=%d (error)\r\n");
}

DWORD tovAverage(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovAverage(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibAverage(hdib), u"<tovAverage()=tovOk\r\n", u"<tovAverage()=%d (error)\r\n");
}

DWORD tovSharpen(HDIB hdib, LONG level) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovSharpen(%lld,%d)\r\n", TRACE_PTR(hdib), level);
    if (level < TOV_SHARPEN_MIN || level > TOV_SHARPEN_MAX) return DibErrorInvalidParm;
    return tovLeave(DibSharpen(hdib, level), u"<tovSharpen()=tovOk\r\n", u"<tovSharpen()=%d (error)\r\n");
}

DWORD tovInfinityFilter(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovInfinityFilter(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibInfinityFilter(hdib), u"<tovInfinityFilter()=tovOk\r\n",
                    u"<tovInfinityFilter()=%d (error)\r\n");
}

DWORD tovThreshold(HDIB hdib, DWORD threshold) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovThreshold(%lld,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(threshold));
    if (threshold > TOV_THRESHOLD_MAX) return DibErrorInvalidParm;
    return tovLeave(DibThreshold(hdib, threshold), u"<tovThreshold()=tovOk\r\n",
                    u"<tovThreshold()=%d (error)\r\n");
}

DWORD tovFlipHorizontal(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovFlipHorizontal(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibFlipHorizontal(hdib), u"<tovFlipHorizontal()=tovOk\r\n",
                    u"<tovFlipHorizontal()=%d (error)\r\n");
}

DWORD tovFlipVertical(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovFlipVertical(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibFlipVertical(hdib), u"<tovFlipVertical()=tovOk\r\n",
                    u"<tovFlipVertical()=%d (error)\r\n");
}

DWORD tovCrop(HDIB hdib, DWORD x, DWORD y, DWORD width, DWORD height) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovCrop(%lld,%d,%d,%d,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(x), static_cast<int>(y),
               static_cast<int>(width), static_cast<int>(height));
    return tovLeave(DibCrop(hdib, x, y, width, height), u"<tovCrop()=tovOk\r\n",
                    u"<tovCrop()=%d (error)\r\n");
}

DWORD tovScale(HDIB hdib, DWORD percent) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovScale(%lld,%d)\r\n", TRACE_PTR(hdib), static_cast<int>(percent));
    if (percent < TOV_SCALE_MIN || percent > TOV_SCALE_MAX) return DibErrorInvalidParm;
    return tovLeave(DibScale(hdib, percent), u"<tovScale()=tovOk\r\n", u"<tovScale()=%d (error)\r\n");
}

DWORD tovDither16Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovDither16Color(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibDither16Color(hdib), u"<tovDither16Color()=tovOk\r\n",
                    u"<tovDither16Color()=%d (error)\r\n");
}

DWORD tovDither2Color(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">tovDither2Color(%lld)\r\n", TRACE_PTR(hdib));
    return tovLeave(DibDither2Color(hdib), u"<tovDither2Color()=tovOk\r\n",
                    u"<tovDither2Color()=%d (error)\r\n");
}

}  // extern "C"
