// Replays the inputs kept from fuzzing (tests/fuzzcases/<format>/): each one
// goes through its load export with no crash, no sanitizer report and
// nothing left alive, and again with every allocation of the load failing
// in turn. A loaded bitmap is read through to the end of its store.
#include "dibimages.h"
#include "session.h"

#include <tovrel/tovrel.h>

#include <filesystem>

using namespace tovtest;

namespace {

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

volatile unsigned g_sink;

// Sums the store and the colour table (a block of its own): reading past
// either shows under the address sanitizer.
void LoadAndReadThrough(HDIB (*load)(const WCHAR*), const std::u16string& name) {
    LeakGuard guard;
    Dib h(load(name.c_str()));
    PlatFailAllocation(0);
    if (!h) return;
    ASSERT_EQ(DibIsValid(h), DWORD(DibOk));
    const int64_t bytes = DibRowBytes(DibWidth(h), DibBitCount(h)) * std::abs(int64_t(DibHeight(h)));
    EXPECT_LE(bytes, int64_t(DibBitsSize(h)));
    for (int64_t i = 0; i < bytes; ++i) g_sink += DibBitsPtr(h)[i];
    for (DWORD i = 0; i < DibPaletteSize(h); ++i) g_sink += reinterpret_cast<const BYTE*>(h.h->pbmiColors)[i];
}

}  // namespace

TEST(Replay, EveryCaseLoadsOrFailsCleanly) {
    const struct { const char *folder, *name; HDIB (*load)(const WCHAR*); } loaders[] = {
        {"bmp", "case.bmp", tovLoadBMP}, {"png", "case.png", tovLoadPNG}, {"jpeg", "case.jpg", tovLoadJPG},
        {"profile", "case.zpf", OpenProfileAndRun}};
    const std::string fuzzcases = std::filesystem::path(__FILE__).parent_path().parent_path() / "fuzzcases";
    ScratchDir dir;
    for (const auto& l : loaders) {
        const std::vector<std::string> cases = FilesIn(fuzzcases + "/" + l.folder, "");
        EXPECT_FALSE(cases.empty()) << l.folder;
        for (const std::string& c : cases) {
            SCOPED_TRACE(c);
            WriteBytes(l.name, ReadFileBytes(c));
            LoadAndReadThrough(l.load, W(l.name));
            ForEachAllocationFailure([&](long) { LoadAndReadThrough(l.load, W(l.name)); });
        }
    }
}
