// Grey bitmaps: creation and clearing, re-creation, depth conversion, new
// copies and copying between handles.
#include "dibimages.h"

#include <cstring>

using namespace tovtest;

namespace {

::testing::AssertionResult GreyTable(HDIB h, DWORD bits) {
    if (DibBitCount(h) != bits || DibNumColors(h) != 1u << bits) return ::testing::AssertionFailure() << "depth";
    const DWORD step = bits == 1 ? 255 : bits == 4 ? 17 : 1;
    for (DWORD i = 0; i < (1u << bits); ++i) {
        const RGBQUAD& c = h->pbmiColors[i];
        if (c.rgbBlue != i * step || c.rgbGreen != i * step || c.rgbRed != i * step || c.rgbReserved)
            return ::testing::AssertionFailure() << "colour " << i;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(DibCreate, CreateClearAndRecreate) {
    LeakGuard guard;
    // 255 fills any depth with its largest value.
    struct Case { DWORD bits, clear, pixel; } cases[] = {
        {8, 0, 0}, {8, 255, 255}, {8, 128, 128}, {4, 0, 0}, {4, 255, 15}, {4, 6, 6}, {1, 0, 0}, {1, 255, 1}, {1, 1, 1},
    };
    Dib again(MakePatterned(7, 3, 8));
    again.h->pbmiColors[0].rgbRed = 200;
    for (const Case& c : cases)
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << c.bits << " bits, width " << width << ", clear " << c.clear);
            Dib h(tovCreateHDIBExt(width, 3, c.clear, c.bits));
            ASSERT_NE(h.h, nullptr);
            EXPECT_TRUE(GreyTable(h, c.bits));
            EXPECT_EQ(Pixels(h), std::vector<DWORD>(size_t(width) * 3, c.pixel));
            // Re-creation keeps the handle and makes the same grey bitmap.
            ASSERT_EQ(tovRecreateHDIBExt(again, width, 5, c.clear, c.bits), 0u);
            EXPECT_EQ(DibWidth(again), width);
            EXPECT_EQ(DibHeight(again), 5);
            EXPECT_TRUE(GreyTable(again, c.bits));
            EXPECT_EQ(Pixels(again), std::vector<DWORD>(size_t(width) * 5, c.pixel));
            for (LONG y = 0; y < 5; ++y) EXPECT_EQ(again.h->ppRow[y], again.h->pBits + (4 - y) * Stride(width, c.bits));
        }
}

// The export's own checks; sizes the header refuses are in the record tests,
// 24 bits on creation in the trace test, 24-bit bitmaps in tests/files.
TEST(DibCreate, RefusedArguments) {
    LeakGuard guard;
    EXPECT_EQ(tovCreateHDIBExt(10, 10, 0, 2), nullptr);
    EXPECT_EQ(tovCreateHDIBExt(0x7FFFFFFF, 0x7FFFFFFF, 0, 8), nullptr);
    Dib h(tovCreateHDIBExt(4, 4, 9, 8));
    EXPECT_EQ(tovRecreateHDIBExt(h, 4, 4, 0, 24), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovClear(h, 256), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovConvert(h, 2), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovConvert(h, 8), 0u);  // same depth: nothing happens
    EXPECT_EQ(Pixels(h), std::vector<DWORD>(16, 9));
}

TEST(DibCreate, ConversionTables) {
    LeakGuard guard;
    // The boundaries of each direction.
    struct Case { DWORD from, to, v, expected; } cases[] = {
        {8, 1, 127, 0}, {8, 1, 128, 1}, {8, 4, 15, 0}, {8, 4, 16, 1}, {8, 4, 255, 15}, {4, 8, 1, 17},
        {4, 8, 15, 255}, {4, 1, 7, 0}, {4, 1, 8, 1}, {1, 8, 1, 255}, {1, 4, 1, 15},
    };
    for (const Case& c : cases) {
        Dib h(tovCreateHDIBExt(3, 2, 0, c.from));
        for (LONG x = 0; x < 3; ++x) StoreSetPixel(h, x, 1, c.v);
        ASSERT_EQ(tovConvert(h, c.to), 0u);
        EXPECT_EQ(StorePixel(h, 2, 1), c.expected) << c.from << "->" << c.to << " of " << c.v;
        EXPECT_EQ(StorePixel(h, 2, 0), 0u);
    }
    // Up and back down gives the picture back at every width, so that all
    // six directions reach each row's end; the handle stays.
    for (auto [low, high] : {std::pair<DWORD, DWORD>{1, 4}, {1, 8}, {4, 8}})
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << low << "<->" << high << ", width " << width);
            Dib p(MakePatterned(width, 3, low, 5));
            HDIB before = p.h;
            ASSERT_EQ(tovConvert(p, high), 0u);
            EXPECT_TRUE(GreyTable(p, high));
            ASSERT_EQ(tovConvert(p, low), 0u);
            EXPECT_EQ(p.h, before);
            EXPECT_TRUE(GreyTable(p, low));
            for (LONG y = 0; y < 3; ++y)
                for (LONG x = 0; x < width; ++x) ASSERT_EQ(StorePixel(p, x, y), Pattern(x, y, low, 5)) << x << "," << y;
        }
}

TEST(DibCreate, CopyBetweenHandles) {
    LeakGuard guard;
    // Equal size and depth: the pixels only; the destination keeps its table
    // and its store.
    Dib dst(tovCreateHDIBExt(9, 4, 0, 8)), src(MakePatterned(9, 4, 8, 1));
    dst.h->pbmiColors[5].rgbRed = 1;
    BYTE* store = dst.h->pBits;
    ASSERT_EQ(DibCopy(dst, src), 0u);
    EXPECT_EQ(dst.h->pBits, store);
    EXPECT_EQ(dst.h->pbmiColors[5].rgbRed, 1);
    EXPECT_EQ(StoreBytes(dst), StoreBytes(src));
    // Otherwise the destination is re-made as the source, with the grey table;
    // a new copy keeps the source's table. The sizes follow the file layout.
    for (DWORD bits : kDepths)
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            Dib s(MakePatterned(width, 3, bits, 2));
            s.h->pbmiColors[1].rgbGreen = 3;
            EXPECT_EQ(DibTotalSize(s), 40u + (4u << bits) + DWORD(3 * Stride(width, bits)));
            Dib copy(tovCreateCopyHDIB(s));
            ASSERT_NE(copy.h, nullptr);
            EXPECT_EQ(std::memcmp(&copy.h->ds.dsBmih, &s.h->ds.dsBmih, 40), 0);
            EXPECT_EQ(std::memcmp(copy.h->pbmiColors, s.h->pbmiColors, DibPaletteSize(s)), 0);
            EXPECT_EQ(StoreBytes(copy), StoreBytes(s));
            ASSERT_EQ(DibCopy(dst, s), 0u);
            EXPECT_EQ(DibWidth(dst), width);
            EXPECT_EQ(DibHeight(dst), 3);
            EXPECT_TRUE(GreyTable(dst, bits));
            EXPECT_EQ(StoreBytes(dst), StoreBytes(s));
        }
    auto before = StoreBytes(dst);
    EXPECT_EQ(DibCopy(dst, dst), 0u);
    EXPECT_EQ(StoreBytes(dst), before);
}
