// Pixel access routines against the addressing table, at every depth and
// across byte and word boundaries.
#include "dibimages.h"

#include <cstring>

using namespace tovtest;

TEST(DibPixel, RoutinesFollowTheAddressingTable) {
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            const LONG height = 4;
            HDIB h = MakePatterned(width, height, bits, 3);
            DibPixelIO io{};
            ASSERT_EQ(DibRegisterPixelIO(bits, &io), 0u);
            for (LONG y = 0; y < height; ++y)
                for (LONG x = 0; x < width; ++x) ASSERT_EQ(io.get(h, x, y), Pattern(x, y, bits, 3));
            // Writing another pattern through the routines reads back from the
            // store, and leaves the row padding alone.
            std::vector<BYTE> before = StoreBytes(h);
            for (LONG y = 0; y < height; ++y)
                for (LONG x = 0; x < width; ++x) io.set(h, x, y, Pattern(x, y, bits, 77));
            for (LONG y = 0; y < height; ++y)
                for (LONG x = 0; x < width; ++x) ASSERT_EQ(StorePixel(h, x, y), Pattern(x, y, bits, 77));
            std::vector<BYTE> after = StoreBytes(h);
            LONG stride = Stride(width, bits);
            LONG usedBits = width * LONG(bits);
            for (LONG row = 0; row < height; ++row)
                for (LONG bit = usedBits; bit < stride * 8; ++bit) {
                    size_t byte = size_t(row) * stride + bit / 8;
                    int mask = 0x80 >> (bit % 8);
                    ASSERT_EQ(after[byte] & mask, before[byte] & mask) << "padding bit " << bit;
                }
            DibUnload(h);
        }
    }
}

TEST(DibPixel, FieldsWithinOneByte) {
    LeakGuard guard;
    HDIB h4 = tovCreateHDIBExt(2, 1, 0, 4);
    h4->ppRow[0][0] = 0xA5;
    EXPECT_EQ(DibGetPixel4(h4, 0, 0), 0xAu);  // high nibble first
    EXPECT_EQ(DibGetPixel4(h4, 1, 0), 0x5u);
    DibSetPixel4(h4, 1, 0, 0x3);
    EXPECT_EQ(h4->ppRow[0][0], 0xA3);  // x = 0 untouched
    DibSetPixel4(h4, 0, 0, 0xC);
    EXPECT_EQ(h4->ppRow[0][0], 0xC3);  // x = 1 untouched
    // Values are not masked: at odd x extra bits fall on the even neighbour,
    // at even x they are shifted out of the byte.
    h4->ppRow[0][0] = 0x00;
    DibSetPixel4(h4, 1, 0, 0x12);
    EXPECT_EQ(h4->ppRow[0][0], 0x12);
    h4->ppRow[0][0] = 0x00;
    DibSetPixel4(h4, 0, 0, 0x12);
    EXPECT_EQ(h4->ppRow[0][0], 0x20);
    DibUnload(h4);

    HDIB h1 = tovCreateHDIBExt(8, 1, 0, 1);
    h1->ppRow[0][0] = 0x81;
    EXPECT_EQ(DibGetPixel1(h1, 0, 0), 1u);  // bit 7
    EXPECT_EQ(DibGetPixel1(h1, 7, 0), 1u);  // bit 0
    EXPECT_EQ(DibGetPixel1(h1, 1, 0), 0u);
    h1->ppRow[0][0] = 0x00;
    DibSetPixel1(h1, 7, 0, 3);  // sets the pixel to its left too
    EXPECT_EQ(h1->ppRow[0][0], 0x03);
    DibSetPixel1(h1, 7, 0, 0);
    EXPECT_EQ(h1->ppRow[0][0], 0x02);
    DibUnload(h1);

    HDIB h8 = tovCreateHDIBExt(1, 1, 0, 8);
    DibSetPixel8(h8, 0, 0, 0x1FE);
    EXPECT_EQ(DibGetPixel8(h8, 0, 0), 0xFEu);
    DibUnload(h8);
}

TEST(DibPixel, RegisterRefusesOtherDepthsAndKeepsThePair) {
    struct Case { DWORD bits; DibGetPixelFn get; DibSetPixelFn set; } good[] = {
        {8, DibGetPixel8, DibSetPixel8}, {4, DibGetPixel4, DibSetPixel4}, {1, DibGetPixel1, DibSetPixel1},
    };
    for (const Case& c : good) {
        DibPixelIO io{};
        EXPECT_EQ(DibRegisterPixelIO(c.bits, &io), 0u);
        EXPECT_EQ(io.get, c.get);
        EXPECT_EQ(io.set, c.set);
        for (DWORD bad : {0u, 2u, 16u, 24u, 32u, 0xFFFFFFFFu}) {
            EXPECT_EQ(DibRegisterPixelIO(bad, &io), DWORD(DibErrorInvalidParm));
            EXPECT_EQ(io.get, c.get);
            EXPECT_EQ(io.set, c.set);
        }
    }
    EXPECT_EQ(DibRegisterPixelIO(8, nullptr), DWORD(DibErrorInvalidParm));
}
