// tov sig STROKES OUT [--text T] [--rotate] [--format png|bmp|jpg] [--quality Q] [--pen W]
//
// Turns a stroke file into a signature picture through tovSigSave. The
// stroke file is text:
//
//   # comments and blank lines are ignored
//   120 40                 the signature area: width and height in pixels
//   10,20 11,21 15,25      one stroke a line: the pen's points as x,y
//   30,5                   a stroke of one point is a dot
//
// Coordinates are signed 32-bit integers in the area's pixels, x from the
// left and y from the top; points off the area are clipped.
#include "commands.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

constexpr long kMaxStrokes = 65536;
constexpr long kMaxPoints = 1 << 22;  // all strokes together
constexpr long kMaxSide = 65536;      // pixels of the area's width or height
constexpr long kMinPen = 1;
constexpr long kMaxPen = 64;
constexpr long kDefaultPen = 2;
constexpr long kDefaultQuality = 80;

bool ParseInt(const std::string& text, long min, long max, long* out) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 10);
    if (errno || *end || v < min || v > max) return false;
    *out = v;
    return true;
}

// Reads a stroke file into a record for tovSigSave: width, height, the
// stroke count, then per stroke its point count and points.
bool ReadStrokes(const std::string& path, std::vector<int32_t>* record, std::string* error) {
    std::ifstream in(path);
    if (!in) {
        *error = path + ": cannot be read";
        return false;
    }
    std::string line;
    long lineNo = 0, strokes = 0, points = 0;
    bool haveSize = false;
    record->assign(3, 0);
    while (std::getline(in, line)) {
        ++lineNo;
        std::istringstream words(line);
        std::string word;
        if (!(words >> word) || word[0] == '#') continue;
        const std::string where = path + ":" + std::to_string(lineNo) + ": ";
        if (!haveSize) {
            std::string second, extra;
            long w, h;
            if (!(words >> second) || (words >> extra) || !ParseInt(word, 1, kMaxSide, &w) ||
                !ParseInt(second, 1, kMaxSide, &h)) {
                *error = where + "expected the area's width and height, 1 to " + std::to_string(kMaxSide);
                return false;
            }
            (*record)[0] = int32_t(w);
            (*record)[1] = int32_t(h);
            haveSize = true;
            continue;
        }
        if (++strokes > kMaxStrokes) {
            *error = where + "more than " + std::to_string(kMaxStrokes) + " strokes";
            return false;
        }
        const size_t countAt = record->size();
        record->push_back(0);
        int32_t count = 0;
        do {
            size_t comma = word.find(',');
            long x, y;
            if (comma == std::string::npos || !ParseInt(word.substr(0, comma), INT32_MIN, INT32_MAX, &x) ||
                !ParseInt(word.substr(comma + 1), INT32_MIN, INT32_MAX, &y)) {
                *error = where + "'" + word + "' is not a point x,y";
                return false;
            }
            if (++points > kMaxPoints) {
                *error = where + "more than " + std::to_string(kMaxPoints) + " points";
                return false;
            }
            record->push_back(int32_t(x));
            record->push_back(int32_t(y));
            ++count;
        } while (words >> word);
        (*record)[countAt] = count;
    }
    if (!haveSize) {
        *error = path + ": no signature area (a line with width and height)";
        return false;
    }
    (*record)[2] = int32_t(strokes);
    return true;
}

// The format by name, else by the output's extension, else PNG.
bool FormatOf(const std::string& name, const std::string& out, DWORD* format) {
    std::string f = name;
    if (f.empty()) {
        size_t dot = out.rfind('.');
        f = dot == std::string::npos ? "png" : out.substr(dot + 1);
        for (char& c : f) c = char(std::tolower(static_cast<unsigned char>(c)));
        if (f == "jpeg") f = "jpg";
        if (f != "png" && f != "bmp" && f != "jpg") f = "png";
    }
    if (f == "png") *format = tovFormatPNG;
    else if (f == "bmp") *format = tovFormatBMP;
    else if (f == "jpg") *format = tovFormatJPG;
    else return false;
    return true;
}

int RunSig(tov::Arguments& args) {
    std::string text, formatName;
    args.Option("text", &text);
    const bool rotate = args.Flag("rotate");
    args.Option("format", &formatName);
    long quality = 0, pen = 0;
    const bool optionsOk = args.IntOption("quality", 1, 100, kDefaultQuality, &quality) &&
                           args.IntOption("pen", kMinPen, kMaxPen, kDefaultPen, &pen);
    if (!args.Check("sig", 2) || !optionsOk) return 1;
    DWORD format;
    if (!FormatOf(formatName, args[1], &format))
        return tov::Fail("sig: --format takes png, bmp or jpg, not '" + formatName + "'");
    // The library would add the format's extension to a name that has
    // another one, and write a file nobody asked for.
    const size_t dot = args[1].rfind('.'), slash = args[1].rfind('/');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) {
        std::string ext = args[1].substr(dot + 1);
        for (char& c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
        const char* wanted = format == tovFormatPNG ? "png" : format == tovFormatBMP ? "bmp" : "jpg";
        if (ext != wanted)
            return tov::Fail("sig: " + args[1] + " would be written as " + args[1] + "." + wanted +
                             "; name it ." + wanted + " or choose another --format");
    }

    std::vector<int32_t> record;
    std::string error;
    if (!ReadStrokes(args[0], &record, &error)) return tov::Fail("sig: " + error);
    DWORD result = tovSigSave(tov::Wide(args[1]).c_str(), format, DWORD(quality), record.data(),
                              tov::Wide(text).c_str(), rotate ? TRUE : FALSE, RGB(0, 0, 0), pen);
    if (result != tovOk) return tov::Fail("sig: " + args[1] + ": " + tov::ResultText(result));
    return 0;
}

tov::CommandRegistrar registrar({"sig", "STROKES OUT [--text T] [--rotate] [--format png|bmp|jpg] [--quality Q] [--pen W]",
                                 "a signature picture from a stroke file", RunSig, "sig strokes.txt signature.png --text 'J. Doe'"});

}  // namespace
