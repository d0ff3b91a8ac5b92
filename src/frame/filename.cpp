// File names of the file exports: completion with an extension, the
// bounded copy of a caller's name into a local buffer, and the copy shown in
// an entry trace.
#include "tovce.h"

namespace {

// Length of a name within a buffer of cap characters; cap when the name has
// no terminator inside it.
size_t BoundedLength(const WCHAR* text, size_t cap) {
    size_t n = 0;
    while (n < cap && text[n]) ++n;
    return n;
}

}  // namespace

extern "C" {

int tovFixExtension(WCHAR* name, const WCHAR* extension) {
    if (!name || !extension) return 0;
    size_t n = BoundedLength(name, TOV_MAX_PATH);
    if (n < 2 || n >= TOV_MAX_PATH) return 0;
    size_t extLength = BoundedLength(extension, TOV_MAX_PATH);
    // The first character is not looked at: a leading dot is no extension.
    size_t dot = 0;
    for (size_t i = n - 1; i >= 1; --i) {
        if (name[i] == u'.') {
            dot = i;
            break;
        }
    }
    if (dot && _wcsicmp(name + dot + 1, extension) == 0) return 1;
    bool endsInDot = dot == n - 1;
    size_t needed = n + (endsInDot ? 0 : 1) + extLength + 1;
    if (needed > TOV_MAX_PATH) return 0;
    WCHAR* at = name + n;
    if (!endsInDot) *at++ = u'.';
    for (size_t i = 0; i < extLength; ++i) *at++ = extension[i];
    *at = 0;
    return 1;
}

void tovTraceName(const WCHAR* filename, WCHAR* out) {
    out[0] = 0;
    if (tovCannotRead(filename)) return;
    size_t n = BoundedLength(filename, TOV_TRACE_NAME_MAX - 1);
    for (size_t i = 0; i < n; ++i) out[i] = filename[i];
    out[n] = 0;
}

DWORD tovPrepareFileName(const WCHAR* filename, const WCHAR* extension, WCHAR* buffer) {
    for (size_t i = 0; i < TOV_MAX_PATH; ++i) buffer[i] = 0;
    if (tovCannotRead(filename)) return DibErrorInvalidParm;
    size_t n = BoundedLength(filename, TOV_MAX_PATH);
    if (n >= TOV_MAX_PATH) return tovErrorBadFileName;
    for (size_t i = 0; i < n; ++i) buffer[i] = filename[i];
    return tovFixExtension(buffer, extension) ? DibOk : tovErrorBadFileName;
}

}  // extern "C"
