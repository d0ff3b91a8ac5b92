// tov filter end to end: the operations run in order through the exports,
// bad arguments are refused before the picture is read and name the
// operation.
#include <cstdio>

#include "opstest.h"
#include "toolrun.h"

using namespace opstest;

namespace {

TEST(FilterTool, EndToEnd) {
    tovtest::ScratchDir dir;
    ASSERT_EQ(tovtest::Tov("sample card.bmp --width 41 --height 23").status, 0);
    const tovtest::ToolRun run = tovtest::Tov(
        "filter card.bmp out.bmp average sharpen=9 threshold=0 kernel=1,3,2,-5,1,2,1 fliphorizontal "
        "flipvertical crop=3,2,30,17 scale=60 dither16");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    Dib want(tovLoadBMP(u"card.bmp")), got(tovLoadBMP(u"out.bmp"));
    ASSERT_TRUE(want.h && got.h);
    const LONG k[3] = {1, 2, 1};
    for (DWORD r : {tovAverage(want), tovSharpen(want, 9), tovThreshold(want, 0),
                    tovConvolutionFilter(want, k, 1, 3, 2, -5), tovFlipHorizontal(want), tovFlipVertical(want),
                    tovCrop(want, 3, 2, 30, 17), tovScale(want, 60), tovDither16Color(want)})
        ASSERT_EQ(r, 0u);
    ASSERT_EQ(std::make_pair(DibWidth(got), DibHeight(got)), std::make_pair(LONG(18), LONG(10)));
    EXPECT_EQ(Read(got).v, Read(want).v);

    std::remove("out.bmp");
    const struct { const char* args; const char* message; } refused[] = {
        {"card.bmp out.bmp sharpen=8", "sharpen: '8' is not a number from 9 to 32"},
        {"card.bmp out.bmp blur", "unknown operation 'blur'"},
        {"missing.bmp out.bmp sharpen=99", "sharpen"},  // before reading
        {"card.bmp out.bmp crop=4294967295,0,2,2", "crop=4294967295,0,2,2: DibErrorInvalidParm (7)"},
        {"card.bmp", "expected 3 arguments"}};
    for (const auto& c : refused) {
        const tovtest::ToolRun r = tovtest::Tov(std::string("filter ") + c.args);
        EXPECT_EQ(r.status, std::string(c.args) == "card.bmp" ? 2 : 1) << c.args;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << "\n" << r.err;
        EXPECT_FALSE(tovtest::FileExists("out.bmp")) << c.args;
        std::remove("out.bmp");
    }
}

}  // namespace
