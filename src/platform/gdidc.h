// Device contexts and the drawing objects behind them: pens, fonts, the
// surface a context draws on, colour matching and the raster operations.
// Shared by the gdi_*.cpp files of the platform layer and by its tests.
#pragma once

#include "gdiobj.h"

struct FT_LibraryRec_;
struct FT_FaceRec_;

// Named limits of the drawing calls.
constexpr int kGdiMaxPenWidth = 1024;        // wider pens are drawn this wide
constexpr LONG kGdiMaxFontHeight = 2048;     // pixels; taller fonts are refused
constexpr int64_t kGdiMaxTextChars = 1 << 20;
constexpr int64_t kGdiMaxTextExtent = int64_t(1) << 24;  // pixels of a measured box

struct GdiPen : GdiObjectTag {
    int style;        // PS_SOLID or PS_NULL
    int width;        // pixels, at least 1
    COLORREF colour;  // 0x00BBGGRR
};

struct GdiFont : GdiObjectTag {
    LOGFONTW logFont;
    FT_LibraryRec_* library;  // one FreeType instance a font: fonts are used on any thread
    FT_FaceRec_* face;
    bool embolden;    // the face found is lighter than the weight asked for
    int ascent;       // pixels above the baseline
    int lineHeight;   // pixels from one line to the next
};

// A pixel store as the drawing code sees it: rows addressed top-down.
struct GdiSurface {
    LONG width = 0;
    LONG height = 0;
    int bpp = 32;
    BYTE* bits = nullptr;
    LONG stride = 0;
    bool bottomUp = false;
    const RGBQUAD* colors = nullptr;  // depths of 8 or fewer
    DWORD colorCount = 0;

    BYTE* Row(LONG y) const {
        int64_t r = bottomUp ? int64_t(height) - 1 - y : int64_t(y);
        return bits + r * stride;
    }
};

enum GdiDcKind : uint32_t {
    DC_SCREEN = 1,  // GetDC(NULL): a display without pixels here
    DC_MEMORY = 2,  // CreateCompatibleDC: draws on the selected bitmap
    DC_BUFFER = 3,  // PlatCreateBufferDC: draws on the caller's XRGB rows
};

struct GdiDcTag {
    PlatHandleLink link;        // in the registry of live contexts
    GdiDcKind kind;
    GdiBitmap* bitmap;          // selected bitmap, or &stockBitmap
    HFONT font;                 // selected font handle, or &stockFont
    HPEN pen;                   // selected pen handle, or &stockPen
    int bkMode;
    COLORREF textColour;
    COLORREF bkColour;
    COLORREF brushColour;       // the stock white brush: the pattern of the raster operations
    GdiBitmap stockBitmap;      // the 1 by 1 monochrome bitmap of a fresh memory context
    BYTE stockBits[4];
    GdiFont stockFont;          // loaded on first use
    GdiPen stockPen;            // black, 1 pixel
    BYTE* buffer;               // DC_BUFFER
    LONG bufferWidth, bufferHeight, bufferStride;
};

// ---- contexts (gdi_dc.cpp) -------------------------------------------------
// The context if `dc` is live, else nullptr.
GdiDcTag* GdiLookupDc(HDC dc);
// The surface `dc` draws on; false for a screen context, which has none.
bool GdiDcSurface(const GdiDcTag* dc, GdiSurface* out);
// The pen and font in effect: the selected ones while they live, else the stock ones.
const GdiPen* GdiDcPen(GdiDcTag* dc);
GdiFont* GdiDcFont(GdiDcTag* dc);

// ---- pixels and colours (gdi_rop.cpp) --------------------------------------
DWORD GdiGetRaw(const BYTE* row, LONG x, int bpp);
void GdiPutRaw(BYTE* row, LONG x, int bpp, DWORD value);
// A pixel value of the surface as 0x00BBGGRR, and the value nearest to a colour.
COLORREF GdiRawToColour(const GdiSurface& s, DWORD raw);
DWORD GdiColourToRaw(const GdiSurface& s, COLORREF colour);
// Index of the nearest entry (squared distance; the first of equals), 0 for an empty table.
DWORD GdiNearestIndex(const RGBQUAD* table, DWORD count, COLORREF colour);

// The ternary raster operations: entry r combines pattern, source and
// destination bits by the truth table in r (bit 4P+2S+D gives the result).
// rop8 is bits 16 to 23 of a raster-operation code.
typedef uint32_t (*GdiRopFn)(uint32_t p, uint32_t s, uint32_t d);
GdiRopFn GdiRopFunction(uint32_t rop8);
// The same over a row: d[i] = op(p, s[i], d[i]).
typedef void (*GdiRopRowFn)(uint32_t p, const uint32_t* s, uint32_t* d, size_t n);
GdiRopRowFn GdiRopRowFunction(uint32_t rop8);
inline bool GdiRopUsesSource(uint32_t rop8) { return (((rop8 >> 2) ^ rop8) & 0x33u) != 0; }
inline bool GdiRopUsesPattern(uint32_t rop8) { return (((rop8 >> 4) ^ rop8) & 0x0Fu) != 0; }

// ---- fonts (gdi_font.cpp) -----------------------------------------------------
// Resolves and loads the face of `lf` into `font` (fields other than the tag).
bool GdiFontLoad(GdiFont* font, const LOGFONTW* lf);
void GdiFontUnload(GdiFont* font);
// The stock font of a context: a plain sans serif, cell height 16.
void GdiStockFontInit(GdiFont* font);

// ---- drawing (gdi_pen.cpp) -----------------------------------------------------
// Fills the part of [x0, x1) x [y0, y1) that lies on the surface.
void GdiFillRect(const GdiSurface& s, int64_t x0, int64_t y0, int64_t x1, int64_t y1, DWORD raw);
