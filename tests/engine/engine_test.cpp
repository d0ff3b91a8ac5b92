// The platform's module calls and the stand-in scan engine they load: its functions by ordinal, picture files
// and video devices as its scene. The camera tests drive its frames, settings and failures.
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
    bool Space(WORD ordinal, DWORD s, BYTE* at) { return Proc<WithSpace>(ordinal)(s, at); }
    std::string Grab(WORD ordinal = 7, size_t bytes = 640 * 480) {
        return Space(ordinal, session, space) ? std::string(reinterpret_cast<char*>(space), bytes) : std::string();
    }
};

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
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
    EXPECT_EQ(GetProcAddressW(reinterpret_cast<HMODULE>(uintptr_t(64)), u"x"), nullptr);
    EXPECT_FALSE(FreeLibrary(nullptr));
}

TEST(Modules, ImagerTypeWordAndDefaultProfileFile) {
    const struct { const char* env; bool ok; DWORD word; } cases[] = {  // env nullptr: unset
        {nullptr, false, 7}, {"fail", false, 7}, {"", false, 7}, {"12x", false, 7}, {"65793", true, 65793}, {"-1", true, 0xFFFFFFFFu}};
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

// Picture files replace the scene: PGM and PNG, scaled to the frame, in name order, again from the first.
TEST(Engine, FramesFromPictureFiles) {
    ScratchDir dir;
    WriteBytes("a.pgm", "P5\n# two columns\n2 2\n255\n\x10\x20\x30\x40");
    png_image image;  // one red pixel
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = image.height = 1;
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
    for (auto [at, value] : {std::pair<size_t, int>{0, 0x10}, {639, 0x20}, {479 * 640, 0x30}, {479 * 640 + 639, 0x40}})
        EXPECT_EQ(At(a, at), value) << at;
    EXPECT_TRUE(b == std::string(640 * 480, char(b[0])));  // as grey
    EXPECT_TRUE(At(b, 0) > 0 && At(b, 0) < 255) << At(b, 0);
    EXPECT_TRUE(again == a);
    WriteBytes("a.pgm", "P5\n2 2\n255\n");  // cut short: its grab fails
    EXPECT_EQ(Codes({e.Grab().empty(), e.Grab().empty(), e.Grab().empty()}), "0 1 1");
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
