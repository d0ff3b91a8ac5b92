// Runs the tov program in the working directory and collects its exit
// status and both outputs.
#pragma once

#include <string>

namespace tovtest {

struct ToolRun {
    int status;  // exit status; -1 when it did not exit normally
    std::string out, err;
};

// arguments is a shell command line fragment (quote names with blanks).
ToolRun Tov(const std::string& arguments);

}  // namespace tovtest
