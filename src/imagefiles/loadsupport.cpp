// Steps the JPEG and PNG loads share: opening the file, its length for the
// check of a declared size, and making the grey bitmap that the decoder
// writes into, each traced in the load's own words.
#include "imagefiles.h"

extern "C" {

HANDLE DibOpenForLoad(const WCHAR* filename) {
    if (!filename) return INVALID_HANDLE_VALUE;
    return CreateFileW(filename, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

int64_t DibFileLength(HANDLE file) {
    DWORD high = 0;
    DWORD low = GetFileSize(file, &high);
    if (low == INVALID_FILE_SIZE && GetLastError() != ERROR_SUCCESS) return -1;
    return (int64_t(high) << 32) | low;
}

HDIB DibCreateForLoad(LONG width, LONG height, DWORD bitcount, const WCHAR* noInfoText,
                      const WCHAR* noBitmapText) {
    DWORD failure = 0;
    HDIB hdib = DibCreateGrey(width, height, bitcount, &failure);
    if (!hdib) DebugTrace(DIB_LEVEL_OP, failure == DIB_GREY_FAILED_INFO ? noInfoText : noBitmapText);
    return hdib;
}

}  // extern "C"
