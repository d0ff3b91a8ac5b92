// Memory, files, locks and DIB sections of the platform layer.
#include <gtest/gtest.h>
#include <tovrel/platform.h>

#include "testsupport.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <thread>

using tovtest::W;

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

TEST(Memory, FaultSeamFailsExactlyTheNthAllocation) {
    PlatFailAllocation(3);
    void* got[4];
    for (void*& p : got) p = LocalAlloc(0, 8);
    PlatFailAllocation(0);
    EXPECT_EQ(GetLastError(), ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_TRUE(got[0] && got[1] && !got[2] && got[3]);
    PlatFailAllocation(1);
    EXPECT_EQ(LocalReAlloc(got[0], 64, 0), nullptr);
    EXPECT_EQ(LocalSize(got[0]), 8u) << "a failed reallocation keeps the old block";
    for (void* p : got) LocalFree(p);
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

TEST(Memory, ProbeWithoutSignals) {
    tovtest::GuardedPage guard;
    BYTE* const page = guard.End() - sysconf(_SC_PAGESIZE);
    int local = 1;
    EXPECT_FALSE(IsBadReadPtr(&local, sizeof local));
    EXPECT_FALSE(IsBadReadPtr(page, guard.End() - page));
    EXPECT_TRUE(IsBadReadPtr(nullptr, 1));
    EXPECT_TRUE(IsBadReadPtr(guard.End() - 4, 8)) << "range runs into an unreadable page";
    EXPECT_TRUE(IsBadReadPtr(guard.End(), 1));
    EXPECT_TRUE(IsBadReadPtr(reinterpret_cast<void*>(16), 1));
    MEMORYSTATUS ms;
    GlobalMemoryStatus(&ms);
    EXPECT_GT(ms.dwTotalPhys, 0u);
    EXPECT_LE(ms.dwAvailPhys, ms.dwTotalPhys);
    EXPECT_LE(ms.dwMemoryLoad, 100u);
    for (DWORD figure : {ms.dwTotalPhys, ms.dwAvailPhys, ms.dwTotalPageFile, ms.dwAvailPageFile, ms.dwTotalVirtual, ms.dwAvailVirtual})
        EXPECT_LE(figure, 0x7FFFFFFFu) << "figures are traced with %d";
}

HANDLE Open(const WCHAR* name, DWORD access, DWORD disposition) {
    return CreateFileW(name, access, 0, nullptr, disposition, 0, nullptr);
}

TEST(Files, WriteReadSeekAndErrors) {
    tovtest::ScratchDir dir;
    std::u16string name = W("f\xC3\xBC.bin");
    HANDLE h = Open(name.c_str(), GENERIC_WRITE, CREATE_ALWAYS);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    DWORD n = 0;
    EXPECT_TRUE(WriteFile(h, "hello world", 11, &n, nullptr));
    EXPECT_EQ(n, 11u);
    EXPECT_TRUE(FlushFileBuffers(h));
    EXPECT_TRUE(CloseHandle(h));
    EXPECT_FALSE(CloseHandle(h)) << "a closed handle is refused";

    h = Open(name.c_str(), GENERIC_READ, OPEN_EXISTING);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetFileSize(h, nullptr), 11u);
    EXPECT_EQ(SetFilePointer(h, 6, nullptr, FILE_BEGIN), 6u);
    char buf[16] = {};
    EXPECT_TRUE(ReadFile(h, buf, 16, &n, nullptr));
    EXPECT_STREQ(buf, "world");
    EXPECT_TRUE(ReadFile(h, buf, 4, &n, nullptr));
    EXPECT_EQ(n, 0u) << "end of file reads nothing";
    CloseHandle(h);

    h = Open(name.c_str(), GENERIC_WRITE, OPEN_ALWAYS);
    EXPECT_EQ(SetFilePointer(h, 0, nullptr, FILE_END), 11u);
    CloseHandle(h);
    EXPECT_NE(GetFileAttributesW(name.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_TRUE(DeleteFileW(name.c_str()));
    EXPECT_EQ(GetFileAttributesW(name.c_str()), INVALID_FILE_ATTRIBUTES);

    EXPECT_EQ(Open(u"missing", GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
    // A lone surrogate has no UTF-8 form: such a name reaches no file.
    const WCHAR lone[][4] = {{u'x', 0xD800, u'y', 0}, {u'x', 0xDBFF, u'y', 0}, {u'x', 0xDC00, u'y', 0}, {u'x', 0xDFFF, u'y', 0}};
    EXPECT_EQ(Open(u".", GENERIC_READ, OPEN_EXISTING), INVALID_HANDLE_VALUE);
    for (const WCHAR* bad : {static_cast<const WCHAR*>(nullptr), u"", u"nodir/x", lone[0], lone[1], lone[2], lone[3]})
        EXPECT_EQ(Open(bad, GENERIC_WRITE, CREATE_ALWAYS), INVALID_HANDLE_VALUE);
    int junk = 3;
    EXPECT_FALSE(ReadFile(&junk, buf, 1, &n, nullptr));
    EXPECT_FALSE(WriteFile(reinterpret_cast<HANDLE>(3), "x", 1, &n, nullptr)) << "raw descriptors are no handles";
    EXPECT_EQ(n, 0u);
    h = Open(u"/dev/full", GENERIC_WRITE, OPEN_EXISTING);
    n = 99;
    EXPECT_FALSE(WriteFile(h, "abc", 3, &n, nullptr));
    EXPECT_EQ(n, 0u) << "a full disk reports nothing written";
    EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
    CloseHandle(h);
}

// The last error is the calling thread's own.
TEST(Errors, LastErrorIsPerThread) {
    SetLastError(1234);
    std::thread([] { EXPECT_EQ(GetLastError(), 0u); }).join();
    EXPECT_EQ(GetLastError(), 1234u);
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

TEST(DibSection, DepthsStridesAndDescription) {
    struct { LONG w; WORD bits; LONG stride; } cases[] = {
        {1, 1, 4}, {33, 1, 8}, {9, 4, 8}, {7, 2, 4}, {640, 8, 640}, {641, 8, 644}, {3, 16, 8}, {3, 24, 12}, {5, 32, 20},
    };
    for (const auto& c : cases) {
        void* bits = nullptr;
        HBITMAP bm = Section(c.w, 3, c.bits, &bits);
        ASSERT_NE(bm, nullptr) << c.w << "x" << c.bits;
        DIBSECTION ds;
        ASSERT_EQ(GetObjectW(bm, sizeof ds, &ds), static_cast<int>(sizeof ds));
        EXPECT_EQ(std::vector<LONG>({ds.dsBm.bmWidth, ds.dsBm.bmHeight, ds.dsBm.bmWidthBytes, ds.dsBm.bmBitsPixel}),
                  std::vector<LONG>({c.w, 3, c.stride, c.bits}));
        EXPECT_EQ(ds.dsBm.bmBits, bits);
        EXPECT_EQ(ds.dsBmih.biClrUsed, 0u) << "the header comes back unchanged";
        BITMAP bmOnly;  // a caller may ask for the BITMAP part alone
        EXPECT_EQ(GetObjectW(bm, sizeof bmOnly, &bmOnly), static_cast<int>(sizeof bmOnly));
        EXPECT_EQ(bmOnly.bmWidthBytes, c.stride);
        for (LONG i = 0; i < 3 * c.stride; ++i) ASSERT_EQ(static_cast<BYTE*>(bits)[i], 0);
        static_cast<BYTE*>(bits)[3 * c.stride - 1] = 1;  // the whole store is ours (ASan)
        EXPECT_TRUE(DeleteObject(bm));
        EXPECT_FALSE(DeleteObject(bm)) << "a deleted bitmap is refused";
        EXPECT_EQ(GetObjectW(bm, sizeof ds, &ds), 0);
    }
    void* bits = nullptr;  // a declared image size larger than the rows is all there (ASan)
    HBITMAP bm = Section(4, 2, 8, &bits, 1, 0, 100);
    ASSERT_NE(bm, nullptr);
    static_cast<BYTE*>(bits)[99] = 1;
    DeleteObject(bm);
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
    char junk[64] = {};
    EXPECT_FALSE(DeleteObject(reinterpret_cast<HGDIOBJ>(junk)));
    EXPECT_EQ(GetObjectW(reinterpret_cast<HGDIOBJ>(junk), 8, junk), 0);
}

}  // namespace
