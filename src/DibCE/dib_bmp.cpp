// BMP files: the record written as it stands (file header, info header,
// colours, pixel store) and read back.
//
// The reader trusts nothing in the file: offsets and sizes are checked
// against each other, against the header's own pixel store and against the
// real length of the file before anything is allocated, and it reads at
// most the pixel store.
#include "dibce.h"

#include <cstring>

namespace {

constexpr WORD kBmpType = 0x4D42;  // "BM"
constexpr DWORD kFileHeaderBytes = 14;
constexpr DWORD kMinOffBits = kFileHeaderBytes + DIB_HEADER_BYTES;

struct FileCloser {
    HANDLE file;
    ~FileCloser() {
        if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    }
};

bool ReadExactly(HANDLE file, void* buffer, DWORD bytes) {
    DWORD got = 0;
    return ReadFile(file, buffer, bytes, &got, nullptr) && got == bytes;
}

enum Layout { kLayoutOk, kLayoutBad, kLayoutShort };

// Whether the header and the file's offsets describe a picture that can be
// read without leaving the block or the pixel store: a 40-byte header, a
// layout the section can hold, colours inside the block, pixels inside the
// store and inside the file (kLayoutShort when the file is cut short).
Layout CheckLayout(const BITMAPFILEHEADER& fh, const BITMAPINFO* info, int64_t fileLength) {
    const BITMAPINFOHEADER& h = info->bmiHeader;
    if (h.biSize != DIB_HEADER_BYTES) return kLayoutBad;
    if (h.biWidth <= 0 || h.biHeight <= 0 || h.biWidth > DIB_MAX_DIMENSION ||
        h.biHeight > DIB_MAX_DIMENSION || !DibDepthKnown(h.biBitCount))
        return kLayoutBad;
    // Run-length and other compressed layouts are not read; bit fields only
    // as the section takes them.
    if (h.biCompression != BI_RGB && !(h.biCompression == 3 && h.biBitCount >= 16)) return kLayoutBad;
    int64_t colours = h.biClrUsed ? int64_t(h.biClrUsed) : (h.biBitCount <= 8 ? (int64_t(1) << h.biBitCount) : 0);
    if (colours > DIB_MAX_COLORS) return kLayoutBad;
    if (kMinOffBits + colours * 4 > int64_t(fh.bfOffBits)) return kLayoutBad;
    int64_t rows = DibRowBytes(h.biWidth, h.biBitCount) * h.biHeight;
    int64_t store = rows > int64_t(h.biSizeImage) ? rows : int64_t(h.biSizeImage);
    if (store > DIB_MAX_BITS_BYTES) return kLayoutBad;
    int64_t pixels = int64_t(fh.bfSize) - int64_t(fh.bfOffBits);
    if (pixels > store) return kLayoutBad;
    // The pixels the header promises must be in the file, so that a tiny file
    // cannot make a large bitmap; a biSizeImage beyond both the picture and
    // the file is not believed either.
    int64_t available = fileLength - int64_t(fh.bfOffBits);
    if (int64_t(h.biSizeImage) > rows && int64_t(h.biSizeImage) > available) return kLayoutBad;
    if (available < rows || available < pixels) return kLayoutShort;
    return kLayoutOk;
}

}  // namespace

extern "C" {

DWORD DibBMPSave(const WCHAR* filename, HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibBMPSave(%s, %lld)\r\n", filename, TRACE_PTR(hdib));
    if (DibIsValid(hdib)) return DibErrorInvalidDIB;
    // An empty record (after a failed re-creation) has nothing to save.
    if (!hdib->hBitmap) return DibErrorInvalidDIB;
    if (!filename) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPSave()=DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }
    BITMAPFILEHEADER fh;
    std::memset(&fh, 0, sizeof fh);
    fh.bfType = kBmpType;
    fh.bfSize = DibTotalSize(hdib) + kFileHeaderBytes;
    fh.bfOffBits = DibInfoSize(hdib) + kFileHeaderBytes;

    HANDLE file = CreateFileW(filename, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPSave()=DibErrorFileCreation\r\n");
        return DibErrorFileCreation;
    }
    struct Part {
        const void* data;
        DWORD bytes;
        const WCHAR* failure;
    } parts[] = {
        {&fh, kFileHeaderBytes, u"<DibBMPSave()=DibErrorFileWrite (file header)\r\n"},
        // Records keep a 40-byte header only, so this never reads past ds.
        {&hdib->ds.dsBmih, DibHeaderSize(hdib), u"<DibBMPSave()=DibErrorFileWrite (bmi header)\r\n"},
        {hdib->pbmiColors, DibPaletteSize(hdib), u"<DibBMPSave()=DibErrorFileWrite (pbmiColors)\r\n"},
        {hdib->pBits, DibBitsSize(hdib), u"<DibBMPSave()=DibErrorFileWrite (WriteFile)\r\n"},
    };
    for (const Part& part : parts) {
        DWORD written = 0;
        WriteFile(file, part.data, part.bytes, &written, nullptr);
        if (written == 0) {
            DebugTrace(DIB_LEVEL_OP, part.failure);
            PlatDiscardFile(file);
            return DibErrorFileWrite;
        }
    }
    if (!CloseHandle(file)) return DibErrorFileCreation;
    DebugTrace(DIB_LEVEL_OP, u"<DibBMPSave()=DibOk\r\n");
    return DibOk;
}

HDIB DibBMPLoad(const WCHAR* filename) {
    DebugTrace(DIB_LEVEL_OP, u">DibBMPLoad(%s)\r\n", filename);
    FileCloser closer{CreateFileW(filename, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                  FILE_ATTRIBUTE_NORMAL, nullptr)};
    if (closer.file == INVALID_HANDLE_VALUE) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (CreateFile)\r\n");
        return nullptr;
    }
    DWORD sizeHigh = 0;
    SetLastError(ERROR_SUCCESS);
    DWORD sizeLow = GetFileSize(closer.file, &sizeHigh);
    if (sizeLow == INVALID_FILE_SIZE && GetLastError() != ERROR_SUCCESS) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (ReadFile)\r\n");
        return nullptr;
    }
    int64_t fileLength = (int64_t(sizeHigh) << 32) | sizeLow;

    BITMAPFILEHEADER fh;
    if (!ReadExactly(closer.file, &fh, kFileHeaderBytes) || fh.bfType != kBmpType) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (ReadFile)\r\n");
        return nullptr;
    }
    // The header and colours must be there before a block is made for them.
    if (fh.bfOffBits < kMinOffBits || fh.bfSize < fh.bfOffBits || int64_t(fh.bfOffBits) > fileLength) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (bfOffBits)\r\n");
        return nullptr;
    }
    DWORD infoBytes = fh.bfOffBits - kFileHeaderBytes;
    auto* info = static_cast<BITMAPINFO*>(LocalAlloc(LMEM_FIXED, infoBytes));
    if (!info) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (LocalAlloc)\r\n");
        return nullptr;
    }
    if (!ReadExactly(closer.file, info, infoBytes)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (ReadFile)\r\n");
        LocalFree(info);
        return nullptr;
    }
    Layout layout = CheckLayout(fh, info, fileLength);
    if (layout != kLayoutOk) {
        DebugTrace(DIB_LEVEL_OP, layout == kLayoutShort ? u"<DibBMPLoad()=NULL (ReadFile)\r\n"
                                                        : u"<DibBMPLoad()=NULL (bmiHeader)\r\n");
        LocalFree(info);
        return nullptr;
    }
    HDIB hdib = DibCreateFromBitmapInfo(info);
    LocalFree(info);
    if (!hdib) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (DibCreateFromBitmapInfo)\r\n");
        return nullptr;
    }
    DWORD pixels = fh.bfSize - fh.bfOffBits;
    if (!ReadExactly(closer.file, hdib->pBits, pixels)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (ReadFile)\r\n");
        DibUnload(hdib);
        return nullptr;
    }
    DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()\r\n");
    return hdib;
}

}  // extern "C"
