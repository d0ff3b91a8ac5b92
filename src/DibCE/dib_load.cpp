// The load skeleton shared by every file format (dibload.h).
#include "dibload.h"

#include <tovrel/scopeguard.h>

namespace {

// Bytes in an open file; -1 when they cannot be told.
int64_t FileLength(HANDLE file) {
    DWORD high = 0;
    SetLastError(ERROR_SUCCESS);
    const DWORD low = GetFileSize(file, &high);
    if (low == INVALID_FILE_SIZE && GetLastError() != ERROR_SUCCESS) return -1;
    return (int64_t(high) << 32) | low;
}

HDIB MakeBitmap(const DibDeclaredPicture& picture, const DibLoadTexts& texts) {
    if (picture.info) {
        HDIB hdib = DibCreateFromBitmapInfo(picture.info);
        if (!hdib) DebugTrace(DIB_LEVEL_OP, texts.noBitmap);
        return hdib;
    }
    DWORD failure = 0;
    HDIB hdib = DibCreateGrey(picture.width, picture.height, picture.bitcount, &failure);
    if (!hdib) DebugTrace(DIB_LEVEL_OP, failure == DIB_GREY_FAILED_INFO ? texts.noInfo : texts.noBitmap);
    return hdib;
}

}  // namespace

HDIB DibLoadFile(const WCHAR* filename, DibFileDecoder& decoder, const DibLoadTexts& texts) {
    DebugTrace(DIB_LEVEL_OP, texts.entry, filename);
    HANDLE const file = filename ? CreateFileW(filename, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                               FILE_ATTRIBUTE_NORMAL, nullptr)
                                 : INVALID_HANDLE_VALUE;
    if (file == INVALID_HANDLE_VALUE) {
        DebugTrace(DIB_LEVEL_OP, texts.notOpened);
        return nullptr;
    }
    TovScopeGuard closeFile([file] { CloseHandle(file); });

    DibDeclaredPicture picture;
    const int64_t length = FileLength(file);
    if (length < 0) {
        decoder.TraceTooShort(picture);
        return nullptr;
    }
    if (!decoder.ReadHeader(file, length, &picture)) return nullptr;
    // A few bytes of header must not make a large bitmap.
    if (length < picture.leastFileBytes) {
        decoder.TraceTooShort(picture);
        return nullptr;
    }
    HDIB const hdib = MakeBitmap(picture, texts);
    if (!hdib) return nullptr;
    if (!decoder.ReadPixels(hdib)) {
        DibUnload(hdib);
        return nullptr;
    }
    DebugTrace(DIB_LEVEL_OP, texts.loaded, TRACE_PTR(hdib));
    return hdib;
}
