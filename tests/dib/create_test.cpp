// Grey bitmaps: creation and clearing, re-creation, depth conversion,
// copying between handles, and allocation failure in each.
#include "dibimages.h"

#include <cstring>

using namespace tovtest;

namespace {

// Every pixel of h equals value.
::testing::AssertionResult AllPixels(HDIB h, DWORD value) {
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x)
            if (StorePixel(h, x, y) != value)
                return ::testing::AssertionFailure() << "pixel " << x << "," << y << " is "
                                                     << StorePixel(h, x, y) << ", not " << value;
    return ::testing::AssertionSuccess();
}

void ExpectGreyTable(HDIB h, DWORD bits) {
    ASSERT_EQ(DibNumColors(h), 1u << bits);
    DWORD step = bits == 1 ? 255 : bits == 4 ? 17 : 1;
    for (DWORD i = 0; i < (1u << bits); ++i) {
        const RGBQUAD& c = h->pbmiColors[i];
        EXPECT_EQ(c.rgbBlue, i * step);
        EXPECT_EQ(c.rgbGreen, i * step);
        EXPECT_EQ(c.rgbRed, i * step);
        EXPECT_EQ(c.rgbReserved, 0);
    }
}

}  // namespace

TEST(DibCreate, ClearValuesAtEveryDepth) {
    LeakGuard guard;
    // clear value -> pixel value, per depth; 255 fills any depth with its
    // largest value.
    struct Case { DWORD bits; DWORD clear; DWORD pixel; } cases[] = {
        {8, 0, 0}, {8, 255, 255}, {8, 128, 128},
        {4, 0, 0}, {4, 255, 15}, {4, 15, 15}, {4, 6, 6},
        {1, 0, 0}, {1, 255, 1}, {1, 1, 1},
    };
    for (const Case& c : cases) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << c.bits << " bits, width " << width << ", clear " << c.clear);
            HDIB h = tovCreateHDIBExt(width, 3, c.clear, c.bits);
            ASSERT_NE(h, nullptr);
            EXPECT_EQ(DibBitCount(h), c.bits);
            EXPECT_EQ(h->ds.dsBmih.biClrUsed, 1u << c.bits);
            ExpectGreyTable(h, c.bits);
            EXPECT_TRUE(AllPixels(h, c.pixel));
            // tovClear writes the same over a different content.
            EXPECT_EQ(tovClear(h, c.clear ^ 0xFF), 0u);
            EXPECT_EQ(tovClear(h, c.clear), 0u);
            EXPECT_TRUE(AllPixels(h, c.pixel));
            DibUnload(h);
        }
    }
    HDIB big = tovCreateHDIBExt(640, 480, 255, 8);
    EXPECT_TRUE(AllPixels(big, 255));
    EXPECT_EQ(DibNumColors(big), 256u);
    DibUnload(big);
}

TEST(DibCreate, RefusalsOfTheCreationExports) {
    LeakGuard guard;
    EXPECT_EQ(tovCreateHDIBExt(10, 10, 0, 24), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(10, 10, 0, 2), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(0, 10, 0, 8), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(10, 0, 0, 8), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(-10, 10, 0, 8), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(10, -10, 0, 8), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(DIB_MAX_DIMENSION + 1, 1, 0, 1), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(0x7FFFFFFF, 0x7FFFFFFF, 0, 8), nullptr);
    EXPECT_EQ(DibCreate(0, 4, 0), nullptr);

    HDIB h = tovCreateHDIBExt(4, 4, 9, 8);
    EXPECT_EQ(tovRecreateHDIBExt(h, 4, 4, 0, 24), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovClear(h, 256), DWORD(DibErrorInvalidParm));
    EXPECT_TRUE(AllPixels(h, 9));
    EXPECT_EQ(tovConvert(h, 2), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovConvert(h, 8), 0u);  // same depth: nothing happens
    EXPECT_TRUE(AllPixels(h, 9));
    DibUnload(h);

    // A bitmap of 24 bits cannot be converted or cleared.
    alignas(8) BYTE block[48] = {};
    auto* info = reinterpret_cast<BITMAPINFO*>(block);
    info->bmiHeader = {40, 3, 3, 1, 24, 0, 0, 0, 0, 2, 0};
    HDIB deep = DibCreateFromBitmapInfo(info);
    ASSERT_NE(deep, nullptr);
    EXPECT_EQ(tovConvert(deep, 8), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(tovClear(deep, 0), DWORD(DibErrorInvalidDIB));
    DibUnload(deep);
}

TEST(DibCreate, DibCreateMakesClearedEightBitBitmaps) {
    LeakGuard guard;
    HDIB h = DibCreate(33, 2, 77);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(DibBitCount(h), 8);
    ExpectGreyTable(h, 8);
    EXPECT_TRUE(AllPixels(h, 77));
    DibUnload(h);
}

TEST(DibCreate, RecreateKeepsTheHandleAndMakesAGreyBitmap) {
    LeakGuard guard;
    HDIB h = MakePatterned(7, 3, 8);
    h->pbmiColors[0].rgbRed = 200;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            ASSERT_EQ(tovRecreateHDIBExt(h, width, 5, 255, bits), 0u);
            EXPECT_EQ(DibWidth(h), width);
            EXPECT_EQ(DibHeight(h), 5);
            EXPECT_EQ(DibBitCount(h), bits);
            ExpectGreyTable(h, bits);
            EXPECT_TRUE(AllPixels(h, (1u << bits) - 1));
            for (LONG y = 0; y < 5; ++y) EXPECT_EQ(h->ppRow[y], h->pBits + (4 - y) * Stride(width, bits));
        }
    }
    DibUnload(h);
}

TEST(DibCreate, ConversionValueTables) {
    LeakGuard guard;
    // from, to, old value, new value
    struct Case { DWORD from, to, v, expected; } cases[] = {
        {8, 1, 127, 0}, {8, 1, 128, 1}, {8, 1, 0, 0}, {8, 1, 255, 1},
        {8, 4, 200, 12}, {8, 4, 15, 0}, {8, 4, 16, 1}, {8, 4, 255, 15},
        {4, 8, 12, 204}, {4, 8, 0, 0}, {4, 8, 1, 17}, {4, 8, 15, 255},
        {4, 1, 7, 0}, {4, 1, 8, 1},
        {1, 8, 1, 255}, {1, 8, 0, 0}, {1, 4, 1, 15}, {1, 4, 0, 0},
    };
    for (const Case& c : cases) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << c.from << "->" << c.to << " of " << c.v << ", width " << width);
            HDIB h = tovCreateHDIBExt(width, 2, 0, c.from);
            HDIB before = h;
            for (LONG y = 0; y < 2; ++y)
                for (LONG x = 0; x < width; ++x) StoreSetPixel(h, x, y, c.v);
            ASSERT_EQ(tovConvert(h, c.to), 0u);
            EXPECT_EQ(h, before);
            EXPECT_EQ(DibBitCount(h), c.to);
            EXPECT_EQ(DibWidth(h), width);
            ExpectGreyTable(h, c.to);
            EXPECT_TRUE(AllPixels(h, c.expected));
            DibUnload(h);
        }
    }
}

TEST(DibCreate, ConversionChainsAndPatterns) {
    LeakGuard guard;
    // 8 -> 4 -> 8: 200 gives 12, then 204. 8 -> 1 -> 8: 127, 128 give 0, 255.
    HDIB h = tovCreateHDIBExt(3, 1, 0, 8);
    h->ppRow[0][0] = 200;
    h->ppRow[0][1] = 127;
    h->ppRow[0][2] = 128;
    ASSERT_EQ(tovConvert(h, 4), 0u);
    EXPECT_EQ(StorePixel(h, 0, 0), 12u);
    ASSERT_EQ(tovConvert(h, 8), 0u);
    EXPECT_EQ(StorePixel(h, 0, 0), 204u);
    ASSERT_EQ(tovConvert(h, 1), 0u);
    ASSERT_EQ(tovConvert(h, 8), 0u);
    EXPECT_EQ(StorePixel(h, 0, 0), 255u);
    EXPECT_EQ(StorePixel(h, 1, 0), 0u);
    EXPECT_EQ(StorePixel(h, 2, 0), 255u);
    DibUnload(h);

    // Patterned pictures against a per-pixel reference, all six directions.
    auto expect = [](DWORD from, DWORD to, DWORD v) -> DWORD {
        if (from == 8 && to == 4) return v >> 4;
        if (from == 8 && to == 1) return v >= 128;
        if (from == 4 && to == 8) return v * 17;
        if (from == 4 && to == 1) return v >= 8;
        if (from == 1 && to == 8) return v ? 255 : 0;
        return v ? 15 : 0;
    };
    for (DWORD from : kDepths)
        for (DWORD to : kDepths) {
            if (from == to) continue;
            for (LONG width : kWidths) {
                HDIB p = MakePatterned(width, 3, from, 5);
                ASSERT_EQ(DibConvert(p, to), 0u);
                for (LONG y = 0; y < 3; ++y)
                    for (LONG x = 0; x < width; ++x)
                        ASSERT_EQ(StorePixel(p, x, y), expect(from, to, Pattern(x, y, from, 5)))
                            << from << "->" << to << " width " << width << " at " << x << "," << y;
                DibUnload(p);
            }
        }
}

TEST(DibCreate, CopyBetweenHandles) {
    LeakGuard guard;
    // Equal size and depth: pixels copied, the destination keeps its table
    // and its store.
    HDIB src = MakePatterned(9, 4, 8, 1);
    HDIB dst = tovCreateHDIBExt(9, 4, 0, 8);
    dst->pbmiColors[5].rgbRed = 1;
    BYTE* store = dst->pBits;
    ASSERT_EQ(DibCopy(dst, src), 0u);
    EXPECT_EQ(dst->pBits, store);
    EXPECT_EQ(dst->pbmiColors[5].rgbRed, 1);
    EXPECT_EQ(StoreBytes(dst), StoreBytes(src));
    DibUnload(src);

    // Other sizes and depths: the destination is re-made as the source, with
    // the standard grey table, and the source's pixels.
    for (DWORD bits : kDepths)
        for (LONG width : kWidths) {
            HDIB s = MakePatterned(width, 3, bits, 2);
            s->pbmiColors[1].rgbGreen = 3;
            ASSERT_EQ(DibCopy(dst, s), 0u);
            EXPECT_EQ(DibWidth(dst), width);
            EXPECT_EQ(DibHeight(dst), 3);
            EXPECT_EQ(DibBitCount(dst), bits);
            ExpectGreyTable(dst, bits);
            EXPECT_EQ(StoreBytes(dst), StoreBytes(s));
            DibUnload(s);
        }
    // A copy onto itself changes nothing.
    auto before = StoreBytes(dst);
    EXPECT_EQ(DibCopy(dst, dst), 0u);
    EXPECT_EQ(StoreBytes(dst), before);
    DibUnload(dst);
}

TEST(DibCreate, AllocationFailureInConversionAndReCreation) {
    for (DWORD from : kDepths)
        for (DWORD to : kDepths) {
            if (from == to) continue;
            long before = PlatLiveObjects();
            LONG count = DibLiveCount();
            long n = 1;
            for (;; ++n) {
                HDIB h = MakePatterned(9, 3, from, 4);
                auto original = StoreBytes(h);
                long used = PlatAllocationCount();
                PlatFailAllocation(n);
                DWORD r = DibConvert(h, to);
                PlatFailAllocation(0);
                bool reached = PlatAllocationCount() - used >= n;
                EXPECT_EQ(DibIsValid(h), 0u);
                if (reached) {
                    EXPECT_EQ(r, DWORD(DibErrorUnknown)) << n;
                    // Failed before the re-creation: untouched. After: empty.
                    if (DibBitCount(h) == from) {
                        EXPECT_EQ(StoreBytes(h), original) << n;
                    } else {
                        EXPECT_EQ(DibBitCount(h), 0) << n;
                    }
                } else {
                    EXPECT_EQ(r, 0u);
                    EXPECT_EQ(DibBitCount(h), to);
                }
                EXPECT_EQ(DibUnload(h), 0u);
                EXPECT_EQ(PlatLiveObjects(), before) << from << "->" << to << " failing " << n;
                EXPECT_EQ(DibLiveCount(), count);
                if (!reached) break;
            }
            // copy (block, section x2, record, colours, rows), block, section x2, colours, rows
            EXPECT_GE(n - 1, 11);
        }

    // DibCopy onto a destination of another size: fails only with 6, and
    // leaves the destination valid.
    for (DWORD bits : kDepths) {
        long before = PlatLiveObjects();
        long n = 1;
        for (;; ++n) {
            HDIB h = tovCreateHDIBExt(5, 5, 0, 8);
            HDIB src = MakePatterned(33, 2, bits);
            long used = PlatAllocationCount();
            PlatFailAllocation(n);
            DWORD r = DibCopy(h, src);
            PlatFailAllocation(0);
            bool reached = PlatAllocationCount() - used >= n;
            EXPECT_EQ(r, reached ? DWORD(DibErrorUnknown) : 0u) << n;
            if (r == 0) {
                EXPECT_EQ(StoreBytes(h), StoreBytes(src));
            }
            EXPECT_EQ(DibIsValid(h), 0u);
            DibUnload(h);
            DibUnload(src);
            EXPECT_EQ(PlatLiveObjects(), before) << n;
            if (!reached) break;
        }
        EXPECT_GE(n - 1, 5);
    }
}
