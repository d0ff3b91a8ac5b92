// The record: resizing, creation from info blocks with their row lengths, and
// every export of the bitmap core on handles that are not records.
#include "dibimages.h"

#include <cstring>

using namespace tovtest;

namespace {

// An info block with room for 256 colours, filled with a recognisable table.
struct InfoBlock {
    alignas(8) BYTE bytes[40 + 256 * 4 + 64] = {};
    BITMAPINFO* info() { return reinterpret_cast<BITMAPINFO*>(bytes); }
    InfoBlock(LONG width, LONG height, WORD bits, DWORD clrUsed, DWORD size = 40) {
        info()->bmiHeader = {size, width, height, 1, bits, 0, 0, 0, 0, clrUsed, 0};
        for (int i = 0; i < 256; ++i)
            reinterpret_cast<RGBQUAD*>(bytes + 40)[i] = {BYTE(i), BYTE(255 - i), BYTE(i * 3), 0};
    }
};

}  // namespace

// Resizing keeps the depth and the colours; a side of 0 is refused.
TEST(DibRecord, ResizingKeepsDepthAndColours) {
    LeakGuard guard;
    Dib h(MakePatterned(7, 3, 4));
    h.h->pbmiColors[3].rgbGreen = 99;
    EXPECT_EQ(DibResize(h, 33, 9), 0u);
    EXPECT_EQ(DibHeight(h), 9);
    EXPECT_EQ(DibNumColors(h), 16u);
    EXPECT_EQ(h.h->pbmiColors[3].rgbGreen, 99);
    EXPECT_EQ(DibResize(h, 0, 9), DWORD(DibErrorUnknown));
}

// Info blocks that make a record (with its colour count and row length: wide
// rows and depths above 8 bits too) and those refused (colours 0), by creation
// and by re-creation; a re-creation refused for its header has changed nothing.
TEST(DibRecord, InfoBlocksMadeAndRefused) {
    LeakGuard guard;
    struct Case { LONG width, height; WORD bits; DWORD clrUsed, size, colours; } cases[] = {
        {5, 4, 8, 0, 40, 256}, {5, 4, 4, 0, 40, 16}, {5, 4, 1, 0, 40, 2}, {5, 4, 8, 5, 40, 5}, {5, 4, 1, 1, 40, 1},
        {5, 4, 24, 2, 40, 2}, {5, 4, 16, 256, 40, 256}, {640, 1, 8, 0, 40, 256}, {641, 1, 8, 0, 40, 256},
        {3, 1, 24, 2, 40, 2}, {65536, 1, 32, 2, 40, 2},
        // refused: zero sides or depth, 24 bits without colours, negative or
        // too wide sides, a store too large, more colours than the depth or
        // than kept, 2 bits, other header sizes
        {0, 4, 8, 0, 40, 0}, {4, 0, 8, 0, 40, 0}, {4, 4, 0, 0, 40, 0}, {4, 4, 24, 0, 40, 0}, {-4, 4, 8, 0, 40, 0},
        {4, -4, 8, 0, 40, 0}, {DIB_MAX_DIMENSION + 1, 1, 1, 0, 40, 0}, {65536, 65536, 8, 0, 40, 0},
        {4, 4, 4, 17, 40, 0}, {4, 4, 24, 257, 40, 0}, {4, 4, 2, 0, 40, 0}, {4, 4, 8, 0, 12, 0}, {4, 4, 8, 0, 108, 0},
    };
    InfoBlock reference(1, 1, 8, 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << "x" << c.bits << ", "
                                        << c.clrUsed << " colours, header " << c.size);
        InfoBlock block(c.width, c.height, c.bits, c.clrUsed, c.size);
        Dib made(DibCreateFromBitmapInfo(block.info()));
        Dib h(MakePatterned(9, 5, 4));
        const HBITMAP bitmap = h.h->hBitmap;
        const auto before = StoreBytes(h);
        const DWORD r = DibReCreateFromBitmapInfo(block.info(), h);
        if (c.colours) {
            ASSERT_NE(made.h, nullptr);
            EXPECT_EQ(DibNumColors(made), c.colours);
            EXPECT_EQ(DibRowLength(made), Stride(c.width, c.bits));
            EXPECT_EQ(made.h->ds.dsBmih.biClrUsed, c.colours);  // completed in the record
            EXPECT_EQ(std::memcmp(made.h->pbmiColors, reference.bytes + 40, c.colours * 4), 0);
            EXPECT_EQ(r, 0u);
            EXPECT_EQ(DibNumColors(h), c.colours);
        } else {
            EXPECT_EQ(made.h, nullptr);
            EXPECT_NE(r, 0u);
            EXPECT_TRUE(r != DibErrorInvalidParm || (h.h->hBitmap == bitmap && StoreBytes(h) == before));
        }
    }
    EXPECT_EQ(DibCreateFromBitmapInfo(nullptr), nullptr);
    EXPECT_EQ(DibReCreateFromBitmapInfo(nullptr, Dib(tovCreateHDIBExt(2, 2, 0, 8))), DWORD(DibErrorInvalidParm));
}

// NULL, junk on the stack (also junk that carries the signature), an
// unloaded handle and an unmapped address, against every export.
TEST(DibRecord, BadHandlesAreRefusedByEveryExport) {
    LeakGuard guard;
    ScratchDir dir;
    alignas(8) BYTE junk[sizeof(DibRecord) + 16];
    for (size_t i = 0; i < sizeof junk; ++i) junk[i] = BYTE(0xA5 ^ i);
    alignas(8) BYTE forged[sizeof(DibRecord)];
    std::memset(forged, 0xEE, sizeof forged);
    reinterpret_cast<DibRecord*>(forged)->iSignature = DIB_SIGNATURE;
    Dib good(tovCreateHDIBExt(4, 4, 9, 8));
    HDIB freed = tovCreateHDIBExt(4, 4, 0, 8);
    ASSERT_EQ(tovUnloadHDIB(freed), 0u);
    for (HDIB h : {HDIB(nullptr), reinterpret_cast<HDIB>(junk), reinterpret_cast<HDIB>(forged), freed,
                   reinterpret_cast<HDIB>(uintptr_t(8))}) {
        SCOPED_TRACE(testing::Message() << "handle " << static_cast<void*>(h));
        // Each: DibErrorInvalidDIB from the calls that return a code.
        const DWORD codes[] = {DibIsValid(h), tovHDIBIsValid(h), tovUnloadHDIB(h), tovRecreateHDIBExt(h, 4, 4, 0, 8),
                               tovConvert(h, 4), tovClear(h, 0), tovSaveBMP(h, u"bad"), DibResize(h, 2, 2),
                               DibCopy(h, h), DibCopy(h, good), DibCopy(good, h)};
        for (size_t i = 0; i < std::size(codes); ++i) EXPECT_EQ(codes[i], DWORD(DibErrorInvalidDIB)) << "call " << i;
        // Each: 0 or NULL from the others.
        const uintptr_t zeros[] = {uintptr_t(tovWidth(h)), uintptr_t(tovHeight(h)), tovBitCount(h), tovNumColors(h),
                                   uintptr_t(DibRowLength(h)), DibBitsSize(h), DibTotalSize(h),
                                   uintptr_t(Dib(tovCreateCopyHDIB(h)).h), uintptr_t(tovBitsPtr(h)),
                                   uintptr_t(tovInfoHeaderPtr(h)), uintptr_t(tovBitmapHandle(h))};
        for (size_t i = 0; i < std::size(zeros); ++i) EXPECT_EQ(zeros[i], 0u) << "call " << i;
        EXPECT_FALSE(FileExists("bad.bmp"));
    }
    for (size_t i = 0; i < sizeof junk; ++i) ASSERT_EQ(junk[i], BYTE(0xA5 ^ i)) << "junk written at " << i;
    EXPECT_EQ(StorePixel(good, 3, 3), 9u);
    EXPECT_EQ(tovInfoHeaderPtr(good), &good.h->ds.dsBmih);
}
