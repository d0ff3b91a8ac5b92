// Session start and stop: the engine's library, the profile file and the
// profile, the imager's class, the engine session, the frame geometry, the
// exposure, the chain, and aimer and illumination, each undone in reverse
// order when a later step fails, so that a failed start leaves nothing open.
#include "camera.h"

#include <cstring>

namespace {

constexpr DWORD kFlagCreateProfile = InitFlagCreateProfile, kFlagFrame640 = InitFlagFrame640,
                kFlagFrame752 = InitFlagFrame752, kFlagReadOnlyProfile = InitFlagReadOnlyProfile;
constexpr LONG kStartAimer = 0, kStartIllumination = 1;

// What start-up has opened so far, closed again in reverse order unless
// the start succeeds.
struct Opened {
    bool library = false, document = false, session = false;
    ~Opened() {
        if (session) cmUninitSession();
        if (document) {
            CurrentProfile = ProfileNode();
            pdoc::Close(&SessionDocument);
        }
        if (library) {
            FreeLibrary(Camera.hEngineLibrary);
            Camera.hEngineLibrary = nullptr;
            Camera.pfnGrabWideFrame = nullptr;
        }
    }
    void Keep() { library = document = session = false; }
};

// The frame width the session works with, or 0 when it is refused.
DWORD SettleWidth(DWORD reported, DWORD flags) {
    const bool wideGrab = Camera.pfnGrabWideFrame && (flags & kFlagFrame752);
    if (reported == CM_FRAME_NARROW) return (flags & kFlagFrame640) ? CM_FRAME_NARROW : 0;
    if (reported == CM_FRAME_WIDE) {
        if (wideGrab) return CM_FRAME_WIDE;
        return (flags & kFlagFrame640) ? CM_FRAME_NARROW : 0;  // 640-wide grabs on a wide imager
    }
    return 0;
}

DWORD Start(const WCHAR* profileFile, const WCHAR* profileName, DWORD* flags) {
    WCHAR defaultFile[TOV_MAX_PATH];
    if (!profileFile) {
        if (!PlatDefaultProfileFile(defaultFile, TOV_MAX_PATH)) return tovErrorProfileFileOpen;
        profileFile = defaultFile;
    }
    const bool unnamed = !profileName || !profileName[0];
    DWORD in = flags ? *flags : (unnamed ? kFlagCreateProfile : 0);
    if (unnamed) profileName = u"";

    TovLockGuard lock;
    Opened opened;
    Camera.hEngineLibrary = LoadLibraryW(u"qdxengine.dll");
    if (!Camera.hEngineLibrary) return tovErrorUnknown;
    opened.library = true;
    if (!cmResolveEngine(Camera.hEngineLibrary, &Camera.engine)) return tovErrorUnknown;
    FARPROC wide = GetProcAddressW(Camera.hEngineLibrary, MAKEINTRESOURCEW(27));
    std::memcpy(&Camera.pfnGrabWideFrame, &wide, sizeof wide);

    opened.document = true;
    if (pdoc::Load(&SessionDocument, profileFile)) return tovErrorProfileFileOpen;
    CurrentProfile = pdoc::FindSection(&SessionDocument, ProfileNode(), profileName, (in & kFlagCreateProfile) != 0);
    if (!CurrentProfile) return tovErrorProfileNotFound;
    if (flags) *flags = (pdoc::Flags(CurrentProfile) & ProfileFlagReadOnly) ? kFlagReadOnlyProfile : 0;

    if (tovCheckImager() != tovOk) return tovErrorUnknown;
    if (!cmInitSessionExt()) return tovErrorUnknown;
    opened.session = true;
    std::memset(&SessionEngineInfo, 0, sizeof SessionEngineInfo);
    SessionEngineInfo.dwSize = sizeof SessionEngineInfo;
    if (!Camera.engine.GetEngineInfo(&SessionEngineInfo)) return tovErrorUnknown;
    if (!(in & (kFlagFrame640 | kFlagFrame752))) in |= kFlagFrame640;
    SessionEngineInfo.dwFrameWidth = SettleWidth(SessionEngineInfo.dwFrameWidth, in);
    if (!SessionEngineInfo.dwFrameWidth || SessionEngineInfo.dwFrameHeight != CM_FRAME_HEIGHT)
        return tovErrorUnknown;

    DWORD mode = 0;
    if (tovGetExposureMode(&mode) != tovOk || tovSetExposureMode(mode) != tovOk) return tovErrorUnknown;
    ClearChain();
    if (LoadChain() != 0) return tovErrorProfileData;

    LONG aimer = kStartAimer, illumination = kStartIllumination;
    tovGetAimer(&aimer);
    tovSetAimer(aimer);
    tovGetIllumination(&illumination);
    tovSetIllumination(illumination);

    opened.Keep();
    Camera.bCameraInitialized = TRUE;
    return tovOk;
}

}  // namespace

extern "C" {

DWORD tovInitCamera(const WCHAR* profileFile, const WCHAR* profileName, DWORD* flags) {
    if (Camera.bCameraInitialized) return tovErrorAlreadyInitialized;
    if ((profileFile && tovCannotRead(profileFile)) || (profileName && tovCannotRead(profileName)) ||
        (flags && tovCannotRead(flags)))
        return DibErrorInvalidParm;
    return ProfileGuarded([=] { return Start(profileFile, profileName, flags); });
}

DWORD tovUninitCamera(void) {
    TovLockGuard lock;
    if (!Camera.bCameraInitialized) return tovErrorNotInitialized;
    if (Camera.bCapturing) tovStopCapture();
    CurrentProfile = ProfileNode();
    pdoc::Close(&SessionDocument);
    cmUninitSession();
    FreeLibrary(Camera.hEngineLibrary);
    Camera.hEngineLibrary = nullptr;
    Camera.pfnGrabWideFrame = nullptr;
    Camera.bCameraInitialized = FALSE;
    return tovOk;
}

}  // extern "C"

// Unloading the library closes an open session before the lock goes.
static const bool g_closerRegistered = (tovRegisterSessionCloser(tovUninitCamera), true);
