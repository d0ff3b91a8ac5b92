// What every save and load shares through the platform's files: a save that
// fails at any write keeps the old file byte for byte (and a new one keeps
// the old one's permissions), a FIFO is refused rather than waited on, and a
// name that is not valid UTF-16 reaches no file.
#include "filestest.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

const struct { const char* file; DWORD (*save)(HDIB h, const WCHAR* name); } kSavers[] = {
    {"pic.bmp", [](HDIB h, const WCHAR* n) { return tovSaveBMP(h, n); }},
    {"pic.png", [](HDIB h, const WCHAR* n) { return tovSavePNG(h, n); }},
    {"pic.jpg", [](HDIB h, const WCHAR* n) { return tovSaveJPG(h, n, 75); }},
    {"pic.prn", [](HDIB h, const WCHAR* n) { return tovSavePRN(h, n, 0, 832, 16); }},
};

const std::string kOld = "the old file, which a failed save must leave alone";

}  // namespace

// Then a file size limit (ulimit -f) makes the writes themselves come up short.
TEST(Replace, EveryFailedOrShortWriteKeepsTheOldFile) {
    ScratchDir dir;
    auto previous = signal(SIGXFSZ, SIG_IGN);
    struct rlimit saved = {}, limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    limit = {4096, saved.rlim_max};
    for (const auto& s : kSavers) {
        SCOPED_TRACE(s.file);
        long n = 1;
        for (DWORD result = 1; result; ++n) {
            WriteBytes(s.file, kOld);
            ASSERT_EQ(chmod(s.file, 0640), 0);
            Dib h(MakePatterned(120, 40, 8, 5));
            LeakGuard guard;
            PlatFailWrite(n);
            result = s.save(h, W(s.file).c_str());
            PlatFailWrite(0);
            EXPECT_EQ(ReadFileBytes(s.file) == kOld, result != 0) << "write " << n;
            ASSERT_LT(n, 10000);
        }
        struct stat st = {};
        EXPECT_EQ(stat(s.file, &st) == 0 ? st.st_mode & 07777 : 0, 0640u);
        EXPECT_GT(n, 2);  // a write did fail
        for (const std::string& f : FilesIn(".", "")) EXPECT_NE(BaseName(f)[0], '.') << "a temporary was left";
        WriteBytes(s.file, kOld);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_NE(s.save(Dib(MakePatterned(600, 400, 8, 1)), W(s.file).c_str()), 0u);
        setrlimit(RLIMIT_FSIZE, &saved);
        EXPECT_EQ(ReadFileBytes(s.file), kOld);
    }
    signal(SIGXFSZ, previous);
}

// FIFOs are refused rather than waited on; the trace log loses its lines
// instead of blocking the traced call. Names that are not UTF-16 reach no file.
TEST(Replace, FifosAndNamesThatAreNotUtf16) {
    ScratchDir dir;
    for (const char* name : {"pipe.bmp", "pipe.png", "pipe.jpg", "imaging.log"}) ASSERT_EQ(mkfifo(name, 0600), 0);
    LeakGuard guard;
    for (auto load : {tovLoadBMP, tovLoadPNG, tovLoadJPG}) EXPECT_EQ(load(u"pipe"), nullptr);
    tovConfigDebug(1, 10, tovDebugFile);
    Dib h(MakePatterned(9, 4, 8));
    EXPECT_EQ(tovSaveBMP(h, u"pipe.bmp"), DWORD(DibErrorFileCreation));
    tovConfigDebug(0, 5, tovDebugFile);
    EXPECT_EQ(tovSaveBMP(h, u"s\xDC00\xD800.bmp"), DWORD(DibErrorFileCreation));  // a pair the wrong way round
    EXPECT_EQ(FilesIn(".", "").size(), 4u);
    ASSERT_EQ(tovSaveBMP(h, u"s\xD83D\xDE00.bmp"), 0u);  // one character beyond the first plane
    EXPECT_TRUE(FileExists("s\xF0\x9F\x98\x80.bmp"));
}
