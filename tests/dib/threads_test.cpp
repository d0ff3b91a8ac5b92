// Several threads at once: each operation uses its own depth's pixel
// routines, and validating handles that another thread unloads never reads
// freed memory.
#include "dibimages.h"

#include <atomic>
#include <thread>

using namespace tovtest;

TEST(DibThreads, DepthsAndUnloadsDoNotDisturbEachOther) {
    LeakGuard guard;
    std::atomic<int> failures{0};
    std::atomic<HDIB> latest{nullptr};
    auto work = [&](DWORD bits) {
        for (int i = 0; i < 150; ++i) {
            HDIB h = tovCreateHDIBExt(33, 5, 0, bits);
            if (!h || tovClear(h, 255) != 0) {
                ++failures;
                continue;
            }
            for (DWORD to : {bits == 8 ? 1u : 8u, bits}) {
                const DWORD value = (1u << DibBitCount(h)) - 1;
                for (LONG y = 0; y < 5; ++y)
                    for (LONG x = 0; x < 33; ++x) failures += StorePixel(h, x, y) != value;
                failures += to != bits && tovConvert(h, to) != 0;
            }
            latest.store(h);
            failures += tovUnloadHDIB(h) != 0;
        }
    };
    std::thread checker([&] {
        while (latest.load() != HDIB(uintptr_t(1))) {
            const DWORD r = tovHDIBIsValid(latest.load());
            failures += r != 0 && r != DWORD(DibErrorInvalidDIB);
        }
    });
    std::thread a(work, 1u), b(work, 4u), c(work, 8u);
    a.join();
    b.join();
    c.join();
    latest.store(HDIB(uintptr_t(1)));
    checker.join();
    EXPECT_EQ(failures.load(), 0);
}
