// One HTTP GET with libcurl (or the read of a file:// address), read by the
// caller in pieces.
//
// Read hands out exactly the count asked for until the body ends, however
// the server splits its packets, so that a short read means the end. The
// transfer moves only inside Open and Read, on the caller's thread. A dead
// server costs at most the connect time-out, a silent one the read time-out
// per Read. Responses are never served from or written to a cache.
#ifndef QOR_PLATFORM_HTTP_H
#define QOR_PLATFORM_HTTP_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace qor::http {

struct Timeouts {
    uint32_t connectMs;
    uint32_t readMs;  // longest silence while a Read waits for data
};

class Get {
public:
    Get();
    ~Get();
    Get(const Get&) = delete;
    Get& operator=(const Get&) = delete;

    // Sends the request and waits for the response to begin. False when the
    // server can't be reached or the transfer failed before any answer.
    bool Open(const std::string& url, const std::string& agent, Timeouts timeouts);
    // Copies `count` bytes of the body into dst, fewer only at its end;
    // the count copied.
    std::size_t Read(void* dst, std::size_t count);
    // True when the transfer broke off (reset, time-out) rather than ended.
    bool Failed() const;
    // The HTTP status of the response, 0 before one came.
    long Status() const;

private:
    struct Transfer;
    std::unique_ptr<Transfer> transfer_;
    uint32_t readMs_ = 0;
};

}  // namespace qor::http

#endif
