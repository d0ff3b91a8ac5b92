// The export table: the definition file's slots and names, the public
// header's prototypes, and what the built library really exports (nm).
#include "testsupport.h"

#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

using namespace tovtest;

TEST(ExportsTest, DefinitionFileHeaderAndLibraryAgree) {
    std::vector<std::string> problems;
    std::map<int, std::string> slots;  // ordinal -> name, "-" for an empty slot
    std::set<std::string> names;
    std::set<int> empty;
    std::istringstream in(ReadFileBytes(TOV_EXPORTS_DEF));
    static const std::regex entry(R"(\s+(tov[A-Za-z0-9_]+|-)\s+@([0-9]+)\s*)");
    bool inExports = false;
    for (std::string line; std::getline(in, line);) {
        std::smatch m;
        if (!inExports || line.empty() || line[0] == ';') inExports |= line == "EXPORTS";
        else if (!std::regex_match(line, m, entry)) problems.push_back("unreadable line: " + line);
        else if (!slots.emplace(std::stoi(m[2]), m[1]).second) problems.push_back("ordinal twice: " + line);
        else if (m[1] == "-") empty.insert(std::stoi(m[2]));
        else if (!names.insert(m[1]).second) problems.push_back("name twice: " + line);
    }
    ASSERT_EQ(slots.size(), 109u);
    EXPECT_EQ(slots.rbegin()->first, 109);
    EXPECT_EQ(names.size(), 87u);
    EXPECT_EQ(empty, (std::set<int>{6, 7, 8, 19, 20, 32, 33, 45, 46, 47, 52, 60, 61, 62, 71, 72, 73, 74, 78, 100,
                                    102, 103}));
    // Ordinals that callers bind to, one of each family.
    for (const auto& [ordinal, name] : std::map<int, std::string>{{1, "tovAverage"}, {11, "tovConfigDebug"},
             {68, "tovGetDllRevision"}, {29, "tovInitCamera"}, {81, "tovCaptureImage"},
             {98, "tovSetProfilePFParmValue"}, {109, "tovGetImagerPreviewHeight"}})
        EXPECT_EQ(slots[ordinal], name) << ordinal;
    const std::string def = TOV_EXPORTS_DEF;
    const std::string header = ReadFileBytes(def.substr(0, def.rfind("/src/TovCE/")) + "/include/tovrel/tovrel.h");
    std::set<std::string> declared;
    static const std::regex prototype(R"(\b(tov[A-Za-z0-9_]+)\s*\()");
    for (std::sregex_iterator it(header.begin(), header.end(), prototype), end; it != end; ++it)
        declared.insert((*it)[1]);
    EXPECT_EQ(declared, names);
    const std::vector<std::string> exported = LibraryExports(&problems);
    EXPECT_EQ(problems, std::vector<std::string>{});
    EXPECT_EQ(std::set<std::string>(exported.begin(), exported.end()), names) << "nm of " << TOV_LIBTOVREL_PATH;
}
