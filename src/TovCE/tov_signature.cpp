// Exports of signature capture: tovSigDraw draws a stroke record into a
// caller's context, tovSigSave makes a picture file of it: the strokes on a
// white page, reduced to one bit, with a line of text under them.
#include "dibgfx.h"
#include "tovce.h"

#include <cstring>

namespace {

DWORD SaveAs(HDIB picture, const WCHAR* fileName, DWORD format, DWORD quality) {
    if (format == tovFormatPNG) return tovSavePNG(picture, fileName);
    if (format == tovFormatBMP) return tovSaveBMP(picture, fileName);
    return tovSaveJPG(picture, fileName, quality);  // every other number
}

// A size that a LONG cannot hold becomes 0, which bitmap creation refuses.
LONG ToLong(int64_t v) { return v < INT32_MIN || v > INT32_MAX ? 0 : LONG(v); }

}  // namespace

extern "C" {

DWORD tovSigDraw(HDC dc, const void* record, COLORREF colour, LONG penWidth) {
    try {
        return DibSigDraw(dc, record, colour, penWidth);
    } catch (...) {
        return tovErrorUnknown;
    }
}

// Checks nothing of its own: a page or measurement that fails leaves its
// mark in the trace and in the file, and the save function's code is the
// result.
DWORD tovSigSave(const WCHAR* fileName, DWORD format, DWORD quality, const void* record, const WCHAR* text,
                 BOOL rotate, COLORREF colour, LONG penWidth) {
    try {
        HDC pageDc = CreateCompatibleDC(nullptr);
        HDC pictureDc = CreateCompatibleDC(nullptr);
        LONG w = 0, h = 0;
        if (record && !IsBadReadPtr(record, DIB_SIG_HEADER_BYTES)) {
            std::memcpy(&w, record, sizeof w);
            std::memcpy(&h, static_cast<const BYTE*>(record) + 4, sizeof h);
        }

        HDIB page = tovCreateHDIBExt(w, h, 255, format == tovFormatPNG ? 1 : 8);
        HGDIOBJ oldPage = nullptr;
        if (pageDc) {
            HBITMAP bitmap = tovBitmapHandle(page);
            if (bitmap) oldPage = SelectObject(pageDc, bitmap);
        }
        tovSigDraw(pageDc, record, colour, penWidth);

        // Measured in the context's stock font, not the overlay's.
        RECT box = {0, 0, w, 0};
        if (pageDc && text) DrawTextW(pageDc, text, -1, &box, DT_CALCRECT);
        const LONG th = box.bottom;

        HDIB picture = tovCreateHDIBExt(w, ToLong(int64_t(h) + th), 255, 1);
        HGDIOBJ oldPicture = nullptr;
        if (pictureDc) {
            HBITMAP bitmap = tovBitmapHandle(picture);
            if (bitmap) oldPicture = SelectObject(pictureDc, bitmap);
        }
        if (oldPage && oldPicture) {
            if (!rotate) BitBlt(pictureDc, 0, 0, w, h, pageDc, 0, 0, SRCCOPY);
            else StretchBlt(pictureDc, w, h, -w, -h, pageDc, 0, 0, w, h, SRCCOPY);  // turned by 180 degrees
        }
        if (oldPage) SelectObject(pageDc, oldPage);
        if (oldPicture) SelectObject(pictureDc, oldPicture);
        if (pageDc) DeleteDC(pageDc);
        if (pictureDc) DeleteDC(pictureDc);

        tovOverlayBuffer(picture, text, DibOverlayBottomLeft, 12, SRCCOPY);
        DWORD result = SaveAs(picture, fileName, format, quality);
        if (picture) DibUnload(picture);
        if (page) DibUnload(page);
        return result;
    } catch (...) {
        return tovErrorUnknown;
    }
}

}  // extern "C"
