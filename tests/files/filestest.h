// Helpers of the image-file tests: independent decoders (libpng's simplified
// API, libjpeg's own decompressor from memory) that the files of the library
// are checked against, and the trace lines a run must contain.
#pragma once

#include <gtest/gtest.h>

#include "dibimages.h"
#include "imagefiles.h"
#include "testsupport.h"
#include "tovce.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace filestest {

using namespace tovtest;

// ---- PNG ----------------------------------------------------------------------
struct PngHeader {
    bool parsed = false;
    uint32_t width = 0, height = 0;
    int depth = 0, colorType = 0, interlace = 0;
    std::vector<std::array<BYTE, 3>> palette;  // from PLTE
};
// IHDR and PLTE, read by hand from the chunk layout.
PngHeader ParsePng(const std::string& bytes);
// Recomputes every chunk checksum that the layout still lets one find.
void FixPngChecksums(std::string& bytes);

struct Decoded {
    bool ok = false;
    uint32_t width = 0, height = 0;
    std::vector<BYTE> samples;  // rows top first, no padding
    std::string message;
};
// libpng's simplified reader, given the file without its ancillary chunks
// (no gamma, colour space or transparency to apply), into PNG_FORMAT_GRAY
// or PNG_FORMAT_RGB.
Decoded OraclePng(const std::string& bytes, uint32_t format);

// ---- JPEG ---------------------------------------------------------------------
struct DecodedJpeg : Decoded {
    bool damaged = false;  // libjpeg warned that the data ran out or is corrupt
    int components = 0;
};
// libjpeg from memory, grey output.
DecodedJpeg OracleJpeg(const std::string& bytes);

// Every line of want appears in the log, in that order.
void ExpectLogHas(const std::vector<std::string>& want);

inline std::string Handle(const void* p) { return std::to_string(reinterpret_cast<intptr_t>(p)); }

}  // namespace filestest
