// Printer raster files: the worked examples byte for byte, the sizes and
// cuts, conversion and inversion left on the caller's bitmap, the failure
// codes and their order. Allocation failure is in the every-export loop.
#include "filestest.h"

#include <unistd.h>

TEST(Prn, ExamplesByteForByte) {
    ScratchDir dir;
    LeakGuard guard;
    const struct { LONG width, height, printerwidth, leftmargin; int left, data, right; } cases[] = {
        {384, 2, 832, 16, 2, 48, 54},  // the plain case
        {384, 2, 200, 16, 2, 23, 0},   // cut at the printer's right edge
        {8, 65535, 8, 0, 0, 1, 0},     // the most rows the count can tell
        {15, 3, 64, 9, 1, 1, 6},       // 9 dots of margin: 1 byte; 15 dots: 1 byte of data
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " on " << c.printerwidth);
        Dib h(MakePatterned(c.width, c.height, 1, 11));
        // The file from the rows as they stand before the save, each data byte inverted.
        std::string want = {char(0x1B), 'V', char(c.height / 256), char(c.height % 256)};
        for (LONG y = 0; y < c.height; ++y) {
            want += std::string(size_t(c.left), '\0');
            for (int i = 0; i < c.data; ++i) want += char(BYTE(~StoreRow(h, y)[i]));
            want += std::string(size_t(c.right), '\0');
        }
        ASSERT_EQ(tovSavePRN(h, u"label.prn", 0, c.printerwidth, c.leftmargin), 0u);
        EXPECT_EQ(ReadFileBytes("label.prn"), want);
    }
}

// A grey bitmap is cut at 128 first (127 prints) and left converted and
// inverted, however the save ends.
TEST(Prn, FailuresGiveTheirCodesInOrder) {
    ScratchDir dir;
    LeakGuard guard;
    ASSERT_EQ(symlink("/dev/full", "full.prn"), 0);
    const WCHAR* unreadable = reinterpret_cast<const WCHAR*>(uintptr_t(16));
    // touched: converted and inverted
    const struct { const WCHAR* name; DWORD format; LONG printerwidth, leftmargin; DWORD expected; bool touched; } cases[] = {
        {u"a.prn", 1, 832, 0, DibErrorInvalidParm, false},
        {u"b.prn", 0, 832, -8, DibErrorInvalidDIB, true},          // negative margin
        {u"d.prn", 0, 64, 72, DibErrorInvalidDIB, true},           // margin past the width
        {u"e.prn", 0, 0x7FFFFFFF, 0, DibErrorInvalidDIB, true},    // absurd printer width
        {nullptr, 0, 832, 0, DibErrorInvalidParm, true},
        {unreadable, 0, 832, 0, DibErrorInvalidParm, false},
        {u"no/such/dir.prn", 0, 832, 0, DibErrorFileCreation, true},
        {u"full.prn", 0, 832, 16, DibErrorFileWrite, true},  // (rows of no data bytes fail alike: Files.TraceLines)
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        Dib h(MakePatterned(40, 3, 8, 2));
        StoreSetPixel(h, 0, 1, 127);  // either side of the cut
        StoreSetPixel(h, 1, 1, 128);
        Dib original(DibCreateCopy(h));
        EXPECT_EQ(tovSavePRN(h, c.name, c.format, c.printerwidth, c.leftmargin), c.expected);
        if (c.touched) {
            ASSERT_EQ(DibBitCount(h), 1);
            for (LONG x = 0; x < 40; ++x) EXPECT_EQ(StorePixel(h, x, 1), StorePixel(original, x, 1) < 128 ? 1u : 0u);
        } else {
            EXPECT_EQ(StoreBytes(h), StoreBytes(original));
        }
    }
    EXPECT_EQ(tovSavePRN(nullptr, u"x.prn", 0, 832, 0), DibErrorInvalidDIB);
    EXPECT_EQ(FilesIn(".", "").size(), 1u);  // full.prn
}
