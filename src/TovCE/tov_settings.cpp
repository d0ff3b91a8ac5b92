// Aimer and illumination: two keys of the current profile's "Settings"
// section, passed on to the engine at once while a capture runs. The two
// pairs of exports differ only in the key and the engine call.
#include "camera.h"

namespace {

const WCHAR kSettings[] = u"Settings";

struct Setting {
    const WCHAR* key;
    BOOL (*EngineFunctions::*send)(DWORD, LONG);
};
const Setting kAimer = {u"Aimer", &EngineFunctions::SetAimer};
const Setting kIllumination = {u"Illumination", &EngineFunctions::SetIllumination};

ProfileNode SettingsSection() {
    ProfileNode section = pdoc::FindSection(&SessionDocument, CurrentProfile, kSettings, true);
    ASSERT(section);
    return section;
}

DWORD Get(const Setting& s, LONG* pValue) {
    if (tovCannotRead(pValue)) return DibErrorInvalidParm;
    return ProfileGuarded([&]() -> DWORD {
        TovLockGuard lock;
        if (!CurrentProfile) return tovErrorNotInitialized;
        ProfileValue text;
        if (pdoc::GetKey(SettingsSection(), s.key, &text)) return tovErrorProfileData;
        *pValue = LONG(_wtol(text.text));
        return tovOk;
    });
}

DWORD Set(const Setting& s, LONG value) {
    return ProfileGuarded([&]() -> DWORD {
        TovLockGuard lock;
        if (!CurrentProfile) return tovErrorNotInitialized;
        ProfileValue text;
        text.SetNumber(value);
        if (pdoc::SetKey(&SessionDocument, SettingsSection(), s.key, &text)) return tovErrorUnknown;
        if (Camera.bCapturing && !(Camera.engine.*s.send)(Camera.hScanSession, value)) return tovErrorUnknown;
        return tovOk;
    });
}

}  // namespace

extern "C" {

DWORD tovGetAimer(LONG* pValue) { return Get(kAimer, pValue); }
DWORD tovSetAimer(LONG value) { return Set(kAimer, value); }
DWORD tovGetIllumination(LONG* pValue) { return Get(kIllumination, pValue); }
DWORD tovSetIllumination(LONG value) { return Set(kIllumination, value); }

}  // extern "C"
