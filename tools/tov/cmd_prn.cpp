// tov prn IN OUT [--width DOTS] [--margin DOTS]: a picture as a raster file
// for Oneil printers, 1 bit a dot, grey cut at the middle. OUT is written
// under the name given.
#include "commands.h"

namespace {

constexpr long kDefaultPrinterDots = 832;  // a 4-inch head at 203 dots an inch
constexpr long kMaxPrinterDots = 65536;    // the library refuses wider lines
constexpr DWORD kOneilFormat = 0;

int RunPrn(tov::Arguments& args) {
    long width;
    long margin;
    args.IntOption("width", 0, kMaxPrinterDots, kDefaultPrinterDots, &width);
    args.IntOption("margin", 0, kMaxPrinterDots, 0, &margin);
    if (!args.Check("prn", 2)) return 1;
    if (margin > width) return tov::Fail("prn: --margin is wider than --width");
    std::string error;
    const tov::Picture hdib(tov::LoadPicture(args[0], &error));
    if (!hdib) return tov::Fail(error);
    DWORD result = tovSavePRN(hdib, tov::Wide(args[1]).c_str(), kOneilFormat, LONG(width), LONG(margin));
    if (result != tovOk) return tov::Fail(args[1] + ": cannot be written: " + tov::ResultText(result));
    return 0;
}

tov::CommandRegistrar registrar({"prn", "IN OUT [--width DOTS] [--margin DOTS]",
                                 "a printer raster file (Oneil); printer width 832 dots, margin 0",
                                 RunPrn, "prn label.png label.prn --width 832 --margin 16"});

}  // namespace
