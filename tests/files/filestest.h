// Helpers of the image-file tests: independent decoders (libpng's simplified
// API, libjpeg's own decompressor) that the files of the library are checked
// against.
#pragma once

#include "allocfail.h"
#include "dibimages.h"
#include "imagefiles.h"

using namespace tovtest;

namespace filestest {

struct Decoded {
    bool ok = false, damaged = false;  // damaged: libjpeg warned the data ran out or is corrupt
    uint32_t width = 0, height = 0;
    int components = 0;
    std::vector<BYTE> samples;  // rows top first, no padding
};
// Recomputes every chunk checksum that the layout still lets one find.
void FixPngChecksums(std::string& bytes);
// libjpeg from memory, grey output.
Decoded OracleJpeg(const std::string& bytes);

}  // namespace filestest
using namespace filestest;
