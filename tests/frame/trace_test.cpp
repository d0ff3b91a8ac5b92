// The trace log: stamps, levels, sinks and their order, the cut at the line
// limit, the file sink, the memory dump and the assertions.
#include "testsupport.h"

#include <gtest/gtest.h>
#include <tovrel/tovrel.h>

#include "trace.h"
#include "tovce.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <regex>
#include <thread>
#include <string>

using namespace tovtest;

namespace {

const char kDateStamp[] = R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d )";
const char kTimeStamp[] = R"(\d\d:\d\d:\d\d )";
constexpr size_t kDateStampChars = 18;  // "MM/DD/YY hh:mm:ss "

bool Matches(const std::string& text, const std::string& pattern) {
    return std::regex_match(text, std::regex(pattern));
}

std::string Escape(const std::string& text) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_replace(text, special, R"(\$&)");
}

// Writes one line at each of the levels and one error, each naming itself.
void WriteLevelProbe() {
    for (DWORD level : {0u, 5u, 8u, 9u, 10u}) DebugTrace(level, u"L%d\r\n", level);
    DebugError(u"E\r\n");
}

struct TraceTest : ::testing::Test {
    ScratchDir dir;
    ~TraceTest() override { StopLog(); }
};

TEST_F(TraceTest, GoldenLinesCarryTheirStamps) {
    tovConfigDebug(1, 10, tovDebugFile);
    DebugTrace(5, u">tovCrop(%d,%d,%d,%d,%d)\r\n", 1234, 0, 0, 16, 8);
    DebugError(u"   !DibDither2Color():LocalAlloc:errordata:Error\r\n");
    DebugTrace(8, u"   ?DibBitCount: %d\r\n", 4);
    DebugTrace(5, u"%s=%.2f %hs\r\n", u"gamma", 1.5, "narrow");
    DebugTrace(9, u"no line ending");
    DebugTrace(9, u"\n");
    std::string expected = std::string(kDateStamp) + Escape(">tovCrop(1234,0,0,16,8)\r\n") +
                           kTimeStamp + Escape("   !DibDither2Color():LocalAlloc:errordata:Error\r\n") +
                           kDateStamp + Escape("   ?DibBitCount: 4\r\n") +
                           kDateStamp + Escape("gamma=1.50 narrow\r\n") +
                           kDateStamp + "no line ending" + kDateStamp + "\n";
    EXPECT_TRUE(Matches(LogText(), expected)) << LogText();
}

TEST_F(TraceTest, StampShowsTheLocalDateAndTime) {
    tovConfigDebug(1, 5, tovDebugFile);
    SYSTEMTIME before, after;
    GetLocalTime(&before);
    DebugTrace(5, u"now\r\n");
    GetLocalTime(&after);
    int month, day, year, hour, minute, second;
    ASSERT_EQ(std::sscanf(LogText().c_str(), "%d/%d/%d %d:%d:%d", &month, &day, &year, &hour,
                          &minute, &second), 6);
    if (before.wDay != after.wDay) GTEST_SKIP() << "midnight passed during the test";
    EXPECT_EQ(month, before.wMonth);
    EXPECT_EQ(day, before.wDay);
    EXPECT_EQ(year, before.wYear % 100);
    int at = hour * 3600 + minute * 60 + second;
    EXPECT_GE(at, before.wHour * 3600 + before.wMinute * 60 + before.wSecond);
    EXPECT_LE(at, after.wHour * 3600 + after.wMinute * 60 + after.wSecond);
}

TEST_F(TraceTest, SettingsDecideWhatReachesTheFile) {
    struct Case {
        DWORD enable, level, outputs;
        std::vector<std::string> lines;  // empty: no file at all
    } cases[] = {
        {1, 5, tovDebugFile, {"L0\r", "L5\r", "E\r"}},
        {1, 8, tovDebugFile, {"L0\r", "L5\r", "L8\r", "E\r"}},
        {1, 0, tovDebugFile, {"L0\r", "E\r"}},
        {1, 10, tovDebugFile, {"L0\r", "L5\r", "L8\r", "L9\r", "L10\r", "E\r"}},
        {1, 0xFFFFFFFFu, tovDebugFile, {"L0\r", "L5\r", "L8\r", "L9\r", "L10\r", "E\r"}},
        {1, 0xFFFFFFFFu, tovDebugFile | 0xF0u, {"L0\r", "L5\r", "L8\r", "L9\r", "L10\r", "E\r"}},
        {0, 10, tovDebugFile, {}},
        {0, 10, 0x0F, {}},
        {1, 10, 0, {}},
        {1, 10, 0xFFFFFFF0u, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.enable << "," << c.level << "," << c.outputs);
        std::remove("imaging.log");
        tovConfigDebug(c.enable, c.level, c.outputs);
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        WriteLevelProbe();
        DebugMemoryStatus(0);
        if (!c.enable) DebugWriteFile(u"the file sink alone\r\n");
        std::string out = ::testing::internal::GetCapturedStdout();
        std::string err = ::testing::internal::GetCapturedStderr();
        if (c.lines.empty()) {
            EXPECT_FALSE(FileExists("imaging.log"));
            EXPECT_EQ(out, "");
            EXPECT_EQ(err, "");
            continue;
        }
        std::vector<std::string> lines = LogLines();
        ASSERT_EQ(lines.size(), c.lines.size() + 8);  // and the memory dump at level 0
        EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + c.lines.size()), c.lines);
        // The error line alone carries no date.
        std::string text = LogText();
        size_t at = text.find("E\r\n");
        ASSERT_GE(at, 10u);
        EXPECT_TRUE(Matches(text.substr(at - 10, 13), "\n" + std::string(kTimeStamp) + "E\r\n"));
    }
}

TEST_F(TraceTest, SinksGetTheSameLineInTheirOrder) {
    tovConfigDebug(1, 5, 0x0F);
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    DebugTrace(5, u">tovWidth(%d) %s\r\n", 7, u"w\u00f6rld \u20ac\U0001F600");
    std::string out = ::testing::internal::GetCapturedStdout();
    std::string err = ::testing::internal::GetCapturedStderr();
    std::string line = LogText();
    ASSERT_TRUE(Matches(line, std::string(kDateStamp) + ">tovWidth\\(7\\) w\xc3\xb6rld \xe2\x82\xac\xf0\x9f\x98\x80\r\n"))
        << line;
    EXPECT_EQ(out, line);  // console
    // Debug stream first, then the message box with its caption.
    EXPECT_EQ(err.substr(0, line.size()), line);
    EXPECT_NE(err.find("Debug", line.size()), std::string::npos);
    EXPECT_NE(err.find(line, line.size()), std::string::npos);

    tovConfigDebug(1, 5, tovDebugConsole);
    std::remove("imaging.log");
    ::testing::internal::CaptureStdout();
    DebugError(u"console only\r\n");
    out = ::testing::internal::GetCapturedStdout();
    EXPECT_TRUE(Matches(out, std::string(kTimeStamp) + "console only\r\n")) << out;
    EXPECT_FALSE(FileExists("imaging.log"));
}

// Stamp and text together hold at most 1023 characters; a longer line is
// cut and keeps the ending that its format asks for.
TEST_F(TraceTest, LongLinesAreCutAndKeepTheirEnding) {
    struct Case {
        size_t letters;
        const char16_t* ending;
        size_t expectedLetters;
    } cases[] = {
        {1003, u"\r\n", 1003},  // exactly full
        {1004, u"\r\n", 1003},
        {5000, u"\r\n", 1003},
        {5000, u"\n", 1004},
        {5000, u"", 1005},
        {1005, u"", 1005},
    };
    tovConfigDebug(1, 5, tovDebugFile);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.letters);
        std::remove("imaging.log");
        std::u16string format(c.letters, u'a');
        format += c.ending;
        DebugTrace(5, format.c_str());
        std::string text = LogText();
        std::string ending = N(c.ending);
        ASSERT_EQ(text.size(), kDateStampChars + c.expectedLetters + ending.size());
        // Compared by position, so that a failure does not print a kilobyte of letters.
        size_t lettersEnd = std::min(text.find_first_not_of('a', kDateStampChars), text.size());
        EXPECT_EQ(lettersEnd, kDateStampChars + c.expectedLetters);
        EXPECT_EQ(text.substr(lettersEnd), ending);
    }
    // A text longer than the line buffer through the format itself.
    std::remove("imaging.log");
    std::u16string big(3000, u'b');
    DebugError(u"%s\r\n", big.c_str());
    std::string text = LogText();
    EXPECT_EQ(text.size(), 1023u);
    EXPECT_EQ(text.substr(text.size() - 3), "b\r\n");
}

TEST_F(TraceTest, CutLinesStayValidText) {
    tovConfigDebug(1, 5, tovDebugFile);
    // Two-byte characters: 1003 of them fill the line, in 2006 bytes.
    std::u16string wide(2000, u'\u00e9');
    DebugTrace(5, (wide + u"\r\n").c_str());
    std::string text = LogText();
    EXPECT_EQ(text.size(), kDateStampChars + 1003 * 2 + 2);
    EXPECT_EQ(text.substr(text.size() - 4), "\xc3\xa9\r\n");
    // A pair of surrogates that would be split by the cut is left out whole.
    std::remove("imaging.log");
    std::u16string pairs = std::u16string(1002, u'a');
    for (int i = 0; i < 50; ++i) pairs += u"\U0001F600";
    DebugTrace(5, (pairs + u"\r\n").c_str());
    text = LogText();
    EXPECT_EQ(text.find("\xef\xbf\xbd"), std::string::npos);  // no replacement character
    EXPECT_EQ(text.size(), kDateStampChars + 1002 + 2);
    EXPECT_EQ(text.find_first_not_of('a', kDateStampChars), kDateStampChars + 1002);
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
}

TEST_F(TraceTest, FileSinkAppendsAndSurvivesAnUnusableFile) {
    {
        FILE* f = std::fopen("imaging.log", "wb");
        std::fputs("earlier\n", f);
        std::fclose(f);
    }
    tovConfigDebug(1, 5, tovDebugFile);
    DebugTrace(5, u"one\r\n");
    DebugTrace(5, u"two\r\n");
    EXPECT_EQ(LogLines(), (std::vector<std::string>{"earlier", "one\r", "two\r"}));

    // A log that cannot be opened loses its lines, and the other sinks still
    // get theirs.
    std::remove("imaging.log");
    ASSERT_EQ(mkdir("imaging.log", 0755), 0);
    tovConfigDebug(1, 5, tovDebugFile | tovDebugConsole);
    ::testing::internal::CaptureStdout();
    DebugTrace(5, u"lost\r\n");
    EXPECT_TRUE(Matches(::testing::internal::GetCapturedStdout(), std::string(kDateStamp) + "lost\r\n"));
    rmdir("imaging.log");
}

TEST_F(TraceTest, FileNameComesFromTheConfigurationExport) {
    DebugSetFileName(u"other.log");
    DebugConfig(1, 5, tovDebugFile);
    DebugTrace(5, u"x\r\n");
    EXPECT_TRUE(FileExists("other.log"));
    EXPECT_FALSE(FileExists("imaging.log"));
    tovConfigDebug(1, 5, tovDebugFile);
    DebugTrace(5, u"y\r\n");
    EXPECT_EQ(LogLines(), std::vector<std::string>{"y\r"});

    // A name longer than the setting is cut to its 255 characters.
    std::u16string longName(400, u'n');
    DebugSetFileName(longName.c_str());
    DebugTrace(5, u"z\r\n");
    EXPECT_TRUE(FileExists(std::string(255, 'n')));
    DebugSetFileName(nullptr);  // no name: the file sink has nowhere to go
    DebugTrace(5, u"z\r\n");
    EXPECT_EQ(ReadFileBytes(std::string(255, 'n')).size(), kDateStampChars + 3);
}

TEST_F(TraceTest, MemoryStatusIsEightLinesAtItsLevel) {
    tovConfigDebug(1, 5, tovDebugFile);
    DebugMemoryStatus(8);
    EXPECT_FALSE(FileExists("imaging.log"));
    DebugMemoryStatus(5);
    std::string pattern = kDateStamp + std::string("Memory Status:\n");
    for (const char* name : {"dwMemoryLoad", "dwTotalPageFile", "dwAvailPageFile", "dwTotalPhys",
                             "dwAvailPhys", "dwAvailVirtual", "dwTotalVirtual"})
        pattern += kDateStamp + std::string("   ") + name + R"(: -?\d+\n)";
    EXPECT_TRUE(Matches(LogText(), pattern)) << LogText();
}

TEST(TraceDeathTest, AssertionShowsItsBoxAndEndsWithStatus3) {
    tovConfigDebug(0, 5, 0);  // does not depend on the trace settings
    EXPECT_EXIT(DebugAssert(u"dib_geometry.cpp", 42, u"scalefactor!=0"), ::testing::ExitedWithCode(3),
                "Assertion Error.*Condition: scalefactor!=0 failed\\.  dib_geometry\\.cpp line 42");
    EXPECT_EXIT(DIB_ASSERT(1 + 1 == 3), ::testing::ExitedWithCode(3),
                "Condition: 1 \\+ 1 == 3 failed\\.  .*trace_test\\.cpp line [0-9]+");
    DIB_ASSERT(1 + 1 == 2);
}

TEST(TraceDeathTest, TovAssertPrintsAndBreaks) {
    EXPECT_EXIT(ASSERT(sizeof(int) == 1), ::testing::KilledBySignal(SIGTRAP),
                "ASSERT failed in file .*trace_test\\.cpp at line [0-9]+ \r\n");
    ASSERT(sizeof(int) == 4);
}

}  // namespace

namespace {

// Threads trace at once: every line arrives, whole.
TEST(TraceThreadTest, LinesFromThreadsStayWholeAndNoneIsLost) {
    ScratchDir dir;
    constexpr int kThreads = 4, kLines = 300;
    tovConfigDebug(1, 5, tovDebugFile);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) DebugTrace(5, u"thread %d line %d of the test\r\n", t, i);
        });
    for (std::thread& thread : threads) thread.join();
    StopLog();
    std::vector<std::string> lines = LogLines();
    EXPECT_EQ(lines.size(), size_t(kThreads * kLines));
    std::vector<int> next(kThreads, 0);
    for (const std::string& line : lines) {
        int t, i;
        char tail[32] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "thread %d line %d of the tes%31s", &t, &i, tail), 3) << line;
        ASSERT_TRUE(t >= 0 && t < kThreads) << line;
        EXPECT_EQ(i, next[t]++) << line;  // each thread's lines in its order
    }
}

}  // namespace
