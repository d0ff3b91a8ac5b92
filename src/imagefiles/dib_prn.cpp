// Printer raster files in the Oneil format: ESC 'V', a 16-bit row count,
// then one record of printerwidthbytes a picture row, top row first:
// left margin, the row's first bytes (1 bit a dot, set = black), right
// margin. The picture is cut at the printer's right edge, never scaled.
//
// Contents: DibPRNSave (format switch), DibPRNSaveOneil.
//
// The caller's bitmap is converted to 1 bit and inverted in place, and stays
// so whatever happens afterwards; a caller who needs the picture saves a copy.
#include "imagefiles.h"
#include "dibops.h"

#include <cstring>

namespace {

constexpr BYTE kEscape = 0x1B;
constexpr BYTE kRasterCommand = 0x56;  // 'V'
constexpr DWORD kHeaderBytes = 4;
// Margin bytes go out from a block of zeros, a block at a time.
constexpr DWORD kZeroBlockBytes = 256;

// Writes bytes zero bytes; false when a write places none or not all.
// Several writes of one block give the same file as one byte at a time.
bool WriteZeros(HANDLE file, DWORD bytes) {
    static const BYTE zeros[kZeroBlockBytes] = {};
    while (bytes) {
        DWORD chunk = bytes < kZeroBlockBytes ? bytes : kZeroBlockBytes;
        DWORD written = 0;
        if (!WriteFile(file, zeros, chunk, &written, nullptr) || written != chunk) return false;
        bytes -= chunk;
    }
    return true;
}

// The old file, if any, stays as it was.
DWORD FailWrite(HANDLE file, const WCHAR* line) {
    DebugTrace(DIB_LEVEL_OP, line);
    PlatDiscardFile(file);
    return DibErrorFileWrite;
}

}  // namespace

extern "C" {

DWORD DibPRNSaveOneil(const WCHAR* filename, HDIB hdib, LONG leftmargin, LONG printerwidth) {
    DebugTrace(DIB_LEVEL_OP, u">DibPRNSaveOneil(%s, %lld)\r\n", filename, TRACE_PTR(hdib));
    if (DibIsInvalid(hdib) || !DibHasBitmap(hdib)) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibErrorInvalidDIB \r\n");
        return DibErrorInvalidDIB;
    }
    if (DibBitCount(hdib) != 1) {
        if (DibConvert(hdib, 1) != DibOk) {
            DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibErrorUnknown \r\n");
            return DibErrorUnknown;
        }
        DebugTrace(DIB_LEVEL_OP, u"   ?DibBitCount(hdib)!=1 \r\n");
    }
    // White pixels are 1 in the bitmap; the printer burns set bits.
    if (DibInvert(hdib) != DibOk) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibErrorUnknown \r\n");
        return DibErrorUnknown;
    }
    LONG const height = DibHeight(hdib);
    if (leftmargin < 0 || printerwidth < 0 || leftmargin > printerwidth || printerwidth > DIB_PRN_MAX_DOTS) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibErrorInvalidDIB \r\n");
        return DibErrorInvalidDIB;
    }
    // The header's row count has 16 bits: a taller picture cannot be told.
    if (height > DIB_PRN_MAX_ROWS) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibErrorInvalidDIB (height)\r\n");
        return DibErrorInvalidDIB;
    }
    if (!filename) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibErrorInvalidDIB \r\n");
        return DibErrorInvalidParm;
    }
    HANDLE const file = CreateFileW(filename, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibErrorFileCreation\r\n");
        return DibErrorFileCreation;
    }
    BYTE const header[kHeaderBytes] = {kEscape, kRasterCommand, BYTE(height / 256), BYTE(height % 256)};
    DWORD written = 0;
    if (!WriteFile(file, header, kHeaderBytes, &written, nullptr) || written == 0)
        return FailWrite(file, u"<DibPRNSaveOneil()=DibErrorFileWrite (file header)\r\n");

    LONG const printerwidthbytes = printerwidth / 8;
    LONG const leftmarginbytes = leftmargin / 8;
    LONG maxdatawidthbytes = DibWidth(hdib) / 8;
    LONG rightmarginbytes = 0;
    if (maxdatawidthbytes + leftmarginbytes < printerwidthbytes)
        rightmarginbytes = printerwidthbytes - maxdatawidthbytes - leftmarginbytes;
    else
        maxdatawidthbytes = printerwidthbytes - leftmarginbytes;  // cut at the right edge
    DebugTrace(DIB_LEVEL_OP, u"   ?rightmarginbytes=%d\r\n", rightmarginbytes);
    DebugTrace(DIB_LEVEL_OP, u"   ?leftmarginbytes=%d\r\n", leftmarginbytes);
    DebugTrace(DIB_LEVEL_OP, u"   ?maxdatawidthbytes=%d\r\n", maxdatawidthbytes);
    DebugTrace(DIB_LEVEL_OP, u"   ?printerwidthbytes=%d\r\n", printerwidthbytes);
    DebugTrace(DIB_LEVEL_OP, u"   ?%d=%d\r\n", printerwidthbytes,
               rightmarginbytes + leftmarginbytes + maxdatawidthbytes);

    for (LONG y = 0; y < height; ++y) {
        if (!WriteZeros(file, DWORD(leftmarginbytes)))
            return FailWrite(file, u"<DibPRNSaveOneil()=DibErrorFileWrite(): Left Margin\r\n");
        // A data part of no bytes is a write of no bytes, and so a failure.
        written = 0;
        if (!WriteFile(file, hdib->ppRow[y], DWORD(maxdatawidthbytes), &written, nullptr) || written == 0 ||
            written != DWORD(maxdatawidthbytes))
            return FailWrite(file, u"<DibPRNSaveOneil()=DibErrorFileWrite(): Data\r\n");
        if (!WriteZeros(file, DWORD(rightmarginbytes)))
            return FailWrite(file, u"<DibPRNSaveOneil()=DibErrorFileWrite(): Left Margin\r\n");
    }
    if (!CloseHandle(file)) return DibErrorFileCreation;
    DebugTrace(DIB_LEVEL_OP, u"<DibPRNSaveOneil()=DibOk\r\n");
    return DibOk;
}

DWORD DibPRNSave(const WCHAR* filename, HDIB hdib, DWORD format, LONG printerwidth, LONG leftmargin) {
    DebugTrace(DIB_LEVEL_OP, u">DibPRNSave(%s, %lld, %d)\r\n", filename, TRACE_PTR(hdib), format);
    if (format != DIB_PRN_ONEIL) {
        DebugTrace(DIB_LEVEL_OP, u"<DibPRNSave()=DibErrorInvalidParm\r\n");
        return DibErrorInvalidParm;
    }
    DWORD result = DibPRNSaveOneil(filename, hdib, leftmargin, printerwidth);
    if (result != DibOk) DebugTrace(DIB_LEVEL_OP, u"<DibPRNSave()=%d\r\n", result);
    return result;
}

}  // extern "C"
