// Export tovDisplayImage: draws a bitmap into a device context, fitted to a
// rectangle or scaled by a percentage, optionally centred in it.
#include "tovce.h"

namespace {

constexpr LONG kMinPercent = 10;
constexpr LONG kMaxPercent = 10000;

// Sizes and offsets are worked out in 64 bits; what a LONG cannot hold is
// pinned to its range, which draws nothing visible.
LONG Pin(int64_t v) { return v < INT32_MIN ? INT32_MIN : v > INT32_MAX ? INT32_MAX : LONG(v); }

}  // namespace

extern "C" DWORD tovDisplayImage(HDIB hDib, HDC hDC, const RECT* rect, BOOL fit, LONG percent, BYTE centre) {
    try {
        if (tovHDIBIsValid(hDib) != tovOk) return DibErrorInvalidDIB;
        if (tovCannotRead(rect) || IsBadReadPtr(rect, sizeof(RECT)) || percent < kMinPercent ||
            percent > kMaxPercent || !hDC)
            return DibErrorInvalidParm;

        const LONG W = tovWidth(hDib), H = tovHeight(hDib);
        const int64_t rectWidth = int64_t(rect->right) - rect->left, rectHeight = int64_t(rect->bottom) - rect->top;
        int64_t x = rect->left, y = rect->top, width, height;
        if (fit) {
            width = rectWidth;  // fills the rectangle; the aspect ratio is not kept
            height = rectHeight;
        } else {
            const double f = percent * 0.01;
            width = int64_t(W * f);
            height = int64_t(H * f);
            if (centre) {
                x += (rectWidth - width) / 2;
                y += (rectHeight - height) / 2;
            }
        }

        HDC dc = CreateCompatibleDC(hDC);
        if (dc) {
            HGDIOBJ old = SelectObject(dc, tovBitmapHandle(hDib));
            if (old) {
                StretchBlt(hDC, Pin(x), Pin(y), Pin(width), Pin(height), dc, 0, 0, W, H, SRCCOPY);
                SelectObject(dc, old);
            }
            DeleteDC(dc);
        }
        return tovOk;
    } catch (...) {
        return tovErrorUnknown;
    }
}
