// tov profile SUBCOMMAND FILE ...: the profiles of a profile file.
//
//   list FILE                       the profiles' names
//   show FILE [NAME]                a profile: exposure, settings and its chain
//   chain                           the catalogue of filters, parameters, ranges
//   save FILE NAME NEW [--force] [--overwrite] [--read-only]
//                                   stores profile NAME again under NEW
//   delete FILE NAME                removes a profile
//   add FILE NAME FILTER [--at N]   a filter into the chain (last, or before slot N)
//   remove FILE NAME SLOT           a filter out of the chain
//   set FILE NAME SLOT PARM VALUE   a parameter of a chain filter
//   get FILE NAME SLOT PARM         its value
//
// Changes to a chain are made on the open profile and saved back over it.
#include "commands.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

constexpr DWORD kListEntry = 260;
constexpr DWORD kSaveForce = 1, kSaveReadOnly = 2, kSaveOverwrite = 4;
constexpr DWORD kFilters = 14, kParms = 8;

std::string Narrow(const WCHAR* text) {
    std::string out;
    for (; text && *text; ++text) out += *text < 0x80 ? char(*text) : '?';
    return out;
}

// The camera opened on a profile of a file, closed again at the end.
struct Session {
    DWORD result;
    Session(const std::string& file, const std::string& name) {
        DWORD flags = 0x300;
        result = tovInitCamera(tov::Wide(file).c_str(), tov::Wide(name).c_str(), &flags);
    }
    ~Session() { tovUninitCamera(); }
};

int Failed(const std::string& what, DWORD result) { return tov::Fail("profile: " + what + ": " + tov::ResultText(result)); }

// Filter or parameter numbers given by number or by name.
DWORD FilterId(const std::string& text) {
    char* end = nullptr;
    unsigned long n = std::strtoul(text.c_str(), &end, 10);
    if (!text.empty() && !*end) return n <= kFilters ? DWORD(n) : 0;
    return tovProfilePFNameToID(tov::Wide(text).c_str());
}

DWORD ParmId(DWORD filter, const std::string& text) {
    char* end = nullptr;
    unsigned long n = std::strtoul(text.c_str(), &end, 10);
    if (!text.empty() && !*end) return n <= kParms ? DWORD(n) : 0;
    return tovProfilePFParmNameToID(filter, tov::Wide(text).c_str());
}

bool Number(const std::string& text, DWORD* n) {
    char* end = nullptr;
    unsigned long v = std::strtoul(text.c_str(), &end, 10);
    *n = DWORD(v);
    return !text.empty() && !*end && v <= 0xFFFFFFFFul;
}

void PrintChain() {
    for (DWORD slot = 1; DWORD id = tovGetProfilePFID(slot); ++slot) {
        std::printf("  %u. %s\n", unsigned(slot), Narrow(tovProfilePFIDToName(id)).c_str());
        for (DWORD parm = 1; const WCHAR* name = tovProfilePFParmIDToName(id, parm); ++parm) {
            WCHAR value[64] = {};
            tovGetProfilePFParmValue(slot, parm, value, 63);
            std::printf("       %-12s %-10s (%s to %s, default %s)\n", Narrow(name).c_str(), Narrow(value).c_str(),
                        Narrow(tovProfilePFParmMin(id, parm)).c_str(), Narrow(tovProfilePFParmMax(id, parm)).c_str(),
                        Narrow(tovProfilePFParmDefault(id, parm)).c_str());
        }
    }
}

int Show(const std::string& file, const std::string& name) {
    Session s(file, name);
    if (s.result) return Failed(file + ": profile \"" + name + "\"", s.result);
    DWORD mode = 0;
    tovGetExposureMode(&mode);
    std::printf("profile \"%s\" of %s\nexposure: %s\n", name.c_str(), file.c_str(), mode ? "automatic" : "fixed");
    for (DWORD id = 0; id < 17; ++id) {
        EsPair pair = {id, 0};
        if (tovGetExposureSettings(&pair, sizeof pair) == tovOk)
            std::printf("  %-20s %ld\n", Narrow(tovProfileESParmIDToName(id)).c_str(), long(pair.value));
    }
    LONG aimer = 0, illumination = 0;
    tovGetAimer(&aimer);
    tovGetIllumination(&illumination);
    std::printf("settings:\n  %-20s %ld\n  %-20s %ld\nchain:\n", "Aimer", long(aimer), "Illumination", long(illumination));
    if (!tovGetProfilePFID(1)) std::printf("  (empty)\n");
    PrintChain();
    return 0;
}

// Runs an edit on the open profile and saves it back over itself.
template <class Edit>
int EditChain(const std::string& file, const std::string& name, Edit edit) {
    Session s(file, name);
    if (s.result) return Failed(file + ": profile \"" + name + "\"", s.result);
    if (int status = edit()) return status;
    if (name.empty()) return tov::Fail("profile: the profile with the empty name cannot be saved under its name");
    DWORD result = tovSaveProfile(tov::Wide(file).c_str(), tov::Wide(name).c_str(), kSaveOverwrite);
    return result ? Failed(file + ": saving \"" + name + "\"", result) : 0;
}

int RunProfile(tov::Arguments& args) {
    std::string at;
    const bool haveAt = args.Option("at", &at);
    const bool force = args.Flag("force"), overwrite = args.Flag("overwrite"), readOnly = args.Flag("read-only");
    const size_t count = args.Remaining();
    if (count == 0) return tov::Fail("profile: which? list, show, chain, save, delete, add, remove, set or get");
    if (!args.Check("profile", count)) return 2;
    const std::string sub = args[0];
    auto need = [&](size_t n, const char* usage) {
        if (count == n) return true;
        tov::Fail(std::string("profile: usage: tov profile ") + usage);
        return false;
    };
    if (sub == "chain") {
        if (!need(1, "chain")) return 2;
        for (DWORD id = 1; id <= kFilters; ++id) {
            std::printf("%2u %s\n", unsigned(id), Narrow(tovProfilePFIDToName(id)).c_str());
            for (DWORD parm = 1; const WCHAR* name = tovProfilePFParmIDToName(id, parm); ++parm)
                std::printf("     %u %-12s %s to %s, default %s\n", unsigned(parm), Narrow(name).c_str(),
                            Narrow(tovProfilePFParmMin(id, parm)).c_str(), Narrow(tovProfilePFParmMax(id, parm)).c_str(),
                            Narrow(tovProfilePFParmDefault(id, parm)).c_str());
        }
        return 0;
    }
    if (sub == "list") {
        if (!need(2, "list FILE")) return 2;
        const std::u16string file = tov::Wide(args[1]);
        DWORD n = tovGetProfileList(file.c_str(), nullptr, 0);
        std::vector<WCHAR> names(size_t(n) * kListEntry + 1);
        tovGetProfileList(file.c_str(), names.data(), DWORD(n * kListEntry));
        for (DWORD i = 0; i < n; ++i) std::printf("\"%s\"\n", Narrow(names.data() + i * kListEntry).c_str());
        return 0;
    }
    if (sub == "show") {
        if (count != 2 && !need(3, "show FILE [NAME]")) return 2;
        return Show(args[1], count == 3 ? args[2] : std::string());
    }
    if (sub == "save") {
        if (!need(4, "save FILE NAME NEW [--force] [--overwrite] [--read-only]")) return 2;
        Session s(args[1], args[2]);
        if (s.result) return Failed(args[1] + ": profile \"" + args[2] + "\"", s.result);
        DWORD flags = (force ? kSaveForce : 0) | (overwrite ? kSaveOverwrite : 0) | (readOnly ? kSaveReadOnly : 0);
        DWORD result = tovSaveProfile(tov::Wide(args[1]).c_str(), tov::Wide(args[3]).c_str(), flags);
        return result ? Failed(args[1] + ": saving \"" + args[3] + "\"", result) : 0;
    }
    if (sub == "delete") {
        if (!need(3, "delete FILE NAME")) return 2;
        DWORD result = tovDeleteProfile(tov::Wide(args[1]).c_str(), tov::Wide(args[2]).c_str());
        return result ? Failed(args[1] + ": deleting \"" + args[2] + "\"", result) : 0;
    }
    if (sub == "add") {
        if (!need(4, "add FILE NAME FILTER [--at SLOT]")) return 2;
        DWORD id = FilterId(args[3]), position = 0;
        if (!id) return tov::Fail("profile: no filter " + args[3] + " (tov profile chain lists them)");
        if (haveAt && !Number(at, &position)) return tov::Fail("profile: --at takes a slot number");
        return EditChain(args[1], args[2], [&] {
            DWORD slot = tovAddProfilePF(position, id);
            if (!slot) return tov::Fail("profile: the chain takes no more filters");
            std::printf("%s is filter %u\n", args[3].c_str(), unsigned(slot));
            return 0;
        });
    }
    if (sub == "remove") {
        DWORD slot = 0;
        if (!need(4, "remove FILE NAME SLOT")) return 2;
        if (!Number(args[3], &slot)) return tov::Fail("profile: SLOT is a number from 1");
        return EditChain(args[1], args[2], [&] {
            DWORD result = tovDeleteProfilePF(slot);
            return result ? Failed("removing filter " + args[3], result) : 0;
        });
    }
    if (sub == "set" || sub == "get") {
        DWORD slot = 0;
        if (sub == "set" ? !need(6, "set FILE NAME SLOT PARM VALUE") : !need(5, "get FILE NAME SLOT PARM")) return 2;
        if (!Number(args[3], &slot)) return tov::Fail("profile: SLOT is a number from 1");
        if (sub == "get") {
            Session s(args[1], args[2]);
            if (s.result) return Failed(args[1] + ": profile \"" + args[2] + "\"", s.result);
            WCHAR value[64] = {};
            DWORD result = tovGetProfilePFParmValue(slot, ParmId(tovGetProfilePFID(slot), args[4]), value, 63);
            if (result) return Failed("filter " + args[3] + " parameter " + args[4], result);
            std::printf("%s\n", Narrow(value).c_str());
            return 0;
        }
        return EditChain(args[1], args[2], [&] {
            DWORD result = tovSetProfilePFParmValue(slot, ParmId(tovGetProfilePFID(slot), args[4]),
                                                    tov::Wide(args[5]).c_str());
            return result ? Failed("filter " + args[3] + " parameter " + args[4], result) : 0;
        });
    }
    return tov::Fail("profile: unknown subcommand " + sub + " (list, show, chain, save, delete, add, remove, set, get)");
}

tov::CommandRegistrar registrar({"profile", "list|show|chain|save|delete|add|remove|set|get FILE [NAME] ...",
                                 "lists, shows, copies, deletes and edits the profiles of a profile file", RunProfile, "profile show profiles/sample.zpf Labels"});

}  // namespace
