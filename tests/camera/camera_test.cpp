// The camera through the stand-in engine's control interface: start-up and
// its failures (everything opened is closed again), frame geometry, the
// engine's view of illumination, aimer and scanning, exposure, the frame
// copies against the formula, allocation failure, and threads.
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
  <Section name=""><Section name="Settings"><Key name="Aimer">2</Key></Section></Section>
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
    }
    DWORD Init(const WCHAR* name = nullptr, DWORD* flags = nullptr) { return tovInitCamera(u"profiles.zpf", name, flags); }
};

LONG Pixel(const std::string& frame, LONG W, LONG row, LONG column) {
    return static_cast<unsigned char>(frame[size_t(row) * size_t(W) + size_t(column)]);
}

}  // namespace

TEST_F(CameraTest, StartUpFailuresCloseWhatWasOpened) {
    const struct {
        const char* what;
        int ordinal;  // engine function made to fail, 0: none
        const WCHAR* file;
        const WCHAR* profile;
        DWORD expected;
    } cases[] = {
        {"initialise", 1, u"profiles.zpf", nullptr, 6},   {"open session", 3, u"profiles.zpf", nullptr, 6},
        {"scan space", 5, u"profiles.zpf", nullptr, 6},   {"engine info", 24, u"profiles.zpf", nullptr, 6},
        {"exposure mode", 15, u"profiles.zpf", nullptr, 6}, {"exposure settings", 16, u"profiles.zpf", nullptr, 6},
        {"no file", 0, u"missing.zpf", nullptr, 17},      {"no such profile", 0, u"profiles.zpf", u"Nobody", 12},
        {"unusable chain", 0, u"profiles.zpf", u"Bad chain", 13},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        engine.Reset();
        if (c.ordinal) engine.Fail(c.ordinal);
        LeakGuard guard;
        EXPECT_EQ(tovInitCamera(c.file, c.profile, nullptr), c.expected);
        EXPECT_TRUE(engine.Idle());
        EXPECT_EQ(tovGetImagerFullWidth(), 0u);
        EXPECT_EQ(tovUninitCamera(), DWORD(tovErrorNotInitialized));
    }
    engine.Reset();
    engine.Get<void (*)(uint8_t)>("QdxCtlSetEngineType")(2);
    EXPECT_EQ(Init(), 6u);
    setenv("TOVREL_ENGINE", "/no/such/engine.so", 1);
    EXPECT_EQ(Init(), 6u);
    setenv("TOVREL_ENGINE", TOV_ENGINE_BASIC_PATH, 1);  // no GetEngineType: the type word decides
    setenv("TOVREL_IMAGER_TYPE", "4", 1);
    EXPECT_EQ(Init(), 6u);
    setenv("TOVREL_IMAGER_TYPE", "7", 1);
    EXPECT_EQ(Init(), 0u);
    EXPECT_EQ(tovUninitCamera(), 0u);
    unsetenv("TOVREL_ENGINE");
    unsetenv("TOVREL_IMAGER_TYPE");
    // A second start after all that works, and a third is refused while open.
    engine.Reset();
    DWORD flags = 0x100;
    ASSERT_EQ(Init(u"Fixed", &flags), 0u);
    EXPECT_EQ(flags, 0x1000u);  // read-only profile
    EXPECT_EQ(Init(), DWORD(tovErrorAlreadyInitialized));
}

TEST_F(CameraTest, FrameWidthsByFlagsAndEngine) {
    const struct {
        uint32_t width, height;
        DWORD flags;
        bool basic;  // the engine without its wide grab
        DWORD expected, full, preview;
    } cases[] = {
        {640, 480, 0x100, false, 0, 640, 212}, {640, 480, 0x200, false, 6, 0, 0},  {640, 480, 0x300, false, 0, 640, 212},
        {752, 480, 0x300, false, 0, 752, 250}, {752, 480, 0x100, false, 0, 640, 212}, {752, 480, 0x200, true, 6, 0, 0},
        {752, 480, 0x100, true, 0, 640, 212},  {800, 480, 0x300, false, 6, 0, 0},  {640, 240, 0x100, false, 6, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " flags " << c.flags << (c.basic ? " basic" : ""));
        if (c.basic) {
            setenv("TOVREL_ENGINE", TOV_ENGINE_BASIC_PATH, 1);
            setenv("TOVREL_IMAGER_TYPE", "1", 1);  // no GetEngineType there
        }
        EngineControls chosen;
        chosen.Reset();
        chosen.Geometry(c.width, c.height, 0);
        DWORD flags = c.flags;
        EXPECT_EQ(Init(u"", &flags), c.expected);
        EXPECT_EQ(tovGetImagerFullWidth(), c.full);
        EXPECT_EQ(tovGetImagerPreviewWidth(), c.preview);
        EXPECT_EQ(tovGetImagerPreviewHeight(), c.full ? 160u : 0u);
        tovUninitCamera();
        EXPECT_TRUE(chosen.Idle());
        unsetenv("TOVREL_ENGINE");
        unsetenv("TOVREL_IMAGER_TYPE");
    }
}

// The engine's view at each moment of a capture, and what capture returns.
TEST_F(CameraTest, EngineViewThroughACapture) {
    ASSERT_EQ(Init(), 0u);
    auto view = [&] {
        return std::to_string(engine.Read("QdxCtlIllumination")) + "/" + std::to_string(engine.Read("QdxCtlAimer")) +
               "/" + std::to_string(engine.Read("QdxCtlScanning"));
    };
    EXPECT_EQ(view(), "0/0/0");  // not told at start-up
    Dib h(tovCreateHDIB());
    ASSERT_NE(h.h, nullptr);
    EXPECT_EQ(DibWidth(h), 640);
    EXPECT_EQ(tovStopCapture(), DWORD(tovErrorNotCapturing));
    ASSERT_EQ(tovStartCapture(), 0u);
    EXPECT_EQ(view(), "1/2/1");  // the profile's values
    EXPECT_EQ(tovStartCapture(), DWORD(tovErrorAlreadyCapturing));
    ASSERT_EQ(tovSetAimer(5), 0u);  // reaches the engine at once
    EXPECT_EQ(view(), "1/5/1");
    ASSERT_EQ(tovCaptureImage(h, tovCaptureFull), 0u);
    Dib other(tovCreateCopyHDIB(h));
    ASSERT_EQ(tovCaptureImage(h, tovCaptureFull), 0u);
    EXPECT_NE(StoreBytes(h), StoreBytes(other));  // two grabs differ
    const uint32_t before = engine.LogCount();
    ASSERT_EQ(tovStopCapture(), 0u);
    EXPECT_EQ(view(), "0/0/0");
    // The stop: aimer 0, four grabs, stop scanning, illumination 0.
    std::string calls;
    QdxCall call;
    for (uint32_t i = before; engine.LogEntry(i, &call); ++i)
        calls += std::to_string(call.ordinal) + "(" + std::to_string(call.value) + ") ";
    EXPECT_EQ(calls, "13(0) 7(640) 7(640) 7(640) 7(640) 9(0) 12(0) ");
    // After the stop the last frame is delivered again, and the profile keeps its values.
    ASSERT_EQ(tovCaptureImage(h, tovCaptureFull), 0u);
    ASSERT_EQ(tovCaptureImage(other, tovCaptureFull), 0u);
    EXPECT_EQ(StoreBytes(h), StoreBytes(other));
    LONG aimer = 0;
    EXPECT_EQ(tovGetAimer(&aimer), 0u);
    EXPECT_EQ(aimer, 5);
    // A grab that fails leaves the capture running.
    ASSERT_EQ(tovStartCapture(), 0u);
    engine.Fail(7);
    EXPECT_EQ(tovCaptureImage(h, tovCaptureFull), DWORD(tovErrorUnknown));
    engine.Fail(13);
    EXPECT_EQ(tovSetAimer(1), DWORD(tovErrorUnknown));
    EXPECT_EQ(tovGetAimer(&aimer), 0u);
    EXPECT_EQ(aimer, 1);
    // Bad bitmaps and modes.
    EXPECT_EQ(tovCaptureImage(nullptr, tovCaptureFull), DWORD(DibErrorInvalidDIB));
    Dib four(MakePatterned(9, 9, 4));
    EXPECT_EQ(tovCaptureImage(four, 7), 0u);
    EXPECT_EQ(DibBitCount(four), 8);
    EXPECT_EQ(DibWidth(four), 9);
}

// Copies against the frame recomputed here, for both widths, both
// orientations, full and preview.
TEST_F(CameraTest, FrameCopiesFollowTheFormula) {
    for (LONG W : {640, 752})
        for (uint32_t orientation : {0u, 2u}) {
            SCOPED_TRACE(testing::Message() << W << " wide, orientation " << orientation);
            std::string pgm = "P5\n" + std::to_string(W) + " 480\n255\n", frame;
            for (LONG y = 0; y < 480; ++y)
                for (LONG x = 0; x < W; ++x) frame += char((x * 7 + y * 13 + x * y) & 255);
            WriteBytes("frame.pgm", pgm + frame);
            setenv("TOVREL_ENGINE_SOURCE", ("files:" + dir.File("frame.pgm")).c_str(), 1);
            engine.Reset();
            unsetenv("TOVREL_ENGINE_SOURCE");
            engine.Geometry(uint32_t(W), 480, orientation);
            DWORD flags = 0x300;
            ASSERT_EQ(Init(u"", &flags), 0u);
            ASSERT_EQ(tovStartCapture(), 0u);
            // The engine delivers a turned imager's frame turned.
            std::string delivered = orientation == 2 ? std::string(frame.rbegin(), frame.rend()) : frame;
            const LONG w = W == 640 ? 212 : 250, d = (W - 3 * w + 2) / 2;
            for (DWORD mode : {tovCaptureFull, tovCapturePreview}) {
                Dib h(MakePatterned(5, 5, 1));
                ASSERT_EQ(tovCaptureImage(h, mode), 0u);
                const bool preview = mode == tovCapturePreview;
                ASSERT_EQ(DibWidth(h), preview ? w : W);
                ASSERT_EQ(DibHeight(h), preview ? 160 : 480);
                int wrong = 0;
                for (LONG y = 0; y < DibHeight(h); ++y)
                    for (LONG x = 0; x < DibWidth(h); ++x) {
                        LONG row = preview ? 3 * y : y, column = preview ? 3 * x + d : x;
                        if (orientation == 2) row = 479 - row, column = W - 1 - column;
                        wrong += LONG(StorePixel(h, x, y)) != Pixel(delivered, W, row, column);
                    }
                EXPECT_EQ(wrong, 0) << "mode " << mode;
            }
            tovUninitCamera();
        }
}

TEST_F(CameraTest, ExposureSectionsAndClamping) {
    DWORD mode = 9;
    EXPECT_EQ(tovGetExposureMode(&mode), DWORD(tovErrorNotInitialized));
    ASSERT_EQ(Init(u"Both"), 0u);
    ASSERT_EQ(tovGetExposureMode(&mode), 0u);
    EXPECT_EQ(mode, 2u);
    EsPair pairs[] = {{1, 0}, {12, 0}};
    ASSERT_EQ(tovGetExposureSettings(pairs, sizeof pairs), 0u);
    EXPECT_EQ(pairs[0].value, 255);  // 300 clamped at start-up
    EXPECT_EQ(engine.Setting(1), 255);
    pairs[1].value = 100;
    ASSERT_EQ(tovSetExposureSettings(pairs, sizeof pairs), 0u);
    EXPECT_EQ(pairs[1].value, 200);
    EXPECT_EQ(engine.Setting(12), 200);
    for (DWORD id : {6u, 7u, 8u, 14u, 17u}) {
        EsPair bad = {id, 1};
        EXPECT_EQ(tovGetExposureSettings(&bad, 8), DWORD(DibErrorInvalidParm)) << id;
        EXPECT_EQ(tovSetExposureSettings(&bad, 8), DWORD(DibErrorInvalidParm)) << id;
    }
    EsPair many[18] = {};
    for (DWORD size : {0u, 4u, 12u, 144u}) EXPECT_EQ(tovGetExposureSettings(many, size), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(tovGetExposureSettings(nullptr, 8), DWORD(DibErrorInvalidParm));
    // To fixed and back: the automatic values return to their defaults.
    ASSERT_EQ(tovSetExposureMode(0), 0u);
    EXPECT_EQ(engine.Read("QdxCtlExposureMode"), 0);
    EsPair fixedExp = {14, 0};
    ASSERT_EQ(tovGetExposureSettings(&fixedExp, 8), 0u);
    EXPECT_EQ(fixedExp.value, 255);
    ASSERT_EQ(tovSetExposureMode(2), 0u);
    ASSERT_EQ(tovGetExposureSettings(pairs, sizeof pairs), 0u);
    EXPECT_EQ(pairs[0].value, 150);
    EXPECT_EQ(pairs[1].value, 240);
    EXPECT_EQ(tovSetExposureMode(1), DWORD(DibErrorInvalidParm));
    engine.Fail(15);
    EXPECT_EQ(tovSetExposureMode(0), DWORD(tovErrorUnknown));
    EXPECT_EQ(Text(tovProfileESParmIDToName(16)), "Fixed Frame Rate");
    EXPECT_EQ(tovProfileESParmIDToName(7), nullptr);
}

TEST_F(CameraTest, RevisionProcessingAndDisplaySizes) {
    WCHAR text[64];
    EXPECT_EQ(tovGetScanDriverRevision(text), DWORD(tovErrorNotInitialized));
    ASSERT_EQ(Init(u"Inverted"), 0u);
    ASSERT_EQ(tovGetScanDriverRevision(text), 0u);
    EXPECT_EQ(N(text), "1.0");
    EXPECT_EQ(tovGetScanDriverRevision(nullptr), DWORD(DibErrorInvalidParm));
    // A buffer that just holds "1.0" before an unreadable page is enough.
    GuardedPage guard;
    EXPECT_EQ(tovGetScanDriverRevision(reinterpret_cast<WCHAR*>(guard.End()) - 4), 0u);
    EXPECT_EQ(tovGetScanDriverRevision(reinterpret_cast<WCHAR*>(guard.End()) - 3), DWORD(tovErrorBadOutputBuffer));
    const struct { const char16_t* raw; const char* reduced; } revisions[] = {
        {u"Scan Driver V1.02 beta", "V1.02"}, {u"Rev 2.3.1", "2.3.1"}, {u"no digits", "no digits"},
        {u"abc 1 2 3 xyz", "1 2 3"}, {u"1.2.3", "1.2.3"},
    };
    for (const auto& r : revisions) {
        WCHAR out[64];
        cmReduceRevision(r.raw, out);
        EXPECT_EQ(N(out), r.reduced);
    }
    // "Flags" 0: the chain passes over pictures of the preview size only.
    Dib preview(MakePatterned(212, 160, 8)), full(MakePatterned(212, 161, 8));
    const auto before = StoreBytes(preview), fullBefore = StoreBytes(full);
    ASSERT_EQ(tovProcessImage(preview, preview), 0u);
    ASSERT_EQ(tovProcessImage(full, full), 0u);
    EXPECT_EQ(StoreBytes(preview), before);
    EXPECT_NE(StoreBytes(full), fullBefore);
}

TEST_F(CameraTest, AllocationFailureOnStartAndCapture) {
    long sites = ForEachAllocationFailure([&](long n) {
        LeakGuard guard;
        DWORD r = Init();
        if (r == 0) {
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

// Capture with processing on one thread while others change the chain's
// inputs, the settings and read sizes, and another opens and closes.
TEST_F(CameraTest, ConcurrentCaptureSettingsAndSessions) {
    ASSERT_EQ(Init(u"Inverted"), 0u);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        Dib h(MakePatterned(8, 8, 8));
        while (!stop) {
            tovStartCapture();
            tovCaptureImage(h, tovCaptureFullProcessed);
            tovCaptureImage(h, tovCapturePreviewProcessed);
            tovStopCapture();
        }
    });
    threads.emplace_back([&] {
        for (LONG i = 0; !stop; ++i) {
            tovSetAimer(i & 1);
            tovSetIllumination(i & 1);
            EsPair pair = {1, LONG(100 + i % 100)};
            tovSetExposureSettings(&pair, 8);
            tovSetExposureMode(i % 2 ? 0 : 2);
            tovGetImagerFullWidth();
            tovGetImagerPreviewHeight();
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; i < 20; ++i) {
            tovUninitCamera();
            tovInitCamera(u"profiles.zpf", u"Inverted", nullptr);
        }
        stop = true;
    });
    for (std::thread& t : threads) t.join();
}
