/*
 * Signature strokes.
 *
 *   DibSigDraw   draws the strokes of a stroke record with a solid pen
 *
 * The record is the caller's memory and carries no length: only its counts
 * bound it. Each part is checked for readability before it is read, and
 * points are copied out in chunks, so a record that ends early, lies about
 * its counts or sits at an odd address stops the drawing instead of the
 * process. A stroke longer than one chunk continues from the chunk's last
 * point, so it is drawn unbroken.
 */
#include "dibgfx.h"

#include <cstring>

namespace {

constexpr int kChunkPoints = 256;

void DrawStroke(HDC dc, const BYTE* points, DWORD count, bool* readable) {
    POINT chunk[kChunkPoints];
    DWORD done = 0;
    while (done < count) {
        // Every chunk after the first starts again at the point before it.
        DWORD first = done == 0 ? 0 : done - 1;
        DWORD n = count - first < DWORD(kChunkPoints) ? count - first : DWORD(kChunkPoints);
        const BYTE* from = points + size_t(first) * sizeof(POINT);
        if (IsBadReadPtr(from, size_t(n) * sizeof(POINT))) {
            *readable = false;
            return;
        }
        std::memcpy(chunk, from, size_t(n) * sizeof(POINT));
        Polyline(dc, chunk, int(n));
        done = first + n;
    }
}

}  // namespace

extern "C" DWORD DibSigDraw(HDC dc, const void* record, COLORREF colour, LONG penWidth) {
    if (!dc || !record || penWidth == 0) return DibErrorInvalidParm;
    HPEN pen = CreatePen(PS_SOLID, penWidth, colour);
    HGDIOBJ oldPen = pen ? SelectObject(dc, pen) : nullptr;
    const BYTE* p = static_cast<const BYTE*>(record);
    if (!IsBadReadPtr(p, DIB_SIG_HEADER_BYTES)) {
        LONG strokes;
        std::memcpy(&strokes, p + 8, sizeof strokes);
        p += DIB_SIG_HEADER_BYTES;
        bool readable = true;
        for (LONG i = 0; i < strokes && readable; ++i) {
            DWORD count;
            if (IsBadReadPtr(p, sizeof count)) break;
            std::memcpy(&count, p, sizeof count);
            if (count > DIB_SIG_MAX_POINTS) break;
            if (count > 0) DrawStroke(dc, p + sizeof count, count, &readable);
            p += sizeof count + size_t(count) * sizeof(POINT);
        }
    }
    if (oldPen) SelectObject(dc, oldPen);
    if (pen) DeleteObject(pen);
    return DibOk;
}
