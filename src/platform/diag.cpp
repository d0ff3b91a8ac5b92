// Diagnostic sinks. The device has a kernel debug stream and message boxes;
// here both go to standard error, and the console sink to standard output.
#include <tovrel/platform.h>

#include <csignal>
#include <cstdio>
#include <mutex>

namespace {

std::mutex g_streamMutex;

// Writes UTF-16 text as UTF-8 in one call, so lines from threads stay whole.
void WriteUtf8(FILE* stream, const WCHAR* text) {
    if (!text) return;
    char buf[4 * 1024 + 16];
    PlatWideToUtf8(text, buf, sizeof buf);
    std::lock_guard<std::mutex> lock(g_streamMutex);
    std::fputs(buf, stream);
    std::fflush(stream);
}

}  // namespace

extern "C" {

void OutputDebugStringW(const WCHAR* text) { WriteUtf8(stderr, text); }

void NKDbgPrintfW(const WCHAR* format, ...) {
    WCHAR line[1024];
    va_list args;
    va_start(args, format);
    _vsnwprintf(line, 1024, format, args);
    va_end(args);
    WriteUtf8(stderr, line);
}

// There is nobody to press OK: the box is shown as a block of text and
// counts as dismissed at once.
int MessageBoxW(HWND /*owner*/, const WCHAR* text, const WCHAR* caption, UINT /*type*/) {
    WCHAR line[1200];
    _snwprintf(line, 1200, u"[%s] %s\n", caption ? caption : u"", text ? text : u"");
    WriteUtf8(stderr, line);
    return IDOK;
}

void PlatConsoleWrite(const WCHAR* text) { WriteUtf8(stdout, text); }

void PlatDebugBreak(void) { std::raise(SIGTRAP); }

}  // extern "C"
