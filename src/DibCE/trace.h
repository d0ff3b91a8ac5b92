/*
 * The trace log: a levelled trace, an unconditional error trace, the
 * memory status dump and the fatal assertion. Settings are process-wide and
 * unguarded; every buffer lives on the stack.
 */
#ifndef TOVREL_TRACE_H
#define TOVREL_TRACE_H

#include <tovrel/platform.h>

#ifdef __cplusplus
extern "C" {
#endif

#define DEBUG_LINE_MAX 1024 /* characters of a line, stamp included */
#define DEBUG_FILENAME_MAX 256

void DebugConfig(DWORD enable, DWORD level, DWORD outputs);
void DebugSetFileName(const WCHAR* name);
void DebugTrace(DWORD level, const WCHAR* format, ...);
void DebugError(const WCHAR* format, ...);
void DebugMemoryStatus(DWORD level);
void DebugAssert(const WCHAR* file, int line, const WCHAR* condition);
void DebugWriteFile(const WCHAR* line);

/* Trace texts print handles and pointers as decimal numbers. */
#define TRACE_PTR(p) ((long long)(intptr_t)(p))

#define DIB_ASSERT(cond) \
    do { if (!(cond)) DebugAssert(u"" __FILE__, __LINE__, u"" #cond); } while (0)

#ifdef __cplusplus
}
#endif

#endif
