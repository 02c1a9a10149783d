// The calibration download endpoint for end-to-end tests: python3's
// http.server on a free loopback port, serving a folder into which the
// virtual instrument writes its units' table files.
#ifndef QOR_TESTS_E2E_CALIBRATION_ENDPOINT_H
#define QOR_TESTS_E2E_CALIBRATION_ENDPOINT_H

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

extern char** environ;

namespace e2ecal {

class PythonEndpoint {
public:
    // Serves `root`; its output goes to `logs` + ".out" and ".log", the
    // requests to the latter. Check Ok() afterwards.
    PythonEndpoint(const std::string& root, const std::string& logs) : log_(logs + ".log") {
        const std::string out = logs + ".out";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const char* argv[] = {"python3", "-u", "-m", "http.server", "0", "--bind", "127.0.0.1",
                              "--directory", root.c_str(), nullptr};
        if (posix_spawnp(&pid_, "python3", &actions, nullptr, const_cast<char**>(argv), environ) != 0) pid_ = -1;
        posix_spawn_file_actions_destroy(&actions);
        // "Serving HTTP on 127.0.0.1 port 40123 (http://127.0.0.1:40123/) ..."
        for (int wait = 0; pid_ > 0 && port_ == 0 && wait < 250; ++wait) {
            usleep(20000);
            std::ifstream in(out);
            std::string line;
            std::getline(in, line);
            const auto at = line.find(" port ");
            if (at != std::string::npos && line.find(") ...") != std::string::npos)
                port_ = std::atoi(line.c_str() + at + 6);
        }
    }
    ~PythonEndpoint() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            waitpid(pid_, nullptr, 0);
        }
    }
    PythonEndpoint(const PythonEndpoint&) = delete;
    PythonEndpoint& operator=(const PythonEndpoint&) = delete;

    bool Ok() const { return pid_ > 0 && port_ > 0; }
    std::string BaseUrl() const { return "http://127.0.0.1:" + std::to_string(port_); }
    // GET requests for `path` logged so far.
    int Requests(const std::string& path) const {
        std::ifstream in(log_);
        std::string line;
        int count = 0;
        while (std::getline(in, line)) count += line.find("\"GET " + path + " ") != std::string::npos;
        return count;
    }

private:
    std::string log_;
    pid_t pid_ = -1;
    int port_ = 0;
};

}  // namespace e2ecal

#endif
