// Frames from picture files: binary PGM (P5, up to 16 bits) and PNG of
// any kind (as grey, through libpng's simplified reader), scaled to the
// frame by nearest neighbour, so real captures can be replayed through the
// whole library.
#include "engine.h"

#include <png.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace qdx {

namespace fs = std::filesystem;

namespace {

constexpr long kMaxSide = 16384;  // pictures beyond this are refused

bool IsPicture(const fs::path& p) {
    std::string ext = p.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext == ".pgm" || ext == ".png";
}

// The next number of a PGM header, past blanks and comments; -1 if none.
long HeaderNumber(std::istream& in) {
    int c = in.get();
    while (c != EOF && (std::isspace(c) || c == '#')) {
        if (c == '#')
            while (c != EOF && c != '\n') c = in.get();
        c = in.get();
    }
    long v = -1;
    while (c != EOF && std::isdigit(c) && v < 1000000) {
        v = (v < 0 ? 0 : v * 10) + (c - '0');
        c = in.get();
    }
    return v;
}

}  // namespace

bool ReadPgm(const std::string& path, Picture* out) {
    std::ifstream in(path, std::ios::binary);
    char magic[2] = {};
    if (!in.read(magic, 2) || magic[0] != 'P' || magic[1] != '5') return false;
    long width = HeaderNumber(in), height = HeaderNumber(in), maxval = HeaderNumber(in);
    if (width < 1 || height < 1 || width > kMaxSide || height > kMaxSide || maxval < 1 || maxval > 65535) return false;
    const size_t bytes = maxval > 255 ? 2 : 1, count = size_t(width) * size_t(height);
    std::vector<uint8_t> raw(count * bytes);
    if (!in.read(reinterpret_cast<char*>(raw.data()), std::streamsize(raw.size()))) return false;
    out->width = int(width);
    out->height = int(height);
    out->pixels.resize(count);
    for (size_t i = 0; i < count; ++i) {
        long v = bytes == 2 ? (raw[2 * i] << 8 | raw[2 * i + 1]) : raw[i];
        out->pixels[i] = uint8_t((v * 255 + maxval / 2) / maxval);
    }
    return true;
}

bool ReadPng(const std::string& path, Picture* out) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    if (image.width < 1 || image.height < 1 || image.width > kMaxSide || image.height > kMaxSide) {
        png_image_free(&image);
        return false;
    }
    image.format = PNG_FORMAT_GRAY;
    out->width = int(image.width);
    out->height = int(image.height);
    out->pixels.assign(size_t(image.width) * image.height, 0);
    if (!png_image_finish_read(&image, nullptr, out->pixels.data(), 0, nullptr)) {
        png_image_free(&image);
        return false;
    }
    return true;
}

bool FileSource::Open(const std::string& source) {
    files_.clear();
    std::error_code ec;
    if (fs::is_directory(source, ec)) {
        for (const auto& entry : fs::directory_iterator(source, ec))
            if (entry.is_regular_file(ec) && IsPicture(entry.path())) files_.push_back(entry.path().string());
        std::sort(files_.begin(), files_.end());
    } else if (IsPicture(source)) {
        files_.push_back(source);
    } else {
        std::ifstream list(source);
        for (std::string line; std::getline(list, line);)
            if (!line.empty() && line[0] != '#') files_.push_back(line);
    }
    return !files_.empty();
}

bool FileSource::Draw(uint32_t index, uint8_t* out, int width, int height) {
    if (files_.empty()) return false;
    const std::string& path = files_[index % files_.size()];
    Picture p;
    bool png = fs::path(path).extension() == ".png" || fs::path(path).extension() == ".PNG";
    if (!(png ? ReadPng(path, &p) : ReadPgm(path, &p))) return false;
    for (int y = 0; y < height; ++y) {
        const uint8_t* from = p.pixels.data() + size_t(int64_t(y) * p.height / height) * size_t(p.width);
        uint8_t* row = out + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x) row[x] = from[int64_t(x) * p.width / width];
    }
    return true;
}

}  // namespace qdx
