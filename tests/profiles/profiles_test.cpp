// Profiles: the document store, the filter catalogue, the chain loaded from a profile and run by tovProcessImage,
// and profile management against real files (a refused or failed call leaves the file byte for byte).
#include "dibimages.h"
#include "pfcatalog.h"
#include "profiledoc.h"
#include "session.h"

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

using namespace tovtest;

namespace {

const char* const kDocument = R"(<?xml version="1.0"?>
<!-- a comment the store passes over -->
<Profiles><SECTION NAME="wrong attribute case" name="">
  <section name="processing"><Key name="Level">300</Key><Key name="Empty"/></section>
  <Section name="Hidden" flags="1"><Key name="A">1</Key></Section><Section name="Hidden"><Key name="A">2</Key></Section>
  <Section name="Twice"><Key name="A">first</Key></Section><Section name="Twice"><Key name="A">second</Key></Section>
  <Section name="Outer"><Section name="Inner"><Key name="Deep">7</Key></Section></Section>
</SECTION></Profiles>
)";

const char* const kFile = R"(<p>
  <Section name=""><Section name="Processing"><Section name="Invert"/><Section name="Threshold"/><Section name="Average"/></Section></Section>
  <Section name="Locked" flags="8"/><Key name="Not a profile but named"/><Section name="Hidden" flags="1"/><Section>no name</Section>
</p>)";

struct Doc {
    ProfileDocument d;
    explicit Doc(const std::string& text, const char* file = "doc.xml") {
        WriteBytes(file, text);
        EXPECT_EQ(pdoc::Load(&d, W(file).c_str()), 0u);
    }
    ~Doc() { pdoc::Close(&d); }
};

std::string Key(ProfileNode section, const WCHAR* name) {
    ProfileValue v;
    return pdoc::GetKey(section, name, &v) == 0 ? N(v.text) : "<none>";
}

// A profile file with one profile whose chain is the given entries.
void WriteChain(const std::string& entries, const char* file = "chain.zpf") {
    WriteBytes(file, "<p><Section name=\"\"><Section name=\"Processing\">" + entries + "</Section></Section></p>");
}

std::string Inverts(int n) {
    std::string s;
    while (n-- > 0) s += "<Section name=\"Invert\"/>";
    return s;
}

// Opens a profile file, when given, for the life of the object; the chain goes with it.
struct Session {
    explicit Session(const WCHAR* file = nullptr, const WCHAR* name = u"") {
        EXPECT_EQ(file ? ProfileOpenSession(file, name) : 0u, 0u);
    }
    ~Session() {
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

TEST(Store, LookupsPassOverHiddenElements) {
    ScratchDir dir;
    Doc doc(kDocument);
    ProfileNode profile = pdoc::FindSection(&doc.d, ProfileNode(), u"", false);
    ASSERT_TRUE(profile);
    const struct { const WCHAR *path, *key; const char* value; } cases[] = {
        {u"Processing", u"LEVEL", "300"}, {u"Processing", u"Empty", "<none>"}, {u"hidden", u"a", "2"},
        {u"Twice", u"A", "first"},        {u"Outer/Inner", u"Deep", "7"},      {u"Outer/inner", u"deep", "7"},
    };
    for (const auto& c : cases) {
        ProfileNode section = pdoc::FindSection(&doc.d, profile, c.path, false);
        EXPECT_EQ(section ? Key(section, c.key) : "<no section>", c.value) << N(c.path);
    }
    for (const WCHAR* missing : {u"Inner", u"Outer/Missing", u"Outer/", u"/Outer"})
        EXPECT_FALSE(pdoc::FindSection(&doc.d, profile, missing, false)) << N(missing);
    EXPECT_FALSE(pdoc::FindSection(&doc.d, profile, nullptr, true));
    EXPECT_FALSE(pdoc::FindSection(nullptr, profile, u"Processing", true));
}

TEST(Store, HostileFilesLoadOrFailCleanly) {
    ScratchDir dir;
    LeakGuard guard;
    auto nest = [](int depth) {
        std::string s;
        for (int i = 0; i < depth; ++i) s += "<Section name=\"s\">";
        for (int i = 0; i < depth; ++i) s += "</Section>";
        return s;
    };
    const struct { std::string bytes; bool loads; } cases[] = {
        {"", false}, {"Section name=", false}, {"<a><b></a>", false},
        {"\xEF\xBB\xBF<a>\r\n<Section name=\"\"/>\r\n</a>", true},  // byte-order mark and CRLF
        {std::string("\xFF\xFE<\0a\0/\0>\0", 10), true},            // UTF-16
        {"<r>" + nest(100000) + "</r>", true}, {"<r><a/>" + nest(70) + "</r>", true},  // deep nesting, also after a leaf
        {"<r><Section name=\"" + std::string(100000, 'n') + "\"><Key name=\"k\">" + std::string(5000, '9') + "</Key></Section></r>", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.bytes.substr(0, 20));
        WriteBytes("f.xml", c.bytes);
        Doc copy("<c/>", "copy.xml");
        ProfileDocument d;
        EXPECT_EQ(pdoc::Load(&d, u"f.xml") == 0, c.loads);
        if (c.loads) {
            EXPECT_TRUE(pdoc::CopyTree(d.Root, copy.d.Root));
            EXPECT_EQ(pdoc::Save(&copy.d, u"copy.xml"), 0u);
            EXPECT_LT(ReadFileBytes("copy.xml").size(), 2 * c.bytes.size() + 100);  // deep nesting saved unindented
        }
        pdoc::Close(&d);
    }
    ProfileDocument d;
    WriteBytes("huge.xml", "<r/>");
    ASSERT_EQ(truncate("huge.xml", 100 << 20), 0);  // 100 MB, sparse
    for (const WCHAR* file : {u"huge.xml", u"missing.xml"}) EXPECT_EQ(pdoc::Load(&d, file), ProfileErrorOpenFailed);
    pdoc::Close(&d);
    pdoc::Close(&d);  // harmless on a closed document
}

TEST(Store, AllocationFailureLeavesNothingBehind) {
    ScratchDir dir;
    WriteBytes("doc.xml", kDocument);
    long sites = ForEachAllocationFailure([](long) {
        LeakGuard guard;
        ProfileDocument d;
        try {
            if (pdoc::Load(&d, u"doc.xml") == 0) {
                ProfileNode s = pdoc::FindSection(&d, ProfileNode(), u"/New/Deeper", true);
                ProfileValue v(u"5");
                pdoc::SetKey(&d, s, u"K", &v);
                pdoc::Save(&d, u"out.xml");
            }
        } catch (const ProfileMemoryFailure&) {
        }
        pdoc::Close(&d);
    });
    EXPECT_GT(sites, 5);
}

TEST(Catalogue, LookupsByNameAndNumber) {
    EXPECT_EQ(Codes({tovProfilePFNameToID(u"gamma correction"), tovProfilePFNameToID(u"THRESHOLD"), tovProfilePFNameToID(u"Blur"),
                     tovProfilePFNameToID(nullptr), tovProfilePFParmNameToID(4, u"bkgcolor"), tovProfilePFParmNameToID(1, u"Flags"),
                     tovProfilePFParmNameToID(1, u"Rank"), tovProfilePFParmNameToID(15, u"Flags")}), "7 14 0 0 3 1 0 0");
    EXPECT_EQ(Text(tovProfilePFIDToName(9)), "Time and Date");
    for (DWORD bad : {0u, 15u, 0xFFFFFFFFu}) EXPECT_EQ(tovProfilePFIDToName(bad), nullptr);
    EXPECT_EQ(Text(tovProfilePFParmIDToName(2, 2)) + " " + Text(tovProfilePFParmMin(2, 2)) + " " + Text(tovProfilePFParmMax(2, 2)) +
                  " " + Text(tovProfilePFParmDefault(2, 2)), "Brightness -255 255 0");
    for (auto [id, parm] : {std::pair<DWORD, DWORD>{1, 2}, {7, 0}, {15, 1}})
        EXPECT_TRUE(!tovProfilePFParmIDToName(id, parm) && !tovProfilePFParmDefault(id, parm)) << id << "," << parm;
}

TEST(Chain, ValuesAreClampedAndWrittenBackInCanonicalForm) {
    ScratchDir dir;
    WriteChain(R"(<Section name="threshold"><Key name="Flags">2</Key><Key name="Level">300</Key></Section>
                  <Section name="Sharpen"><Key name="Flags">-1</Key><Key name="Val">none</Key></Section>
                  <Section name="Invert" flags="1"/>
                  <Section name="Gamma Correction"><Key name="Gamma">  0.123xyz</Key></Section>
                  <Entry name="Despeckle"><Key name="Threshold">-5</Key></Entry>
                  <Section name="Time and Date"><Key name="FontHeight">99</Key></Section>
                  <Section name="Brightness"><Key name="Brightness">-)" + std::string(5000, '9') + R"(</Key></Section>)");
    Session session(u"chain.zpf");
    auto inDocument = [](DWORD slot, const WCHAR* key) {  // a hidden entry takes no slot
        ProfileNode processing = pdoc::FindSection(&SessionDocument, CurrentProfile, u"Processing", false), entry;
        for (DWORD i = 0; i < slot; ++i) entry = pdoc::NextChild(processing, entry, ProfileNodeElement, nullptr, nullptr, nullptr);
        return Key(entry, key);
    };
    const struct { DWORD slot, id, flags; const WCHAR* key; const char* text; } slots[] = {
        {1, 14, 1, u"Level", "255"},       {1, 14, 1, u"Flags", "1"},       {2, 13, 0, u"Val", "9"},
        {2, 13, 0, u"Flags", "0"},         {3, 7, 1, u"Gamma", "0.12"},     {4, 4, 1, u"Threshold", "0"},
        {4, 4, 1, u"Bkgcolor", "0"},       {5, 9, 1, u"FontHeight", "64"}, {5, 9, 1, u"RasterOp", "6684742"},
        {6, 2, 1, u"Brightness", "-255"},  {7, 0, 0, u"Flags", "<none>"},
    };
    for (const auto& s : slots) {
        SCOPED_TRACE(s.slot);
        EXPECT_EQ(ChainTable[s.slot - 1].dwID, s.id);
        EXPECT_EQ(ChainTable[s.slot - 1].dwFlags, s.flags);
        EXPECT_EQ(inDocument(s.slot, s.key), s.text);
    }
    int32_t level, stamp[3];
    double gamma;
    std::memcpy(&level, ChainTable[0].Args.bytes, 4);
    std::memcpy(&gamma, ChainTable[2].Args.bytes, 8);
    std::memcpy(stamp, ChainTable[4].Args.bytes, 12);
    EXPECT_EQ(gamma, 0.123);  // the slot keeps every digit
    EXPECT_EQ((std::vector<int32_t>{level, stamp[0], stamp[1], stamp[2]}), (std::vector<int32_t>{255, 2, 64, 0x660046}));
}

TEST(Chain, RefusedChains) {
    ScratchDir dir;
    const struct { std::string entries; DWORD expected; } cases[] = {
        {Inverts(65), tovErrorProfileData}, {"<Section/>", tovErrorProfileData},
        {"<Section name=\"Rank Filter\"><Key name=\"Rank\"/></Section>", 0},  // keys without text
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.entries.substr(0, 60));
        LeakGuard guard;
        Session session;
        WriteChain(c.entries);
        EXPECT_EQ(ProfileOpenSession(u"chain.zpf", u""), c.expected);
        EXPECT_EQ(bool(CurrentProfile), !c.expected);
    }
}

TEST(Manage, ListSaveAndDeleteKeepTheFileOnRefusal) {
    ScratchDir dir;
    WriteBytes("p.zpf", kFile);
    std::vector<WCHAR> names(3 * 260);  // named visible elements, as many as fit whole
    for (auto [capacity, filled] : {std::pair<DWORD, size_t>{0, 0}, {519, 1}, {520, 2}, {780, 3}}) {
        std::fill(names.begin(), names.end(), u'x');
        EXPECT_EQ(tovGetProfileList(u"p.zpf", capacity ? names.data() : nullptr, capacity), 3u);
        for (size_t i = 0; i < 3; ++i) EXPECT_EQ(names[i * 260 + 259], i < filled ? u'\0' : u'x') << capacity;
    }
    EXPECT_EQ(tovGetProfileList(u"missing.zpf", nullptr, 0), 0u);
    Session open(u"p.zpf");
    const std::u16string longName(300, u'n');
    const struct { const WCHAR* name; DWORD flags, expected; } saves[] = {
        {u"", 4, 7}, {u"a/b", 0, 7}, {longName.c_str(), 0, 7},  // bad names
        {u"Locked", 1, 10}, {u"Locked", 4, 11},                  // exists; read-only
        {u"Copy", 2, 0}, {u"Locked", 5, 0}, {u"Fresh", 4, 0},    // new; read-only overwritten; overwrite of a missing one
    };
    for (const auto& c : saves) {
        const std::string before = ReadFileBytes("p.zpf");
        EXPECT_EQ(tovSaveProfile(u"p.zpf", c.name, c.flags), c.expected) << N(c.name) << " " << c.flags;
        EXPECT_EQ(c.expected ? ReadFileBytes("p.zpf") : before, before);
    }
    EXPECT_EQ(tovSaveProfile(u"missing.zpf", u"X", 0), DWORD(tovErrorProfileFileLoad));
    // Saved profiles go last, with the flags asked for.
    names.assign(5 * 260, u'x');
    EXPECT_EQ(tovGetProfileList(u"p.zpf", names.data(), DWORD(names.size())), 5u);
    std::vector<std::string> listed;
    for (size_t i = 0; i < 5; ++i) listed.push_back(N(names.data() + i * 260));
    EXPECT_EQ(listed, (std::vector<std::string>{"", "Not a profile but named", "Copy", "Locked", "Fresh"}));
    // Copy is read-only now, Locked no longer.
    EXPECT_EQ(Codes({tovDeleteProfile(u"p.zpf", u"Copy"), tovDeleteProfile(u"p.zpf", u"Locked"), tovDeleteProfile(u"p.zpf", u"Locked"),
                     tovDeleteProfile(u"p.zpf", nullptr)}), Codes({tovErrorProfileReadOnly, 0, tovErrorProfileNotFound, DibErrorInvalidParm}));
    // A failed write keeps the file, also for a delete.
    const std::string before = ReadFileBytes("p.zpf");
    PlatFailWrite(1);
    EXPECT_EQ(tovSaveProfile(u"p.zpf", u"Another", 0), DWORD(DibErrorFileWrite));
    PlatFailWrite(1);
    EXPECT_EQ(tovDeleteProfile(u"p.zpf", u"Fresh"), DWORD(DibErrorFileWrite));
    PlatFailWrite(0);
    EXPECT_EQ(ReadFileBytes("p.zpf"), before);
}

TEST(Manage, ChainEditsReachTableAndDocument) {
    ScratchDir dir;
    WriteBytes("p.zpf", kFile);
    Session open(u"p.zpf");
    EXPECT_EQ(Chain(), (std::vector<DWORD>{11, 14, 1}));
    EXPECT_EQ(Codes({tovAddProfilePF(1, 7), tovAddProfilePF(9, 12), tovAddProfilePF(0, 15)}), "1 5 0");  // first; past the end: last
    EXPECT_EQ(Chain(), (std::vector<DWORD>{7, 11, 14, 1, 12}));
    EXPECT_EQ(Parm(1, 1) + " " + Parm(1, 2), "1 1.00");
    WCHAR one[2] = {u'x', u'y'};
    EXPECT_EQ(Codes({tovSetProfilePFParmValue(3, 2, u"300"), tovGetProfilePFParmValue(3, 2, one, 1)}), "0 0");
    EXPECT_EQ(Parm(3, 2), "255");
    EXPECT_EQ(std::u16string(one, 2), u"2y");  // no terminator, nothing past the length
    for (auto [slot, parm] : {std::pair<DWORD, DWORD>{3, 0}, {3, 9}, {3, 3}, {6, 1}, {0, 1}, {65, 1}}) {
        EXPECT_EQ(tovSetProfilePFParmValue(slot, parm, u"1"), DWORD(DibErrorInvalidParm)) << slot << "," << parm;
        EXPECT_EQ(Parm(slot, parm), "<error>");
    }
    EXPECT_EQ(Codes({tovDeleteProfilePF(2), tovDeleteProfilePF(5), tovDeleteProfilePF(65)}), Codes({0, tovErrorUnknown, DibErrorInvalidParm}));
    EXPECT_EQ(Chain(), (std::vector<DWORD>{7, 14, 1, 12}));
    // The chain runs as edited, in place and into another bitmap, and a save and reload keeps it.
    Dib picture(MakeRandom(31, 17, 8, 3)), source(DibCreateCopy(picture)), want(DibCreateCopy(picture)), other(MakePatterned(5, 5, 4));
    ASSERT_EQ(Codes({tovProcessImage(picture, picture), tovProcessImage(other, source), tovProcessImage(nullptr, source)}), "0 0 5");
    Codes({tovGammaCorrection(want, 1.0), tovThreshold(want, 255), tovAverage(want), tovRankFilter(want, 4)});
    EXPECT_EQ(StoreBytes(picture), StoreBytes(want));
    EXPECT_EQ(StoreBytes(other), StoreBytes(want));
    ASSERT_EQ(tovSaveProfile(u"p.zpf", u"Edited", 0), 0u);
    ASSERT_EQ(ProfileOpenSession(u"p.zpf", u"Edited"), 0u);
    EXPECT_EQ(Chain(), (std::vector<DWORD>{7, 14, 1, 12}));
    EXPECT_EQ(Parm(2, 2), "255");
    // A full chain takes no more; one more fits after a delete.
    WriteChain(Inverts(64), "full.zpf");
    ASSERT_EQ(ProfileOpenSession(u"full.zpf", u""), 0u);
    EXPECT_EQ(Codes({tovAddProfilePF(0, 1), tovDeleteProfilePF(64), tovGetProfilePFID(64), tovAddProfilePF(1, 1), tovGetProfilePFID(64)}),
              "0 0 0 1 11");
}
