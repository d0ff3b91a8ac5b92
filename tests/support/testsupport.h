// Helpers shared by the test programs: UTF-16 text, a scratch directory,
// the trace log as lines, and the allocation-failure loop.
#pragma once

#include <tovrel/platform.h>
#include <string>
#include <vector>

namespace tovtest {

std::u16string W(const std::string& utf8);
std::string N(const char16_t* text);

// Reads a whole file; empty when it cannot be read.
std::string ReadFileBytes(const std::string& path);
// Writes bytes as the whole file.
void WriteBytes(const std::string& path, const std::string& bytes);
bool FileExists(const std::string& path);
std::string TestDataDir();

// A fresh directory that becomes the working directory for the life of the
// object; removed with its contents afterwards.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::string& path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }
private:
    std::string path_;
    std::string old_;
};

// The lines of "imaging.log" in the working directory, each with its
// stamp removed (the text after the first blank following the time); each
// line keeps its "\r" where the text had one.
std::vector<std::string> LogLines();
// The log's raw text.
std::string LogText();
// Turns tracing on into the log file at the given level and empties the log.
void StartLog(DWORD level);
// Turns tracing off.
void StopLog();

// The functions libtovrel.so exports, as nm lists its dynamic symbols;
// problems (a non-function, a versioned name) go to the list if given.
std::vector<std::string> LibraryExports(std::vector<std::string>* problems = nullptr);

// For n = 1, 2, ...: makes the nth allocation fail and runs body(n). Ends
// at the first n whose fault was not reached, and returns how many
// allocation sites were exercised.
template <class Body>
long ForEachAllocationFailure(Body body) {
    for (long n = 1; n < 1000000; ++n) {
        long before = PlatAllocationCount();
        PlatFailAllocation(n);
        body(n);
        long used = PlatAllocationCount() - before;
        PlatFailAllocation(0);
        if (used < n) return n - 1;
    }
    return -1;
}

}  // namespace tovtest
