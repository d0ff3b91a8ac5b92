// Pixel access routines against the addressing table, at every depth and
// across byte and word boundaries.
#include "dibimages.h"

using namespace tovtest;

TEST(DibPixel, RoutinesFollowTheAddressingTable) {
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            const LONG height = 4;
            Dib h(MakePatterned(width, height, bits, 3));
            DibPixelIO io{};
            ASSERT_EQ(DibRegisterPixelIO(bits, &io), 0u);
            for (LONG y = 0; y < height; ++y)
                for (LONG x = 0; x < width; ++x) ASSERT_EQ(io.get(h, x, y), Pattern(x, y, bits, 3));
            // Writes read back from the store and leave the row padding alone.
            const std::vector<BYTE> before = StoreBytes(h);
            for (LONG y = 0; y < height; ++y)
                for (LONG x = 0; x < width; ++x) io.set(h, x, y, Pattern(x, y, bits, 77));
            for (LONG y = 0; y < height; ++y)
                for (LONG x = 0; x < width; ++x) ASSERT_EQ(StorePixel(h, x, y), Pattern(x, y, bits, 77));
            const std::vector<BYTE> after = StoreBytes(h);
            const LONG stride = Stride(width, bits);
            for (LONG row = 0; row < height; ++row)
                for (LONG bit = width * LONG(bits); bit < stride * 8; ++bit) {
                    size_t byte = size_t(row) * stride + bit / 8;
                    int mask = 0x80 >> (bit % 8);
                    ASSERT_EQ(after[byte] & mask, before[byte] & mask) << "padding bit " << bit;
                }
        }
    }
}

// Values are not masked: extra bits fall on the neighbour to the left or
// are shifted out of the byte.
TEST(DibPixel, UnmaskedValuesWithinOneByte) {
    LeakGuard guard;
    struct Case { DWORD bits; LONG x; BYTE start; DWORD value; BYTE after; } cases[] = {
        {4, 1, 0xA5, 0x3, 0xA3}, {4, 0, 0xA3, 0xC, 0xC3}, {4, 1, 0x00, 0x12, 0x12}, {4, 0, 0x00, 0x12, 0x20},
        {1, 7, 0x00, 3, 0x03},   {1, 7, 0x03, 0, 0x02},   {1, 0, 0x00, 1, 0x80},    {8, 0, 0x00, 0x1FE, 0xFE},
    };
    for (const Case& c : cases) {
        Dib h(tovCreateHDIBExt(8, 1, 0, c.bits));
        DibPixelIO io{};
        ASSERT_EQ(DibRegisterPixelIO(c.bits, &io), 0u);
        h.h->ppRow[0][0] = c.start;
        io.set(h, c.x, 0, c.value);
        EXPECT_EQ(h.h->ppRow[0][0], c.after) << c.bits << " bits at " << c.x << ", value " << c.value;
    }
    Dib h4(tovCreateHDIBExt(2, 1, 0, 4));
    h4.h->ppRow[0][0] = 0xA5;
    EXPECT_EQ(DibGetPixel4(h4, 0, 0), 0xAu);  // high nibble first
    EXPECT_EQ(DibGetPixel4(h4, 1, 0), 0x5u);
}

TEST(DibPixel, RegisterRefusesOtherDepthsAndKeepsThePair) {
    DibPixelIO io{};
    EXPECT_EQ(DibRegisterPixelIO(4, &io), 0u);
    for (DWORD bad : {0u, 2u, 16u, 24u, 0xFFFFFFFFu})
        EXPECT_EQ(DibRegisterPixelIO(bad, &io), DWORD(DibErrorInvalidParm)) << bad;
    EXPECT_TRUE(io.get == DibGetPixel4 && io.set == DibSetPixel4);
    EXPECT_EQ(DibRegisterPixelIO(8, nullptr), DWORD(DibErrorInvalidParm));
}
