// Helpers shared by the test programs: UTF-16 text, a scratch directory,
// the trace log as lines, and the allocation-failure loops.
#pragma once

#include <tovrel/platform.h>
#include <initializer_list>
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

// A readable page followed by an unreadable one: for buffers and records
// that end exactly where readable memory does.
class GuardedPage {
public:
    GuardedPage();
    ~GuardedPage();
    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;
    // The first unreadable byte; End() - n is n readable bytes before it.
    BYTE* End() const { return base_ + page_; }
private:
    size_t page_;
    BYTE* base_;
};

// Results of calls made in order (a braced list is evaluated left to right), as one text.
inline std::string Codes(std::initializer_list<long> results) {
    std::string s;
    for (long r : results) s += (s.empty() ? "" : " ") + std::to_string(r);
    return s;
}

// The text, or "<null>" for none.
std::string Text(const WCHAR* text);

// A handle as the trace lines print it.
inline std::string Handle(const void* p) { return std::to_string(reinterpret_cast<intptr_t>(p)); }

// Unsigned numbers of n bytes in file images, little- and big-endian.
inline uint32_t GetLE(const std::string& b, size_t at, int n = 4) {
    uint32_t v = 0;
    for (int i = n - 1; i >= 0; --i) v = v << 8 | uint8_t(b[at + size_t(i)]);
    return v;
}
inline uint32_t GetBE(const std::string& b, size_t at, int n = 4) {
    uint32_t v = 0;
    for (int i = 0; i < n; ++i) v = v << 8 | uint8_t(b[at + size_t(i)]);
    return v;
}
inline void PutLE(std::string& b, size_t at, uint32_t v, int n = 4) {
    for (int i = 0; i < n; ++i) b[at + size_t(i)] = char(v >> (8 * i));
}
inline void PutBE(std::string& b, size_t at, uint32_t v, int n = 4) {
    for (int i = 0; i < n; ++i) b[at + size_t(i)] = char(v >> (8 * (n - 1 - i)));
}

// The functions libtovrel.so exports, as nm lists its dynamic symbols;
// problems (a non-function, a versioned name) go to the list if given.
std::vector<std::string> LibraryExports(std::vector<std::string>* problems = nullptr);

// Runs f() with the nth platform allocation from now failing and returns
// what f returns; *reached tells whether f came as far as that allocation.
template <class F>
auto WithAllocationFailure(long n, bool* reached, F f) {
    struct Disarm {
        long before, n;
        bool* reached;
        ~Disarm() {
            PlatFailAllocation(0);
            *reached = PlatAllocationCount() - before >= n;
        }
    } disarm{PlatAllocationCount(), n, reached};
    PlatFailAllocation(n);
    return f();
}

// For n = 1, 2, ...: runs site(n), which fails its nth allocation (through
// WithAllocationFailure) and returns whether it reached it. Ends at the
// first n not reached and returns how many sites there were; -1 when the
// sites do not end.
template <class Site>
long ForEachAllocationSite(Site site) {
    for (long n = 1; n < 1000000; ++n)
        if (!site(n)) return n - 1;
    return -1;
}

// The same for a body that is wholly under the fault: body(n) runs with
// the nth allocation from its start failing.
template <class Body>
long ForEachAllocationFailure(Body body) {
    return ForEachAllocationSite([&](long n) {
        bool reached = false;
        WithAllocationFailure(n, &reached, [&] { body(n); });
        return reached;
    });
}

}  // namespace tovtest
