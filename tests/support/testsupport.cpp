#include "testsupport.h"

#include <tovrel/tovrel.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace tovtest {

std::u16string W(const std::string& utf8) {
    std::vector<WCHAR> buf(utf8.size() * 2 + 2);
    PlatUtf8ToWide(utf8.c_str(), buf.data(), buf.size());
    return std::u16string(buf.data());
}

std::string N(const char16_t* text) {
    std::vector<char> buf(PlatWideLength(text) * 4 + 1);
    PlatWideToUtf8(text, buf.data(), buf.size());
    return std::string(buf.data());
}

std::string Text(const WCHAR* text) { return text ? N(text) : "<null>"; }

GuardedPage::GuardedPage() : page_(size_t(sysconf(_SC_PAGESIZE))) {
    void* p = mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED || mprotect(static_cast<BYTE*>(p) + page_, page_, PROT_NONE) != 0) std::abort();
    base_ = static_cast<BYTE*>(p);
}

GuardedPage::~GuardedPage() { munmap(base_, 2 * page_); }

std::string ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

bool FileExists(const std::string& path) {
    std::error_code ec;
    return fs::exists(path, ec);
}

std::string TestDataDir() { return TOV_TESTDATA_DIR; }

ScratchDir::ScratchDir() {
    old_ = fs::current_path().string();
    std::string templ = (fs::temp_directory_path() / "tovtest-XXXXXX").string();
    std::vector<char> buf(templ.begin(), templ.end());
    buf.push_back('\0');
    if (!mkdtemp(buf.data())) std::abort();
    path_ = buf.data();
    fs::current_path(path_);
}

ScratchDir::~ScratchDir() {
    std::error_code ec;
    fs::current_path(old_, ec);
    fs::remove_all(path_, ec);
}

std::string LogText() { return ReadFileBytes("imaging.log"); }

std::vector<std::string> LogLines() {
    std::vector<std::string> lines;
    std::istringstream in(LogText());
    std::string line;
    while (std::getline(in, line)) {
        // "MM/DD/YY hh:mm:ss text" or "hh:mm:ss text"
        size_t colon = line.find(':');
        size_t blank = colon == std::string::npos ? std::string::npos : line.find(' ', colon);
        lines.push_back(blank == std::string::npos ? line : line.substr(blank + 1));
    }
    return lines;
}

void StartLog(DWORD level) {
    std::remove("imaging.log");
    tovConfigDebug(1, level, tovDebugFile);
}

void StopLog() { tovConfigDebug(0, 5, tovDebugFile); }

std::vector<std::string> LibraryExports(std::vector<std::string>* problems) {
    std::vector<std::string> names;
    FILE* pipe = popen(("nm -D --defined-only '" + std::string(TOV_LIBTOVREL_PATH) + "'").c_str(), "r");
    if (!pipe) return names;
    char line[512], type, name[400];
    while (std::fgets(line, sizeof line, pipe)) {
        if (std::sscanf(line, "%*s %c %399s", &type, name) != 2) continue;
        if (problems && type != 'T') problems->push_back(std::string(name) + " is not a function");
        if (problems && std::strchr(name, '@')) problems->push_back(std::string(name) + " carries a symbol version");
        names.push_back(name);
    }
    pclose(pipe);
    return names;
}

}  // namespace tovtest
