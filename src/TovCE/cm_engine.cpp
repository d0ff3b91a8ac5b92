// The cm layer: the engine's functions by ordinal, opening and closing the
// engine session, starting and stopping the scan, the exposure mode, grabs,
// and the imager class. Callers hold the global lock.
#include "camera.h"

#include <cstring>

CameraState Camera;

namespace {

constexpr DWORD kTypeWordBytes = sizeof(DWORD);

// One ordinal into one typed slot.
template <class F>
bool Resolve(HMODULE library, WORD ordinal, F* slot) {
    FARPROC f = GetProcAddressW(library, MAKEINTRESOURCEW(ordinal));
    std::memcpy(slot, &f, sizeof f);
    return f != nullptr;
}

// The class of a raw type word.
LONG ClassOfTypeWord(DWORD word) {
    switch (word) {
    case 1: case 5: case 6: case 7: return 1;
    case 2: case 3: return 2;
    default: return 0;
    }
}

}  // namespace

bool cmResolveEngine(HMODULE library, EngineFunctions* e) {
    return Resolve(library, 1, &e->InitializeScanEngine) && Resolve(library, 2, &e->DeinitializeScanEngine) &&
           Resolve(library, 3, &e->OpenSessionWithScanEngine) && Resolve(library, 4, &e->CloseSessionWithScanEngine) &&
           Resolve(library, 5, &e->ReserveAndRegisterScanSpace) && Resolve(library, 6, &e->ReleaseScanSpace) &&
           Resolve(library, 7, &e->GrabFrame) && Resolve(library, 8, &e->StartScanning) &&
           Resolve(library, 9, &e->StopScanning) && Resolve(library, 12, &e->SetIllumination) &&
           Resolve(library, 13, &e->SetAimer) && Resolve(library, 15, &e->SetExposureMode) &&
           Resolve(library, 16, &e->SetExposureSettings) && Resolve(library, 20, &e->GetDriverRevision) &&
           Resolve(library, 24, &e->GetEngineInfo);
}

bool cmInitSessionExt(void) {
    const EngineFunctions& e = Camera.engine;
    DebugTrace(DIB_LEVEL_FRAME, u">cmInitSessionExt()\r\n");
    if (Camera.hScanSession) {
        // The device's own texts, misspellings (sic) and all: logs are compared with them.
        DebugTrace(DIB_LEVEL_FRAME, u"   !Imaged alread initialized cmInitSesion() returned\r\n");
        DebugTrace(DIB_LEVEL_FRAME, u"<cmInitSessionExt()=false\r\n");
        return false;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"?Calling QDXE_InitializeScanEngine()\r\n");
    if (!e.InitializeScanEngine()) {
        DebugTrace(DIB_LEVEL_FRAME, u"   !Call to QDXE_InitializeScanEngine() from cmInitSesion() failed\r\n");
        DebugTrace(DIB_LEVEL_FRAME, u"<cmInitSessionExt()=FALSE\r\n");
        return false;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"?Calling QDXE_OpenSessionWithScanEngine()\r\n");
    Camera.hScanSession = e.OpenSessionWithScanEngine();
    if (!Camera.hScanSession) {
        DebugTrace(DIB_LEVEL_FRAME, u"   !Call to QDXE_OpenSessionWithScanEngine() from cmInitSesion failed\r\n");
        DebugTrace(DIB_LEVEL_FRAME, u"?Calling QDXE_DeinitializeScanEngine()\r\n");
        e.DeinitializeScanEngine();
        DebugTrace(DIB_LEVEL_FRAME, u"<cmInitSessionExt()=FALSE\r\n");
        return false;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"?Calling QDXE_ReserveAndRegisterScanSpace()\r\n");
    Camera.pScanSpace = e.ReserveAndRegisterScanSpace(Camera.hScanSession);
    if (!Camera.pScanSpace) {
        DebugTrace(DIB_LEVEL_FRAME, u"   !QDXE_ReserveAndRegisterScanSpace() failed\r\n");
        e.CloseSessionWithScanEngine(Camera.hScanSession);
        Camera.hScanSession = 0;
        e.DeinitializeScanEngine();
        return false;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<cmInitSessionExt()=TRUE\r\n");
    return true;
}

bool cmUninitSession(void) {
    const EngineFunctions& e = Camera.engine;
    DebugTrace(DIB_LEVEL_FRAME, u">cmUninitSession()\r\n");
    if (Camera.pScanSpace) {
        e.ReleaseScanSpace(Camera.hScanSession, Camera.pScanSpace);
        Camera.pScanSpace = nullptr;
    }
    if (Camera.hScanSession) {
        DebugTrace(DIB_LEVEL_FRAME, u"?Calling QDXE_CloseSessionWithScanEngine()\r\n");
        if (!e.CloseSessionWithScanEngine(Camera.hScanSession)) {
            DebugTrace(DIB_LEVEL_FRAME,
                       u"   !Call to QDXE_CloseSessionWithScanEngine() from cmUninitSession() failed\r\n");
            return false;
        }
        Camera.hScanSession = 0;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"?Calling QDXE_DeinitializeScanEngine()\r\n");
    if (!e.DeinitializeScanEngine()) {
        DebugTrace(DIB_LEVEL_FRAME, u"Call to QDXE_DeinitializeScanEngine() from cmUninitSession() failed\r\n");
        return false;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"<cmUninitSession()=true\r\n");
    return true;
}

LONG cmGetImagerClass(void) {
    SetLastError(0);
    DebugTrace(DIB_LEVEL_FRAME, u">cmGetImagerClass()\r\n");
    if (HMODULE library = LoadLibraryW(u"qdxengine.dll")) {
        BOOL (*getEngineType)(BYTE*) = nullptr;
        if (!Resolve(library, 23, &getEngineType)) {
            DebugTrace(DIB_LEVEL_FRAME, u"   !cmGetImagerClass: GetProcAddress() failed\r\n");
        } else {
            DebugTrace(DIB_LEVEL_FRAME, u"   ?cmGetImagerClass(): Using GetEngineType()\r\n");
            BYTE type = 0;
            if (getEngineType(&type)) {
                FreeLibrary(library);
                DebugTrace(DIB_LEVEL_FRAME, u"<cmGetImagerClass()=%d\r\n", int(type));
                return LONG(type);
            }
            DebugTrace(DIB_LEVEL_FRAME, u"   !cmGetImagerClass: GetEngineType() failed\r\n");
        }
        FreeLibrary(library);
    } else {
        DebugTrace(DIB_LEVEL_FRAME, u"   !cmGetImagerClass: LoadLibrary() failed\r\n");
    }
    DebugTrace(DIB_LEVEL_FRAME, u"   ?cmGetImagerClass(): Using KernelIoControl()\r\n");
    DWORD word = 0, returned = 0;
    LONG imagerClass = -1;
    if (KernelIoControl(PLAT_IOCTL_IMAGER_TYPE, nullptr, 0, &word, kTypeWordBytes, &returned))
        imagerClass = ClassOfTypeWord(word);
    else
        DebugTrace(DIB_LEVEL_FRAME, u"   !cmGetImagerClass: KernelIoControl() failed\r\n");
    DebugTrace(DIB_LEVEL_FRAME, u"<cmGetImagerClass()=%d\r\n", int(imagerClass));
    return imagerClass;
}

// Start and stop differ in the engine call and the words of the trace.
static bool ScanCall(BOOL (*call)(DWORD), const WCHAR* enter, const WCHAR* calling, const WCHAR* failed,
                     const WCHAR* ok, const WCHAR* notOk) {
    SetLastError(0);
    DebugTrace(DIB_LEVEL_FRAME, enter);
    DebugTrace(DIB_LEVEL_FRAME, calling);
    if (call(Camera.hScanSession)) {
        DebugTrace(DIB_LEVEL_FRAME, ok);
        return true;
    }
    DebugTrace(DIB_LEVEL_FRAME, failed, int(GetLastError()));
    DebugTrace(DIB_LEVEL_FRAME, notOk);
    return false;
}

bool cmStartCapturing(void) {
    return ScanCall(Camera.engine.StartScanning, u">cmStartCapturing()\r\n", u"?Calling QDXE_StartScanning()\r\n",
                    u"   !Call to QDXE_StartScanning() from cmStartCapturing() failed (%d)\r\n",
                    u"<cmStartCapturing()=true\r\n", u"<cmStartCapturing()=false\r\n");
}

bool cmStopCapturing(void) {
    return ScanCall(Camera.engine.StopScanning, u">cmStopCapturing()\r\n", u"?Calling QDXE_StopScanning()\r\n",
                    u"   !Call to QDXE_StopScanning() from cmStopCapturing() failed (%d)\r\n",
                    u"<cmStopCapturing()=true\r\n", u"<cmStopCapturing()=false\r\n");
}

bool cmSetExposureMode(DWORD mode) {
    DebugTrace(DIB_LEVEL_FRAME, u">cmSetExposureMode(%d)\r\n", int(mode));
    DebugTrace(DIB_LEVEL_FRAME, u"?Calling QDXE_SetExposureMode()\r\n");
    if (Camera.engine.SetExposureMode(Camera.hScanSession, mode)) {
        DebugTrace(DIB_LEVEL_FRAME, u"<cmSetExposureMode()=True\r\n");
        return true;
    }
    DebugTrace(DIB_LEVEL_FRAME, u"   !Call to QDXE_SetExposureMode() from cmSetExposureMode() failed\r\n");
    DebugTrace(DIB_LEVEL_FRAME, u"<cmSetExposureMode()=false\r\n");
    return false;
}

bool cmGrab(void) {
    if (SessionEngineInfo.dwFrameWidth == CM_FRAME_WIDE)
        return Camera.pfnGrabWideFrame(Camera.hScanSession, Camera.pScanSpace) != 0;
    return Camera.engine.GrabFrame(Camera.hScanSession, Camera.pScanSpace) != 0;
}
