// Steps the JPEG and PNG loads share: opening the file and making the grey
// bitmap that the decoder writes into, each traced in the load's own words.
#include "imagefiles.h"

extern "C" {

HANDLE DibOpenForLoad(const WCHAR* filename) {
    if (!filename) return INVALID_HANDLE_VALUE;
    return CreateFileW(filename, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

HDIB DibCreateForLoad(LONG width, LONG height, DWORD bitcount, const WCHAR* noInfoText,
                      const WCHAR* noBitmapText) {
    DWORD failure = 0;
    HDIB hdib = DibCreateGrey(width, height, bitcount, &failure);
    if (!hdib) DebugTrace(DIB_LEVEL_OP, failure == DIB_GREY_FAILED_INFO ? noInfoText : noBitmapText);
    return hdib;
}

}  // extern "C"
