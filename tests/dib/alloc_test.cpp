// Allocation failure at every site of re-making and conversion: each ends
// with its failure value and leaves the record untouched or empty. Creation
// and copies fail in the every-export loop of tests/frame; loading is with
// the other formats' in tests/files.
#include "allocfail.h"

#include <functional>

using namespace tovtest;

namespace {

// A record whose re-making failed is untouched or empty; an empty one is
// refused by the operations and can be made again.
void ExpectUntouchedOrEmpty(HDIB h, const std::vector<BYTE>& before) {
    ASSERT_EQ(DibIsValid(h), 0u);
    if (DibWidth(h) != 0) {
        EXPECT_EQ(StoreBytes(h), before);
        return;
    }
    EXPECT_EQ(DibHeight(h) | DibBitCount(h) | DibRowLength(h) | LONG(DibNumColors(h)), 0);
    EXPECT_EQ(DibBitsPtr(h), nullptr);
    EXPECT_FALSE(DibHasBitmap(h));
    EXPECT_EQ(tovClear(h, 3), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(tovCreateCopyHDIB(h), nullptr);
    EXPECT_EQ(Codes({DibBMPSave(u"never.bmp", h), tovSavePNG(h, u"never.png"), tovSaveJPG(h, u"never.jpg", 75),
                     tovSavePRN(h, u"never.prn", 0, 384, 0)}), "5 5 5 5");
    EXPECT_EQ(tovRecreateHDIBExt(h, 5, 5, 1, 1), 0u);
    EXPECT_EQ(StorePixel(h, 4, 4), 1u);
}

}  // namespace

TEST(DibAllocation, ReMakingAndConversion) {
    ScratchDir dir;
    struct Op { const char* name; DWORD from; std::function<DWORD(HDIB)> run; LONG width; DWORD bits; long sites; };
    // The sites are those of one path whatever the depths; the store grows and shrinks.
    Dib one(MakePatterned(33, 2, 1)), eight(MakePatterned(33, 2, 8));
    const Op ops[] = {
        {"resize", 8, [](HDIB h) { return DibResize(h, 33, 7); }, 33, 8, 5},  // block, section (2), colours, rows
        {"convert 1->8", 1, [](HDIB h) { return DibConvert(h, 8); }, 9, 8, 11},  // a copy (6 sites), then the re-making (5)
        {"convert 8->4", 8, [](HDIB h) { return DibConvert(h, 4); }, 9, 4, 11},
        {"copy from 8 bits", 4, [&](HDIB h) { return DibCopy(h, eight); }, 33, 8, 5},
        {"copy from 1 bit", 8, [&](HDIB h) { return DibCopy(h, one); }, 33, 1, 5},
    };
    for (const Op& op : ops) {
        SCOPED_TRACE(op.name);
        std::vector<BYTE> before;
        long sites = ForEachFailureAfterSetup(
            [&] {
                Dib h(MakePatterned(9, 3, op.from, 4));
                before = StoreBytes(h);
                return h;
            },
            [&](Dib& h) { return op.run(h); },
            [&](Dib& h, DWORD r, bool reached) {
                if (reached) {
                    EXPECT_EQ(r, DWORD(DibErrorUnknown));
                    ExpectUntouchedOrEmpty(h, before);
                } else {
                    EXPECT_EQ(r, 0u);
                    EXPECT_EQ(DibWidth(h), op.width);
                    EXPECT_EQ(DibBitCount(h), op.bits);
                }
            });
        EXPECT_GE(sites, op.sites);
    }
}
