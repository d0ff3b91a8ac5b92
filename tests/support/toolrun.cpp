#include "toolrun.h"

#include "testsupport.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

namespace tovtest {

ToolRun Tov(const std::string& arguments) {
#ifdef TOV_TOOL_PATH
    const std::string command = std::string("'") + TOV_TOOL_PATH + "' " + arguments + " >out.txt 2>err.txt";
    const int raw = std::system(command.c_str());
    ToolRun run{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadFileBytes("out.txt"), ReadFileBytes("err.txt")};
    std::remove("out.txt");
    std::remove("err.txt");
    return run;
#else
    return ToolRun{-1, "", "the tov program is not built: " + arguments};
#endif
}

}  // namespace tovtest
