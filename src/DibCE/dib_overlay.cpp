/*
 * Merging and text overlays.
 *
 *   DibMerge              one bitmap into a rectangle of another, by raster operation
 *   DibCreateTextOverlay  a text rendered black on white into a grey bitmap of its size
 *   DibOverlayBufferExt   the two together
 *   DibOverlayBuffer      measures, places the box at one of seven positions, stamps it
 *   DibOverlayTimeDate    the same with the local date and time
 *   DibOverlayPlace       the box arithmetic of the seven positions
 *
 * Glyphs, stretching and the raster operation are the platform's; this file
 * holds the order of the calls, the fixed font and the box arithmetic. Every
 * context, font and temporary bitmap is released on every path.
 */
#include "dibgfx.h"

#include <cstring>

extern "C" {

DWORD DibMerge(HDIB hdibDest, HDIB hdibSource, const MergeSettings* settings) {
    DebugTrace(DIB_LEVEL_OP, u">DibMerge(%lld,%lld,%lld)\r\n", TRACE_PTR(hdibDest), TRACE_PTR(hdibSource),
               TRACE_PTR(settings));
    if (DibIsInvalid(hdibDest)) return DibErrorInvalidDIB;
    if (DibIsInvalid(hdibSource)) return DibErrorInvalidDIB;
    if (!settings) return DibErrorInvalidParm;

    HDC screen = GetDC(nullptr);
    HDC dcSource = CreateCompatibleDC(screen);
    HDC dcDest = CreateCompatibleDC(screen);
    HGDIOBJ oldSource = dcSource ? SelectObject(dcSource, DibBitmapHandle(hdibSource)) : nullptr;
    HGDIOBJ oldDest = dcDest ? SelectObject(dcDest, DibBitmapHandle(hdibDest)) : nullptr;

    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->XDest=%d\r\n", settings->XDest);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->YDest=%d\r\n", settings->YDest);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->WidthDest=%d\r\n", settings->WidthDest);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->HeightDest=%d\r\n", settings->HeightDest);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->XSrc=%d\r\n", settings->XSrc);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->YSrc=%d\r\n", settings->YSrc);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->WidthSrc=%d\r\n", settings->WidthSrc);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->HeightSrc=%d\r\n", settings->HeightSrc);
    DebugTrace(DIB_LEVEL_OP, u"   ?MergeSettings->RasterOp=%d\r\n", settings->RasterOp);

    // Without both bitmaps selected the copy would land on a context's stock bitmap.
    BOOL ok = oldSource && oldDest &&
              StretchBlt(dcDest, settings->XDest, settings->YDest, settings->WidthDest, settings->HeightDest,
                         dcSource, settings->XSrc, settings->YSrc, settings->WidthSrc, settings->HeightSrc,
                         settings->RasterOp);

    if (oldSource) SelectObject(dcSource, oldSource);
    if (oldDest) SelectObject(dcDest, oldDest);
    if (screen) ReleaseDC(nullptr, screen);
    if (dcSource) DeleteDC(dcSource);
    if (dcDest) DeleteDC(dcDest);

    if (!ok) {
        DebugError(u"   !DibMerge(): BitBlt failed\r\n");
        DebugTrace(DIB_LEVEL_OP, u"<DibMerge()=DibErrorUnknown\r\n");
        return DibErrorUnknown;
    }
    DebugTrace(DIB_LEVEL_OP, u"<DibMerge()=DibOk\r\n");
    return DibOk;
}

HDIB DibCreateTextOverlay(const WCHAR* text, TextOverlaySettings* settings) {
    DebugTrace(DIB_LEVEL_OP, u">DibCreateTextOverlay(%s,%lld)\r\n", text ? text : u"(null)", TRACE_PTR(settings));
    if (!settings) return nullptr;
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->ForeColor=%d\r\n", settings->ForeColor);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->BackColor=%d\r\n", settings->BackColor);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->Alignment=%d\r\n", settings->Alignment);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->Height=%d\r\n", settings->Height);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->RasterOp=%d\r\n", settings->RasterOp);

    HDC screen = GetDC(nullptr);
    HDC dc = CreateCompatibleDC(screen);
    LOGFONTW lf;
    std::memset(&lf, 0, sizeof lf);
    lf.lfHeight = settings->Height;
    lf.lfWeight = DIB_OVERLAY_WEIGHT;
    std::memcpy(lf.lfFaceName, DIB_OVERLAY_FACE, sizeof DIB_OVERLAY_FACE);
    HFONT font = dc ? CreateFontIndirectW(&lf) : nullptr;
    if (!font) {
        if (dc) DeleteDC(dc);
        if (screen) ReleaseDC(nullptr, screen);
        return nullptr;
    }
    HGDIOBJ oldFont = SelectObject(dc, font);
    const int length = text ? int(PlatWideLength(text)) : 0;
    std::memset(&settings->Rect, 0, sizeof settings->Rect);
    DrawTextW(dc, text, length, &settings->Rect, DT_CALCRECT);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->Rect.right=%d\r\n", settings->Rect.right);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->Rect.left=%d\r\n", settings->Rect.left);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->Rect.bottom=%d\r\n", settings->Rect.bottom);
    DebugTrace(DIB_LEVEL_OP, u"   ?Settings->Rect.top=%d\r\n", settings->Rect.top);

    HDIB overlay = nullptr;
    if (settings->Alignment != DT_CALCRECT) {
        overlay = DibCreate(settings->Rect.right - settings->Rect.left, settings->Rect.bottom - settings->Rect.top,
                            settings->BackColor & 0xFFu);
        if (overlay) {
            HGDIOBJ oldBitmap = SelectObject(dc, DibBitmapHandle(overlay));
            if (oldBitmap) {
                SetBkMode(dc, OPAQUE);
                SetTextColor(dc, (settings->ForeColor & 0xFFu) * 0x010101u);
                SetBkColor(dc, (settings->BackColor & 0xFFu) * 0x010101u);
                DrawTextW(dc, text, length, &settings->Rect, settings->Alignment);
                SelectObject(dc, oldBitmap);
            }
        }
    }
    if (oldFont) SelectObject(dc, oldFont);
    DeleteObject(font);
    DeleteDC(dc);
    if (screen) ReleaseDC(nullptr, screen);
    DebugTrace(DIB_LEVEL_OP, u"<DibCreateTextOverlay()=%lld\r\n", TRACE_PTR(overlay));
    return overlay;
}

DWORD DibOverlayBufferExt(HDIB hdib, const WCHAR* text, TextOverlaySettings* settings,
                          const MergeSettings* merge) {
    DebugTrace(DIB_LEVEL_OP, u">DibOverlayBufferExt ()\r\n");
    if (!settings) return DibErrorInvalidParm;
    HDIB overlay = DibCreateTextOverlay(text, settings);
    DWORD result;
    if (settings->Alignment == DT_CALCRECT) {
        DebugTrace(DIB_LEVEL_OP, u"<DibOverlayBufferExt()=0 (DT_CALCRECT)\r\n");
        result = DibOk;
    } else if (!overlay) {
        return DibErrorInvalidParm;
    } else if (DibIsInvalid(overlay)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibOverlayBufferExt ()=DibErrorInvalidDIB (!hdibtmp)\r\n");
        return DibErrorInvalidDIB;  // nothing valid to unload
    } else if (DibIsInvalid(hdib)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibOverlayBufferExt ()=DibErrorInvalidDIB (!DibIsValid())\r\n");
        result = DibErrorInvalidDIB;
    } else if (!merge || DibMerge(hdib, overlay, merge) != DibOk) {
        DebugTrace(DIB_LEVEL_OP, u"<DibOverlayBufferExt()=DibErrorInvalidDIB (DibMerge())\r\n");
        result = DibErrorUnknown;
    } else {
        DebugTrace(DIB_LEVEL_OP, u"<DibOverlayBufferExt()=DibOk\r\n");
        result = DibOk;
    }
    if (overlay) DibUnload(overlay);
    return result;
}

BOOL DibOverlayPlace(DWORD position, LONG W, LONG H, LONG tw, LONG th, LONG* x, LONG* y, DWORD* alignment) {
    // Halves are taken separately, each truncated towards zero.
    const LONG centreX = W / 2 - tw / 2, centreY = H / 2 - th / 2;
    const LONG right = LONG(int64_t(W) - tw), bottom = LONG(int64_t(H) - th);
    switch (position) {
    case DibOverlayTopLeft: *x = 0; *y = 0; *alignment = DT_RIGHT; break;
    case DibOverlayTopRight: *x = right; *y = 0; *alignment = DT_RIGHT; break;
    case DibOverlayBottomRight: *x = right; *y = bottom; *alignment = DT_LEFT; break;
    case DibOverlayBottomLeft: *x = 0; *y = bottom; *alignment = DT_LEFT; break;
    case DibOverlayTopCentre: *x = centreX; *y = 0; *alignment = DT_CENTER; break;
    case DibOverlayBottomCentre: *x = centreX; *y = bottom; *alignment = DT_CENTER; break;
    case DibOverlayCentre: *x = centreX; *y = centreY; *alignment = DT_CENTER; break;
    default: return FALSE;
    }
    return TRUE;
}

DWORD DibOverlayBuffer(HDIB hdib, const WCHAR* text, DWORD alignment, LONG height, DWORD rasterOp) {
    DebugTrace(DIB_LEVEL_OP, u">DibOverlayBuffer()\r\n");
    if (DibIsInvalid(hdib)) return DibErrorInvalidDIB;
    const LONG W = DibWidth(hdib), H = DibHeight(hdib);

    // Measuring pass.
    TextOverlaySettings settings;
    std::memset(&settings, 0, sizeof settings);
    settings.ForeColor = 0;
    settings.BackColor = 255;
    settings.Height = height;
    settings.Alignment = DT_CALCRECT;
    settings.RasterOp = SRCINVERT;
    if (DibOverlayBufferExt(nullptr, text, &settings, nullptr) != DibOk) return DibErrorInvalidDIB;

    const LONG tw = settings.Rect.right - settings.Rect.left, th = settings.Rect.bottom - settings.Rect.top;
    MergeSettings merge;
    std::memset(&merge, 0, sizeof merge);
    // A position above 6 keeps DT_CALCRECT: the drawing pass only measures again.
    DibOverlayPlace(alignment, W, H, tw, th, &merge.XDest, &merge.YDest, &settings.Alignment);
    merge.WidthDest = merge.WidthSrc = tw;
    merge.HeightDest = merge.HeightSrc = th;
    merge.XSrc = merge.YSrc = 0;
    merge.RasterOp = rasterOp;

    // Drawing pass: measures again, renders and stamps.
    if (DibOverlayBufferExt(hdib, text, &settings, &merge) != DibOk) return DibErrorInvalidDIB;
    DebugTrace(DIB_LEVEL_OP, u"<DibOverlayBuffer()=DibOk\r\n");
    return DibOk;
}

DWORD DibOverlayTimeDate(HDIB hdib, DWORD alignment, LONG height, DWORD rasterOp) {
    DebugTrace(DIB_LEVEL_OP, u">DibOverlayTimeDate()\r\n");
    if (DibIsInvalid(hdib)) return DibErrorInvalidDIB;
    SYSTEMTIME now;
    GetLocalTime(&now);
    WCHAR text[64];
    _snwprintf(text, sizeof text / sizeof text[0], u"%02d/%02d/%02d\n%02d:%02d:%02d", now.wMonth, now.wDay,
               now.wYear, now.wHour, now.wMinute, now.wSecond);
    DWORD result = DibOverlayBuffer(hdib, text, alignment, height, rasterOp);
    if (result == DibOk) DebugTrace(DIB_LEVEL_OP, u"<DibOverlayTimeDate()=DibOk\r\n");
    else DebugTrace(DIB_LEVEL_OP, u"<DibOverlayTimeDate()=%d (error)\r\n", result);
    return result;
}

}  // extern "C"
