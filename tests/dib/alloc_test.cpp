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
    EXPECT_EQ(DibBMPSave(u"never.bmp", h), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(tovRecreateHDIBExt(h, 5, 5, 1, 1), 0u);
    EXPECT_EQ(StorePixel(h, 4, 4), 1u);
}

}  // namespace

TEST(DibAllocation, ReMakingAndConversion) {
    ScratchDir dir;
    struct Op { std::string name; DWORD from; std::function<DWORD(HDIB)> run; LONG width; DWORD bits; long sites; };
    std::vector<Op> ops = {
        {"resize", 8, [](HDIB h) { return DibResize(h, 33, 7); }, 33, 8, 5},  // block, section (2), colours, rows
    };
    Dib sources[] = {Dib(MakePatterned(33, 2, 1)), Dib(MakePatterned(33, 2, 4)), Dib(MakePatterned(33, 2, 8))};
    for (DWORD from : kDepths)
        for (DWORD to : kDepths) {
            HDIB src = sources[to == 1 ? 0 : to == 4 ? 1 : 2];
            // a copy (6 sites), then the re-making (5)
            if (from != to)
                ops.push_back({"convert " + std::to_string(from) + "->" + std::to_string(to), from,
                               [to](HDIB h) { return DibConvert(h, to); }, 9, to, 11});
            ops.push_back({"copy from " + std::to_string(to) + " bits", from, [src](HDIB h) { return DibCopy(h, src); }, 33, to, 5});
        }
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
