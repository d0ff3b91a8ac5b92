// The camera through the stand-in engine's control interface; after each test nothing is left open in it.
#include "camera.h"
#include "dibimages.h"
#include "enginecontrol.h"

#include <stdlib.h>

#include <atomic>
#include <string>
#include <thread>

using namespace tovtest;

namespace {

const char* const kProfiles = R"(<p>
  <Section name=""><Section name="Settings"><Key name="Aimer">2</Key></Section><Section name="Processing"><Section name="Invert"/></Section></Section>
  <Section name="Bad chain"><Section name="Processing"><Section name="Blur"/></Section></Section>
  <Section name="Fixed" flags="8"><Section name="Fixed Exposure Control"><Key name="Fixed Exp">9999</Key></Section></Section>
  <Section name="Both"><Section name="Automatic Exposure Control"><Key name="Target Value">300</Key></Section>
                       <Section name="Fixed Exposure Control"/></Section>
  <Section name="Inverted"><Section name="Processing"><Section name="Invert"><Key name="Flags">0</Key></Section></Section></Section>
</p>)";

struct CameraTest : ::testing::Test {
    ScratchDir dir;
    EngineControls engine;
    CameraTest() {
        WriteBytes("profiles.zpf", kProfiles);
        engine.Reset();
    }
    ~CameraTest() override {
        tovUninitCamera();
        EXPECT_TRUE(engine.Idle());
        unsetenv("TOVREL_ENGINE");
    }
    DWORD Init(const WCHAR* name = nullptr, DWORD* flags = nullptr) { return tovInitCamera(u"profiles.zpf", name, flags); }
    // The basic engine has no GetEngineType: the imager type word decides.
    static void Basic(const char* type) {
        setenv("TOVREL_ENGINE", TOV_ENGINE_BASIC_PATH, 1);
        setenv("TOVREL_IMAGER_TYPE", type, 1);
    }
    // The engine's illumination/aimer/scanning.
    std::string View() const {
        return Codes({engine.Read("QdxCtlIllumination"), engine.Read("QdxCtlAimer"), engine.Read("QdxCtlScanning")});
    }
    std::string Settings(std::vector<EsPair> pairs) const {
        DWORD r = tovGetExposureSettings(pairs.data(), DWORD(pairs.size() * sizeof(EsPair)));
        std::string s;
        for (const EsPair& p : pairs) s += (s.empty() ? "" : " ") + std::to_string(p.value);
        return r ? "error " + std::to_string(r) : s;
    }
};

}  // namespace

TEST_F(CameraTest, StartUpFailuresCloseWhatWasOpened) {
    // The engine function of the ordinal made to fail (0: none), the file and profile, the code.
    const struct { int ordinal; const WCHAR *file, *profile; DWORD expected; } cases[] = {
        {1, u"profiles.zpf", nullptr, 6},  {3, u"profiles.zpf", nullptr, 6},  {5, u"profiles.zpf", nullptr, 6},
        {24, u"profiles.zpf", nullptr, 6}, {15, u"profiles.zpf", nullptr, 6}, {16, u"profiles.zpf", nullptr, 6},
        {0, u"missing.zpf", nullptr, 17},  {0, u"profiles.zpf", u"Nobody", 12}, {0, u"profiles.zpf", u"Bad chain", 13},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.ordinal << " " << N(c.file) << " " << Text(c.profile));
        engine.Reset();
        if (c.ordinal) engine.Fail(c.ordinal);
        LeakGuard guard;
        EXPECT_EQ(Codes({tovInitCamera(c.file, c.profile, nullptr), tovGetImagerFullWidth(), tovUninitCamera()}),
                  Codes({c.expected, 0, tovErrorNotInitialized}));
        EXPECT_TRUE(engine.Idle());
    }
    engine.Reset();
    engine.Get<void (*)(uint8_t)>("QdxCtlSetEngineType")(2);
    EXPECT_EQ(Init(), 6u);
    setenv("TOVREL_ENGINE", "/no/such/engine.so", 1);
    EXPECT_EQ(Init(), 6u);
    Basic("4");  // a type word of no camera class (the frame-width test starts the basic engine on one)
    EXPECT_EQ(Init(), 6u);
    unsetenv("TOVREL_ENGINE");
    unsetenv("TOVREL_IMAGER_TYPE");
    engine.Reset();
    DWORD flags = 0x100;
    EXPECT_EQ(Codes({Init(u"Fixed", &flags), Init()}), Codes({0, tovErrorAlreadyInitialized}));
    EXPECT_EQ(flags, 0x1000u);  // read-only profile
}

TEST_F(CameraTest, FrameWidthsByFlagsAndEngine) {
    // basic: the engine without its wide grab; expected: start-up, full width, preview width and height.
    const struct { uint32_t width, height; DWORD flags; bool basic; const char* expected; } cases[] = {
        {640, 480, 0x100, false, "0 640 212 160"}, {640, 480, 0x200, false, "6 0 0 0"}, {640, 480, 0x300, false, "0 640 212 160"},
        {752, 480, 0x300, false, "0 752 250 160"}, {752, 480, 0x100, false, "0 640 212 160"}, {752, 480, 0x200, true, "6 0 0 0"},
        {752, 480, 0x100, true, "0 640 212 160"},  {800, 480, 0x300, false, "6 0 0 0"}, {640, 240, 0x100, false, "6 0 0 0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " flags " << c.flags << (c.basic ? " basic" : ""));
        if (c.basic) Basic("1");
        EngineControls chosen;
        chosen.Reset();
        chosen.Geometry(c.width, c.height, 0);
        DWORD flags = c.flags;
        EXPECT_EQ(Codes({Init(u"", &flags), tovGetImagerFullWidth(), tovGetImagerPreviewWidth(), tovGetImagerPreviewHeight()}),
                  c.expected);
        tovUninitCamera();
        EXPECT_TRUE(chosen.Idle());
        unsetenv("TOVREL_ENGINE");
        unsetenv("TOVREL_IMAGER_TYPE");
    }
}

TEST_F(CameraTest, EngineViewThroughACapture) {
    ASSERT_EQ(Init(), 0u);
    EXPECT_EQ(View(), "0 0 0");  // not told at start-up
    Dib h(tovCreateHDIB());
    ASSERT_NE(h.h, nullptr);
    EXPECT_EQ(DibWidth(h), 640);
    engine.Fail(8);  // the engine does not start scanning
    EXPECT_EQ(Codes({tovStopCapture(), tovStartCapture(), tovStartCapture()}), Codes({tovErrorNotCapturing, tovErrorUnknown, 0}));
    EXPECT_EQ(View(), "1 2 1");  // the profile's values
    EXPECT_EQ(Codes({tovStartCapture(), tovSetAimer(5)}), Codes({tovErrorAlreadyCapturing, 0}));
    EXPECT_EQ(View(), "1 5 1");  // reaches the engine at once
    ASSERT_EQ(tovCaptureImage(h, tovCaptureFull), 0u);
    Dib other(tovCreateCopyHDIB(h));
    ASSERT_EQ(tovCaptureImage(h, tovCaptureFull), 0u);
    EXPECT_NE(StoreBytes(h), StoreBytes(other));  // two grabs differ
    const uint32_t before = engine.LogCount();
    ASSERT_EQ(tovStopCapture(), 0u);
    EXPECT_EQ(View(), "0 0 0");
    std::string calls;  // aimer 0, four grabs, stop scanning, illumination 0
    QdxCall call;
    for (uint32_t i = before; engine.LogEntry(i, &call); ++i)
        calls += std::to_string(call.ordinal) + "(" + std::to_string(call.value) + ") ";
    EXPECT_EQ(calls, "13(0) 7(640) 7(640) 7(640) 7(640) 9(0) 12(0) ");
    // After the stop the last frame is delivered again, and the profile keeps its values.
    EXPECT_EQ(Codes({tovCaptureImage(h, tovCaptureFull), tovCaptureImage(other, tovCaptureFull)}), "0 0");
    EXPECT_EQ(StoreBytes(h), StoreBytes(other));
    LONG aimer = 0;
    EXPECT_EQ(Codes({tovGetAimer(&aimer), aimer}), "0 5");
    // A failed grab leaves the capture running; a failed aimer call still keeps the value.
    ASSERT_EQ(tovStartCapture(), 0u);
    engine.Fail(7);
    EXPECT_EQ(tovCaptureImage(h, tovCaptureFull), DWORD(tovErrorUnknown));
    engine.Fail(13);
    EXPECT_EQ(Codes({tovSetAimer(1), tovGetAimer(&aimer), aimer}), Codes({tovErrorUnknown, 0, 1}));
    Dib four(MakePatterned(9, 9, 4));  // an unknown mode copies nothing, but makes the bitmap 8-bit
    EXPECT_EQ(Codes({tovCaptureImage(four, 7), DibBitCount(four), DibWidth(four)}), "0 8 9");
}

// Copies against the frame recomputed here: both widths and orientations, full and preview, with the chain
// (an inversion) and without.
TEST_F(CameraTest, FrameCopiesFollowTheFormula) {
    for (LONG W : {640, 752})
        for (uint32_t orientation : {0u, 2u}) {
            SCOPED_TRACE(testing::Message() << W << " wide, orientation " << orientation);
            std::string frame, file;  // the wider frame from a 16-bit file, each sample v * 257
            for (LONG y = 0; y < 480; ++y)
                for (LONG x = 0; x < W; ++x) frame += char((x * 7 + y * 13 + x * y) & 255);
            for (char v : frame) file += W == 752 ? std::string(2, v) : std::string(1, v);
            WriteBytes("frame.pgm", "P5\n" + std::to_string(W) + " 480\n" + (W == 752 ? "65535" : "255") + "\n" + file);
            setenv("TOVREL_ENGINE_SOURCE", ("files:" + dir.File("frame.pgm")).c_str(), 1);
            engine.Reset();
            unsetenv("TOVREL_ENGINE_SOURCE");
            engine.Geometry(uint32_t(W), 480, orientation);
            DWORD flags = 0x300;
            ASSERT_EQ(Codes({Init(u"", &flags), tovStartCapture()}), "0 0");
            const LONG w = W == 640 ? 212 : 250, d = (W - 3 * w + 2) / 2;
            for (DWORD mode : {tovCaptureFull, tovCapturePreview, tovCaptureFullProcessed, tovCapturePreviewProcessed}) {
                const bool preview = mode == tovCapturePreview || mode == tovCapturePreviewProcessed;
                const DWORD inverted = mode == tovCaptureFullProcessed || mode == tovCapturePreviewProcessed ? 255 : 0;
                const LONG fitW = preview ? w : W, fitH = preview ? 160 : 480;
                Dib h(MakePatterned(preview ? fitW : 5, preview ? 5 : fitH, 1));  // one side already fits
                ASSERT_EQ(tovCaptureImage(h, mode), 0u);
                ASSERT_EQ(Codes({DibWidth(h), DibHeight(h)}), Codes({fitW, fitH}));
                int wrong = 0;  // a turned imager's frame comes turned: twice turned is upright
                for (LONG y = 0; y < DibHeight(h); ++y)
                    for (LONG x = 0; x < DibWidth(h); ++x) {
                        size_t at = size_t(preview ? 3 * y : y) * size_t(W) + size_t(preview ? 3 * x + d : x);
                        wrong += StorePixel(h, x, y) != (inverted ^ DWORD(static_cast<unsigned char>(frame[at])));
                    }
                EXPECT_EQ(wrong, 0) << "mode " << mode;
            }
            tovUninitCamera();
        }
}

TEST_F(CameraTest, ExposureSectionsAndClamping) {
    DWORD mode = 9;
    ASSERT_EQ(Init(u"Both"), 0u);
    EXPECT_EQ(Codes({tovGetExposureMode(&mode), mode}), "0 2");
    EXPECT_EQ(Settings({{1, 0}, {12, 0}}), "255 240");  // 300 clamped at start-up
    EXPECT_EQ(engine.Setting(1), 255);
    EsPair pairs[] = {{1, 0}, {12, 100}};
    EXPECT_EQ(Codes({tovSetExposureSettings(pairs, sizeof pairs), pairs[1].value, engine.Setting(12)}), "0 200 200");
    for (EsPair bad : std::vector<EsPair>{{6, 1}, {7, 1}, {8, 1}, {14, 1}, {17, 1}})  // not automatic settings
        EXPECT_EQ(Codes({tovGetExposureSettings(&bad, 8), tovSetExposureSettings(&bad, 8)}), "7 7") << bad.id;
    EsPair many[18] = {};  // not whole pairs, none, too many
    EXPECT_EQ(Codes({tovGetExposureSettings(many, 0), tovGetExposureSettings(many, 4), tovGetExposureSettings(many, 12),
                     tovGetExposureSettings(many, 144), tovGetExposureSettings(nullptr, 8)}), "7 7 7 7 7");
    // To fixed and back: the automatic values return to their defaults.
    EXPECT_EQ(Codes({tovSetExposureMode(0), engine.Read("QdxCtlExposureMode")}), "0 0");
    EXPECT_EQ(Settings({{14, 0}}), "255");
    ASSERT_EQ(tovSetExposureMode(2), 0u);
    EXPECT_EQ(Settings({{1, 0}, {12, 0}}), "150 240");
    EXPECT_EQ(tovSetExposureMode(1), DWORD(DibErrorInvalidParm));
    engine.Fail(15);
    EXPECT_EQ(tovSetExposureMode(0), DWORD(tovErrorUnknown));
    EXPECT_EQ(Text(tovProfileESParmIDToName(16)) + " " + Text(tovProfileESParmIDToName(7)), "Fixed Frame Rate <null>");
}

TEST_F(CameraTest, RevisionAndProcessingOfPreviewSizes) {
    WCHAR text[64];
    ASSERT_EQ(Init(u"Inverted"), 0u);
    ASSERT_EQ(tovGetScanDriverRevision(text), 0u);
    EXPECT_EQ(N(text), "1.0");
    GuardedPage guard;  // "1.0" and its terminator just fit before an unreadable page
    EXPECT_EQ(Codes({tovGetScanDriverRevision(reinterpret_cast<WCHAR*>(guard.End()) - 4),
                     tovGetScanDriverRevision(reinterpret_cast<WCHAR*>(guard.End()) - 3), tovGetScanDriverRevision(nullptr)}),
              Codes({0, tovErrorBadOutputBuffer, DibErrorInvalidParm}));
    const struct { const char16_t* raw; const char* reduced; } revisions[] = {
        {u"Scan Driver V1.02 beta", "V1.02"}, {u"no digits", "no digits"},
        {u"abc 1 2 3 xyz", "1 2 3"},         {u"Release 0 build 7", "0 build 7"},
    };
    for (const auto& r : revisions) {
        cmReduceRevision(r.raw, text);
        EXPECT_EQ(N(text), r.reduced);
    }
    // "Flags" 0: the chain passes over pictures of the preview size only.
    Dib preview(MakePatterned(212, 160, 8)), full(MakePatterned(212, 161, 8));
    const auto before = StoreBytes(preview), fullBefore = StoreBytes(full);
    ASSERT_EQ(Codes({tovProcessImage(preview, preview), tovProcessImage(full, full)}), "0 0");
    EXPECT_EQ(StoreBytes(preview), before);
    EXPECT_NE(StoreBytes(full), fullBefore);
}

TEST_F(CameraTest, AllocationFailureOnStartAndCapture) {
    long sites = ForEachAllocationFailure([&](long n) {
        LeakGuard guard;
        if (Init() == 0) {
            Dib h(tovCreateHDIB());
            tovStartCapture();
            if (h.h) tovCaptureImage(h, tovCaptureFullProcessed);
            tovStopCapture();
            EXPECT_EQ(tovUninitCamera(), 0u) << n;
        }
        EXPECT_TRUE(engine.Idle()) << n;
        engine.Reset();
    });
    EXPECT_GT(sites, 20);
}

// Capture with processing while another thread changes settings and this one opens and closes.
TEST_F(CameraTest, ConcurrentCaptureSettingsAndSessions) {
    ASSERT_EQ(Init(u"Inverted"), 0u);
    std::atomic<bool> stop{false};
    std::thread capture([&] {
        for (Dib h(MakePatterned(8, 8, 8)); !stop;)
            Codes({tovStartCapture(), tovCaptureImage(h, tovCaptureFullProcessed),
                   tovCaptureImage(h, tovCapturePreviewProcessed), tovStopCapture()});
    });
    std::thread settings([&] {
        for (LONG i = 0; !stop; ++i) {
            EsPair pair = {1, LONG(100 + i % 100)};
            Codes({tovSetAimer(i & 1), tovSetIllumination(i & 1), tovSetExposureSettings(&pair, 8),
                   tovSetExposureMode(i % 2 ? 0 : 2), tovGetImagerPreviewHeight()});
        }
    });
    for (int i = 0; i < 20; ++i) Codes({tovUninitCamera(), Init(u"Inverted")});
    stop = true;
    capture.join();
    settings.join();
}
