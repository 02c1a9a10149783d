// Another program run as a test's child, as a user would start it.
#ifndef QOR_TESTS_SUPPORT_CHILD_PROCESS_H
#define QOR_TESTS_SUPPORT_CHILD_PROCESS_H

#include <string>

namespace testsupport {

struct ChildRun {
    int exitCode = -1;   // -1 when it did not exit normally
    std::string output;  // what it wrote to stdout (and to stderr, if the command sends it there)
};

// Runs `command` with the shell and waits for it.
ChildRun RunChild(const std::string& command);

}  // namespace testsupport

#endif
