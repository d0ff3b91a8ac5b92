// JPEG files: the public JPEG samples against libjpeg's own decompressor,
// saved files read back by libjpeg, the temporary of other depths and short
// tables, quality, and scans cut short.
#include "filestest.h"

#include <cstdio>
#include <cstdlib>
#include <set>

using namespace filestest;

namespace {

std::string SampleDir() { return TestDataDir() + "/jpeg"; }

void ExpectPixels(HDIB h, const Decoded& d) {
    ASSERT_EQ(DibWidth(h), LONG(d.width));
    ASSERT_EQ(DibHeight(h), LONG(d.height));
    ASSERT_EQ(DibBitCount(h), 8);
    ASSERT_EQ(DibNumColors(h), 256u);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x)
            ASSERT_EQ(StorePixel(h, x, y), d.samples[size_t(y) * d.width + x]) << "at (" << x << "," << y << ")";
}

// A smooth picture, as a camera would give it: JPEG keeps it closely.
HDIB MakeSmooth(LONG width, LONG height) {
    HDIB h = tovCreateHDIBExt(width, height, 0, 8);
    for (LONG y = 0; y < height; ++y)
        for (LONG x = 0; x < width; ++x) StoreSetPixel(h, x, y, DWORD((x * 3 + y * 2) % 256));
    return h;
}

}  // namespace

// Grey and colour files of every coding load (colour as luminance); 12 bits,
// CMYK and a cut file, where libjpeg itself fails or runs out, do not.
TEST(Jpeg, SamplesLoadAsLibjpegsGreyOrRefuse) {
    std::vector<std::string> files = FilesIn(SampleDir(), ".jpg");
    ASSERT_GE(files.size(), 9u);
    std::set<std::string> loaded;
    for (const std::string& path : files) {
        SCOPED_TRACE(BaseName(path));
        DecodedJpeg oracle = OracleJpeg(ReadFileBytes(path));
        LeakGuard guard;
        Dib h(tovLoadJPG(W(path).c_str()));
        ASSERT_EQ(h != nullptr, oracle.ok && !oracle.damaged);
        if (h) {
            ExpectPixels(h, oracle);
            loaded.insert(BaseName(path));
        }
    }
    for (const char* name : {"hopper_gray.jpg", "hopper.jpg", "testimgint.jpg", "testimgari.jpg", "skater-progressive.jpg"})
        EXPECT_TRUE(loaded.count(name)) << name;
    for (const char* name : {"monkey12.jpg", "pil_sample_cmyk.jpg", "truncated_jpeg.jpg"})
        EXPECT_FALSE(loaded.count(name)) << name;
}

// A baseline grey file that libjpeg reads to the picture the loader gives,
// close to the bitmap at quality 100; other depths are written as their
// 8-bit conversion, and the caller's bitmap keeps its depth and pixels.
TEST(Jpeg, SavedFilesReadBackByLibjpeg) {
    ScratchDir dir;
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            Dib h(bits == 8 ? MakeSmooth(width, 9) : MakePatterned(width, 9, bits, 5));
            std::vector<BYTE> before = StoreBytes(h);
            ASSERT_EQ(tovSaveJPG(h, u"pic", 100), 0u);
            EXPECT_EQ(DibBitCount(h), bits);
            EXPECT_EQ(StoreBytes(h), before);
            std::string bytes = ReadFileBytes("pic.jpg");
            DecodedJpeg d = OracleJpeg(bytes);
            ASSERT_TRUE(d.ok && !d.damaged) << d.message;
            EXPECT_EQ(d.components, 1);
            Dib back(tovLoadJPG(u"pic.jpg"));
            ASSERT_NE(back, nullptr);
            ExpectPixels(back, d);
            Dib eight(DibCreateCopy(h));
            ASSERT_EQ(DibConvert(eight, 8), 0u);
            if (bits == 8) {
                for (LONG y = 0; y < 9; ++y)
                    for (LONG x = 0; x < width; ++x)
                        EXPECT_LE(std::abs(int(StorePixel(eight, x, y)) - int(d.samples[y * width + x])), 2);
            } else {
                ASSERT_EQ(tovSaveJPG(eight, u"eight", 100), 0u);
                EXPECT_EQ(ReadFileBytes("eight.jpg"), bytes);
            }
        }
    }
}

// An 8-bit bitmap with a short colour table goes through the temporary; its
// bytes are written as they stand.
TEST(Jpeg, ShortColourTableWritesTheSamePicture) {
    ScratchDir dir;
    LeakGuard guard;
    Dib h(MakeSmooth(40, 30));
    std::vector<BYTE> block(40 + 16 * 4, 0);
    auto* info = reinterpret_cast<BITMAPINFO*>(block.data());
    info->bmiHeader = h.h->ds.dsBmih;
    info->bmiHeader.biClrUsed = 16;
    Dib shortTable(DibCreateFromBitmapInfo(info));
    ASSERT_NE(shortTable, nullptr);
    std::vector<BYTE> pixels = StoreBytes(h);
    std::copy(pixels.begin(), pixels.end(), shortTable.h->pBits);
    ASSERT_EQ(tovSaveJPG(h, u"full", 75), 0u);
    ASSERT_EQ(tovSaveJPG(shortTable, u"short", 75), 0u);
    EXPECT_EQ(ReadFileBytes("short.jpg"), ReadFileBytes("full.jpg"));
    EXPECT_EQ(DibNumColors(shortTable), 16u);
}

TEST(Jpeg, QualityRange) {
    ScratchDir dir;
    LeakGuard guard;
    Dib h(MakePatterned(64, 48, 8, 1));
    for (DWORD quality : {0u, 1u, 100u, 101u, 0xFFFFFFFFu}) {
        std::remove("qq.jpg");
        DWORD expected = quality <= 100 ? 0 : DibErrorInvalidParm;
        EXPECT_EQ(tovSaveJPG(h, u"qq", quality), expected) << quality;
        EXPECT_EQ(FileExists("qq.jpg"), expected == 0) << quality;
    }
    ASSERT_EQ(tovSaveJPG(h, u"low", 10), 0u);
    ASSERT_EQ(tovSaveJPG(h, u"high", 95), 0u);
    EXPECT_LT(ReadFileBytes("low.jpg").size(), ReadFileBytes("high.jpg").size());
}

// A scan cut short and closed by an end marker is damage, not a picture
// padded with grey.
TEST(Jpeg, ScanCutShortBeforeTheEndMarkerIsRefused) {
    ScratchDir dir;
    const std::string sample = ReadFileBytes(SampleDir() + "/hopper_gray.jpg");
    const size_t sos = sample.find("\xFF\xDA");
    ASSERT_NE(sos, std::string::npos);
    WriteBytes("cut.jpg", sample.substr(0, sos + (sample.size() - sos) / 2) + "\xFF\xD9");
    LeakGuard guard;
    EXPECT_EQ(tovLoadJPG(u"cut.jpg"), nullptr);
}
