// The library frame: revision text, pointer probe and the unload hook.
#include "testsupport.h"

#include <gtest/gtest.h>
#include <tovrel/tovrel.h>

#include "tovce.h"

#include <atomic>

using namespace tovtest;

namespace {

const std::u16string kRevision = u"2.102.30001.0";

TEST(FrameTest, RevisionBufferAndPointerProbe) {
    GuardedPage pages;
    const size_t bytes = (kRevision.size() + 1) * sizeof(WCHAR);
    struct Case { void* buffer; DWORD result, probe; } cases[] = {
        {nullptr, DibErrorInvalidParm, 1},
        {pages.End(), DibErrorInvalidParm, 2},
        {pages.End() - (bytes - 2), DibErrorInvalidParm, 0},  // too short before the guard
        {pages.End() - bytes, tovOk, 0},                      // a write past the text would fault
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

}  // namespace
