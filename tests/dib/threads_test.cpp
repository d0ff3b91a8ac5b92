// Bitmaps of different depths worked on by several threads at once: each
// operation uses its own pixel routines, and validation of handles that
// another thread unloads never reads freed memory.
#include "dibimages.h"

#include <atomic>
#include <thread>

using namespace tovtest;

TEST(DibThreads, OperationsAtDifferentDepthsDoNotDisturbEachOther) {
    LeakGuard guard;
    std::atomic<int> failures{0};
    auto all = [&](HDIB h, DWORD value) {
        for (LONG y = 0; y < 5; ++y)
            for (LONG x = 0; x < 33; ++x)
                if (StorePixel(h, x, y) != value) ++failures;
    };
    auto work = [&](DWORD bits) {
        for (int i = 0; i < 150; ++i) {
            HDIB h = tovCreateHDIBExt(33, 5, 0, bits);
            if (!h || tovClear(h, 255) != 0) {
                ++failures;
                continue;
            }
            all(h, (1u << bits) - 1);
            if (tovConvert(h, bits == 8 ? 1 : 8) != 0) ++failures;
            all(h, bits == 8 ? 1 : 255);
            if (tovUnloadHDIB(h) != 0) ++failures;
        }
    };
    std::thread a(work, 1u), b(work, 4u), c(work, 8u);
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(failures.load(), 0);
}

TEST(DibThreads, ValidatingHandlesThatAnotherThreadUnloads) {
    LeakGuard guard;
    std::atomic<HDIB> latest{nullptr};
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::thread checker([&] {
        while (!done.load()) {
            DWORD r = tovHDIBIsValid(latest.load());
            if (r != 0 && r != DWORD(DibErrorInvalidDIB)) ++wrong;
        }
    });
    for (int i = 0; i < 2000; ++i) {
        HDIB h = tovCreateHDIBExt(4, 4, 0, 8);
        latest.store(h);
        tovUnloadHDIB(h);
    }
    done.store(true);
    checker.join();
    EXPECT_EQ(wrong.load(), 0);
}
