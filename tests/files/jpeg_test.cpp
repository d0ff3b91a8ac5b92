// JPEG files: the public JPEG samples against libjpeg's own decompressor,
// files cut short, saved files read back by libjpeg, the temporary of other
// depths, quality, failing names and media, allocation failure, two threads,
// and a few golden trace lines.
#include "filestest.h"

#include <cstdio>
#include <jerror.h>
#include <jpeglib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <thread>

using namespace filestest;

namespace {

std::string SampleDir() { return tovtest::TestDataDir() + "/jpeg"; }

void ExpectPixels(HDIB h, const Decoded& d) {
    ASSERT_EQ(DibWidth(h), LONG(d.width));
    ASSERT_EQ(DibHeight(h), LONG(d.height));
    ASSERT_EQ(DibBitCount(h), 8);
    ASSERT_EQ(DibNumColors(h), 256u);
    int bad = 0;
    for (LONG y = 0; y < DibHeight(h); ++y)
        for (LONG x = 0; x < DibWidth(h); ++x) {
            DWORD want = d.samples[size_t(y) * d.width + x];
            if (StorePixel(h, x, y) != want && bad++ < 5)
                ADD_FAILURE() << StorePixel(h, x, y) << " vs " << want << " at (" << x << "," << y << ")";
        }
}

HDIB MakeSmooth(LONG width, LONG height) {
    HDIB h = tovCreateHDIBExt(width, height, 0, 8);
    for (LONG y = 0; y < height; ++y)
        for (LONG x = 0; x < width; ++x) StoreSetPixel(h, x, y, Smooth(x, y));
    return h;
}

}  // namespace

TEST(Jpeg, SamplesLoadAsLibjpegsGreyOrRefuse) {
    std::vector<std::string> files = FilesIn(SampleDir(), ".jpg");
    ASSERT_GE(files.size(), 9u);
    std::set<std::string> loaded;
    for (const std::string& path : files) {
        std::string name = BaseName(path);
        SCOPED_TRACE(name);
        DecodedJpeg oracle = OracleJpeg(tovtest::ReadFileBytes(path));
        LeakGuard guard;
        HDIB h = tovLoadJPG(Wide(path).c_str());
        if (oracle.ok && !oracle.endedEarly) {
            ASSERT_NE(h, nullptr);
            ExpectPixels(h, oracle);
            loaded.insert(name);
            DibUnload(h);
        } else {
            EXPECT_EQ(h, nullptr);
            if (h) DibUnload(h);
        }
    }
    // Grey and colour files of every coding load (colour as luminance); 12
    // bits, CMYK and a cut file do not.
    for (const char* name : {"hopper_gray.jpg", "hopper.jpg", "testorig.jpg", "testimgint.jpg", "testimgari.jpg",
                             "skater-progressive.jpg"})
        EXPECT_TRUE(loaded.count(name)) << name;
    for (const char* name : {"monkey12.jpg", "pil_sample_cmyk.jpg", "truncated_jpeg.jpg"})
        EXPECT_FALSE(loaded.count(name)) << name;
}

// libjpeg would pad a cut file with grey and only warn; here it is NULL,
// wherever the cut falls, with nothing left behind.
TEST(Jpeg, FilesCutShortGiveNull) {
    tovtest::ScratchDir dir;
    std::string whole = tovtest::ReadFileBytes(SampleDir() + "/hopper_gray.jpg");
    ASSERT_GT(whole.size(), 1000u);
    LeakGuard guard;
    for (size_t cut = 0; cut < whole.size(); cut += (cut < 700 ? 37 : 211)) {
        SCOPED_TRACE(cut);
        WriteBytes("cut.jpg", whole.substr(0, cut));
        EXPECT_EQ(DibJPGLoad(u"cut.jpg"), nullptr);
    }
    WriteBytes("cut.jpg", whole.substr(0, whole.size() - 2));  // only the end marker missing
    EXPECT_EQ(DibJPGLoad(u"cut.jpg"), nullptr);
    WriteBytes("cut.jpg", whole);
    HDIB h = DibJPGLoad(u"cut.jpg");
    EXPECT_NE(h, nullptr);
    if (h) DibUnload(h);
}

// What is written is a baseline grey JPEG that libjpeg reads back to the same
// picture the loader gives, close to the bitmap at high quality; other
// depths are written as their 8-bit conversion, and the caller's bitmap
// keeps its depth and pixels.
TEST(Jpeg, SavedFilesReadBackByLibjpeg) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            HDIB h = bits == 8 ? MakeSmooth(width, 9) : MakePatterned(width, 9, bits, 5);
            std::vector<BYTE> before = StoreBytes(h);
            ASSERT_EQ(tovSaveJPG(h, u"pic", 100), 0u);
            EXPECT_EQ(DibBitCount(h), bits);
            EXPECT_EQ(StoreBytes(h), before);
            std::string bytes = tovtest::ReadFileBytes("pic.jpg");
            DecodedJpeg d = OracleJpeg(bytes);
            ASSERT_TRUE(d.ok) << d.message;
            EXPECT_FALSE(d.endedEarly);
            EXPECT_EQ(d.components, 1);
            ASSERT_EQ(d.width, uint32_t(width));
            ASSERT_EQ(d.height, 9u);
            HDIB back = tovLoadJPG(u"pic.jpg");
            ASSERT_NE(back, nullptr);
            ExpectPixels(back, d);
            DibUnload(back);

            HDIB eight = DibCreateCopy(h);
            ASSERT_EQ(DibConvert(eight, 8), 0u);
            if (bits == 8) {
                int worst = 0;
                for (LONG y = 0; y < 9; ++y)
                    for (LONG x = 0; x < width; ++x)
                        worst = std::max(worst, std::abs(int(StorePixel(eight, x, y)) - int(d.samples[y * width + x])));
                EXPECT_LE(worst, 2);
            } else {
                ASSERT_EQ(tovSaveJPG(eight, u"eight", 100), 0u);
                EXPECT_EQ(tovtest::ReadFileBytes("eight.jpg"), bytes);
            }
            DibUnload(eight);
            DibUnload(h);
        }
    }
}

// An 8-bit bitmap with a short colour table goes through the temporary; its
// bytes are written as they stand.
TEST(Jpeg, ShortColourTableWritesTheSamePicture) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    HDIB h = MakeSmooth(40, 30);
    std::vector<BYTE> block(40 + 16 * 4, 0);
    auto* info = reinterpret_cast<BITMAPINFO*>(block.data());
    info->bmiHeader = h->ds.dsBmih;
    info->bmiHeader.biClrUsed = 16;
    HDIB shortTable = DibCreateFromBitmapInfo(info);
    ASSERT_NE(shortTable, nullptr);
    std::vector<BYTE> pixels = StoreBytes(h);
    std::copy(pixels.begin(), pixels.end(), shortTable->pBits);
    ASSERT_EQ(DibNumColors(shortTable), 16u);
    ASSERT_EQ(tovSaveJPG(h, u"full", 75), 0u);
    ASSERT_EQ(tovSaveJPG(shortTable, u"short", 75), 0u);
    EXPECT_EQ(tovtest::ReadFileBytes("short.jpg"), tovtest::ReadFileBytes("full.jpg"));
    EXPECT_EQ(DibNumColors(shortTable), 16u);
    DibUnload(shortTable);
    DibUnload(h);
}

TEST(Jpeg, QualityRange) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    HDIB h = MakePatterned(64, 48, 8, 1);
    struct Case {
        DWORD quality;
        DWORD expected;
    } cases[] = {{0, 0}, {1, 0}, {50, 0}, {100, 0}, {101, 7}, {0xFFFFFFFFu, 7}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.quality);
        std::remove("qq.jpg");
        EXPECT_EQ(tovSaveJPG(h, u"qq", c.quality), c.expected);
        EXPECT_EQ(tovtest::FileExists("qq.jpg"), c.expected == 0);
    }
    ASSERT_EQ(tovSaveJPG(h, u"low", 10), 0u);
    ASSERT_EQ(tovSaveJPG(h, u"high", 95), 0u);
    EXPECT_LT(tovtest::ReadFileBytes("low.jpg").size(), tovtest::ReadFileBytes("high.jpg").size());
    DibUnload(h);
}

TEST(Jpeg, BadNamesAndMediaGiveTheirCodes) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    HDIB h = MakePatterned(9, 4, 4);
    ASSERT_EQ(symlink("/dev/full", "full.jpg"), 0);
    std::u16string longName(300, u'a');
    struct Case {
        const char* what;
        const WCHAR* name;
        DWORD expected;
    } cases[] = {
        {"null name", nullptr, DibErrorInvalidParm},
        {"unreadable name", reinterpret_cast<const WCHAR*>(uintptr_t(16)), DibErrorInvalidParm},
        {"one character", u"a", tovErrorBadFileName},
        {"overlong name", longName.c_str(), tovErrorBadFileName},
        {"missing directory", u"no/such/dir/pic", DibErrorFileCreation},
        {"full medium", u"full", DibErrorUnknown},
        {"a directory", u"folder.jpg", DibErrorFileCreation},
    };
    ASSERT_EQ(mkdir("folder.jpg", 0755), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(tovSaveJPG(h, c.name, 80), c.expected);
        EXPECT_EQ(tovLoadJPG(c.name), nullptr);
        EXPECT_EQ(tovSave(h, c.name, tovFormatJPG, 80), c.expected);
    }
    EXPECT_EQ(DibJPGSave(nullptr, 80, h), DibErrorInvalidParm);
    EXPECT_EQ(DibJPGSave(u"/dev/full", 80, h), DibErrorUnknown);
    EXPECT_EQ(DibJPGLoad(nullptr), nullptr);
    EXPECT_EQ(tovLoadJPG(u"missing"), nullptr);
    EXPECT_EQ(tovSaveJPG(nullptr, u"xy", 80), DibErrorInvalidDIB);
    EXPECT_FALSE(tovtest::FileExists("xy.jpg"));
    EXPECT_FALSE(tovtest::FileExists("a.jpg"));
    DibUnload(h);
}

TEST(Jpeg, AllocationFailureAtEverySite) {
    tovtest::ScratchDir dir;
    HDIB h = MakePatterned(31, 9, 4, 2);  // 4 bits: the temporary's allocations too
    ASSERT_EQ(DibJPGSave(u"good.jpg", 80, h), 0u);
    std::string good = tovtest::ReadFileBytes("good.jpg");
    long saveSites = tovtest::ForEachAllocationFailure([&](long n) {
        SCOPED_TRACE(n);
        LeakGuard inner;
        DWORD result = DibJPGSave(u"fail.jpg", 80, h);
        EXPECT_TRUE(result == DibOk || result == DibErrorUnknown || result == DibErrorFileCreation) << result;
        if (result == DibOk) {
            EXPECT_EQ(tovtest::ReadFileBytes("fail.jpg"), good);
        }
    });
    EXPECT_GT(saveSites, 3);
    long loadSites = tovtest::ForEachAllocationFailure([&](long n) {
        SCOPED_TRACE(n);
        LeakGuard inner;
        HDIB back = DibJPGLoad(u"good.jpg");
        if (back) DibUnload(back);
    });
    EXPECT_GT(loadSites, 3);
    DibUnload(h);
}

TEST(Jpeg, TwoThreadsSaveAndLoadAtOnce) {
    tovtest::ScratchDir dir;
    long before = PlatLiveObjects();
    auto work = [](int id, bool* ok) {
        HDIB h = MakePatterned(40 + id, 30, 8, DWORD(id));
        std::u16string name = Wide("thread" + std::to_string(id) + ".jpg");
        std::vector<BYTE> first;
        for (int i = 0; i < 60 && *ok; ++i) {
            if (DibJPGSave(name.c_str(), 85, h) != DibOk) *ok = false;
            HDIB back = DibJPGLoad(name.c_str());
            if (!back) {
                *ok = false;
                break;
            }
            if (first.empty()) first = StoreBytes(back);
            if (StoreBytes(back) != first) *ok = false;
            DibUnload(back);
        }
        DibUnload(h);
    };
    bool ok0 = true, ok1 = true;
    std::thread a(work, 0, &ok0), b(work, 1, &ok1);
    a.join();
    b.join();
    EXPECT_TRUE(ok0);
    EXPECT_TRUE(ok1);
    EXPECT_EQ(PlatLiveObjects(), before);
}

TEST(Jpeg, TraceLines) {
    tovtest::ScratchDir dir;
    HDIB h = MakePatterned(5, 3, 1);
    WriteBytes("junk.jpg", "not a jpeg");
    tovtest::StartLog(8);
    ASSERT_EQ(tovSaveJPG(h, u"tr", 80), 0u);
    HDIB back = tovLoadJPG(u"tr");
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(tovLoadJPG(u"junk"), nullptr);
    EXPECT_EQ(tovLoadJPG(u"gone"), nullptr);
    tovtest::StopLog();
    std::string handle = std::to_string(reinterpret_cast<intptr_t>(h));
    std::string loaded = std::to_string(reinterpret_cast<intptr_t>(back));
    std::vector<std::string> want = {
        ">tovSaveJPG(" + handle + ",tr,80)\r",
        ">DibJPGSave(tr.jpg, 80, " + handle + ")\r",
        "   >DibBitCount(hdib)!=8\r",
        "<DibJPGSave()=DibOK\r",
        "<tovSaveJPG()=tovOk\r",
        ">tovLoadJPG(tr.jpg)\r",
        ">DibJPGLoad(tr.jpg)\r",
        "HDIB: " + loaded + "\r",
        "   ?DibWidth: 5\r",
        "<DibJPGLoad()\r",
        "<tovLoadJPG()=" + loaded + "\r",
        ">DibJPGLoad(junk.jpg)\r",
        "<DibJPGLoad()=NULL (Error=" + std::to_string(int(JERR_NO_SOI)) + ")\r",
        "<tovLoadJPG()=NULL (error)\r",
        "<DibJPGLoad()=NULL (CreateFile)\r",
    };
    size_t at = 0;
    for (const std::string& line : tovtest::LogLines()) {
        if (at < want.size() && line == want[at]) ++at;
    }
    EXPECT_EQ(at, want.size()) << "missing, in order: " << (at < want.size() ? want[at] : "");
    DibUnload(back);
    DibUnload(h);
}

// A frame header beyond the bitmap core's limits is refused before libjpeg
// or the library allocate for the picture.
TEST(Jpeg, HugeHeadersAreRefusedBeforeAllocation) {
    tovtest::ScratchDir dir;
    std::string bytes = tovtest::ReadFileBytes(SampleDir() + "/hopper_gray.jpg");
    size_t sof = bytes.find("\xFF\xC0");
    ASSERT_NE(sof, std::string::npos);
    LeakGuard guard;
    for (unsigned side : {65000u, 65500u}) {
        SCOPED_TRACE(side);
        std::string huge = bytes;
        huge[sof + 5] = huge[sof + 7] = char(side >> 8);  // height and width
        huge[sof + 6] = huge[sof + 8] = char(side & 0xFF);
        WriteBytes("huge.jpg", huge);
        long allocations = PlatAllocationCount();
        EXPECT_EQ(tovLoadJPG(u"huge.jpg"), nullptr);
        EXPECT_LT(PlatAllocationCount() - allocations, 10);
    }
}
