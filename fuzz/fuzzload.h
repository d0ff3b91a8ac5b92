// Shared body of the loader harnesses: the input becomes a file in a
// private directory on tmpfs, goes through the export, and whatever loads is
// unloaded again; a block or graphics object left alive afterwards is a leak
// the sanitizers cannot see (the platform keeps its own books).
#pragma once

#include <tovrel/platform.h>
#include <tovrel/tovrel.h>

#include "dibce.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace tovfuzz {

// A directory of this process's own, removed at exit; /dev/shm keeps the
// per-input writes off the disk.
inline const std::string& ScratchDir() {
    static std::string dir = [] {
        char pattern[] = "/dev/shm/tovfuzz-XXXXXX";
        char* made = mkdtemp(pattern);
        if (!made) {
            std::perror("tovfuzz: mkdtemp");
            std::abort();
        }
        return std::string(made);
    }();
    return dir;
}

inline volatile unsigned g_sink;

// Reads every pixel and colour the header says the loaded bitmap has, so that a store
// shorter than its header shows as a sanitizer report here and not later in
// some operation.
inline void TouchBitmap(HDIB dib) {
    if (DibIsValid(dib) != DibOk) {
        std::fprintf(stderr, "tovfuzz: the loader returned a handle that is not a valid bitmap\n");
        std::abort();
    }
    int64_t height = DibHeight(dib) < 0 ? -int64_t(DibHeight(dib)) : DibHeight(dib);
    int64_t bytes = DibRowBytes(DibWidth(dib), DibBitCount(dib)) * height;
    const BYTE* bits = DibBitsPtr(dib);
    unsigned sum = 0;
    for (int64_t i = 0; i < bytes; ++i) sum += bits[i];
    // The header lives in the record, the colours in a block of their own.
    const BYTE* colours = reinterpret_cast<const BYTE*>(dib->pbmiColors);
    for (DWORD i = 0; i < DibPaletteSize(dib); ++i) sum += colours[i];
    g_sink = sum;
}

inline std::u16string Widen(const std::string& ascii) { return std::u16string(ascii.begin(), ascii.end()); }

// Writes data as <dir>/input.<extension>, loads it through load, unloads the
// result and aborts when the live-object count does not come back.
inline int LoadOnce(const uint8_t* data, size_t size, HDIB (*load)(const WCHAR*), const char* extension) {
    static const std::string path = ScratchDir() + "/input." + extension;
    static const std::u16string wide = Widen(path);
    static const bool cleanup = [] {
        std::atexit([] {
            unlink(path.c_str());
            rmdir(ScratchDir().c_str());
        });
        return true;
    }();
    (void)cleanup;

    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f || (size && std::fwrite(data, 1, size, f) != size) || std::fclose(f) != 0) {
        std::perror("tovfuzz: writing the input");
        std::abort();
    }

    long before = PlatLiveObjects();
    HDIB dib = load(wide.c_str());
    if (dib) TouchBitmap(dib);
    if (dib && tovUnloadHDIB(dib) != tovOk) {
        std::fprintf(stderr, "tovfuzz: tovUnloadHDIB refused a loaded bitmap\n");
        std::abort();
    }
    long after = PlatLiveObjects();
    if (after != before) {
        std::fprintf(stderr, "tovfuzz: %ld live objects before the load, %ld after the unload\n", before, after);
        std::abort();
    }
    return 0;
}

}  // namespace tovfuzz
