// tov: pictures from the command line through libtovrel's exports.
//
//   tov [--trace LEVEL] COMMAND ARGS...
//
// The commands register themselves (commands.h); this file holds the
// registry, the argument reader, the shared helpers and the usage text.
#include "commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tov {
namespace {

constexpr long kMaxTraceLevel = 10;
constexpr int kUsageStatus = 2;
bool g_usageError = false;
std::string g_command;  // the command running, for the messages

std::vector<Command>& Registry() {
    static std::vector<Command> commands;  // filled by static registrars, before main
    return commands;
}

const Command* Find(const std::string& name) {
    for (const Command& c : Registry())
        if (name == c.name) return &c;
    return nullptr;
}

void Usage(FILE* out) {
    std::vector<Command> commands = Registry();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return std::strcmp(a.name, b.name) < 0; });
    std::fprintf(out,
                 "usage: tov [--trace LEVEL] COMMAND ARGS...\n"
                 "       tov --help | --version\n\n"
                 "Pictures are read and written by their extension: .bmp, .jpg or .png.\n"
                 "--trace LEVEL writes the library's trace (levels 0 to 10) to standard error.\n\n"
                 "commands:\n");
    for (const Command& c : commands) {
        std::string head = std::string(c.name) + " " + c.synopsis;
        if (head.size() > 36)
            std::fprintf(out, "  %s\n  %-36s %s\n", head.c_str(), "", c.summary);
        else
            std::fprintf(out, "  %-36s %s\n", head.c_str(), c.summary);
    }
    std::fprintf(out, "\ntov help COMMAND or tov COMMAND --help shows a command's help with an example.\n");
}

void CommandHelp(const Command& c, FILE* out) {
    std::fprintf(out, "usage: tov %s %s\n%s\n", c.name, c.synopsis, c.summary);
    if (c.example) std::fprintf(out, "example: tov %s\n", c.example);
}

bool WantsHelp(int argc, char** argv) {
    for (int i = 0; i < argc; ++i)
        if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return true;
    return false;
}

std::vector<Command> Sorted() {
    std::vector<Command> commands = Registry();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return std::strcmp(a.name, b.name) < 0; });
    return commands;
}

// The options of a synopsis: every "--word" in it.
std::string OptionsOf(const char* synopsis) {
    std::string options, s = synopsis;
    for (size_t at = s.find("--"); at != std::string::npos; at = s.find("--", at + 2)) {
        size_t end = s.find_first_of(" ]=|", at);
        options += " " + s.substr(at, end == std::string::npos ? std::string::npos : end - at);
    }
    return options;
}

// A bash completion script made from the command table: commands, then
// each command's options, then file names.
void BashCompletion() {
    std::string names;
    for (const Command& c : Sorted()) names += std::string(" ") + c.name;
    std::printf("# bash completion for tov, made by tov --bash-completion\n"
                "_tov() {\n"
                "  local cur=${COMP_WORDS[COMP_CWORD]} cmd=${COMP_WORDS[1]}\n"
                "  if [[ $COMP_CWORD -eq 1 ]]; then\n"
                "    COMPREPLY=($(compgen -W \"%s help --help --version --trace\" -- \"$cur\")); return\n"
                "  fi\n"
                "  case $cmd in\n", names.c_str());
    for (const Command& c : Sorted())
        std::printf("    %s) [[ $cur == -* ]] && { COMPREPLY=($(compgen -W \"%s --help\" -- \"$cur\")); return; } ;;\n",
                    c.name, OptionsOf(c.synopsis).c_str());
    std::printf("    help) COMPREPLY=($(compgen -W \"%s\" -- \"$cur\")); return ;;\n"
                "  esac\n"
                "  COMPREPLY=($(compgen -f -- \"$cur\"))\n"
                "}\n"
                "complete -o filenames -F _tov tov\n", names.c_str());
}

// The manual page, in roff, from the same table.
void ManualPage() {
    std::printf(".TH TOV 1 \"\" \"Tovrel\" \"User Commands\"\n"
                ".SH NAME\ntov \\- pictures, the imager and profiles through libtovrel\n"
                ".SH SYNOPSIS\n.B tov\n[\\-\\-trace LEVEL] COMMAND ARGS...\n"
                ".SH DESCRIPTION\nPictures are recognised by their content (BMP, PNG, JPEG); colour pictures are "
                "read as 8\\-bit grey. The output's name chooses its type; \\- is standard input or output.\n"
                ".SH COMMANDS\n");
    for (const Command& c : Sorted()) {
        std::printf(".TP\n.B %s %s\n%s.\n", c.name, c.synopsis, c.summary);
        if (c.example) std::printf("Example: tov %s\n", c.example);
    }
    std::printf(".SH EXIT STATUS\n0 success, 1 failure, 2 usage error.\n"
                ".SH ENVIRONMENT\nTOVREL_ENGINE, TOVREL_ENGINE_SOURCE, TOVREL_ENGINE_WIDTH, TOVREL_ENGINE_ORIENTATION, "
                "TOVREL_IMAGER_TYPE, TOVREL_PROFILES: see the README.\n");
}

bool ParseLong(const std::string& text, long* value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    long v = std::strtol(text.c_str(), &end, 10);
    if (errno || *end) return false;
    *value = v;
    return true;
}

}  // namespace

CommandRegistrar::CommandRegistrar(const Command& command) { Registry().push_back(command); }

Arguments::Arguments(int argc, char** argv) : words_(argv, argv + argc) {}

bool Arguments::Option(const std::string& name, std::string* value) {
    bool found = false;
    const std::string flag = "--" + name;
    for (size_t i = 0; i < words_.size();) {
        const std::string& w = words_[i];
        size_t take = 0;
        std::string v;
        if (w == flag) {
            if (i + 1 >= words_.size()) {
                Problem(flag + " needs a value");
                words_.erase(words_.begin() + i);
                return false;
            }
            v = words_[i + 1];
            take = 2;
        } else if (w.compare(0, flag.size() + 1, flag + "=") == 0) {
            v = w.substr(flag.size() + 1);
            take = 1;
        } else {
            ++i;
            continue;
        }
        if (found) Problem(flag + " given twice");
        found = true;
        *value = v;
        words_.erase(words_.begin() + i, words_.begin() + i + take);
    }
    return found;
}

bool Arguments::Flag(const std::string& name) {
    const std::string flag = "--" + name;
    bool found = false;
    for (size_t i = 0; i < words_.size();) {
        if (words_[i] != flag) {
            ++i;
            continue;
        }
        if (found) Problem(flag + " given twice");
        found = true;
        words_.erase(words_.begin() + i);
    }
    return found;
}

bool Arguments::IntOption(const std::string& name, long min, long max, long fallback, long* value) {
    std::string text;
    *value = fallback;
    int problemsBefore = problems_;
    if (!Option(name, &text)) return problems_ == problemsBefore;
    long v;
    if (!ParseLong(text, &v) || v < min || v > max) {
        Problem("--" + name + " takes a number from " + std::to_string(min) + " to " +
                std::to_string(max) + ", not '" + text + "'");
        return false;
    }
    *value = v;
    return true;
}

void Arguments::Problem(const std::string& text) {
    if (!problems_++) error_ = text;
}

bool Arguments::Check(const char* command, size_t positionalCount) {
    positional_.clear();
    for (const std::string& w : words_) {
        if (w.size() > 2 && w.compare(0, 2, "--") == 0) {
            Problem("unknown option " + w);
        } else {
            positional_.push_back(w);
        }
    }
    if (positional_.size() != positionalCount)
        Problem("expected " + std::to_string(positionalCount) + " argument" +
                (positionalCount == 1 ? "" : "s") + ", got " + std::to_string(positional_.size()));
    if (!problems_) return true;
    g_usageError = true;
    const Command* c = Find(command);
    std::fprintf(stderr, "tov %s: %s\nusage: tov %s %s\n", command, error_.c_str(), command,
                 c ? c->synopsis : "");
    return false;
}

bool UsageErrorSeen() { return g_usageError; }

// Messages read "tov CMD: FILE: reason", whether or not the command
// already named itself.
int Fail(const std::string& message) {
    const std::string own = g_command + ": ";
    if (g_command.empty()) {
        std::fprintf(stderr, "tov: %s\n", message.c_str());
    } else {
        const std::string rest = message.compare(0, own.size(), own) == 0 ? message.substr(own.size()) : message;
        std::fprintf(stderr, "tov %s: %s\n", g_command.c_str(), rest.c_str());
    }
    return 1;
}

std::string ResultText(DWORD code) {
    static const char* const names[] = {
        "tovOk", "DibErrorMemoryAlocation", "DibErrorMemoryFree", "DibErrorFileCreation",
        "DibErrorFileWrite", "DibErrorInvalidDIB", "tovErrorUnknown", "DibErrorInvalidParm",
        "tovErrorAlreadyInitialized", "tovErrorNotInitialized", "tovErrorProfileExists",
        "tovErrorProfileReadOnly", "tovErrorProfileNotFound", "tovErrorProfileData",
        "tovErrorAlreadyCapturing", "tovErrorNotCapturing", "tovErrorProfileFileLoad",
        "tovErrorProfileFileOpen", "tovErrorBadOutputBuffer", "tovErrorBadFileName"};
    const char* name = code < sizeof names / sizeof names[0] ? names[code] : "unknown result";
    return std::string(name) + " (" + std::to_string(code) + ")";
}

std::u16string Wide(const std::string& utf8) {
    std::vector<WCHAR> buffer(utf8.size() + 1);  // never more units than bytes
    PlatUtf8ToWide(utf8.c_str(), buffer.data(), buffer.size());
    return std::u16string(buffer.data());
}

}  // namespace tov

int main(int argc, char** argv) {
    using namespace tov;
    int at = 1;
    if (at < argc && std::strcmp(argv[at], "--trace") == 0) {
        long level;
        if (at + 1 >= argc || !ParseLong(argv[at + 1], &level) || level < 0 || level > kMaxTraceLevel) {
            Fail("--trace takes a level from 0 to " + std::to_string(kMaxTraceLevel));
            return kUsageStatus;
        }
        tovConfigDebug(1, static_cast<DWORD>(level), tovDebugStream);
        at += 2;
    }
    if (at >= argc) {
        Usage(stderr);
        return kUsageStatus;
    }
    std::string name = argv[at];
    if (name == "--help" || name == "-h" || (name == "help" && at + 1 >= argc)) {
        Usage(stdout);
        return 0;
    }
    if (name == "help") {
        const Command* command = Find(argv[at + 1]);
        if (!command) {
            std::fprintf(stderr, "tov: unknown command '%s'\n", argv[at + 1]);
            return kUsageStatus;
        }
        CommandHelp(*command, stdout);
        return 0;
    }
    if (name == "--bash-completion") {
        BashCompletion();
        return 0;
    }
    if (name == "--man") {
        ManualPage();
        return 0;
    }
    if (name == "--version") {
        WCHAR revision[32];
        tovGetDllRevision(revision);
        char text[64];
        PlatWideToUtf8(revision, text, sizeof text);
        std::printf("tov, libtovrel %s\n", text);
        return 0;
    }
    const Command* command = Find(name);
    if (!command) {
        std::fprintf(stderr, "tov: unknown command '%s'\n", name.c_str());
        Usage(stderr);
        return kUsageStatus;
    }
    if (WantsHelp(argc - at - 1, argv + at + 1)) {
        CommandHelp(*command, stdout);
        return 0;
    }
    Arguments args(argc - at - 1, argv + at + 1);
    g_command = command->name;
    const int status = command->run(args);
    if (g_usageError) return kUsageStatus;
    return status == 0 ? 0 : 1;
}
