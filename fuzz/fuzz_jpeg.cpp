// libFuzzer target: any bytes as a .jpg file through tovLoadJPG.
#include "fuzzload.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tovfuzz::LoadOnce(data, size, tovLoadJPG, "jpg");
}
