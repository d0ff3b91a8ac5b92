// The trace log: stamps, levels, sinks and their order, the cut at the line
// limit, the file sink, the memory dump, the assertions and threads.
#include "testsupport.h"

#include <gtest/gtest.h>
#include <tovrel/tovrel.h>

#include "trace.h"
#include "tovce.h"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <cstdio>
#include <regex>
#include <string>
#include <thread>

using namespace tovtest;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

const std::string kDate = R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d )", kTime = R"(\d\d:\d\d:\d\d )";
constexpr size_t kDateChars = 18;  // "MM/DD/YY hh:mm:ss "

bool Matches(const std::string& text, const std::string& pattern) { return std::regex_match(text, std::regex(pattern)); }
std::string Escape(const std::string& text) {
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

struct TraceTest : ::testing::Test {
    ScratchDir dir;
    ~TraceTest() override { StopLog(); }
};

TEST_F(TraceTest, GoldenLinesCarryTheirStampsToEverySinkInOrder) {
    tovConfigDebug(1, 10, tovDebugFile);
    auto today = [] {  // the C library's date, to hold the platform's against
        const time_t now = time(nullptr);
        tm t;
        return *localtime_r(&now, &t);
    };
    const tm first = today();
    SYSTEMTIME before, after;
    GetLocalTime(&before);
    DebugTrace(5, u">tovCrop(%d,%d,%d,%d,%d)\r\n", 1234, 0, 0, 16, 8);
    GetLocalTime(&after);
    const tm local = today();
    DebugError(u"   !DibDither2Color():LocalAlloc:errordata:Error\r\n");
    DebugTrace(5, u"%s=%.2f %hs\r\n", u"gamma", 1.5, "narrow");
    DebugTrace(9, u"no line ending");
    DebugTrace(9, u"\n");
    DebugMemoryStatus(9);
    std::string memory = kDate + "Memory Status:\n";
    for (const char* name : {"dwMemoryLoad", "dwTotalPageFile", "dwAvailPageFile", "dwTotalPhys", "dwAvailPhys",
                             "dwAvailVirtual", "dwTotalVirtual"})
        memory += kDate + "   " + name + (std::string(name) == "dwMemoryLoad" ? R"(: \d+\n)" : R"(: [1-9]\d*\n)");  // not zeros
    const std::string text = LogText();
    EXPECT_TRUE(Matches(text, kDate + Escape(">tovCrop(1234,0,0,16,8)\r\n") + kTime +
                                  Escape("   !DibDither2Color():LocalAlloc:errordata:Error\r\n") + kDate +
                                  Escape("gamma=1.50 narrow\r\n") + kDate + "no line ending" + kDate + "\n" + memory))
        << text;
    // The stamp is the local date and time.
    int month, day, year, hour, minute, second;
    ASSERT_EQ(std::sscanf(text.c_str(), "%d/%d/%d %d:%d:%d", &month, &day, &year, &hour, &minute, &second), 6);
    if (before.wDay == after.wDay && first.tm_mday == local.tm_mday) {  // else midnight passed during the test
        EXPECT_EQ(std::vector<int>({month, day, year}),
                  std::vector<int>({local.tm_mon + 1, local.tm_mday, local.tm_year % 100}));
        const int at = hour * 3600 + minute * 60 + second;
        EXPECT_GE(at, before.wHour * 3600 + before.wMinute * 60 + before.wSecond);
        EXPECT_LE(at, after.wHour * 3600 + after.wMinute * 60 + after.wSecond);
    }
    // Every sink the same line: the debug stream first, then the message box
    // with its caption (both standard error), the console, the file.
    tovConfigDebug(1, 5, 0x0F);
    std::remove("imaging.log");
    CaptureStdout();
    CaptureStderr();
    DebugTrace(5, u">tovWidth(%d) %s\r\n", 7, u"w\u00f6rld \u20ac\U0001F600");
    const std::string out = GetCapturedStdout(), err = GetCapturedStderr(), line = LogText();
    ASSERT_TRUE(Matches(line, kDate + ">tovWidth\\(7\\) w\xc3\xb6rld \xe2\x82\xac\xf0\x9f\x98\x80\r\n")) << line;
    EXPECT_EQ(out, line);
    EXPECT_EQ(err.substr(0, line.size()), line);
    EXPECT_NE(err.find("Debug", line.size()), std::string::npos);
    EXPECT_NE(err.find(line, line.size()), std::string::npos);
}

TEST_F(TraceTest, SettingsDecideWhatReachesTheSinks) {
    // (Levels between: the golden lines of tests/dib at 5, 8 and 10.)
    const std::vector<std::string> all = {"L0\r", "L5\r", "L8\r", "L9\r", "L10\r", "E\r"};
    struct Case { DWORD enable, level, outputs; std::vector<std::string> lines; } cases[] = {  // empty: no file
        {1, 0, tovDebugFile, {"L0\r", "E\r"}}, {1, 0xFFFFFFFFu, tovDebugFile | 0xF0u, all},
        {0, 10, 0x0F, {}}, {1, 10, 0, {}}, {1, 10, 0xFFFFFFF0u, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.enable << "," << c.level << "," << c.outputs);
        std::remove("imaging.log");
        tovConfigDebug(c.enable, c.level, c.outputs);
        CaptureStdout();
        CaptureStderr();
        for (DWORD level : {0u, 5u, 8u, 9u, 10u}) DebugTrace(level, u"L%d\r\n", level);
        DebugError(u"E\r\n");
        DebugMemoryStatus(0);
        if (!c.enable) DebugWriteFile(u"the file sink alone\r\n");
        const std::string out = GetCapturedStdout() + GetCapturedStderr();
        const std::vector<std::string> lines = LogLines();
        EXPECT_EQ(FileExists("imaging.log"), !c.lines.empty());
        if (c.lines.empty()) EXPECT_EQ(out, "");
        else if (lines.size() == c.lines.size() + 8)  // and the memory dump at level 0
            EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + c.lines.size()), c.lines);
        else ADD_FAILURE() << lines.size() << " lines";
    }
    // The console alone: no file.
    tovConfigDebug(1, 5, tovDebugConsole);
    CaptureStdout();
    DebugError(u"console only\r\n");
    EXPECT_TRUE(Matches(GetCapturedStdout(), kTime + "console only\r\n"));
    EXPECT_FALSE(FileExists("imaging.log"));
}

// Stamp and text together hold at most 1023 characters; a longer line is cut,
// keeps the ending its format asks for, and stays valid UTF-8.
TEST_F(TraceTest, LongLinesAreCutAndKeepTheirEnding) {
    std::u16string pairs(1002, u'a');
    for (int i = 0; i < 50; ++i) pairs += u"\U0001F600";
    struct Case { std::u16string body, ending; std::string want; } cases[] = {
        {std::u16string(1003, u'a'), u"\r\n", std::string(1003, 'a')},  // exactly full
        {std::u16string(1004, u'a'), u"\r\n", std::string(1003, 'a')},
        {std::u16string(5000, u'a'), u"\n", std::string(1004, 'a')},
        {std::u16string(5000, u'a'), u"", std::string(1005, 'a')},
        {std::u16string(2000, u'\u00e9'), u"\r\n", N(std::u16string(1003, u'\u00e9').c_str())},  // two bytes each
        {pairs, u"\r\n", std::string(1002, 'a')},  // a pair the cut would split is left out whole
    };
    tovConfigDebug(1, 5, tovDebugFile);
    for (const Case& c : cases) {
        std::remove("imaging.log");
        DebugTrace(5, (c.body + c.ending).c_str());
        const std::string want = c.want + N(c.ending.c_str()), text = LogText();
        ASSERT_EQ(text.size(), kDateChars + want.size()) << c.want.size();
        EXPECT_TRUE(text.compare(kDateChars, std::string::npos, want) == 0);  // no kilobyte of letters on failure
    }
}

TEST_F(TraceTest, FileSinkAppendsToTheLog) {
    WriteBytes("imaging.log", "earlier\n");
    tovConfigDebug(1, 5, tovDebugFile);
    DebugTrace(5, u"one\r\n");
    DebugTrace(5, u"two\r\n");
    EXPECT_EQ(LogLines(), (std::vector<std::string>{"earlier", "one\r", "two\r"}));
    // A log that cannot be opened loses its lines; the other sinks get theirs.
    std::remove("imaging.log");
    ASSERT_EQ(mkdir("imaging.log", 0755), 0);
    tovConfigDebug(1, 5, tovDebugFile | tovDebugConsole);
    CaptureStdout();
    DebugTrace(5, u"lost\r\n");
    EXPECT_TRUE(Matches(GetCapturedStdout(), kDate + "lost\r\n"));
    rmdir("imaging.log");
}

TEST(TraceDeathTest, AssertionsEndTheProcess) {
    tovConfigDebug(0, 5, 0);  // whatever the trace settings
    EXPECT_EXIT(DIB_ASSERT(1 + 1 == 3), ::testing::ExitedWithCode(3),
                "Assertion Error.*Condition: 1 \\+ 1 == 3 failed\\.  .*trace_test\\.cpp line [0-9]+");
    EXPECT_EXIT(ASSERT(sizeof(int) == 1), ::testing::KilledBySignal(SIGTRAP),
                "ASSERT failed in file .*trace_test\\.cpp at line [0-9]+ \r\n");
    DIB_ASSERT(1 + 1 == 2);
    ASSERT(sizeof(int) == 4);
}

// Threads configure and trace at once, the first configuration of the
// process among them: every line arrives whole, each thread's in order.
TEST(TraceThreadTest, LinesFromThreadsStayWholeAndNoneIsLost) {
    ScratchDir dir;
    constexpr int kThreads = 4, kLines = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                if (i < 50) tovConfigDebug(1, 5, tovDebugFile);
                DebugTrace(5, u"thread %d line %d of the test\r\n", t, i);
            }
        });
    for (std::thread& thread : threads) thread.join();
    StopLog();
    std::vector<int> next(kThreads, 0);
    for (const std::string& line : LogLines()) {
        int t, i;
        char tail[32] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "thread %d line %d of the tes%31s", &t, &i, tail), 3) << line;
        ASSERT_TRUE(t >= 0 && t < kThreads) << line;
        EXPECT_EQ(i, next[t]++) << line;
    }
    EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}

}  // namespace
