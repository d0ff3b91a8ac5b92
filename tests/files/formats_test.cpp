// What BMP, PNG and JPEG share, one table over the formats: failing names
// and media, files cut short or foreign, headers declaring more than the
// file can hold, deeper bitmaps refused, two threads at once, the format
// switch, trace lines. Damaged files and allocation failure on every load
// are replayed in tests/replay; every save's in the every-export loop.
#include "filestest.h"

#include <jerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

namespace {

// A sound sample of the public suites, the file layer's save and load (name as
// given), the code of a write that fails, at most the allocations of a refused header.
const struct Format {
    const char *ext, *sample;
    DWORD format;
    DWORD (*dibSave)(const WCHAR*, HDIB);
    HDIB (*dibLoad)(const WCHAR*);
    DWORD fullMedium;
    long setupAllocations;
} kFormats[] = {
    {"png", "/pngsuite/basi0g04.png", tovFormatPNG, DibPNGSave, DibPNGLoad, DibErrorUnknown, 40},
    {"jpg", "/jpeg/hopper_gray.jpg", tovFormatJPG, [](const WCHAR* n, HDIB h) { return DibJPGSave(n, 80, h); },
     DibJPGLoad, DibErrorUnknown, 10},
    {"bmp", "/bmpsuite/g/pal8.bmp", tovFormatBMP, DibBMPSave, DibBMPLoad, DibErrorFileWrite, 10},
};

// The sample with its header declaring a picture of width x height.
std::string Declare(const Format& f, std::string b, uint32_t w, uint32_t h) {
    if (f.format == tovFormatPNG) PutBE(b, 16, w), PutBE(b, 20, h), FixPngChecksums(b);
    const size_t sof = b.find("\xFF\xC0");
    if (f.format == tovFormatJPG) PutBE(b, sof + 5, h, 2), PutBE(b, sof + 7, w, 2);
    if (f.format == tovFormatBMP) PutLE(b, 18, w), PutLE(b, 22, h), PutLE(b, 34, 0);  // biSizeImage 0: the rows' own size
    return b;
}

}  // namespace

TEST(Files, BadNamesAndMediaGiveTheirCodes) {
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.ext);
        ScratchDir dir;
        LeakGuard guard;
        Dib h(MakePatterned(9, 4, 8));
        const std::string ext = std::string(".") + f.ext;
        ASSERT_EQ(symlink("/dev/full", ("full" + ext).c_str()) + mkdir(("folder" + ext).c_str(), 0755), 0);
        std::u16string longName(300, u'a'), longestName(TOV_MAX_PATH - 1, u'b'), folder = W("folder" + ext);
        const struct { const WCHAR* name; DWORD expected; } cases[] = {
            {nullptr, DibErrorInvalidParm}, {reinterpret_cast<const WCHAR*>(uintptr_t(16)), DibErrorInvalidParm},
            {u"a", tovErrorBadFileName}, {longName.c_str(), tovErrorBadFileName},
            {longestName.c_str(), tovErrorBadFileName},  // no room for the extension
            {u"no/such/dir/pic", DibErrorFileCreation}, {u"full", f.fullMedium}, {folder.c_str(), DibErrorFileCreation},
        };
        for (const auto& c : cases) {
            SCOPED_TRACE(&c - cases);
            EXPECT_EQ(tovSave(h, c.name, f.format, 80), c.expected);
            EXPECT_EQ(tovLoad(c.name, f.format), nullptr);
        }
        EXPECT_EQ(f.dibSave(nullptr, h), DibErrorInvalidParm);
        EXPECT_EQ(f.dibLoad(nullptr) || tovLoad(u"missing", f.format), false);
        for (HDIB bad : {HDIB(nullptr), reinterpret_cast<HDIB>(longName.data())})
            EXPECT_EQ(tovSave(bad, u"xy", f.format, 80), DibErrorInvalidDIB);
        // A 24-bit bitmap (a BMP file can bring one in) has no grey form, whatever its
        // colour table: refused with no file, left as it was; nor is it converted or cleared.
        struct { BITMAPINFOHEADER header; RGBQUAD colours[256]; } info = {{40, 5, 3, 1, 24, 0, 0, 0, 0, f.format == tovFormatJPG ? 256u : 2u, 0}, {}};
        Dib deep(DibCreateFromBitmapInfo(reinterpret_cast<BITMAPINFO*>(&info)));
        const std::vector<BYTE> pixels = StoreBytes(deep);
        EXPECT_EQ(tovSave(deep, u"deep", f.format, 80), f.format == tovFormatBMP ? DibOk : DibErrorUnknown);
        EXPECT_EQ(tovSavePRN(deep, u"deep.prn", 0, 64, 0), DibErrorUnknown);
        EXPECT_EQ(tovConvert(deep, 8), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(tovClear(deep, 0), DWORD(DibErrorInvalidDIB));
        EXPECT_EQ(StoreBytes(deep), pixels);
        EXPECT_EQ(FileExists("deep" + ext), f.format == tovFormatBMP);
        EXPECT_FALSE(FileExists("xy" + ext) || FileExists("a" + ext) || FileExists("deep.prn"));
    }
}

// Cut anywhere (down to a missing end marker, which libjpeg alone would pad
// with grey, or a JPEG scan cut short and closed by one), foreign, or
// declaring more than its bytes hold (sides beyond the bitmap core's limits,
// or within them): NULL, before any bitmap is made, and nothing left behind.
// The largest side the core takes loads.
TEST(Files, CutForeignAndOverdeclaredFilesGiveNull) {
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.ext);
        ScratchDir dir;
        const std::string whole = ReadFileBytes(TestDataDir() + f.sample);
        LeakGuard guard;
        std::vector<std::string> bad = {whole.substr(0, whole.size() - 2), whole.substr(0, whole.size() - 1),
                                        (f.format == tovFormatBMP ? "\x89PNG" : "BM") + std::string(100, '\0')};
        for (size_t cut = 0; cut < whole.size(); cut += cut < 64 ? 1 : whole.size() / 64) bad.push_back(whole.substr(0, cut));
        if (f.format == tovFormatJPG) bad.push_back(whole.substr(0, (whole.size() + whole.find("\xFF\xDA")) / 2) + "\xFF\xD9");
        for (const std::string& bytes : bad) {
            WriteBytes("bad", bytes);
            EXPECT_EQ(f.dibLoad(u"bad"), nullptr) << bytes.size();
        }
        for (const auto& side : {std::pair<uint32_t, uint32_t>{65537, 8}, {8, 65537}, {0x7FFFFFFF, 8},
                                 {65500, 65500}, {65500, 16383}, {65536, 32}, {32, 65536}}) {
            if (f.format == tovFormatJPG && std::max(side.first, side.second) > 65535) continue;  // 16-bit sides
            SCOPED_TRACE(testing::Message() << side.first << "x" << side.second);
            WriteBytes("big", Declare(f, whole, side.first, side.second));
            StartLog(8);
            const long allocations = PlatAllocationCount();
            EXPECT_EQ(f.dibLoad(u"big"), nullptr);
            EXPECT_LT(PlatAllocationCount() - allocations, f.setupAllocations);  // no picture
            StopLog();
            EXPECT_EQ(LogText().find("(DibCreateFromBitmapInfo)"), std::string::npos);
        }
        WriteBytes("good", whole);
        EXPECT_NE(Dib(f.dibLoad(u"good")), nullptr);
        const LONG most = f.format == tovFormatJPG ? 65500 : 65536;  // the longest side the format takes
        for (auto [w, h] : {std::pair<LONG, LONG>{most, 1}, {1, most}}) {
            ASSERT_EQ(f.dibSave(u"side", Dib(tovCreateHDIBExt(w, h, 0, 1))), 0u);
            EXPECT_NE(Dib(f.dibLoad(u"side")), nullptr) << w << "x" << h;
        }
    }
}

// No state is shared between calls: each thread gets its own pictures back,
// through the format switch.
TEST(Files, TwoThreadsSaveAndLoadAtOnceThroughTheFormatSwitch) {
    ScratchDir dir;
    LeakGuard guard;
    auto work = [](int id, bool* ok) {
        Dib h(MakePatterned(37 + id, 23, id ? 8 : 1, DWORD(id)));
        const std::u16string name = W("thread" + std::to_string(id));
        for (const Format& f : kFormats) {
            std::vector<BYTE> want;
            for (int i = 0; i < 60 && *ok; ++i) {
                Dib back(tovSave(h, name.c_str(), f.format, 90) == DibOk ? tovLoad(name.c_str(), f.format) : nullptr);
                if (!back || (!want.empty() && StoreBytes(back) != want)) *ok = false;
                else if (want.empty()) want = StoreBytes(back);
            }
            if (f.format != tovFormatJPG && want != StoreBytes(h)) *ok = false;
        }
    };
    bool ok0 = true, ok1 = true;
    std::thread a(work, 0, &ok0), b(work, 1, &ok1);
    a.join(), b.join();
    EXPECT_TRUE(ok0 && ok1);
    EXPECT_EQ(ReadFileBytes("thread1.jpg").substr(0, 2) + ReadFileBytes("thread1.png").substr(0, 2) +
                  ReadFileBytes("thread1.bmp").substr(0, 2), "\xFF\xD8\x89PBM");
    EXPECT_EQ(tovSave(Dib(MakePatterned(8, 2, 1)), u"other", 3, 90), DWORD(tovErrorUnknown));
    EXPECT_EQ(FilesIn(".", "").size(), 6u);
    EXPECT_EQ(tovLoad(u"thread1", 3), nullptr);
    EXPECT_EQ(tovSave(Dib(MakePatterned(8, 2, 1)), u"pic", tovFormatJPG, 101), DWORD(DibErrorInvalidParm));
}

TEST(Files, TraceLines) {
    ScratchDir dir;
    Dib h(MakePatterned(384, 2, 1));
    WriteBytes("junk.png", "not a png file"), WriteBytes("junk.jpg", "not a jpeg");
    WriteBytes("tall.png", Declare(kFormats[0], ReadFileBytes(TestDataDir() + "/pngsuite/basn0g08.png"), 32, 65536));
    ASSERT_EQ(symlink("/dev/full", "full.bmp"), 0);
    const std::string longName(600, 'n');  // an entry line shows the caller's whole name
    StartLog(8);
    ASSERT_EQ(tovSavePNG(h, u"tr"), 0u);
    Dib png(tovLoadPNG(u"tr"));
    for (const std::u16string& name : {W("junk.png"), W(TestDataDir() + "/pngsuite/basn0g02.png"), W("tall.png")})
        EXPECT_EQ(tovLoadPNG(name.c_str()), nullptr);
    ASSERT_EQ(tovSaveJPG(h, u"tr", 80), 0u);
    Dib jpg(tovLoadJPG(u"tr"));
    EXPECT_FALSE(tovLoadJPG(u"junk") || tovLoadJPG(u"gone"));
    // The codes of the rest show in the trace.
    tovSavePRN(h, u"label.prn", 0, 64, 64), tovSavePRN(h, u"label.prn", 2, 832, 16);
    tovSaveBMP(h, W(longName).c_str()), tovSaveJPG(h, W(longName).c_str(), 80), tovSavePRN(h, W(longName).c_str(), 0, 832, 16);
    tovSaveBMP(h, u"full");
    StopLog();
    const std::vector<std::string> want = {
        ">tovSavePNG(" + Handle(h) + ",tr)\r", "   ?iBitDepth=1\r", "<tovLoadPNG()=" + Handle(png) + "\r",
        "<DibPNGLoad()=NULL (png_check_sig)\r", "<DibPNGLoad()=NULL (ibitdepth!=8,4,1)\r",
        "<DibPNGLoad()=NULL (file size)\r", ">DibJPGSave(tr.jpg, 80, " + Handle(h) + ")\r",
        "<tovLoadJPG()=" + Handle(jpg) + "\r", "<DibJPGLoad()=NULL (Error=" + std::to_string(int(JERR_NO_SOI)) + ")\r",
        "<DibJPGLoad()=NULL (CreateFile)\r", ">DibPRNSaveOneil(label.prn, " + Handle(h) + ")\r",
        "<DibPRNSaveOneil()=DibErrorFileWrite(): Data\r", "<tovSavePRN()=4 (Error)\r",
        "<DibPRNSave()=DibErrorInvalidParm\r", "<tovSavePRN()=7 (Error)\r",
        ">tovSaveBMP(" + Handle(h) + "," + longName + ")\r", ">tovSaveJPG(" + Handle(h) + "," + longName + ",80)\r",
        ">tovSavePRN(" + Handle(h) + "," + longName + ")\r", "<DibBMPSave()=DibErrorFileWrite (file header)\r",
        "<tovSaveBMP()=4 (Error)\r",
    };
    size_t at = 0;  // every line, in this order
    for (const std::string& line : LogLines()) at += at < want.size() && line == want[at];
    EXPECT_EQ(at, want.size()) << "missing: " << (at < want.size() ? want[at] : "");
}
