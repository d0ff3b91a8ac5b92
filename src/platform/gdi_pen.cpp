// Pens and Polyline.
//
// A line is the set of pixels nearest to the exact segment, one per step of
// its longer axis, each computed on its own (no running error term) so that
// a segment reaching far off the surface is walked only where it can touch
// it. Pens wider than one pixel stamp a round tip of that diameter at each
// of those pixels, which also rounds the joins between segments. Unlike the
// device, a polyline of a single point draws one tip: a tap of the pen is a
// dot of a signature.
#include "gdidc.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

struct LogPen {  // the layout of LOGPEN for GetObjectW
    UINT style;
    POINT width;
    COLORREF colour;
};

void DestroyPen(GdiObjectTag* self) { PlatFree(self); }

int DescribePen(GdiObjectTag* self, int bytes, void* out) {
    auto* pen = static_cast<GdiPen*>(self);
    return GdiDescribeAs(LogPen{UINT(pen->style), POINT{pen->width, 0}, pen->colour}, bytes, out);
}

// The round tip: for each row of the tip, the columns it covers.
struct Tip {
    int lo = 0, hi = 0;  // offsets of the first and last row and column
    int left[kGdiMaxPenWidth];
    int right[kGdiMaxPenWidth];
};

void MakeTip(int width, Tip* tip) {
    tip->lo = -(width - 1) / 2;
    tip->hi = width / 2;
    // Centre at (c, c) relative to the pixel drawn: between pixels for even widths.
    double c = (width % 2 == 0) ? 0.5 : 0.0, r2 = (width / 2.0) * (width / 2.0);
    for (int oy = tip->lo; oy <= tip->hi; ++oy) {
        int left = tip->hi + 1, right = tip->lo - 1;
        for (int ox = tip->lo; ox <= tip->hi; ++ox) {
            double fx = ox - c, fy = oy - c;
            if (fx * fx + fy * fy <= r2) {
                if (ox < left) left = ox;
                right = ox;
            }
        }
        tip->left[oy - tip->lo] = left;
        tip->right[oy - tip->lo] = right;
    }
}

struct LineDrawer {
    const GdiSurface& s;
    DWORD raw;
    int width;
    const Tip* tip;

    void Plot(int64_t x, int64_t y) const {
        if (width <= 1) {
            if (x >= 0 && y >= 0 && x < s.width && y < s.height) GdiPutRaw(s.Row(LONG(y)), LONG(x), s.bpp, raw);
            return;
        }
        for (int oy = tip->lo; oy <= tip->hi; ++oy) {
            int l = tip->left[oy - tip->lo], r = tip->right[oy - tip->lo];
            if (l <= r) GdiFillRect(s, x + l, y + oy, x + r + 1, y + oy + 1, raw);
        }
    }

    // a / b rounded to the nearest integer, halves away from zero; b != 0.
    static int64_t RoundDiv(__int128 a, __int128 b) {
        if (b < 0) {
            a = -a;
            b = -b;
        }
        return int64_t(a >= 0 ? (2 * a + b) / (2 * b) : -((-2 * a + b) / (2 * b)));
    }

    void Segment(int64_t x0, int64_t y0, int64_t x1, int64_t y1) const {
        int64_t dx = x1 - x0, dy = y1 - y0;
        bool xMajor = std::llabs(dx) >= std::llabs(dy);
        if (dx == 0 && dy == 0) {
            Plot(x0, y0);
            return;
        }
        // Always from the lower end of the major axis, so that a segment
        // drawn backwards hits the same pixels.
        if ((xMajor ? dx : dy) < 0) {
            std::swap(x0, x1);
            std::swap(y0, y1);
            dx = -dx;
            dy = -dy;
        }
        // Walk the major axis only across the surface and the tip's reach.
        int64_t a0 = xMajor ? x0 : y0, a1 = xMajor ? x1 : y1;
        int64_t lowLimit = -int64_t(tip ? tip->hi : 0) - 1;
        int64_t highLimit = (xMajor ? s.width : s.height) + int64_t(tip ? -tip->lo : 0) + 1;
        int64_t from = a0 < a1 ? a0 : a1, to = a0 < a1 ? a1 : a0;
        if (from < lowLimit) from = lowLimit;
        if (to > highLimit) to = highLimit;
        int64_t da = xMajor ? dx : dy, db = xMajor ? dy : dx, b0 = xMajor ? y0 : x0;
        for (int64_t a = from; a <= to; ++a) {
            int64_t b = b0 + RoundDiv(__int128(db) * (a - a0), da);
            if (xMajor) Plot(a, b);
            else Plot(b, a);
        }
    }
};

}  // namespace

void GdiFillRect(const GdiSurface& s, int64_t x0, int64_t y0, int64_t x1, int64_t y1, DWORD raw) {
    if (x0 < 0) x0 = 0;
    if (y0 < 0) y0 = 0;
    if (x1 > s.width) x1 = s.width;
    if (y1 > s.height) y1 = s.height;
    for (int64_t y = y0; y < y1; ++y) {
        BYTE* row = s.Row(LONG(y));
        if (s.bpp == 8) {
            if (x1 > x0) std::memset(row + x0, int(raw & 255u), size_t(x1 - x0));
            continue;
        }
        for (int64_t x = x0; x < x1; ++x) GdiPutRaw(row, LONG(x), s.bpp, raw);
    }
}

extern "C" {

HPEN CreatePen(int style, int width, COLORREF colour) {
    if (style != PS_SOLID && style != PS_NULL) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    auto* pen = PlatNew<GdiPen>();
    if (!pen) return nullptr;
    pen->type = GDI_PEN;
    pen->destroy = DestroyPen;
    pen->describe = DescribePen;
    pen->style = style;
    int64_t w = std::llabs(int64_t(width));
    pen->width = w < 1 ? 1 : (w > kGdiMaxPenWidth ? kGdiMaxPenWidth : int(w));
    pen->colour = colour & 0x00FFFFFFu;
    GdiRegister(pen);
    return pen;
}

BOOL Polyline(HDC dc, const POINT* points, int count) {
    GdiDcTag* d = GdiLookupDc(dc);
    if (!d || !points || count < 1) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    const GdiPen* pen = GdiDcPen(d);
    GdiSurface s;
    if (pen->style == PS_NULL || !GdiDcSurface(d, &s)) return TRUE;
    Tip* tip = nullptr;
    if (pen->width > 1) {
        tip = static_cast<Tip*>(PlatAlloc(sizeof(Tip), false));
        if (!tip) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return FALSE;
        }
        MakeTip(pen->width, tip);
    }
    LineDrawer line{s, GdiColourToRaw(s, pen->colour), pen->width, tip};
    if (count == 1) line.Plot(points[0].x, points[0].y);
    for (int i = 1; i < count; ++i) line.Segment(points[i - 1].x, points[i - 1].y, points[i].x, points[i].y);
    PlatFree(tip);
    return TRUE;
}

}  // extern "C"
