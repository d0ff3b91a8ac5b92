// Replays the inputs kept from fuzzing (tests/fuzzcases/<format>/): each one
// goes through its load export with no crash, no sanitizer report and
// nothing left alive, and again with every allocation of the load failing
// in turn. A loaded bitmap is read through to the end of its store.
#include "dibimages.h"
#include "session.h"

#include <tovrel/tovrel.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

using namespace tovtest;
namespace fs = std::filesystem;

namespace {

// The cases sit beside this test's folder in the source tree.
fs::path CasesDir() { return fs::path(__FILE__).parent_path().parent_path() / "fuzzcases"; }

struct Loader {
    const char* folder;
    const char* ext;
    HDIB (*load)(const WCHAR*);
};

// A profile file "loads" through the profile half of a session start and a
// run of its chain; nothing stays open.
HDIB OpenProfileAndRun(const WCHAR* file) {
    if (ProfileOpenSession(file, u"") == 0) {
        Dib frame(DibCreateGrey(33, 17, 8, nullptr));
        if (frame.h) tovProcessImage(frame, frame);
    }
    ProfileCloseSession();
    return nullptr;
}

const Loader kLoaders[] = {
    {"bmp", "bmp", tovLoadBMP},
    {"png", "png", tovLoadPNG},
    {"jpeg", "jpg", tovLoadJPG},
    {"profile", "zpf", OpenProfileAndRun},
};

std::vector<fs::path> CasesOf(const Loader& l) {
    std::vector<fs::path> files;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(CasesDir() / l.folder, ec))
        if (e.is_regular_file()) files.push_back(e.path());
    std::sort(files.begin(), files.end());
    return files;
}

volatile unsigned g_sink;

// Sums the store and the colour table: reading past either shows under the
// address sanitizer.
void ReadThrough(HDIB h) {
    ASSERT_EQ(DibIsValid(h), DWORD(DibOk));
    int64_t height = DibHeight(h) < 0 ? -int64_t(DibHeight(h)) : DibHeight(h);
    int64_t bytes = DibRowBytes(DibWidth(h), DibBitCount(h)) * height;
    EXPECT_LE(bytes, int64_t(DibBitsSize(h)));
    unsigned sum = 0;
    const BYTE* bits = DibBitsPtr(h);
    for (int64_t i = 0; i < bytes; ++i) sum += bits[i];
    // The header lives in the record, the colours in a block of their own.
    const BYTE* colours = reinterpret_cast<const BYTE*>(h->pbmiColors);
    for (DWORD i = 0; i < DibPaletteSize(h); ++i) sum += colours[i];
    g_sink = sum;
}

class Replay : public ::testing::TestWithParam<Loader> {};

TEST_P(Replay, EveryCaseLoadsOrFailsCleanly) {
    const Loader& l = GetParam();
    std::vector<fs::path> cases = CasesOf(l);
    ASSERT_FALSE(cases.empty()) << "no cases under " << (CasesDir() / l.folder);
    ScratchDir dir;
    const std::string name = std::string("case.") + l.ext;
    const std::u16string wide = W(name);
    for (const fs::path& c : cases) {
        SCOPED_TRACE(c.filename().string());
        WriteBytes(dir.File(name), ReadFileBytes(c.string()));
        {
            LeakGuard guard;
            Dib h(l.load(wide.c_str()));
            if (h) ReadThrough(h);
        }
        ForEachAllocationFailure([&](long n) {
            SCOPED_TRACE("allocation " + std::to_string(n) + " fails");
            LeakGuard guard;
            Dib h(l.load(wide.c_str()));
            PlatFailAllocation(0);
            if (h) ReadThrough(h);
        });
    }
}

INSTANTIATE_TEST_SUITE_P(Loaders, Replay, ::testing::ValuesIn(kLoaders),
                         [](const ::testing::TestParamInfo<Loader>& i) { return std::string(i.param.folder); });

}  // namespace
