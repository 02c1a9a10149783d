// Another program run as a test's child, as a user would start it.
#ifndef QOR_TESTS_SUPPORT_CHILD_PROCESS_H
#define QOR_TESTS_SUPPORT_CHILD_PROCESS_H

#include <stdio.h>
#include <sys/wait.h>

#include <string>

namespace testsupport {

struct ChildRun {
    int exitCode = -1;   // -1 when it did not exit normally
    std::string output;  // what it wrote to stdout (and to stderr, if the command sends it there)
};

// Runs `command` with the shell and waits for it.
inline ChildRun RunChild(const std::string& command) {
    ChildRun run;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return run;
    char buffer[4096];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.output.append(buffer, n);
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

}  // namespace testsupport

#endif
