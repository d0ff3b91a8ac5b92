// The picture sizes of the open session: the full frame the engine reports
// and the preview, a third of it (212 columns of 640, 250 of 752; 160 rows
// of 480). Without a current profile every size is 0.
#include "session.h"

namespace {

constexpr DWORD kFrameRows = 480;
constexpr DWORD kPreviewRows = 160;

// Reads one size under the lock; 0 without a current profile.
template <class Size>
DWORD SessionSize(Size size) {
    TovLockGuard lock;
    return CurrentProfile ? size(SessionEngineInfo) : 0;
}

}  // namespace

extern "C" {

DWORD tovGetImagerFullWidth(void) {
    return SessionSize([](const EngineInfo& e) { return e.dwFrameWidth; });
}

DWORD tovGetImagerFullHeight(void) {
    return SessionSize([](const EngineInfo& e) { return e.dwFrameHeight; });
}

DWORD tovGetImagerPreviewWidth(void) {
    return SessionSize([](const EngineInfo& e) -> DWORD {
        return e.dwFrameWidth == 640 ? 212 : e.dwFrameWidth == 752 ? 250 : 0;
    });
}

DWORD tovGetImagerPreviewHeight(void) {
    return SessionSize([](const EngineInfo& e) { return e.dwFrameHeight == kFrameRows ? kPreviewRows : 0; });
}

}  // extern "C"
