// tov filter IN OUT OP[=ARGS]...: runs image operations over a picture, in
// the order given, e.g.  tov filter in.bmp out.bmp rank=4 sharpen=9 dither2
// Every operation goes through its export; arguments are checked here first
// so that a typo is reported before the picture is loaded.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.h"

namespace {

constexpr long kMaxKernelEntries = 1L << 20;  // weights accepted on a command line

// One operation: its name, the range of its numbers (for the usage text and
// the checks), how many numbers it takes, and the call.
struct Operation {
    const char* name;
    const char* args;     // shown as name=ARGS; empty for none
    const char* summary;  // what it does, with the ranges
    size_t minCount, maxCount;
    long min, max;  // range of each number, where one range fits all
    DWORD (*run)(HDIB hdib, const std::vector<long>& n, double g);
};

DWORD Brightness(HDIB d, const std::vector<long>& n, double) { return tovBrightness(d, (LONG)n[0]); }
DWORD Contrast(HDIB d, const std::vector<long>& n, double) { return tovContrast(d, (LONG)n[0]); }
DWORD Invert(HDIB d, const std::vector<long>&, double) { return tovInvert(d); }
DWORD Gamma(HDIB d, const std::vector<long>&, double g) { return tovGammaCorrection(d, g); }
DWORD Stretch(HDIB d, const std::vector<long>& n, double) {
    if (n.empty()) return tovHistogramStretch(d);
    return tovHistogramStretchEx(d, (LONG)n[0], (LONG)n[1], (DWORD)n[2]);
}
DWORD Rank(HDIB d, const std::vector<long>& n, double) { return tovRankFilter(d, (DWORD)n[0]); }
DWORD Despeckle(HDIB d, const std::vector<long>& n, double) {
    return tovDespeckle(d, (DWORD)n[0], (DWORD)n[1]);
}
DWORD Kernel(HDIB d, const std::vector<long>& n, double) {
    std::vector<LONG> weights(n.begin() + 4, n.end());
    weights.push_back(0);  // never empty, so the pointer is never null
    return tovConvolutionFilter(d, weights.data(), (LONG)n[0], (LONG)n[1], (LONG)n[2], (LONG)n[3]);
}
DWORD Average(HDIB d, const std::vector<long>&, double) { return tovAverage(d); }
DWORD Sharpen(HDIB d, const std::vector<long>& n, double) { return tovSharpen(d, (LONG)n[0]); }
DWORD Infinity(HDIB d, const std::vector<long>&, double) { return tovInfinityFilter(d); }
DWORD Threshold(HDIB d, const std::vector<long>& n, double) { return tovThreshold(d, (DWORD)n[0]); }
DWORD UpsideDown(HDIB d, const std::vector<long>&, double) { return tovFlipHorizontal(d); }
DWORD Mirror(HDIB d, const std::vector<long>&, double) { return tovFlipVertical(d); }
DWORD Crop(HDIB d, const std::vector<long>& n, double) {
    return tovCrop(d, (DWORD)n[0], (DWORD)n[1], (DWORD)n[2], (DWORD)n[3]);
}
DWORD Scale(HDIB d, const std::vector<long>& n, double) { return tovScale(d, (DWORD)n[0]); }
DWORD Dither2(HDIB d, const std::vector<long>&, double) { return tovDither2Color(d); }
DWORD Dither16(HDIB d, const std::vector<long>&, double) { return tovDither16Color(d); }

const Operation kOperations[] = {
    {"brightness", "N", "adds N to every level, N from -255 to 255", 1, 1, -255, 255, Brightness},
    {"contrast", "N", "stretches (N > 0) or flattens levels, N from -255 to 255", 1, 1, -255, 255,
     Contrast},
    {"invert", "", "turns every level into its opposite", 0, 0, 0, 0, Invert},
    {"gamma", "G", "gamma correction, G from 0.1 to 10.0", 1, 1, 0, 0, Gamma},
    {"stretch", "[=LOW,HIGH,MODE]",
     "histogram stretch; alone: 2% cut at both ends; MODE 0: LOW <= HIGH levels 0-255, "
     "MODE 1: LOW <= HIGH percent 0-100",
     0, 3, 0, 255, Stretch},
    {"rank", "R", "3x3 rank filter, R from 0 (minimum) to 8 (maximum), 4 the median", 1, 1, 0, 8,
     Rank},
    {"despeckle", "T,B", "sets isolated pixels to background B (0-255), T from 0 to 9", 2, 2, 0, 255,
     Despeckle},
    {"kernel", "ROWS,COLS,DIV,BIAS,W1,...",
     "convolution with ROWS x COLS weights (half size below the picture's), DIV not 0", 4,
     4 + (size_t)kMaxKernelEntries, LONG_MIN, LONG_MAX, Kernel},
    {"average", "", "3x3 mean (pictures of 2x2 and more)", 0, 0, 0, 0, Average},
    {"sharpen", "L", "3x3 sharpening, L from 9 (strongest) to 32 (2x2 and more)", 1, 1, 9, 32, Sharpen},
    {"infinity", "", "9x9 detail enhancement (pictures of 7x5 and more)", 0, 0, 0, 0, Infinity},
    {"threshold", "T", "5x5 local-contrast decision, T from 1 to 255; 0: grey high-pass (3x3 and more)", 1, 1, 0,
     255, Threshold},
    {"flip-upside-down", "", "turns the picture upside down", 0, 0, 0, 0, UpsideDown},
    {"mirror", "", "mirrors the picture left to right", 0, 0, 0, 0, Mirror},
    // The library's own names, which say the axis rather than the effect.
    {"fliphorizontal", "", "the same as flip-upside-down", 0, 0, 0, 0, UpsideDown},
    {"flipvertical", "", "the same as mirror", 0, 0, 0, 0, Mirror},
    {"crop", "X,Y,W,H", "cuts out W x H pixels at X,Y; the rectangle must lie inside", 4, 4, 0,
     UINT32_MAX, Crop},
    {"scale", "P", "shrinks to P percent, P from 5 to 100, nearest pixel", 1, 1, 5, 100, Scale},
    {"dither2", "", "error diffusion to levels 0 and 255 (8 bits, 256 colours)", 0, 0, 0, 0, Dither2},
    {"dither16", "", "error diffusion to levels 0, 16 ... 240, 255 (8 bits, 256 colours)", 0, 0, 0, 0, Dither16},
};

std::string UsageText() {
    std::string text = "operations, applied in the order given:\n";
    for (const Operation& op : kOperations) {
        std::string head = op.name;
        if (*op.args) head += std::string(op.args[0] == '[' ? "" : "=") + op.args;
        char line[400];
        std::snprintf(line, sizeof line, "  %-32s %s\n", head.c_str(), op.summary);
        text += line;
    }
    return text;
}

bool ParseNumber(const std::string& text, long* value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno || *end || v < LONG_MIN || v > (long long)UINT32_MAX) return false;
    *value = (long)v;
    return true;
}

struct Step {
    const Operation* op;
    std::vector<long> numbers;
    double gamma = 0;
    std::string word;
};

// Parses "name" or "name=a,b,c"; false with a message.
bool ParseStep(const std::string& word, Step* step, std::string* error) {
    const size_t eq = word.find('=');
    const std::string name = word.substr(0, eq);
    step->word = word;
    step->op = nullptr;
    for (const Operation& op : kOperations)
        if (name == op.name) step->op = &op;
    if (!step->op) {
        *error = "unknown operation '" + name + "'";
        return false;
    }
    const Operation& op = *step->op;
    std::vector<std::string> parts;
    if (eq != std::string::npos) {
        size_t at = eq + 1;
        for (;;) {
            const size_t comma = word.find(',', at);
            parts.push_back(word.substr(at, comma == std::string::npos ? comma : comma - at));
            if (comma == std::string::npos) break;
            at = comma + 1;
        }
    }
    if (op.run == Gamma) {
        char* end = nullptr;
        const double g = parts.size() == 1 ? std::strtod(parts[0].c_str(), &end) : 0;
        if (parts.size() != 1 || parts[0].empty() || *end || !(g >= 0.1 && g <= 10.0)) {
            *error = name + " takes one number from 0.1 to 10.0";
            return false;
        }
        step->gamma = g;
        return true;
    }
    const bool countOk = parts.size() >= op.minCount && parts.size() <= op.maxCount &&
                         !(op.run == Stretch && parts.size() != 0 && parts.size() != 3);
    if (!countOk) {
        *error = std::string(name) + (*op.args ? " takes " + std::string(op.args) : " takes no arguments");
        return false;
    }
    for (const std::string& p : parts) {
        long v;
        if (!ParseNumber(p, &v) || v < op.min || v > op.max) {
            *error = name + ": '" + p + "' is not a number from " + std::to_string(op.min) +
                     " to " + std::to_string(op.max);
            return false;
        }
        step->numbers.push_back(v);
    }
    const std::vector<long>& n = step->numbers;
    if (op.run == Despeckle && n[0] > 9) {
        *error = "despeckle: T goes from 0 to 9";
        return false;
    }
    if (op.run == Stretch && n.size() == 3 &&
        (n[2] > 1 || n[0] > n[1] || (n[2] == 1 && n[1] > 100))) {
        *error = "stretch: MODE is 0 or 1, LOW at most HIGH, HIGH at most 100 percent in mode 1";
        return false;
    }
    if (op.run == Kernel) {
        const long long entries = (long long)n[0] * n[1];
        if (n[0] < 0 || n[1] < 0 || n[0] > INT32_MAX || n[1] > INT32_MAX || n[2] == 0 ||
            n[2] > INT32_MAX || n[3] > INT32_MAX || entries != (long long)n.size() - 4) {
            *error = "kernel: ROWS,COLS,DIV,BIAS then ROWS x COLS weights, DIV not 0";
            return false;
        }
        for (size_t i = 4; i < n.size(); ++i)
            if (n[i] > INT32_MAX) {
                *error = "kernel: weights are signed 32-bit numbers";
                return false;
            }
    }
    return true;
}

int RunFilter(tov::Arguments& args) {
    const size_t count = args.Remaining();
    if (count == 0) {  // the list of operations is the answer
        std::fputs(UsageText().c_str(), stdout);
        return 0;
    }
    if (!args.Check("filter", count < 3 ? 3 : count)) {
        std::fputs(UsageText().c_str(), stderr);
        return 1;
    }
    std::vector<Step> steps(count - 2);
    for (size_t i = 2; i < count; ++i) {
        std::string error;
        if (!ParseStep(args[i], &steps[i - 2], &error)) {
            std::fputs(UsageText().c_str(), stderr);
            return tov::Fail("filter: " + error);
        }
    }
    std::string error;
    HDIB hdib = tov::LoadPicture(args[0], &error);
    if (!hdib) return tov::Fail(error);
    for (const Step& s : steps) {
        const DWORD result = s.op->run(hdib, s.numbers, s.gamma);
        if (result != tovOk) {
            tovUnloadHDIB(hdib);
            return tov::Fail("filter: " + s.word + ": " + tov::ResultText(result));
        }
    }
    const DWORD result = tov::SavePicture(hdib, args[1], 0, &error);
    tovUnloadHDIB(hdib);
    return result == tovOk ? 0 : tov::Fail(error);
}

tov::CommandRegistrar registrar({"filter", "IN OUT OP[=ARGS]...",
                                 "image operations in order (tov filter with no OP lists them)",
                                 RunFilter, "filter scan.png clean.png rank=4 sharpen=12 stretch"});

}  // namespace
