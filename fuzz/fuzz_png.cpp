// libFuzzer target: any bytes as a .png file through tovLoadPNG.
#include "fuzzload.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tovfuzz::LoadOnce(data, size, tovLoadPNG, "png");
}
