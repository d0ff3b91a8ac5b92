// Printer raster files: the worked examples byte for byte, the sizes and
// cuts, conversion and inversion left on the caller's bitmap, the failure
// codes and their order, allocation failure.
#include "allocfail.h"
#include "filestest.h"

#include <unistd.h>

using namespace filestest;

namespace {

// The file as the format describes it, from the bitmap's rows as they stand
// before the save (1 bit, white = 1): each data byte inverted.
std::string Expected(HDIB h, int left, int data, int right) {
    std::string out = {char(0x1B), 'V', char(DibHeight(h) / 256), char(DibHeight(h) % 256)};
    for (LONG y = 0; y < DibHeight(h); ++y) {
        out += std::string(size_t(left), '\0');
        for (int i = 0; i < data; ++i) out += char(BYTE(~StoreRow(h, y)[i]));
        out += std::string(size_t(right), '\0');
    }
    return out;
}

}  // namespace

TEST(Prn, ExamplesByteForByte) {
    ScratchDir dir;
    LeakGuard guard;
    struct Case {
        LONG width, height, printerwidth, leftmargin;
        int left, data, right;
    } cases[] = {
        {384, 2, 832, 16, 2, 48, 54},  // the plain case
        {384, 2, 200, 16, 2, 23, 0},   // cut at the printer's right edge
        {16, 300, 64, 0, 0, 2, 6},     // row count 01 2C
        {15, 3, 64, 9, 1, 1, 6},       // 9 dots of margin: 1 byte; 15 dots: 1 byte of data
        {56, 1, 56, 0, 0, 7, 0},       // exactly the printer's width
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " on " << c.printerwidth);
        Dib h(MakePatterned(c.width, c.height, 1, 11));
        const std::string want = Expected(h, c.left, c.data, c.right);
        ASSERT_EQ(tovSavePRN(h, u"label.prn", 0, c.printerwidth, c.leftmargin), 0u);
        std::string bytes = ReadFileBytes("label.prn");
        EXPECT_EQ(bytes, want);
        // The bitmap is left inverted: a second save gives the other polarity.
        ASSERT_EQ(tovSavePRN(h, u"label.prn", 0, c.printerwidth, c.leftmargin), 0u);
        std::string again = ReadFileBytes("label.prn");
        ASSERT_EQ(again.size(), bytes.size());
        for (size_t i = 4 + c.left; i < 4 + size_t(c.left + c.data); ++i) EXPECT_EQ(BYTE(again[i]), BYTE(~bytes[i]));
    }
}

// Grey is cut at 128 first: 127 prints, 128 does not. The caller's bitmap
// stays converted and inverted.
TEST(Prn, DeeperBitmapsAreConvertedInPlace) {
    ScratchDir dir;
    LeakGuard guard;
    for (DWORD bits : {8u, 4u}) {
        SCOPED_TRACE(bits);
        Dib h(tovCreateHDIBExt(16, 2, 0, bits));
        DWORD dark = bits == 8 ? 127 : 7, light = bits == 8 ? 128 : 8;
        for (LONG x = 0; x < 16; ++x) {
            StoreSetPixel(h, x, 0, x < 8 ? dark : light);
            StoreSetPixel(h, x, 1, x % 2 ? dark : light);
        }
        ASSERT_EQ(tovSavePRN(h, u"grey.prn", 0, 16, 0), 0u);
        EXPECT_EQ(ReadFileBytes("grey.prn"), std::string("\x1BV\x00\x02\xFF\x00\x55\x55", 8));
        EXPECT_EQ(DibBitCount(h), 1);
        EXPECT_EQ(StorePixel(h, 0, 0), 1u);  // dark, inverted to a set bit
        EXPECT_EQ(StorePixel(h, 8, 0), 0u);
    }
}

TEST(Prn, FailuresGiveTheirCodesInOrder) {
    ScratchDir dir;
    LeakGuard guard;
    ASSERT_EQ(symlink("/dev/full", "full.prn"), 0);
    struct Case {
        const char* what;
        const WCHAR* name;
        DWORD format;
        LONG printerwidth, leftmargin;
        DWORD expected;
        bool touched;  // converted and inverted
        bool file;     // a file is there afterwards
    } cases[] = {
        {"format 1", u"a.prn", 1, 832, 0, DibErrorInvalidParm, false, false},
        {"negative margin", u"b.prn", 0, 832, -8, DibErrorInvalidDIB, true, false},
        {"negative width", u"c.prn", 0, -8, 0, DibErrorInvalidDIB, true, false},
        {"margin past the width", u"d.prn", 0, 64, 72, DibErrorInvalidDIB, true, false},
        {"absurd printer width", u"e.prn", 0, 0x7FFFFFFF, 0, DibErrorInvalidDIB, true, false},
        {"null name", nullptr, 0, 832, 0, DibErrorInvalidParm, true, false},
        {"unreadable name", reinterpret_cast<const WCHAR*>(uintptr_t(16)), 0, 832, 0, DibErrorInvalidParm, false, false},
        {"missing directory", u"no/such/dir.prn", 0, 832, 0, DibErrorFileCreation, true, false},
        {"full medium", u"full.prn", 0, 832, 16, DibErrorFileWrite, true, true},
        // A failed write makes no file: the half-written one is removed.
        {"margin equal to the width", u"f.prn", 0, 64, 64, DibErrorFileWrite, true, false},
        {"printer narrower than a byte", u"g.prn", 0, 7, 0, DibErrorFileWrite, true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Dib h(MakePatterned(40, 3, 8, 2)), original(DibCreateCopy(h));
        EXPECT_EQ(tovSavePRN(h, c.name, c.format, c.printerwidth, c.leftmargin), c.expected);
        if (c.touched) {
            ASSERT_EQ(DibBitCount(h), 1);
            for (LONG x = 0; x < 40; ++x) EXPECT_EQ(StorePixel(h, x, 1), StorePixel(original, x, 1) < 128 ? 1u : 0u);
        } else {
            EXPECT_EQ(StoreBytes(h), StoreBytes(original));
        }
        if (c.name && c.name != reinterpret_cast<const WCHAR*>(uintptr_t(16))) {
            EXPECT_EQ(FileExists(N(c.name)), c.file);
        }
    }
    Dib narrow(MakePatterned(7, 2, 1));  // below a byte: no data to write
    EXPECT_EQ(tovSavePRN(narrow, u"n.prn", 0, 64, 0), DibErrorFileWrite);
    EXPECT_EQ(tovSavePRN(nullptr, u"x.prn", 0, 832, 0), DibErrorInvalidDIB);
    EXPECT_FALSE(FileExists("x.prn"));
}

// The bitmap changes with each attempt, so each gets a fresh copy, made
// before the fault is armed.
TEST(Prn, AllocationFailureAtEverySite) {
    ScratchDir dir;
    Dib source(MakePatterned(33, 5, 8, 6));
    long sites = ForEachFailureAfterSetup([&] { return Dib(DibCreateCopy(source)); },
                                          [](Dib& h) { return DibPRNSave(u"fail.prn", h, 0, 64, 8); },
                                          [](Dib&, DWORD result, bool) {
        EXPECT_TRUE(result == DibOk || result == DibErrorUnknown || result == DibErrorFileCreation) << result;
    });
    EXPECT_GE(sites, 3);
}
