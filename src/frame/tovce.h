/*
 * The export layer: the frame helpers every export shares, the global lock
 * and the file-name completion used by the file exports.
 */
#ifndef TOVREL_TOVCE_H
#define TOVREL_TOVCE_H

#include "dibce.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TOV_MAX_PATH 260 /* characters, terminator included */

/* 0: the first byte can be read; 1: NULL; 2: the read would fault. */
DWORD tovProbePointer(const void* pointer);
/* The check as a caller asks it: true for NULL and for a pointer whose
 * first byte cannot be read. */
static inline BOOL tovCannotRead(const void* pointer) { return tovProbePointer(pointer) != 0; }

/* Completes name (a buffer of TOV_MAX_PATH characters) with ".extension"
 * unless it already ends so. 1 on success, 0 for a name that is too short
 * or would not fit. */
int tovFixExtension(WCHAR* name, const WCHAR* extension);

/* Copies a caller's file name into buffer (TOV_MAX_PATH) and completes it.
 * 0 on success, 7 for a pointer that cannot be read, 19 for a name that
 * cannot be completed. */
DWORD tovPrepareFileName(const WCHAR* filename, const WCHAR* extension, WCHAR* buffer);

/* An entry trace shows the caller's name as given, before it is copied into
 * a TOV_MAX_PATH buffer: only the trace line's own cut applies to it. */
#define TOV_TRACE_NAME_MAX DEBUG_LINE_MAX

/* A bounded copy of a caller's name (into TOV_TRACE_NAME_MAX characters)
 * for an entry trace; empty when the pointer cannot be read. */
void tovTraceName(const WCHAR* filename, WCHAR* out);

/* The exit trace of an export frame that hands a Dib code on: okText on
 * DibOk, otherwise errorText (with %d for the code) as an error line. */
DWORD tovLeave(DWORD result, const WCHAR* okText, const WCHAR* errorText);

/* The same for a frame that hands on a new bitmap: okText (with %lld for
 * the handle), or errorText as an error line for NULL. */
HDIB tovLeaveHandle(HDIB hdib, const WCHAR* okText, const WCHAR* errorText);

/* The frame of a file load: the name copied and completed with extension
 * (NULL when it cannot be read or completed), the entry trace entryText
 * (%s for the completed name), the load, the exit trace as above. */
HDIB tovLoadFrame(const WCHAR* filename, const WCHAR* extension, HDIB (*load)(const WCHAR* name),
                  const WCHAR* entryText, const WCHAR* okText, const WCHAR* errorText);

/* The one recursive global lock of the camera and profile state. */
CRITICAL_SECTION* tovGlobalLock(void);

/* Library load and unload: reason 1 creates the lock, reason 0 closes an
 * open camera session and deletes the lock. Always TRUE. */
BOOL DllMain(HINSTANCE instance, DWORD reason, void* reserved);

/* The camera layer hands in how its open session is closed, so that
 * unloading ends a session before the lock goes. The closer's result (9
 * when no session is open) is ignored. NULL removes it. */
typedef DWORD (*TovSessionCloser)(void);
void tovRegisterSessionCloser(TovSessionCloser closer);

/* For states the code around it has made impossible: the line goes to the
 * kernel's debug stream, then the process stops at a debugger break. Not
 * tied to the trace settings. */
#define ASSERT(cond)                                                          \
    do {                                                                      \
        if (!(cond)) {                                                        \
            NKDbgPrintfW(u"ASSERT failed in file %s at line %d \r\n",          \
                         u"" __FILE__, __LINE__);                             \
            PlatDebugBreak();                                                 \
        }                                                                     \
    } while (0)

#ifdef __cplusplus
}

/* Scope guard for the global lock: never left held on any way out. */
struct TovLockGuard {
    TovLockGuard() { EnterCriticalSection(tovGlobalLock()); }
    ~TovLockGuard() { LeaveCriticalSection(tovGlobalLock()); }
    TovLockGuard(const TovLockGuard&) = delete;
    TovLockGuard& operator=(const TovLockGuard&) = delete;
};
#endif

#endif
