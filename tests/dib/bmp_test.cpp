// BMP files: round trips, the file layout, malformed and foreign headers, the
// public BMP suite, and how file names get their extension. Headers the record
// refuses are in the record tests; failing names and media, cut and damaged
// files with the other formats' in tests/files and tests/replay.
#include "dibimages.h"

#include <algorithm>
#include <cstring>
#include <set>

using namespace tovtest;

TEST(DibBmp, RoundTripsGiveEqualBitmapsAndEqualFiles) {
    ScratchDir dir;
    LeakGuard guard;
    for (DWORD bits : kDepths)
        for (LONG width : kWidths) {
            SCOPED_TRACE(testing::Message() << bits << " bits, width " << width);
            Dib h(MakePatterned(width, 5, bits, 9));
            h.h->pbmiColors[1].rgbRed = 42;  // colours are written as the record holds them
            ASSERT_EQ(tovSaveBMP(h, u"first"), 0u);
            const std::string first = ReadFileBytes("first.bmp");
            ASSERT_EQ(first.size(), size_t(14 + 40 + (4 << bits) + 5 * Stride(width, bits)));
            Dib back(tovLoadBMP(u"first.bmp"));
            ASSERT_NE(back.h, nullptr);
            EXPECT_EQ(std::memcmp(&back.h->ds.dsBmih, &h.h->ds.dsBmih, 40), 0);
            EXPECT_EQ(std::memcmp(back.h->pbmiColors, h.h->pbmiColors, DibPaletteSize(h)), 0);
            EXPECT_EQ(StoreBytes(back), StoreBytes(h));
            ASSERT_EQ(tovSaveBMP(back, u"second.bmp"), 0u);
            EXPECT_EQ(ReadFileBytes("second.bmp"), first);
        }
    // The smallest file, byte for byte.
    ASSERT_EQ(DibBMPSave(u"one.bmp", Dib(tovCreateHDIBExt(8, 1, 255, 1))), 0u);
    const char expected[] = "BM\x42\0\0\0\0\0\0\0\x3e\0\0\0\x28\0\0\0\x08\0\0\0\x01\0\0\0\x01\0\x01\0\0\0\0\0\0\0"
                            "\0\0\0\0\0\0\0\0\0\0\x02\0\0\0\0\0\0\0\0\0\0\0\xff\xff\xff\0\xff\0\0\0";
    EXPECT_EQ(ReadFileBytes("one.bmp"), std::string(expected, sizeof expected - 1));
}

// A biSizeImage beyond the rows, with the bytes present, is kept through
// loading, saving and copying.
TEST(DibBmp, ForeignBiSizeImageIsKeptAndNeverOverrun) {
    ScratchDir dir;
    LeakGuard guard;
    Dib h(MakePatterned(9, 3, 8));
    ASSERT_EQ(DibBMPSave(u"plain.bmp", h), 0u);
    std::string bytes = ReadFileBytes("plain.bmp");
    const uint32_t rows = 3 * 12;
    PutLE(bytes, 34, rows + 8);
    bytes += std::string(8, '\x5A');
    PutLE(bytes, 2, uint32_t(bytes.size()));
    WriteBytes("padded.bmp", bytes);
    Dib back(DibBMPLoad(u"padded.bmp"));
    ASSERT_NE(back.h, nullptr);
    EXPECT_EQ(DibBitsSize(back), rows + 8);
    EXPECT_EQ(StoreBytes(back), StoreBytes(h));
    ASSERT_EQ(DibBMPSave(u"again.bmp", back), 0u);
    EXPECT_EQ(ReadFileBytes("again.bmp"), bytes);
    Dib copy(DibCreateCopy(back));
    EXPECT_EQ(DibBitsSize(copy), rows + 8);
    EXPECT_EQ(DibCopy(h, back), 0u);
}

TEST(DibBmp, MalformedFilesGiveNullWithoutLeaks) {
    ScratchDir dir;
    ASSERT_EQ(DibBMPSave(u"good.bmp", Dib(MakePatterned(9, 4, 8))), 0u);
    const std::string good = ReadFileBytes("good.bmp");
    const uint32_t off = 54 + 1024, size = uint32_t(good.size());
    struct Field { size_t at, size; uint32_t value; };
    // One field changed: bfOffBits 53, below the colours, past the end;
    // bfSize below bfOffBits, beyond the store; header size 12; width 0,
    // negative; top-down; huge; planes 2; depth 0, 2; RLE8; bit fields;
    // biSizeImage beyond all, below the rows; biClrUsed 300. Last, 8 bits
    // count 256 colours when biClrUsed is 0: the pixels cannot start among them.
    const std::vector<std::vector<Field>> cases = {
        {{10, 4, 53}}, {{10, 4, off - 4}}, {{10, 4, 0xFFFFFFF0u}}, {{2, 4, off - 1}}, {{2, 4, size + 4}},
        {{14, 4, 12}}, {{18, 4, 0}}, {{18, 4, uint32_t(-9)}}, {{22, 4, uint32_t(-4)}}, {{18, 4, 3000000}},
        {{26, 2, 2}}, {{28, 2, 0}}, {{28, 2, 2}}, {{30, 4, 1}}, {{30, 4, 3}}, {{34, 4, 2129587950u}},
        {{34, 4, 47}}, {{46, 4, 300}}, {{46, 4, 0}, {10, 4, off - 4}, {2, 4, size - 4}},
    };
    for (const auto& fields : cases) {
        SCOPED_TRACE(&fields - cases.data());
        std::string b = good;
        for (const Field& f : fields) PutLE(b, f.at, f.value, int(f.size));
        WriteBytes("bad.bmp", b);
        LeakGuard guard;
        StartLog(8);
        EXPECT_EQ(tovLoadBMP(u"bad"), nullptr);
        StopLog();
        const auto lines = LogLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.back(), "<tovLoadBMP()=NULL (error)\r");
    }
}

TEST(DibBmp, FixExtensionTable) {
    struct Case { const char *name, *ext; int result; const char* after; } cases[] = {
        {"a", "bmp", 0, "a"}, {"", "bmp", 0, ""}, {"ab", "bmp", 1, "ab.bmp"}, {"x.bmp", "bmp", 1, "x.bmp"},
        {"x.BmP", "bmp", 1, "x.BmP"}, {"x.jpg", "bmp", 1, "x.jpg.bmp"}, {"x.bmp.jpg", "bmp", 1, "x.bmp.jpg.bmp"},
        {"x.jpg.bmp", "bmp", 1, "x.jpg.bmp"}, {"name.", "bmp", 1, "name.bmp"}, {"x.bmpx", "bmp", 1, "x.bmpx.bmp"},
        {".bmp", "bmp", 1, ".bmp.bmp"},  // a leading dot is no extension
        {"d.x/file", "jpg", 1, "d.x/file.jpg"}, {"x.bm", "bmp", 1, "x.bm.bmp"},
    };
    for (const Case& c : cases) {
        WCHAR buffer[TOV_MAX_PATH] = {};
        const std::u16string name = W(c.name);
        std::copy(name.begin(), name.end(), buffer);
        EXPECT_EQ(tovFixExtension(buffer, W(c.ext).c_str()), c.result) << c.name;
        EXPECT_EQ(N(buffer), c.after) << c.name;
    }
    // Lengths at the limit: 255 characters take ".bmp" (259 + terminator), 256 do not.
    for (size_t n : {254u, 255u, 256u, 258u, 259u}) {
        WCHAR buffer[TOV_MAX_PATH + 1] = {};
        buffer[TOV_MAX_PATH] = u'#';  // guard behind the buffer
        std::fill(buffer, buffer + n, u'n');
        EXPECT_EQ(tovFixExtension(buffer, u"bmp"), n <= 255 ? 1 : 0) << n;
        EXPECT_EQ(buffer[TOV_MAX_PATH], u'#');
        EXPECT_EQ(buffer[TOV_MAX_PATH - 1], 0) << n;
    }
    // A name without its end up to unreadable memory is read no further than
    // the trace line can show.
    GuardedPage page;
    WCHAR* unended = reinterpret_cast<WCHAR*>(page.End()) - (TOV_TRACE_NAME_MAX - 1);
    std::fill(unended, unended + TOV_TRACE_NAME_MAX - 1, u'n');
    EXPECT_EQ(tovSaveBMP(nullptr, unended), DWORD(tovErrorBadFileName));
}

// The public BMP suite: the plain 1, 4 and 8-bit files (and the two of more
// bits that carry a colour table) load with their pixels as stored; all
// others are refused, none crashes or leaks.
TEST(DibBmp, PublicSuite) {
    const std::set<std::string> loads = {"g/pal1", "g/pal1bg", "g/pal1wb", "g/pal4", "g/pal4gs", "g/pal8", "g/pal8-0",
        "g/pal8gs", "g/pal8nonsquare", "g/pal8w124", "g/pal8w125", "g/pal8w126", "g/rgb24pal", "g/rgb16-565pal",
        "q/pal1p1", "q/pal8offs", "b/baddens1", "b/baddens2", "b/pal8badindex"};
    int loaded = 0, refused = 0;
    for (const char* group : {"g", "q", "b", "x"}) {
        for (const std::string& path : FilesIn(TestDataDir() + "/bmpsuite/" + group, ".bmp")) {
            const std::string base = BaseName(path), name = std::string(group) + "/" + base.substr(0, base.size() - 4);
            SCOPED_TRACE(name);
            LeakGuard guard;
            Dib h(DibBMPLoad(W(path).c_str()));
            if (!loads.count(name)) {
                EXPECT_EQ(h.h, nullptr);
                ++refused;
                continue;
            }
            ASSERT_NE(h.h, nullptr);
            ++loaded;
            const std::string file = ReadFileBytes(path);
            EXPECT_EQ(DibWidth(h), LONG(GetLE(file, 18)));
            EXPECT_EQ(DibHeight(h), LONG(GetLE(file, 22)));
            EXPECT_EQ(DibBitCount(h), BYTE(file[28]));
            EXPECT_EQ(std::memcmp(h.h->pbmiColors, file.data() + 54, DibPaletteSize(h)), 0);
            const size_t off = GetLE(file, 10), rows = size_t(DibHeight(h)) * DibRowLength(h);
            ASSERT_GE(file.size(), off + rows);
            EXPECT_EQ(std::memcmp(h.h->pBits, file.data() + off, rows), 0);
        }
    }
    EXPECT_EQ(loaded, int(loads.size()));
    EXPECT_GT(refused, 60);
}
