// The export table: the definition file's slots and names, the public
// header's prototypes, and what the built library really exports.
#include "testsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

using namespace tovtest;

namespace {

constexpr int kSlots = 109;

// Ordinal -> name ("-" for an empty slot); problems lists what does not parse.
std::map<int, std::string> ReadDef(std::vector<std::string>* problems) {
    std::map<int, std::string> slots;
    std::istringstream in(ReadFileBytes(TOV_EXPORTS_DEF));
    static const std::regex entry(R"(\s+(tov[A-Za-z0-9_]+|-)\s+@([0-9]+)\s*)");
    bool inExports = false;
    for (std::string line; std::getline(in, line);) {
        if (line == "EXPORTS") inExports = true;
        if (!inExports || line == "EXPORTS" || line.empty() || line[0] == ';') continue;
        std::smatch m;
        if (!std::regex_match(line, m, entry)) problems->push_back("unreadable line: " + line);
        else if (!slots.emplace(std::stoi(m[2]), m[1]).second) problems->push_back("ordinal twice: " + line);
    }
    return slots;
}

std::set<std::string> Names(const std::map<int, std::string>& slots) {
    std::set<std::string> names;
    for (const auto& [ordinal, name] : slots)
        if (name != "-") names.insert(name);
    return names;
}

TEST(ExportsTest, DefinitionFileAndPublicHeaderAgree) {
    std::vector<std::string> problems;
    std::map<int, std::string> slots = ReadDef(&problems);
    EXPECT_EQ(problems, std::vector<std::string>{});
    ASSERT_EQ(slots.size(), size_t(kSlots));
    EXPECT_EQ(slots.rbegin()->first, kSlots);
    std::set<int> empty;
    for (const auto& [ordinal, name] : slots)
        if (name == "-") empty.insert(ordinal);
    EXPECT_EQ(Names(slots).size() + empty.size(), slots.size()) << "a name listed twice";
    EXPECT_EQ(Names(slots).size(), 87u);
    EXPECT_EQ(empty, (std::set<int>{6, 7, 8, 19, 20, 32, 33, 45, 46, 47, 52, 60, 61, 62, 71, 72, 73, 74, 78, 100,
                                    102, 103}));
    // Ordinals that callers bind to, one of each family.
    const std::map<int, std::string> bound = {{1, "tovAverage"},     {11, "tovConfigDebug"},
                                              {68, "tovGetDllRevision"}, {29, "tovInitCamera"},
                                              {81, "tovCaptureImage"}, {98, "tovSetProfilePFParmValue"},
                                              {109, "tovGetImagerPreviewHeight"}};
    for (const auto& [ordinal, name] : bound) EXPECT_EQ(slots[ordinal], name) << ordinal;

    const std::string def = TOV_EXPORTS_DEF;
    const std::string header = ReadFileBytes(def.substr(0, def.rfind("/src/TovCE/")) + "/include/tovrel/tovrel.h");
    ASSERT_FALSE(header.empty());
    std::set<std::string> declared;
    static const std::regex prototype(R"(\b(tov[A-Za-z0-9_]+)\s*\()");
    for (std::sregex_iterator it(header.begin(), header.end(), prototype), end; it != end; ++it)
        declared.insert((*it)[1]);
    EXPECT_EQ(declared, Names(slots));
}

// nm lists the dynamic symbols the library defines: exactly the table's.
TEST(ExportsTest, LibraryExportsNothingOutsideTheTable) {
    std::vector<std::string> problems;
    const std::set<std::string> table = Names(ReadDef(&problems));
    const std::vector<std::string> exported = LibraryExports(&problems);
    EXPECT_EQ(problems, std::vector<std::string>{});
    ASSERT_FALSE(exported.empty()) << "nm gave nothing for " << TOV_LIBTOVREL_PATH;
    for (const std::string& name : exported) EXPECT_TRUE(table.count(name)) << name << " is exported but not in the table";
    // Every name of the table is there: all 87 exports exist.
    EXPECT_EQ(std::set<std::string>(exported.begin(), exported.end()), table);
}

}  // namespace
