// tov filter IN OUT OP[=ARGS]...: runs image operations over a picture, in
// the order given, e.g.  tov filter in.bmp out.bmp rank=4 sharpen=9 dither2
// Every operation goes through its export; arguments are checked here first
// so that a typo is reported before the picture is loaded.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <tovrel/tovranges.h>

#include "commands.h"

namespace {

// The range of one number, as the library declares it (tovrel/tovranges.h).
struct Range {
    long long min, max;
};

constexpr Range kInt32 = {INT32_MIN, INT32_MAX};
constexpr Range kUnsigned = {0, UINT32_MAX};

// One operation: its name, its numbers and their ranges (for the usage text
// and the checks), and the call.
struct Operation {
    const char* name;
    const char* args;       // shown as name=ARGS; empty for none
    const char* summary;    // what it does; a format taking the values in say
    long long say[3];       // the limits the summary shows
    size_t minCount, maxCount;
    bool allOrNone;         // either no numbers or maxCount of them
    std::vector<Range> ranges;  // of the numbers in order; later ones take the last
    // What the ranges of single numbers cannot say: the complaint, or empty.
    std::string (*rule)(const std::vector<long>& n);
    DWORD (*run)(HDIB hdib, const std::vector<long>& n, double g);
    bool real = false;  // one real number instead of integers (gamma)
};

DWORD Brightness(HDIB d, const std::vector<long>& n, double) { return tovBrightness(d, LONG(n[0])); }
DWORD Contrast(HDIB d, const std::vector<long>& n, double) { return tovContrast(d, LONG(n[0])); }
DWORD Invert(HDIB d, const std::vector<long>&, double) { return tovInvert(d); }
DWORD Gamma(HDIB d, const std::vector<long>&, double g) { return tovGammaCorrection(d, g); }
DWORD Stretch(HDIB d, const std::vector<long>& n, double) {
    if (n.empty()) return tovHistogramStretch(d);
    return tovHistogramStretchEx(d, LONG(n[0]), LONG(n[1]), DWORD(n[2]));
}
std::string StretchRule(const std::vector<long>& n) {
    if (n.empty() || (n[0] <= n[1] && (n[2] == 0 || n[1] <= TOV_STRETCH_PERCENT_MAX))) return {};
    return "stretch: LOW at most HIGH, HIGH at most " + std::to_string(TOV_STRETCH_PERCENT_MAX) +
           " percent in mode 1";
}
DWORD Rank(HDIB d, const std::vector<long>& n, double) { return tovRankFilter(d, DWORD(n[0])); }
DWORD Despeckle(HDIB d, const std::vector<long>& n, double) { return tovDespeckle(d, DWORD(n[0]), DWORD(n[1])); }
DWORD Kernel(HDIB d, const std::vector<long>& n, double) {
    std::vector<LONG> weights(n.begin() + 4, n.end());
    weights.push_back(0);  // never empty, so the pointer is never null
    return tovConvolutionFilter(d, weights.data(), LONG(n[0]), LONG(n[1]), LONG(n[2]), LONG(n[3]));
}
std::string KernelRule(const std::vector<long>& n) {
    const long long entries = static_cast<long long>(n[0]) * n[1];
    if (n[2] != 0 && entries == static_cast<long long>(n.size()) - 4) return {};
    return "kernel: ROWS,COLS,DIV,BIAS then ROWS x COLS weights, DIV not 0";
}
DWORD Average(HDIB d, const std::vector<long>&, double) { return tovAverage(d); }
DWORD Sharpen(HDIB d, const std::vector<long>& n, double) { return tovSharpen(d, LONG(n[0])); }
DWORD Infinity(HDIB d, const std::vector<long>&, double) { return tovInfinityFilter(d); }
DWORD Threshold(HDIB d, const std::vector<long>& n, double) { return tovThreshold(d, DWORD(n[0])); }
DWORD UpsideDown(HDIB d, const std::vector<long>&, double) { return tovFlipHorizontal(d); }
DWORD Mirror(HDIB d, const std::vector<long>&, double) { return tovFlipVertical(d); }
DWORD Crop(HDIB d, const std::vector<long>& n, double) {
    return tovCrop(d, DWORD(n[0]), DWORD(n[1]), DWORD(n[2]), DWORD(n[3]));
}
DWORD Scale(HDIB d, const std::vector<long>& n, double) { return tovScale(d, DWORD(n[0])); }
DWORD Dither2(HDIB d, const std::vector<long>&, double) { return tovDither2Color(d); }
DWORD Dither16(HDIB d, const std::vector<long>&, double) { return tovDither16Color(d); }

const Operation kOperations[] = {
    {"brightness", "N", "adds N to every level, N from %lld to %lld", {TOV_BRIGHTNESS_MIN, TOV_BRIGHTNESS_MAX},
     1, 1, false, {{TOV_BRIGHTNESS_MIN, TOV_BRIGHTNESS_MAX}}, nullptr, Brightness},
    {"contrast", "N", "stretches (N > 0) or flattens levels, N from %lld to %lld",
     {TOV_CONTRAST_MIN, TOV_CONTRAST_MAX}, 1, 1, false, {{TOV_CONTRAST_MIN, TOV_CONTRAST_MAX}}, nullptr, Contrast},
    {"invert", "", "turns every level into its opposite", {}, 0, 0, false, {}, nullptr, Invert},
    {"gamma", "G", "gamma correction, G from 0.1 to 10.0", {}, 1, 1, false, {}, nullptr, Gamma, true},
    {"stretch", "[=LOW,HIGH,MODE]",
     "histogram stretch; alone: %lld%% cut at both ends; MODE 0: LOW <= HIGH levels 0-%lld, "
     "MODE 1: LOW <= HIGH percent 0-%lld",
     {TOV_STRETCH_DEFAULT_PERCENT, TOV_STRETCH_LEVEL_MAX, TOV_STRETCH_PERCENT_MAX}, 0, 3, true,
     {{0, TOV_STRETCH_LEVEL_MAX}, {0, TOV_STRETCH_LEVEL_MAX}, {0, TOV_STRETCH_MODE_MAX}}, StretchRule, Stretch},
    {"rank", "R", "3x3 rank filter, R from 0 (minimum) to %lld (maximum), %lld the median",
     {TOV_RANK_MAX, TOV_RANK_MAX / 2}, 1, 1, false, {{0, TOV_RANK_MAX}}, nullptr, Rank},
    {"despeckle", "T,B", "sets isolated pixels to background B (0-%lld), T from 0 to %lld",
     {TOV_DESPECKLE_BACKGROUND_MAX, TOV_DESPECKLE_THRESHOLD_MAX}, 2, 2, false,
     {{0, TOV_DESPECKLE_THRESHOLD_MAX}, {0, TOV_DESPECKLE_BACKGROUND_MAX}}, nullptr, Despeckle},
    {"kernel", "ROWS,COLS,DIV,BIAS,W1,...",
     "convolution with ROWS x COLS weights (half size below the picture's), DIV not 0", {}, 4,
     4 + size_t(TOV_KERNEL_MAX_ENTRIES), false, {{0, INT32_MAX}, {0, INT32_MAX}, kInt32, kInt32, kInt32},
     KernelRule, Kernel},
    {"average", "", "3x3 mean (pictures of 2x2 and more)", {}, 0, 0, false, {}, nullptr, Average},
    {"sharpen", "L", "3x3 sharpening, L from %lld (strongest) to %lld (2x2 and more)",
     {TOV_SHARPEN_MIN, TOV_SHARPEN_MAX}, 1, 1, false, {{TOV_SHARPEN_MIN, TOV_SHARPEN_MAX}}, nullptr, Sharpen},
    {"infinity", "", "9x9 detail enhancement (pictures of 7x5 and more)", {}, 0, 0, false, {}, nullptr, Infinity},
    {"threshold", "T", "5x5 local-contrast decision, T from 1 to %lld; 0: grey high-pass (3x3 and more)",
     {TOV_THRESHOLD_MAX}, 1, 1, false, {{0, TOV_THRESHOLD_MAX}}, nullptr, Threshold},
    {"flip-upside-down", "", "turns the picture upside down", {}, 0, 0, false, {}, nullptr, UpsideDown},
    {"mirror", "", "mirrors the picture left to right", {}, 0, 0, false, {}, nullptr, Mirror},
    // The library's own names, which say the axis rather than the effect.
    {"fliphorizontal", "", "the same as flip-upside-down", {}, 0, 0, false, {}, nullptr, UpsideDown},
    {"flipvertical", "", "the same as mirror", {}, 0, 0, false, {}, nullptr, Mirror},
    {"crop", "X,Y,W,H", "cuts out W x H pixels at X,Y; the rectangle must lie inside", {}, 4, 4, false,
     {kUnsigned}, nullptr, Crop},
    {"scale", "P", "shrinks to P percent, P from %lld to %lld, nearest pixel", {TOV_SCALE_MIN, TOV_SCALE_MAX}, 1,
     1, false, {{TOV_SCALE_MIN, TOV_SCALE_MAX}}, nullptr, Scale},
    {"dither2", "", "error diffusion to levels 0 and 255 (8 bits, 256 colours)", {}, 0, 0, false, {}, nullptr,
     Dither2},
    {"dither16", "", "error diffusion to levels 0, 16 ... 240, 255 (8 bits, 256 colours)", {}, 0, 0, false, {},
     nullptr, Dither16},
};

std::string UsageText() {
    std::string text = "operations, applied in the order given:\n";
    for (const Operation& op : kOperations) {
        std::string head = op.name;
        if (*op.args) head += std::string(op.args[0] == '[' ? "" : "=") + op.args;
        char summary[300];
        std::snprintf(summary, sizeof summary, op.summary, op.say[0], op.say[1], op.say[2]);
        char line[400];
        std::snprintf(line, sizeof line, "  %-32s %s\n", head.c_str(), summary);
        text += line;
    }
    return text;
}

bool ParseNumber(const std::string& text, long* value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno || *end || v < LONG_MIN || v > static_cast<long long>(UINT32_MAX)) return false;
    *value = static_cast<long>(v);
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
    if (op.real) {
        char* end = nullptr;
        const double g = parts.size() == 1 ? std::strtod(parts[0].c_str(), &end) : 0;
        if (parts.size() != 1 || parts[0].empty() || *end || !(g >= TOV_GAMMA_MIN && g <= TOV_GAMMA_MAX)) {
            char text[100];
            std::snprintf(text, sizeof text, " takes one number from %.1f to %.1f", TOV_GAMMA_MIN, TOV_GAMMA_MAX);
            *error = name + text;
            return false;
        }
        step->gamma = g;
        return true;
    }
    const bool countOk = parts.size() >= op.minCount && parts.size() <= op.maxCount &&
                         !(op.allOrNone && !parts.empty() && parts.size() != op.maxCount);
    if (!countOk) {
        *error = std::string(name) + (*op.args ? " takes " + std::string(op.args) : " takes no arguments");
        return false;
    }
    for (const std::string& p : parts) {
        const Range& range = op.ranges[std::min(step->numbers.size(), op.ranges.size() - 1)];
        long v;
        if (!ParseNumber(p, &v) || v < range.min || v > range.max) {
            *error = name + ": '" + p + "' is not a number from " + std::to_string(range.min) + " to " +
                     std::to_string(range.max);
            return false;
        }
        step->numbers.push_back(v);
    }
    if (op.rule) {
        *error = op.rule(step->numbers);
        if (!error->empty()) return false;
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
    const tov::Picture hdib(tov::LoadPicture(args[0], &error));
    if (!hdib) return tov::Fail(error);
    for (const Step& s : steps) {
        const DWORD result = s.op->run(hdib, s.numbers, s.gamma);
        if (result != tovOk) return tov::Fail("filter: " + s.word + ": " + tov::ResultText(result));
    }
    const DWORD result = tov::SavePicture(hdib, args[1], 0, &error);
    return result == tovOk ? 0 : tov::Fail(error);
}

tov::CommandRegistrar registrar({"filter", "IN OUT OP[=ARGS]...",
                                 "image operations in order (tov filter with no OP lists them)",
                                 RunFilter, "filter scan.png clean.png rank=4 sharpen=12 stretch"});

}  // namespace
