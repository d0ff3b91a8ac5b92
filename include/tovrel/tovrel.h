/*
 * libtovrel: the 87 exports of the imaging library, their result codes and
 * the shared types. Link with -ltovrel.
 */
#ifndef TOVREL_TOVREL_H
#define TOVREL_TOVREL_H

#include "wintypes.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct DibRecord* HDIB;

typedef struct EsPair {
    DWORD id;
    LONG value;
} EsPair;

/* Result codes: one space for both layers. */
enum {
    tovOk = 0,
    DibOk = 0,
    DibErrorMemoryAlocation = 1, /* sic: the device's name, one l */
    DibErrorMemoryFree = 2,
    DibErrorFileCreation = 3,
    DibErrorFileWrite = 4,
    DibErrorInvalidDIB = 5,
    DibErrorUnknown = 6,
    tovErrorUnknown = 6,
    DibErrorInvalidParm = 7,
    tovErrorAlreadyInitialized = 8,
    tovErrorNotInitialized = 9,
    tovErrorProfileExists = 10,
    tovErrorProfileReadOnly = 11,
    tovErrorProfileNotFound = 12,
    tovErrorProfileData = 13,
    tovErrorAlreadyCapturing = 14,
    tovErrorNotCapturing = 15,
    tovErrorProfileFileLoad = 16,
    tovErrorProfileFileOpen = 17,
    tovErrorBadOutputBuffer = 18,
    tovErrorBadFileName = 19
};

/* File formats of tovSave, tovLoad and tovSigSave. */
enum { tovFormatJPG = 0, tovFormatPNG = 1, tovFormatBMP = 2 };

/* Capture modes of tovCaptureImage. */
enum {
    tovCaptureFull = 0,
    tovCapturePreview = 1,
    tovCaptureFullProcessed = 2,
    tovCapturePreviewProcessed = 3
};

/* Exposure modes. */
enum { tovExposureFixed = 0, tovExposureAutomatic = 2 };

/* The flags word of tovInitCamera. */
enum {
    InitFlagCreateProfile = 0x8,
    InitFlagFrame640 = 0x100,
    InitFlagFrame752 = 0x200,
    InitFlagReadOnlyProfile = 0x1000
};

/* Trace sinks of tovConfigDebug. */
enum {
    tovDebugConsole = 0x01,
    tovDebugFile = 0x02,
    tovDebugMessageBox = 0x04,
    tovDebugStream = 0x08
};

/* Diagnostics and revision */
void tovConfigDebug(DWORD enable, DWORD level, DWORD outputs);
DWORD tovGetDllRevision(WCHAR* buffer);

/* Bitmap lifecycle and accessors */
DWORD tovHDIBIsValid(HDIB hdib);
HDIB tovCreateCopyHDIB(HDIB hdib);
DWORD tovUnloadHDIB(HDIB hdib);
LONG tovWidth(HDIB hdib);
LONG tovHeight(HDIB hdib);
DWORD tovBitCount(HDIB hdib);
DWORD tovNumColors(HDIB hdib);
BYTE* tovBitsPtr(HDIB hdib);
BITMAPINFOHEADER* tovInfoHeaderPtr(HDIB hdib);
HBITMAP tovBitmapHandle(HDIB hdib);

/* Bitmap creation */
HDIB tovCreateHDIBExt(LONG width, LONG height, DWORD clear, DWORD bitcount);
DWORD tovRecreateHDIBExt(HDIB hdib, LONG width, LONG height, DWORD clear, DWORD bitcount);
DWORD tovConvert(HDIB hdib, DWORD bitcount);
DWORD tovClear(HDIB hdib, DWORD value);

/* Files */
DWORD tovSaveBMP(HDIB hdib, const WCHAR* filename);
HDIB tovLoadBMP(const WCHAR* filename);
DWORD tovSaveJPG(HDIB hdib, const WCHAR* filename, DWORD quality);
HDIB tovLoadJPG(const WCHAR* filename);
DWORD tovSavePNG(HDIB hdib, const WCHAR* filename);
HDIB tovLoadPNG(const WCHAR* filename);
DWORD tovSave(HDIB hdib, const WCHAR* filename, DWORD format, DWORD quality);
HDIB tovLoad(const WCHAR* filename, DWORD format);
DWORD tovSavePRN(HDIB hdib, const WCHAR* filename, DWORD format, LONG printerwidth, LONG leftmargin);

/* Image operations */
DWORD tovBrightness(HDIB hdib, LONG brightness);
DWORD tovContrast(HDIB hdib, LONG contrast);
DWORD tovInvert(HDIB hdib);
DWORD tovGammaCorrection(HDIB hdib, double gamma);
DWORD tovHistogramStretch(HDIB hdib);
DWORD tovHistogramStretchEx(HDIB hdib, LONG low, LONG high, DWORD mode);
DWORD tovRankFilter(HDIB hdib, DWORD rank);
DWORD tovDespeckle(HDIB hdib, DWORD threshold, DWORD background);
DWORD tovConvolutionFilter(HDIB hdib, const LONG* kernel, LONG rows, LONG cols, LONG divisor, LONG bias);
DWORD tovAverage(HDIB hdib);
DWORD tovInfinityFilter(HDIB hdib);
DWORD tovSharpen(HDIB hdib, LONG level);
DWORD tovThreshold(HDIB hdib, DWORD threshold);
DWORD tovFlipHorizontal(HDIB hdib);
DWORD tovFlipVertical(HDIB hdib);
DWORD tovCrop(HDIB hdib, DWORD x, DWORD y, DWORD width, DWORD height);
DWORD tovScale(HDIB hdib, DWORD percent);
DWORD tovDither16Color(HDIB hdib);
DWORD tovDither2Color(HDIB hdib);

/* Overlays, signatures, display */
DWORD tovOverlayBuffer(HDIB hdib, const WCHAR* text, DWORD alignment, LONG height, DWORD rasterOp);
DWORD tovOverlayTimeDate(HDIB hdib, DWORD alignment, LONG height, DWORD rasterOp);
DWORD tovSigDraw(HDC dc, const void* record, COLORREF colour, LONG penWidth);
DWORD tovSigSave(const WCHAR* fileName, DWORD format, DWORD quality, const void* record,
                 const WCHAR* text, BOOL rotate, COLORREF colour, LONG penWidth);
DWORD tovDisplayImage(HDIB hDib, HDC hDC, const RECT* rect, BOOL fit, LONG percent, BYTE centre);

/* Imager */
DWORD tovCheckImager(void);
LONG tovGetImagerType(void);
DWORD tovGetScanDriverRevision(WCHAR* buffer);
DWORD tovGetImagerFullWidth(void);
DWORD tovGetImagerFullHeight(void);
DWORD tovGetImagerPreviewWidth(void);
DWORD tovGetImagerPreviewHeight(void);

/* Capture */
HDIB tovCreateHDIB(void);
DWORD tovStartCapture(void);
DWORD tovStopCapture(void);
DWORD tovCaptureImage(HDIB hDib, DWORD mode);

/* Exposure, aimer, illumination */
DWORD tovGetExposureMode(DWORD* pMode);
DWORD tovSetExposureMode(DWORD mode);
DWORD tovGetExposureSettings(EsPair* pairs, DWORD size);
DWORD tovSetExposureSettings(EsPair* pairs, DWORD size);
const WCHAR* tovProfileESParmIDToName(DWORD id);
DWORD tovGetAimer(LONG* pValue);
DWORD tovSetAimer(LONG value);
DWORD tovGetIllumination(LONG* pValue);
DWORD tovSetIllumination(LONG value);

/* Session */
DWORD tovInitCamera(const WCHAR* profileFile, const WCHAR* profileName, DWORD* flags);
DWORD tovUninitCamera(void);

/* Processing catalogue and chain */
DWORD tovProcessImage(HDIB hDest, HDIB hSource);
DWORD tovProfilePFNameToID(const WCHAR* name);
const WCHAR* tovProfilePFIDToName(DWORD id);
DWORD tovProfilePFParmNameToID(DWORD id, const WCHAR* name);
const WCHAR* tovProfilePFParmIDToName(DWORD id, DWORD parm);
const WCHAR* tovProfilePFParmMin(DWORD id, DWORD parm);
const WCHAR* tovProfilePFParmMax(DWORD id, DWORD parm);
const WCHAR* tovProfilePFParmDefault(DWORD id, DWORD parm);

/* Profile management */
DWORD tovGetProfileList(const WCHAR* file, WCHAR* names, DWORD capacity);
DWORD tovSaveProfile(const WCHAR* file, const WCHAR* name, DWORD flags);
DWORD tovDeleteProfile(const WCHAR* file, const WCHAR* name);
DWORD tovAddProfilePF(DWORD position, DWORD id);
DWORD tovGetProfilePFID(DWORD slot);
DWORD tovDeleteProfilePF(DWORD slot);
DWORD tovGetProfilePFParmValue(DWORD slot, DWORD parm, WCHAR* value, DWORD length);
DWORD tovSetProfilePFParmValue(DWORD slot, DWORD parm, const WCHAR* value);

#ifdef __cplusplus
}
#endif

#endif
