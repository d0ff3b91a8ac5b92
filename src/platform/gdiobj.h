// The graphics objects of the platform layer. Every handle is a pointer to
// one of these structures and is checked against a registry of live objects
// before use, so a stale or made-up handle is refused instead of followed.
#pragma once

#include <tovrel/handleset.h>
#include <tovrel/platform.h>

#include <cstring>

enum GdiType : uint32_t {
    GDI_BITMAP = 1,
    GDI_PEN = 2,
    GDI_FONT = 3,
    GDI_BRUSH = 4,
};

// The common head of every object. DeleteObject and GetObjectW dispatch
// through the two functions, so each kind of object lives in its own file.
struct GdiObjectTag {
    PlatHandleLink link;  // in the registry of live objects
    GdiType type;
    void (*destroy)(GdiObjectTag* self);                       // frees the object
    int (*describe)(GdiObjectTag* self, int bytes, void* out);  // GetObjectW
};

// A DIB section: plain memory with a header and a colour table, any depth
// from 1 to 32 bits. Rows are bottom-up, each `stride` bytes (a multiple of 4).
struct GdiBitmap : GdiObjectTag {
    BITMAPINFOHEADER header;  // biClrUsed as given; biHeight > 0
    RGBQUAD colors[256];      // the table in effect for depths of 8 or fewer
    DWORD colorCount;         // entries of colors[] in use
    BYTE* bits;
    LONG stride;
    int selectedInto;         // device contexts that have it selected
};

// Registry of live objects (bitmaps, pens, fonts, brushes).
void GdiRegister(GdiObjectTag* object);
void GdiUnregister(GdiObjectTag* object);
// The object if `handle` is live and of the type asked for, else nullptr.
GdiObjectTag* GdiLookup(const void* handle, GdiType type);
inline GdiBitmap* GdiLookupBitmap(const void* handle) {
    return static_cast<GdiBitmap*>(GdiLookup(handle, GDI_BITMAP));
}
// Type of a live object, or 0.
uint32_t GdiTypeOf(const void* handle);

// GetObjectW's answer for an object described by one structure: its size
// when out is null, the copy when bytes holds it, else 0 with
// ERROR_INVALID_PARAMETER.
template <class Description>
int GdiDescribeAs(const Description& description, int bytes, void* out) {
    constexpr int kBytes = static_cast<int>(sizeof(Description));
    if (!out) return kBytes;
    if (bytes < kBytes) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::memcpy(out, &description, sizeof description);
    return kBytes;
}

// The allocator behind LocalAlloc, shared by all platform code so that the
// fault-injection hook reaches every allocation. Zeroed when asked.
void* PlatAlloc(size_t bytes, bool zero);
void PlatFree(void* p);
// A zeroed object of the platform's own; nullptr with the last error set to
// ERROR_NOT_ENOUGH_MEMORY (by PlatAlloc), as a Win32 call out of memory says.
template <class T>
T* PlatNew() {
    return static_cast<T*>(PlatAlloc(sizeof(T), true));
}
