// PNG files: the public PNG suite against libpng's simplified reader, round
// trips at 1, 4 and 8 bits and odd widths read back by libpng too.
#include "filestest.h"

#include <png.h>

#include <set>

using namespace filestest;

namespace {

std::string SuiteDir() { return TestDataDir() + "/pngsuite"; }

// Every pixel of the bitmap against the independent decode: grey samples
// scaled to 8 bits, palette indices through the file's own palette.
void ExpectSamePicture(HDIB h, const PngHeader& hdr, const std::string& bytes) {
    ASSERT_EQ(DibWidth(h), LONG(hdr.width));
    ASSERT_EQ(DibHeight(h), LONG(hdr.height));
    ASSERT_EQ(DibBitCount(h), hdr.depth);
    ASSERT_EQ(DibNumColors(h), 1u << hdr.depth);
    bool palette = hdr.colorType == 3;
    Decoded d = OraclePng(bytes, palette ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY);
    ASSERT_TRUE(d.ok) << d.message;
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) {
            DWORD v = StorePixel(h, x, y);
            size_t at = size_t(y) * hdr.width + x;
            if (palette) {
                ASSERT_LT(v, hdr.palette.size());
                std::array<BYTE, 3> seen = {d.samples[at * 3], d.samples[at * 3 + 1], d.samples[at * 3 + 2]};
                ASSERT_EQ(hdr.palette[v], seen) << "index " << v << " at (" << x << "," << y << ")";
            } else {
                ASSERT_EQ(v * 255 / ((1u << hdr.depth) - 1), d.samples[at]) << "at (" << x << "," << y << ")";
            }
        }
}

}  // namespace

// A strict grey loader takes the 1, 4 and 8-bit grey and palette files that
// libpng can read, and nothing else.
TEST(Png, SuiteLoadsExactlyOrRefuses) {
    std::vector<std::string> files = FilesIn(SuiteDir(), ".png");
    ASSERT_GE(files.size(), 170u);
    std::set<std::string> loaded;
    for (const std::string& path : files) {
        SCOPED_TRACE(BaseName(path));
        std::string bytes = ReadFileBytes(path);
        PngHeader hdr = ParsePng(bytes);
        bool sound = hdr.parsed && (hdr.depth == 1 || hdr.depth == 4 || hdr.depth == 8) &&
                     (hdr.colorType == 0 || hdr.colorType == 3) && OraclePng(bytes, PNG_FORMAT_GRAY).ok;
        LeakGuard guard;
        Dib h(tovLoadPNG(W(path).c_str()));
        ASSERT_EQ(h != nullptr, sound);
        if (h) {
            ExpectSamePicture(h, hdr, bytes);
            loaded.insert(BaseName(path));
        }
    }
    EXPECT_EQ(loaded.size(), 77u);
    // Names that keep the expectations honest: both interlace methods, both
    // kinds, odd sizes; other depths, colour, alpha and damage refused.
    for (const char* name : {"basn0g01.png", "basi0g04.png", "basn3p08.png", "basi3p01.png", "s01i3p01.png",
                             "s39i3p04.png", "tbbn0g04.png", "g10n3p04.png"})
        EXPECT_TRUE(loaded.count(name)) << name;
    for (const char* name : {"basn0g02.png", "basn0g16.png", "basn2c08.png", "basn4a08.png", "basi3p02.png",
                             "xs1n0g01.png", "xcsn0g01.png", "xdtn0g01.png"})
        EXPECT_FALSE(loaded.count(name)) << name;
}

// Written as grey samples whatever the colour table says (the red of the
// table is changed here), read back with the standard grey table.
TEST(Png, RoundTripsGiveEqualBytesAndFilesLibpngAgreesWith) {
    ScratchDir dir;
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            Dib h(MakePatterned(width, 6, bits, 3));
            for (DWORD i = 0; i < (1u << bits); ++i) h.h->pbmiColors[i].rgbRed = BYTE(7 * i + 1);
            ASSERT_EQ(tovSavePNG(h, u"pic"), 0u);
            std::string bytes = ReadFileBytes("pic.png");
            PngHeader hdr = ParsePng(bytes);
            EXPECT_EQ(hdr.colorType, 0);
            EXPECT_EQ(hdr.interlace, 0);
            ExpectSamePicture(h, hdr, bytes);
            Dib back(tovLoadPNG(u"pic.png"));
            ASSERT_NE(back, nullptr);
            EXPECT_EQ(StoreBytes(back), StoreBytes(h));
            EXPECT_EQ(back.h->pbmiColors[1].rgbRed, 255 / ((1 << bits) - 1));
        }
    }
}
