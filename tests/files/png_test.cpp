// PNG files: the public PNG suite against libpng's simplified reader, round
// trips at 1, 4 and 8 bits and odd widths, files checked by the independent
// reader, failing names and media, allocation failure at every site, two
// threads at once, the format switch, and a few golden trace lines.
#include "filestest.h"

#include <png.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <set>
#include <thread>

using namespace filestest;

namespace {

HDIB Load(const std::string& path) { return tovLoadPNG(Wide(path).c_str()); }

std::string SuiteDir() { return tovtest::TestDataDir() + "/pngsuite"; }

// What a strict grey loader makes of a file: 1, 4 and 8-bit grey and
// palette files that libpng itself can read; nothing else.
bool ShouldLoad(const PngHeader& h, const Decoded& oracle) {
    bool depth = h.depth == 1 || h.depth == 4 || h.depth == 8;
    bool type = h.colorType == 0 || h.colorType == 3;
    return h.parsed && depth && type && oracle.ok;
}

// Every pixel of the bitmap against the independent decode: grey samples
// scaled to 8 bits, palette indices through the file's own palette.
void ExpectSamePicture(HDIB h, const PngHeader& hdr, const std::string& bytes) {
    ASSERT_EQ(DibWidth(h), LONG(hdr.width));
    ASSERT_EQ(DibHeight(h), LONG(hdr.height));
    ASSERT_EQ(DibBitCount(h), hdr.depth);
    ASSERT_EQ(DibNumColors(h), 1u << hdr.depth);  // the standard grey table
    EXPECT_EQ(h->pbmiColors[(1 << hdr.depth) - 1].rgbGreen, 255);
    bool palette = hdr.colorType == 3;
    Decoded d = OraclePng(bytes, palette ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY);
    ASSERT_TRUE(d.ok) << d.message;
    int bad = 0;
    for (LONG y = 0; y < DibHeight(h); ++y) {
        for (LONG x = 0; x < DibWidth(h); ++x) {
            DWORD v = StorePixel(h, x, y);
            size_t at = size_t(y) * hdr.width + x;
            if (palette) {
                ASSERT_LT(v, hdr.palette.size()) << "(" << x << "," << y << ")";
                const auto& c = hdr.palette[v];
                bool same = c[0] == d.samples[at * 3] && c[1] == d.samples[at * 3 + 1] &&
                            c[2] == d.samples[at * 3 + 2];
                if (!same && bad++ < 5) ADD_FAILURE() << "colour of index " << v << " at (" << x << "," << y << ")";
            } else {
                DWORD expected = d.samples[at];
                DWORD scaled = v * 255 / ((1u << hdr.depth) - 1);
                if (scaled != expected && bad++ < 5)
                    ADD_FAILURE() << "sample " << v << " vs " << expected << " at (" << x << "," << y << ")";
            }
        }
    }
}

}  // namespace

TEST(Png, SuiteLoadsExactlyOrRefuses) {
    std::vector<std::string> files = FilesIn(SuiteDir(), ".png");
    ASSERT_GE(files.size(), 170u);
    std::set<std::string> loaded;
    for (const std::string& path : files) {
        std::string name = BaseName(path);
        SCOPED_TRACE(name);
        std::string bytes = tovtest::ReadFileBytes(path);
        PngHeader hdr = ParsePng(bytes);
        Decoded oracle = OraclePng(bytes, PNG_FORMAT_GRAY);
        LeakGuard guard;
        HDIB h = Load(path);
        if (ShouldLoad(hdr, oracle)) {
            ASSERT_NE(h, nullptr);
            ExpectSamePicture(h, hdr, bytes);
            loaded.insert(name);
            DibUnload(h);
        } else {
            EXPECT_EQ(h, nullptr);
            if (h) DibUnload(h);
        }
    }
    // The 77 sound 1, 4 and 8-bit grey and palette files of the suite.
    EXPECT_EQ(loaded.size(), 77u);
    // The expectations above come from the files themselves; these names
    // keep them honest (both interlace methods, all accepted kinds, odd sizes).
    for (const char* name : {"basn0g01.png", "basn0g04.png", "basn0g08.png", "basn3p01.png", "basn3p04.png",
                             "basn3p08.png", "basi0g01.png", "basi0g04.png", "basi0g08.png", "basi3p01.png",
                             "basi3p04.png", "basi3p08.png", "s01i3p01.png", "s33n3p04.png", "s39i3p04.png",
                             "f04n0g08.png", "tbbn0g04.png", "tp0n3p08.png", "ps1n0g08.png", "g10n3p04.png"})
        EXPECT_TRUE(loaded.count(name)) << name;
    for (const char* name : {"basn0g02.png", "basn0g16.png", "basn2c08.png", "basn4a08.png", "basn6a08.png",
                             "basi3p02.png", "s05n3p02.png", "oi1n0g16.png", "xs1n0g01.png", "xcrn0g04.png",
                             "xhdn0g08.png", "xcsn0g01.png", "xdtn0g01.png", "xd0n2c08.png", "xc1n0g08.png"})
        EXPECT_FALSE(loaded.count(name)) << name;
}

TEST(Png, RoundTripsGiveEqualBytesAndFilesOtherReadersAgreeWith) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    for (DWORD bits : kDepths) {
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            HDIB h = MakePatterned(width, 6, bits, 3);
            ASSERT_EQ(tovSavePNG(h, u"pic"), 0u);
            std::string bytes = tovtest::ReadFileBytes("pic.png");
            PngHeader hdr = ParsePng(bytes);
            EXPECT_EQ(hdr.depth, int(bits));
            EXPECT_EQ(hdr.colorType, 0);
            EXPECT_EQ(hdr.interlace, 0);
            ExpectSamePicture(h, hdr, bytes);  // the file as another reader sees it

            HDIB back = tovLoadPNG(u"pic.png");
            ASSERT_NE(back, nullptr);
            EXPECT_EQ(DibBitCount(back), bits);
            EXPECT_EQ(StoreBytes(back), StoreBytes(h));
            DibUnload(back);
            DibUnload(h);
        }
    }
}

TEST(Png, FrameRoundTripKeepsBytesAndGreyTable) {
    tovtest::ScratchDir dir;
    HDIB h = tovCreateHDIBExt(640, 480, 0, 8);
    for (LONG y = 0; y < 480; ++y)
        for (LONG x = 0; x < 640; ++x) StoreSetPixel(h, x, y, Smooth(x, y) ^ Pattern(x, y, 3));
    ASSERT_EQ(tovSave(h, u"frame", tovFormatPNG, 0), 0u);
    HDIB back = tovLoad(u"frame", tovFormatPNG);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(StoreBytes(back), StoreBytes(h));
    ASSERT_EQ(DibNumColors(back), 256u);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(back->pbmiColors[i].rgbRed, i);
    DibUnload(back);
    DibUnload(h);
}

// A bitmap whose colour table is not grey is written by its indices.
TEST(Png, IndicesAreSamplesWhateverTheColourTable) {
    tovtest::ScratchDir dir;
    HDIB h = MakePatterned(9, 3, 4, 1);
    for (int i = 0; i < 16; ++i) h->pbmiColors[i].rgbRed = BYTE(255 - i);
    ASSERT_EQ(DibPNGSave(u"t.png", h), 0u);
    HDIB back = DibPNGLoad(u"t.png");
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(StoreBytes(back), StoreBytes(h));
    EXPECT_EQ(back->pbmiColors[1].rgbRed, 17);
    DibUnload(back);
    DibUnload(h);
}

TEST(Png, BadNamesAndMediaGiveTheirCodes) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    HDIB h = MakePatterned(9, 4, 8);
    ASSERT_EQ(symlink("/dev/full", "full.png"), 0);
    std::u16string longName(300, u'a');
    std::u16string longestName(TOV_MAX_PATH - 1, u'b');  // no room for ".png"
    struct Case {
        const char* what;
        const WCHAR* name;
        DWORD expected;
    } cases[] = {
        {"null name", nullptr, DibErrorInvalidParm},
        {"unreadable name", reinterpret_cast<const WCHAR*>(uintptr_t(16)), DibErrorInvalidParm},
        {"one character", u"a", tovErrorBadFileName},
        {"overlong name", longName.c_str(), tovErrorBadFileName},
        {"no room for the extension", longestName.c_str(), tovErrorBadFileName},
        {"missing directory", u"no/such/dir/pic", DibErrorFileCreation},
        {"full medium", u"full", DibErrorUnknown},
        {"a directory", u"folder.png", DibErrorFileCreation},
    };
    ASSERT_EQ(mkdir("folder.png", 0755), 0);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(tovSavePNG(h, c.name), c.expected);
        EXPECT_EQ(tovLoadPNG(c.name), nullptr);
        EXPECT_EQ(tovSave(h, c.name, tovFormatPNG, 0), c.expected);
    }
    EXPECT_EQ(DibPNGSave(nullptr, h), DibErrorInvalidParm);
    EXPECT_EQ(DibPNGSave(u"/dev/full", h), DibErrorUnknown);
    EXPECT_EQ(DibPNGLoad(nullptr), nullptr);
    EXPECT_FALSE(tovtest::FileExists("a.png"));
    EXPECT_EQ(tovSavePNG(nullptr, u"xy"), DibErrorInvalidDIB);
    EXPECT_EQ(tovSavePNG(reinterpret_cast<HDIB>(longName.data()), u"xy"), DibErrorInvalidDIB);
    EXPECT_FALSE(tovtest::FileExists("xy.png"));
    DibUnload(h);
}

// Files that are not PNG, or are cut short anywhere, give NULL and leave
// nothing behind.
TEST(Png, ForeignAndCutFilesGiveNull) {
    tovtest::ScratchDir dir;
    HDIB h = MakePatterned(33, 20, 4, 7);
    ASSERT_EQ(DibPNGSave(u"whole.png", h), 0u);
    DibUnload(h);
    std::string whole = tovtest::ReadFileBytes("whole.png");
    LeakGuard guard;
    for (size_t cut = 0; cut < whole.size(); cut += (cut < 64 ? 1 : 9)) {
        SCOPED_TRACE(cut);
        WriteBytes("cut.png", whole.substr(0, cut));
        EXPECT_EQ(DibPNGLoad(u"cut.png"), nullptr);
    }
    WriteBytes("bmp.png", "BM" + std::string(100, '\0'));
    EXPECT_EQ(tovLoadPNG(u"bmp.png"), nullptr);
}

TEST(Files, DeeperBitmapsAreRefusedWithoutAFile) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    // A 24-bit bitmap as a BMP file can bring one in.
    std::vector<BYTE> block(40 + 8, 0);
    auto* info = reinterpret_cast<BITMAPINFO*>(block.data());
    info->bmiHeader.biSize = 40;
    info->bmiHeader.biWidth = 5;
    info->bmiHeader.biHeight = 3;
    info->bmiHeader.biPlanes = 1;
    info->bmiHeader.biBitCount = 24;
    info->bmiHeader.biClrUsed = 2;
    HDIB deep = DibCreateFromBitmapInfo(info);
    ASSERT_NE(deep, nullptr);
    std::vector<BYTE> pixels = StoreBytes(deep);
    EXPECT_EQ(tovSavePNG(deep, u"deep"), DibErrorUnknown);
    EXPECT_FALSE(tovtest::FileExists("deep.png"));
    // JPEG and the printer need a grey conversion, which has none for it.
    EXPECT_EQ(tovSaveJPG(deep, u"deep", 80), DibErrorUnknown);
    EXPECT_FALSE(tovtest::FileExists("deep.jpg"));
    EXPECT_EQ(tovSavePRN(deep, u"deep.prn", 0, 64, 0), DibErrorUnknown);
    EXPECT_FALSE(tovtest::FileExists("deep.prn"));
    EXPECT_EQ(DibBitCount(deep), 24);
    EXPECT_EQ(StoreBytes(deep), pixels);
    DibUnload(deep);
}

TEST(Png, AllocationFailureAtEverySite) {
    tovtest::ScratchDir dir;
    HDIB h = MakePatterned(31, 9, 4, 2);
    ASSERT_EQ(DibPNGSave(u"good.png", h), 0u);
    long saveSites = tovtest::ForEachAllocationFailure([&](long n) {
        SCOPED_TRACE(n);
        LeakGuard inner;
        DWORD result = DibPNGSave(u"fail.png", h);
        EXPECT_TRUE(result == DibOk || result == DibErrorMemoryAlocation || result == DibErrorUnknown ||
                    result == DibErrorFileCreation)
            << result;
    });
    EXPECT_GT(saveSites, 5);  // libpng's and zlib's own allocations are among them
    long loadSites = tovtest::ForEachAllocationFailure([&](long n) {
        SCOPED_TRACE(n);
        LeakGuard inner;
        HDIB back = DibPNGLoad(u"good.png");
        if (back) {
            EXPECT_EQ(StoreBytes(back), StoreBytes(h));
            DibUnload(back);
        }
    });
    EXPECT_GT(loadSites, 5);
    DibUnload(h);
}

// No state is shared between calls: saves and loads on two threads at once
// give each thread its own pictures back.
TEST(Png, TwoThreadsSaveAndLoadAtOnce) {
    tovtest::ScratchDir dir;
    long before = PlatLiveObjects();
    auto work = [](int id, bool* ok) {
        HDIB h = MakePatterned(37 + id, 23, id ? 8 : 1, DWORD(id));
        std::u16string name = Wide("thread" + std::to_string(id) + ".png");
        std::vector<BYTE> want = StoreBytes(h);
        for (int i = 0; i < 150 && *ok; ++i) {
            if (DibPNGSave(name.c_str(), h) != DibOk) *ok = false;
            HDIB back = DibPNGLoad(name.c_str());
            if (!back || StoreBytes(back) != want) *ok = false;
            if (back) DibUnload(back);
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

TEST(Png, FormatSwitch) {
    tovtest::ScratchDir dir;
    LeakGuard guard;
    HDIB h = MakePatterned(17, 5, 8, 4);
    struct Case {
        DWORD format;
        const char* file;
        const char* magic;
    } cases[] = {{tovFormatJPG, "pic.jpg", "\xFF\xD8"}, {tovFormatPNG, "pic.png", "\x89PNG"}, {tovFormatBMP, "pic.bmp", "BM"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        ASSERT_EQ(tovSave(h, u"pic", c.format, 90), 0u);
        EXPECT_EQ(tovtest::ReadFileBytes(c.file).rfind(c.magic, 0), 0u);
        HDIB back = tovLoad(u"pic", c.format);
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(DibWidth(back), 17);
        if (c.format != tovFormatJPG) {
            EXPECT_EQ(StoreBytes(back), StoreBytes(h));
        }
        DibUnload(back);
    }
    EXPECT_EQ(tovSave(h, u"other", 3, 90), DWORD(tovErrorUnknown));
    for (const char* name : {"other", "other.jpg", "other.png", "other.bmp"}) EXPECT_FALSE(tovtest::FileExists(name));
    EXPECT_EQ(tovSave(h, u"pic", 0xFFFFFFFFu, 90), DWORD(tovErrorUnknown));
    EXPECT_EQ(tovLoad(u"pic", 3), nullptr);
    EXPECT_EQ(tovSave(h, u"pic", tovFormatJPG, 101), DWORD(DibErrorInvalidParm));
    // A JPEG file under a PNG name is no PNG, and the reverse.
    WriteBytes("swap.png", tovtest::ReadFileBytes("pic.jpg"));
    WriteBytes("swap.jpg", tovtest::ReadFileBytes("pic.png"));
    EXPECT_EQ(tovLoad(u"swap", tovFormatPNG), nullptr);
    EXPECT_EQ(tovLoad(u"swap", tovFormatJPG), nullptr);
    DibUnload(h);
}

TEST(Png, TraceLines) {
    tovtest::ScratchDir dir;
    HDIB h = MakePatterned(3, 2, 1);
    tovtest::StartLog(8);
    ASSERT_EQ(tovSavePNG(h, u"tr"), 0u);
    HDIB back = tovLoadPNG(u"tr");
    ASSERT_NE(back, nullptr);
    WriteBytes("junk.png", "not a png file");
    EXPECT_EQ(tovLoadPNG(u"junk.png"), nullptr);
    std::u16string twoBits = Wide(SuiteDir() + "/basn0g02.png");
    EXPECT_EQ(tovLoadPNG(twoBits.c_str()), nullptr);
    tovtest::StopLog();
    std::vector<std::string> lines = tovtest::LogLines();
    std::string handle = std::to_string(reinterpret_cast<intptr_t>(h));
    std::string loaded = std::to_string(reinterpret_cast<intptr_t>(back));
    std::vector<std::string> want = {
        ">tovSavePNG(" + handle + ",tr)\r",
        ">DibPNGSave(tr.png," + handle + ")\r",
        "   ?DibPNGSave():LocalAlloc:ppbRowPointers\r",
        "<DibPNGSave()=DibOk\r",
        "<tovSavePNG()=tovOk\r",
        ">tovLoadPNG(tr.png)\r",
        ">DibPNGLoad(tr.png)\r",
        "   ?iWidth=3\r",
        "   ?iHeight=2\r",
        "   ?iBitDepth=1\r",
        "   ?iColorType=0\r",
        "<DibPNGLoad()=" + loaded + "\r",
        "<tovLoadPNG()=" + loaded + "\r",
        "<DibPNGLoad()=NULL (png_check_sig)\r",
        "<tovLoadPNG()=NULL (error)\r",
        "   ?iBitDepth=2\r",
        "<DibPNGLoad()=NULL (ibitdepth!=8,4,1)\r",
    };
    size_t at = 0;
    for (const std::string& line : lines) {
        if (at < want.size() && line == want[at]) ++at;
    }
    EXPECT_EQ(at, want.size()) << "missing, in order: " << (at < want.size() ? want[at] : "");
    DibUnload(back);
    DibUnload(h);
}

// Sizes beyond the bitmap core's limits are refused from the header alone,
// before anything is allocated for the picture.
TEST(Png, HugeHeadersAreRefusedBeforeAllocation) {
    tovtest::ScratchDir dir;
    std::string sound = tovtest::ReadFileBytes(SuiteDir() + "/basn0g08.png");
    ASSERT_EQ(sound.substr(12, 4), "IHDR");
    LeakGuard guard;
    for (uint32_t side : {65537u, 100000u, 0x7FFFFFFFu}) {
        for (bool wide : {true, false}) {
            SCOPED_TRACE(testing::Message() << side << (wide ? " wide" : " high"));
            std::string bytes = sound;
            for (int i = 0; i < 4; ++i) bytes[(wide ? 16 : 20) + i] = char(side >> (24 - 8 * i));
            uint32_t crc = uint32_t(crc32(0, reinterpret_cast<const Bytef*>(bytes.data() + 12), 17));
            for (int i = 0; i < 4; ++i) bytes[29 + i] = char(crc >> (24 - 8 * i));
            WriteBytes("huge.png", bytes);
            long allocations = PlatAllocationCount();
            EXPECT_EQ(tovLoadPNG(u"huge.png"), nullptr);
            EXPECT_LT(PlatAllocationCount() - allocations, 40);  // libpng's own set-up, no picture
        }
    }
}
