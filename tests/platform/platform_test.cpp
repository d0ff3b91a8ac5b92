// Memory and DIB sections of the platform layer. (Files: tests/files,
// through every save and load and their failures.)
#include <gtest/gtest.h>
#include <tovrel/platform.h>

#include "testsupport.h"

#include <algorithm>
#include <cstring>

namespace {

TEST(Memory, ZeroingReallocAndForeignPointers) {
    long live = PlatLiveObjects();
    auto* p = static_cast<BYTE*>(LocalAlloc(LPTR, 100));
    ASSERT_NE(p, nullptr);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(p[i], 0);
    EXPECT_EQ(LocalSize(p), 100u);
    std::memset(p, 7, 100);
    p = static_cast<BYTE*>(LocalReAlloc(p, 300, LMEM_MOVEABLE | LMEM_ZEROINIT));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p[99], 7);
    EXPECT_EQ(p[100] | p[299], 0);
    PlatFailAllocation(1);
    EXPECT_EQ(LocalReAlloc(p, 600, 0), nullptr);
    PlatFailAllocation(0);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(LocalSize(p), 300u) << "a failed reallocation keeps the old block";
    int onStack = 0;
    // Foreign pointers, pointers inside a live block and freed blocks are all refused.
    for (void* bad : {static_cast<void*>(&onStack), static_cast<void*>(p + 1), static_cast<void*>(p + 16)}) {
        EXPECT_EQ(LocalFree(bad), bad);
        EXPECT_EQ(LocalSize(bad), 0u);
        EXPECT_EQ(LocalReAlloc(bad, 8, 0), nullptr);
    }
    EXPECT_EQ(LocalFree(p), nullptr);
    EXPECT_EQ(LocalFree(p), p) << "a freed block is refused";
    EXPECT_EQ(LocalSize(p), 0u);
    EXPECT_EQ(LocalFree(nullptr), nullptr);
    EXPECT_EQ(PlatLiveObjects(), live);
}

// Large blocks are kept for reuse: a block asked for zeroed is zero even
// when it was used before, and reports the size asked for.
TEST(Memory, ReusedLargeBlocksKeepTheirPromises) {
    const size_t big = size_t(1) << 20;
    for (size_t round = 0; round < 3; ++round) {
        void* dirty = LocalAlloc(LMEM_FIXED, big);
        ASSERT_NE(dirty, nullptr);
        std::memset(dirty, 0xAB, big);
        LocalFree(dirty);
        const size_t size = big - 4096 * round;
        auto* clean = static_cast<BYTE*>(LocalAlloc(LPTR, size));
        ASSERT_NE(clean, nullptr);
        EXPECT_EQ(LocalSize(clean), size);
        EXPECT_EQ(std::count(clean, clean + size, 0), ptrdiff_t(size));
        LocalFree(clean);
    }
}

struct InfoBlock {
    BITMAPINFOHEADER h;
    RGBQUAD colors[256];
};

HBITMAP Section(LONG w, LONG h, WORD bits, void** store, WORD planes = 1, DWORD compression = 0, DWORD sizeImage = 0) {
    InfoBlock b;
    std::memset(&b, 0, sizeof b);
    b.h = {40, w, h, planes, bits, compression, sizeImage, 0, 0, 0, 0};
    for (int i = 0; i < 256; ++i) b.colors[i] = RGBQUAD{BYTE(i), BYTE(i), BYTE(i), 0};
    return CreateDIBSection(nullptr, reinterpret_cast<BITMAPINFO*>(&b), DIB_RGB_COLORS, store, nullptr, 0);
}

TEST(DibSection, RefusesBadHeaders) {
    struct { LONG w, h; WORD bits, planes; DWORD compression, sizeImage; } bad[] = {
        {0, 1, 8, 1, 0, 0}, {1, 0, 8, 1, 0, 0}, {1, -1, 8, 1, 0, 0}, {-1, 1, 8, 1, 0, 0},
        {1, 1, 3, 1, 0, 0}, {1, 1, 0, 1, 0, 0}, {1, 1, 8, 2, 0, 0}, {1, 1, 8, 1, 1, 0},
        {1, 1, 8, 1, 3, 0}, {100000, 100000, 32, 1, 0, 0}, {0x7FFFFFFF, 1, 32, 1, 0, 0},
        {1, 1, 8, 1, 0, 0xF0000000u},
    };
    long live = PlatLiveObjects();
    for (const auto& c : bad) {
        void* bits = reinterpret_cast<void*>(1);
        EXPECT_EQ(Section(c.w, c.h, c.bits, &bits, c.planes, c.compression, c.sizeImage), nullptr) << c.w << "x" << c.h << "x" << c.bits;
        EXPECT_EQ(bits, nullptr);
    }
    EXPECT_EQ(CreateDIBSection(nullptr, nullptr, DIB_RGB_COLORS, nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(PlatLiveObjects(), live);
    // Deleted and foreign objects too. (Depths and strides: the canvases of
    // tests/graphics, which work out their strides on their own.)
    void* bits = nullptr;
    HBITMAP bm = Section(3, 3, 8, &bits);
    ASSERT_TRUE(DeleteObject(bm));
    char junk[64] = {};
    for (HGDIOBJ bad : {HGDIOBJ(bm), reinterpret_cast<HGDIOBJ>(junk)}) {
        EXPECT_FALSE(DeleteObject(bad));
        EXPECT_EQ(GetObjectW(bad, 8, junk), 0);
    }
}

}  // namespace
