// PNG files through libpng 1.6: grey files of the bitmap's own depth out,
// grey and palette files of 1, 4 and 8 bits in, rows handed to libpng
// straight from and into the pixel store (PNG packs small samples the way a
// DIB does, leftmost pixel in the high bits).
//
// Contents: libpng's error, memory and I/O callbacks, DibPNGSave, DibPNGLoad.
//
// All libpng state of a call lives on that call's stack, with the jump buffer
// inside libpng's own structure: saves and loads on different threads share
// nothing. libpng allocates through LocalAlloc, so its memory (and zlib's)
// is counted, can be made to fail in tests, and shows up as a leak if a path
// forgets to destroy a structure.
#include "imagefiles.h"

#include <png.h>
#include <zlib.h>

namespace {

// libpng's limit on a chunk it keeps in memory (text, profiles): the
// pictures of this library carry nothing large besides their pixels.
constexpr png_alloc_size_t kPngChunkMax = png_alloc_size_t(8) << 20;
constexpr DWORD kPngIoMax = DWORD(1) << 30;

// libpng takes the buffer of an ancillary chunk at the length the file
// declares, and zeroes it, before it has read a byte of it: a few bytes of
// file could make it clear gigabytes. Nothing it needs for a picture of
// ours (rows, the inflate window, a chunk it keeps) comes near this size.
constexpr png_alloc_size_t kPngAllocMax = 2 * kPngChunkMax;

png_voidp PngAlloc(png_structp, png_alloc_size_t bytes) {
    if (bytes > kPngAllocMax) return nullptr;
    return LocalAlloc(LMEM_FIXED, size_t(bytes));
}

void PngFree(png_structp, png_voidp memory) {
    if (memory) LocalFree(memory);
}

// Errors jump back to the setjmp of the call through the jump buffer in
// png_ptr. Messages go to the trace, never to standard error.
void PngError(png_structp png, png_const_charp message) {
    DebugTrace(DIB_LEVEL_OP, u"   !libpng:%hs\r\n", message);
    png_longjmp(png, 1);
}

void PngWarning(png_structp, png_const_charp message) {
    DebugTrace(DIB_LEVEL_OP, u"   ?libpng:%hs\r\n", message);
}

void PngWrite(png_structp png, png_bytep data, size_t length) {
    HANDLE file = static_cast<HANDLE>(png_get_io_ptr(png));
    while (length) {
        DWORD chunk = length > kPngIoMax ? kPngIoMax : DWORD(length);
        DWORD written = 0;
        if (!WriteFile(file, data, chunk, &written, nullptr) || written != chunk)
            png_error(png, "WriteFile");
        data += chunk;
        length -= chunk;
    }
}

void PngFlush(png_structp) {}

// A file that ends early is an error: libpng must never see fewer bytes
// than it asked for.
void PngRead(png_structp png, png_bytep data, size_t length) {
    HANDLE file = static_cast<HANDLE>(png_get_io_ptr(png));
    while (length) {
        DWORD chunk = length > kPngIoMax ? kPngIoMax : DWORD(length);
        DWORD got = 0;
        if (!ReadFile(file, data, chunk, &got, nullptr) || got != chunk) png_error(png, "ReadFile");
        data += chunk;
        length -= chunk;
    }
}

bool GreyDepth(int depth) { return depth == 8 || depth == 4 || depth == 1; }

// The way out of a save that failed: what it has made so far goes again
// (the libpng state, the file, the row table), then the exit trace.
DWORD EndSave(DWORD code, const WCHAR* text, png_bytep* rows, HANDLE file, png_structp* png, png_infop* info) {
    if (*png) png_destroy_write_struct(png, info);
    if (file != INVALID_HANDLE_VALUE) PlatDiscardFile(file);  // the old file stays as it was
    LocalFree(rows);
    DebugTrace(DIB_LEVEL_OP, text);
    return code;
}

}  // namespace

extern "C" {

DWORD DibPNGSave(const WCHAR* filename, HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibPNGSave(%s,%lld)\r\n", filename, TRACE_PTR(hdib));
    if (DibIsValid(hdib) || !DibHasBitmap(hdib)) return DibErrorInvalidDIB;
    LONG const width = DibWidth(hdib), height = DibHeight(hdib);
    int const depth = DibBitCount(hdib);

    DebugTrace(DIB_LEVEL_OP, u"   ?DibPNGSave():LocalAlloc:ppbRowPointers\r\n");
    auto* const ppbRowPointers = static_cast<png_bytep*>(LocalAlloc(LPTR, size_t(height) * sizeof(png_bytep)));
    if (!ppbRowPointers) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGSave()=DibErrorMemoryAlocation\r\n");
        return DibErrorMemoryAlocation;
    }
    HANDLE file = INVALID_HANDLE_VALUE;
    png_structp png_ptr = nullptr;
    png_infop info_ptr = nullptr;
    if (!filename)
        return EndSave(DibErrorInvalidParm, u"<DibPNGSave()=DibErrorInvalidParm\r\n", ppbRowPointers, file, &png_ptr,
                       &info_ptr);
    // A grey PNG sample is 1, 4 or 8 bits; deeper bitmaps (from a BMP file)
    // have no grey form here. Refused before a file is made.
    if (!GreyDepth(depth))
        return EndSave(DibErrorUnknown, u"<DibPNGSave()=DibErrorUnknown (bitcount)\r\n", ppbRowPointers, file,
                       &png_ptr, &info_ptr);
    file = CreateFileW(filename, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return EndSave(DibErrorFileCreation, u"<DibPNGSave()=DibErrorFileCreation\r\n", ppbRowPointers, file,
                       &png_ptr, &info_ptr);
    png_ptr = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngWarning, nullptr, PngAlloc,
                                        PngFree);
    if (!png_ptr)
        return EndSave(DibErrorUnknown, u"<DibPNGSave()=DibErrorUnknown (!png_ptr)\r\n", ppbRowPointers, file,
                       &png_ptr, &info_ptr);
    info_ptr = png_create_info_struct(png_ptr);
    if (!info_ptr)
        return EndSave(DibErrorUnknown, u"<DibPNGSave()=DibErrorUnknown (!info_ptr)\r\n", ppbRowPointers, file,
                       &png_ptr, &info_ptr);
    if (setjmp(png_jmpbuf(png_ptr)))
        return EndSave(DibErrorUnknown, u"<DibPNGSave()=0 (error)\r\n", ppbRowPointers, file, &png_ptr, &info_ptr);
    png_set_write_fn(png_ptr, file, PngWrite, PngFlush);
    png_set_IHDR(png_ptr, info_ptr, png_uint_32(width), png_uint_32(height), depth, PNG_COLOR_TYPE_GRAY,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    // zlib sets the speed of a save. Level 1 with run-length matching and
    // libpng's own filter choice (adaptive at 8 bits, none below) writes
    // files no larger than libpng's default (level 6) at 2.5 to 10 times its
    // speed, the more so the noisier the frame; the SUB filter alone is
    // about twice as fast again but its files are 10% larger, and these go
    // to flash and over slow links. bench/bench_files.cpp measures all three.
    png_set_compression_level(png_ptr, 1);
    png_set_compression_strategy(png_ptr, Z_RLE);
    png_write_info(png_ptr, info_ptr);
    // Top row first, straight from the pixel store: no copy.
    for (LONG y = 0; y < height; ++y) ppbRowPointers[y] = hdib->ppRow[y];
    png_write_image(png_ptr, ppbRowPointers);
    png_write_end(png_ptr, info_ptr);
    png_destroy_write_struct(&png_ptr, &info_ptr);
    LocalFree(ppbRowPointers);
    if (!CloseHandle(file)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGSave()=DibErrorFileCreation (CloseHandle)\r\n");
        return DibErrorFileCreation;
    }
    DebugTrace(DIB_LEVEL_OP, u"<DibPNGSave()=DibOk\r\n");
    return DibOk;
}

namespace {

// Deflate packs at most 1032 bytes into one, so a file cannot hold more
// than that many times its size in samples. Checked before the bitmap is
// made, so that a header of a few bytes cannot take a gigabyte; the bound is
// halved to leave room for the passes of an interlaced file.
constexpr int64_t kDeflateMaxRatio = 1032;
bool FileTooShortFor(HANDLE file, int64_t sampleBytes) {
    int64_t size = DibFileLength(file);
    return size < 0 || size * kDeflateMaxRatio < sampleBytes / 2;
}

}  // namespace

HDIB DibPNGLoad(const WCHAR* filename) {
    DebugTrace(DIB_LEVEL_OP, u">DibPNGLoad(%s)\r\n", filename);
    HANDLE const file = DibOpenForLoad(filename);
    if (file == INVALID_HANDLE_VALUE) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=DibErrorFileCreation\r\n");
        return nullptr;
    }
    png_byte signature[8];
    DWORD got = 0;
    if (!ReadFile(file, signature, sizeof signature, &got, nullptr) || got != sizeof signature ||
        png_sig_cmp(signature, 0, sizeof signature) != 0) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (png_check_sig)\r\n");
        CloseHandle(file);
        return nullptr;
    }
    png_structp png_ptr = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngWarning,
                                                   nullptr, PngAlloc, PngFree);
    if (!png_ptr) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (png_ptr)\r\n");
        CloseHandle(file);
        return nullptr;
    }
    png_infop info_ptr = png_create_info_struct(png_ptr);
    if (!info_ptr) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (info_ptr)\r\n");
        png_destroy_read_struct(&png_ptr, nullptr, nullptr);
        CloseHandle(file);
        return nullptr;
    }
    HDIB volatile hdib = nullptr;
    if (setjmp(png_jmpbuf(png_ptr))) {
        // Damage found by libpng (bad CRC, bad header, no image data, a cut
        // file), or memory it could not get.
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (libpng)\r\n");
        if (hdib) DibUnload(hdib);
        png_destroy_read_struct(&png_ptr, &info_ptr, nullptr);
        CloseHandle(file);
        return nullptr;
    }
    png_set_read_fn(png_ptr, file, PngRead);
    png_set_sig_bytes(png_ptr, 8);
    // Sizes beyond the bitmap core's are refused by libpng while it reads
    // the header, before anything is allocated for the picture.
    png_set_user_limits(png_ptr, DIB_FILE_MAX_DIMENSION, DIB_FILE_MAX_DIMENSION);
    png_set_chunk_malloc_max(png_ptr, kPngChunkMax);
    png_read_info(png_ptr, info_ptr);
    png_uint_32 iWidth = 0, iHeight = 0;
    int iBitDepth = 0, iColorType = 0, iInterlace = 0;
    png_get_IHDR(png_ptr, info_ptr, &iWidth, &iHeight, &iBitDepth, &iColorType, &iInterlace, nullptr, nullptr);
    DebugTrace(DIB_LEVEL_OP, u"   ?iWidth=%d\r\n", int(iWidth));
    DebugTrace(DIB_LEVEL_OP, u"   ?iHeight=%d\r\n", int(iHeight));
    DebugTrace(DIB_LEVEL_OP, u"   ?iBitDepth=%d\r\n", iBitDepth);
    DebugTrace(DIB_LEVEL_OP, u"   ?iColorType=%d\r\n", iColorType);

    bool refused = false;
    if (!GreyDepth(iBitDepth)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (ibitdepth!=8,4,1)\r\n");
        refused = true;
    } else if (iColorType != PNG_COLOR_TYPE_GRAY && iColorType != PNG_COLOR_TYPE_PALETTE) {
        // A row of the bitmap has room for one sample a pixel: files with
        // colour or alpha samples are refused, never read past the row.
        DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (iColorType!=0,3)\r\n");
        refused = true;
    } else {
        // No transformations besides de-interlacing: the samples (or the
        // palette indices) arrive as they stand in the file.
        png_set_interlace_handling(png_ptr);
        png_read_update_info(png_ptr, info_ptr);
        if (int64_t(png_get_rowbytes(png_ptr, info_ptr)) > DibRowBytes(iWidth, iBitDepth)) {
            DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (rowbytes)\r\n");
            refused = true;
        } else if (FileTooShortFor(file, int64_t(png_get_rowbytes(png_ptr, info_ptr)) * iHeight)) {
            DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=NULL (file size)\r\n");
            refused = true;
        }
    }
    if (!refused)
        hdib = DibCreateForLoad(LONG(iWidth), LONG(iHeight), DWORD(iBitDepth),
                                u"<DibPNGLoad()=NULL (LocalAlloc:pbmi)\r\n",
                                u"<DibPNGLoad()= NULL (DibCreateFromBitmapInfo)\r\n");
    if (!hdib) {
        png_destroy_read_struct(&png_ptr, &info_ptr, nullptr);
        CloseHandle(file);
        return nullptr;
    }
    png_read_image(png_ptr, hdib->ppRow);
    png_read_end(png_ptr, nullptr);
    png_destroy_read_struct(&png_ptr, &info_ptr, nullptr);
    CloseHandle(file);
    HDIB const loaded = hdib;
    DebugTrace(DIB_LEVEL_OP, u"<DibPNGLoad()=%lld\r\n", TRACE_PTR(loaded));
    return loaded;
}

}  // extern "C"
