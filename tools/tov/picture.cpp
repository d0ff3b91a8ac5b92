// Reading and writing pictures for the commands, by the file name's
// extension.
#include "commands.h"

#include <algorithm>
#include <cctype>

namespace tov {
namespace {

enum class Kind { Unknown, Bmp };

Kind KindOf(const std::string& path) {
    size_t dot = path.rfind('.');
    size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return Kind::Unknown;
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    if (ext == "bmp") return Kind::Bmp;
    return Kind::Unknown;
}

std::string Unsupported(const std::string& path) {
    return path + ": unknown picture type (use .bmp)";
}

}  // namespace

HDIB LoadPicture(const std::string& path, std::string* error) {
    std::u16string name = Wide(path);
    HDIB hdib = nullptr;
    switch (KindOf(path)) {
    case Kind::Bmp: hdib = tovLoadBMP(name.c_str()); break;
    case Kind::Unknown: *error = Unsupported(path); return nullptr;
    }
    if (!hdib) *error = path + ": cannot be read as a picture";
    return hdib;
}

DWORD SavePicture(HDIB hdib, const std::string& path, DWORD /*quality*/, std::string* error) {
    std::u16string name = Wide(path);
    DWORD result = tovErrorUnknown;
    switch (KindOf(path)) {
    case Kind::Bmp: result = tovSaveBMP(hdib, name.c_str()); break;
    case Kind::Unknown: *error = Unsupported(path); return DibErrorInvalidParm;
    }
    if (result != tovOk) *error = path + ": cannot be written: " + ResultText(result);
    return result;
}

}  // namespace tov
