// The record behind an HDIB: the registry of live records, validation, the
// accessors, creation and re-creation from an info block, resizing, copying,
// unloading and the dump.
//
// Every creator checks the header before it allocates: sizes are worked out
// in 64 bits against the limits of dibce.h, and the colour table must be
// readable where the block says it is.
#include "dibce.h"

#include <tovrel/handleset.h>

#include <atomic>
#include <cstring>
#include <utility>

namespace {

// Live records. DibIsValid only reads the signature of a pointer found here,
// so a stale or made-up handle is refused without touching freed memory. A
// record is allocated with its registry link behind it, so registering it
// cannot fail.
struct LiveRecord {
    DibRecord record;  // first: the handle is the record's address
    PlatHandleLink link;
};
PlatHandleSet g_records;

std::atomic<LONG> g_dibCount{0};

void Register(DibRecord* record) { g_records.Insert(record, &reinterpret_cast<LiveRecord*>(record)->link); }

void Unregister(const DibRecord* record) { g_records.Erase(record); }

// 0: live with the signature; 1: not live but readable; 2: unreadable.
int Lookup(const DibRecord* record) {
    if (g_records.ContainsWhere(record, [record] { return record->iSignature == DIB_SIGNATURE; })) return 0;
    return IsBadReadPtr(record, sizeof(DibRecord)) ? 2 : 1;
}

// Colours a header asks for: biClrUsed, or the full table at 8 bits or
// fewer, or none above.
DWORD ColoursOf(const BITMAPINFOHEADER& h) {
    if (h.biClrUsed) return h.biClrUsed;
    return h.biBitCount > 8 ? 0 : (1u << h.biBitCount);
}

// The checks that go beyond the platform's: sizes within the limits, a
// bottom-up layout, the fixed header size, a store size (when given) that
// holds every row, a colour table of sane length that can be read behind
// the header.
bool HeaderAcceptable(const BITMAPINFO* info, bool own) {
    const BITMAPINFOHEADER& h = info->bmiHeader;
    if (h.biSize != DIB_HEADER_BYTES) return false;
    if (h.biWidth <= 0 || h.biHeight <= 0 || h.biWidth > DIB_MAX_DIMENSION ||
        h.biHeight > DIB_MAX_DIMENSION || !DibDepthKnown(h.biBitCount))
        return false;
    int64_t store = DibRowBytes(h.biWidth, h.biBitCount) * h.biHeight;
    if (store > DIB_MAX_BITS_BYTES || int64_t(h.biSizeImage) > DIB_MAX_BITS_BYTES) return false;
    // A store size that the rows do not fit in would leave operations that
    // trust DibBitsSize with part of the picture.
    if (h.biSizeImage != 0 && int64_t(h.biSizeImage) < store) return false;
    DWORD colours = ColoursOf(h);
    DWORD most = h.biBitCount <= 8 ? (1u << h.biBitCount) : DIB_MAX_COLORS;
    if (colours > most) return false;
    const BYTE* table = reinterpret_cast<const BYTE*>(info) + DIB_HEADER_BYTES;
    return colours == 0 || own || !IsBadReadPtr(table, size_t(colours) * sizeof(RGBQUAD));
}

// The bottom row comes first in the store. A running pointer: the working
// copies of the large pictures make a table of thousands of rows each time.
void FillRows(DibRecord* r) {
    const LONG height = r->ds.dsBmih.biHeight;
    const size_t stride = static_cast<size_t>(DibRowBytes(r->ds.dsBm.bmWidth, r->ds.dsBm.bmBitsPixel));
    BYTE* row = r->pBits;
    for (LONG y = height; y-- > 0; row += stride) r->ppRow[y] = row;
}

// LocalReAlloc for a table that may be gone (an empty record has none).
void* ResizeTable(void* table, size_t bytes) {
    if (!table) return LocalAlloc(LPTR, bytes);
    return LocalReAlloc(table, bytes, LMEM_MOVEABLE | LMEM_ZEROINIT);
}

// Puts a record whose bitmap is gone into the empty state (see dibce.h).
void MakeEmpty(DibRecord* r) {
    LocalFree(r->ppRow);
    LocalFree(r->pbmiColors);
    r->ppRow = nullptr;
    r->pbmiColors = nullptr;
    r->hBitmap = nullptr;
    r->pBits = nullptr;
    std::memset(&r->ds, 0, sizeof r->ds);
}

void TraceHeader(const WCHAR* const lines[4], const BITMAPINFO* info) {
    const BITMAPINFOHEADER& h = info->bmiHeader;
    DebugTrace(DIB_LEVEL_FRAME, lines[0], h.biHeight);
    DebugTrace(DIB_LEVEL_FRAME, lines[1], h.biWidth);
    DebugTrace(DIB_LEVEL_FRAME, lines[2], h.biBitCount);
    DebugTrace(DIB_LEVEL_FRAME, lines[3], h.biClrUsed);
}

const WCHAR* const kCreateLines[4] = {
    u"   ?DibCreateFromBitmapInfo():bmiHeader.biHeight: %d\r\n",
    u"   ?DibCreateFromBitmapInfo():bmiHeader.biWidth: %d\r\n",
    u"   ?DibCreateFromBitmapInfo():bmiHeader.biBitCount: %d\r\n",
    u"   ?DibCreateFromBitmapInfo():bmiHeader.biClrUsed: %d\r\n",
};
const WCHAR* const kReCreateLines[4] = {
    u"   ?DibReCreateFromBitmapInfo():bmiHeader.biHeight: %d\r\n",
    u"   ?DibReCreateFromBitmapInfo():bmiHeader.biWidth: %d\r\n",
    u"   ?DibReCreateFromBitmapInfo():bmiHeader.biBitCount: %d\r\n",
    u"   ?DibReCreateFromBitmapInfo():bmiHeader.biClrUsed: %d\r\n",
};

// An info block of the library's own making (own) is readable by
// construction and is not probed.
bool InfoReadable(const BITMAPINFO* info, bool own) {
    return info && (own || !IsBadReadPtr(info, sizeof(BITMAPINFOHEADER)));
}

HBITMAP MakeSection(const BITMAPINFO* info, void** bits, bool own, bool zero) {
    if (own) return PlatCreateOwnDIBSection(info, bits, zero ? TRUE : FALSE);
    return CreateDIBSection(nullptr, info, DIB_RGB_COLORS, bits, nullptr, 0);
}

// An info block for the record's own header and colours. NULL when the
// allocation fails.
BITMAPINFO* InfoBlockOf(DibRecord* r, LONG width, LONG height) {
    DWORD colours = DibNumColors(r);
    BITMAPINFO* bmi = DibNewInfoBlock(width, height, colours);
    if (!bmi) return nullptr;
    bmi->bmiHeader.biBitCount = DibBitCount(r);
    if (colours && r->pbmiColors)
        std::memcpy(reinterpret_cast<BYTE*>(bmi) + DIB_HEADER_BYTES, r->pbmiColors, size_t(colours) * 4);
    return bmi;
}

}  // namespace

extern "C" {

BITMAPINFO* DibNewInfoBlock(LONG width, LONG height, DWORD colours) {
    auto* bmi = static_cast<BITMAPINFO*>(LocalAlloc(LPTR, (size_t(colours) + 10) * 4));
    if (!bmi) return nullptr;
    BITMAPINFOHEADER& h = bmi->bmiHeader;
    h.biSize = DIB_HEADER_BYTES;
    h.biWidth = width;
    h.biHeight = height;
    h.biPlanes = 1;
    h.biClrUsed = colours;
    return bmi;
}

BOOL DibDepthKnown(DWORD bitcount) {
    switch (bitcount) {
    case 1: case 4: case 8: case 16: case 24: case 32: return TRUE;
    default: return FALSE;
    }
}

int64_t DibRowBytes(int64_t width, int64_t bitcount) {
    if (width < 0 || bitcount < 0) return -1;
    return ((bitcount * width + 31) / 32) * 4;
}

LONG DibLiveCount(void) { return g_dibCount.load(); }

DWORD DibIsValid(HDIB hdib) {
    DebugTrace(DIB_LEVEL_VALID, u">DibIsValid(%lld)\r\n", TRACE_PTR(hdib));
    if (!hdib) {
        DebugError(u"   !DibIsValid():pdib == NULL:Error\r\n");
        return DibErrorInvalidDIB;
    }
    switch (Lookup(hdib)) {
    case 2:
        DebugError(u"   !DibIsValid():IsBadReadPtr:Error\r\n");
        return DibErrorInvalidDIB;
    case 1:
        DebugError(u"   !DibIsValid():pdib->iSignature:Error\r\n");
        return DibErrorInvalidDIB;
    default:
        break;
    }
    DebugTrace(DIB_LEVEL_VALID, u"<DibIsValid()=DibOk\r\n");
    return DibOk;
}

BOOL DibHasBitmap(HDIB hdib) {
    return DibIsValid(hdib) == DibOk && hdib->hBitmap != nullptr;
}

HBITMAP DibBitmapHandle(HDIB hdib) {
    DebugTrace(DIB_LEVEL_ACCESSOR, u">DibBitmapHandle(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return nullptr;
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibBitmapHandle()=%lld\r\n", TRACE_PTR(hdib->hBitmap));
    return hdib->hBitmap;
}

LONG DibWidth(HDIB hdib) {
    DebugTrace(DIB_LEVEL_ACCESSOR, u">DibWidth(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return 0;
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibWidth()=%d\r\n", hdib->ds.dsBm.bmWidth);
    return hdib->ds.dsBm.bmWidth;
}

LONG DibHeight(HDIB hdib) {
    DebugTrace(DIB_LEVEL_ACCESSOR, u">DibHeight(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return 0;
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibHeight()=%d\r\n", hdib->ds.dsBm.bmHeight);
    return hdib->ds.dsBm.bmHeight;
}

WORD DibColorPlanes(HDIB hdib) {
    DebugTrace(DIB_LEVEL_ACCESSOR, u">DibColorPlanes(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return 0;
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibColorPlanes()=%d\r\n", int(hdib->ds.dsBmih.biPlanes));
    return hdib->ds.dsBmih.biPlanes;
}

WORD DibBitCount(HDIB hdib) {
    DebugTrace(DIB_LEVEL_ACCESSOR, u">DibBitCount(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return 0;
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibBitCount()=%d\r\n", int(hdib->ds.dsBm.bmBitsPixel));
    return hdib->ds.dsBm.bmBitsPixel;
}

LONG DibRowLength(HDIB hdib) {
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibRowLength(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return 0;
    // Width and depth are bounded at creation, so the result fits.
    LONG width = DibWidth(hdib);
    WORD bits = DibBitCount(hdib);
    LONG length = LONG(DibRowBytes(width, bits));
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibRowLength()=%d\r\n", length);
    return length;
}

DWORD DibNumColors(HDIB hdib) {
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibNumColors(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return 0;
    DWORD colours = hdib->ds.dsBmih.biClrUsed;
    if (!colours) {
        WORD bits = DibBitCount(hdib);
        // An empty record (depth 0) has no colours at all.
        colours = (bits > 8 || bits == 0) ? 0 : (1u << bits);
    }
    DebugTrace(DIB_LEVEL_ACCESSOR, u"<DibNumColors()=%d\r\n", colours);
    return colours;
}

DWORD DibHeaderSize(HDIB hdib) {
    if (DibIsValid(hdib)) return 0;
    return hdib->ds.dsBmih.biSize;
}

DWORD DibPaletteSize(HDIB hdib) { return DibNumColors(hdib) * 4; }

DWORD DibInfoSize(HDIB hdib) { return DibHeaderSize(hdib) + DibPaletteSize(hdib); }

DWORD DibBitsSize(HDIB hdib) {
    if (DibIsValid(hdib)) return 0;
    if (hdib->ds.dsBmih.biSizeImage) return hdib->ds.dsBmih.biSizeImage;
    LONG height = DibHeight(hdib);
    return DWORD(int64_t(height) * DibRowLength(hdib));
}

DWORD DibTotalSize(HDIB hdib) {
    return DibHeaderSize(hdib) + DibPaletteSize(hdib) + DibBitsSize(hdib);
}

BITMAPINFOHEADER* DibInfoHeaderPtr(HDIB hdib) {
    if (DibIsValid(hdib)) return nullptr;
    return &hdib->ds.dsBmih;
}

BYTE* DibBitsPtr(HDIB hdib) {
    if (DibIsValid(hdib)) return nullptr;
    return hdib->pBits;
}

}  // extern "C"

namespace {

// DibCreateFromBitmapInfo, also for the library's own info blocks (own: not
// probed) and stores that the caller fills whole (zero false).
HDIB Create(const BITMAPINFO* info, bool own, bool zero) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibCreateFromBitmapInfo(%lld)\r\n", TRACE_PTR(info));
    if (!InfoReadable(info, own)) {
        DebugError(u"   !DibCreateFromBitmapInfo():bmi:Error\r\n");
        return nullptr;
    }
    const BITMAPINFOHEADER& h = info->bmiHeader;
    TraceHeader(kCreateLines, info);
    DebugMemoryStatus(DIB_LEVEL_FRAME);
    if (h.biHeight == 0 || h.biWidth == 0 || h.biBitCount == 0) return nullptr;
    if (!HeaderAcceptable(info, own)) {
        DebugError(u"   !DibCreateFromBitmapInfo():bmiHeader:Error\r\n");
        return nullptr;
    }

    void* bits = nullptr;
    HBITMAP bitmap = MakeSection(info, &bits, own, zero);
    if (!bitmap) {
        DebugError(u"   !DibCreateFromBitmapInfo():hBitmap = NULL:Error\r\n");
        DebugError(u"   !DibCreateFromBitmapInfo():GetLastError=%d\r\n", GetLastError());
        DebugMemoryStatus(DIB_LEVEL_FRAME);
        return nullptr;
    }
    auto* r = static_cast<DibRecord*>(LocalAlloc(LPTR, sizeof(LiveRecord)));
    if (!r) {
        DebugError(u"   !DibCreateFromBitmapInfo():LocalAlloc:pdib:Error\r\n");
        DeleteObject(bitmap);
        return nullptr;
    }
    r->hBitmap = bitmap;
    r->iSignature = DIB_SIGNATURE;
    r->pBits = static_cast<BYTE*>(bits);

    auto fail = [r]() -> HDIB {
        LocalFree(r->ppRow);
        LocalFree(r->pbmiColors);
        DeleteObject(r->hBitmap);
        r->iSignature = 0;
        LocalFree(r);
        return nullptr;
    };
    if (!GetObjectW(bitmap, sizeof(DIBSECTION), &r->ds)) {
        DebugError(u"   !DibCreateFromBitmapInfo():GetObject:Error\r\n");
        DebugError(u"   !DibCreateFromBitmapInfo():GetLastError=%d\r\n", GetLastError());
        DebugMemoryStatus(DIB_LEVEL_FRAME);
        return fail();
    }
    if (r->ds.dsBmih.biClrUsed == 0) {
        if (r->ds.dsBmih.biBitCount > 8) {
            DebugError(u"   !DibCreateFromBitmapInfo():pdib->ds.dsBmih.biBitCount:Error\r\n");
            return fail();
        }
        r->ds.dsBmih.biClrUsed = 1u << r->ds.dsBmih.biBitCount;
    }
    DWORD colours = r->ds.dsBmih.biClrUsed;
    r->pbmiColors = static_cast<RGBQUAD*>(LocalAlloc(LPTR, size_t(colours) * sizeof(RGBQUAD)));
    if (!r->pbmiColors) {
        DebugError(u"   !DibCreateFromBitmapInfo():LocalAlloc:pdib->pbmiColors:Error\r\n");
        return fail();
    }
    std::memcpy(r->pbmiColors, reinterpret_cast<const BYTE*>(info) + DIB_HEADER_BYTES,
                size_t(colours) * sizeof(RGBQUAD));
    // Not cleared: FillRows writes every entry.
    r->ppRow = static_cast<BYTE**>(LocalAlloc(LMEM_FIXED, size_t(r->ds.dsBmih.biHeight) * sizeof(BYTE*)));
    if (!r->ppRow) {
        DebugError(u"   !DibCreateFromBitmapInfo():LocalAlloc:pdib->ppRow:Error\r\n");
        return fail();
    }
    FillRows(r);
    Register(r);
    LONG count = ++g_dibCount;
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibCreateFromBitmapInfo:DibCount: %d\r\n", count);
    DebugTrace(DIB_LEVEL_FRAME, u"<DibCreateFromBitmapInfo()=%lld\r\n", TRACE_PTR(r));
    return r;
}

// After the old bitmap is deleted every failure leaves the record empty (see
// dibce.h) rather than half-made: the handle stays valid, DibCount keeps it,
// and a later re-creation or DibUnload works on it as on any other record.
// own and zero as for Create.
DWORD ReCreate(const BITMAPINFO* info, HDIB hdib, bool own, bool zero) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibReCreateFromBitmapInfo(%lld,%lld)\r\n", TRACE_PTR(info),
               TRACE_PTR(hdib));
    bool readable = InfoReadable(info, own);
    if (readable) TraceHeader(kReCreateLines, info);
    DebugMemoryStatus(DIB_LEVEL_FRAME);
    if (DibIsValid(hdib)) return DibErrorInvalidDIB;
    if (!readable) return DibErrorInvalidParm;
    const BITMAPINFOHEADER& h = info->bmiHeader;
    if (h.biHeight == 0 || h.biWidth == 0 || h.biBitCount == 0) return DibErrorInvalidParm;
    if (!HeaderAcceptable(info, own)) {
        DebugError(u"   !DibReCreateFromBitmapInfo():bmiHeader:Error\r\n");
        return DibErrorInvalidParm;
    }

    DibRecord* r = hdib;
    if (r->hBitmap && !DeleteObject(r->hBitmap)) {
        DebugError(u"   !DibReCreateFromBitmapInfo():DeleteObject == NULL:Error\r\n");
        return DibErrorUnknown;
    }
    r->hBitmap = nullptr;
    r->pBits = nullptr;

    void* bits = nullptr;
    HBITMAP bitmap = MakeSection(info, &bits, own, zero);
    if (!bitmap) {
        DebugError(u"   !DibReCreateFromBitmapInfo():hBitmap == NULL:Error\r\n");
        DebugError(u"   !DibReCreateFromBitmapInfo():GetLastError=%d\r\n", GetLastError());
        DebugMemoryStatus(DIB_LEVEL_FRAME);
        MakeEmpty(r);
        return DibErrorUnknown;
    }
    DIBSECTION ds;
    if (!GetObjectW(bitmap, sizeof(DIBSECTION), &ds)) {
        DebugError(u"   !DibReCreateFromBitmapInfo():GetObject:Error\r\n");
        DeleteObject(bitmap);
        MakeEmpty(r);
        return DibErrorUnknown;
    }
    auto fail = [r](DWORD code) {
        DeleteObject(r->hBitmap);
        MakeEmpty(r);
        return code;
    };
    r->hBitmap = bitmap;
    r->pBits = static_cast<BYTE*>(bits);
    r->ds = ds;
    if (r->ds.dsBmih.biClrUsed == 0) {
        if (r->ds.dsBmih.biBitCount > 8) {
            DebugError(u"   !DibReCreateFromBitmapInfo():hdib->ds.dsBmih.biBitCount:Error\r\n");
            return fail(DibErrorUnknown);
        }
        r->ds.dsBmih.biClrUsed = 1u << r->ds.dsBmih.biBitCount;
    }
    DWORD colours = r->ds.dsBmih.biClrUsed;
    void* table = ResizeTable(r->pbmiColors, size_t(colours) * sizeof(RGBQUAD));
    if (!table) {
        DebugError(u"   !DibReCreateFromBitmapInfo():LocalReAlloc:hdib->pbmiColors:Error\r\n");
        return fail(DibErrorMemoryAlocation);
    }
    r->pbmiColors = static_cast<RGBQUAD*>(table);
    std::memcpy(r->pbmiColors, reinterpret_cast<const BYTE*>(info) + DIB_HEADER_BYTES,
                size_t(colours) * sizeof(RGBQUAD));
    table = ResizeTable(r->ppRow, size_t(r->ds.dsBmih.biHeight) * sizeof(BYTE*));
    if (!table) {
        DebugError(u"   !DibReCreateFromBitmapInfo():LocalReAlloc:hdib->ppRow:Error\r\n");
        return fail(DibErrorMemoryAlocation);
    }
    r->ppRow = static_cast<BYTE**>(table);
    FillRows(r);
    DebugTrace(DIB_LEVEL_FRAME, u"<DibReCreateFromBitmapInfo()=DibOk\r\n");
    return DibOk;
}

DWORD Resize(HDIB hdib, LONG width, LONG height, bool zero) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibResize(%lld,%d,%d)\r\n", TRACE_PTR(hdib), width, height);
    if (DibIsValid(hdib)) return DibErrorInvalidDIB;
    BITMAPINFO* bmi = InfoBlockOf(hdib, width, height);
    if (!bmi) {
        DebugError(u"   !DibReSize():LocalAlloc:pbmi:Error\r\n");
        return DibErrorUnknown;
    }
    DWORD result = ReCreate(bmi, hdib, true, zero);
    LocalFree(bmi);
    if (result) {
        DebugError(u"   !DibReSize():DibReCreateFromBitmapInfo:Error\r\n");
        return DibErrorUnknown;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<DibResize()=DibOk\r\n");
    return DibOk;
}

HDIB CreateCopy(HDIB hdib, bool fill) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibCreateCopy(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return nullptr;
    BITMAPINFO* bmi = InfoBlockOf(hdib, 0, 0);
    if (!bmi) {
        DebugError(u"   !DibCreateCopy():LocalAlloc:pbmi:Error\r\n");
        return nullptr;
    }
    std::memcpy(&bmi->bmiHeader, &hdib->ds.dsBmih, sizeof(BITMAPINFOHEADER));
    HDIB copy = Create(bmi, true, false);
    LocalFree(bmi);
    if (!copy) {
        DebugError(u"   !DibCreateCopy():DibCreateFromBitmapInfo:Error\r\n");
        return nullptr;
    }
    // Same header, so the same store size on both sides, written whole.
    if (fill) std::memcpy(copy->pBits, hdib->pBits, DibBitsSize(hdib));
    DebugTrace(DIB_LEVEL_FRAME, u"<DibCreateCopy()=%lld\r\n", TRACE_PTR(copy));
    return copy;
}

}  // namespace

extern "C" {

HDIB DibCreateFromBitmapInfo(const BITMAPINFO* info) { return Create(info, false, true); }

DWORD DibReCreateFromBitmapInfo(const BITMAPINFO* info, HDIB hdib) { return ReCreate(info, hdib, false, true); }

DWORD DibResize(HDIB hdib, LONG width, LONG height) { return Resize(hdib, width, height, true); }

DWORD DibResizeUncleared(HDIB hdib, LONG width, LONG height) { return Resize(hdib, width, height, false); }

HDIB DibCreateCopy(HDIB hdib) { return CreateCopy(hdib, true); }

HDIB DibCreateWorkingCopy(HDIB hdib) { return CreateCopy(hdib, false); }

BOOL DibExchangeStores(HDIB a, HDIB b) {
    if (!a->hBitmap || !b->hBitmap || !PlatExchangeDIBSectionStores(a->hBitmap, b->hBitmap)) return FALSE;
    // Same header: the row tables are as long, and each goes with its store.
    std::swap(a->pBits, b->pBits);
    std::swap(a->ppRow, b->ppRow);
    std::swap(a->ds.dsBm.bmBits, b->ds.dsBm.bmBits);
    return TRUE;
}

DWORD DibUnload(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u">DibUnload(%lld)\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return DibErrorInvalidDIB;
    DibRecord* r = hdib;
    // Out of the registry first, so that no DibIsValid reads it from here on.
    Unregister(r);
    r->iSignature = 0;
    bool failed = false;
    if (LocalFree(r->ppRow)) {
        DebugError(u"   !DibUnload():LocalFree:pdib->ppRow:Error\r\n");
        failed = true;
    }
    if (LocalFree(r->pbmiColors)) {
        DebugError(u"   !DibUnload():LocalFree:pdib->pbmiColors:Error\r\n");
        failed = true;
    }
    // An empty record has no bitmap to delete.
    if (r->hBitmap && !DeleteObject(r->hBitmap)) {
        DebugError(u"   !DibUnload():DeleteObject:hBitmap:Error\r\n");
        failed = true;
    }
    if (LocalFree(r)) {
        DebugError(u"   !DibUnload():LocalFree:pdib:Error\r\n");
        failed = true;
    }
    LONG count = --g_dibCount;
    if (failed) {
        DebugTrace(DIB_LEVEL_FRAME, u"<DibUnload()=DibErrorMemoryFree\r\n");
        return DibErrorMemoryFree;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibUnload:DibCount: %d\r\n", count);
    DebugTrace(DIB_LEVEL_FRAME, u"<DibUnload()=DibOk\r\n");
    return DibOk;
}

void DibDump(HDIB hdib) {
    DebugTrace(DIB_LEVEL_FRAME, u"HDIB: %lld\r\n", TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return;
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibBitmapHandle: %lld\r\n", TRACE_PTR(DibBitmapHandle(hdib)));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?pBits: %lld\r\n", TRACE_PTR(hdib->pBits));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?pbmiColors: %lld\r\n", TRACE_PTR(hdib->pbmiColors));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?ppRow: %lld\r\n", TRACE_PTR(hdib->ppRow));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibWidth: %d\r\n", DibWidth(hdib));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibHeight: %d\r\n", DibHeight(hdib));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibBitCount: %d\r\n", int(DibBitCount(hdib)));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibRowLength: %d\r\n", DibRowLength(hdib));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibNumColors: %d\r\n", DibNumColors(hdib));
    DebugTrace(DIB_LEVEL_FRAME, u"   ?DibColorPlanes: %d\r\n", int(DibColorPlanes(hdib)));
}

}  // extern "C"
