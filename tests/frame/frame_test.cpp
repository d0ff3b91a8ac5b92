// The library frame: revision text, pointer probe, the global lock, load
// and unload of the shared library.
#include "testsupport.h"

#include <gtest/gtest.h>
#include <tovrel/tovrel.h>

#include "tovce.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

using namespace tovtest;

namespace {

const std::u16string kRevision = u"2.102.30001.0";

TEST(FrameTest, RevisionBufferAndPointerProbe) {
    GuardedPage pages;
    const size_t bytes = (kRevision.size() + 1) * sizeof(WCHAR);
    struct Case { void* buffer; DWORD result, probe; } cases[] = {
        {nullptr, DibErrorInvalidParm, 1},
        {reinterpret_cast<void*>(uintptr_t{16}), DibErrorInvalidParm, 2},
        {reinterpret_cast<void*>(~uintptr_t{0} & ~uintptr_t{7}), DibErrorInvalidParm, 2},  // kernel address
        {pages.End(), DibErrorInvalidParm, 2},
        {pages.End() - (bytes - 2), DibErrorInvalidParm, 0},  // too short before the guard
        {pages.End() - bytes, tovOk, 0},
    };
    ScratchDir dir;
    tovConfigDebug(1, 10, tovDebugFile);  // neither export is traced
    for (const Case& c : cases) {
        SCOPED_TRACE(c.buffer);
        EXPECT_EQ(tovProbePointer(c.buffer), c.probe);
        EXPECT_EQ(tovGetDllRevision(static_cast<WCHAR*>(c.buffer)), c.result);
        EXPECT_TRUE(c.result != tovOk || std::u16string(static_cast<WCHAR*>(c.buffer)) == kRevision);
    }
    tovConfigDebug(0, 5, tovDebugFile);
    EXPECT_FALSE(FileExists("imaging.log"));
    WCHAR buffer[20];
    std::fill(std::begin(buffer), std::end(buffer), WCHAR(0xFFFF));
    ASSERT_EQ(tovGetDllRevision(buffer), tovOk);
    EXPECT_EQ(buffer[kRevision.size() + 1], WCHAR(0xFFFF));  // nothing past the terminator
}

TEST(FrameTest, GlobalLockIsRecursiveAndExclusive) {
    std::atomic<bool> entered{false};
    std::thread other;
    {
        TovLockGuard outer;
        {
            TovLockGuard inner;  // the owner re-enters
            for (DWORD reason : {2u, 3u}) DllMain(nullptr, reason, nullptr);  // threads come and go: the same lock
            other = std::thread([&] {
                TovLockGuard guard;
                entered = true;
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_FALSE(entered.load()) << "another thread got in while the lock was held";
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
            tovRegisterSessionCloser([]() -> DWORD { return std::fputs("session closed\n", stderr) < 0; });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "session closed");
}

// Each load starts with tracing off, whatever the previous load configured,
// and load and unload leave no file behind.
TEST(FrameTest, LoadAndUnloadLeaveNoTrace) {
    ScratchDir dir;
    for (int round = 0; round < 3; ++round) {
        std::unique_ptr<void, int (*)(void*)> lib(dlopen(TOV_LIBTOVREL_PATH, RTLD_NOW | RTLD_LOCAL), dlclose);
        ASSERT_NE(lib, nullptr) << dlerror();
        auto* revision = reinterpret_cast<DWORD (*)(WCHAR*)>(dlsym(lib.get(), "tovGetDllRevision"));
        auto* config = reinterpret_cast<void (*)(DWORD, DWORD, DWORD)>(dlsym(lib.get(), "tovConfigDebug"));
        auto* width = reinterpret_cast<LONG (*)(HDIB)>(dlsym(lib.get(), "tovWidth"));
        ASSERT_TRUE(revision && config && width);
        WCHAR text[16] = {};
        EXPECT_EQ(revision(text), tovOk);
        EXPECT_EQ(std::u16string(text), kRevision);
        width(nullptr);
        EXPECT_TRUE(std::filesystem::is_empty(dir.path())) << "round " << round;
        config(1, 5, tovDebugFile);
        width(nullptr);
        ASSERT_TRUE(FileExists("imaging.log"));
        std::remove("imaging.log");
    }
    EXPECT_EQ(dlopen(TOV_LIBTOVREL_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << "library stayed loaded";
}

}  // namespace
