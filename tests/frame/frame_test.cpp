// The library frame: revision text, pointer probe, the global lock, load
// and unload of the shared library.
#include "testsupport.h"

#include <gtest/gtest.h>
#include <tovrel/tovrel.h>

#include "tovce.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

using namespace tovtest;

namespace {

// Two pages: the first readable, the second not.
struct GuardedPages {
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    BYTE* base = static_cast<BYTE*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    GuardedPages() { mprotect(base + page, page, PROT_NONE); }
    ~GuardedPages() { munmap(base, 2 * page); }
    BYTE* EndOfReadable(size_t bytes) const { return base + page - bytes; }
    BYTE* Unreadable() const { return base + page; }
};

TEST(FrameTest, RevisionTextIsWrittenOnlyIntoAReadableBuffer) {
    GuardedPages pages;
    const std::u16string revision = u"2.102.30001.0";
    const size_t bytes = (revision.size() + 1) * sizeof(WCHAR);
    struct Case {
        const char* what;
        WCHAR* buffer;
        DWORD result;
    } cases[] = {
        {"null", nullptr, DibErrorInvalidParm},
        {"low address", reinterpret_cast<WCHAR*>(uintptr_t{16}), DibErrorInvalidParm},
        {"kernel address", reinterpret_cast<WCHAR*>(~uintptr_t{0} & ~uintptr_t{7}), DibErrorInvalidParm},
        {"unreadable page", reinterpret_cast<WCHAR*>(pages.Unreadable()), DibErrorInvalidParm},
        {"too short before the guard", reinterpret_cast<WCHAR*>(pages.EndOfReadable(bytes - 2)), DibErrorInvalidParm},
        {"exactly fits before the guard", reinterpret_cast<WCHAR*>(pages.EndOfReadable(bytes)), tovOk},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ScratchDir dir;
        tovConfigDebug(1, 10, tovDebugFile);  // the export is not traced
        EXPECT_EQ(tovGetDllRevision(c.buffer), c.result);
        if (c.result == tovOk) {
            EXPECT_EQ(std::u16string(c.buffer), revision);
        }
        tovConfigDebug(0, 5, tovDebugFile);
        EXPECT_FALSE(FileExists("imaging.log"));
    }
    WCHAR buffer[20];
    std::fill(std::begin(buffer), std::end(buffer), WCHAR(0xFFFF));
    ASSERT_EQ(tovGetDllRevision(buffer), tovOk);
    EXPECT_EQ(std::u16string(buffer), revision);
    EXPECT_EQ(buffer[revision.size() + 1], WCHAR(0xFFFF));  // nothing past the terminator
}

TEST(FrameTest, ProbeTellsNullFromUnreadable) {
    GuardedPages pages;
    int local = 1;
    EXPECT_EQ(tovProbePointer(nullptr), 1u);
    EXPECT_EQ(tovProbePointer(&local), 0u);
    EXPECT_EQ(tovProbePointer(pages.EndOfReadable(1)), 0u);
    EXPECT_EQ(tovProbePointer(pages.Unreadable()), 2u);
    EXPECT_EQ(tovProbePointer(reinterpret_cast<void*>(uintptr_t{1})), 2u);
    EXPECT_EQ(tovProbePointer(reinterpret_cast<void*>(~uintptr_t{0})), 2u);
    EXPECT_EQ(tovProbePointer(u"text"), 0u);
}

TEST(FrameTest, GlobalLockIsRecursiveAndExclusive) {
    std::atomic<bool> entered{false};
    std::thread other;
    {
        TovLockGuard outer;
        {
            TovLockGuard inner;  // the owner re-enters
            other = std::thread([&] {
                TovLockGuard guard;
                entered = true;
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            EXPECT_FALSE(entered.load());
        }
        // Leaving one level still holds the lock.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(entered.load());
    }
    other.join();
    EXPECT_TRUE(entered.load());
}

std::atomic<int> g_closerCalls{0};
std::atomic<bool> g_closerHadLock{false};
DWORD CountingCloser() {
    ++g_closerCalls;
    TovLockGuard guard;  // the lock is still there when the session closes
    g_closerHadLock = true;
    return tovErrorNotInitialized;
}

TEST(FrameTest, DetachClosesTheSessionOnlyOnUnload) {
    g_closerCalls = 0;
    tovRegisterSessionCloser(CountingCloser);
    for (DWORD reason : {2u, 3u, 4u, 0xFFFFFFFFu}) EXPECT_EQ(DllMain(nullptr, reason, nullptr), TRUE);
    EXPECT_EQ(g_closerCalls.load(), 0);
    EXPECT_EQ(DllMain(nullptr, 0, nullptr), TRUE);
    EXPECT_EQ(g_closerCalls.load(), 1);
    EXPECT_TRUE(g_closerHadLock.load());
    EXPECT_EQ(DllMain(nullptr, 1, nullptr), TRUE);  // loaded again: a fresh lock
    { TovLockGuard guard; }
    tovRegisterSessionCloser(nullptr);
    DllMain(nullptr, 0, nullptr);
    EXPECT_EQ(g_closerCalls.load(), 1);
    DllMain(nullptr, 1, nullptr);
}

TEST(FrameDeathTest, ProcessExitRunsTheUnloadHook) {
    EXPECT_EXIT(
        {
            tovRegisterSessionCloser([]() -> DWORD {
                std::fputs("session closed\n", stderr);
                return tovOk;
            });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "session closed");
}

// The shared library as an application sees it.
struct LoadedLibrary {
    void* handle = dlopen(TOV_LIBTOVREL_PATH, RTLD_NOW | RTLD_LOCAL);
    ~LoadedLibrary() {
        if (handle) dlclose(handle);
    }
    template <class F>
    F* Get(const char* name) {
        return reinterpret_cast<F*>(dlsym(handle, name));
    }
};

TEST(FrameTest, LoadAndUnloadLeaveNoTrace) {
    ScratchDir dir;
    for (int round = 0; round < 3; ++round) {
        LoadedLibrary lib;
        ASSERT_NE(lib.handle, nullptr) << dlerror();
        auto* revision = lib.Get<DWORD(WCHAR*)>("tovGetDllRevision");
        ASSERT_NE(revision, nullptr);
        WCHAR text[16] = {};
        EXPECT_EQ(revision(text), tovOk);
        EXPECT_EQ(std::u16string(text), u"2.102.30001.0");
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

// Tracing is off after each load, whatever the previous load configured.
TEST(FrameTest, TraceSettingsStartAnewAtEachLoad) {
    ScratchDir dir;
    {
        LoadedLibrary lib;
        ASSERT_NE(lib.handle, nullptr) << dlerror();
        auto* config = lib.Get<void(DWORD, DWORD, DWORD)>("tovConfigDebug");
        auto* width = lib.Get<LONG(HDIB)>("tovWidth");
        if (!width) GTEST_SKIP() << "no traced export in the library yet";
        width(nullptr);
        EXPECT_FALSE(FileExists("imaging.log"));
        config(1, 5, tovDebugFile);
        width(nullptr);
        ASSERT_TRUE(FileExists("imaging.log"));
        std::remove("imaging.log");
    }
    ASSERT_EQ(dlopen(TOV_LIBTOVREL_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << "library stayed loaded";
    LoadedLibrary again;
    auto* width = again.Get<LONG(HDIB)>("tovWidth");
    ASSERT_NE(width, nullptr);
    width(nullptr);
    EXPECT_FALSE(FileExists("imaging.log"));
}

}  // namespace
