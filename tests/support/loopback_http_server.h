// A small HTTP server on 127.0.0.1 for the download tests: serves bodies in
// pieces of a chosen size and pace, and can fall silent or reset the
// connection part way. One connection at a time, on its own thread.
#ifndef QOR_TESTS_LOOPBACK_HTTP_SERVER_H
#define QOR_TESTS_LOOPBACK_HTTP_SERVER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace caltest {

class LoopbackHttpServer {
public:
    static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

    struct Reply {
        int status = 200;
        std::vector<uint8_t> body;
        std::size_t piece = 65536;         // bytes per send
        int pauseMs = 0;                   // pause after each piece
        bool silentBeforeAnswer = false;   // accept, then never answer
        std::size_t silentAfter = kNever;  // body bytes after which nothing more is sent
        std::size_t resetAfter = kNever;   // body bytes after which the connection is reset
    };

    LoopbackHttpServer();
    ~LoopbackHttpServer();
    LoopbackHttpServer(const LoopbackHttpServer&) = delete;
    LoopbackHttpServer& operator=(const LoopbackHttpServer&) = delete;

    // Unknown paths get a short 404 page.
    void Serve(const std::string& path, Reply reply);
    std::string BaseUrl() const;
    // The request heads received so far.
    std::vector<std::string> Requests() const;

private:
    void Run();
    void Answer(int connection);

    int port_ = 0;  // before listener_: set while the listener is made
    int listener_ = -1;
    std::atomic<bool> stop_{false};
    mutable std::mutex lock_;
    std::map<std::string, Reply> replies_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

// A body whose bytes tell their own offset, so that a misplaced piece shows.
std::vector<uint8_t> PatternBody(std::size_t size);

// A base address on which nothing listens.
std::string DeadBaseUrl();

}  // namespace caltest

#endif
