// Bitmaps for the tests: grey bitmaps with known or random pixels, the
// pixel store read and written by the addressing rules independently of the
// library, a leak guard, and the files of a folder.
#pragma once

#include <gtest/gtest.h>

#include "dibce.h"
#include "testsupport.h"
#include "tovce.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tovtest {

constexpr DWORD kDepths[] = {1, 4, 8};
constexpr LONG kWidths[] = {1, 7, 8, 9, 31, 32, 33};

// Row length of the pixel store, worked out here rather than by the library.
inline LONG Stride(LONG width, DWORD bits) { return ((width * LONG(bits) + 31) / 32) * 4; }

// Picture row y (0 at the top) of the bottom-up store.
BYTE* StoreRow(HDIB h, LONG y);
DWORD StorePixel(HDIB h, LONG x, LONG y);
void StoreSetPixel(HDIB h, LONG x, LONG y, DWORD v);
// The whole store, row padding included.
std::vector<BYTE> StoreBytes(HDIB h);
// The pixels in picture order, row 0 first.
std::vector<DWORD> Pixels(HDIB h);

// Deterministic pixel value of (x, y) within the range of a depth.
DWORD Pattern(LONG x, LONG y, DWORD bits, DWORD seed = 0);
// A grey bitmap filled with Pattern; fails the test when it cannot be made.
HDIB MakePatterned(LONG width, LONG height, DWORD bits, DWORD seed = 0);
// A grey bitmap whose every store byte, padding included, is random.
HDIB MakeRandom(LONG width, LONG height, DWORD bits, uint32_t seed);

// Unloads its bitmap at scope end.
struct Dib {
    HDIB h = nullptr;
    explicit Dib(HDIB handle) : h(handle) {}
    ~Dib() {
        if (h) DibUnload(h);
    }
    Dib(const Dib&) = delete;
    Dib& operator=(const Dib&) = delete;
    Dib(Dib&& o) noexcept : h(o.h) { o.h = nullptr; }
    operator HDIB() const { return h; }
};

// The platform's blocks and objects, and the live records, are the same at
// the end of a scope as at its start.
class LeakGuard {
public:
    LeakGuard() : before_(PlatLiveObjects()), count_(DibLiveCount()) {}
    ~LeakGuard() {
        EXPECT_EQ(PlatLiveObjects(), before_) << "platform objects leaked";
        EXPECT_EQ(DibLiveCount(), count_) << "records leaked";
    }
private:
    long before_;
    LONG count_;
};

// The files of dir whose names end in suffix, sorted.
std::vector<std::string> FilesIn(const std::string& dir, const std::string& suffix);
std::string BaseName(const std::string& path);

}  // namespace tovtest
