// Device contexts: the screen context, memory contexts over DIB sections,
// contexts over a caller's XRGB rows; SelectObject and the colour and
// background settings that text drawing reads.
//
// A context is checked against a registry of live contexts before use, like
// the graphics objects. Pens and fonts may be deleted while selected (the
// signature code does so); a context therefore re-checks its pen and font
// at each use and falls back to its stock ones when they are gone.
#include "gdidc.h"

#include <cstring>

namespace {

PlatHandleSet g_dcs;

void RegisterDc(GdiDcTag* dc) { g_dcs.Insert(dc, &dc->link); }

bool UnregisterDc(GdiDcTag* dc) { return g_dcs.Erase(dc); }

void NoDestroy(GdiObjectTag*) {}

HDC NewDc(GdiDcKind kind) {
    auto* dc = PlatNew<GdiDcTag>();
    if (!dc) return nullptr;
    dc->kind = kind;
    dc->bkMode = OPAQUE;
    dc->textColour = RGB(0, 0, 0);
    dc->bkColour = RGB(255, 255, 255);
    dc->brushColour = RGB(255, 255, 255);

    GdiBitmap& bm = dc->stockBitmap;
    bm.type = GDI_BITMAP;
    bm.destroy = NoDestroy;
    bm.header.biSize = sizeof(BITMAPINFOHEADER);
    bm.header.biWidth = 1;
    bm.header.biHeight = 1;
    bm.header.biPlanes = 1;
    bm.header.biBitCount = 1;
    bm.colors[1] = RGBQUAD{255, 255, 255, 0};
    bm.colorCount = 2;
    bm.bits = dc->stockBits;
    bm.stride = 4;
    dc->bitmap = &bm;

    GdiStockFontInit(&dc->stockFont);
    dc->font = &dc->stockFont;

    dc->stockPen.type = GDI_PEN;
    dc->stockPen.destroy = NoDestroy;
    dc->stockPen.style = PS_SOLID;
    dc->stockPen.width = 1;
    dc->stockPen.colour = RGB(0, 0, 0);
    dc->pen = &dc->stockPen;

    RegisterDc(dc);
    return dc;
}

void FreeDc(GdiDcTag* dc) {
    if (dc->bitmap != &dc->stockBitmap) __atomic_fetch_sub(&dc->bitmap->selectedInto, 1, __ATOMIC_RELAXED);
    GdiFontUnload(&dc->stockFont);
    PlatFree(dc);
}

// The colour setters: the previous colour out, the new one in without its
// top byte; CLR_INVALID for a dead context.
COLORREF SwapColour(HDC dc, COLORREF GdiDcTag::*field, COLORREF colour) {
    GdiDcTag* d = GdiLookupDc(dc);
    if (!d) return CLR_INVALID;
    COLORREF prev = d->*field;
    d->*field = colour & 0x00FFFFFFu;
    return prev;
}

}  // namespace

GdiDcTag* GdiLookupDc(HDC dc) {
    return g_dcs.Contains(dc) ? dc : nullptr;
}

bool GdiDcSurface(const GdiDcTag* dc, GdiSurface* out) {
    *out = GdiSurface();
    if (dc->kind == DC_BUFFER) {
        out->width = dc->bufferWidth;
        out->height = dc->bufferHeight;
        out->bpp = 32;
        out->bits = dc->buffer;
        out->stride = dc->bufferStride;
        out->bottomUp = false;
        return true;
    }
    if (dc->kind != DC_MEMORY) return false;
    const GdiBitmap* bm = dc->bitmap;
    out->width = bm->header.biWidth;
    out->height = bm->header.biHeight;
    out->bpp = bm->header.biBitCount;
    out->bits = bm->bits;
    out->stride = bm->stride;
    out->bottomUp = true;
    if (out->bpp <= 8) {
        out->colors = bm->colors;
        out->colorCount = bm->colorCount;
    }
    return true;
}

const GdiPen* GdiDcPen(GdiDcTag* dc) {
    if (dc->pen != &dc->stockPen) {
        if (auto* pen = static_cast<GdiPen*>(GdiLookup(dc->pen, GDI_PEN))) return pen;
        dc->pen = &dc->stockPen;
    }
    return &dc->stockPen;
}

GdiFont* GdiDcFont(GdiDcTag* dc) {
    if (dc->font != &dc->stockFont) {
        if (auto* font = static_cast<GdiFont*>(GdiLookup(dc->font, GDI_FONT))) return font;
        dc->font = &dc->stockFont;
    }
    GdiFont* stock = &dc->stockFont;
    if (!stock->face) {
        LOGFONTW lf;
        std::memset(&lf, 0, sizeof lf);
        lf.lfHeight = 16;
        lf.lfWeight = FW_NORMAL;
        if (!GdiFontLoad(stock, &lf)) return nullptr;
    }
    return stock;
}

extern "C" {

HDC GetDC(HWND window) {
    if (window) {  // there are no windows here; a window surface comes through PlatCreateBufferDC
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return NewDc(DC_SCREEN);
}

int ReleaseDC(HWND /*window*/, HDC dc) {
    GdiDcTag* d = GdiLookupDc(dc);
    if (!d || d->kind != DC_SCREEN || !UnregisterDc(d)) return 0;
    FreeDc(d);
    return 1;
}

HDC CreateCompatibleDC(HDC dc) {
    if (dc && !GdiLookupDc(dc)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return NewDc(DC_MEMORY);
}

BOOL DeleteDC(HDC dc) {
    GdiDcTag* d = GdiLookupDc(dc);
    if (!d || !UnregisterDc(d)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    FreeDc(d);
    return TRUE;
}

HDC PlatCreateBufferDC(void* pixels, LONG width, LONG height, LONG stride) {
    if (!pixels || width <= 0 || height <= 0 || int64_t(stride) < int64_t(width) * 4) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    HDC dc = NewDc(DC_BUFFER);
    if (!dc) return nullptr;
    dc->buffer = static_cast<BYTE*>(pixels);
    dc->bufferWidth = width;
    dc->bufferHeight = height;
    dc->bufferStride = stride;
    return dc;
}

HGDIOBJ SelectObject(HDC dc, HGDIOBJ object) {
    GdiDcTag* d = GdiLookupDc(dc);
    if (!d || !object) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (object == &d->stockBitmap || GdiLookupBitmap(object)) {
        // Only memory contexts hold bitmaps; screen and buffer contexts have their own pixels.
        if (d->kind != DC_MEMORY) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        auto* next = static_cast<GdiBitmap*>(object);
        GdiBitmap* prev = d->bitmap;
        if (next == prev) return prev;
        if (next != &d->stockBitmap) __atomic_fetch_add(&next->selectedInto, 1, __ATOMIC_RELAXED);
        if (prev != &d->stockBitmap) __atomic_fetch_sub(&prev->selectedInto, 1, __ATOMIC_RELAXED);
        d->bitmap = next;
        return prev;
    }
    if (object == &d->stockFont || GdiLookup(object, GDI_FONT)) {
        HFONT prev = d->font;
        d->font = object;
        return prev;
    }
    if (object == &d->stockPen || GdiLookup(object, GDI_PEN)) {
        HPEN prev = d->pen;
        d->pen = object;
        return prev;
    }
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

int SetBkMode(HDC dc, int mode) {
    GdiDcTag* d = GdiLookupDc(dc);
    if (!d || (mode != TRANSPARENT && mode != OPAQUE)) return 0;
    int prev = d->bkMode;
    d->bkMode = mode;
    return prev;
}

COLORREF SetTextColor(HDC dc, COLORREF colour) { return SwapColour(dc, &GdiDcTag::textColour, colour); }

COLORREF SetBkColor(HDC dc, COLORREF colour) { return SwapColour(dc, &GdiDcTag::bkColour, colour); }

}  // extern "C"
