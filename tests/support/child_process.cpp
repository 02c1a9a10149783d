#include "child_process.h"

#include <sys/wait.h>

#include <cstdio>

namespace testsupport {

ChildRun RunChild(const std::string& command) {
    ChildRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, n);
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

}  // namespace testsupport
