// Golden trace lines of a representative few of the bitmap core's
// functions, byte for byte with the stamp removed.
#include "dibimages.h"

using namespace tovtest;

namespace {

std::string Num(const void* p) { return std::to_string(static_cast<long long>(reinterpret_cast<intptr_t>(p))); }

using Golden = std::vector<std::string>;

// The log without the memory-status dumps, whose figures change from run to run.
Golden Lines() {
    Golden out;
    for (const std::string& line : LogLines())
        if (line != "Memory Status:" && line.rfind("   dw", 0) != 0) out.push_back(line);
    return out;
}

class DibTrace : public ::testing::Test {
protected:
    ScratchDir dir;
    void TearDown() override { StopLog(); }
};

}  // namespace

TEST_F(DibTrace, BadHandles) {
    StartLog(10);
    EXPECT_EQ(tovWidth(nullptr), 0);
    EXPECT_EQ(Lines(), (Golden{">tovWidth(0)\r", ">DibWidth(0)\r", ">DibIsValid(0)\r",
                               "   !DibIsValid():pdib == NULL:Error\r", "<tovWidth()=0 (error)\r"}));
    alignas(8) BYTE junk[sizeof(DibRecord)] = {1, 2, 3};
    StartLog(0);  // error lines come at every level
    EXPECT_EQ(tovHeight(reinterpret_cast<HDIB>(junk)), 0);
    EXPECT_EQ(tovBitsPtr(reinterpret_cast<HDIB>(uintptr_t(8))), nullptr);
    EXPECT_EQ(Lines(), (Golden{"   !DibIsValid():pdib->iSignature:Error\r", "!tovHeight()=0 (error)\r",
                               "   !DibIsValid():IsBadReadPtr:Error\r"}));
}

TEST_F(DibTrace, CreationAndUnload) {
    const LONG count = DibLiveCount();
    StartLog(5);
    EXPECT_EQ(tovCreateHDIBExt(10, 10, 0, 24), nullptr);
    HDIB h = tovCreateHDIBExt(7, 3, 255, 1);
    ASSERT_NE(h, nullptr);
    const std::string n = Num(h);
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
}

TEST_F(DibTrace, BmpSaveAndLoad) {
    Dib h(tovCreateHDIBExt(8, 1, 0, 1));
    const std::string n = Num(h.h);
    StartLog(8);
    EXPECT_EQ(tovSaveBMP(h, u"pic"), 0u);
    EXPECT_EQ(tovLoadBMP(u"none"), nullptr);
    EXPECT_EQ(Lines(), (Golden{">tovSaveBMP(" + n + ",pic)\r", ">DibBMPSave(pic.bmp, " + n + ")\r",
                               "<DibBMPSave()=DibOk\r", "<tovSaveBMP()=tovOk\r", ">tovLoadBMP(none.bmp)\r",
                               ">DibBMPLoad(none.bmp)\r", "<DibBMPLoad()=NULL (CreateFile)\r",
                               "<tovLoadBMP()=NULL (error)\r"}));
    // A refused name leaves no trace at all on load, and no exit line on save.
    StartLog(10);
    EXPECT_EQ(tovLoadBMP(u"x"), nullptr);
    EXPECT_EQ(tovSaveBMP(h, u"x"), DWORD(tovErrorBadFileName));
    EXPECT_EQ(Lines(), (Golden{">tovSaveBMP(" + n + ",x)\r"}));
}
