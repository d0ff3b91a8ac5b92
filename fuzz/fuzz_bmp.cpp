// libFuzzer target: any bytes as a .bmp file through tovLoadBMP.
#include "fuzzload.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tovfuzz::LoadOnce(data, size, tovLoadBMP, "bmp");
}
