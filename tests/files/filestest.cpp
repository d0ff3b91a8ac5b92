// Independent decoders of the image-file tests.
#include "filestest.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <algorithm>

#include <jerror.h>
#include <jpeglib.h>
#include <png.h>
#include <zlib.h>

namespace filestest {

// ---- PNG ----------------------------------------------------------------------

namespace {

uint32_t Be32(const std::string& b, size_t at) {
    return uint32_t(BYTE(b[at])) << 24 | uint32_t(BYTE(b[at + 1])) << 16 | uint32_t(BYTE(b[at + 2])) << 8 |
           uint32_t(BYTE(b[at + 3]));
}

// Calls f(type, start of data, length) for each chunk after the signature;
// false when the layout breaks.
template <class F>
bool ForEachChunk(const std::string& b, F f) {
    size_t at = 8;
    while (at + 12 <= b.size()) {
        uint32_t length = Be32(b, at);
        if (length > b.size() - at - 12) return false;
        f(b.substr(at + 4, 4), at + 8, size_t(length));
        at += size_t(length) + 12;
    }
    return at == b.size();
}

}  // namespace

void FixPngChecksums(std::string& b) {
    ForEachChunk(b, [&](const std::string&, size_t data, size_t length) {
        uint32_t crc = uint32_t(crc32(0, reinterpret_cast<const Bytef*>(b.data() + data - 4), uInt(length + 4)));
        for (int i = 0; i < 4; ++i) b[data + length + size_t(i)] = char(crc >> (24 - 8 * i));
    });
}

PngHeader ParsePng(const std::string& bytes) {
    PngHeader h;
    ForEachChunk(bytes, [&](const std::string& type, size_t data, size_t length) {
        if (type == "IHDR" && length == 13) {
            h.parsed = true;
            h.width = Be32(bytes, data);
            h.height = Be32(bytes, data + 4);
            h.depth = BYTE(bytes[data + 8]);
            h.colorType = BYTE(bytes[data + 9]);
            h.interlace = BYTE(bytes[data + 12]);
        } else if (type == "PLTE") {
            for (size_t i = 0; i + 3 <= length; i += 3)
                h.palette.push_back({BYTE(bytes[data + i]), BYTE(bytes[data + i + 1]), BYTE(bytes[data + i + 2])});
        }
    });
    return h;
}

Decoded OraclePng(const std::string& bytes, uint32_t format) {
    Decoded d;
    // Critical chunks only (their first letter in capitals).
    std::string critical = bytes.substr(0, std::min<size_t>(8, bytes.size()));
    bool whole = ForEachChunk(bytes, [&](const std::string& type, size_t data, size_t length) {
        if (type[0] >= 'A' && type[0] <= 'Z') critical += bytes.substr(data - 8, length + 12);
    });
    const std::string& in = whole ? critical : bytes;  // a broken layout is libpng's to judge
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_memory(&image, in.data(), in.size())) {
        image.format = format;
        d.width = image.width;
        d.height = image.height;
        d.samples.resize(PNG_IMAGE_SIZE(image));
        d.ok = png_image_finish_read(&image, nullptr, d.samples.data(), 0, nullptr);
    }
    if (!d.ok) d.message = image.message;
    png_image_free(&image);
    return d;
}

// ---- JPEG ---------------------------------------------------------------------

namespace {

struct OracleError {
    jpeg_error_mgr pub;
    jmp_buf jump;
    bool damaged;
};

void OracleExit(j_common_ptr cinfo) { longjmp(reinterpret_cast<OracleError*>(cinfo->err)->jump, 1); }

// Damage as libjpeg words it: the data ran out, or "Corrupt JPEG data: ...".
void OracleEmit(j_common_ptr cinfo, int level) {
    if (level >= 0) return;
    char text[JMSG_LENGTH_MAX];
    cinfo->err->format_message(cinfo, text);
    if (cinfo->err->msg_code == JWRN_JPEG_EOF || std::strncmp(text, "Corrupt JPEG data", 17) == 0)
        reinterpret_cast<OracleError*>(cinfo->err)->damaged = true;
}

// Kept out of the function with setjmp, so that the vector's destructor is
// never jumped over.
bool DecodeRows(jpeg_decompress_struct* cinfo, OracleError* err, DecodedJpeg* d) {
    if (setjmp(err->jump)) {
        char text[JMSG_LENGTH_MAX];
        cinfo->err->format_message(reinterpret_cast<j_common_ptr>(cinfo), text);
        d->message = text;
        return false;
    }
    jpeg_read_header(cinfo, TRUE);
    cinfo->out_color_space = JCS_GRAYSCALE;
    d->components = cinfo->num_components;
    jpeg_start_decompress(cinfo);
    d->width = cinfo->output_width;
    d->height = cinfo->output_height;
    d->samples.resize(size_t(d->width) * d->height);
    while (cinfo->output_scanline < cinfo->output_height) {
        JSAMPROW row = d->samples.data() + size_t(cinfo->output_scanline) * d->width;
        jpeg_read_scanlines(cinfo, &row, 1);
    }
    jpeg_finish_decompress(cinfo);
    return true;
}

}  // namespace

DecodedJpeg OracleJpeg(const std::string& bytes) {
    DecodedJpeg d;
    jpeg_decompress_struct cinfo;
    OracleError err;
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = OracleExit;
    err.pub.emit_message = OracleEmit;
    err.damaged = false;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        return d;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(bytes.data()), (unsigned long)bytes.size());
    d.ok = DecodeRows(&cinfo, &err, &d);
    d.damaged = err.damaged;
    jpeg_destroy_decompress(&cinfo);
    return d;
}

void ExpectLogHas(const std::vector<std::string>& want) {
    size_t at = 0;
    for (const std::string& line : LogLines())
        if (at < want.size() && line == want[at]) ++at;
    EXPECT_EQ(at, want.size()) << "missing, in order: " << (at < want.size() ? want[at] : "");
}

}  // namespace filestest
