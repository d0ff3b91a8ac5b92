// The platform's module calls and the stand-in scan engine they load: its functions by ordinal, and video devices
// as its scene. The camera tests drive its frames (from picture files too), settings, failures and counters.
#include <gtest/gtest.h>

#include "engine.h"
#include "testsupport.h"

#include <linux/videodev2.h>

#include <stdlib.h>

#include <string>

using namespace tovtest;

TEST(Modules, EngineIsFoundAndResolvedByOrdinal) {
    unsetenv("TOVREL_ENGINE");
    HMODULE beside = LoadLibraryW(u"QdxEngine.DLL");  // found beside libtovplatform.so, in any case
    ASSERT_NE(beside, nullptr);
    EXPECT_NE(GetProcAddressW(beside, MAKEINTRESOURCEW(27)), nullptr);  // the camera tests use the others
    for (WORD ordinal : {0, 10, 11, 14, 17, 25, 26, 28, 999}) EXPECT_EQ(GetProcAddressW(beside, MAKEINTRESOURCEW(ordinal)), nullptr);
    EXPECT_EQ(GetProcAddressW(beside, u"NoSuchFunction"), nullptr);
    EXPECT_TRUE(FreeLibrary(beside));
    EXPECT_FALSE(FreeLibrary(beside));  // a closed handle is refused
    EXPECT_EQ(LoadLibraryW(nullptr), nullptr);
    EXPECT_EQ(GetProcAddressW(reinterpret_cast<HMODULE>(uintptr_t(64)), u"x"), nullptr);
}

// The imager type word the camera tests set; an unknown control code; the default profile file.
TEST(Modules, ImagerTypeWordAndDefaultProfileFile) {
    const struct { const char* env; bool ok; DWORD word; } cases[] = {{"12x", false, 7}, {"-1", true, 0xFFFFFFFFu}};
    for (const auto& c : cases) {
        setenv("TOVREL_IMAGER_TYPE", c.env, 1);
        DWORD word = 7, got = 0;
        EXPECT_EQ(KernelIoControl(PLAT_IOCTL_IMAGER_TYPE, nullptr, 0, &word, sizeof word, &got) != 0, c.ok) << c.env;
        EXPECT_EQ(Codes({word, got}), Codes({c.word, c.ok ? DWORD(sizeof word) : 0})) << c.env;
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
}
