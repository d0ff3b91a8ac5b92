// The record: accessors, creation from info blocks, copies, unloading,
// validation of bad handles, and allocation failure at every site.
#include "dibimages.h"

#include <cstring>
#include <memory>

using namespace tovtest;

namespace {

// An info block with room for 256 colours, filled with a recognisable table.
struct InfoBlock {
    alignas(8) BYTE bytes[40 + 256 * 4 + 64];
    BITMAPINFO* info() { return reinterpret_cast<BITMAPINFO*>(bytes); }
    InfoBlock(LONG width, LONG height, WORD bits, DWORD clrUsed) {
        std::memset(bytes, 0, sizeof bytes);
        BITMAPINFOHEADER& h = info()->bmiHeader;
        h.biSize = 40;
        h.biWidth = width;
        h.biHeight = height;
        h.biPlanes = 1;
        h.biBitCount = bits;
        h.biClrUsed = clrUsed;
        for (int i = 0; i < 256; ++i) {
            RGBQUAD* c = reinterpret_cast<RGBQUAD*>(bytes + 40) + i;
            c->rgbBlue = BYTE(i);
            c->rgbGreen = BYTE(255 - i);
            c->rgbRed = BYTE(i * 3);
        }
    }
};

}  // namespace

TEST(DibRecord, AccessorsAndRowLengthsAtEveryDepthAndWidth) {
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            const LONG height = 3;
            HDIB h = tovCreateHDIBExt(width, height, 0, bits);
            ASSERT_NE(h, nullptr);
            EXPECT_EQ(DibWidth(h), width);
            EXPECT_EQ(DibHeight(h), height);
            EXPECT_EQ(DibBitCount(h), bits);
            EXPECT_EQ(DibColorPlanes(h), 1);
            EXPECT_EQ(DibRowLength(h), Stride(width, bits));
            EXPECT_EQ(DibNumColors(h), 1u << bits);
            EXPECT_EQ(DibHeaderSize(h), 40u);
            EXPECT_EQ(DibPaletteSize(h), 4u << bits);
            EXPECT_EQ(DibBitsSize(h), DWORD(height * Stride(width, bits)));
            EXPECT_EQ(DibTotalSize(h), 40u + (4u << bits) + DWORD(height * Stride(width, bits)));
            EXPECT_EQ(DibBitsPtr(h), h->pBits);
            EXPECT_EQ(DibInfoHeaderPtr(h), &h->ds.dsBmih);
            EXPECT_NE(DibBitmapHandle(h), nullptr);
            // Row table over the bottom-up store.
            for (LONG y = 0; y < height; ++y)
                EXPECT_EQ(h->ppRow[y], h->pBits + (height - 1 - y) * Stride(width, bits));
            EXPECT_EQ(tovWidth(h), width);
            EXPECT_EQ(tovHeight(h), height);
            EXPECT_EQ(tovBitCount(h), bits);
            EXPECT_EQ(tovNumColors(h), 1u << bits);
            EXPECT_EQ(tovBitsPtr(h), h->pBits);
            EXPECT_EQ(tovInfoHeaderPtr(h), &h->ds.dsBmih);
            EXPECT_EQ(tovBitmapHandle(h), h->hBitmap);
            EXPECT_EQ(tovUnloadHDIB(h), 0u);
        }
    }
}

TEST(DibRecord, RowLengthsOfWideBitmaps) {
    struct Case { LONG width; WORD bits; LONG expected; } cases[] = {
        {1, 1, 4}, {33, 1, 8}, {9, 4, 8}, {640, 8, 640}, {641, 8, 644}, {3, 24, 12}, {65536, 32, 262144},
    };
    for (const Case& c : cases) {
        InfoBlock block(c.width, 1, c.bits, c.bits > 8 ? 2 : 0);
        HDIB h = DibCreateFromBitmapInfo(block.info());
        ASSERT_NE(h, nullptr) << c.width;
        EXPECT_EQ(DibRowLength(h), c.expected) << c.width << "x" << c.bits;
        DibUnload(h);
    }
}

TEST(DibRecord, ColourTablesFromTheInfoBlock) {
    LeakGuard guard;
    struct Case { WORD bits; DWORD clrUsed; DWORD colours; } cases[] = {
        {8, 0, 256}, {4, 0, 16}, {1, 0, 2}, {8, 5, 5}, {24, 2, 2}, {16, 256, 256}, {1, 1, 1},
    };
    InfoBlock reference(1, 1, 8, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.bits << " bits, biClrUsed " << c.clrUsed);
        InfoBlock block(5, 4, c.bits, c.clrUsed);
        HDIB h = DibCreateFromBitmapInfo(block.info());
        ASSERT_NE(h, nullptr);
        EXPECT_EQ(DibNumColors(h), c.colours);
        EXPECT_EQ(h->ds.dsBmih.biClrUsed, c.colours);  // completed in the record
        EXPECT_EQ(std::memcmp(h->pbmiColors, reference.bytes + 40, c.colours * 4), 0);
        EXPECT_EQ(DibUnload(h), 0u);
    }
}

TEST(DibRecord, HeadersThatAreRefused) {
    LeakGuard guard;
    struct Case { const char* what; LONG width; LONG height; WORD bits; DWORD clrUsed; DWORD size; } cases[] = {
        {"zero width", 0, 4, 8, 0, 40},
        {"zero height", 4, 0, 8, 0, 40},
        {"zero depth", 4, 4, 0, 0, 40},
        {"24 bits without colours", 4, 4, 24, 0, 40},
        {"negative width", -4, 4, 8, 0, 40},
        {"top-down", 4, -4, 8, 0, 40},
        {"too wide", DIB_MAX_DIMENSION + 1, 1, 1, 0, 40},
        {"too tall", 1, DIB_MAX_DIMENSION + 1, 1, 0, 40},
        {"store too large", 65536, 65536, 8, 0, 40},
        {"more colours than the depth", 4, 4, 4, 17, 40},
        {"more colours than kept", 4, 4, 24, 257, 40},
        {"2 bits", 4, 4, 2, 0, 40},
        {"7 bits", 4, 4, 7, 0, 40},
        {"header of 12 bytes", 4, 4, 8, 0, 12},
        {"header of 108 bytes", 4, 4, 8, 0, 108},
    };
    for (const Case& c : cases) {
        InfoBlock block(c.width, c.height, c.bits, c.clrUsed);
        block.info()->bmiHeader.biSize = c.size;
        EXPECT_EQ(DibCreateFromBitmapInfo(block.info()), nullptr) << c.what;
        // Re-creation refuses the same headers; before it deletes anything
        // where the header itself is at fault.
        HDIB h = tovCreateHDIBExt(3, 3, 7, 8);
        ASSERT_NE(h, nullptr);
        HBITMAP bitmap = h->hBitmap;
        DWORD r = DibReCreateFromBitmapInfo(block.info(), h);
        EXPECT_NE(r, 0u) << c.what;
        if (r == DibErrorInvalidParm) {
            EXPECT_EQ(h->hBitmap, bitmap) << c.what;
            EXPECT_EQ(DibWidth(h), 3) << c.what;
            EXPECT_EQ(StorePixel(h, 2, 2), 7u) << c.what;
        }
        EXPECT_EQ(DibUnload(h), 0u);
    }
    EXPECT_EQ(DibCreateFromBitmapInfo(nullptr), nullptr);
    // A colour table that runs into unreadable memory is refused, not read.
    HDIB h = tovCreateHDIBExt(2, 2, 0, 8);
    EXPECT_EQ(DibReCreateFromBitmapInfo(nullptr, h), DWORD(DibErrorInvalidParm));
    DibUnload(h);
}

TEST(DibRecord, ZeroSizesLeaveTheRecordUntouchedOnReCreation) {
    LeakGuard guard;
    HDIB h = MakePatterned(9, 5, 4);
    auto before = StoreBytes(h);
    for (int field = 0; field < 3; ++field) {
        InfoBlock block(9, 5, 4, 0);
        if (field == 0) block.info()->bmiHeader.biWidth = 0;
        if (field == 1) block.info()->bmiHeader.biHeight = 0;
        if (field == 2) block.info()->bmiHeader.biBitCount = 0;
        EXPECT_EQ(DibReCreateFromBitmapInfo(block.info(), h), DWORD(DibErrorInvalidParm));
        EXPECT_EQ(StoreBytes(h), before);
    }
    DibUnload(h);
}

TEST(DibRecord, CopyIsEqualAndIndependent) {
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            HDIB src = MakePatterned(width, 4, bits, 17);
            HDIB copy = tovCreateCopyHDIB(src);
            ASSERT_NE(copy, nullptr);
            EXPECT_NE(copy->pBits, src->pBits);
            EXPECT_EQ(std::memcmp(&copy->ds.dsBmih, &src->ds.dsBmih, 40), 0);
            EXPECT_EQ(std::memcmp(copy->pbmiColors, src->pbmiColors, DibPaletteSize(src)), 0);
            EXPECT_EQ(StoreBytes(copy), StoreBytes(src));
            copy->pBits[0] ^= 0xFF;
            copy->pbmiColors[0].rgbRed ^= 0xFF;
            EXPECT_NE(copy->pBits[0], src->pBits[0]);
            EXPECT_NE(copy->pbmiColors[0].rgbRed, src->pbmiColors[0].rgbRed);
            EXPECT_EQ(tovUnloadHDIB(copy), 0u);
            EXPECT_EQ(tovUnloadHDIB(src), 0u);
        }
    }
}

TEST(DibRecord, ResizeKeepsDepthAndColoursAndMakesANewStore) {
    LeakGuard guard;
    HDIB h = MakePatterned(7, 3, 4);
    h->pbmiColors[3].rgbGreen = 99;
    EXPECT_EQ(DibResize(h, 33, 9), 0u);
    EXPECT_EQ(DibWidth(h), 33);
    EXPECT_EQ(DibHeight(h), 9);
    EXPECT_EQ(DibBitCount(h), 4);
    EXPECT_EQ(DibNumColors(h), 16u);
    EXPECT_EQ(h->pbmiColors[3].rgbGreen, 99);
    for (LONG y = 0; y < 9; ++y) EXPECT_EQ(h->ppRow[y], h->pBits + (8 - y) * Stride(33, 4));
    EXPECT_EQ(DibResize(h, 0, 9), DWORD(DibErrorUnknown));
    EXPECT_EQ(DibResize(nullptr, 3, 3), DWORD(DibErrorInvalidDIB));
    DibUnload(h);
}

TEST(DibRecord, DibCountFollowsCreationAndUnload) {
    LONG start = DibLiveCount();
    HDIB a = tovCreateHDIBExt(4, 4, 0, 8);
    HDIB b = tovCreateCopyHDIB(a);
    EXPECT_EQ(DibLiveCount(), start + 2);
    EXPECT_EQ(tovRecreateHDIBExt(a, 8, 8, 0, 1), 0u);
    EXPECT_EQ(DibLiveCount(), start + 2);
    DibUnload(a);
    DibUnload(b);
    EXPECT_EQ(DibLiveCount(), start);
    EXPECT_EQ(DibUnload(a), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(DibLiveCount(), start);
}

// Every export of the bitmap core on handles that are not records: NULL, a
// stack buffer of junk (also one that carries the signature), and a handle
// that was unloaded.
TEST(DibRecord, BadHandlesGiveFiveNullOrZeroEverywhere) {
    LeakGuard guard;
    alignas(8) BYTE junk[sizeof(DibRecord) + 16];
    for (size_t i = 0; i < sizeof junk; ++i) junk[i] = BYTE(0xA5 ^ i);
    alignas(8) BYTE forged[sizeof(DibRecord)];
    std::memset(forged, 0xEE, sizeof forged);
    reinterpret_cast<DibRecord*>(forged)->iSignature = DIB_SIGNATURE;
    HDIB freed = tovCreateHDIBExt(4, 4, 0, 8);
    ASSERT_EQ(tovUnloadHDIB(freed), 0u);
    HDIB unmapped = reinterpret_cast<HDIB>(uintptr_t(8));

    tovtest::ScratchDir dir;
    HDIB bad[] = {nullptr, reinterpret_cast<HDIB>(junk), reinterpret_cast<HDIB>(forged), freed, unmapped};
    for (HDIB h : bad) {
        SCOPED_TRACE(testing::Message() << "handle " << static_cast<void*>(h));
        EXPECT_EQ(DibIsValid(h), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(tovHDIBIsValid(h), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(tovCreateCopyHDIB(h), nullptr);
        EXPECT_EQ(tovUnloadHDIB(h), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(tovWidth(h), 0);
        EXPECT_EQ(tovHeight(h), 0);
        EXPECT_EQ(tovBitCount(h), 0u);
        EXPECT_EQ(tovNumColors(h), 0u);
        EXPECT_EQ(tovBitsPtr(h), nullptr);
        EXPECT_EQ(tovInfoHeaderPtr(h), nullptr);
        EXPECT_EQ(tovBitmapHandle(h), nullptr);
        EXPECT_EQ(tovRecreateHDIBExt(h, 4, 4, 0, 8), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(tovConvert(h, 4), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(tovClear(h, 0), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(tovSaveBMP(h, u"bad"), DWORD(DibErrorInvalidDIB));
        EXPECT_FALSE(tovtest::FileExists("bad.bmp"));
        EXPECT_EQ(DibRowLength(h), 0);
        EXPECT_EQ(DibBitsSize(h), 0u);
        EXPECT_EQ(DibTotalSize(h), 0u);
        EXPECT_EQ(DibResize(h, 2, 2), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(DibCopy(h, h), DWORD(DibErrorInvalidDIB));
    }
    // The junk was not written to.
    for (size_t i = 0; i < sizeof junk; ++i) ASSERT_EQ(junk[i], BYTE(0xA5 ^ i));
}

TEST(DibRecord, CopyBetweenGoodAndBadHandles) {
    LeakGuard guard;
    HDIB h = tovCreateHDIBExt(4, 4, 9, 8);
    alignas(8) BYTE junk[sizeof(DibRecord)] = {};
    EXPECT_EQ(DibCopy(h, reinterpret_cast<HDIB>(junk)), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(DibCopy(reinterpret_cast<HDIB>(junk), h), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(StorePixel(h, 0, 0), 9u);
    DibUnload(h);
}

// Allocation failure at every site: creation, copy and re-creation end with
// their failure value, leave nothing behind and no half-made record.
TEST(DibRecord, AllocationFailureAtEverySiteOfCreationAndCopy) {
    for (DWORD bits : kDepths) {
        long sites = tovtest::ForEachAllocationFailure([&](long n) {
            LeakGuard guard;
            HDIB h = tovCreateHDIBExt(9, 5, 3, bits);
            if (h) {
                EXPECT_EQ(DibIsValid(h), 0u) << n;
                EXPECT_EQ(DibWidth(h), 9);
                EXPECT_EQ(DibUnload(h), 0u) << n;
            }
        });
        EXPECT_GE(sites, 5);  // block, section (2), record, colours, rows

        HDIB src = MakePatterned(9, 5, bits);
        long copySites = tovtest::ForEachAllocationFailure([&](long n) {
            LeakGuard guard;
            HDIB copy = tovCreateCopyHDIB(src);
            if (copy) {
                EXPECT_EQ(StoreBytes(copy), StoreBytes(src)) << n;
                DibUnload(copy);
            }
        });
        EXPECT_GE(copySites, 6);
        DibUnload(src);
    }
}

TEST(DibRecord, FailedReCreationLeavesAnEmptyUsableRecord) {
    LONG start = DibLiveCount();
    long before = PlatLiveObjects();
    long n = 1;
    for (;; ++n) {
        HDIB h = MakePatterned(31, 4, 8);
        long count = PlatAllocationCount();
        PlatFailAllocation(n);
        DWORD r = DibResize(h, 33, 7);
        PlatFailAllocation(0);
        bool reached = PlatAllocationCount() - count >= n;
        EXPECT_EQ(DibIsValid(h), 0u) << n;
        if (!reached) {
            EXPECT_EQ(r, 0u);
            EXPECT_EQ(DibWidth(h), 33);
            EXPECT_EQ(DibHeight(h), 7);
        } else {
            EXPECT_EQ(r, DWORD(DibErrorUnknown)) << n;
            // Either untouched (the info block failed) or empty.
            if (DibWidth(h) != 31) {
                EXPECT_EQ(DibWidth(h), 0);
                EXPECT_EQ(DibHeight(h), 0);
                EXPECT_EQ(DibBitCount(h), 0);
                EXPECT_EQ(DibNumColors(h), 0u);
                EXPECT_EQ(DibBitsPtr(h), nullptr);
                EXPECT_FALSE(DibHasBitmap(h));
                EXPECT_EQ(tovClear(h, 3), DWORD(DibErrorInvalidDIB));
                EXPECT_EQ(tovConvert(h, 4), DWORD(DibErrorInvalidDIB));
                EXPECT_EQ(tovCreateCopyHDIB(h), nullptr);
                EXPECT_EQ(DibBMPSave(u"never.bmp", h), DWORD(DibErrorInvalidDIB));
                EXPECT_FALSE(tovtest::FileExists("never.bmp"));
                // It can be made again.
                EXPECT_EQ(tovRecreateHDIBExt(h, 5, 5, 1, 1), 0u);
                EXPECT_EQ(StorePixel(h, 4, 4), 1u);
            }
        }
        EXPECT_EQ(DibUnload(h), 0u) << n;
        EXPECT_EQ(DibLiveCount(), start);
        EXPECT_EQ(PlatLiveObjects(), before) << n;
        if (!reached) break;
    }
    EXPECT_GE(n - 1, 5);  // block, section (2), colours, rows
}
