// Reading and writing pictures for the commands. A picture is recognised by
// its content, not its name; what the library's loaders take keeps its
// depth, anything else (colour, 16 bits, CMYK) is read as 8-bit grey. The
// output's name chooses its type (.bmp, .jpg or .jpeg, .png). "-" is
// standard input or output.
#include "commands.h"
#include "decode.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace tov {
namespace {

constexpr DWORD kUnknownFormat = 0xFFFFFFFFu;

std::string Lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

std::string Extension(const std::string& path) {
    size_t dot = path.rfind('.'), slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
    return Lower(path.substr(dot + 1));
}

// The library's picture formats as tov knows them: one row a format.
struct PictureFormat {
    DWORD format;        // tovFormat...
    FileType content;    // what its first bytes say (decode.h)
    const char* name;    // the library's extension
    const char* alias;   // another extension people use, or nullptr
};

const PictureFormat kFormats[] = {
    {tovFormatBMP, FileType::Bmp, "bmp", nullptr},
    {tovFormatJPG, FileType::Jpeg, "jpg", "jpeg"},
    {tovFormatPNG, FileType::Png, "png", nullptr},
};

DWORD FormatOfName(const std::string& path) {
    const std::string ext = Extension(path);
    for (const PictureFormat& f : kFormats)
        if (ext == f.name || (f.alias && ext == f.alias)) return f.format;
    return kUnknownFormat;
}

DWORD FormatOfContent(FileType type) {
    for (const PictureFormat& f : kFormats)
        if (type == f.content) return f.format;
    return kUnknownFormat;
}

const char* ExtensionOf(DWORD format) {
    for (const PictureFormat& f : kFormats)
        if (format == f.format) return f.name;
    return "";
}

// A private folder for files the library reads or writes under a name of
// its liking; removed with what is in it.
struct TempDir {
    std::string path;
    TempDir() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/tov-XXXXXX";
        if (mkdtemp(&pattern[0])) path = pattern;
    }
    ~TempDir() {
        if (path.empty()) return;
        for (const PictureFormat& f : kFormats) unlink(File(f.format).c_str());
        rmdir(path.c_str());
    }
    std::string File(DWORD format) const { return path + "/picture." + ExtensionOf(format); }
};

bool ReadAll(const std::string& path, std::string* bytes, std::string* error) {
    if (path == "-") {
        std::ostringstream in;
        in << std::cin.rdbuf();
        *bytes = in.str();
        return true;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        *error = path + ": " + std::strerror(errno);
        return false;
    }
    bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

bool WriteAll(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    return out.write(bytes.data(), std::streamsize(bytes.size())) && out.flush();
}

// The platform's reason for a failed file call, in words.
std::string Reason(DWORD lastError) {
    switch (lastError) {
    case ERROR_FILE_NOT_FOUND: return "No such file or directory";
    case ERROR_ACCESS_DENIED: return "Permission denied";
    case ERROR_DISK_FULL: return "No space left on device";
    case ERROR_INVALID_NAME: return "File name not valid";
    default: return "";
    }
}

HDIB FromGrey(const GreyPicture& g) {
    HDIB hdib = tovCreateHDIBExt(LONG(g.width), LONG(g.height), 0, 8);
    if (!hdib) return nullptr;
    const size_t stride = (size_t(g.width) + 3) / 4 * 4;
    for (long y = 0; y < g.height; ++y)  // the store is bottom-up
        std::memcpy(tovBitsPtr(hdib) + size_t(g.height - 1 - y) * stride, g.pixels.data() + size_t(y) * size_t(g.width),
                    size_t(g.width));
    return hdib;
}

}  // namespace

HDIB LoadPicture(const std::string& path, std::string* error, bool* converted) {
    if (converted) *converted = false;
    std::string bytes;
    if (!ReadAll(path, &bytes, error)) return nullptr;
    const DWORD format = FormatOfContent(TypeOfContent(bytes));
    if (format == kUnknownFormat) {
        *error = path + ": not a BMP, JPEG or PNG picture";
        return nullptr;
    }
    TempDir dir;
    if (dir.path.empty() || !WriteAll(dir.File(format), bytes)) {
        *error = path + ": no room for a temporary copy: " + std::strerror(errno);
        return nullptr;
    }
    if (HDIB hdib = tovLoad(Wide(dir.File(format)).c_str(), format)) {
        if (tovBitCount(hdib) <= 8) return hdib;
        tovUnloadHDIB(hdib);  // deeper BMPs are read as grey below
    }
    GreyPicture grey;
    std::string why;
    if (!DecodeToGrey(bytes, &grey, &why)) {
        *error = path + ": cannot be read as a picture: " + why;
        return nullptr;
    }
    HDIB hdib = FromGrey(grey);
    if (!hdib) *error = path + ": too large for the memory there is";
    if (hdib && converted) *converted = true;
    return hdib;
}

DWORD SavePicture(HDIB hdib, const std::string& path, DWORD quality, std::string* error) {
    DWORD format = path == "-" ? DWORD(tovFormatPNG) : FormatOfName(path);
    if (format == kUnknownFormat) {
        *error = path + ": unknown picture type (name it .bmp, .jpg, .jpeg or .png)";
        return DibErrorInvalidParm;
    }
    // The library's own names are written in place (and replaced whole);
    // others go through a temporary file of the library's naming.
    const std::string ext = Extension(path);
    if (path != "-" && ext == ExtensionOf(format)) {
        DWORD result = tovSave(hdib, Wide(path).c_str(), format, quality);
        if (result != tovOk) {
            const std::string reason = Reason(GetLastError());
            *error = path + ": cannot be written: " + (reason.empty() ? ResultText(result) : reason);
        }
        return result;
    }
    TempDir dir;
    DWORD result = dir.path.empty() ? DWORD(DibErrorFileCreation)
                                    : tovSave(hdib, Wide(dir.File(format)).c_str(), format, quality);
    std::string bytes;
    std::string ignored;
    if (result == tovOk && ReadAll(dir.File(format), &bytes, &ignored)) {
        if (path == "-") {
            std::cout.write(bytes.data(), std::streamsize(bytes.size()));
            std::cout.flush();
            if (std::cout) return tovOk;
        } else if (WriteAll(path, bytes)) {
            return tovOk;
        }
        *error = path + ": cannot be written: " + std::strerror(errno);
        return DibErrorFileWrite;
    }
    *error = path + ": cannot be written: " + ResultText(result ? result : DWORD(DibErrorFileWrite));
    return result ? result : DWORD(DibErrorFileWrite);
}

}  // namespace tov
