/*
 * The bitmap layer: the record behind an HDIB, its accessors and lifecycle,
 * pixel access, creation, copying, conversion and BMP files. Everything here
 * has C linkage and returns the shared result codes (tovrel.h).
 */
#ifndef TOVREL_DIBCE_H
#define TOVREL_DIBCE_H

#include <tovrel/platform.h>
#include <tovrel/tovrel.h>
#include "trace.h"

#ifdef __cplusplus
extern "C" {
#endif

#define DIB_SIGNATURE 0x20626944u /* "Dib " in memory order */

/* Largest width or height accepted from a caller or a file, and the largest
 * pixel store; sizes are computed in 64 bits and checked against these
 * before anything is allocated. */
#define DIB_MAX_DIMENSION 65536
#define DIB_MAX_BITS_BYTES ((int64_t)1 << 30)
/* Largest colour table a record keeps (also for depths above 8 bits). */
#define DIB_MAX_COLORS 256
/* The only header size the record keeps and writes back. */
#define DIB_HEADER_BYTES 40

/* Trace levels */
#define DIB_LEVEL_FRAME 5
#define DIB_LEVEL_OP 8
#define DIB_LEVEL_ACCESSOR 9
#define DIB_LEVEL_VALID 10

typedef struct DibRecord {
    BYTE** ppRow;       /* ppRow[0] is the top row */
    DWORD iSignature;
    HBITMAP hBitmap;
    BYTE* pBits;        /* bottom row first */
    DIBSECTION ds;
    RGBQUAD* pbmiColors;
} DibRecord;

/* ---- record, accessors, lifecycle -------------------------------------- */
DWORD DibIsValid(HDIB hdib);
/* The same check said the way a caller asks it: DibIsValid answers with a
 * result code (DibOk, that is 0, for a good handle), so a bare
 * `if (DibIsValid(h))` reads backwards. Traces as DibIsValid does. */
static inline BOOL DibIsInvalid(HDIB hdib) { return DibIsValid(hdib) != DibOk; }
HBITMAP DibBitmapHandle(HDIB hdib);
LONG DibWidth(HDIB hdib);
LONG DibHeight(HDIB hdib);
WORD DibColorPlanes(HDIB hdib);
WORD DibBitCount(HDIB hdib);
LONG DibRowLength(HDIB hdib);
DWORD DibNumColors(HDIB hdib);
DWORD DibHeaderSize(HDIB hdib);
DWORD DibPaletteSize(HDIB hdib);
DWORD DibInfoSize(HDIB hdib);
DWORD DibBitsSize(HDIB hdib);
DWORD DibTotalSize(HDIB hdib);
BITMAPINFOHEADER* DibInfoHeaderPtr(HDIB hdib);
BYTE* DibBitsPtr(HDIB hdib);

/* Both creators take a 40-byte header with its colours at byte 40 and refuse,
 * before anything is allocated or deleted, a header of another size, sizes
 * that are negative or past the limits above, depths other than those of
 * DibDepthKnown, more colours than the depth (or DIB_MAX_COLORS) allows, and
 * a colour table that cannot be read. A refused re-creation returns 7 and
 * leaves the record as it was. */
HDIB DibCreateFromBitmapInfo(const BITMAPINFO* info);
DWORD DibReCreateFromBitmapInfo(const BITMAPINFO* info, HDIB hdib);
DWORD DibResize(HDIB hdib, LONG width, LONG height);
HDIB DibCreateCopy(HDIB hdib);
/* DibCreateCopy and DibResize, the same calls, allocations and traces, but
 * the new store is not filled (nor cleared): for an operation that writes
 * what it reads of it itself, in the order its work reads the pixels,
 * before it reads any. */
HDIB DibCreateWorkingCopy(HDIB hdib);
DWORD DibResizeUncleared(HDIB hdib, LONG width, LONG height);
/* Two live records of the same header trade their pixel stores (with the
 * row tables); each keeps its bitmap handle and colours. FALSE, and nothing
 * traded, when the platform refuses. */
BOOL DibExchangeStores(HDIB a, HDIB b);
DWORD DibUnload(HDIB hdib);
void DibDump(HDIB hdib);

/* Live records; traced only. */
LONG DibLiveCount(void);

/* Bytes a row of width pixels at bitcount bits takes, rounded up to 32 bits,
 * in 64 bits; -1 for a negative width or depth. */
int64_t DibRowBytes(int64_t width, int64_t bitcount);

/* Depths a record can have: 1, 4 and 8 bits with colours, 16, 24 and 32
 * only with a colour table given (biClrUsed). */
BOOL DibDepthKnown(DWORD bitcount);

/* A failed re-creation leaves the record alive but empty: no bitmap, no
 * tables, width, height, depth and colours 0. It stays valid, so that it can
 * be re-created or unloaded; operations see a bitmap of no pixels and depth
 * 0 and refuse it. DibHasBitmap tells the two apart (0 for a bad handle). */
BOOL DibHasBitmap(HDIB hdib);

/* ---- pixel access -------------------------------------------------------- */
/* The read and write routines of one depth. Operations fill a pair of their
 * own with DibRegisterPixelIO, so that operations on different threads never
 * share routines. The routines check nothing. */
typedef DWORD (*DibGetPixelFn)(HDIB hdib, LONG x, LONG y);
typedef void (*DibSetPixelFn)(HDIB hdib, LONG x, LONG y, DWORD value);
typedef struct DibPixelIO {
    DibGetPixelFn get;
    DibSetPixelFn set;
} DibPixelIO;

DWORD DibRegisterPixelIO(DWORD bitcount, DibPixelIO* io);
DWORD DibGetPixel8(HDIB hdib, LONG x, LONG y);
DWORD DibGetPixel4(HDIB hdib, LONG x, LONG y);
DWORD DibGetPixel1(HDIB hdib, LONG x, LONG y);
void DibSetPixel8(HDIB hdib, LONG x, LONG y, DWORD value);
void DibSetPixel4(HDIB hdib, LONG x, LONG y, DWORD value);
void DibSetPixel1(HDIB hdib, LONG x, LONG y, DWORD value);

/* ---- creation, copying, conversion ------------------------------------- */
/* A zeroed info block with room for colours table entries ((colours + 10)
 * x 4 bytes, from LocalAlloc), its header filled in but for the bit count,
 * which the caller sets; NULL when the allocation fails. */
BITMAPINFO* DibNewInfoBlock(LONG width, LONG height, DWORD colours);
/* A zeroed standard grey info block for 1, 4 or 8 bits, from LocalAlloc;
 * NULL when the depth is not one of those or the allocation fails. */
BITMAPINFO* DibGreyInfoBlock(LONG width, LONG height, DWORD bitcount);
/* A new grey bitmap through such a block, which is freed again. NULL on
 * failure, and *failure (when given) says which step failed, so that each
 * caller traces it in its own words. */
#define DIB_GREY_FAILED_INFO 1   /* the info block: bad depth or no memory */
#define DIB_GREY_FAILED_BITMAP 2 /* DibCreateFromBitmapInfo */
HDIB DibCreateGrey(LONG width, LONG height, DWORD bitcount, DWORD* failure);
HDIB DibCreate(LONG width, LONG height, DWORD clear);
DWORD DibRecreate(HDIB hdib, LONG width, LONG height, DWORD clear, DWORD bitcount);
DWORD DibConvert(HDIB hdib, DWORD bitcount);
DWORD DibCopy(HDIB destination, HDIB source);
DWORD DibClear(HDIB hdib, DWORD value);

/* ---- BMP files ----------------------------------------------------------- */
DWORD DibBMPSave(const WCHAR* filename, HDIB hdib);
HDIB DibBMPLoad(const WCHAR* filename);

#ifdef __cplusplus
}
#endif

#endif
