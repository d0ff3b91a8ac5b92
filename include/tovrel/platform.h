/*
 * libtovplatform: the Linux stand-in for the device platform.
 *
 * The calls keep their Win32 names and signatures so that code ported from
 * the device compiles unchanged. Calls without a Win32 counterpart carry the
 * prefix "Plat".
 *
 * Contents: memory, files, locks, time, diagnostics sinks, last error,
 * UTF-16 text helpers, DIB sections and the graphics device calls.
 */
#ifndef TOVREL_PLATFORM_H
#define TOVREL_PLATFORM_H

#include <stdarg.h>
#include "wintypes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- memory ---------------------------------------------------------- */
#define LMEM_FIXED 0x0000
#define LMEM_MOVEABLE 0x0002
#define LMEM_ZEROINIT 0x0040
#define LPTR (LMEM_FIXED | LMEM_ZEROINIT)

HLOCAL LocalAlloc(UINT flags, size_t bytes);
HLOCAL LocalReAlloc(HLOCAL mem, size_t bytes, UINT flags);
HLOCAL LocalFree(HLOCAL mem); /* NULL on success */
size_t LocalSize(HLOCAL mem);
BOOL IsBadReadPtr(const void* p, size_t bytes);
void GlobalMemoryStatus(MEMORYSTATUS* status);

/* ---- files ----------------------------------------------------------- */
#define GENERIC_READ 0x80000000u
#define GENERIC_WRITE 0x40000000u
#define FILE_SHARE_READ 0x1u
#define FILE_SHARE_WRITE 0x2u
#define CREATE_NEW 1u
#define CREATE_ALWAYS 2u
#define OPEN_EXISTING 3u
#define OPEN_ALWAYS 4u
#define TRUNCATE_EXISTING 5u
#define FILE_ATTRIBUTE_READONLY 0x1u
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
#define FILE_ATTRIBUTE_NORMAL 0x80u
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define INVALID_FILE_SIZE 0xFFFFFFFFu
#define FILE_BEGIN 0u
#define FILE_CURRENT 1u
#define FILE_END 2u
#define INVALID_SET_FILE_POINTER 0xFFFFFFFFu
#define INVALID_HANDLE_VALUE ((HANDLE)(intptr_t)-1)

HANDLE CreateFileW(const WCHAR* name, DWORD access, DWORD share, void* security,
                   DWORD disposition, DWORD attributes, HANDLE templ);
BOOL ReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* read, void* overlapped);
BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytes, DWORD* written, void* overlapped);
BOOL CloseHandle(HANDLE file);
DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method);
DWORD GetFileSize(HANDLE file, DWORD* sizeHigh);
BOOL FlushFileBuffers(HANDLE file);
DWORD GetFileAttributesW(const WCHAR* name);
BOOL DeleteFileW(const WCHAR* name);
/* Closes a file that a failed save leaves behind: a file being replaced
 * (CREATE_ALWAYS) keeps its old contents, as if the save never started.
 * CloseHandle replaces the old file only when every write succeeded; a
 * caller that gives up for another reason discards instead. */
BOOL PlatDiscardFile(HANDLE file);

/* ---- modules and the device --------------------------------------------- */
/* A shared library by name. "qdxengine.dll" is the scan engine: the path in
 * TOVREL_ENGINE (read at each call), else libqdxengine.so beside
 * libtovplatform.so, else the loader's search path. NULL on failure. */
HMODULE LoadLibraryW(const WCHAR* name);
/* An ordinal (a name pointer below 0x10000) resolves through the engine's
 * ordinal table on the engine module only; NULL for a function the library
 * lacks. */
FARPROC GetProcAddressW(HMODULE module, const WCHAR* name);
BOOL FreeLibrary(HMODULE module);
#define MAKEINTRESOURCEW(i) ((const WCHAR*)(uintptr_t)(WORD)(i))
/* The imager type word: code PLAT_IOCTL_IMAGER_TYPE fills one DWORD from
 * TOVREL_IMAGER_TYPE (a decimal number; "fail" or unset fail the call). */
#define PLAT_IOCTL_IMAGER_TYPE 0x010120D8u
BOOL KernelIoControl(DWORD code, void* in, DWORD inSize, void* out, DWORD outSize, DWORD* returned);
/* The profile file used when a caller names none: TOVREL_PROFILES, else
 * "/Brevane/ImagingProfiles.zpf". FALSE when it does not fit capacity. */
BOOL PlatDefaultProfileFile(WCHAR* buffer, DWORD capacity);

/* ---- locks ----------------------------------------------------------- */
void InitializeCriticalSection(CRITICAL_SECTION* cs);
void EnterCriticalSection(CRITICAL_SECTION* cs);
void LeaveCriticalSection(CRITICAL_SECTION* cs);
void DeleteCriticalSection(CRITICAL_SECTION* cs);

/* ---- time, errors ---------------------------------------------------- */
void GetLocalTime(SYSTEMTIME* time);
DWORD GetLastError(void);
void SetLastError(DWORD code);

#define ERROR_SUCCESS 0u
#define ERROR_FILE_NOT_FOUND 2u
#define ERROR_ACCESS_DENIED 5u
#define ERROR_INVALID_HANDLE 6u
#define ERROR_NOT_ENOUGH_MEMORY 8u
#define ERROR_WRITE_FAULT 29u
#define ERROR_READ_FAULT 30u
#define ERROR_HANDLE_DISK_FULL 39u
#define ERROR_INVALID_PARAMETER 87u
#define ERROR_INVALID_NAME 123u
#define ERROR_MOD_NOT_FOUND 126u
#define ERROR_PROC_NOT_FOUND 127u
#define ERROR_NOT_SUPPORTED 50u
#define ERROR_DISK_FULL 112u

/* ---- diagnostics sinks ---------------------------------------------- */
#define MB_OK 0u
#define IDOK 1
void OutputDebugStringW(const WCHAR* text);          /* standard error */
void NKDbgPrintfW(const WCHAR* format, ...);          /* standard error */
int MessageBoxW(HWND owner, const WCHAR* text, const WCHAR* caption, UINT type);
void PlatConsoleWrite(const WCHAR* text);             /* standard output */
/* Stops at a debugger; without one the process ends with SIGTRAP. */
void PlatDebugBreak(void);

/* ---- UTF-16 text ------------------------------------------------------ */
/* printf-style formatting into UTF-16: %s takes a UTF-16 string, %hs a
 * narrow one; d i u x X o c p f e g with flags, width, precision and the
 * length modifiers h l ll z. Always terminates; returns the characters
 * written, or -1 when the text was cut at count - 1. */
int _vsnwprintf(WCHAR* buffer, size_t count, const WCHAR* format, va_list args);
int _snwprintf(WCHAR* buffer, size_t count, const WCHAR* format, ...);
size_t PlatWideLength(const WCHAR* text);
int _wcsicmp(const WCHAR* a, const WCHAR* b);
long _wtol(const WCHAR* text);
WCHAR* _itow(int value, WCHAR* buffer, int radix);
double PlatWideToDouble(const WCHAR* text, WCHAR** end);
/* UTF-16 to UTF-8 into a buffer of cap bytes, always terminated; returns
 * the bytes written without the terminator, or (size_t)-1 if it did not fit. */
size_t PlatWideToUtf8(const WCHAR* text, char* out, size_t cap);
/* UTF-8 to UTF-16 into cap characters, always terminated; (size_t)-1 if cut. */
size_t PlatUtf8ToWide(const char* text, WCHAR* out, size_t cap);

/* ---- DIB sections and GDI objects ---------------------------------- */
#define DIB_RGB_COLORS 0u
#define BI_RGB 0u

/* Bottom-up sections of 1 to 32 bits; the colour table is read from byte 40
 * of info. The pixel store is zeroed and holds max(biSizeImage, rows x
 * stride) bytes, so a header's biSizeImage never points past it.
 * GetObjectW gives the header back unchanged (biClrUsed, biSizeImage). */
HBITMAP CreateDIBSection(HDC dc, const BITMAPINFO* info, UINT usage, void** bits,
                         HANDLE section, DWORD offset);
/* CreateDIBSection for an info block the library built itself in its own
 * memory (header and colour table readable), which is therefore not probed.
 * With zero FALSE the store is left as the allocator gives it: for a caller
 * that writes every byte of it before reading any. */
HBITMAP PlatCreateOwnDIBSection(const BITMAPINFO* info, void** bits, BOOL zero);
/* Two live sections of the same header trade their pixel stores; each
 * handle stays what it was (selected or not). FALSE, and nothing traded,
 * for anything else. */
BOOL PlatExchangeDIBSectionStores(HBITMAP a, HBITMAP b);
int GetObjectW(HGDIOBJ object, int bytes, void* out);
BOOL DeleteObject(HGDIOBJ object);

/* ---- device contexts and drawing ----------------------------------- */
#define SRCCOPY 0x00CC0020u
#define SRCPAINT 0x00EE0086u
#define SRCAND 0x008800C6u
#define SRCINVERT 0x00660046u
#define SRCERASE 0x00440328u
#define NOTSRCCOPY 0x00330008u
#define NOTSRCERASE 0x001100A6u
#define MERGECOPY 0x00C000CAu
#define MERGEPAINT 0x00BB0226u
#define PATCOPY 0x00F00021u
#define PATPAINT 0x00FB0A09u
#define PATINVERT 0x005A0049u
#define DSTINVERT 0x00550009u
#define BLACKNESS 0x00000042u
#define WHITENESS 0x00FF0062u

#define TRANSPARENT 1
#define OPAQUE 2

#define PS_SOLID 0
#define PS_NULL 5

#define FW_NORMAL 400
#define FW_BOLD 700

#define DT_TOP 0x0000u
#define DT_LEFT 0x0000u
#define DT_CENTER 0x0001u
#define DT_RIGHT 0x0002u
#define DT_VCENTER 0x0004u
#define DT_BOTTOM 0x0008u
#define DT_WORDBREAK 0x0010u
#define DT_SINGLELINE 0x0020u
#define DT_EXPANDTABS 0x0040u
#define DT_NOCLIP 0x0100u
#define DT_CALCRECT 0x0400u
#define DT_NOPREFIX 0x0800u

#define CLR_INVALID 0xFFFFFFFFu
#define RGB(r, g, b) ((COLORREF)(((BYTE)(r)) | ((WORD)((BYTE)(g)) << 8) | (((DWORD)(BYTE)(b)) << 16)))

HDC GetDC(HWND window);
int ReleaseDC(HWND window, HDC dc);
HDC CreateCompatibleDC(HDC dc);
BOOL DeleteDC(HDC dc);
HGDIOBJ SelectObject(HDC dc, HGDIOBJ object);
BOOL BitBlt(HDC dest, int x, int y, int width, int height, HDC src, int sx, int sy, DWORD rop);
BOOL StretchBlt(HDC dest, int x, int y, int width, int height, HDC src, int sx, int sy,
                int swidth, int sheight, DWORD rop);
HFONT CreateFontIndirectW(const LOGFONTW* font);
int DrawTextW(HDC dc, const WCHAR* text, int count, RECT* rect, UINT format);
int SetBkMode(HDC dc, int mode);
COLORREF SetTextColor(HDC dc, COLORREF colour);
COLORREF SetBkColor(HDC dc, COLORREF colour);
HPEN CreatePen(int style, int width, COLORREF colour);
BOOL Polyline(HDC dc, const POINT* points, int count);

/* A device context that draws into the caller's own 32-bit XRGB rows (a
 * frame buffer, a window surface). The caller keeps the memory alive until
 * DeleteDC. stride is in bytes. */
HDC PlatCreateBufferDC(void* pixels, LONG width, LONG height, LONG stride);

/* ---- test seams -------------------------------------------------------- */
/* Makes the nth allocation from now fail (1: the next one); 0 turns the
 * fault off. Counts LocalAlloc, LocalReAlloc and every allocation of the
 * graphics objects. Process-wide. */
void PlatFailAllocation(long nth);
/* Makes the nth WriteFile from now fail as on a full medium (1: the next
 * one); 0 turns the fault off. Process-wide. */
void PlatFailWrite(long nth);
/* Allocations attempted since the library was loaded. */
long PlatAllocationCount(void);
/* Memory blocks and graphics objects alive now: a leak shows as a
 * difference before and after an operation. */
long PlatLiveObjects(void);
/* Resolves font names through the fontconfig configuration in this file
 * instead of the system's (tests: an empty one has no fonts at all); NULL
 * returns to the system's. FALSE when the file cannot be loaded. */
BOOL PlatSetFontConfigFile(const char* file);

#ifdef __cplusplus
}
#endif

#endif
