#include "loopback_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

namespace caltest {
namespace {

int ListenOnLoopback(int* port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    listen(fd, 8);
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    *port = ntohs(address.sin_port);
    return fd;
}

bool WaitReadable(int fd, const std::atomic<bool>& stop) {
    pollfd p{fd, POLLIN, 0};
    while (!stop) {
        if (poll(&p, 1, 20) > 0) return true;
    }
    return false;
}

bool SendAll(int fd, const uint8_t* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = send(fd, data, size, MSG_NOSIGNAL);
        if (n <= 0) return false;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

std::vector<uint8_t> PatternBody(std::size_t size) {
    std::vector<uint8_t> body(size);
    for (std::size_t i = 0; i < size; ++i) body[i] = static_cast<uint8_t>((i * 7 + i / 251) & 0xFF);
    return body;
}

std::string DeadBaseUrl() {
    int port = 0;
    const int fd = ListenOnLoopback(&port);
    close(fd);  // the port was free a moment ago and nothing listens on it now
    return "http://127.0.0.1:" + std::to_string(port);
}

LoopbackHttpServer::LoopbackHttpServer() : listener_(ListenOnLoopback(&port_)), thread_([this] { Run(); }) {}

LoopbackHttpServer::~LoopbackHttpServer() {
    stop_ = true;
    thread_.join();
    close(listener_);
}

void LoopbackHttpServer::Serve(const std::string& path, Reply reply) {
    std::lock_guard<std::mutex> guard(lock_);
    replies_[path] = std::move(reply);
}

std::string LoopbackHttpServer::BaseUrl() const { return "http://127.0.0.1:" + std::to_string(port_); }

std::vector<std::string> LoopbackHttpServer::Requests() const {
    std::lock_guard<std::mutex> guard(lock_);
    return requests_;
}

void LoopbackHttpServer::Run() {
    while (WaitReadable(listener_, stop_)) {
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        Answer(connection);
        close(connection);
    }
}

void LoopbackHttpServer::Answer(int connection) {
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos) {
        if (!WaitReadable(connection, stop_)) return;
        const ssize_t n = recv(connection, buffer, sizeof buffer, 0);
        if (n <= 0) return;
        head.append(buffer, static_cast<std::size_t>(n));
    }
    const std::size_t pathStart = head.find(' ') + 1;
    const std::string path = head.substr(pathStart, head.find(' ', pathStart) - pathStart);
    Reply reply;
    {
        std::lock_guard<std::mutex> guard(lock_);
        requests_.push_back(head);
        auto it = replies_.find(path);
        if (it != replies_.end()) {
            reply = it->second;
        } else {
            reply.status = 404;
            const std::string page = "<html><body>404 Not Found</body></html>";
            reply.body.assign(page.begin(), page.end());
        }
    }
    // Hold the connection until the client gives up or the server stops.
    auto holdSilent = [&] {
        while (WaitReadable(connection, stop_)) {
            if (recv(connection, buffer, sizeof buffer, 0) <= 0) return;
        }
    };
    if (reply.silentBeforeAnswer) return holdSilent();

    const std::string response = "HTTP/1.1 " + std::to_string(reply.status) + " X\r\nContent-Length: " +
                                 std::to_string(reply.body.size()) + "\r\nConnection: close\r\n\r\n";
    const int noDelay = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
    if (!SendAll(connection, reinterpret_cast<const uint8_t*>(response.data()), response.size())) return;
    for (std::size_t sent = 0; sent < reply.body.size();) {
        if (sent >= reply.silentAfter) return holdSilent();
        if (sent >= reply.resetAfter) {
            const linger reset{1, 0};
            setsockopt(connection, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
            return;
        }
        std::size_t n = std::min(reply.piece, reply.body.size() - sent);
        n = std::min(n, std::min(reply.silentAfter, reply.resetAfter) - sent);
        if (!SendAll(connection, reply.body.data() + sent, n)) return;
        sent += n;
        if (reply.pauseMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(reply.pauseMs));
    }
}

}  // namespace caltest
