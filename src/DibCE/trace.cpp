/*
 * The trace log.
 *
 *   DebugConfig, DebugSetFileName   the settings (tovConfigDebug writes them)
 *   DebugTrace, DebugError          stamped lines to the selected sinks
 *   DebugMemoryStatus               the memory figures as eight trace lines
 *   DebugWriteFile                  the file sink: open, append, flush, close
 *   DebugAssert                     the fatal assertion of the Dib layer
 *
 * The settings are plain process-wide values without a lock; they are
 * atomics only so that a reader on another thread sees a whole value. The
 * file sink alone is serialised, so that lines from threads all arrive
 * whole. Every buffer is on the stack: tracing must work when the heap
 * does not.
 */
#include "trace.h"

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace {

// Bits of the outputs mask, in the order a line is delivered.
constexpr DWORD kSinkDebugStream = 0x08;
constexpr DWORD kSinkMessageBox = 0x04;
constexpr DWORD kSinkConsole = 0x01;
constexpr DWORD kSinkFile = 0x02;
constexpr DWORD kSinkOrder[] = {kSinkDebugStream, kSinkMessageBox, kSinkConsole, kSinkFile};

// UTF-8 needs at most three bytes per UTF-16 unit (a surrogate pair: four
// bytes for two units), so a whole line always fits and is never cut here.
constexpr size_t kFileBytesMax = DEBUG_LINE_MAX * 3 + 1;

std::atomic<DWORD> g_enable{0};
std::atomic<DWORD> g_level{5};
std::atomic<DWORD> g_outputs{2};
std::atomic<DWORD> g_assertEnable{1};
WCHAR g_fileName[DEBUG_FILENAME_MAX];
// Guards the file name, which a thread's first tovConfigDebug writes while
// another may trace, and appending: a seek to the end and then a write, so
// that two threads in between would write at the same end and lose a line.
std::mutex g_fileSinkMutex;

bool Enabled() { return g_enable.load(std::memory_order_relaxed) != 0; }

// The line ending a format asks for: a line cut at the limit keeps it, so
// the next line still starts on a line of its own.
const WCHAR* LineEndingOf(const WCHAR* format) {
    size_t n = PlatWideLength(format);
    if (n >= 2 && format[n - 2] == u'\r' && format[n - 1] == u'\n') return u"\r\n";
    if (n >= 1 && format[n - 1] == u'\n') return u"\n";
    return u"";
}

// Puts ending over the last characters of a full line buffer.
void KeepEnding(WCHAR* line, const WCHAR* ending) {
    size_t n = PlatWideLength(ending);
    size_t at = DEBUG_LINE_MAX - 1 - n;
    if (line[at - 1] >= 0xD800 && line[at - 1] <= 0xDBFF) --at;  // no half of a pair
    for (size_t i = 0; i <= n; ++i) line[at + i] = ending[i];
}

// Compares with the stored name as it would be stored (cut to fit).
bool SameFileName(const WCHAR* name) {
    for (size_t i = 0; i < DEBUG_FILENAME_MAX; ++i) {
        WCHAR want = i + 1 == DEBUG_FILENAME_MAX ? 0 : name[i];
        if (g_fileName[i] != want) return false;
        if (!want) return true;
    }
    return true;
}

void Deliver(DWORD sink, const WCHAR* line) {
    switch (sink) {
    case kSinkDebugStream: OutputDebugStringW(line); break;
    case kSinkMessageBox: MessageBoxW(nullptr, line, u"Debug", MB_OK); break;
    case kSinkConsole: PlatConsoleWrite(line); break;
    case kSinkFile: DebugWriteFile(line); break;
    default: break;
    }
}

// Stamps text for each selected sink, one after the other in one buffer.
// withDate chooses between the trace's stamp and the error trace's.
void StampAndDeliver(const SYSTEMTIME& now, bool withDate, const WCHAR* text, bool cut,
                     const WCHAR* ending) {
    DWORD outputs = g_outputs.load(std::memory_order_relaxed);
    WCHAR line[DEBUG_LINE_MAX];
    for (DWORD sink : kSinkOrder) {
        if (!(outputs & sink)) continue;
        int n = withDate
                    ? _snwprintf(line, DEBUG_LINE_MAX, u"%02d/%02d/%02d %02d:%02d:%02d %s",
                                 now.wMonth, now.wDay, now.wYear % 100, now.wHour,
                                 now.wMinute, now.wSecond, text)
                    : _snwprintf(line, DEBUG_LINE_MAX, u"%02d:%02d:%02d %s", now.wHour,
                                 now.wMinute, now.wSecond, text);
        if (n < 0 || cut) KeepEnding(line, ending);
        Deliver(sink, line);
    }
}

// The line of a trace (isTrace: dated, and only up to the set level) or of
// an error trace. The text is formatted before the level is looked at.
void FormatAndDeliver(bool isTrace, DWORD level, const WCHAR* format, va_list args) {
    // Tracing is off in most runs: no clock read for a line that goes nowhere.
    if (!Enabled() || !format) return;
    SYSTEMTIME now;
    GetLocalTime(&now);
    WCHAR text[DEBUG_LINE_MAX];
    int n = _vsnwprintf(text, DEBUG_LINE_MAX, format, args);
    if (isTrace && level > g_level.load(std::memory_order_relaxed)) return;
    StampAndDeliver(now, isTrace, text, n < 0, LineEndingOf(format));
}

}  // namespace

extern "C" {

void DebugConfig(DWORD enable, DWORD level, DWORD outputs) {
    g_enable.store(enable, std::memory_order_relaxed);
    g_level.store(level, std::memory_order_relaxed);
    g_outputs.store(outputs, std::memory_order_relaxed);
}

void DebugSetFileName(const WCHAR* name) {
    if (!name) name = u"";
    std::lock_guard<std::mutex> guard(g_fileSinkMutex);
    if (SameFileName(name)) return;
    size_t i = 0;
    for (; i + 1 < DEBUG_FILENAME_MAX && name[i]; ++i) g_fileName[i] = name[i];
    g_fileName[i] = 0;
}

void DebugTrace(DWORD level, const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    FormatAndDeliver(true, level, format, args);
    va_end(args);
}

void DebugError(const WCHAR* format, ...) {
    va_list args;
    va_start(args, format);
    FormatAndDeliver(false, 0, format, args);
    va_end(args);
}

void DebugMemoryStatus(DWORD level) {
    if (!Enabled()) return;
    MEMORYSTATUS ms = {};
    ms.dwLength = sizeof ms;
    GlobalMemoryStatus(&ms);
    DebugTrace(level, u"Memory Status:\n");
    DebugTrace(level, u"   dwMemoryLoad: %d\n", ms.dwMemoryLoad);
    DebugTrace(level, u"   dwTotalPageFile: %d\n", ms.dwTotalPageFile);
    DebugTrace(level, u"   dwAvailPageFile: %d\n", ms.dwAvailPageFile);
    DebugTrace(level, u"   dwTotalPhys: %d\n", ms.dwTotalPhys);
    DebugTrace(level, u"   dwAvailPhys: %d\n", ms.dwAvailPhys);
    DebugTrace(level, u"   dwAvailVirtual: %d\n", ms.dwAvailVirtual);
    DebugTrace(level, u"   dwTotalVirtual: %d\n", ms.dwTotalVirtual);
}

void DebugWriteFile(const WCHAR* line) {
    if (!Enabled() || !line) return;
    char bytes[kFileBytesMax];
    size_t length = PlatWideToUtf8(line, bytes, sizeof bytes);
    if (length == static_cast<size_t>(-1)) length = 0;
    std::lock_guard<std::mutex> appending(g_fileSinkMutex);
    HANDLE file = CreateFileW(g_fileName, GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return;  // the line is lost, nothing else
    SetFilePointer(file, 0, nullptr, FILE_END);
    DWORD written = 0;
    if (length) WriteFile(file, bytes, static_cast<DWORD>(length), &written, nullptr);
    FlushFileBuffers(file);
    CloseHandle(file);
}

void DebugAssert(const WCHAR* file, int line, const WCHAR* condition) {
    if (!g_assertEnable.load(std::memory_order_relaxed)) return;
    WCHAR text[DEBUG_LINE_MAX];
    _snwprintf(text, DEBUG_LINE_MAX, u"Condition: %s failed.  %s line %d",
               condition ? condition : u"", file ? file : u"", line);
    MessageBoxW(nullptr, text, u"Assertion Error", MB_OK);
    std::exit(3);
}

}  // extern "C"
