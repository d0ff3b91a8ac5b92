// Profile management: the list, saving and deleting against real files
// (a refused or failed call leaves the file byte for byte), and chain edits
// that reach both the table and the document.
#include "dibimages.h"
#include "pfcatalog.h"
#include "session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

using namespace tovtest;

namespace {

const char* const kFile = R"(<p>
  <Section name=""><Section name="Processing"><Section name="Invert"/><Section name="Threshold"/><Section name="Average"/></Section></Section>
  <Section name="Locked" flags="8"/>
  <Key name="Not a profile but named"/>
  <Section name="Hidden" flags="1"/>
  <Section>no name</Section>
</p>)";

struct Open {
    explicit Open(const WCHAR* name = u"") { EXPECT_EQ(ProfileOpenSession(u"p.zpf", name), 0u); }
    ~Open() {
        ProfileCloseSession();
        TovLockGuard lock;
        ClearChain();
    }
};

std::vector<DWORD> Chain() {
    std::vector<DWORD> ids;
    for (DWORD slot = 1; DWORD id = tovGetProfilePFID(slot); ++slot) ids.push_back(id);
    return ids;
}

std::string Parm(DWORD slot, DWORD parm) {
    WCHAR text[32];
    return tovGetProfilePFParmValue(slot, parm, text, 32) == 0 ? N(text) : "<error>";
}

}  // namespace

TEST(Manage, ListCountsNamedVisibleProfiles) {
    ScratchDir dir;
    WriteBytes("p.zpf", kFile);
    std::vector<WCHAR> names(3 * 260, u'x');
    const struct { DWORD capacity; size_t filled; } cases[] = {{0, 0}, {519, 1}, {520, 2}, {780, 3}};
    for (const auto& c : cases) {
        std::fill(names.begin(), names.end(), u'x');
        EXPECT_EQ(tovGetProfileList(u"p.zpf", c.capacity ? names.data() : nullptr, c.capacity), 3u);
        for (size_t i = 0; i < 3; ++i) EXPECT_EQ(names[i * 260 + 259], i < c.filled ? u'\0' : u'x') << c.capacity;
    }
    EXPECT_EQ(N(names.data() + 260), "Locked");
    EXPECT_EQ(tovGetProfileList(u"missing.zpf", nullptr, 0), 0u);
}

// The saving matrix: each refused call leaves the file as it was.
TEST(Manage, SaveAndDeleteKeepTheFileOnRefusal) {
    ScratchDir dir;
    WriteBytes("p.zpf", kFile);
    EXPECT_EQ(tovSaveProfile(u"p.zpf", u"New", 0), DWORD(tovErrorNotInitialized));
    Open open;
    const std::u16string longName(300, u'n');
    const struct {
        const char* what;
        const WCHAR* name;
        DWORD flags, expected;
    } saves[] = {
        {"empty name", u"", 4, 7},           {"name with a slash", u"a/b", 0, 7},
        {"overlong name", longName.c_str(), 0, 7}, {"exists", u"Locked", 1, 10},
        {"read-only", u"Locked", 4, 11},       {"new name", u"Copy", 2, 0},
        {"overwrite read-only", u"Locked", 5, 0}, {"overwrite a missing one", u"Fresh", 4, 0},
    };
    for (const auto& c : saves) {
        SCOPED_TRACE(c.what);
        const std::string before = ReadFileBytes("p.zpf");
        EXPECT_EQ(tovSaveProfile(u"p.zpf", c.name, c.flags), c.expected);
        if (c.expected) {
            EXPECT_EQ(ReadFileBytes("p.zpf"), before);
        }
    }
    EXPECT_EQ(tovSaveProfile(u"missing.zpf", u"X", 0), DWORD(tovErrorProfileFileLoad));
    // Saved profiles go last, with the flags asked for.
    std::vector<WCHAR> names(6 * 260);
    ASSERT_EQ(tovGetProfileList(u"p.zpf", names.data(), DWORD(names.size())), 5u);
    EXPECT_EQ(N(names.data() + 2 * 260), "Copy");
    EXPECT_EQ(N(names.data() + 3 * 260), "Locked");
    EXPECT_EQ(tovDeleteProfile(u"p.zpf", u"Copy"), DWORD(tovErrorProfileReadOnly));
    EXPECT_EQ(tovDeleteProfile(u"p.zpf", u"Locked"), 0u);  // no longer read-only
    EXPECT_EQ(tovDeleteProfile(u"p.zpf", u"Locked"), DWORD(tovErrorProfileNotFound));
    EXPECT_EQ(tovDeleteProfile(u"p.zpf", nullptr), DWORD(DibErrorInvalidParm));
    // A failed write keeps the file, also for a delete.
    const std::string before = ReadFileBytes("p.zpf");
    PlatFailWrite(1);
    EXPECT_EQ(tovSaveProfile(u"p.zpf", u"Another", 0), DWORD(DibErrorFileWrite));
    PlatFailWrite(1);
    EXPECT_EQ(tovDeleteProfile(u"p.zpf", u"Fresh"), DWORD(DibErrorFileWrite));
    PlatFailWrite(0);
    EXPECT_EQ(ReadFileBytes("p.zpf"), before);
    ASSERT_EQ(chmod("p.zpf", 0444), 0);
    if (access("p.zpf", W_OK) != 0) {  // root may write anyway
        EXPECT_EQ(tovDeleteProfile(u"p.zpf", u"Fresh"), DWORD(DibErrorFileWrite));
        EXPECT_EQ(ReadFileBytes("p.zpf"), before);
    }
}

TEST(Manage, ChainEditsReachTableAndDocument) {
    ScratchDir dir;
    WriteBytes("p.zpf", kFile);
    EXPECT_EQ(tovAddProfilePF(0, 11), 0u);  // no profile open
    Open open;
    EXPECT_EQ(Chain(), (std::vector<DWORD>{11, 14, 1}));
    EXPECT_EQ(tovAddProfilePF(1, 7), 1u);  // before the first
    EXPECT_EQ(tovAddProfilePF(9, 12), 5u);  // past the end: last
    EXPECT_EQ(tovAddProfilePF(0, 15), 0u);
    EXPECT_EQ(Chain(), (std::vector<DWORD>{7, 11, 14, 1, 12}));
    EXPECT_EQ(Parm(1, 1), "1");
    EXPECT_EQ(Parm(1, 2), "1.00");
    EXPECT_EQ(tovSetProfilePFParmValue(3, 2, u"300"), 0u);
    EXPECT_EQ(Parm(3, 2), "255");
    WCHAR one[2] = {u'x', u'y'};
    EXPECT_EQ(tovGetProfilePFParmValue(3, 2, one, 1), 0u);
    EXPECT_EQ(one[0], u'2');
    EXPECT_EQ(one[1], u'y');  // no terminator, nothing past the length
    for (auto [slot, parm] : {std::pair<DWORD, DWORD>{3, 0}, {3, 9}, {3, 3}, {6, 1}, {0, 1}, {65, 1}}) {
        EXPECT_EQ(tovSetProfilePFParmValue(slot, parm, u"1"), DWORD(DibErrorInvalidParm)) << slot << "," << parm;
        EXPECT_EQ(Parm(slot, parm), "<error>");
    }
    EXPECT_EQ(tovDeleteProfilePF(2), 0u);
    EXPECT_EQ(Chain(), (std::vector<DWORD>{7, 14, 1, 12}));
    EXPECT_EQ(tovDeleteProfilePF(5), DWORD(tovErrorUnknown));
    EXPECT_EQ(tovDeleteProfilePF(65), DWORD(DibErrorInvalidParm));
    // The chain runs as edited, and a save and reload keeps it.
    Dib picture(MakeRandom(31, 17, 8, 3)), want(DibCreateCopy(picture));
    ASSERT_EQ(tovProcessImage(picture, picture), 0u);
    tovGammaCorrection(want, 1.0);
    tovThreshold(want, 255);
    tovAverage(want);
    tovRankFilter(want, 4);
    EXPECT_EQ(StoreBytes(picture), StoreBytes(want));
    ASSERT_EQ(tovSaveProfile(u"p.zpf", u"Edited", 0), 0u);
    ProfileCloseSession();
    {
        TovLockGuard lock;
        ClearChain();
    }
    ASSERT_EQ(ProfileOpenSession(u"p.zpf", u"Edited"), 0u);
    EXPECT_EQ(Chain(), (std::vector<DWORD>{7, 14, 1, 12}));
    EXPECT_EQ(Parm(2, 2), "255");
}

TEST(Manage, FullChainTakesNoMore) {
    ScratchDir dir;
    std::string entries;
    for (int i = 0; i < 64; ++i) entries += "<Section name=\"Invert\"/>";
    WriteBytes("p.zpf", "<p><Section name=\"\"><Section name=\"Processing\">" + entries + "</Section></Section></p>");
    Open open;
    EXPECT_EQ(tovAddProfilePF(0, 1), 0u);
    EXPECT_EQ(tovDeleteProfilePF(64), 0u);
    EXPECT_EQ(tovGetProfilePFID(64), 0u);
    EXPECT_EQ(tovAddProfilePF(1, 1), 1u);
    EXPECT_EQ(tovGetProfilePFID(64), 11u);
}
