// The platform's module calls and the stand-in scan engine they load: the
// engine found by the environment or beside the platform library, functions
// by ordinal, the imager type word, the default profile file, and the
// engine's frames, settings, failures and counters through its control
// interface.
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
typedef BOOL (*WithInfo)(void*);

// An engine loaded for one test, reset, with one open session and space.
struct Engine : EngineControls {
    DWORD session = 0;
    BYTE* space = nullptr;
    explicit Engine(const char* path = TOV_ENGINE_PATH) : EngineControls(path) {
        if (m) Reset();
    }
    void Open() {
        ASSERT_TRUE(Proc<Void>(1)());
        session = Proc<OpenSession>(3)();
        ASSERT_NE(session, 0u);
        space = Proc<Reserve>(5)(session);
        ASSERT_NE(space, nullptr);
    }
    std::string Grab(WORD ordinal = 7, size_t bytes = 640 * 480) {
        if (!Proc<WithSpace>(ordinal)(session, space)) return std::string();
        return std::string(reinterpret_cast<char*>(space), bytes);
    }
};

double Mean(const std::string& frame) {
    double sum = 0;
    for (unsigned char c : frame) sum += c;
    return frame.empty() ? 0 : sum / double(frame.size());
}

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
    Engine basic(TOV_ENGINE_BASIC_PATH);
    ASSERT_NE(basic.m, nullptr);
    EXPECT_EQ(GetProcAddressW(basic.m, MAKEINTRESOURCEW(23)), nullptr);
    EXPECT_EQ(GetProcAddressW(basic.m, MAKEINTRESOURCEW(27)), nullptr);
    EXPECT_NE(GetProcAddressW(basic.m, MAKEINTRESOURCEW(7)), nullptr);
    // Not a library, no library, garbage handles.
    ScratchDir dir;
    WriteBytes("fake.so", "not a shared library");
    setenv("TOVREL_ENGINE", dir.File("fake.so").c_str(), 1);
    EXPECT_EQ(LoadLibraryW(u"qdxengine.dll"), nullptr);
    setenv("TOVREL_ENGINE", "/no/such/engine.so", 1);
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
    } cases[] = {{nullptr, false, 0}, {"fail", false, 0}, {"", false, 0}, {"12x", false, 0},
                 {"65793", true, 65793}, {"-1", true, 0xFFFFFFFFu}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.env ? c.env : "unset");
        if (c.env) setenv("TOVREL_IMAGER_TYPE", c.env, 1);
        else unsetenv("TOVREL_IMAGER_TYPE");
        DWORD word = 7, got = 0;
        EXPECT_EQ(KernelIoControl(PLAT_IOCTL_IMAGER_TYPE, nullptr, 0, &word, sizeof word, &got) != 0, c.ok);
        if (c.ok) {
            EXPECT_EQ(word, c.word);
            EXPECT_EQ(got, sizeof word);
        }
    }
    unsetenv("TOVREL_IMAGER_TYPE");
    DWORD word;
    EXPECT_FALSE(KernelIoControl(0x1234, nullptr, 0, &word, sizeof word, nullptr));
    WCHAR path[64];
    unsetenv("TOVREL_PROFILES");
    ASSERT_TRUE(PlatDefaultProfileFile(path, 64));
    EXPECT_EQ(N(path), "/Brevane/ImagingProfiles.zpf");
    setenv("TOVREL_PROFILES", "/tmp/mine.zpf", 1);
    ASSERT_TRUE(PlatDefaultProfileFile(path, 64));
    EXPECT_EQ(N(path), "/tmp/mine.zpf");
    EXPECT_FALSE(PlatDefaultProfileFile(path, 4));
    unsetenv("TOVREL_PROFILES");
}

// Frames follow the light: exposure, illumination, the aimer, the counter.
TEST(Engine, FramesFollowTheSettings) {
    Engine e;
    ASSERT_NE(e.m, nullptr);
    e.Open();
    ASSERT_TRUE(e.Proc<OnSession>(8)(e.session));
    const std::string first = e.Grab(), second = e.Grab();
    ASSERT_EQ(first.size(), 640u * 480u);
    EXPECT_TRUE(first != second);  // the frame counter
    ASSERT_TRUE(e.Proc<WithValue>(12)(e.session, 1));
    const double lit = Mean(e.Grab());
    ASSERT_TRUE(e.Proc<WithValue>(12)(e.session, 0));
    const double dark = Mean(e.Grab());
    EXPECT_GT(lit, dark * 1.2);
    const EsPair target[] = {{1, 220}};
    ASSERT_TRUE(e.Proc<WithPairs>(16)(e.session, target, sizeof target));
    EXPECT_GT(Mean(e.Grab()), dark * 1.3);
    ASSERT_TRUE(e.Proc<WithValue>(15)(e.session, 0));  // fixed exposure: 255 x 1 by default
    const EsPair fixed[] = {{14, 60}, {15, 1}};
    ASSERT_TRUE(e.Proc<WithPairs>(16)(e.session, fixed, sizeof fixed));
    EXPECT_LT(Mean(e.Grab()), dark * 0.5);
    EXPECT_FALSE(e.Proc<WithPairs>(16)(e.session, fixed, 7));  // not whole pairs
    // The aimer draws its line across the middle.
    const std::string off = e.Grab();
    ASSERT_TRUE(e.Proc<WithValue>(13)(e.session, 1));
    const std::string on = e.Grab();
    EXPECT_EQ(static_cast<unsigned char>(on[240 * 640 + 320]), 255);
    EXPECT_NE(static_cast<unsigned char>(off[240 * 640 + 320]), 255);
    EXPECT_EQ(e.Read("QdxCtlAimer"), 1);
    // A wide grab fills 752 columns; a turned imager delivers the same frame reversed.
    e.Geometry(752, 480, 0);
    EXPECT_EQ(e.Grab(27, 752 * 480).size(), 752u * 480u);
    Engine twin;  // the same frame number on a turned imager
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
    EXPECT_EQ(e.Proc<OpenSession>(3)(), 0u);
    DWORD other = e.Proc<OpenSession>(3)();
    EXPECT_NE(other, 0u);
    EXPECT_EQ(e.Read("QdxCtlOpenSessions"), 2);
    EXPECT_EQ(e.Read("QdxCtlScanSpaces"), 1);
    e.Fail(7, 0, -1);
    EXPECT_FALSE(e.Proc<WithSpace>(7)(e.session, e.space));
    EXPECT_FALSE(e.Proc<WithSpace>(7)(e.session, e.space));
    e.Fail(7, 0, 0);
    EXPECT_TRUE(e.Proc<WithSpace>(7)(e.session, e.space));
    // Wrong sessions and spaces are refused, never followed.
    BYTE stray[16];
    EXPECT_FALSE(e.Proc<WithSpace>(7)(other, e.space));
    EXPECT_FALSE(e.Proc<WithSpace>(7)(e.session, stray));
    EXPECT_FALSE(e.Proc<WithSpace>(6)(e.session, stray));
    EXPECT_FALSE(e.Proc<OnSession>(4)(12345));
    EXPECT_FALSE(e.Proc<WithInfo>(24)(nullptr));
    EXPECT_TRUE(e.Proc<WithSpace>(6)(e.session, e.space));
    EXPECT_FALSE(e.Proc<WithSpace>(6)(e.session, e.space));  // twice
    EXPECT_TRUE(e.Proc<OnSession>(4)(e.session));
    EXPECT_TRUE(e.Proc<OnSession>(4)(other));
    EXPECT_TRUE(e.Proc<Void>(2)());
    EXPECT_TRUE(e.Idle());
    // The log holds every call in order, with its arguments and result.
    QdxCall call;
    ASSERT_TRUE(e.LogEntry(0, &call));
    EXPECT_EQ(call.ordinal, 1);
    ASSERT_TRUE(e.LogEntry(3, &call));
    EXPECT_EQ(call.ordinal, 3);
    EXPECT_EQ(call.result, 0);
    const uint32_t count = e.LogCount();
    ASSERT_TRUE(e.LogEntry(count - 1, &call));
    EXPECT_EQ(call.ordinal, 2);
    EXPECT_FALSE(e.LogEntry(count, &call));
}

// Picture files replace the scene: PGM and PNG, scaled to the frame.
TEST(Engine, FramesFromPictureFiles) {
    ScratchDir dir;
    std::string pgm = "P5\n# two columns\n2 2\n255\n";
    pgm += std::string("\x10\x20\x30\x40", 4);
    WriteBytes("a.pgm", pgm);
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = 1;
    image.height = 1;
    image.format = PNG_FORMAT_RGB;
    const BYTE red[3] = {255, 0, 0};
    ASSERT_TRUE(png_image_write_to_file(&image, "b.png", 0, red, 0, nullptr));
    WriteBytes("ignored.txt", "x");
    setenv("TOVREL_ENGINE_SOURCE", ("files:" + dir.path()).c_str(), 1);
    Engine e;
    unsetenv("TOVREL_ENGINE_SOURCE");
    ASSERT_NE(e.m, nullptr);
    e.Open();
    const std::string a = e.Grab(), b = e.Grab(), again = e.Grab();
    ASSERT_EQ(a.size(), 640u * 480u);
    EXPECT_EQ(a[0], 0x10);
    EXPECT_EQ(a[639], 0x20);
    EXPECT_EQ(a[479 * 640], 0x30);
    EXPECT_EQ(a[479 * 640 + 639], 0x40);
    EXPECT_TRUE(b == std::string(640 * 480, char(b[0])));  // one red pixel, as grey
    EXPECT_GT(static_cast<unsigned char>(b[0]), 0);
    EXPECT_LT(static_cast<unsigned char>(b[0]), 255);
    EXPECT_TRUE(again == a);
    WriteBytes("a.pgm", "P5\n2 2\n255\n");  // cut short: its grab fails
    EXPECT_FALSE(e.Grab().empty());
    EXPECT_TRUE(e.Grab().empty());
}

// A camera through V4L2: the format taken, the luma of each format, and a
// device that is missing or no camera fails at once.
TEST(Engine, VideoDeviceFormatsAndAbsence) {
    const uint32_t grey = v4l2_fourcc('G', 'R', 'E', 'Y'), yuyv = v4l2_fourcc('Y', 'U', 'Y', 'V'),
                   uyvy = v4l2_fourcc('U', 'Y', 'V', 'Y'), nv12 = v4l2_fourcc('N', 'V', '1', '2'),
                   mjpeg = v4l2_fourcc('M', 'J', 'P', 'G');
    EXPECT_EQ(qdx::ChooseV4l2Format({mjpeg, yuyv, grey}), grey);
    EXPECT_EQ(qdx::ChooseV4l2Format({uyvy, yuyv}), yuyv);
    EXPECT_EQ(qdx::ChooseV4l2Format({mjpeg}), 0u);
    // A 4x2 picture with luma 10 * (y * 4 + x), in each layout.
    const struct { uint32_t format; int step, first; } layouts[] = {{grey, 1, 0}, {nv12, 1, 0}, {yuyv, 2, 0}, {uyvy, 2, 1}};
    for (const auto& l : layouts) {
        std::vector<uint8_t> data(size_t(2 * 4 * l.step) + 8, 99);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 4; ++x) data[size_t((y * 4 + x) * l.step + l.first)] = uint8_t(10 * (y * 4 + x));
        uint8_t out[8 * 4];
        ASSERT_TRUE(qdx::ExtractLuma(l.format, data.data(), data.size(), 4, 2, 4 * l.step, out, 8, 4));
        EXPECT_EQ(out[0], 0);
        EXPECT_EQ(out[7], 30);  // scaled twice: column 7 from column 3
        EXPECT_EQ(out[8 * 3 + 2], 50);
        EXPECT_FALSE(qdx::ExtractLuma(l.format, data.data(), 4, 4, 2, 4 * l.step, out, 8, 4));  // too short
    }
    uint8_t out[4];
    EXPECT_FALSE(qdx::ExtractLuma(mjpeg, out, 4, 1, 1, 1, out, 1, 1));
    for (const char* device : {"/dev/video-none", "/dev/null"}) {
        qdx::V4l2Source source;
        EXPECT_FALSE(source.Open(device, 640, 480)) << device;
        EXPECT_FALSE(source.Draw(out, 1, 1));
    }
    // Through the engine: the scan space of a missing camera is refused.
    setenv("TOVREL_ENGINE_SOURCE", "v4l2:/dev/video-none", 1);
    Engine e;
    unsetenv("TOVREL_ENGINE_SOURCE");
    ASSERT_TRUE(e.Proc<Void>(1)());
    DWORD session = e.Proc<OpenSession>(3)();
    EXPECT_EQ(e.Proc<Reserve>(5)(session), nullptr);
    e.Proc<OnSession>(4)(session);
}
