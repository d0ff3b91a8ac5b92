// Golden trace lines of the bitmap core: a refused and a made bitmap and its
// unloading, byte for byte with the stamp removed. Refused handles' lines are
// with the operations' in tests/operations; the files' in tests/files.
#include "dibimages.h"

using namespace tovtest;

namespace {

using Golden = std::vector<std::string>;

// The log without the memory-status dumps, whose figures change from run to run.
Golden Lines() {
    Golden out;
    for (const std::string& line : LogLines())
        if (line != "Memory Status:" && line.rfind("   dw", 0) != 0) out.push_back(line);
    return out;
}

}  // namespace

TEST(DibTrace, CreationAndUnload) {
    const LONG count = DibLiveCount();
    StartLog(5);
    EXPECT_EQ(tovCreateHDIBExt(10, 10, 0, 24), nullptr);
    HDIB h = tovCreateHDIBExt(7, 3, 255, 1);
    ASSERT_NE(h, nullptr);
    const std::string n = Handle(h);
    Golden lines = Lines();
    ASSERT_EQ(lines.size(), 15u);
    EXPECT_EQ(Golden(lines.begin(), lines.begin() + 3),
              (Golden{">tovCreateHDIBExt(10,10,0,24)\r", "!tovCreateHDIBExt():Invalid bitcount\r",
                      ">tovCreateHDIBExt(7,3,255,1)\r"}));
    EXPECT_EQ(Golden(lines.end() - 7, lines.end()),
              (Golden{"   ?DibCreateFromBitmapInfo:DibCount: " + std::to_string(count + 1) + "\r",
                      "<DibCreateFromBitmapInfo()=" + n + "\r", ">tovClear(" + n + ",255)\r",
                      ">DibRegisterPixelIO(1)\r", "<DibRegisterPixelIO()=DibOk\r", "<tovClear()=tovOk\r",
                      "<tovCreateHDIBExt()=" + n + "\r"}));
    StartLog(5);
    EXPECT_EQ(tovUnloadHDIB(h), 0u);
    EXPECT_EQ(Lines(), (Golden{">DibUnload(" + n + ")\r", "   ?DibUnload:DibCount: " + std::to_string(count) + "\r",
                               "<DibUnload()=DibOk\r"}));
    StopLog();
}
