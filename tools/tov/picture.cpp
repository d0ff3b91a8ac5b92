// Reading and writing pictures for the commands, by the file name's
// extension.
#include "commands.h"

#include <algorithm>
#include <cctype>

namespace tov {
namespace {

constexpr DWORD kUnknownFormat = 0xFFFFFFFFu;

// The extensions the library's file functions keep as they are: another
// one would get the format's extension added to the name.
DWORD FormatOf(const std::string& path) {
    size_t dot = path.rfind('.');
    size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return kUnknownFormat;
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    if (ext == "bmp") return tovFormatBMP;
    if (ext == "jpg") return tovFormatJPG;
    if (ext == "png") return tovFormatPNG;
    return kUnknownFormat;
}

std::string Unsupported(const std::string& path) {
    return path + ": unknown picture type (use .bmp, .jpg or .png)";
}

}  // namespace

HDIB LoadPicture(const std::string& path, std::string* error) {
    DWORD format = FormatOf(path);
    if (format == kUnknownFormat) {
        *error = Unsupported(path);
        return nullptr;
    }
    HDIB hdib = tovLoad(Wide(path).c_str(), format);
    if (!hdib) *error = path + ": cannot be read as a picture";
    return hdib;
}

DWORD SavePicture(HDIB hdib, const std::string& path, DWORD quality, std::string* error) {
    DWORD format = FormatOf(path);
    if (format == kUnknownFormat) {
        *error = Unsupported(path);
        return DibErrorInvalidParm;
    }
    DWORD result = tovSave(hdib, Wide(path).c_str(), format, quality);
    if (result != tovOk) *error = path + ": cannot be written: " + ResultText(result);
    return result;
}

}  // namespace tov
