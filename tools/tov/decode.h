// Pictures recognised by their content, and read as 8-bit grey when the
// library's own loaders do not take them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tov {

enum class FileType { Unknown, Bmp, Png, Jpeg };

FileType TypeOfContent(const std::string& bytes);

struct GreyPicture {
    long width = 0, height = 0;
    std::vector<uint8_t> pixels;  // rows top first, no padding
};

// False, with the reason, for a picture that cannot be read at all.
bool DecodeToGrey(const std::string& bytes, GreyPicture* out, std::string* why);

}  // namespace tov
