// Locks, local time and the per-thread last error.
#include <tovrel/platform.h>

#include <pthread.h>
#include <sys/time.h>

#include <ctime>
#include <new>

static_assert(sizeof(pthread_mutex_t) <= sizeof(CRITICAL_SECTION), "CRITICAL_SECTION too small");

namespace {
thread_local DWORD t_lastError = 0;
pthread_mutex_t* MutexOf(CRITICAL_SECTION* cs) { return reinterpret_cast<pthread_mutex_t*>(cs->opaque); }
}  // namespace

extern "C" {

// Recursive, as the owner re-enters through nested exports.
void InitializeCriticalSection(CRITICAL_SECTION* cs) {
    if (!cs) return;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(MutexOf(cs), &attr);
    pthread_mutexattr_destroy(&attr);
}

void EnterCriticalSection(CRITICAL_SECTION* cs) {
    if (cs) pthread_mutex_lock(MutexOf(cs));
}

void LeaveCriticalSection(CRITICAL_SECTION* cs) {
    if (cs) pthread_mutex_unlock(MutexOf(cs));
}

void DeleteCriticalSection(CRITICAL_SECTION* cs) {
    if (cs) pthread_mutex_destroy(MutexOf(cs));
}

void GetLocalTime(SYSTEMTIME* out) {
    if (!out) return;
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    struct tm tm;
    time_t seconds = tv.tv_sec;
    localtime_r(&seconds, &tm);
    out->wYear = static_cast<WORD>(tm.tm_year + 1900);
    out->wMonth = static_cast<WORD>(tm.tm_mon + 1);
    out->wDayOfWeek = static_cast<WORD>(tm.tm_wday);
    out->wDay = static_cast<WORD>(tm.tm_mday);
    out->wHour = static_cast<WORD>(tm.tm_hour);
    out->wMinute = static_cast<WORD>(tm.tm_min);
    out->wSecond = static_cast<WORD>(tm.tm_sec > 59 ? 59 : tm.tm_sec);
    out->wMilliseconds = static_cast<WORD>(tv.tv_usec / 1000);
}

DWORD GetLastError(void) { return t_lastError; }

void SetLastError(DWORD code) { t_lastError = code; }

}  // extern "C"
