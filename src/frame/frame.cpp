/*
 * The library frame.
 *
 *   tovConfigDebug, tovGetDllRevision   the diagnostics and revision exports
 *   tovProbePointer                     the readability check of caller pointers
 *   tovGlobalLock                       the one recursive lock of camera and profiles
 *   DllMain                             load and unload, driven by the loader hooks
 *   tovRegisterSessionCloser            how unloading ends an open camera session
 */
#include "tovce.h"

#include <atomic>

namespace {

constexpr DWORD kReasonProcessDetach = 0;
constexpr DWORD kReasonProcessAttach = 1;

const WCHAR kDllRevision[] = u"2.102.30001.0";
const WCHAR kLogFileName[] = u"imaging.log";

CRITICAL_SECTION g_lock;
std::atomic<TovSessionCloser> g_sessionCloser{nullptr};

// The loader's attach and detach: the lock lives from load to unload.
__attribute__((constructor)) void OnLoad() { DllMain(nullptr, kReasonProcessAttach, nullptr); }
__attribute__((destructor)) void OnUnload() { DllMain(nullptr, kReasonProcessDetach, nullptr); }

}  // namespace

extern "C" {

void tovConfigDebug(DWORD enable, DWORD level, DWORD outputs) {
    DebugSetFileName(kLogFileName);
    DebugConfig(enable, level, outputs);
}

DWORD tovGetDllRevision(WCHAR* buffer) {
    // The whole text's bytes, not only the first, so that a buffer ending
    // at unmapped memory is refused instead of written past.
    if (tovCannotRead(buffer) || IsBadReadPtr(buffer, sizeof kDllRevision))
        return DibErrorInvalidParm;
    for (size_t i = 0; i < sizeof kDllRevision / sizeof kDllRevision[0]; ++i)
        buffer[i] = kDllRevision[i];
    return tovOk;
}

DWORD tovProbePointer(const void* pointer) {
    if (!pointer) return 1;
    return IsBadReadPtr(pointer, 1) ? 2 : 0;
}

CRITICAL_SECTION* tovGlobalLock(void) { return &g_lock; }

void tovRegisterSessionCloser(TovSessionCloser closer) {
    g_sessionCloser.store(closer, std::memory_order_release);
}

BOOL DllMain(HINSTANCE /*instance*/, DWORD reason, void* /*reserved*/) {
    if (reason == kReasonProcessAttach) {
        InitializeCriticalSection(&g_lock);
    } else if (reason == kReasonProcessDetach) {
        // The closer takes the lock itself; 9 (no session) is no concern here.
        TovSessionCloser closer = g_sessionCloser.load(std::memory_order_acquire);
        if (closer) closer();
        DeleteCriticalSection(&g_lock);
    }
    return TRUE;
}

}  // extern "C"
