// The catalogue lookups, the chain loaded from a profile (clamping and
// canonical texts, hidden entries, refused chains) and tovProcessImage
// against the filters called directly.
#include "dibimages.h"
#include "pfcatalog.h"
#include "session.h"

#include <cmath>
#include <cstring>
#include <string>

using namespace tovtest;

namespace {

// A profile file with one profile whose chain is the given entries.
void WriteChain(const std::string& entries) {
    WriteBytes("chain.zpf", "<p><Section name=\"\"><Section name=\"Processing\">" + entries +
                                "</Section></Section></p>");
}

std::string KeyInDocument(DWORD slot, const WCHAR* key) {
    ProfileNode processing = pdoc::FindSection(&SessionDocument, CurrentProfile, u"Processing", false);
    ProfileNode entry;
    for (DWORD i = 0; i < slot; ++i)
        entry = pdoc::NextChild(processing, entry, ProfileNodeElement, nullptr, nullptr, nullptr);
    ProfileValue v;
    return pdoc::GetKey(entry, key, &v) == 0 ? N(v.text) : "<none>";
}

struct Session {
    ~Session() {
        ProfileCloseSession();
        TovLockGuard lock;
        ClearChain();
    }
};

}  // namespace

TEST(Catalogue, LookupsByNameAndNumber) {
    EXPECT_EQ(tovProfilePFNameToID(u"gamma correction"), 7u);
    EXPECT_EQ(tovProfilePFNameToID(u"THRESHOLD"), 14u);
    EXPECT_EQ(tovProfilePFNameToID(u"Blur"), 0u);
    EXPECT_EQ(tovProfilePFNameToID(nullptr), 0u);
    EXPECT_EQ(Text(tovProfilePFIDToName(9)), "Time and Date");
    for (DWORD bad : {0u, 15u, 0xFFFFFFFFu}) EXPECT_EQ(tovProfilePFIDToName(bad), nullptr);
    EXPECT_EQ(tovProfilePFParmNameToID(4, u"bkgcolor"), 3u);
    EXPECT_EQ(tovProfilePFParmNameToID(1, u"Flags"), 1u);
    EXPECT_EQ(tovProfilePFParmNameToID(1, u"Rank"), 0u);
    EXPECT_EQ(tovProfilePFParmNameToID(15, u"Flags"), 0u);
    const struct {
        DWORD id, parm;
        const char *name, *min, *max, *def;
    } rows[] = {
        {12, 1, "Flags", "0", "1", "1"},       {7, 2, "Gamma", "0", "1", "1"},
        {9, 4, "RasterOp", "0", "16777215", "6684742"}, {13, 2, "Val", "9", "32", "9"},
        {2, 2, "Brightness", "-255", "255", "0"},     {8, 3, "High", "0", "255", "255"},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(Text(tovProfilePFParmIDToName(r.id, r.parm)), r.name);
        EXPECT_EQ(Text(tovProfilePFParmMin(r.id, r.parm)), r.min);
        EXPECT_EQ(Text(tovProfilePFParmMax(r.id, r.parm)), r.max);
        EXPECT_EQ(Text(tovProfilePFParmDefault(r.id, r.parm)), r.def);
    }
    for (auto [id, parm] : {std::pair<DWORD, DWORD>{1, 2}, {7, 0}, {7, 9}, {0, 1}, {15, 1}}) {
        EXPECT_EQ(tovProfilePFParmIDToName(id, parm), nullptr);
        EXPECT_EQ(tovProfilePFParmDefault(id, parm), nullptr);
    }
}

TEST(Chain, ValuesAreClampedAndWrittenBackInCanonicalForm) {
    ScratchDir dir;
    Session session;
    WriteChain(R"(<Section name="threshold"><Key name="Flags">2</Key><Key name="Level">300</Key></Section>
                  <Section name="Sharpen"><Key name="Flags">-1</Key><Key name="Val">none</Key></Section>
                  <Section name="Invert" flags="1"/>
                  <Section name="Gamma Correction"><Key name="Gamma">  0.123xyz</Key></Section>
                  <Entry name="Despeckle"><Key name="Threshold">-5</Key></Entry>
                  <Section name="Time and Date"><Key name="FontHeight">99</Key></Section>
                  <Section name="Brightness"><Key name="Brightness">-)" +
               std::string(5000, '9') + R"(</Key></Section>)");
    ASSERT_EQ(ProfileOpenSession(u"chain.zpf", u""), 0u);
    const struct {
        DWORD slot, id, flags;
        const WCHAR* key;
        const char* text;
    } slots[] = {
        {1, 14, 1, u"Level", "255"}, {2, 13, 0, u"Val", "9"},       {3, 7, 1, u"Gamma", "0.12"},
        {4, 4, 1, u"Threshold", "0"}, {4, 4, 1, u"Bkgcolor", "0"}, {5, 9, 1, u"FontHeight", "64"},
        {5, 9, 1, u"RasterOp", "6684742"}, {6, 2, 1, u"Brightness", "-255"},
    };
    for (const auto& s : slots) {
        SCOPED_TRACE(s.slot);
        EXPECT_EQ(ChainTable[s.slot - 1].dwID, s.id);
        EXPECT_EQ(ChainTable[s.slot - 1].dwFlags, s.flags);
        EXPECT_EQ(KeyInDocument(s.slot, s.key), s.text);
    }
    EXPECT_EQ(KeyInDocument(1, u"Flags"), "1");
    ProfileValue stray(u"7");  // names the slot's filter does not have change nothing
    EXPECT_FALSE(ApplyPfParm(1, u"Rank", &stray));
    EXPECT_FALSE(ApplyPfParm(1, nullptr, &stray));
    EXPECT_EQ(KeyInDocument(2, u"Flags"), "0");
    EXPECT_EQ(ChainTable[6].dwID, 0u);
    int32_t level;
    std::memcpy(&level, ChainTable[0].Args.bytes, 4);
    EXPECT_EQ(level, 255);
    double gamma;
    std::memcpy(&gamma, ChainTable[2].Args.bytes, 8);
    EXPECT_EQ(gamma, 0.123);  // the slot keeps every digit
    int32_t stamp[3];
    std::memcpy(stamp, ChainTable[4].Args.bytes, 12);
    EXPECT_EQ(stamp[0], 2);
    EXPECT_EQ(stamp[1], 64);
    EXPECT_EQ(stamp[2], 0x660046);
}

TEST(Chain, RefusedProfilesAndFiles) {
    ScratchDir dir;
    std::string full, over;
    for (int i = 0; i < 64; ++i) full += "<Section name=\"Invert\"/>";
    over = full + "<Section name=\"Invert\"/>";
    const struct {
        const char* what;
        std::string entries;
        DWORD expected;
    } cases[] = {
        {"64 entries", full, 0},
        {"65 entries", over, DWORD(tovErrorProfileData)},
        {"unknown name last", "<Section name=\"Invert\"/><Section name=\"Blur\"/>", DWORD(tovErrorProfileData)},
        {"entry without a name", "<Section/>", DWORD(tovErrorProfileData)},
        {"keys without text", "<Section name=\"Rank Filter\"><Key name=\"Rank\"/></Section>", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        LeakGuard guard;
        Session session;
        WriteChain(c.entries);
        EXPECT_EQ(ProfileOpenSession(u"chain.zpf", u""), c.expected);
        if (c.expected) {
            EXPECT_FALSE(CurrentProfile);
        }
    }
    Session session;
    WriteChain("");
    EXPECT_EQ(ProfileOpenSession(u"chain.zpf", u"absent"), DWORD(tovErrorProfileNotFound));
    EXPECT_EQ(ProfileOpenSession(u"missing.zpf", u""), DWORD(tovErrorProfileFileOpen));
    WriteBytes("bad.zpf", "<p><Section name=\"\">");
    EXPECT_EQ(ProfileOpenSession(u"bad.zpf", u""), DWORD(tovErrorProfileFileOpen));
}

// The sample's "Labels" chain through tovProcessImage against the same
// filters called one by one; a hidden entry takes no slot.
TEST(Chain, ProcessImageRunsTheSampleLikeDirectCalls) {
    Session session;
    ASSERT_EQ(ProfileOpenSession(u"" TOV_SAMPLE_PROFILES, u"labels"), 0u);
    for (int twoHandles = 0; twoHandles < 2; ++twoHandles) {
        SCOPED_TRACE(twoHandles);
        Dib source(MakeRandom(97, 61, 8, 7)), want(DibCreateCopy(source));
        Dib dest(twoHandles ? MakePatterned(5, 5, 4) : nullptr);
        HDIB target = twoHandles ? dest.h : source.h;
        ASSERT_EQ(tovProcessImage(target, source), 0u);
        ASSERT_EQ(tovDespeckle(want, 3, 255), 0u);
        ASSERT_EQ(tovHistogramStretchEx(want, 2, 2, 1), 0u);
        ASSERT_EQ(tovGammaCorrection(want, 0.8), 0u);
        ASSERT_EQ(tovOverlayTimeDate(want, 2, 16, 0x660046), 0u);
        EXPECT_EQ(StoreBytes(target), StoreBytes(want));
    }
    Dib four(MakePatterned(8, 8, 4));
    EXPECT_EQ(tovProcessImage(four, four), DWORD(DibErrorInvalidDIB));
    EXPECT_EQ(tovProcessImage(nullptr, four), DWORD(DibErrorInvalidDIB));
}
