#include "live_view_harness.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

namespace liveview {
namespace {

using Clock = std::chrono::steady_clock;

// Reads what `fd` has within the time left to `deadline`; false at its end or on time-out.
bool ReadSome(int fd, std::string* into, Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(left)) <= 0) return false;
    char buffer[65536];
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n <= 0) return false;
    into->append(buffer, static_cast<std::size_t>(n));
    return true;
}

// SIGTERM, then SIGKILL after 10 s; the exit status, or -1.
int Stop(pid_t pid) {
    if (pid <= 0) return -1;
    kill(pid, SIGTERM);
    int status = 0;
    for (int i = 0; i < 200; ++i) {
        if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return -1;
}

}  // namespace

ViewProcess::ViewProcess(const std::string& arguments) {
    const char* tool = std::getenv("QOR_TOOL");
    if (tool == nullptr) return;
    int out[2];
    if (pipe(out) != 0) return;
    const std::string command = "exec env -u QOR_D2XX_LIBRARY '" + std::string(tool) + "' view --sim --port 0 " + arguments;
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out[1], STDOUT_FILENO);
        close(out[0]);
        close(out[1]);
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(out[1]);
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    std::size_t at = std::string::npos;
    while ((at = output.find("http://")) == std::string::npos || output.find('\n', at) == std::string::npos) {
        if (!ReadSome(out[0], &output, deadline)) break;
    }
    // The pipe stays open (and unread) for the few lines the tool prints later.
    if (at == std::string::npos) return;
    url = output.substr(at, output.find_first_of(" \n", at) - at);
    port = std::atoi(url.c_str() + url.rfind(':') + 1);
    token = url.substr(url.find("token=") + 6);
}

int ViewProcess::Stop() {
    const int status = liveview::Stop(pid_);
    pid_ = -1;
    return status;
}

ViewProcess::~ViewProcess() { Stop(); }

HeadlessBrowser::HeadlessBrowser(int width, int height) : width_(width), height_(height) {
    const char* named = std::getenv("QOR_CHROMIUM");
    const std::string chromium = named ? named : "chromium";
    char profile[] = "/tmp/qor-view-chromium-XXXXXX";
    if (mkdtemp(profile) == nullptr) {
        error_ = "no temporary profile folder";
        return;
    }
    profile_ = profile;
    int to[2], from[2];
    if (pipe(to) != 0 || pipe(from) != 0) {
        error_ = "no pipes";
        return;
    }
    const std::string size = "--window-size=" + std::to_string(width) + "," + std::to_string(height);
    const std::string dataDir = "--user-data-dir=" + profile_;
    pid_ = fork();
    if (pid_ == 0) {
        // The DevTools pipe: the browser reads fd 3 and writes fd 4.
        const int in = fcntl(to[0], F_DUPFD, 10), out = fcntl(from[1], F_DUPFD, 10);
        dup2(in, 3);
        dup2(out, 4);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execlp(chromium.c_str(), chromium.c_str(), "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
               "--hide-scrollbars", "--mute-audio", "--remote-debugging-pipe", dataDir.c_str(), size.c_str(),
               "about:blank", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(to[0]);
    close(from[1]);
    toBrowser_ = to[1];
    fromBrowser_ = from[0];
    signal(SIGPIPE, SIG_IGN);
    const nlohmann::json version = Call("Browser.getVersion", nlohmann::json::object(), false);
    if (!version.contains("product")) error_ = chromium + " did not start (headless, DevTools pipe)";
}

HeadlessBrowser::~HeadlessBrowser() {
    if (toBrowser_ >= 0) close(toBrowser_);
    if (fromBrowser_ >= 0) close(fromBrowser_);
    Stop(pid_);
    if (!profile_.empty()) std::system(("rm -rf '" + profile_ + "'").c_str());
}

nlohmann::json HeadlessBrowser::Call(const std::string& method, const nlohmann::json& params, bool onPage) {
    const int id = nextId_++;
    nlohmann::json message{{"id", id}, {"method", method}, {"params", params}};
    if (onPage) message["sessionId"] = session_;
    const std::string text = message.dump() + '\0';
    if (write(toBrowser_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return nullptr;
    const auto deadline = Clock::now() + std::chrono::seconds(15);
    for (;;) {
        std::size_t end;
        while ((end = pending_.find('\0')) == std::string::npos) {
            if (!ReadSome(fromBrowser_, &pending_, deadline)) return nullptr;
        }
        const nlohmann::json reply = nlohmann::json::parse(pending_.substr(0, end), nullptr, false);
        pending_.erase(0, end + 1);
        if (reply.is_object() && reply.value("id", 0) == id) return reply.value("result", nlohmann::json());
    }
}

bool HeadlessBrowser::Navigate(const std::string& url) {
    const nlohmann::json target = Call("Target.createTarget", {{"url", "about:blank"}}, false);
    if (!target.contains("targetId")) return false;
    const nlohmann::json attached =
        Call("Target.attachToTarget", {{"targetId", target["targetId"]}, {"flatten", true}}, false);
    if (!attached.contains("sessionId")) return false;
    session_ = attached["sessionId"];
    Call("Emulation.setDeviceMetricsOverride",
         {{"width", width_}, {"height", height_}, {"deviceScaleFactor", 1}, {"mobile", false}});
    return Call("Page.navigate", {{"url", url}}).contains("frameId");
}

nlohmann::json HeadlessBrowser::Evaluate(const std::string& expression) {
    const nlohmann::json result =
        Call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}, {"awaitPromise", true}});
    if (result.is_null() || result.contains("exceptionDetails") || !result.contains("result")) return nullptr;
    return result["result"].value("value", nlohmann::json());
}

bool HeadlessBrowser::WaitFor(const std::string& condition, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (Clock::now() < deadline) {
        if (Evaluate("!!(" + condition + ")") == true) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

}  // namespace liveview
