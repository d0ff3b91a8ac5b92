// The shared session state and the profile half of a session start.
#include "session.h"

#include "pfcatalog.h"

ProfileDocument SessionDocument;
ProfileNode CurrentProfile;
EngineInfo SessionEngineInfo;

DWORD ProfileOpenSession(const WCHAR* file, const WCHAR* name) {
    TovLockGuard lock;
    ProfileCloseSession();
    try {
        if (pdoc::Load(&SessionDocument, file)) {
            pdoc::Close(&SessionDocument);
            return tovErrorProfileFileOpen;
        }
        CurrentProfile = pdoc::FindSection(&SessionDocument, ProfileNode(), name ? name : u"", false);
        if (!CurrentProfile) {
            pdoc::Close(&SessionDocument);
            return tovErrorProfileNotFound;
        }
        ClearChain();
        DWORD result = LoadChain();
        if (result) ProfileCloseSession();
        return result;
    } catch (...) {
        ProfileCloseSession();
        return tovErrorUnknown;
    }
}

void ProfileCloseSession(void) {
    TovLockGuard lock;
    CurrentProfile = ProfileNode();
    pdoc::Close(&SessionDocument);
}
