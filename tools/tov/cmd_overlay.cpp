// tov overlay IN OUT [--text T] [--position N] [--height H] [--rop copy|invert]
//
// Stamps a text (the two characters \n start a new line) or, without
// --text, the local date and time on a picture: a white label with black
// text, copied over the picture or combined with it by exclusive or.
#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace {

// The face the library's overlays use, to measure a text as it will stand.
const WCHAR kOverlayFace[] = u"TACOMA";
constexpr LONG kOverlayWeight = 600;

// The size of the label a text takes at a height, as the overlay draws it.
bool MeasureText(const std::u16string& text, long height, RECT* size) {
    *size = RECT{0, 0, 0, 0};
    HDC dc = CreateCompatibleDC(nullptr);
    if (!dc) return false;
    LOGFONTW lf = {};
    lf.lfHeight = LONG(height);
    lf.lfWeight = kOverlayWeight;
    std::copy(std::begin(kOverlayFace), std::end(kOverlayFace), lf.lfFaceName);
    HFONT font = CreateFontIndirectW(&lf);
    bool ok = false;
    if (font) {
        HGDIOBJ old = SelectObject(dc, font);
        ok = DrawTextW(dc, text.c_str(), int(text.size()), size, DT_CALCRECT) != 0;
        SelectObject(dc, old);
        DeleteObject(font);
    }
    DeleteDC(dc);
    return ok;
}

constexpr long kLastPosition = 6;  // 0 top left ... 6 centre
constexpr long kMinHeight = 1;
constexpr long kMaxHeight = 72;
constexpr long kDefaultHeight = 12;
constexpr long kDefaultPosition = 3;  // bottom left

// "\n" in a shell word stands for a line break; "\\" for a backslash.
std::string Unescape(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == 'n' || text[i + 1] == '\\')) {
            out += text[i + 1] == 'n' ? '\n' : '\\';
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

int RunOverlay(tov::Arguments& args) {
    std::string text, rop = "copy";
    const bool hasText = args.Option("text", &text);
    long position = 0, height = 0;
    const bool optionsOk = args.IntOption("position", 0, kLastPosition, kDefaultPosition, &position) &&
                           args.IntOption("height", kMinHeight, kMaxHeight, kDefaultHeight, &height);
    args.Option("rop", &rop);
    if (!args.Check("overlay", 2) || !optionsOk) return 1;
    if (rop != "copy" && rop != "invert") return tov::Fail("overlay: --rop takes copy or invert, not '" + rop + "'");
    if (hasText && text.empty()) return tov::Fail("overlay: --text is empty");

    std::string error;
    const tov::Picture hdib(tov::LoadPicture(args[0], &error));
    if (!hdib) return tov::Fail(error);
    RECT size;
    if (hasText && MeasureText(tov::Wide(Unescape(text)), height, &size) &&
        (size.right - size.left > tovWidth(hdib) || size.bottom - size.top > tovHeight(hdib)))
        std::fprintf(stderr, "tov overlay: warning: the text takes %ldx%ld pixels, more than the picture's %ldx%ld; "
                     "it is cut off (a smaller --height helps)\n", long(size.right - size.left),
                     long(size.bottom - size.top), long(tovWidth(hdib)), long(tovHeight(hdib)));
    const DWORD rasterOp = rop == "copy" ? SRCCOPY : SRCINVERT;
    DWORD result = hasText ? tovOverlayBuffer(hdib, tov::Wide(Unescape(text)).c_str(), DWORD(position), height, rasterOp)
                           : tovOverlayTimeDate(hdib, DWORD(position), height, rasterOp);
    if (result != tovOk) return tov::Fail("overlay: " + tov::ResultText(result));
    result = tov::SavePicture(hdib, args[1], 0, &error);
    return result == tovOk ? 0 : tov::Fail(error);
}

tov::CommandRegistrar registrar({"overlay", "IN OUT [--text T] [--position 0-6] [--height 1-72] [--rop copy|invert]",
                                 "stamps a text, or the date and time, on a picture", RunOverlay, "overlay scan.png stamped.png --text 'Lot 4711' --position 2"});

}  // namespace
