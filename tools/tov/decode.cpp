// Pictures the library's own loaders do not take (colour PNG and JPEG, PNG
// of 2 or 16 bits, BMP of 16, 24 and 32 bits, CMYK JPEG) are read here and
// handed over as 8-bit grey, with the standard luma weights
// (0.299 R + 0.587 G + 0.114 B).
#include "decode.h"

#include <cstdio>
#include <cstring>
#include <csetjmp>
#include <fstream>
#include <iterator>

#include <jpeglib.h>
#include <png.h>

namespace tov {
namespace {

constexpr long kMaxSide = 65536;
constexpr uint64_t kMaxPixels = uint64_t(1) << 28;

uint8_t Luma(unsigned r, unsigned g, unsigned b) { return uint8_t((299 * r + 587 * g + 114 * b + 500) / 1000); }

bool SizeAcceptable(long width, long height) {
    return width >= 1 && height >= 1 && width <= kMaxSide && height <= kMaxSide &&
           uint64_t(width) * uint64_t(height) <= kMaxPixels;
}

uint32_t Le(const std::string& b, size_t at, int bytes) {
    uint32_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = v << 8 | uint8_t(b[at + size_t(i)]);
    return v;
}

// A channel of a bit-field pixel scaled to 0..255.
unsigned Channel(uint32_t pixel, uint32_t mask) {
    if (!mask) return 0;
    int shift = 0;
    while (!((mask >> shift) & 1)) ++shift;
    uint32_t max = mask >> shift, v = (pixel & mask) >> shift;
    return unsigned((v * 255 + max / 2) / max);
}

bool DecodeBmp(const std::string& b, GreyPicture* out, std::string* why) {
    if (b.size() < 54) return *why = "cut short", false;
    const uint32_t offBits = Le(b, 10, 4), headerSize = Le(b, 14, 4);
    const int32_t width = int32_t(Le(b, 18, 4)), rawHeight = int32_t(Le(b, 22, 4));
    const uint32_t bits = Le(b, 28, 2), compression = Le(b, 30, 4);
    const long height = rawHeight < 0 ? -long(rawHeight) : long(rawHeight);
    if (headerSize < 40 || !SizeAcceptable(width, height)) return *why = "unsupported header or size", false;
    if (compression != 0 && !(compression == 3 && (bits == 16 || bits == 32)))
        return *why = "compressed BMP (RLE) is not read", false;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32)
        return *why = "unsupported bit count", false;
    uint32_t masks[3] = {0x7C00, 0x03E0, 0x001F};  // 5-5-5 by default
    if (bits == 32) masks[0] = 0xFF0000, masks[1] = 0xFF00, masks[2] = 0xFF;
    if (compression == 3) {
        size_t at = headerSize == 40 ? 54 : 14 + 40;  // after the header, or inside a V4/V5 one
        if (b.size() < at + 12) return *why = "cut short", false;
        for (int i = 0; i < 3; ++i) masks[i] = Le(b, at + size_t(4 * i), 4);
    }
    const uint64_t stride = (uint64_t(width) * bits + 31) / 32 * 4;
    if (offBits > b.size() || stride * uint64_t(height) > b.size() - offBits) return *why = "cut short", false;
    std::vector<uint8_t> palette(256, 0);
    if (bits <= 8) {
        const uint32_t used = Le(b, 46, 4) ? Le(b, 46, 4) : (1u << bits);
        const size_t at = 14 + headerSize;
        for (uint32_t i = 0; i < used && i < 256 && at + 4 * i + 3 <= b.size(); ++i)
            palette[i] = Luma(uint8_t(b[at + 4 * i + 2]), uint8_t(b[at + 4 * i + 1]), uint8_t(b[at + 4 * i]));
    }
    out->width = width;
    out->height = height;
    out->pixels.assign(size_t(width) * size_t(height), 0);
    for (long y = 0; y < height; ++y) {
        const long fileRow = rawHeight < 0 ? y : height - 1 - y;
        const size_t row = offBits + size_t(stride) * size_t(fileRow);
        uint8_t* to = out->pixels.data() + size_t(y) * size_t(width);
        for (long x = 0; x < width; ++x) {
            if (bits <= 8) {
                const size_t bit = size_t(x) * bits;
                const unsigned v = (uint8_t(b[row + bit / 8]) >> (8 - bits - bit % 8)) & ((1u << bits) - 1);
                to[x] = palette[v];
            } else if (bits == 24) {
                const size_t at = row + size_t(x) * 3;
                to[x] = Luma(uint8_t(b[at + 2]), uint8_t(b[at + 1]), uint8_t(b[at]));
            } else {
                const uint32_t p = Le(b, row + size_t(x) * (bits / 8), int(bits / 8));
                to[x] = Luma(Channel(p, masks[0]), Channel(p, masks[1]), Channel(p, masks[2]));
            }
        }
    }
    return true;
}

bool DecodePng(const std::string& b, GreyPicture* out, std::string* why) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_memory(&image, b.data(), b.size())) return *why = image.message, false;
    if (!SizeAcceptable(long(image.width), long(image.height))) {
        png_image_free(&image);
        return *why = "too large", false;
    }
    // RGB on white, then the luma here: libpng's own grey is linear-light.
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(size_t(image.width) * image.height * 3);
    png_color white = {255, 255, 255};
    if (!png_image_finish_read(&image, &white, rgb.data(), 0, nullptr)) return *why = image.message, false;
    out->width = long(image.width);
    out->height = long(image.height);
    out->pixels.resize(size_t(image.width) * image.height);
    for (size_t i = 0; i < out->pixels.size(); ++i) out->pixels[i] = Luma(rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]);
    return true;
}

struct JpegError {
    jpeg_error_mgr pub;
    jmp_buf jump;
};

void JpegExit(j_common_ptr cinfo) { longjmp(reinterpret_cast<JpegError*>(cinfo->err)->jump, 1); }

// Kept apart from the function with setjmp, so no destructor is jumped over.
bool JpegRows(jpeg_decompress_struct* cinfo, JpegError* err, GreyPicture* out, std::vector<uint8_t>* row) {
    if (setjmp(err->jump)) return false;
    jpeg_read_header(cinfo, TRUE);
    const bool cmyk = cinfo->jpeg_color_space == JCS_CMYK || cinfo->jpeg_color_space == JCS_YCCK;
    cinfo->out_color_space = cmyk ? JCS_CMYK : JCS_GRAYSCALE;  // the luma of YCbCr is its Y
    jpeg_start_decompress(cinfo);
    if (!SizeAcceptable(long(cinfo->output_width), long(cinfo->output_height))) return false;
    out->width = long(cinfo->output_width);
    out->height = long(cinfo->output_height);
    out->pixels.resize(size_t(out->width) * size_t(out->height));
    row->resize(size_t(out->width) * size_t(cinfo->output_components));
    while (cinfo->output_scanline < cinfo->output_height) {
        uint8_t* to = out->pixels.data() + size_t(cinfo->output_scanline) * size_t(out->width);
        JSAMPROW r = row->data();
        jpeg_read_scanlines(cinfo, &r, 1);
        for (long x = 0; x < out->width; ++x) {
            if (!cmyk) {
                to[x] = (*row)[size_t(x)];
                continue;
            }
            // Adobe's CMYK is stored inverted: the values are already 255 - ink.
            const uint8_t* p = row->data() + 4 * size_t(x);
            to[x] = Luma(p[0] * p[3] / 255u, p[1] * p[3] / 255u, p[2] * p[3] / 255u);
        }
    }
    jpeg_finish_decompress(cinfo);
    return true;
}

bool DecodeJpeg(const std::string& b, GreyPicture* out, std::string* why) {
    jpeg_decompress_struct cinfo;
    JpegError err;
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = JpegExit;
    err.pub.output_message = [](j_common_ptr) {};
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(b.data()), static_cast<unsigned long>(b.size()));
    std::vector<uint8_t> row;
    bool ok = JpegRows(&cinfo, &err, out, &row);
    if (!ok) {
        char text[JMSG_LENGTH_MAX];
        err.pub.format_message(reinterpret_cast<j_common_ptr>(&cinfo), text);
        *why = text;
    }
    jpeg_destroy_decompress(&cinfo);
    return ok;
}

}  // namespace

FileType TypeOfContent(const std::string& bytes) {
    if (bytes.compare(0, 2, "BM") == 0) return FileType::Bmp;
    if (bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") == 0) return FileType::Png;
    if (bytes.compare(0, 3, "\xFF\xD8\xFF") == 0) return FileType::Jpeg;
    return FileType::Unknown;
}

bool DecodeToGrey(const std::string& bytes, GreyPicture* out, std::string* why) {
    switch (TypeOfContent(bytes)) {
    case FileType::Bmp: return DecodeBmp(bytes, out, why);
    case FileType::Png: return DecodePng(bytes, out, why);
    case FileType::Jpeg: return DecodeJpeg(bytes, out, why);
    default: return *why = "not a BMP, JPEG or PNG picture", false;
    }
}

}  // namespace tov
