// The export table: the definition file's slots and names, the public
// header's prototypes, and what the built library really exports.
#include "testsupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

using namespace tovtest;

namespace {

constexpr int kSlots = 109;
constexpr size_t kNamedExports = 87;

struct ExportTable {
    std::map<int, std::string> slots;  // ordinal -> name, "-" when empty
    std::vector<std::string> problems;
};

ExportTable ReadDef(const std::string& path) {
    ExportTable table;
    std::istringstream in(ReadFileBytes(path));
    std::string line;
    bool inExports = false;
    static const std::regex entry(R"(\s+(tov[A-Za-z0-9_]+|-)\s+@([0-9]+)\s*)");
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == ';') continue;
        if (line == "EXPORTS") {
            inExports = true;
            continue;
        }
        if (!inExports) continue;
        std::smatch m;
        if (!std::regex_match(line, m, entry)) {
            table.problems.push_back("unreadable line: " + line);
            continue;
        }
        int ordinal = std::stoi(m[2]);
        if (!table.slots.emplace(ordinal, m[1]).second)
            table.problems.push_back("ordinal twice: " + std::to_string(ordinal));
    }
    return table;
}

std::string SourceDir() {
    std::string def = TOV_EXPORTS_DEF;
    return def.substr(0, def.rfind("/src/TovCE/"));
}

TEST(ExportsTest, DefinitionFileHasEverySlotOnce) {
    ExportTable table = ReadDef(TOV_EXPORTS_DEF);
    EXPECT_EQ(table.problems, std::vector<std::string>{});
    ASSERT_EQ(table.slots.size(), size_t(kSlots));
    EXPECT_EQ(table.slots.begin()->first, 1);
    EXPECT_EQ(table.slots.rbegin()->first, kSlots);

    std::set<int> empty;
    std::set<std::string> names;
    for (const auto& [ordinal, name] : table.slots) {
        if (name == "-") empty.insert(ordinal);
        else EXPECT_TRUE(names.insert(name).second) << name << " listed twice";
    }
    EXPECT_EQ(names.size(), kNamedExports);
    EXPECT_EQ(empty, (std::set<int>{6, 7, 8, 19, 20, 32, 33, 45, 46, 47, 52, 60, 61, 62, 71, 72, 73,
                                    74, 78, 100, 102, 103}));
    // Ordinals that callers bind to, one of each family.
    EXPECT_EQ(table.slots[1], "tovAverage");
    EXPECT_EQ(table.slots[11], "tovConfigDebug");
    EXPECT_EQ(table.slots[68], "tovGetDllRevision");
    EXPECT_EQ(table.slots[29], "tovInitCamera");
    EXPECT_EQ(table.slots[81], "tovCaptureImage");
    EXPECT_EQ(table.slots[98], "tovSetProfilePFParmValue");
    EXPECT_EQ(table.slots[109], "tovGetImagerPreviewHeight");
}

TEST(ExportsTest, PublicHeaderDeclaresExactlyTheExports) {
    std::set<std::string> defNames;
    for (const auto& [ordinal, name] : ReadDef(TOV_EXPORTS_DEF).slots)
        if (name != "-") defNames.insert(name);
    std::string header = ReadFileBytes(SourceDir() + "/include/tovrel/tovrel.h");
    ASSERT_FALSE(header.empty());
    std::set<std::string> declared;
    static const std::regex prototype(R"(\b(tov[A-Za-z0-9_]+)\s*\()");
    for (std::sregex_iterator it(header.begin(), header.end(), prototype), end; it != end; ++it)
        declared.insert((*it)[1]);
    EXPECT_EQ(declared, defNames);
}

// nm lists the dynamic symbols the library defines.
std::vector<std::pair<char, std::string>> DynamicSymbols(const std::string& library) {
    std::vector<std::pair<char, std::string>> symbols;
    std::string command = "nm -D --defined-only '" + library + "'";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return symbols;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        char type;
        char name[400];
        if (std::sscanf(line, "%*s %c %399s", &type, name) == 2) symbols.emplace_back(type, name);
    }
    pclose(pipe);
    return symbols;
}

TEST(ExportsTest, LibraryExportsNothingOutsideTheTable) {
    std::set<std::string> defNames;
    for (const auto& [ordinal, name] : ReadDef(TOV_EXPORTS_DEF).slots)
        if (name != "-") defNames.insert(name);
    auto symbols = DynamicSymbols(TOV_LIBTOVREL_PATH);
    ASSERT_FALSE(symbols.empty()) << "nm gave nothing for " << TOV_LIBTOVREL_PATH;
    std::set<std::string> exported;
    for (const auto& [type, name] : symbols) {
        EXPECT_EQ(type, 'T') << name << " is not a function";
        EXPECT_EQ(name.find('@'), std::string::npos) << name << " carries a symbol version";
        EXPECT_TRUE(defNames.count(name)) << name << " is exported but not in the table";
        exported.insert(name);
    }
    for (const char* own : {"tovConfigDebug", "tovGetDllRevision"}) EXPECT_TRUE(exported.count(own)) << own;
}

}  // namespace
