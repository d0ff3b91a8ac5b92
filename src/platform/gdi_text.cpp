// DrawTextW: measures or draws UTF-16 text in the context's font.
//
// Glyphs are hinted and rendered as one-bit masks, never anti-aliased, so a
// grey or paletted surface gets the text colour and, in opaque mode, the
// background colour and nothing in between. Lines break at CR, LF and CR LF
// unless DT_SINGLELINE; each line is aligned on its own (DT_LEFT, DT_CENTER,
// DT_RIGHT), and with DT_CALCRECT the rectangle's right and bottom become
// the extent of the widest line and of all lines, and nothing is drawn.
// Drawing is clipped to the rectangle unless DT_NOCLIP.
#include "gdidc.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_SYNTHESIS_H

namespace {

struct Clip {
    int64_t x0, y0, x1, y1;
};

// Next code point of text[*i..end); lone surrogates read as U+FFFD.
FT_ULong NextCodePoint(const WCHAR* text, int64_t end, int64_t* i) {
    uint32_t c = text[(*i)++];
    if (c >= 0xD800 && c < 0xDC00 && *i < end) {
        uint32_t low = text[*i];
        if (low >= 0xDC00 && low < 0xE000) {
            ++*i;
            return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        }
    }
    if (c >= 0xD800 && c < 0xE000) return 0xFFFD;
    return c;
}

// Loads one glyph as drawn; false on a FreeType failure (memory, a bad font).
bool LoadGlyph(const GdiFont* font, FT_ULong cp, bool render, int* advance) {
    FT_Face face = font->face;
    if (FT_Load_Glyph(face, FT_Get_Char_Index(face, cp), FT_LOAD_TARGET_MONO)) return false;
    if (font->embolden) FT_GlyphSlot_Embolden(face->glyph);
    *advance = int((face->glyph->advance.x + 32) >> 6);
    if (render && face->glyph->format != FT_GLYPH_FORMAT_BITMAP &&
        FT_Render_Glyph(face->glyph, FT_RENDER_MODE_MONO))
        return false;
    return true;
}

// Where line `start` ends and the next begins.
void LineBounds(const WCHAR* text, int64_t start, int64_t end, bool single, int64_t* lineEnd, int64_t* next) {
    int64_t i = start;
    while (i < end && (single || (text[i] != u'\r' && text[i] != u'\n'))) ++i;
    *lineEnd = i;
    if (i < end && text[i] == u'\r' && i + 1 < end && text[i + 1] == u'\n') ++i;
    *next = i < end ? i + 1 : i;
}

bool MeasureLine(const GdiFont* font, const WCHAR* text, int64_t start, int64_t end, int64_t* width) {
    int64_t w = 0;
    for (int64_t i = start; i < end;) {
        int advance = 0;
        if (!LoadGlyph(font, NextCodePoint(text, end, &i), false, &advance)) return false;
        w += advance;
        if (w > kGdiMaxTextExtent) return false;
    }
    *width = w;
    return true;
}

bool DrawLine(const GdiFont* font, const WCHAR* text, int64_t start, int64_t end, const GdiSurface& s,
              const Clip& clip, int64_t x, int64_t baseline, DWORD raw) {
    for (int64_t i = start; i < end;) {
        int advance = 0;
        if (!LoadGlyph(font, NextCodePoint(text, end, &i), true, &advance)) return false;
        const FT_GlyphSlot slot = font->face->glyph;
        const FT_Bitmap& bm = slot->bitmap;
        if (bm.pixel_mode == FT_PIXEL_MODE_MONO) {
            int64_t gx = x + slot->bitmap_left, gy = baseline - slot->bitmap_top;
            for (unsigned r = 0; r < bm.rows; ++r) {
                int64_t y = gy + r;
                if (y < clip.y0 || y >= clip.y1) continue;
                const unsigned char* src = bm.buffer + int64_t(r) * bm.pitch;
                BYTE* row = s.Row(LONG(y));
                for (unsigned c = 0; c < bm.width; ++c) {
                    int64_t px = gx + c;
                    if ((src[c >> 3] & (0x80u >> (c & 7))) && px >= clip.x0 && px < clip.x1)
                        GdiPutRaw(row, LONG(px), s.bpp, raw);
                }
            }
        }
        x += advance;
    }
    return true;
}

int DrawTextLow(GdiDcTag* d, const WCHAR* text, int64_t length, RECT* rect, UINT format) {
    GdiFont* font = GdiDcFont(d);
    if (!font) return 0;
    const bool single = (format & DT_SINGLELINE) != 0;
    const int64_t lineHeight = font->lineHeight;

    // Measure: the widest line and the number of lines.
    int64_t widest = 0, lines = 0;
    for (int64_t pos = 0; pos < length;) {
        int64_t lineEnd, next, width;
        LineBounds(text, pos, length, single, &lineEnd, &next);
        if (!MeasureLine(font, text, pos, lineEnd, &width)) return 0;
        if (width > widest) widest = width;
        ++lines;
        pos = next;
    }
    // A text ending in a line break has an empty last line.
    if (!single && length > 0 && (text[length - 1] == u'\n' || text[length - 1] == u'\r')) ++lines;
    const int64_t height = lines * lineHeight;
    if (height > kGdiMaxTextExtent) return 0;
    if (format & DT_CALCRECT) {
        rect->right = LONG(int64_t(rect->left) + widest > INT32_MAX ? INT32_MAX : rect->left + widest);
        rect->bottom = LONG(int64_t(rect->top) + height > INT32_MAX ? INT32_MAX : rect->top + height);
        return int(height);
    }

    GdiSurface s;
    if (!GdiDcSurface(d, &s)) return int(height);
    Clip clip{0, 0, s.width, s.height};
    if (!(format & DT_NOCLIP)) {
        if (rect->left > clip.x0) clip.x0 = rect->left;
        if (rect->top > clip.y0) clip.y0 = rect->top;
        if (rect->right < clip.x1) clip.x1 = rect->right;
        if (rect->bottom < clip.y1) clip.y1 = rect->bottom;
    }
    if (clip.x0 >= clip.x1 || clip.y0 >= clip.y1) return int(height);

    const DWORD textRaw = GdiColourToRaw(s, d->textColour);
    const DWORD bkRaw = GdiColourToRaw(s, d->bkColour);
    int64_t top = rect->top;
    if (single && (format & DT_VCENTER)) top += (int64_t(rect->bottom) - rect->top - lineHeight) / 2;
    else if (single && (format & DT_BOTTOM)) top = int64_t(rect->bottom) - lineHeight;

    for (int64_t pos = 0; pos < length; top += lineHeight) {
        int64_t lineEnd, next, width;
        LineBounds(text, pos, length, single, &lineEnd, &next);
        if (!MeasureLine(font, text, pos, lineEnd, &width)) return 0;
        int64_t x = rect->left;
        if (format & DT_CENTER) x += (int64_t(rect->right) - rect->left - width) / 2;
        else if (format & DT_RIGHT) x = int64_t(rect->right) - width;
        if (d->bkMode == OPAQUE) {
            Clip box{x > clip.x0 ? x : clip.x0, top > clip.y0 ? top : clip.y0,
                     x + width < clip.x1 ? x + width : clip.x1,
                     top + lineHeight < clip.y1 ? top + lineHeight : clip.y1};
            if (box.x0 < box.x1 && box.y0 < box.y1) GdiFillRect(s, box.x0, box.y0, box.x1, box.y1, bkRaw);
        }
        if (top < clip.y1 && top + lineHeight > clip.y0 &&
            !DrawLine(font, text, pos, lineEnd, s, clip, x, top + font->ascent, textRaw))
            return 0;
        pos = next;
    }
    return int(height);
}

}  // namespace

extern "C" int DrawTextW(HDC dc, const WCHAR* text, int count, RECT* rect, UINT format) {
    GdiDcTag* d = GdiLookupDc(dc);
    if (!d || !text || !rect) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    int64_t length = count;
    if (count < 0) {
        length = 0;
        while (length <= kGdiMaxTextChars && text[length]) ++length;
    }
    if (length > kGdiMaxTextChars) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (length == 0) {
        if (format & DT_CALCRECT) {
            rect->right = rect->left;
            rect->bottom = rect->top;
        }
        return 0;
    }
    return DrawTextLow(d, text, length, rect, format);
}
