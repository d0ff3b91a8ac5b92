// JPEG files: the public JPEG samples against libjpeg's own decompressor,
// saved files read back by libjpeg, the temporary of other depths and short
// tables, quality.
#include "filestest.h"

#include <csetjmp>
#include <cstring>
#include <set>

#include <jerror.h>
#include <jpeglib.h>

namespace {

struct OracleError : jpeg_error_mgr {
    jmp_buf jump;
    bool damaged = false;
};

// Kept out of the function with setjmp, so that no destructor is jumped over.
bool DecodeRows(jpeg_decompress_struct* cinfo, OracleError* err, Decoded* d) {
    if (setjmp(err->jump)) return false;
    jpeg_read_header(cinfo, TRUE);
    cinfo->out_color_space = JCS_GRAYSCALE;
    d->components = cinfo->num_components;
    jpeg_start_decompress(cinfo);
    d->width = cinfo->output_width;
    d->height = cinfo->output_height;
    d->samples.resize(size_t(d->width) * d->height);
    for (JSAMPROW row = d->samples.data(); cinfo->output_scanline < d->height; row += d->width) jpeg_read_scanlines(cinfo, &row, 1);
    jpeg_finish_decompress(cinfo);
    return true;
}

void ExpectPixels(HDIB h, const Decoded& d) {
    ASSERT_EQ(DibWidth(h), LONG(d.width));
    ASSERT_EQ(DibHeight(h), LONG(d.height));
    ASSERT_EQ(DibBitCount(h) + DibNumColors(h), 264u);  // 8 bits, 256 colours
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

Decoded filestest::OracleJpeg(const std::string& bytes) {
    Decoded d;
    jpeg_decompress_struct cinfo;
    OracleError err;
    cinfo.err = jpeg_std_error(&err);
    err.error_exit = [](j_common_ptr c) { longjmp(static_cast<OracleError*>(c->err)->jump, 1); };
    // Damage as libjpeg words it: the data ran out, or "Corrupt JPEG data: ...".
    err.emit_message = [](j_common_ptr c, int level) {
        char text[JMSG_LENGTH_MAX];
        c->err->format_message(c, text);
        if (level < 0 && (c->err->msg_code == JWRN_JPEG_EOF || std::strncmp(text, "Corrupt JPEG data", 17) == 0))
            static_cast<OracleError*>(c->err)->damaged = true;
    };
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(bytes.data()), (unsigned long)bytes.size());
    d.ok = DecodeRows(&cinfo, &err, &d);
    d.damaged = err.damaged;
    jpeg_destroy_decompress(&cinfo);
    return d;
}

// Grey and colour files of every coding load (colour as luminance); 12 bits,
// CMYK and a cut file, where libjpeg itself fails or runs out, do not.
TEST(Jpeg, SamplesLoadAsLibjpegsGreyOrRefuse) {
    std::vector<std::string> files = FilesIn(TestDataDir() + "/jpeg", ".jpg");
    ASSERT_GE(files.size(), 9u);
    std::set<std::string> loaded;
    for (const std::string& path : files) {
        SCOPED_TRACE(BaseName(path));
        Decoded oracle = OracleJpeg(ReadFileBytes(path));
        LeakGuard guard;
        Dib h(tovLoadJPG(W(path).c_str()));
        ASSERT_EQ(h != nullptr, oracle.ok && !oracle.damaged);
        if (h) ExpectPixels(h, oracle), loaded.insert(BaseName(path));
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
    for (DWORD bits : kDepths)
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            Dib h(bits == 8 ? MakeSmooth(width, 9) : MakePatterned(width, 9, bits, 5)), eight(DibCreateCopy(h));
            std::vector<BYTE> before = StoreBytes(h);
            ASSERT_EQ(tovSaveJPG(h, u"pic", 100), 0u);
            EXPECT_EQ(DibBitCount(h), bits);
            EXPECT_EQ(StoreBytes(h), before);
            std::string bytes = ReadFileBytes("pic.jpg");
            Decoded d = OracleJpeg(bytes);
            ASSERT_TRUE(d.ok && !d.damaged && d.components == 1);
            ExpectPixels(Dib(tovLoadJPG(u"pic.jpg")), d);
            ASSERT_EQ(DibConvert(eight, 8), 0u);
            ASSERT_EQ(tovSaveJPG(eight, u"eight", 100), 0u);
            EXPECT_EQ(ReadFileBytes("eight.jpg"), bytes);
            for (LONG y = 0; y < 9 && bits == 8; ++y)
                for (LONG x = 0; x < width; ++x)
                    EXPECT_LE(std::abs(int(StorePixel(eight, x, y)) - int(d.samples[y * width + x])), 2);
        }
}

// An 8-bit bitmap with a short colour table goes through the temporary; its
// bytes are written as they stand. Quality runs 0 to 100, and tells.
TEST(Jpeg, ShortColourTableAndQuality) {
    ScratchDir dir;
    LeakGuard guard;
    Dib h(MakeSmooth(40, 30));
    std::vector<BYTE> block(40 + 16 * 4, 0);
    auto* info = reinterpret_cast<BITMAPINFO*>(block.data());
    info->bmiHeader = h.h->ds.dsBmih;
    info->bmiHeader.biClrUsed = 16;
    Dib shortTable(DibCreateFromBitmapInfo(info));
    std::vector<BYTE> pixels = StoreBytes(h);
    std::copy(pixels.begin(), pixels.end(), shortTable.h->pBits);
    ASSERT_EQ(tovSaveJPG(h, u"full", 75) + tovSaveJPG(shortTable, u"short", 75), 0u);
    EXPECT_EQ(ReadFileBytes("short.jpg"), ReadFileBytes("full.jpg"));
    EXPECT_EQ(DibNumColors(shortTable), 16u);
    for (DWORD quality : {0u, 1u, 100u, 101u, 0xFFFFFFFFu}) {
        std::remove("qq.jpg");
        EXPECT_EQ(tovSaveJPG(h, u"qq", quality), quality <= 100 ? 0 : DibErrorInvalidParm) << quality;
        EXPECT_EQ(FileExists("qq.jpg"), quality <= 100) << quality;
    }
    ASSERT_EQ(tovSaveJPG(h, u"low", 10), 0u);
    EXPECT_LT(ReadFileBytes("low.jpg").size(), ReadFileBytes("full.jpg").size());
}
