// PNG files: the public PNG suite against libpng's simplified reader, round
// trips at 1, 4 and 8 bits and odd widths read back by libpng too.
#include "filestest.h"

#include <png.h>
#include <zlib.h>

#include <set>

namespace {

uint32_t Be32(const std::string& b, size_t at) {
    return uint32_t(BYTE(b[at])) << 24 | uint32_t(BYTE(b[at + 1])) << 16 | uint32_t(BYTE(b[at + 2])) << 8 | BYTE(b[at + 3]);
}

// Calls f(type, start of data, length) for each chunk after the signature;
// false when the layout breaks.
template <class F>
bool ForEachChunk(const std::string& b, F f) {
    size_t at = 8;
    for (uint32_t length; at + 12 <= b.size() && (length = Be32(b, at)) <= b.size() - at - 12; at += length + 12)
        f(b.substr(at + 4, 4), at + 8, size_t(length));
    return at == b.size();
}

// libpng's simplified reader, given the file without its ancillary chunks
// (no gamma, colour space or transparency to apply).
Decoded OraclePng(const std::string& bytes, uint32_t format) {
    Decoded d;
    std::string critical = bytes.substr(0, 8);
    bool whole = ForEachChunk(bytes, [&](const std::string& type, size_t data, size_t length) {
        if (type[0] >= 'A' && type[0] <= 'Z') critical += bytes.substr(data - 8, length + 12);
    });
    const std::string& in = whole ? critical : bytes;  // a broken layout is libpng's to judge
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&image, in.data(), in.size())) {
        image.format = format;
        d.samples.resize(PNG_IMAGE_SIZE(image));
        d.ok = png_image_finish_read(&image, nullptr, d.samples.data(), 0, nullptr);
    }
    png_image_free(&image);
    return d;
}

// Every pixel of the bitmap against the independent decode of a file that
// libpng reads: grey samples scaled to 8 bits, palette indices through the
// file's own palette (IHDR is always the first chunk).
void ExpectSamePicture(HDIB h, const std::string& bytes) {
    const uint32_t width = Be32(bytes, 16), depth = BYTE(bytes[24]);
    const size_t plte = bytes.find("PLTE");
    const bool palette = bytes[25] == 3;
    ASSERT_EQ(DibWidth(h), LONG(width));
    ASSERT_EQ(DibHeight(h), LONG(Be32(bytes, 20)));
    ASSERT_EQ(DibBitCount(h), depth);
    ASSERT_EQ(DibNumColors(h), 1u << depth);
    Decoded d = OraclePng(bytes, palette ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY);
    ASSERT_TRUE(d.ok);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < LONG(width); ++x) {
            const DWORD v = StorePixel(h, x, y);
            const size_t at = size_t(y) * width + x;
            if (palette) {
                ASSERT_LT(v * 3, Be32(bytes, plte - 4));
                ASSERT_EQ(bytes.substr(plte + 4 + v * 3, 3), std::string(d.samples.begin() + at * 3, d.samples.begin() + at * 3 + 3))
                    << "index " << v << " at (" << x << "," << y << ")";
            } else {
                ASSERT_EQ(v * 255 / ((1u << depth) - 1), d.samples[at]) << "at (" << x << "," << y << ")";
            }
        }
}

}  // namespace

void filestest::FixPngChecksums(std::string& b) {
    ForEachChunk(b, [&](const std::string&, size_t data, size_t length) {
        uint32_t crc = uint32_t(crc32(0, reinterpret_cast<const Bytef*>(b.data() + data - 4), uInt(length + 4)));
        for (int i = 0; i < 4; ++i) b[data + length + size_t(i)] = char(crc >> (24 - 8 * i));
    });
}

// A strict grey loader takes the 1, 4 and 8-bit grey and palette files that
// libpng can read, and nothing else.
TEST(Png, SuiteLoadsExactlyOrRefuses) {
    std::vector<std::string> files = FilesIn(TestDataDir() + "/pngsuite", ".png");
    ASSERT_GE(files.size(), 170u);
    std::set<std::string> loaded;
    for (const std::string& path : files) {
        SCOPED_TRACE(BaseName(path));
        std::string bytes = ReadFileBytes(path);
        const int depth = BYTE(bytes[24]), colorType = bytes[25];
        const bool sound = (depth == 1 || depth == 4 || depth == 8) && (colorType == 0 || colorType == 3) &&
                           OraclePng(bytes, PNG_FORMAT_GRAY).ok;
        LeakGuard guard;
        Dib h(tovLoadPNG(W(path).c_str()));
        ASSERT_EQ(h != nullptr, sound);
        if (h) ExpectSamePicture(h, bytes), loaded.insert(BaseName(path));
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
// table is changed here), not interlaced, read back with the grey table.
TEST(Png, RoundTripsGiveEqualBytesAndFilesLibpngAgreesWith) {
    ScratchDir dir;
    LeakGuard guard;
    for (DWORD bits : kDepths)
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            Dib h(MakePatterned(width, 6, bits, 3));
            for (DWORD i = 0; i < (1u << bits); ++i) h.h->pbmiColors[i].rgbRed = BYTE(7 * i + 1);
            ASSERT_EQ(tovSavePNG(h, u"pic"), 0u);
            std::string bytes = ReadFileBytes("pic.png");
            EXPECT_EQ(bytes[25] + bytes[28], 0);  // grey, not interlaced
            ExpectSamePicture(h, bytes);
            Dib back(tovLoadPNG(u"pic.png"));
            ASSERT_NE(back, nullptr);
            EXPECT_EQ(StoreBytes(back), StoreBytes(h));
            EXPECT_EQ(back.h->pbmiColors[1].rgbRed, 255 / ((1 << bits) - 1));
        }
}
