// DIB sections and the registry of live graphics objects. A DIB section is
// plain memory: header, colour table and a bottom-up pixel store, at any
// depth the header names (1, 2, 4, 8, 16, 24 or 32 bits).
#include "gdiobj.h"

#include <cstring>
#include <utility>

namespace {

// Largest pixel store a DIB section may have.
constexpr int64_t kMaxStoreBytes = int64_t(1) << 30;

PlatHandleSet g_objects;

void DestroyBitmap(GdiObjectTag* self) {
    auto* bm = static_cast<GdiBitmap*>(self);
    PlatFree(bm->bits);
    PlatFree(bm);
}

int DescribeBitmap(GdiObjectTag* self, int bytes, void* out) {
    auto* bm = static_cast<GdiBitmap*>(self);
    DIBSECTION ds;
    std::memset(&ds, 0, sizeof ds);
    ds.dsBm.bmType = 0;
    ds.dsBm.bmWidth = bm->header.biWidth;
    ds.dsBm.bmHeight = bm->header.biHeight;
    ds.dsBm.bmWidthBytes = bm->stride;
    ds.dsBm.bmPlanes = 1;
    ds.dsBm.bmBitsPixel = bm->header.biBitCount;
    ds.dsBm.bmBits = bm->bits;
    ds.dsBmih = bm->header;
    if (!out) return static_cast<int>(sizeof ds);
    if (bytes >= static_cast<int>(sizeof(DIBSECTION))) {
        std::memcpy(out, &ds, sizeof ds);
        return static_cast<int>(sizeof ds);
    }
    if (bytes >= static_cast<int>(sizeof(BITMAP))) {
        std::memcpy(out, &ds.dsBm, sizeof(BITMAP));
        return static_cast<int>(sizeof(BITMAP));
    }
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
}

// Bytes of a section's pixel store, as made.
int64_t StoreBytes(const GdiBitmap* bm) {
    int64_t store = int64_t(bm->stride) * bm->header.biHeight;
    return int64_t(bm->header.biSizeImage) > store ? int64_t(bm->header.biSizeImage) : store;
}

bool ValidDepth(WORD bits) {
    return bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32;
}

}  // namespace

void GdiRegister(GdiObjectTag* object) { g_objects.Insert(object, &object->link); }

void GdiUnregister(GdiObjectTag* object) { g_objects.Erase(object); }

GdiObjectTag* GdiLookup(const void* handle, GdiType type) {
    auto* object = static_cast<GdiObjectTag*>(const_cast<void*>(handle));
    return g_objects.ContainsWhere(handle, [object, type] { return object->type == type; }) ? object : nullptr;
}

uint32_t GdiTypeOf(const void* handle) {
    auto* object = static_cast<const GdiObjectTag*>(handle);
    uint32_t type = 0;
    g_objects.ContainsWhere(handle, [object, &type] {
        type = object->type;
        return true;
    });
    return type;
}

extern "C" {

namespace {

// The one maker of sections: probe says whether the info block may be
// unreadable (a caller's), zero whether the store starts cleared.
HBITMAP MakeSection(const BITMAPINFO* info, void** bits, bool probe, bool zero) {
    if (bits) *bits = nullptr;
    if (!info || (probe && IsBadReadPtr(info, sizeof(BITMAPINFOHEADER)))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    const BITMAPINFOHEADER& h = info->bmiHeader;
    // Top-down sections and compressed layouts are not made here.
    if (h.biWidth <= 0 || h.biHeight <= 0 || h.biPlanes != 1 || !ValidDepth(h.biBitCount) ||
        (h.biCompression != BI_RGB && !(h.biCompression == 3 && h.biBitCount >= 16))) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    int64_t stride = ((int64_t(h.biWidth) * h.biBitCount + 31) / 32) * 4;
    int64_t store = stride * h.biHeight;
    if (int64_t(h.biSizeImage) > store) store = h.biSizeImage;
    if (stride > INT32_MAX || store > kMaxStoreBytes) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    auto* bm = static_cast<GdiBitmap*>(PlatAlloc(sizeof(GdiBitmap), true));
    if (!bm) return nullptr;
    bm->bits = static_cast<BYTE*>(PlatAlloc(static_cast<size_t>(store), zero));
    if (!bm->bits) {
        PlatFree(bm);
        return nullptr;
    }
    bm->type = GDI_BITMAP;
    bm->destroy = DestroyBitmap;
    bm->describe = DescribeBitmap;
    bm->header = h;
    bm->stride = static_cast<LONG>(stride);
    if (h.biBitCount <= 8) {
        DWORD maxColors = 1u << h.biBitCount;
        DWORD n = h.biClrUsed ? h.biClrUsed : maxColors;
        if (n > maxColors) n = maxColors;
        // The table stands at byte 40, behind the fixed-size header.
        const auto* table = reinterpret_cast<const RGBQUAD*>(reinterpret_cast<const BYTE*>(info) + 40);
        if (probe && IsBadReadPtr(table, n * sizeof(RGBQUAD))) {
            DestroyBitmap(bm);
            SetLastError(ERROR_INVALID_PARAMETER);
            return nullptr;
        }
        std::memcpy(bm->colors, table, n * sizeof(RGBQUAD));
        bm->colorCount = n;
    }
    GdiRegister(bm);
    if (bits) *bits = bm->bits;
    return bm;
}

}  // namespace

HBITMAP CreateDIBSection(HDC /*dc*/, const BITMAPINFO* info, UINT usage, void** bits,
                         HANDLE /*section*/, DWORD /*offset*/) {
    if (usage != DIB_RGB_COLORS) {
        if (bits) *bits = nullptr;
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    return MakeSection(info, bits, true, true);
}

HBITMAP PlatCreateOwnDIBSection(const BITMAPINFO* info, void** bits, BOOL zero) {
    return MakeSection(info, bits, false, zero != FALSE);
}

BOOL PlatExchangeDIBSectionStores(HBITMAP a, HBITMAP b) {
    GdiBitmap* x = GdiLookupBitmap(a);
    GdiBitmap* y = GdiLookupBitmap(b);
    if (!x || !y || x == y || x->header.biWidth != y->header.biWidth || x->header.biHeight != y->header.biHeight ||
        x->header.biBitCount != y->header.biBitCount || x->stride != y->stride || StoreBytes(x) != StoreBytes(y)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    std::swap(x->bits, y->bits);
    return TRUE;
}

int GetObjectW(HGDIOBJ object, int bytes, void* out) {
    uint32_t type = GdiTypeOf(object);
    if (!type || !object->describe) {
        SetLastError(ERROR_INVALID_HANDLE);
        return 0;
    }
    return object->describe(object, bytes, out);
}

BOOL DeleteObject(HGDIOBJ object) {
    uint32_t type = GdiTypeOf(object);
    if (!type) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // A bitmap still selected into a device context stays, as on the device.
    if (type == GDI_BITMAP && static_cast<GdiBitmap*>(object)->selectedInto > 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    GdiUnregister(object);
    if (object->destroy) object->destroy(object);
    return TRUE;
}

}  // extern "C"
