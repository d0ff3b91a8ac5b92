// tov filter: the operations run in order through the exports, arguments
// are checked before the picture is read, failures name the operation.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "ops2_support.h"

using namespace ops2;

namespace {

struct ToolRun {
    int status;
    std::string out, err;
};

ToolRun Tov(const std::string& arguments) {
    const std::string command =
        std::string("'") + TOV_TOOL_PATH + "' " + arguments + " >out.txt 2>err.txt";
    const int raw = std::system(command.c_str());
    ToolRun run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, tovtest::ReadFileBytes("out.txt"),
                tovtest::ReadFileBytes("err.txt")};
    std::remove("out.txt");
    std::remove("err.txt");
    return run;
}

HDIB Load(const char* name) { return tovLoadBMP(tovtest::W(name).c_str()); }

TEST(FilterTool, RunsTheExportsInOrder) {
    tovtest::ScratchDir dir;
    ASSERT_EQ(Tov("sample card.bmp --width 41 --height 23").status, 0);
    ToolRun r = Tov("filter card.bmp out.bmp average sharpen=9 threshold=0 "
                    "kernel=1,3,2,-5,1,2,1 fliphorizontal flipvertical crop=3,2,30,17 scale=60 "
                    "dither16");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "");
    DibGuard want(Load("card.bmp"));
    ASSERT_NE(want.d, nullptr);
    const LONG k[3] = {1, 2, 1};
    ASSERT_EQ(tovAverage(want.d), 0u);
    ASSERT_EQ(tovSharpen(want.d, 9), 0u);
    ASSERT_EQ(tovThreshold(want.d, 0), 0u);
    ASSERT_EQ(tovConvolutionFilter(want.d, k, 1, 3, 2, -5), 0u);
    ASSERT_EQ(tovFlipHorizontal(want.d), 0u);
    ASSERT_EQ(tovFlipVertical(want.d), 0u);
    ASSERT_EQ(tovCrop(want.d, 3, 2, 30, 17), 0u);
    ASSERT_EQ(tovScale(want.d, 60), 0u);
    ASSERT_EQ(tovDither16Color(want.d), 0u);
    DibGuard got(Load("out.bmp"));
    ASSERT_NE(got.d, nullptr);
    ASSERT_EQ(DibWidth(got.d), 18);
    ASSERT_EQ(DibHeight(got.d), 10);
    const Pic a = Read(got.d), b = Read(want.d);
    EXPECT_EQ(a.v, b.v);
}

TEST(FilterTool, RefusesBadArgumentsBeforeReading) {
    tovtest::ScratchDir dir;
    ASSERT_EQ(Tov("sample card.bmp --width 9 --height 4").status, 0);
    ASSERT_EQ(Tov("convert card.bmp card4.bmp --depth 4").status, 0);
    struct Case {
        const char* args;
        const char* message;  // part of what standard error says
    };
    const Case cases[] = {
        {"filter card.bmp out.bmp sharpen=8", "sharpen: '8' is not a number from 9 to 32"},
        {"filter card.bmp out.bmp scale=101", "scale"},
        {"filter card.bmp out.bmp threshold", "threshold takes T"},
        {"filter card.bmp out.bmp blur", "unknown operation 'blur'"},
        {"filter card.bmp out.bmp kernel=3,3,0,0,1,1,1,1,1,1,1,1,1", "DIV not 0"},
        {"filter card.bmp out.bmp kernel=3,3,1,0,1,1", "ROWS x COLS weights"},
        {"filter card.bmp out.bmp gamma=20", "gamma takes one number from 0.1 to 10.0"},
        {"filter missing.bmp out.bmp sharpen=99", "sharpen"},  // checked before reading
        {"filter card.bmp out.bmp crop=4294967295,0,2,2",
         "crop=4294967295,0,2,2: DibErrorInvalidParm (7)"},
        {"filter card.bmp out.bmp infinity", "infinity: DibErrorInvalidParm (7)"},  // 4 rows
        {"filter card4.bmp out.bmp average", "average: DibErrorInvalidDIB (5)"},
        {"filter card.bmp", "expected 3 arguments"},
    };
    for (const Case& c : cases) {
        const ToolRun r = Tov(c.args);
        EXPECT_EQ(r.status, 1) << c.args;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << "\n" << r.err;
        EXPECT_FALSE(tovtest::FileExists("out.bmp")) << c.args;
        std::remove("out.bmp");
    }
    // The usage lists every operation with its range.
    const ToolRun usage = Tov("filter");
    EXPECT_EQ(usage.status, 1);
    for (const char* op :
         {"brightness=N", "contrast=N", "invert", "gamma=G", "stretch[=LOW,HIGH,MODE]", "rank=R",
          "despeckle=T,B", "kernel=ROWS,COLS,DIV,BIAS,W1,...", "average", "sharpen=L", "infinity",
          "threshold=T", "fliphorizontal", "flipvertical", "crop=X,Y,W,H", "scale=P", "dither2",
          "dither16"})
        EXPECT_NE(usage.err.find(std::string("  ") + op), std::string::npos) << op;
}

}  // namespace
