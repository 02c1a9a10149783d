// `qor view --sim` as a user starts it, and a headless Chromium driven over
// its DevTools pipe, for the live view's tests.
#ifndef QOR_TESTS_TOOL_LIVE_VIEW_HARNESS_H
#define QOR_TESTS_TOOL_LIVE_VIEW_HARNESS_H

#include <sys/types.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace liveview {

// The tool serving the virtual instrument on a free loopback port; stopped
// with SIGTERM when this goes. `url` is empty when it did not start.
class ViewProcess {
public:
    explicit ViewProcess(const std::string& arguments = "");
    ~ViewProcess();
    ViewProcess(const ViewProcess&) = delete;
    ViewProcess& operator=(const ViewProcess&) = delete;
    // Ends it with SIGTERM; its exit status (-1 when it had to be killed).
    // A sanitizer's report makes it other than 0.
    int Stop();

    std::string url;  // http://127.0.0.1:PORT/?token=...
    int port = 0;
    std::string token;
    std::string output;  // what it printed before the address

private:
    pid_t pid_ = -1;
};

// A headless Chromium with one page open. `error()` says why when it cannot start.
class HeadlessBrowser {
public:
    HeadlessBrowser(int width, int height);
    ~HeadlessBrowser();
    HeadlessBrowser(const HeadlessBrowser&) = delete;
    HeadlessBrowser& operator=(const HeadlessBrowser&) = delete;

    const std::string& error() const { return error_; }
    bool Navigate(const std::string& url);
    // The value of a JavaScript expression (JSON); null on an exception or time-out.
    nlohmann::json Evaluate(const std::string& expression);
    // Evaluates `condition` until it is true; false when `limit` passes first.
    bool WaitFor(const std::string& condition, std::chrono::milliseconds limit);

private:
    nlohmann::json Call(const std::string& method, const nlohmann::json& params, bool onPage = true);

    pid_t pid_ = -1;
    int toBrowser_ = -1, fromBrowser_ = -1;
    std::string pending_;
    int nextId_ = 1;
    std::string session_;
    std::string profile_;
    int width_, height_;
    std::string error_;
};

}  // namespace liveview

#endif
