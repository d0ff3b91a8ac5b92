// The platform's module calls and the stand-in scan engine they load: its functions by ordinal, frames, settings,
// failures and counters through its control interface, picture files and video devices as its scene.
#include "dibimages.h"
#include "engine.h"
#include "enginecontrol.h"

#include <linux/videodev2.h>

#include <png.h>
#include <stdlib.h>

#include <cstring>
#include <string>

using namespace tovtest;

namespace {

typedef BOOL (*Void)(void);
typedef DWORD (*OpenSession)(void);
typedef BOOL (*OnSession)(DWORD);
typedef BYTE* (*Reserve)(DWORD);
typedef BOOL (*WithSpace)(DWORD, BYTE*);
typedef BOOL (*WithValue)(DWORD, LONG);
typedef BOOL (*WithPairs)(DWORD, const EsPair*, DWORD);

// An engine loaded for one test, reset, with one open session and space.
struct Engine : EngineControls {
    DWORD session = 0;
    BYTE* space = nullptr;
    explicit Engine(const char* path = TOV_ENGINE_PATH) : EngineControls(path) {
        if (m) Reset();
    }
    void Open() {
        ASSERT_TRUE(Proc<Void>(1)());
        ASSERT_NE(session = Proc<OpenSession>(3)(), 0u);
        ASSERT_NE(space = Proc<Reserve>(5)(session), nullptr);
    }
    bool Call(WORD ordinal, LONG value) { return Proc<WithValue>(ordinal)(session, value); }
    bool Space(WORD ordinal, DWORD s, BYTE* at) { return Proc<WithSpace>(ordinal)(s, at); }
    std::string Grab(WORD ordinal = 7, size_t bytes = 640 * 480) {
        return Space(ordinal, session, space) ? std::string(reinterpret_cast<char*>(space), bytes) : std::string();
    }
};

double Mean(const std::string& frame) {
    double sum = 0;
    for (unsigned char c : frame) sum += c;
    return frame.empty() ? 0 : sum / double(frame.size());
}

int At(const std::string& frame, size_t i) { return static_cast<unsigned char>(frame.at(i)); }

}  // namespace

TEST(Modules, EngineIsFoundAndResolvedByOrdinal) {
    unsetenv("TOVREL_ENGINE");
    HMODULE beside = LoadLibraryW(u"QdxEngine.DLL");  // found beside libtovplatform.so, in any case
    ASSERT_NE(beside, nullptr);
    for (WORD ordinal : {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 13, 15, 16, 20, 23, 24, 27})
        EXPECT_NE(GetProcAddressW(beside, MAKEINTRESOURCEW(ordinal)), nullptr) << ordinal;
    for (WORD ordinal : {0, 10, 11, 14, 17, 25, 26, 28, 999}) EXPECT_EQ(GetProcAddressW(beside, MAKEINTRESOURCEW(ordinal)), nullptr);
    EXPECT_EQ(GetProcAddressW(beside, u"NoSuchFunction"), nullptr);
    EXPECT_TRUE(FreeLibrary(beside));
    EXPECT_FALSE(FreeLibrary(beside));  // a closed handle is refused
    ScratchDir dir;
    WriteBytes("fake.so", "not a shared library");
    setenv("TOVREL_ENGINE", dir.File("fake.so").c_str(), 1);  // a missing one: the camera's start-up
    EXPECT_EQ(LoadLibraryW(u"qdxengine.dll"), nullptr);
    unsetenv("TOVREL_ENGINE");
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
    EXPECT_EQ(GetProcAddressW(reinterpret_cast<HMODULE>(uintptr_t(64)), u"x"), nullptr);
    EXPECT_FALSE(FreeLibrary(nullptr));
}

TEST(Modules, ImagerTypeWordAndDefaultProfileFile) {
    const struct {
        const char* env;  // nullptr: unset
        bool ok;
        DWORD word;
    } cases[] = {{nullptr, false, 7}, {"fail", false, 7}, {"", false, 7}, {"12x", false, 7}, {"65793", true, 65793}, {"-1", true, 0xFFFFFFFFu}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.env ? c.env : "unset");
        c.env ? setenv("TOVREL_IMAGER_TYPE", c.env, 1) : unsetenv("TOVREL_IMAGER_TYPE");
        DWORD word = 7, got = 0;
        EXPECT_EQ(KernelIoControl(PLAT_IOCTL_IMAGER_TYPE, nullptr, 0, &word, sizeof word, &got) != 0, c.ok);
        EXPECT_EQ(word, c.word);
        EXPECT_EQ(got, c.ok ? sizeof word : 0u);
    }
    unsetenv("TOVREL_IMAGER_TYPE");
    DWORD word;
    EXPECT_FALSE(KernelIoControl(0x1234, nullptr, 0, &word, sizeof word, nullptr));
    WCHAR path[64];
    for (const char* env : {"", "/tmp/mine.zpf"}) {
        *env ? setenv("TOVREL_PROFILES", env, 1) : unsetenv("TOVREL_PROFILES");
        ASSERT_TRUE(PlatDefaultProfileFile(path, 64));
        EXPECT_EQ(N(path), *env ? env : "/Brevane/ImagingProfiles.zpf");
    }
    EXPECT_FALSE(PlatDefaultProfileFile(path, 4));
    unsetenv("TOVREL_PROFILES");
}

// Frames follow the light: exposure, illumination, the aimer, the counter, the imager's geometry.
TEST(Engine, FramesFollowTheSettings) {
    Engine e;
    ASSERT_NE(e.m, nullptr);
    e.Open();
    ASSERT_TRUE(e.Proc<OnSession>(8)(e.session));
    const std::string first = e.Grab(), second = e.Grab();
    ASSERT_EQ(first.size(), 640u * 480u);
    EXPECT_TRUE(first != second);  // the frame counter
    const double lit = e.Call(12, 1) ? Mean(e.Grab()) : -1, dark = e.Call(12, 0) ? Mean(e.Grab()) : -1;  // illumination
    EXPECT_GT(lit, dark * 1.2);
    const EsPair target[] = {{1, 220}}, fixed[] = {{14, 60}, {15, 1}};
    ASSERT_TRUE(e.Proc<WithPairs>(16)(e.session, target, sizeof target));
    EXPECT_GT(Mean(e.Grab()), dark * 1.3);
    ASSERT_TRUE(e.Call(15, 0) && e.Proc<WithPairs>(16)(e.session, fixed, sizeof fixed));  // fixed exposure: 255 x 1 by default
    EXPECT_LT(Mean(e.Grab()), dark * 0.5);
    EXPECT_FALSE(e.Proc<WithPairs>(16)(e.session, fixed, 7));  // not whole pairs
    const std::string off = e.Grab();  // the aimer draws its line across the middle
    ASSERT_TRUE(e.Call(13, 1));
    EXPECT_EQ(Codes({At(off, 240 * 640 + 320) > 250, At(e.Grab(), 240 * 640 + 320), e.Read("QdxCtlAimer")}), "0 255 1");
    e.Geometry(752, 480, 0);
    EXPECT_EQ(e.Grab(27, 752 * 480).size(), 752u * 480u);
    Engine twin;  // reset: the same frame number on a turned imager is the same frame reversed
    twin.Open();
    twin.Geometry(640, 480, 2);
    ASSERT_TRUE(twin.Proc<OnSession>(8)(twin.session));
    std::string turned = twin.Grab();
    EXPECT_TRUE(std::string(turned.rbegin(), turned.rend()) == first);
}

// Failures on demand, the log, the counters, and bad arguments.
TEST(Engine, FailuresLogAndCounters) {
    Engine e;
    ASSERT_NE(e.m, nullptr);
    e.Fail(3, 1, 1);  // the second session fails to open
    e.Open();
    const DWORD failed = e.Proc<OpenSession>(3)(), other = e.Proc<OpenSession>(3)();
    EXPECT_TRUE(failed == 0 && other != 0);
    EXPECT_EQ(Codes({e.Read("QdxCtlOpenSessions"), e.Read("QdxCtlScanSpaces")}), "2 1");
    e.Fail(7, 0, -1);  // always, then no more
    EXPECT_EQ(Codes({e.Space(7, e.session, e.space), e.Space(7, e.session, e.space)}), "0 0");
    e.Fail(7, 0, 0);
    BYTE stray[16];  // wrong sessions and spaces are refused, never followed; a space is freed once
    EXPECT_EQ(Codes({e.Space(7, e.session, e.space), e.Space(7, other, e.space), e.Space(7, e.session, stray),
                     e.Space(6, e.session, stray), e.Proc<OnSession>(4)(12345), e.Proc<BOOL (*)(void*)>(24)(nullptr),
                     e.Space(6, e.session, e.space), e.Space(6, e.session, e.space), e.Proc<OnSession>(4)(e.session),
                     e.Proc<OnSession>(4)(other), e.Proc<Void>(2)()}), "1 0 0 0 0 0 1 0 1 1 1");
    EXPECT_TRUE(e.Idle());
    // The log holds every call in order, with its arguments and result.
    QdxCall first, fourth, last;
    const uint32_t count = e.LogCount();
    ASSERT_TRUE(e.LogEntry(0, &first) && e.LogEntry(3, &fourth) && e.LogEntry(count - 1, &last));
    EXPECT_EQ((std::vector<int32_t>{first.ordinal, fourth.ordinal, fourth.result, last.ordinal}), (std::vector<int32_t>{1, 3, 0, 2}));
    EXPECT_FALSE(e.LogEntry(count, &last));
}

// Picture files replace the scene: PGM and PNG, scaled to the frame, in name order, again from the first.
TEST(Engine, FramesFromPictureFiles) {
    ScratchDir dir;
    WriteBytes("a.pgm", "P5\n# two columns\n2 2\n255\n\x10\x20\x30\x40");
    WriteBytes("tall.pgm", "P5\n1 16384\n255\n" + std::string(16384, '\x50'));  // as large as is taken
    auto writePng = [](const char* name, uint32_t width, const std::vector<BYTE>& rgb) {
        png_image image;
        std::memset(&image, 0, sizeof image);
        image.version = PNG_IMAGE_VERSION;
        image.width = width;
        image.height = 1;
        image.format = PNG_FORMAT_RGB;
        return png_image_write_to_file(&image, name, 0, rgb.data(), 0, nullptr);
    };
    ASSERT_TRUE(writePng("b.png", 1, {255, 0, 0}));
    WriteBytes("ignored.txt", "x");
    setenv("TOVREL_ENGINE_SOURCE", ("files:" + dir.path()).c_str(), 1);
    Engine e;
    unsetenv("TOVREL_ENGINE_SOURCE");
    ASSERT_NE(e.m, nullptr);
    e.Open();
    const std::string a = e.Grab(), b = e.Grab(), tall = e.Grab(), again = e.Grab();
    ASSERT_EQ(a.size(), 640u * 480u);
    EXPECT_EQ(Codes({At(tall, 0), At(tall, 640 * 480 - 1)}), "80 80");
    for (auto [at, value] : {std::pair<size_t, int>{0, 0x10}, {639, 0x20}, {479 * 640, 0x30}, {479 * 640 + 639, 0x40}})
        EXPECT_EQ(At(a, at), value) << at;
    EXPECT_TRUE(b == std::string(640 * 480, char(b[0])));  // one red pixel, as grey
    EXPECT_TRUE(At(b, 0) > 0 && At(b, 0) < 255) << At(b, 0);
    EXPECT_TRUE(again == a);
    WriteBytes("a.pgm", "P5\n2 2\n255\n");  // cut short: its grab fails
    EXPECT_EQ(Codes({e.Grab().empty(), e.Grab().empty(), e.Grab().empty(), e.Grab().empty()}), "0 0 1 1");
    ASSERT_TRUE(writePng("wide.png", 16385, std::vector<BYTE>(16385 * 3)));  // a row too long is refused
    setenv("TOVREL_ENGINE_SOURCE", ("files:" + dir.File("wide.png")).c_str(), 1);
    Engine wide;
    unsetenv("TOVREL_ENGINE_SOURCE");
    wide.Open();
    EXPECT_TRUE(wide.Grab().empty());
}

// A camera through V4L2: the format taken, the luma of each format, and a device that is missing or no camera.
TEST(Engine, VideoDeviceFormatsAndAbsence) {
    const uint32_t grey = v4l2_fourcc('G', 'R', 'E', 'Y'), yuyv = v4l2_fourcc('Y', 'U', 'Y', 'V'),
                   uyvy = v4l2_fourcc('U', 'Y', 'V', 'Y'), nv12 = v4l2_fourcc('N', 'V', '1', '2'),
                   mjpeg = v4l2_fourcc('M', 'J', 'P', 'G');
    EXPECT_EQ(qdx::ChooseV4l2Format({mjpeg, yuyv, grey}), grey);
    EXPECT_EQ(qdx::ChooseV4l2Format({uyvy, yuyv}), yuyv);
    EXPECT_EQ(qdx::ChooseV4l2Format({mjpeg}), 0u);
    // A 4x2 picture with luma 10 * (y * 4 + x), in each layout, scaled twice.
    const struct { uint32_t format; int step, first; } layouts[] = {{grey, 1, 0}, {nv12, 1, 0}, {yuyv, 2, 0}, {uyvy, 2, 1}};
    for (const auto& l : layouts) {
        std::vector<uint8_t> data(size_t(2 * 4 * l.step) + 8, 99);
        for (int i = 0; i < 8; ++i) data[size_t(i * l.step + l.first)] = uint8_t(10 * i);
        uint8_t out[8 * 4];
        ASSERT_TRUE(qdx::ExtractLuma(l.format, data.data(), data.size(), 4, 2, 4 * l.step, out, 8, 4));
        EXPECT_EQ(std::to_string(out[0]) + " " + std::to_string(out[7]) + " " + std::to_string(out[8 * 3 + 2]), "0 30 50");
        EXPECT_FALSE(qdx::ExtractLuma(l.format, data.data(), 4, 4, 2, 4 * l.step, out, 8, 4));  // too short
    }
    uint8_t out[4];
    EXPECT_FALSE(qdx::ExtractLuma(mjpeg, out, 4, 1, 1, 1, out, 1, 1));
    for (const char* device : {"/dev/video-none", "/dev/null"}) {
        qdx::V4l2Source source;
        EXPECT_FALSE(source.Open(device, 640, 480) || source.Draw(out, 1, 1)) << device;
    }
    setenv("TOVREL_ENGINE_SOURCE", "v4l2:/dev/video-none", 1);  // through the engine: no scan space
    Engine e;
    unsetenv("TOVREL_ENGINE_SOURCE");
    ASSERT_TRUE(e.Proc<Void>(1)());
    DWORD session = e.Proc<OpenSession>(3)();
    EXPECT_EQ(e.Proc<Reserve>(5)(session), nullptr);
    e.Proc<OnSession>(4)(session);
}
