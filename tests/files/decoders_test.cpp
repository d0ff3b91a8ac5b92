// PNG and JPEG files against independent decoders: the public PNG suite
// against libpng's simplified reader, the public JPEG samples against
// libjpeg's own decompressor, and saved files of every depth and odd widths
// read back by both, and JPEG's quality.
#include "filestest.h"

#include <png.h>
#include <zlib.h>
#include <jerror.h>
#include <jpeglib.h>

#include <csetjmp>
#include <cstring>

namespace {

struct Decoded {
    bool ok = false, damaged = false;  // damaged: libjpeg warned the data ran out or is corrupt
    uint32_t width = 0, height = 0;
    int components = 0;
    std::vector<BYTE> samples;  // rows top first, no padding
};

// Calls f(type, start of data, length) for each chunk after the signature;
// false when the layout breaks.
template <class F>
bool ForEachChunk(const std::string& b, F f) {
    size_t at = 8;
    for (uint32_t length; at + 12 <= b.size() && (length = GetBE(b, at)) <= b.size() - at - 12; at += length + 12)
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
        d.width = image.width, d.height = image.height;
        d.samples.resize(PNG_IMAGE_SIZE(image));
        d.ok = png_image_finish_read(&image, nullptr, d.samples.data(), 0, nullptr);
    }
    png_image_free(&image);
    return d;
}

// Every pixel of the bitmap against an independent decode: grey samples
// scaled to 8 bits, or indices through a palette of RGB triples.
void ExpectPicture(HDIB h, const Decoded& d, DWORD depth, const std::string& palette = "") {
    ASSERT_TRUE(d.ok);
    ASSERT_EQ(DibWidth(h), LONG(d.width));
    ASSERT_EQ(DibHeight(h), LONG(d.height));
    ASSERT_EQ(DibBitCount(h), depth);
    ASSERT_EQ(DibNumColors(h), 1u << depth);
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) {
            const DWORD v = StorePixel(h, x, y);
            const size_t at = size_t(y) * d.width + x;
            if (palette.empty())
                ASSERT_EQ(v * 255 / ((1u << depth) - 1), d.samples[at]) << "at (" << x << "," << y << ")";
            else
                ASSERT_EQ(palette.substr(v * 3, 3), std::string(d.samples.begin() + at * 3, d.samples.begin() + at * 3 + 3))
                    << "index " << v << " at (" << x << "," << y << ")";
        }
}

// A PNG file that libpng reads, against the bitmap (IHDR is always the first chunk).
void ExpectSamePicture(HDIB h, const std::string& bytes) {
    const size_t plte = bytes.find("PLTE");
    const std::string palette = bytes[25] == 3 ? bytes.substr(plte + 4, GetBE(bytes, plte - 4)) : "";
    ExpectPicture(h, OraclePng(bytes, palette.empty() ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB), BYTE(bytes[24]), palette);
}

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

// libjpeg's own decompressor from memory, grey output.
Decoded OracleJpeg(const std::string& bytes) {
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

// A smooth picture, as a camera would give it: JPEG keeps it closely.
HDIB MakeSmooth(LONG width, LONG height) {
    HDIB h = tovCreateHDIBExt(width, height, 0, 8);
    for (LONG y = 0; y < height; ++y)
        for (LONG x = 0; x < width; ++x) StoreSetPixel(h, x, y, DWORD((x * 3 + y * 2) % 256));
    return h;
}

}  // namespace

void filestest::FixPngChecksums(std::string& b) {
    ForEachChunk(b, [&](const std::string&, size_t data, size_t length) {
        uint32_t crc = uint32_t(crc32(0, reinterpret_cast<const Bytef*>(b.data() + data - 4), uInt(length + 4)));
        for (int i = 0; i < 4; ++i) b[data + length + size_t(i)] = char(crc >> (24 - 8 * i));
    });
}

// A strict grey loader takes the 1, 4 and 8-bit grey and palette PNG files
// that libpng can read, and nothing else; JPEG files of every coding load as
// libjpeg's grey (colour as luminance), and where libjpeg fails or runs out
// (12 bits, CMYK, a cut file) do not. The names keep the expectations
// honest: both PNG interlace methods and kinds, odd sizes; other depths,
// colour, alpha and damage refused.
TEST(Decoders, PublicSamplesLoadExactlyOrAreRefused) {
    const struct { const char* dir; size_t loads; } suites[] = {{"/pngsuite", 77}, {"/jpeg", 6}};
    for (const auto& suite : suites) {
        const bool png = suite.dir[1] == 'p';
        size_t loaded = 0;
        for (const std::string& path : FilesIn(TestDataDir() + suite.dir, png ? ".png" : ".jpg")) {
            SCOPED_TRACE(BaseName(path));
            const std::string bytes = ReadFileBytes(path);
            const int depth = png ? BYTE(bytes[24]) : 0, colorType = png ? bytes[25] : 0;
            const Decoded jpeg = png ? Decoded() : OracleJpeg(bytes);
            const bool sound = png ? (depth == 1 || depth == 4 || depth == 8) && (colorType == 0 || colorType == 3) &&
                                         OraclePng(bytes, PNG_FORMAT_GRAY).ok
                                   : jpeg.ok && !jpeg.damaged;
            LeakGuard guard;
            Dib h((png ? tovLoadPNG : tovLoadJPG)(W(path).c_str()));
            ASSERT_EQ(h != nullptr, sound);
            if (h && png) ExpectSamePicture(h, bytes);
            if (h && !png) ExpectPicture(h, jpeg, 8);
            loaded += h != nullptr;
        }
        EXPECT_EQ(loaded, suite.loads);
    }
}

// Other depths go to JPEG as their 8-bit conversion, 8 bits as a baseline
// grey file close to the bitmap at quality 100; libjpeg reads it to the
// picture the loader gives, and the bitmap keeps its depth and pixels. PNG
// is written as grey samples whatever the colour table says (the red of the
// table is changed here), not interlaced, read back with the grey table.
TEST(Decoders, SavedFilesReadBackByLibjpegAndLibpng) {
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
            ExpectPicture(Dib(tovLoadJPG(u"pic.jpg")), d, 8);
            ASSERT_EQ(DibConvert(eight, 8), 0u);
            ASSERT_EQ(tovSaveJPG(eight, u"eight", 100), 0u);
            EXPECT_EQ(ReadFileBytes("eight.jpg"), bytes);
            for (LONG y = 0; y < 9 && bits == 8; ++y)
                for (LONG x = 0; x < width; ++x)
                    EXPECT_LE(std::abs(int(StorePixel(eight, x, y)) - int(d.samples[y * width + x])), 2);
            for (DWORD i = 0; i < (1u << bits); ++i) h.h->pbmiColors[i].rgbRed = BYTE(7 * i + 1);
            ASSERT_EQ(tovSavePNG(h, u"pic"), 0u);
            bytes = ReadFileBytes("pic.png");
            EXPECT_EQ(bytes[25] + bytes[28], 0);  // grey, not interlaced
            ExpectSamePicture(h, bytes);
            Dib back(tovLoadPNG(u"pic.png"));
            ASSERT_NE(back, nullptr);
            EXPECT_EQ(StoreBytes(back), StoreBytes(h));
            EXPECT_EQ(back.h->pbmiColors[1].rgbRed, 255 / ((1 << bits) - 1));
        }
    // Quality runs from 0 (101 is refused in the format-switch test), and tells.
    Dib smooth(MakeSmooth(40, 30));
    ASSERT_EQ(tovSaveJPG(smooth, u"low", 0) + tovSaveJPG(smooth, u"high", 100), 0u);
    EXPECT_LT(ReadFileBytes("low.jpg").size(), ReadFileBytes("high.jpg").size());
}
