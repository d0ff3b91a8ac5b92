/*
 * The camera: the one camera state of the process, the scan engine's
 * functions as the loaded library gives them, and the cm layer that opens,
 * closes and drives the engine. All of it is guarded by the global lock,
 * which every caller holds.
 */
#ifndef TOVREL_CAMERA_H
#define TOVREL_CAMERA_H

#include "session.h"

/* Frame geometry the library drives. */
#define CM_FRAME_NARROW 640u
#define CM_FRAME_WIDE 752u
#define CM_FRAME_HEIGHT 480u
#define CM_ORIENTATION_TURNED 2u
#define CM_REVISION_CHARS 260

/* The engine's functions, resolved by ordinal when the library is loaded.
 * The optional two may be NULL. */
struct EngineFunctions {
    BOOL (*InitializeScanEngine)(void);                            /* 1 */
    BOOL (*DeinitializeScanEngine)(void);                          /* 2 */
    DWORD (*OpenSessionWithScanEngine)(void);                      /* 3 */
    BOOL (*CloseSessionWithScanEngine)(DWORD);                     /* 4 */
    BYTE* (*ReserveAndRegisterScanSpace)(DWORD);                   /* 5 */
    BOOL (*ReleaseScanSpace)(DWORD, BYTE*);                        /* 6 */
    BOOL (*GrabFrame)(DWORD, BYTE*);                               /* 7 */
    BOOL (*StartScanning)(DWORD);                                  /* 8 */
    BOOL (*StopScanning)(DWORD);                                   /* 9 */
    BOOL (*SetIllumination)(DWORD, LONG);                          /* 12 */
    BOOL (*SetAimer)(DWORD, LONG);                                 /* 13 */
    BOOL (*SetExposureMode)(DWORD, DWORD);                         /* 15 */
    BOOL (*SetExposureSettings)(DWORD, const EsPair*, DWORD);      /* 16 */
    BOOL (*GetDriverRevision)(DWORD, WCHAR*);                      /* 20 */
    BOOL (*GetEngineInfo)(EngineInfo*);                            /* 24 */
};

struct CameraState {
    DWORD hScanSession;
    BYTE* pScanSpace;
    /* EngineInfo lives in SessionEngineInfo (session.h), which the size
     * queries read. */
    BOOL bCameraInitialized;
    BOOL bCapturing;
    HMODULE hEngineLibrary;
    BOOL (*pfnGrabWideFrame)(DWORD, BYTE*);
    EngineFunctions engine;
};

extern CameraState Camera;

/* Resolves every required function of a loaded engine library; false when
 * one is missing. */
bool cmResolveEngine(HMODULE library, EngineFunctions* out);

bool cmInitSessionExt(void);
bool cmUninitSession(void);
LONG cmGetImagerClass(void);
bool cmStartCapturing(void);
bool cmStopCapturing(void);
bool cmSetExposureMode(DWORD mode);
/* The revision part of an engine's revision text, into out (as long). */
void cmReduceRevision(const WCHAR* raw, WCHAR* out);
/* One frame into the scan space, through the wide grab for 752 columns. */
bool cmGrab(void);

#endif
