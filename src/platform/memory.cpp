// Memory: LocalAlloc and friends over malloc, the fault-injection seam that
// every platform allocation passes, pointer probing without signals, and the
// memory status from the kernel's figures.
#include <tovrel/platform.h>

#include "gdiobj.h"

#include <sys/sysinfo.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

// Every block carries its size, a mark and its link in the registry of
// live blocks in front of the caller's bytes. LocalFree, LocalSize and
// LocalReAlloc look a pointer up in the registry before they follow it, so
// they refuse one they never handed out without a probe of the memory.
constexpr uint64_t kLiveMark = 0x4b4f4c4c4f43414cull;  // "LACOLLOK"
constexpr uint64_t kDeadMark = 0x444145444445414dull;

// Blocks of a page or more start on a cache line, and the head fills one,
// so the caller's bytes do too: a pixel store 16 bytes into a line makes
// half the vector loads and stores of its rows straddle two lines (a
// 640x480 upside-down flip took twice as long). Smaller blocks (records,
// row tables, palettes, the stores of tiny pictures) come from plain
// malloc, whose small-block bins are several times cheaper than an aligned
// request, as does a block that LocalReAlloc moved: their rows, if any, are
// too short for a straddled line to count.
constexpr size_t kLine = 64;
constexpr size_t kLineAlignedMin = 4096;
struct alignas(16) BlockHead {
    uint64_t mark;
    uint64_t size;      // what the caller asked for
    uint64_t capacity;  // what the block holds
    PlatHandleLink link;
    unsigned char pad[kLine - 3 * sizeof(uint64_t) - sizeof(PlatHandleLink)];
};
static_assert(sizeof(BlockHead) == kLine, "the caller's bytes start a line after the head");
PlatHandleSet g_blocks;

std::atomic<long> g_allocations{0};
std::atomic<long> g_failAt{0};
std::atomic<long> g_live{0};

// True when this allocation is the one the test seam asked to fail.
bool FaultNow() {
    long n = ++g_allocations;
    long at = g_failAt.load(std::memory_order_relaxed);
    return at != 0 && n == at;
}

BlockHead* HeadOf(void* p) { return reinterpret_cast<BlockHead*>(p) - 1; }

// Large blocks (pixel stores, working copies) are kept when freed and given
// out again: a block fresh from the kernel costs a page fault for every
// page, which was most of the time of an operation that makes a working
// copy of a picture. A few blocks, bounded in bytes, and a block is reused
// only for a request of at least half its size. The address sanitizer
// build keeps no blocks, so that it still sees every use after a free.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kCacheSlots = 0;
#else
constexpr int kCacheSlots = 4;
#endif
constexpr size_t kCachedMin = size_t(256) << 10;
constexpr size_t kCacheBytesMax = size_t(256) << 20;
constexpr int kSlots = kCacheSlots > 0 ? kCacheSlots : 1;
std::mutex g_cacheMutex;
BlockHead* g_cache[kSlots];
uint64_t g_keptAt[kSlots];  // when each block was kept, by g_keeps
uint64_t g_keeps = 0;
size_t g_cacheBytes = 0;

BlockHead* TakeCached(size_t bytes) {
    if (kCacheSlots == 0 || bytes < kCachedMin) return nullptr;
    std::lock_guard<std::mutex> lock(g_cacheMutex);
    int best = -1;
    for (int i = 0; i < kCacheSlots; ++i) {
        BlockHead* h = g_cache[i];
        if (h && h->capacity >= bytes && h->capacity / 2 <= bytes &&
            (best < 0 || h->capacity < g_cache[best]->capacity))
            best = i;
    }
    if (best < 0) return nullptr;
    BlockHead* h = g_cache[best];
    g_cache[best] = nullptr;
    g_cacheBytes -= h->capacity;
    return h;
}

// True when the block was kept. The blocks kept longest ago make room for
// it: the sizes in use now are the ones worth keeping, and blocks of an
// earlier, larger picture must not hold every slot while each working copy
// of a smaller one goes back to the kernel.
bool KeepCached(BlockHead* h) {
    if (kCacheSlots == 0 || h->capacity < kCachedMin || h->capacity > kCacheBytesMax) return false;
    BlockHead* evicted[kSlots];
    int n = 0;
    {
        std::lock_guard<std::mutex> lock(g_cacheMutex);
        for (;;) {
            int empty = -1, oldest = -1;
            for (int i = 0; i < kCacheSlots; ++i) {
                if (!g_cache[i]) empty = empty < 0 ? i : empty;
                else if (oldest < 0 || g_keptAt[i] < g_keptAt[oldest]) oldest = i;
            }
            if (empty >= 0 && g_cacheBytes + h->capacity <= kCacheBytesMax) {
                g_cache[empty] = h;
                g_keptAt[empty] = ++g_keeps;
                g_cacheBytes += h->capacity;
                break;
            }
            evicted[n++] = g_cache[oldest];  // an empty cache always has room
            g_cacheBytes -= g_cache[oldest]->capacity;
            g_cache[oldest] = nullptr;
        }
    }
    for (int i = 0; i < n; ++i) std::free(evicted[i]);
    return true;
}

// A block from the heap, aligned as the comment at BlockHead says.
BlockHead* NewBlock(size_t bytes) {
    if (bytes < kLineAlignedMin) return static_cast<BlockHead*>(std::malloc(sizeof(BlockHead) + bytes));
    const size_t total = (sizeof(BlockHead) + bytes + kLine - 1) / kLine * kLine;  // a multiple, as aligned_alloc asks
    return static_cast<BlockHead*>(std::aligned_alloc(kLine, total));
}

bool IsOurBlock(void* p) { return p && g_blocks.Contains(p); }

}  // namespace

void* PlatAlloc(size_t bytes, bool zero) {
    if (FaultNow() || bytes > (SIZE_MAX >> 2)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    BlockHead* head = TakeCached(bytes);
    if (!head) {
        head = NewBlock(bytes);
        if (!head) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        head->capacity = bytes;
    }
    if (zero) std::memset(static_cast<void*>(head + 1), 0, bytes);
    head->mark = kLiveMark;
    head->size = bytes;
    g_blocks.Insert(head + 1, &head->link);
    ++g_live;
    return head + 1;
}

void PlatFree(void* p) {
    if (!p) return;
    g_blocks.Erase(p);
    BlockHead* head = HeadOf(p);
    head->mark = kDeadMark;
    if (!KeepCached(head)) std::free(head);
    --g_live;
}

extern "C" {

HLOCAL LocalAlloc(UINT flags, size_t bytes) {
    return PlatAlloc(bytes, (flags & LMEM_ZEROINIT) != 0);
}

HLOCAL LocalReAlloc(HLOCAL mem, size_t bytes, UINT flags) {
    if (!IsOurBlock(mem)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (FaultNow() || bytes > (SIZE_MAX >> 2)) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    BlockHead* head = HeadOf(mem);
    size_t old = head->size;
    // Out of the registry while realloc may move it; back in either way.
    g_blocks.Erase(mem);
    auto* grown = static_cast<BlockHead*>(std::realloc(head, sizeof(BlockHead) + bytes));
    if (!grown) {
        g_blocks.Insert(mem, &head->link);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;  // the old block stays valid, as on the device
    }
    g_blocks.Insert(grown + 1, &grown->link);
    grown->size = bytes;
    grown->capacity = bytes;
    if ((flags & LMEM_ZEROINIT) && bytes > old)
        std::memset(reinterpret_cast<BYTE*>(grown + 1) + old, 0, bytes - old);
    return grown + 1;
}

HLOCAL LocalFree(HLOCAL mem) {
    if (!mem) return nullptr;
    if (!IsOurBlock(mem)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return mem;
    }
    PlatFree(mem);
    return nullptr;
}

size_t LocalSize(HLOCAL mem) { return IsOurBlock(mem) ? HeadOf(mem)->size : 0; }

// Reads through the kernel instead of touching the memory, so an unmapped
// address gives an error code rather than a signal.
BOOL IsBadReadPtr(const void* p, size_t bytes) {
    if (!p) return TRUE;
    if (bytes == 0) return FALSE;
    static const long page = sysconf(_SC_PAGESIZE);
    uintptr_t start = reinterpret_cast<uintptr_t>(p);
    if (start + bytes < start) return TRUE;
    uintptr_t last = start + bytes - 1;
    // One byte of each page the range touches is enough: access is per page.
    for (uintptr_t at = start;; at = (at | (page - 1)) + 1) {
        if (at > last) at = last;
        char byte;
        struct iovec local = {&byte, 1};
        struct iovec remote = {reinterpret_cast<void*>(at), 1};
        if (process_vm_readv(getpid(), &local, 1, &remote, 1, 0) != 1) return TRUE;
        if (at == last) break;
    }
    return FALSE;
}

// A 32-bit process on the device sees at most 2 GiB of anything, and the
// figures are traced with %d: clamp so they stay true and positive.
constexpr unsigned long long kMaxFigure = 0x7FFFFFFFull;
static DWORD ClampToDword(unsigned long long v) {
    return static_cast<DWORD>(v > kMaxFigure ? kMaxFigure : v);
}

void GlobalMemoryStatus(MEMORYSTATUS* status) {
    if (!status) return;
    struct sysinfo si;
    std::memset(status, 0, sizeof *status);
    status->dwLength = sizeof *status;
    if (sysinfo(&si) != 0) return;
    unsigned long long unit = si.mem_unit ? si.mem_unit : 1;
    unsigned long long total = si.totalram * unit, avail = (si.freeram + si.bufferram) * unit;
    unsigned long long swapTotal = si.totalswap * unit, swapFree = si.freeswap * unit;
    status->dwMemoryLoad = total ? static_cast<DWORD>(100 - (avail * 100) / total) : 0;
    status->dwTotalPhys = ClampToDword(total);
    status->dwAvailPhys = ClampToDword(avail);
    status->dwTotalPageFile = ClampToDword(total + swapTotal);
    status->dwAvailPageFile = ClampToDword(avail + swapFree);
    status->dwTotalVirtual = static_cast<DWORD>(kMaxFigure);
    status->dwAvailVirtual = ClampToDword(avail);
}

void PlatFailAllocation(long nth) {
    g_failAt = nth > 0 ? g_allocations.load() + nth : 0;
}

long PlatAllocationCount(void) { return g_allocations.load(); }

long PlatLiveObjects(void) { return g_live.load(); }

}  // extern "C"
