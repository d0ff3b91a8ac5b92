// Pixel access routines and clearing against the addressing table, at every
// depth and across byte and word boundaries.
#include "dibimages.h"

using namespace tovtest;

// Reads against the addressing table, then writes: every pixel set through
// the routine reads back from the store (bits that spill over a pixel's field
// land on its left neighbour), the row padding stays, and the bytes equal
// those a clear to that value gives.
TEST(DibPixel, RoutinesFollowTheAddressingTableAndClearAgrees) {
    LeakGuard guard;
    for (DWORD bits : kDepths)
        for (LONG width : kWidths)
            for (DWORD value : {1u, 2u, 5u, 6u, 9u, 16u, 170u, 254u}) {
                SCOPED_TRACE(testing::Message() << bits << " bits, width " << width << ", value " << value);
                Dib h(MakeRandom(width, 4, bits, value * 31 + DWORD(width))), cleared(tovCreateCopyHDIB(h));
                DibPixelIO io{};
                ASSERT_EQ(DibRegisterPixelIO(bits, &io), 0u);
                for (LONG y = 0; y < 4; ++y)
                    for (LONG x = 0; x < width; ++x) ASSERT_EQ(io.get(h, x, y), StorePixel(h, x, y));
                const std::vector<BYTE> before = StoreBytes(h);
                for (LONG y = 0; y < 4; ++y)
                    for (LONG x = 0; x < width; ++x) io.set(h, x, y, value);
                ASSERT_EQ(tovClear(cleared, value), 0u);
                EXPECT_EQ(StoreBytes(h), StoreBytes(cleared));
                for (LONG y = 0; y < 4 && value >> bits == 0; ++y)
                    for (LONG x = 0; x < width; ++x) ASSERT_EQ(StorePixel(h, x, y), value);
                const std::vector<BYTE> after = StoreBytes(h);
                const LONG stride = Stride(width, bits);
                for (LONG row = 0; row < 4; ++row)
                    for (LONG bit = width * LONG(bits); bit < stride * 8; ++bit) {
                        const size_t byte = size_t(row) * stride + bit / 8;
                        ASSERT_EQ(after[byte] & (0x80 >> (bit % 8)), before[byte] & (0x80 >> (bit % 8))) << bit;
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
    // Other depths are refused and leave the pair registered before.
    DibPixelIO io{};
    EXPECT_EQ(DibRegisterPixelIO(4, &io), 0u);
    for (DWORD bad : {0u, 2u, 16u, 24u, 0xFFFFFFFFu})
        EXPECT_EQ(DibRegisterPixelIO(bad, &io), DWORD(DibErrorInvalidParm)) << bad;
    EXPECT_TRUE(io.get == DibGetPixel4 && io.set == DibSetPixel4);
    EXPECT_EQ(DibRegisterPixelIO(8, nullptr), DWORD(DibErrorInvalidParm));
}
