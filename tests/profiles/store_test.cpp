// The profile document store: lookups that ignore case and pass over hidden
// elements, paths and creation, keys, the round trip through a file, deep
// and hostile documents, and allocation failure.
#include "dibimages.h"
#include "profiledoc.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

using namespace tovtest;

namespace {

const char* const kDocument = R"(<?xml version="1.0"?>
<!-- a comment the store passes over -->
<Profiles>
  <SECTION NAME="wrong attribute case" name="">
    <section name="processing">
      <Key name="Level">300</Key>
      <Key name="Empty"/>
    </section>
    <Section name="Hidden" flags="1"><Key name="A">1</Key></Section>
    <Section name="Hidden"><Key name="A">2</Key></Section>
    <Section name="Twice"><Key name="A">first</Key></Section>
    <Section name="Twice"><Key name="A">second</Key></Section>
    <Section name="Outer"><Section name="Inner"><Key name="Deep">7</Key></Section></Section>
  </SECTION>
</Profiles>
)";

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

}  // namespace

TEST(Store, LookupsIgnoreCaseAndPassOverHiddenElements) {
    ScratchDir dir;
    Doc doc(kDocument);
    ProfileNode profile = pdoc::FindSection(&doc.d, ProfileNode(), u"", false);
    ASSERT_TRUE(profile);
    const struct {
        const WCHAR* path;
        const WCHAR* key;
        const char* value;
    } cases[] = {
        {u"Processing", u"LEVEL", "300"}, {u"Processing", u"Empty", "<none>"}, {u"hidden", u"a", "2"},
        {u"Twice", u"A", "first"},        {u"Outer/Inner", u"Deep", "7"},      {u"Outer/inner", u"deep", "7"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(N(c.path));
        ProfileNode section = pdoc::FindSection(&doc.d, profile, c.path, false);
        ASSERT_TRUE(section);
        EXPECT_EQ(Key(section, c.key), c.value);
    }
    for (const WCHAR* missing : {u"Inner", u"Outer/Missing", u"Outer/", u"/Outer"})
        EXPECT_FALSE(pdoc::FindSection(&doc.d, profile, missing, false)) << N(missing);
    EXPECT_FALSE(pdoc::FindSection(&doc.d, profile, nullptr, true));
    EXPECT_FALSE(pdoc::FindSection(nullptr, profile, u"Processing", true));
}

TEST(Store, CreationKeysAndAttributes) {
    ScratchDir dir;
    Doc doc("<r/>");
    // An empty document element: the first profile is made in memory, with
    // a path of two sections, the second inside the first.
    ProfileNode inner = pdoc::FindSection(&doc.d, ProfileNode(), u"/Exposure", true);
    ASSERT_TRUE(inner);
    ProfileNode profile = pdoc::FindSection(&doc.d, ProfileNode(), u"", false);
    EXPECT_EQ(pdoc::FindSection(&doc.d, profile, u"Exposure", false), inner);
    // Keys: a new one goes last, an existing one keeps its place.
    for (const WCHAR* name : {u"A", u"B", u"a"}) {
        ProfileValue v(name);
        EXPECT_EQ(pdoc::SetKey(&doc.d, inner, name, &v), 0u);
        EXPECT_EQ(v.tag, DWORD(ProfileValueEmpty));  // taken over and cleared
    }
    ProfileValue number;
    number.SetNumber(-42);
    EXPECT_EQ(pdoc::SetKey(&doc.d, inner, u"C", &number), 0u);
    EXPECT_EQ(Key(inner, u"A"), "a");
    EXPECT_EQ(Key(inner, u"C"), "-42");
    std::string order;
    for (ProfileNode k = inner.first_child(); k; k = k.next_sibling()) order += k.attribute("name").value();
    EXPECT_EQ(order, "ABC");
    // An attribute set twice is there once.
    ProfileValue one(u"1"), two(u"8");
    EXPECT_EQ(pdoc::SetAttribute(&doc.d, profile, u"flags", &one), 0u);
    EXPECT_EQ(pdoc::SetAttribute(&doc.d, profile, u"flags", &two), 0u);
    EXPECT_EQ(pdoc::Flags(profile), 8);
    int count = 0;
    for (pugi::xml_attribute a = profile.first_attribute(); a; a = a.next_attribute()) count += a.name() == std::string("flags");
    EXPECT_EQ(count, 1);
    // Refusals.
    ProfileValue v(u"x");
    EXPECT_EQ(pdoc::SetKey(&doc.d, ProfileNode(), u"A", &v), ProfileErrorInvalidParameter);
    EXPECT_EQ(pdoc::GetKey(inner, nullptr, &v), ProfileErrorInvalidParameter);
    EXPECT_EQ(pdoc::GetAttribute(inner, u"missing", &v), ProfileErrorNoData);
}

TEST(Store, SavedFilesReadBackAndCopiesCarryEverything) {
    ScratchDir dir;
    Doc doc(kDocument);
    ProfileNode profile = pdoc::FindSection(&doc.d, ProfileNode(), u"", false);
    ProfileValue v(u"12");
    ASSERT_EQ(pdoc::SetKey(&doc.d, pdoc::FindSection(&doc.d, profile, u"Processing", false), u"Level", &v), 0u);
    ASSERT_EQ(chmod("doc.xml", 0600), 0);
    ASSERT_EQ(pdoc::Save(&doc.d, u"doc.xml"), 0u);
    const std::string saved = ReadFileBytes("doc.xml");
    EXPECT_EQ(saved.rfind("<?xml", 0), 0u);
    EXPECT_NE(saved.find("a comment the store passes over"), std::string::npos);
    struct stat st;
    ASSERT_EQ(stat("doc.xml", &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    Doc again(saved, "again.xml");
    ASSERT_EQ(pdoc::Save(&again.d, u"again.xml"), 0u);
    EXPECT_EQ(ReadFileBytes("again.xml"), saved);
    // A copy into another document keeps hidden elements, attributes, text.
    Doc target("<other/>", "other.xml");
    ASSERT_TRUE(pdoc::CopyTree(profile, target.d.Root));
    ProfileNode copied = pdoc::FindSection(&target.d, ProfileNode(), u"", false);
    EXPECT_EQ(Key(pdoc::FindSection(&target.d, copied, u"Processing", false), u"Level"), "12");
    EXPECT_EQ(std::string(copied.child("Section").attribute("flags").value()), "1");
    EXPECT_FALSE(pdoc::CopyTree(ProfileNode(), target.d.Root));
}

TEST(Store, HostileFilesLoadOrFailCleanly) {
    ScratchDir dir;
    LeakGuard guard;
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "<Section name=\"s\">";
    for (int i = 0; i < 100000; ++i) deep += "</Section>";
    const std::string longName(100000, 'n');
    const struct {
        const char* what;
        std::string bytes;
        bool loads;
    } cases[] = {
        {"empty", "", false},
        {"not XML", "Section name=", false},
        {"unclosed", "<a><b></a>", false},
        {"byte-order mark and CRLF", "\xEF\xBB\xBF<a>\r\n<Section name=\"\"/>\r\n</a>", true},
        {"UTF-16", std::string("\xFF\xFE<\0a\0/\0>\0", 10), true},
        {"deeply nested", "<r>" + deep + "</r>", true},
        {"long names and numbers", "<r><Section name=\"" + longName + "\"><Key name=\"k\">" + std::string(5000, '9') +
                                       "</Key></Section></r>", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        WriteBytes("f.xml", c.bytes);
        ProfileDocument d;
        EXPECT_EQ(pdoc::Load(&d, u"f.xml") == 0, c.loads);
        if (c.loads) {
            ProfileDocument copy;
            WriteBytes("copy.xml", "<c/>");
            ASSERT_EQ(pdoc::Load(&copy, u"copy.xml"), 0u);
            EXPECT_TRUE(pdoc::CopyTree(d.Root, copy.Root));
            EXPECT_EQ(pdoc::Save(&copy, u"copy.xml"), 0u);
            pdoc::Close(&copy);
        }
        pdoc::Close(&d);
    }
    ProfileDocument d;
    WriteBytes("huge.xml", "<r/>");
    ASSERT_EQ(truncate("huge.xml", 100 << 20), 0);  // 100 MB, sparse
    EXPECT_EQ(pdoc::Load(&d, u"huge.xml"), ProfileErrorOpenFailed);
    ASSERT_EQ(mkdir("folder.xml", 0755), 0);
    EXPECT_EQ(pdoc::Load(&d, u"folder.xml"), ProfileErrorOpenFailed);
    EXPECT_EQ(pdoc::Load(&d, u"missing.xml"), ProfileErrorOpenFailed);
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
