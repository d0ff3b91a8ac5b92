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
#include "dibload.h"
#include "imagefiles.h"

#include <png.h>
#include <tovrel/scopeguard.h>
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

// libpng's part of a save; false when libpng failed (a write that placed
// fewer bytes, or memory it could not get). Keeps no object with a
// destructor alive across libpng's jump.
bool WriteRows(png_structp png_ptr, png_infop info_ptr, HANDLE file, HDIB hdib, LONG width, LONG height, int depth,
               png_bytep* rows) {
    if (setjmp(png_jmpbuf(png_ptr))) return false;
    png_set_write_fn(png_ptr, file, PngWrite, PngFlush);
    png_set_IHDR(png_ptr, info_ptr, png_uint_32(width), png_uint_32(height), depth,
                 PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
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
    for (LONG y = 0; y < height; ++y) rows[y] = hdib->ppRow[y];
    png_write_image(png_ptr, rows);
    png_write_end(png_ptr, info_ptr);
    return true;
}

}  // namespace

extern "C" {

DWORD DibPNGSave(const WCHAR* filename, HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibPNGSave(%s,%lld)\r\n", filename, TRACE_PTR(hdib));
    if (DibIsInvalid(hdib) || !DibHasBitmap(hdib)) return DibErrorInvalidDIB;
    LONG const width = DibWidth(hdib), height = DibHeight(hdib);
    int const depth = DibBitCount(hdib);
    auto fail = [](DWORD code, const WCHAR* text) {
        DebugTrace(DIB_LEVEL_OP, text);
        return code;
    };

    DebugTrace(DIB_LEVEL_OP, u"   ?DibPNGSave():LocalAlloc:ppbRowPointers\r\n");
    auto* const ppbRowPointers = static_cast<png_bytep*>(LocalAlloc(LPTR, size_t(height) * sizeof(png_bytep)));
    if (!ppbRowPointers) return fail(DibErrorMemoryAlocation, u"<DibPNGSave()=DibErrorMemoryAlocation\r\n");
    TovScopeGuard freeRows([ppbRowPointers] { LocalFree(ppbRowPointers); });
    if (!filename) return fail(DibErrorInvalidParm, u"<DibPNGSave()=DibErrorInvalidParm\r\n");
    // A grey PNG sample is 1, 4 or 8 bits; deeper bitmaps (from a BMP file)
    // have no grey form here. Refused before a file is made.
    if (!GreyDepth(depth)) return fail(DibErrorUnknown, u"<DibPNGSave()=DibErrorUnknown (bitcount)\r\n");
    HANDLE const file =
        CreateFileW(filename, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return fail(DibErrorFileCreation, u"<DibPNGSave()=DibErrorFileCreation\r\n");
    // Until the file is complete, a way out leaves the old file as it was.
    TovScopeGuard discardFile([file] { PlatDiscardFile(file); });
    png_structp png_ptr = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngWarning, nullptr,
                                                    PngAlloc, PngFree);
    if (!png_ptr) return fail(DibErrorUnknown, u"<DibPNGSave()=DibErrorUnknown (!png_ptr)\r\n");
    png_infop info_ptr = nullptr;
    // Before the file goes: the guards undo in the reverse order of making.
    TovScopeGuard destroyPng([&png_ptr, &info_ptr] { png_destroy_write_struct(&png_ptr, &info_ptr); });
    info_ptr = png_create_info_struct(png_ptr);
    if (!info_ptr) return fail(DibErrorUnknown, u"<DibPNGSave()=DibErrorUnknown (!info_ptr)\r\n");
    if (!WriteRows(png_ptr, info_ptr, file, hdib, width, height, depth, ppbRowPointers))
        return fail(DibErrorUnknown, u"<DibPNGSave()=0 (error)\r\n");
    destroyPng.Release();
    png_destroy_write_struct(&png_ptr, &info_ptr);
    discardFile.Release();
    if (!CloseHandle(file)) return fail(DibErrorFileCreation, u"<DibPNGSave()=DibErrorFileCreation (CloseHandle)\r\n");
    DebugTrace(DIB_LEVEL_OP, u"<DibPNGSave()=DibOk\r\n");
    return DibOk;
}

}  // extern "C"

namespace {

// Deflate packs at most 1032 bytes into one, so a file cannot hold more
// than that many times its size in samples. The bound is halved to leave
// room for the passes of an interlaced file.
constexpr int64_t kDeflateMaxRatio = 1032;
int64_t LeastBytesFor(int64_t sampleBytes) { return (sampleBytes / 2 + kDeflateMaxRatio - 1) / kDeflateMaxRatio; }

const DibLoadTexts kPngTexts = {
    u">DibPNGLoad(%s)\r\n",
    u"<DibPNGLoad()=DibErrorFileCreation\r\n",
    u"<DibPNGLoad()=NULL (LocalAlloc:pbmi)\r\n",
    u"<DibPNGLoad()= NULL (DibCreateFromBitmapInfo)\r\n",
    u"<DibPNGLoad()=%lld\r\n",
};

// libpng's state of one load. Damage libpng finds (bad CRC, bad header, no
// image data, a cut file), or memory it cannot get, jumps back to the step
// that is reading.
class PngDecoder : public DibFileDecoder {
public:
    ~PngDecoder() override {
        if (png_) png_destroy_read_struct(&png_, &info_, nullptr);
    }

    bool ReadHeader(HANDLE file, int64_t, DibDeclaredPicture* picture) override {
        png_byte signature[8];
        DWORD got = 0;
        if (!ReadFile(file, signature, sizeof signature, &got, nullptr) || got != sizeof signature ||
            png_sig_cmp(signature, 0, sizeof signature) != 0)
            return Refuse(u"<DibPNGLoad()=NULL (png_check_sig)\r\n");
        png_ = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngWarning, nullptr, PngAlloc,
                                        PngFree);
        if (!png_) return Refuse(u"<DibPNGLoad()=NULL (png_ptr)\r\n");
        info_ = png_create_info_struct(png_);
        if (!info_) return Refuse(u"<DibPNGLoad()=NULL (info_ptr)\r\n");
        if (setjmp(png_jmpbuf(png_))) return Refuse(u"<DibPNGLoad()=NULL (libpng)\r\n");
        png_set_read_fn(png_, file, PngRead);
        png_set_sig_bytes(png_, 8);
        // Sizes beyond the bitmap core's are refused by libpng while it reads
        // the header, before anything is allocated for the picture.
        png_set_user_limits(png_, DIB_FILE_MAX_DIMENSION, DIB_FILE_MAX_DIMENSION);
        png_set_chunk_malloc_max(png_, kPngChunkMax);
        png_read_info(png_, info_);
        png_uint_32 iWidth = 0, iHeight = 0;
        int iBitDepth = 0, iColorType = 0, iInterlace = 0;
        png_get_IHDR(png_, info_, &iWidth, &iHeight, &iBitDepth, &iColorType, &iInterlace, nullptr, nullptr);
        DebugTrace(DIB_LEVEL_OP, u"   ?iWidth=%d\r\n", int(iWidth));
        DebugTrace(DIB_LEVEL_OP, u"   ?iHeight=%d\r\n", int(iHeight));
        DebugTrace(DIB_LEVEL_OP, u"   ?iBitDepth=%d\r\n", iBitDepth);
        DebugTrace(DIB_LEVEL_OP, u"   ?iColorType=%d\r\n", iColorType);
        if (!GreyDepth(iBitDepth)) return Refuse(u"<DibPNGLoad()=NULL (ibitdepth!=8,4,1)\r\n");
        // A row of the bitmap has room for one sample a pixel: files with
        // colour or alpha samples are refused, never read past the row.
        if (iColorType != PNG_COLOR_TYPE_GRAY && iColorType != PNG_COLOR_TYPE_PALETTE)
            return Refuse(u"<DibPNGLoad()=NULL (iColorType!=0,3)\r\n");
        // No transformations besides de-interlacing: the samples (or the
        // palette indices) arrive as they stand in the file.
        png_set_interlace_handling(png_);
        png_read_update_info(png_, info_);
        const int64_t rowBytes = int64_t(png_get_rowbytes(png_, info_));
        if (rowBytes > DibRowBytes(iWidth, iBitDepth)) return Refuse(u"<DibPNGLoad()=NULL (rowbytes)\r\n");
        picture->width = LONG(iWidth);
        picture->height = LONG(iHeight);
        picture->bitcount = DWORD(iBitDepth);
        picture->leastFileBytes = LeastBytesFor(rowBytes * iHeight);
        return true;
    }

    void TraceTooShort(const DibDeclaredPicture&) override { Refuse(u"<DibPNGLoad()=NULL (file size)\r\n"); }

    bool ReadPixels(HDIB hdib) override {
        if (setjmp(png_jmpbuf(png_))) return Refuse(u"<DibPNGLoad()=NULL (libpng)\r\n");
        png_read_image(png_, hdib->ppRow);
        png_read_end(png_, nullptr);
        return true;
    }

private:
    static bool Refuse(const WCHAR* text) {
        DebugTrace(DIB_LEVEL_OP, text);
        return false;
    }

    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

}  // namespace

extern "C" HDIB DibPNGLoad(const WCHAR* filename) {
    PngDecoder decoder;
    return DibLoadFile(filename, decoder, kPngTexts);
}
