// The tov program's commands. Each command lives in a cmd_*.cpp of its own
// and registers itself with a static CommandRegistrar, so a new command
// needs no change anywhere else:
//
//   static int RunFoo(tov::Arguments& args) { ... }
//   static tov::CommandRegistrar registrar({"foo", "IN OUT [--level N]",
//                                           "does foo to a picture", RunFoo});
//
// A command returns the program's exit status: 0 on success, 1 on any
// failure, after telling why on standard error (tov::Fail). A usage error
// found by Arguments::Check makes the program exit with 2, as image tools
// do; `tov CMD --help` and `tov help CMD` show the command's help.
#pragma once

#include <tovrel/platform.h>
#include <tovrel/tovrel.h>

#include <string>
#include <vector>

namespace tov {

// A command's arguments after its name: options ("--name VALUE" or
// "--name=VALUE") are taken out by the command, the rest are positional.
class Arguments {
public:
    Arguments(int argc, char** argv);
    // Takes the option out; false when it is not given. A second occurrence,
    // or one without a value, is an error (see Check).
    bool Option(const std::string& name, std::string* value);
    // Takes out an option without a value ("--name"); false when absent.
    bool Flag(const std::string& name);
    // An integer option within [min, max]; fallback when absent. False when
    // it is given wrong (Check reports that).
    bool IntOption(const std::string& name, long min, long max, long fallback, long* value);
    // After the command took its options: the positional count is checked and
    // anything left over is an error. Prints the problem and returns false.
    bool Check(const char* command, size_t positionalCount);
    const std::string& operator[](size_t i) const { return positional_[i]; }
    // Words not yet taken as options: lets a command with a variable number
    // of positionals give Check the count it has.
    size_t Remaining() const { return words_.size(); }

private:
    std::vector<std::string> words_;
    std::vector<std::string> positional_;
    std::string error_;  // the first problem found
    int problems_ = 0;
    void Problem(const std::string& text);
};

struct Command {
    const char* name;
    const char* synopsis;  // the arguments, for the usage text
    const char* summary;   // one line
    int (*run)(Arguments& args);
    const char* example = nullptr;  // a command line, for the help
};

// True once Check has reported a usage error.
bool UsageErrorSeen();

struct CommandRegistrar {
    explicit CommandRegistrar(const Command& command);
};

// ---- helpers the commands share -------------------------------------------

// Prints "tov: <message>" on standard error and returns 1.
int Fail(const std::string& message);
// "DibErrorInvalidParm (7)" and the like.
std::string ResultText(DWORD code);
std::u16string Wide(const std::string& utf8);

// A picture of any common kind, recognised by its content ("-": standard
// input); *converted tells that it was colour or deeper than 8 bits and
// has been read as 8-bit grey.
HDIB LoadPicture(const std::string& path, std::string* error, bool* converted = nullptr);
// A loaded picture that is unloaded on every way out of a command.
class Picture {
public:
    explicit Picture(HDIB hdib) : hdib_(hdib) {}
    ~Picture() {
        if (hdib_) tovUnloadHDIB(hdib_);
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
    operator HDIB() const { return hdib_; }

private:
    HDIB hdib_;
};
// Writes by the name's extension (.bmp, .jpg, .jpeg, .png; "-": PNG to
// standard output).
DWORD SavePicture(HDIB hdib, const std::string& path, DWORD quality, std::string* error);

}  // namespace tov
