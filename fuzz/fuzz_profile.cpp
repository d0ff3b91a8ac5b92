// libFuzzer target: profile files through the profile half of a session
// start (the document load, the profile lookup and the chain load with its
// clamping and write-back), then the chain over a small frame.
#include "fuzzload.h"
#include "session.h"

namespace {

HDIB OpenAndRun(const WCHAR* file) {
    if (ProfileOpenSession(file, u"") == 0) {
        HDIB frame = DibCreateGrey(33, 17, 8, nullptr);
        if (frame) {
            tovProcessImage(frame, frame);
            tovUnloadHDIB(frame);
        }
    }
    ProfileCloseSession();
    return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return tovfuzz::LoadOnce(data, size, OpenAndRun, "zpf");
}
