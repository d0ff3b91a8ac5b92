// Every export with each of its allocations failing in turn: the process
// goes on, nothing leaks, the global lock is free afterwards, and the call
// either succeeds or says so. Every export the library has must be in the
// table below, so a new one cannot be left out; and the library survives
// running out of memory for real (ulimit -v) in a child process.
#include "dibimages.h"
#include "testsupport.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <new>
#include <thread>

using namespace tovtest;

// The C++ allocator of the whole program, with a fault seam like the
// platform's: the library must not let its std::bad_alloc reach a caller.
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

bool Ok(DWORD code) { return code == 0; }
bool Made(HDIB h) {
    if (h) tovUnloadHDIB(h);
    return h != nullptr;
}

const std::map<std::string, Call>& Calls() {
    static const LONG kernel[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
    static const RECT rect = {0, 0, 64, 48};
    static const std::map<std::string, Call> calls = {
        {"tovConfigDebug", [](Inputs&) { tovConfigDebug(1, 10, tovDebugFile); tovConfigDebug(0, 5, 2); return true; }},
        {"tovGetDllRevision", [](Inputs&) { WCHAR b[64]; return Ok(tovGetDllRevision(b)); }},
        {"tovHDIBIsValid", [](Inputs& in) { return Ok(tovHDIBIsValid(in.h)); }},
        {"tovCreateCopyHDIB", [](Inputs& in) { return Made(tovCreateCopyHDIB(in.h)); }},
        {"tovUnloadHDIB", [](Inputs&) { HDIB h = DibCreate(4, 4, 0); return h && Ok(tovUnloadHDIB(h)); }},
        {"tovWidth", [](Inputs& in) { return tovWidth(in.h) == 40; }},
        {"tovHeight", [](Inputs& in) { return tovHeight(in.h) == 30; }},
        {"tovBitCount", [](Inputs& in) { return tovBitCount(in.h) == 8; }},
        {"tovNumColors", [](Inputs& in) { return tovNumColors(in.h) == 256; }},
        {"tovBitsPtr", [](Inputs& in) { return tovBitsPtr(in.h) != nullptr; }},
        {"tovInfoHeaderPtr", [](Inputs& in) { return tovInfoHeaderPtr(in.h) != nullptr; }},
        {"tovBitmapHandle", [](Inputs& in) { return tovBitmapHandle(in.h) != nullptr; }},
        {"tovCreateHDIBExt", [](Inputs&) { return Made(tovCreateHDIBExt(33, 9, 255, 1)); }},
        {"tovRecreateHDIBExt", [](Inputs& in) { return Ok(tovRecreateHDIBExt(in.h, 17, 5, 3, 4)); }},
        {"tovConvert", [](Inputs& in) { return Ok(tovConvert(in.h, 4)); }},
        {"tovClear", [](Inputs& in) { return Ok(tovClear(in.h, 7)); }},
        {"tovSaveBMP", [](Inputs& in) { return Ok(tovSaveBMP(in.h, u"out")); }},
        {"tovLoadBMP", [](Inputs&) { return Made(tovLoadBMP(u"in")); }},
        {"tovSaveJPG", [](Inputs& in) { return Ok(tovSaveJPG(in.h, u"out", 80)); }},
        {"tovLoadJPG", [](Inputs&) { return Made(tovLoadJPG(u"in")); }},
        {"tovSavePNG", [](Inputs& in) { return Ok(tovSavePNG(in.h, u"out")); }},
        {"tovLoadPNG", [](Inputs&) { return Made(tovLoadPNG(u"in")); }},
        {"tovSave", [](Inputs& in) { return Ok(tovSave(in.h, u"out", tovFormatPNG, 0)); }},
        {"tovLoad", [](Inputs&) { return Made(tovLoad(u"in", tovFormatJPG)); }},
        {"tovSavePRN", [](Inputs& in) { return Ok(tovSavePRN(in.h, u"out.prn", 0, 832, 16)); }},
        {"tovBrightness", [](Inputs& in) { return Ok(tovBrightness(in.h, 20)); }},
        {"tovContrast", [](Inputs& in) { return Ok(tovContrast(in.h, -20)); }},
        {"tovInvert", [](Inputs& in) { return Ok(tovInvert(in.h)); }},
        {"tovGammaCorrection", [](Inputs& in) { return Ok(tovGammaCorrection(in.h, 1.5)); }},
        {"tovHistogramStretch", [](Inputs& in) { return Ok(tovHistogramStretch(in.h)); }},
        {"tovHistogramStretchEx", [](Inputs& in) { return Ok(tovHistogramStretchEx(in.h, 2, 2, 1)); }},
        {"tovRankFilter", [](Inputs& in) { return Ok(tovRankFilter(in.h, 4)); }},
        {"tovDespeckle", [](Inputs& in) { return Ok(tovDespeckle(in.h, 3, 255)); }},
        {"tovConvolutionFilter", [](Inputs& in) { return Ok(tovConvolutionFilter(in.h, kernel, 3, 3, 16, 0)); }},
        {"tovAverage", [](Inputs& in) { return Ok(tovAverage(in.h)); }},
        {"tovInfinityFilter", [](Inputs& in) { return Ok(tovInfinityFilter(in.h)); }},
        {"tovSharpen", [](Inputs& in) { return Ok(tovSharpen(in.h, 9)); }},
        {"tovThreshold", [](Inputs& in) { return Ok(tovThreshold(in.h, 10)); }},
        {"tovFlipHorizontal", [](Inputs& in) { return Ok(tovFlipHorizontal(in.h)); }},
        {"tovFlipVertical", [](Inputs& in) { return Ok(tovFlipVertical(in.h)); }},
        {"tovCrop", [](Inputs& in) { return Ok(tovCrop(in.h, 3, 4, 20, 10)); }},
        {"tovScale", [](Inputs& in) { return Ok(tovScale(in.h, 50)); }},
        {"tovDither16Color", [](Inputs& in) { return Ok(tovDither16Color(in.h)); }},
        {"tovDither2Color", [](Inputs& in) { return Ok(tovDither2Color(in.h)); }},
        {"tovOverlayBuffer", [](Inputs& in) { return Ok(tovOverlayBuffer(in.h, u"Ab\n12", 2, 12, 0)); }},
        {"tovOverlayTimeDate", [](Inputs& in) { return Ok(tovOverlayTimeDate(in.h, 6, 10, 1)); }},
        {"tovSigDraw", [](Inputs& in) { return Ok(tovSigDraw(in.dc, in.record.data(), 0, 2)); }},
        {"tovSigSave",
         [](Inputs& in) { return Ok(tovSigSave(u"sig", tovFormatPNG, 0, in.record.data(), u"A", 1, 0, 2)); }},
        {"tovDisplayImage", [](Inputs& in) { return Ok(tovDisplayImage(in.h, in.dc, &rect, 1, 100, 1)); }},
        {"tovProcessImage", [](Inputs& in) { return Ok(tovProcessImage(in.h, in.h)); }},
        {"tovProfilePFNameToID", [](Inputs&) { return tovProfilePFNameToID(u"invert") == 11; }},
        {"tovProfilePFIDToName", [](Inputs&) { return tovProfilePFIDToName(11) != nullptr; }},
        {"tovProfilePFParmNameToID", [](Inputs&) { return tovProfilePFParmNameToID(12, u"rank") == 2; }},
        {"tovProfilePFParmIDToName", [](Inputs&) { return tovProfilePFParmIDToName(12, 2) != nullptr; }},
        {"tovProfilePFParmMin", [](Inputs&) { return tovProfilePFParmMin(12, 2) != nullptr; }},
        {"tovProfilePFParmMax", [](Inputs&) { return tovProfilePFParmMax(12, 2) != nullptr; }},
        {"tovProfilePFParmDefault", [](Inputs&) { return tovProfilePFParmDefault(12, 2) != nullptr; }},
        // Without an open profile the sizes are 0.
        {"tovGetImagerFullWidth", [](Inputs&) { return tovGetImagerFullWidth() == 0; }},
        {"tovGetImagerFullHeight", [](Inputs&) { return tovGetImagerFullHeight() == 0; }},
        {"tovGetImagerPreviewWidth", [](Inputs&) { return tovGetImagerPreviewWidth() == 0; }},
        {"tovGetImagerPreviewHeight", [](Inputs&) { return tovGetImagerPreviewHeight() == 0; }},
        // The camera's calls without a session; the session's own are in the camera tests.
        {"tovCheckImager", [](Inputs&) { return tovCheckImager() == 0; }},
        {"tovGetImagerType", [](Inputs&) { return tovGetImagerType() == -1; }},
        {"tovGetScanDriverRevision", [](Inputs&) { WCHAR b[64]; return tovGetScanDriverRevision(b) == 9; }},
        {"tovCreateHDIB", [](Inputs&) { return !Made(tovCreateHDIB()); }},
        {"tovStartCapture", [](Inputs&) { return tovStartCapture() == 9; }},
        {"tovStopCapture", [](Inputs&) { return tovStopCapture() == 9; }},
        {"tovCaptureImage", [](Inputs& in) { return tovCaptureImage(in.h, 0) == 9; }},
        {"tovGetExposureMode", [](Inputs&) { DWORD m; return tovGetExposureMode(&m) == 9; }},
        {"tovSetExposureMode", [](Inputs&) { return tovSetExposureMode(0) == 9; }},
        {"tovGetExposureSettings", [](Inputs&) { EsPair p = {1, 0}; return tovGetExposureSettings(&p, 8) == 9; }},
        {"tovSetExposureSettings", [](Inputs&) { EsPair p = {1, 0}; return tovSetExposureSettings(&p, 8) == 9; }},
        {"tovProfileESParmIDToName", [](Inputs&) { return tovProfileESParmIDToName(1) != nullptr; }},
        {"tovGetAimer", [](Inputs&) { LONG v; return tovGetAimer(&v) == 9; }},
        {"tovSetAimer", [](Inputs&) { return tovSetAimer(1) == 9; }},
        {"tovGetIllumination", [](Inputs&) { LONG v; return tovGetIllumination(&v) == 9; }},
        {"tovSetIllumination", [](Inputs&) { return tovSetIllumination(1) == 9; }},
        {"tovUninitCamera", [](Inputs&) { return tovUninitCamera() == 9; }},
        // Profile management; the file calls on the sample, the chain calls
        // without an open profile (the chain of a closed session stays).
        {"tovGetProfileList", [](Inputs&) { return tovGetProfileList(u"" TOV_SAMPLE_PROFILES, nullptr, 0) == 3; }},
        {"tovSaveProfile", [](Inputs&) { return tovSaveProfile(u"out.zpf", u"A", 0) == 9; }},
        {"tovDeleteProfile", [](Inputs&) { return tovDeleteProfile(u"missing.zpf", u"A") == 16; }},
        {"tovGetProfilePFID", [](Inputs&) { return tovGetProfilePFID(65) == 0; }},
        {"tovAddProfilePF", [](Inputs&) { return tovAddProfilePF(0, 1) == 0; }},
        {"tovDeleteProfilePF", [](Inputs&) { return tovDeleteProfilePF(1) == 6; }},
        {"tovGetProfilePFParmValue", [](Inputs&) { WCHAR v[8]; return tovGetProfilePFParmValue(1, 1, v, 8) >= 6; }},
        {"tovSetProfilePFParmValue", [](Inputs&) { return tovSetProfilePFParmValue(1, 1, u"1") >= 6; }},
        {"tovInitCamera",
         [](Inputs&) {
             DWORD r = tovInitCamera(u"" TOV_SAMPLE_PROFILES, u"Labels", nullptr);
             return r == 0 && tovUninitCamera() == 0;
         }},
    };
    return calls;
}

// The files the loads read, in the working directory.
void WriteInputFiles() {
    Dib picture(MakePatterned(40, 30, 8, 4));
    ASSERT_EQ(tovSaveBMP(picture, u"in"), 0u);
    ASSERT_EQ(tovSaveJPG(picture, u"in", 90), 0u);
    ASSERT_EQ(tovSavePNG(picture, u"in"), 0u);
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
    ASSERT_NO_FATAL_FAILURE(WriteInputFiles());
    for (const auto& [name, call] : Calls()) {
        SCOPED_TRACE(name);
        const long sites = ForEachAllocationSite([&](long n) {
            LeakGuard guard;
            Inputs in;
            EXPECT_NE(in.dc, nullptr);
            bool reached = false;
            const bool succeeded = WithAllocationFailure(n, &reached, [&] { return call(in); });
            // Not reached: the whole call ran, and must have succeeded.
            EXPECT_TRUE(reached || succeeded) << "fails without any allocation failing";
            return reached && in.dc;
        });
        EXPECT_GE(sites, 0);
        EXPECT_TRUE(LockIsFree());
        RecordProperty(name, int(sites));
    }
}

TEST(AllocationTest, NoCppAllocationFailureLeavesAnExport) {
    ScratchDir dir;
    ASSERT_NO_FATAL_FAILURE(WriteInputFiles());
    for (const auto& [name, call] : Calls()) {
        SCOPED_TRACE(name);
        for (long n = 1; n < 1000; ++n) {
            Inputs in;
            long before = g_news;
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

// Real exhaustion: the address space limited from 30 MB upwards, a child
// process runs a traced chain of exports. Out of memory is a failed call or
// a lost trace line, never a killed process.
TEST(AllocationTest, RunningOutOfAddressSpaceEndsNoProcess) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' own shadow memory does not fit under the limit";
#endif
    ScratchDir dir;
    // Fonts are resolved once and kept: the first overlay runs before the
    // limit, as an application's would long before memory runs short.
    {
        Dib warm(MakePatterned(64, 64, 8));
        ASSERT_EQ(tovOverlayBuffer(warm, u"text", 0, 40, 0), 0u);
    }
    for (rlim_t megabytes : {30, 45, 70}) {
        SCOPED_TRACE(megabytes);
        pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            struct rlimit limit = {megabytes << 20, megabytes << 20};
            setrlimit(RLIMIT_AS, &limit);
            tovConfigDebug(1, 10, tovDebugFile);
            for (int round = 0; round < 4; ++round) {
                HDIB h = tovCreateHDIBExt(2000 + round * 600, 1500, 0, 8);
                tovRankFilter(h, 4);
                tovSavePNG(h, u"big");
                HDIB loaded = tovLoadPNG(u"big");
                tovOverlayBuffer(loaded, u"text", 0, 40, 0);
                tovUnloadHDIB(loaded);
                tovUnloadHDIB(h);
            }
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
    }
}
