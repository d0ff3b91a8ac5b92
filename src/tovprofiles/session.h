/*
 * The state that the camera and the profile code share: the open profile
 * document, the current profile in it, and the camera's picture geometry.
 * Everything here is guarded by the global lock (tovce.h); the camera and
 * the chain reach each other only through the exports.
 */
#ifndef TOVREL_SESSION_H
#define TOVREL_SESSION_H

#include "profiledoc.h"
#include "tovce.h"

/* The 36-byte record that the scan engine fills. */
struct EngineInfo {
    DWORD dwSize;
    DWORD dwReserved0;
    DWORD dwFrameHeight;
    DWORD dwFrameWidth;
    DWORD dwReserved1;
    DWORD dwOrientation;
    DWORD dwReserved2[3];
};
static_assert(sizeof(EngineInfo) == 36, "the engine's record");

extern ProfileDocument SessionDocument;
extern ProfileNode CurrentProfile;     /* empty: no profile open */
extern EngineInfo SessionEngineInfo;   /* zero until an engine reports */

/* Runs an export's body; a document operation that ran out of memory for
 * a text value ends it with 6 (the lock guard inside is left on the way). */
template <class Body>
DWORD ProfileGuarded(Body body) {
    try {
        return body();
    } catch (...) {
        return tovErrorUnknown;
    }
}

/* Opens a profile file and one of its profiles without a camera, and loads
 * its chain: the profile half of a session start. 0, 12 (no such profile),
 * 13 (the chain is not usable), 17 (the file cannot be loaded) or 6 (out of
 * memory); on failure nothing stays open. The lock is taken here. */
DWORD ProfileOpenSession(const WCHAR* file, const WCHAR* name);
/* Closes the document; the chain stays as it is. */
void ProfileCloseSession(void);

/* Empties every slot of the chain. The lock is held by the caller. */
void ClearChain(void);

/* 0 or 13: fills the chain from the current profile's "Processing"
 * section, writing canonical texts back into the document. The lock is
 * held by the caller. Throws ProfileMemoryFailure. */
DWORD LoadChain(void);

#endif
