/*
 * Drawing on bitmaps through the platform's graphics calls: merging one
 * bitmap into another with a raster operation, text overlays and the
 * stroke record of a signature.
 */
#ifndef TOVREL_DIBGFX_H
#define TOVREL_DIBGFX_H

#include "dibce.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Where and how DibMerge puts a source rectangle into the destination;
 * a target size other than the source's stretches. */
typedef struct MergeSettings {
    LONG XDest;
    LONG YDest;
    LONG WidthDest;
    LONG HeightDest;
    LONG XSrc;
    LONG YSrc;
    LONG WidthSrc;
    LONG HeightSrc;
    DWORD RasterOp;
} MergeSettings;

/* Colours are grey levels (low byte); Alignment is a DrawTextW format,
 * DT_CALCRECT to measure only; Rect receives the box of the text. */
typedef struct TextOverlaySettings {
    DWORD ForeColor;
    DWORD BackColor;
    LONG Height;
    DWORD Alignment;
    DWORD RasterOp;
    RECT Rect;
} TextOverlaySettings;

/* Overlay positions of DibOverlayBuffer. */
enum {
    DibOverlayTopLeft = 0,
    DibOverlayTopRight = 1,
    DibOverlayBottomRight = 2,
    DibOverlayBottomLeft = 3,
    DibOverlayTopCentre = 4,
    DibOverlayBottomCentre = 5,
    DibOverlayCentre = 6
};

#define DIB_OVERLAY_FACE u"TACOMA"
#define DIB_OVERLAY_WEIGHT 600
#define DIB_OVERLAY_MIN_HEIGHT 1
#define DIB_OVERLAY_MAX_HEIGHT 72

DWORD DibMerge(HDIB hdibDest, HDIB hdibSource, const MergeSettings* settings);
HDIB DibCreateTextOverlay(const WCHAR* text, TextOverlaySettings* settings);
DWORD DibOverlayBufferExt(HDIB hdib, const WCHAR* text, TextOverlaySettings* settings,
                          const MergeSettings* merge);
DWORD DibOverlayBuffer(HDIB hdib, const WCHAR* text, DWORD alignment, LONG height, DWORD rasterOp);
DWORD DibOverlayTimeDate(HDIB hdib, DWORD alignment, LONG height, DWORD rasterOp);
/* The corner of a box of tw by th at a position in a bitmap of W by H, and
 * the alignment of the text in the box. 0 for a position above 6. */
BOOL DibOverlayPlace(DWORD position, LONG W, LONG H, LONG tw, LONG th, LONG* x, LONG* y,
                     DWORD* alignment);

/* ---- signatures ---------------------------------------------------------- */
/* Record: Width, Height, StrokeCount, then per stroke a PointCount and its
 * points as pairs of signed 32-bit x and y. */
#define DIB_SIG_HEADER_BYTES 12
#define DIB_SIG_MAX_POINTS (1 << 24) /* points of one stroke */

/* Draws the strokes with a solid pen; 7 for a NULL dc or record or a pen
 * width of 0. A stroke that cannot be read ends the drawing. */
DWORD DibSigDraw(HDC dc, const void* record, COLORREF colour, LONG penWidth);

#ifdef __cplusplus
}
#endif

#endif
