// Helpers of the image-file tests.
#pragma once

#include "allocfail.h"
#include "dibimages.h"
#include "imagefiles.h"

using namespace tovtest;

namespace filestest {

// Recomputes every chunk checksum that the layout still lets one find.
void FixPngChecksums(std::string& bytes);

}  // namespace filestest
using namespace filestest;
