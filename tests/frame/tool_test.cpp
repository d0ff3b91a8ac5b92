// The tov program: its commands, exit status and messages.
#include "testsupport.h"
#include "toolrun.h"

#include <gtest/gtest.h>

#include <string>

using namespace tovtest;

namespace {

std::string Info(const std::string& file, int w, int h, int depth, int colours) {
    return "file: " + file + "\nwidth: " + std::to_string(w) + "\nheight: " + std::to_string(h) +
           "\ndepth: " + std::to_string(depth) + "\ncolours: " + std::to_string(colours) + "\n";
}

TEST(ToolTest, SampleInfoAndConvertWorkTogether) {
    ScratchDir dir;
    ToolRun r = Tov("sample card.bmp --width 33 --height=7");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(Tov("info card.bmp").out, Info("card.bmp", 33, 7, 8, 256));
    // Depths, other file types by the extension, and names that are UTF-8 on
    // the command line and UTF-16 in the library.
    struct Case { const char* name; const char* options; int depth, colours; } cases[] = {
        {"out.bmp", "--depth 1", 1, 2}, {"card.png", "--depth 8 --quality 90", 8, 256},
        {"CARD.JPG", "--depth 8 --quality 90", 8, 256}, {"k\xc3\xa4rtchen \xe2\x82\xac.bmp", "--depth 4", 4, 16},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        r = Tov(std::string("convert card.bmp '") + c.name + "' " + c.options);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(Tov(std::string("info '") + c.name + "'").out, Info(c.name, 33, 7, c.depth, c.colours));
    }
}

TEST(ToolTest, BadUseFailsWithAMessageAndHelpHelps) {
    ScratchDir dir;
    ASSERT_EQ(Tov("sample card.bmp").status, 0);
    WriteBytes("garbage.bmp", "BM not really a bitmap");
    // message: within the error output; status 2 for a usage error, else 1.
    struct Case { const char* arguments, *message; int status; } cases[] = {
        {"", "usage: tov", 2}, {"frobnicate x", "unknown command 'frobnicate'", 2},
        {"info", "expected 1 argument, got 0", 2}, {"info garbage.bmp", "garbage.bmp: cannot be read", 1},
        {"convert card.bmp out.xyz", "unknown picture type", 1}, {"info card.bmp --colour", "unknown option --colour", 2},
        {"convert card.bmp out.bmp --depth", "--depth needs a value", 2},
        {"convert card.bmp out.bmp --depth 3", "--depth is 1, 4 or 8, not '3'", 1},
        {"convert card.bmp out.bmp --depth 1 --depth 4", "--depth given twice", 2},
        {"convert card.bmp nodir/out.bmp --depth 1", "nodir/out.bmp: cannot be written", 1},
        {"sample big.bmp --width 5000", "--width takes a number from 1 to 4096", 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments);
        ToolRun r = Tov(c.arguments);
        EXPECT_EQ(r.status, c.status);
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(r.out, "");
    }
    EXPECT_FALSE(FileExists("out.bmp"));
    EXPECT_FALSE(FileExists("big.bmp"));
    // Help for all and for each command, by any way of asking, with an example.
    ToolRun r = Tov("--help");
    EXPECT_EQ(r.status, 0);
    for (const char* command : {"info FILE", "convert IN OUT [--depth 1|4|8]", "sample OUT", "capture [--profiles"})
        EXPECT_NE(r.out.find(command), std::string::npos) << command;
    for (const char* ask : {"help convert", "convert a.png -h"}) {
        r = Tov(ask);
        EXPECT_EQ(r.status, 0) << ask;
        EXPECT_EQ(r.out.rfind("usage: tov convert IN OUT", 0), 0u) << ask;
        EXPECT_NE(r.out.find("example: tov convert "), std::string::npos) << ask;
    }
    EXPECT_EQ(Tov("help nothing").status, 2);
    EXPECT_EQ(Tov("--version").out, "tov, libtovrel 2.102.30001.0\n");
    // The trace goes to standard error and leaves no log file.
    r = Tov("--trace 5 sample card.bmp --width 4 --height 4");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find(">tovCreateHDIBExt(4,4,0,8)\r\n"), std::string::npos) << r.err;
    EXPECT_FALSE(FileExists("imaging.log"));
}

// Pictures people have: colour, 16 and 32 bits, CMYK, misnamed, piped.
TEST(ToolTest, CommonPicturesAreReadByTheirContent) {
    ScratchDir dir;
    const std::string data = TestDataDir();
    const struct { std::string file; bool converted; } cases[] = {  // converted: read as grey
        {data + "/pngsuite/basn6a16.png", true}, {data + "/bmpsuite/g/rgb16.bmp", true},
        {data + "/jpeg/pil_sample_cmyk.jpg", true}, {data + "/pngsuite/basn0g04.png", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        ToolRun r = Tov("info '" + c.file + "'");
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.out.rfind("note: a colour or deep picture", 0) == 0, c.converted) << r.out;
    }
    WriteBytes("grey.bmp", ReadFileBytes(data + "/pngsuite/basn0g08.png"));  // a PNG by another name
    EXPECT_EQ(Tov("convert grey.bmp out.jpeg").status, 0);
    EXPECT_EQ(ReadFileBytes("out.jpeg").compare(0, 2, "\xFF\xD8"), 0);
    EXPECT_EQ(Tov("convert - piped.png < grey.bmp").status, 0);
    EXPECT_EQ(Tov("info piped.png").status, 0);
    ToolRun out = Tov("convert grey.bmp - ");
    EXPECT_EQ(out.out.compare(0, 4, "\x89PNG"), 0);
}

// Names that say what happens, and warnings instead of silent surprises.
TEST(ToolTest, FriendlyNamesAndWarnings) {
    ScratchDir dir;
    ASSERT_EQ(Tov("sample s.png --width 80 --height 40").status, 0);
    ASSERT_EQ(Tov("filter s.png a.png mirror flip-upside-down").status, 0);
    ASSERT_EQ(Tov("filter s.png b.png flipvertical fliphorizontal").status, 0);
    EXPECT_EQ(ReadFileBytes("a.png"), ReadFileBytes("b.png"));
    EXPECT_NE(ReadFileBytes("a.png"), ReadFileBytes("s.png"));
    ToolRun r = Tov("overlay s.png o.png --text 'a label far wider than the picture' --height 20");
    EXPECT_EQ(r.status, 0);
    EXPECT_NE(r.err.find("warning: the text takes"), std::string::npos) << r.err;
    EXPECT_EQ(Tov("overlay s.png o.png --text ok --height 10").err, "");
    WriteBytes("strokes.txt", "40 20\n1,1 30,15\n");
    r = Tov("sig strokes.txt sig.jpg --format png");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("would be written as sig.jpg.png"), std::string::npos) << r.err;
    EXPECT_FALSE(FileExists("sig.jpg.png"));
}

// From a profile file to captured, processed pictures: the same as the
// profile's chain run by tov filter over the unprocessed frame. Then the
// chain edited from the shell reaches the next capture.
TEST(ToolTest, CaptureRunsTheProfilesChainLikeFilter) {
    ScratchDir dir;
    WriteBytes("p.zpf", R"(<p><Section name="Shop"><Section name="Processing">
        <Section name="Rank Filter"><Key name="Rank">6</Key></Section>
        <Section name="Sharpen"><Key name="Val">12</Key></Section></Section></Section></p>)");
    const std::string capture = "capture --profiles p.zpf --profile Shop --frames 2 ";
    ASSERT_EQ(Tov(capture + "--out raw-%d.png").status, 0);
    ToolRun r = Tov(capture + "--processed --out done-%d.png");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("captured 2 full frames of 640x480, processed"), std::string::npos) << r.out;
    ASSERT_EQ(Tov("filter raw-2.png filtered.png rank=6 sharpen=12").status, 0);
    EXPECT_EQ(ReadFileBytes("filtered.png"), ReadFileBytes("done-2.png"));
    ASSERT_EQ(Tov("profile set p.zpf Shop 1 rank 0").status, 0);
    EXPECT_EQ(Tov("profile get p.zpf Shop 1 Rank").out, "0\n");
    ASSERT_EQ(Tov(capture + "--processed --out min-%d.png").status, 0);
    ASSERT_EQ(Tov("filter raw-2.png minimum.png rank=0 sharpen=12").status, 0);
    EXPECT_EQ(ReadFileBytes("minimum.png"), ReadFileBytes("min-2.png"));
    for (const char* bad : {"capture --profiles p.zpf --profile Nobody", "capture --profiles missing.zpf",
                            "capture --mode sideways", "capture --frames 0", "profile set p.zpf Shop 9 1 1"})
        EXPECT_EQ(Tov(bad).status, 1) << bad;
}

}  // namespace
