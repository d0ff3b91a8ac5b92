// BMP files: the record written as it stands (file header, info header,
// colours, pixel store) and read back.
//
// The reader trusts nothing in the file: offsets and sizes are checked
// against each other, against the header's own pixel store and against the
// real length of the file before anything is allocated, and it reads at
// most the pixel store.
#include "dibload.h"

#include <cstring>

namespace {

constexpr WORD kBmpType = 0x4D42;  // "BM"
constexpr DWORD kFileHeaderBytes = 14;
constexpr DWORD kMinOffBits = kFileHeaderBytes + DIB_HEADER_BYTES;

bool ReadExactly(HANDLE file, void* buffer, DWORD bytes) {
    DWORD got = 0;
    return ReadFile(file, buffer, bytes, &got, nullptr) && got == bytes;
}

// Whether the header and the file's offsets describe a picture that can be
// read without leaving the block or the pixel store: a 40-byte header, a
// layout the section can hold, colours inside the block, pixels inside the
// store. The fewest bytes the file must then hold go to leastFileBytes.
bool CheckLayout(const BITMAPFILEHEADER& fh, const BITMAPINFO* info, int64_t fileLength,
                 int64_t* leastFileBytes) {
    const BITMAPINFOHEADER& h = info->bmiHeader;
    if (h.biSize != DIB_HEADER_BYTES) return false;
    if (h.biWidth <= 0 || h.biHeight <= 0 || h.biWidth > DIB_MAX_DIMENSION ||
        h.biHeight > DIB_MAX_DIMENSION || !DibDepthKnown(h.biBitCount))
        return false;
    // Run-length and other compressed layouts are not read; bit fields only
    // as the section takes them.
    if (h.biCompression != BI_RGB && !(h.biCompression == 3 && h.biBitCount >= 16)) return false;
    int64_t colours = h.biClrUsed ? int64_t(h.biClrUsed) : (h.biBitCount <= 8 ? (int64_t(1) << h.biBitCount) : 0);
    if (colours > DIB_MAX_COLORS) return false;
    if (kMinOffBits + colours * 4 > int64_t(fh.bfOffBits)) return false;
    int64_t rows = DibRowBytes(h.biWidth, h.biBitCount) * h.biHeight;
    int64_t store = rows > int64_t(h.biSizeImage) ? rows : int64_t(h.biSizeImage);
    if (store > DIB_MAX_BITS_BYTES) return false;
    int64_t pixels = int64_t(fh.bfSize) - int64_t(fh.bfOffBits);
    if (pixels > store) return false;
    // A biSizeImage beyond both the picture and the file is not believed.
    int64_t available = fileLength - int64_t(fh.bfOffBits);
    if (int64_t(h.biSizeImage) > rows && int64_t(h.biSizeImage) > available) return false;
    // The pixels the header promises must be in the file.
    *leastFileBytes = int64_t(fh.bfOffBits) + (rows > pixels ? rows : pixels);
    return true;
}

const DibLoadTexts kBmpTexts = {
    u">DibBMPLoad(%s)\r\n",
    u"<DibBMPLoad()=NULL (CreateFile)\r\n",
    u"<DibBMPLoad()=NULL (DibCreateFromBitmapInfo)\r\n",  // the file's own header: no grey block
    u"<DibBMPLoad()=NULL (DibCreateFromBitmapInfo)\r\n",
    u"<DibBMPLoad()\r\n",
};

// The file header, then the info header and colours in a block of their own
// from which the bitmap is made, then the pixel store as it stands.
class BmpDecoder : public DibFileDecoder {
public:
    ~BmpDecoder() override {
        if (info_) LocalFree(info_);
    }

    bool ReadHeader(HANDLE file, int64_t fileLength, DibDeclaredPicture* picture) override {
        file_ = file;
        if (!ReadExactly(file, &fh_, kFileHeaderBytes) || fh_.bfType != kBmpType) return Refuse(u"ReadFile");
        // The header and colours must be there before a block is made for them.
        if (fh_.bfOffBits < kMinOffBits || fh_.bfSize < fh_.bfOffBits || int64_t(fh_.bfOffBits) > fileLength)
            return Refuse(u"bfOffBits");
        const DWORD infoBytes = fh_.bfOffBits - kFileHeaderBytes;
        info_ = static_cast<BITMAPINFO*>(LocalAlloc(LMEM_FIXED, infoBytes));
        if (!info_) return Refuse(u"LocalAlloc");
        if (!ReadExactly(file, info_, infoBytes)) return Refuse(u"ReadFile");
        if (!CheckLayout(fh_, info_, fileLength, &picture->leastFileBytes)) return Refuse(u"bmiHeader");
        picture->info = info_;
        return true;
    }

    void TraceTooShort(const DibDeclaredPicture&) override { Refuse(u"ReadFile"); }

    bool ReadPixels(HDIB hdib) override {
        if (ReadExactly(file_, hdib->pBits, fh_.bfSize - fh_.bfOffBits)) return true;
        return Refuse(u"ReadFile");
    }

private:
    static bool Refuse(const WCHAR* step) {
        DebugTrace(DIB_LEVEL_OP, u"<DibBMPLoad()=NULL (%s)\r\n", step);
        return false;
    }

    HANDLE file_ = INVALID_HANDLE_VALUE;
    BITMAPFILEHEADER fh_ = {};
    BITMAPINFO* info_ = nullptr;
};

}  // namespace

extern "C" {

DWORD DibBMPSave(const WCHAR* filename, HDIB hdib) {
    DebugTrace(DIB_LEVEL_OP, u">DibBMPSave(%s, %lld)\r\n", filename, TRACE_PTR(hdib));
    if (DibIsInvalid(hdib)) return DibErrorInvalidDIB;
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
    BmpDecoder decoder;
    return DibLoadFile(filename, decoder, kBmpTexts);
}

}  // extern "C"
