// Golden trace lines of a representative set of the bitmap core's
// functions, byte for byte (the stamp removed), at the levels they use.
#include "dibimages.h"

#include <algorithm>

using namespace tovtest;

namespace {

std::string Num(const void* p) { return std::to_string(static_cast<long long>(reinterpret_cast<intptr_t>(p))); }

// The log without the memory-status dumps, whose figures change from run to run.
std::vector<std::string> Lines(int* memoryDumps = nullptr) {
    std::vector<std::string> out;
    int dumps = 0;
    for (const std::string& line : tovtest::LogLines()) {
        if (line == "Memory Status:") {
            ++dumps;
            continue;
        }
        if (line.rfind("   dw", 0) == 0) continue;
        out.push_back(line);
    }
    if (memoryDumps) *memoryDumps = dumps;
    return out;
}

using Golden = std::vector<std::string>;

class DibTrace : public ::testing::Test {
protected:
    tovtest::ScratchDir dir;
    void TearDown() override { tovtest::StopLog(); }
};

}  // namespace

TEST_F(DibTrace, AccessorOfBadHandles) {
    tovtest::StartLog(10);
    EXPECT_EQ(tovWidth(nullptr), 0);
    EXPECT_EQ(Lines(), (Golden{">tovWidth(0)\r", ">DibWidth(0)\r", ">DibIsValid(0)\r",
                               "   !DibIsValid():pdib == NULL:Error\r", "<tovWidth()=0 (error)\r"}));

    alignas(8) BYTE junk[sizeof(DibRecord)] = {1, 2, 3};
    tovtest::StartLog(10);
    EXPECT_EQ(tovHeight(reinterpret_cast<HDIB>(junk)), 0);
    std::string j = Num(junk);
    EXPECT_EQ(Lines(), (Golden{">tovHeight(" + j + ")\r", ">DibHeight(" + j + ")\r", ">DibIsValid(" + j + ")\r",
                               "   !DibIsValid():pdib->iSignature:Error\r", "!tovHeight()=0 (error)\r"}));

    // Error lines come also at level 0; an unreadable pointer has its own line.
    tovtest::StartLog(0);
    EXPECT_EQ(tovBitsPtr(reinterpret_cast<HDIB>(uintptr_t(8))), nullptr);
    EXPECT_EQ(Lines(), (Golden{"   !DibIsValid():IsBadReadPtr:Error\r"}));
}

TEST_F(DibTrace, ValidityAndAccessorsOfAGoodHandle) {
    HDIB h = tovCreateHDIBExt(9, 2, 0, 4);
    std::string n = Num(h);
    tovtest::StartLog(10);
    EXPECT_EQ(tovHDIBIsValid(h), 0u);
    EXPECT_EQ(tovNumColors(h), 16u);
    EXPECT_EQ(Lines(), (Golden{">tovHDIBIsValid (" + n + ")\r", ">DibIsValid(" + n + ")\r", "<DibIsValid()=DibOk\r",
                               "<tovHDIBIsValid ()=tovOk\r", ">tovNumColors(" + n + ")\r",
                               "<DibNumColors(" + n + ")\r", ">DibIsValid(" + n + ")\r", "<DibIsValid()=DibOk\r",
                               "<DibNumColors()=16\r", "<tovNumColors()=16\r"}));
    tovtest::StartLog(9);
    EXPECT_EQ(DibRowLength(h), 8);
    EXPECT_EQ(Lines(), (Golden{"<DibRowLength(" + n + ")\r", ">DibWidth(" + n + ")\r", "<DibWidth()=9\r",
                               ">DibBitCount(" + n + ")\r", "<DibBitCount()=4\r", "<DibRowLength()=8\r"}));
    tovtest::StartLog(5);
    DibDump(h);
    EXPECT_EQ(Lines(), (Golden{"HDIB: " + n + "\r", "   ?DibBitmapHandle: " + Num(h->hBitmap) + "\r",
                               "   ?pBits: " + Num(h->pBits) + "\r", "   ?pbmiColors: " + Num(h->pbmiColors) + "\r",
                               "   ?ppRow: " + Num(h->ppRow) + "\r", "   ?DibWidth: 9\r", "   ?DibHeight: 2\r",
                               "   ?DibBitCount: 4\r", "   ?DibRowLength: 8\r", "   ?DibNumColors: 16\r",
                               "   ?DibColorPlanes: 1\r"}));
    tovtest::StopLog();
    DibUnload(h);
}

TEST_F(DibTrace, CreationAndUnload) {
    LONG count = DibLiveCount();
    tovtest::StartLog(5);
    HDIB h = tovCreateHDIBExt(7, 3, 255, 1);
    ASSERT_NE(h, nullptr);
    int dumps = 0;
    auto lines = Lines(&dumps);
    std::string n = Num(h);
    ASSERT_EQ(lines.size(), 13u);
    EXPECT_EQ(lines[0], ">tovCreateHDIBExt(7,3,255,1)\r");
    EXPECT_EQ(lines[1].rfind(">DibCreateFromBitmapInfo(", 0), 0u);
    EXPECT_EQ(Golden(lines.begin() + 2, lines.end()),
              (Golden{"   ?DibCreateFromBitmapInfo():bmiHeader.biHeight: 3\r",
                      "   ?DibCreateFromBitmapInfo():bmiHeader.biWidth: 7\r",
                      "   ?DibCreateFromBitmapInfo():bmiHeader.biBitCount: 1\r",
                      "   ?DibCreateFromBitmapInfo():bmiHeader.biClrUsed: 2\r",
                      "   ?DibCreateFromBitmapInfo:DibCount: " + std::to_string(count + 1) + "\r",
                      "<DibCreateFromBitmapInfo()=" + n + "\r", ">tovClear(" + n + ",255)\r",
                      ">DibRegisterPixelIO(1)\r", "<DibRegisterPixelIO()=DibOk\r", "<tovClear()=tovOk\r",
                      "<tovCreateHDIBExt()=" + n + "\r"}));
    EXPECT_EQ(dumps, 1);
    auto raw = tovtest::LogLines();
    auto at = std::find(raw.begin(), raw.end(), "Memory Status:");
    ASSERT_LE(at + 8, raw.end());
    EXPECT_EQ(at[1].rfind("   dwMemoryLoad: ", 0), 0u);
    EXPECT_EQ(at[7].rfind("   dwTotalVirtual: ", 0), 0u);

    tovtest::StartLog(5);
    EXPECT_EQ(tovUnloadHDIB(h), 0u);
    EXPECT_EQ(Lines(), (Golden{">DibUnload(" + n + ")\r", "   ?DibUnload:DibCount: " + std::to_string(count) + "\r",
                               "<DibUnload()=DibOk\r"}));
}

TEST_F(DibTrace, RefusedCreation) {
    tovtest::StartLog(5);
    EXPECT_EQ(tovCreateHDIBExt(10, 10, 0, 24), nullptr);
    EXPECT_EQ(Lines(), (Golden{">tovCreateHDIBExt(10,10,0,24)\r", "!tovCreateHDIBExt():Invalid bitcount\r"}));
    tovtest::StartLog(5);
    EXPECT_EQ(tovCreateHDIBExt(0, 10, 0, 8), nullptr);
    auto lines = Lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.back(), "!tovCreateHDIBExt():DibCreateFromBitmapInfo:Error\r");
    EXPECT_EQ(lines[lines.size() - 2], "   ?DibCreateFromBitmapInfo():bmiHeader.biClrUsed: 256\r");

    // A 24-bit header without colours: the depth line.
    alignas(8) BYTE block[48] = {};
    reinterpret_cast<BITMAPINFO*>(block)->bmiHeader = {40, 3, 3, 1, 24, 0, 0, 0, 0, 0, 0};
    tovtest::StartLog(0);
    EXPECT_EQ(DibCreateFromBitmapInfo(reinterpret_cast<BITMAPINFO*>(block)), nullptr);
    EXPECT_EQ(Lines(), (Golden{"   !DibCreateFromBitmapInfo():pdib->ds.dsBmih.biBitCount:Error\r"}));
}

TEST_F(DibTrace, ClearConvertAndPixelRegistration) {
    HDIB h = tovCreateHDIBExt(4, 4, 0, 8);
    std::string n = Num(h);
    tovtest::StartLog(5);
    EXPECT_EQ(tovClear(h, 256), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(Lines(), (Golden{">tovClear(" + n + ",256)\r"}));
    tovtest::StartLog(8);
    EXPECT_EQ(tovClear(h, 3), 0u);
    EXPECT_EQ(Lines(), (Golden{">tovClear(" + n + ",3)\r", ">DibClear(" + n + ", 3)\r", ">DibRegisterPixelIO(8)\r",
                               "<DibRegisterPixelIO()=DibOk\r", "<DibClear()=DibOk\r", "<tovClear()=tovOk\r"}));
    tovtest::StartLog(5);
    DibPixelIO io;
    EXPECT_EQ(DibRegisterPixelIO(24, &io), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(Lines(), (Golden{">DibRegisterPixelIO(24)\r", ">DibRegisterPixelIO()=DibErrorInvalidParm\r"}));
    tovtest::StartLog(5);
    EXPECT_EQ(tovConvert(h, 2), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(Lines(), (Golden{">tovConvert(" + n + ",2)\r", ">DibConvert(" + n + ",2)\r", "<tovConvert()=7 (error)\r"}));
    tovtest::StartLog(5);
    EXPECT_EQ(tovRecreateHDIBExt(h, 4, 4, 0, 24), DWORD(DibErrorInvalidParm));
    EXPECT_EQ(Lines(), (Golden{">tovRecreateHDIB(" + n + ",4,4,0,24)\r", ">DibRecreate()\r",
                               "!DibRecreate():Invalid bitcount\r", "<tovRecreateHDIB()=7 (error)\r"}));
    tovtest::StopLog();
    DibUnload(h);
}

TEST_F(DibTrace, CopyOfEqualBitmaps) {
    HDIB a = tovCreateHDIBExt(4, 4, 0, 8);
    HDIB b = tovCreateHDIBExt(4, 4, 0, 8);
    tovtest::StartLog(5);
    EXPECT_EQ(DibCopy(a, b), 0u);
    EXPECT_EQ(Lines(), (Golden{">DibCopy (" + Num(a) + ", " + Num(b) + ")\r", "<DibCopy ()=DibOk\r"}));
    tovtest::StopLog();
    DibUnload(a);
    DibUnload(b);
}

TEST_F(DibTrace, BmpSaveAndLoad) {
    HDIB h = tovCreateHDIBExt(8, 1, 0, 1);
    std::string n = Num(h);
    tovtest::StartLog(8);
    EXPECT_EQ(tovSaveBMP(h, u"pic"), 0u);
    EXPECT_EQ(Lines(), (Golden{">tovSaveBMP(" + n + ",pic)\r", ">DibBMPSave(pic.bmp, " + n + ")\r",
                               "<DibBMPSave()=DibOk\r", "<tovSaveBMP()=tovOk\r"}));
    tovtest::StartLog(5);
    HDIB back = tovLoadBMP(u"pic");
    ASSERT_NE(back, nullptr);
    auto lines = Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines.front(), ">tovLoadBMP(pic.bmp)\r");
    EXPECT_EQ(lines.back(), "<tovLoadBMP()=" + Num(back) + "\r");
    tovtest::StartLog(8);
    EXPECT_EQ(tovLoadBMP(u"none"), nullptr);
    EXPECT_EQ(Lines(), (Golden{">tovLoadBMP(none.bmp)\r", ">DibBMPLoad(none.bmp)\r",
                               "<DibBMPLoad()=NULL (CreateFile)\r", "<tovLoadBMP()=NULL (error)\r"}));
    // A refused name leaves no trace at all on load, and no exit line on save.
    tovtest::StartLog(10);
    EXPECT_EQ(tovLoadBMP(u"x"), nullptr);
    EXPECT_EQ(tovSaveBMP(h, u"x"), DWORD(tovErrorBadFileName));
    EXPECT_EQ(Lines(), (Golden{">tovSaveBMP(" + n + ",x)\r"}));
    tovtest::StopLog();
    DibUnload(back);
    DibUnload(h);
}
