// Every export with each of its allocations failing in turn (the platform's
// and the C++ allocator's): the process goes on, nothing leaks, no exception
// escapes, the global lock is free afterwards, and the call either succeeds
// or says so. Every export must be in the table, so a new one cannot be left
// out.
#include "dibimages.h"
#include "testsupport.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <new>

using namespace tovtest;

// The whole program's C++ allocator, with a fault seam like the platform's.
// (new and delete are malloc and free here, which GCC cannot see.)
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
namespace {
std::atomic<long> g_news{0}, g_newFailAt{0};
}  // namespace

void* operator new(size_t bytes) {
    long n = ++g_news;
    if (g_newFailAt != 0 && n == g_newFailAt) throw std::bad_alloc();
    if (void* p = std::malloc(bytes ? bytes : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace {

// What the calls work on, made afresh for each failing allocation.
struct Inputs {
    Dib h{MakePatterned(40, 30, 8, 3)};
    std::vector<uint32_t> pixels = std::vector<uint32_t>(64 * 48, 0xFFFFFF);
    HDC dc = PlatCreateBufferDC(pixels.data(), 64, 48, 64 * 4);
    std::vector<int32_t> record = {60, 40, 2, 3, 5, 5, 30, 20, 55, 35, 1, 10, 30};
    ~Inputs() { DeleteDC(dc); }
};

using Call = std::function<bool(Inputs&)>;  // true: the call reported success

bool Made(HDIB h) {
    if (h) tovUnloadHDIB(h);
    return h != nullptr;
}

// IS: the result passes the test given; RET: the call returns want; OK: 0;
// SOME: not null.
#define IS(name, ...) {#name, [](Inputs & in) { (void)in; return __VA_ARGS__; }}
#define RET(want, name, ...) IS(name, name(__VA_ARGS__) == want)
#define OK(name, ...) RET(0, name, __VA_ARGS__)
#define SOME(name, ...) IS(name, name(__VA_ARGS__) != nullptr)

const std::map<std::string, Call>& Calls() {
    static const LONG kernel[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
    static const RECT rect = {0, 0, 64, 48};
    static WCHAR text[64];
    static LONG value;
    static DWORD mode;
    static EsPair pair = {1, 0};
    static const std::map<std::string, Call> calls = {
        IS(tovConfigDebug, (tovConfigDebug(1, 10, tovDebugFile), tovConfigDebug(0, 5, 2), true)),
        OK(tovGetDllRevision, text), OK(tovHDIBIsValid, in.h), IS(tovCreateCopyHDIB, Made(tovCreateCopyHDIB(in.h))),
        IS(tovUnloadHDIB, [] { HDIB h = DibCreate(4, 4, 0); return h && tovUnloadHDIB(h) == 0; }()),
        RET(40, tovWidth, in.h), RET(30, tovHeight, in.h), RET(8u, tovBitCount, in.h), RET(256u, tovNumColors, in.h),
        SOME(tovBitsPtr, in.h), SOME(tovInfoHeaderPtr, in.h), SOME(tovBitmapHandle, in.h),
        IS(tovCreateHDIBExt, Made(tovCreateHDIBExt(33, 9, 255, 1))), OK(tovRecreateHDIBExt, in.h, 17, 5, 3, 4),
        OK(tovConvert, in.h, 4), OK(tovClear, in.h, 7), OK(tovSaveBMP, in.h, u"out"),
        IS(tovLoadBMP, Made(tovLoadBMP(u"in"))), OK(tovSaveJPG, in.h, u"out", 80),
        IS(tovLoadJPG, Made(tovLoadJPG(u"in"))), OK(tovSavePNG, in.h, u"out"), IS(tovLoadPNG, Made(tovLoadPNG(u"in"))),
        OK(tovSave, in.h, u"out", tovFormatPNG, 0), IS(tovLoad, Made(tovLoad(u"in", tovFormatJPG))),
        OK(tovSavePRN, in.h, u"out.prn", 0, 832, 16), OK(tovBrightness, in.h, 20), OK(tovContrast, in.h, -20),
        OK(tovInvert, in.h), OK(tovGammaCorrection, in.h, 1.5), OK(tovHistogramStretch, in.h),
        OK(tovHistogramStretchEx, in.h, 2, 2, 1), OK(tovRankFilter, in.h, 4), OK(tovDespeckle, in.h, 3, 255),
        OK(tovConvolutionFilter, in.h, kernel, 3, 3, 16, 0), OK(tovAverage, in.h), OK(tovInfinityFilter, in.h),
        OK(tovSharpen, in.h, 9), OK(tovThreshold, in.h, 10), OK(tovFlipHorizontal, in.h), OK(tovFlipVertical, in.h),
        OK(tovCrop, in.h, 3, 4, 20, 10), OK(tovScale, in.h, 50), OK(tovDither16Color, in.h), OK(tovDither2Color, in.h),
        OK(tovOverlayBuffer, in.h, u"Ab\n12", 2, 12, 0), OK(tovOverlayTimeDate, in.h, 6, 10, 1),
        OK(tovSigDraw, in.dc, in.record.data(), 0, 2),
        OK(tovSigSave, u"sig", tovFormatPNG, 0, in.record.data(), u"A", 1, 0, 2),
        OK(tovDisplayImage, in.h, in.dc, &rect, 1, 100, 1), OK(tovProcessImage, in.h, in.h),
        RET(11, tovProfilePFNameToID, u"invert"), SOME(tovProfilePFIDToName, 11),
        RET(2, tovProfilePFParmNameToID, 12, u"rank"), SOME(tovProfilePFParmIDToName, 12, 2),
        SOME(tovProfilePFParmMin, 12, 2), SOME(tovProfilePFParmMax, 12, 2), SOME(tovProfilePFParmDefault, 12, 2),
        // Without an open profile the sizes are 0; the camera's calls without
        // a session (the session's own are in the camera tests).
        OK(tovGetImagerFullWidth), OK(tovGetImagerFullHeight), OK(tovGetImagerPreviewWidth),
        OK(tovGetImagerPreviewHeight), OK(tovCheckImager), RET(-1, tovGetImagerType),
        RET(9u, tovGetScanDriverRevision, text), IS(tovCreateHDIB, !Made(tovCreateHDIB())),
        RET(9u, tovStartCapture), RET(9u, tovStopCapture), RET(9u, tovCaptureImage, in.h, 0),
        RET(9u, tovGetExposureMode, &mode), RET(9u, tovSetExposureMode, 0), RET(9u, tovGetExposureSettings, &pair, 8),
        RET(9u, tovSetExposureSettings, &pair, 8), SOME(tovProfileESParmIDToName, 1), RET(9u, tovGetAimer, &value),
        RET(9u, tovSetAimer, 1), RET(9u, tovGetIllumination, &value), RET(9u, tovSetIllumination, 1),
        RET(9u, tovUninitCamera),
        // Profile files on the sample; the chain without an open profile.
        RET(3u, tovGetProfileList, u"" TOV_SAMPLE_PROFILES, nullptr, 0), RET(9u, tovSaveProfile, u"out.zpf", u"A", 0),
        RET(16u, tovDeleteProfile, u"missing.zpf", u"A"), OK(tovGetProfilePFID, 65), OK(tovAddProfilePF, 0, 1),
        RET(6u, tovDeleteProfilePF, 1), IS(tovGetProfilePFParmValue, tovGetProfilePFParmValue(1, 1, text, 8) >= 6),
        IS(tovSetProfilePFParmValue, tovSetProfilePFParmValue(1, 1, u"1") >= 6),
        IS(tovInitCamera, tovInitCamera(u"" TOV_SAMPLE_PROFILES, u"Labels", nullptr) == 0 && tovUninitCamera() == 0),
    };
    return calls;
}

// The lock is free when another thread can take it at once.
bool LockIsFree() {
    auto taken = std::async(std::launch::async, [] {
        EnterCriticalSection(tovGlobalLock());
        LeaveCriticalSection(tovGlobalLock());
    });
    return taken.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
}

}  // namespace

TEST(AllocationTest, EveryExportInTheTableSurvivesEachAllocationFailing) {
    for (const std::string& name : LibraryExports()) EXPECT_TRUE(Calls().count(name)) << name << " is not tested here";
    ScratchDir dir;
    Dib picture(MakePatterned(40, 30, 8, 4));  // what the loads read
    ASSERT_EQ(tovSaveBMP(picture, u"in") | tovSaveJPG(picture, u"in", 90) | tovSavePNG(picture, u"in"), 0u);
    for (const auto& [name, call] : Calls()) {
        SCOPED_TRACE(name);
        const long sites = ForEachAllocationSite([&](long n) {
            LeakGuard guard;
            Inputs in;
            EXPECT_NE(in.dc, nullptr);
            bool reached = false;
            const bool succeeded = WithAllocationFailure(n, &reached, [&] { return call(in); });
            EXPECT_TRUE(reached || succeeded) << "fails without any allocation failing";
            return reached && in.dc;
        });
        EXPECT_GE(sites, 0);
        EXPECT_TRUE(LockIsFree());
        RecordProperty(name, int(sites));
        for (long n = 1; n < 1000; ++n) {
            Inputs in;
            const long before = g_news;
            g_newFailAt = before + n;
            try {
                call(in);
            } catch (...) {
                ADD_FAILURE() << "an exception left the export at C++ allocation " << n;
            }
            g_newFailAt = 0;
            if (g_news - before < n) break;
        }
    }
}
