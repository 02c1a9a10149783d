#include "http.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>

#include <curl/curl.h>

namespace qor::http {
namespace {

using Clock = std::chrono::steady_clock;

// Longest wait of one poll: a Read notices a silent server within this.
constexpr int kPollMs = 50;

void InitCurlOnce() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

}  // namespace

struct Get::Transfer {
    CURL* easy = nullptr;
    CURLM* multi = nullptr;
    curl_slist* headers = nullptr;
    std::string pending;         // body bytes received and not yet handed out
    uint64_t bytesSeen = 0;      // header and body bytes so far: the sign of progress
    bool answered = false;       // the first response line came
    bool done = false;
    CURLcode result = CURLE_OK;

    ~Transfer() {
        if (multi && easy) curl_multi_remove_handle(multi, easy);
        if (easy) curl_easy_cleanup(easy);
        if (multi) curl_multi_cleanup(multi);
        curl_slist_free_all(headers);
    }

    static size_t OnBody(char* data, size_t size, size_t count, void* self) {
        auto* t = static_cast<Transfer*>(self);
        t->pending.append(data, size * count);
        t->bytesSeen += size * count;
        return size * count;
    }

    static size_t OnHeader(char*, size_t size, size_t count, void* self) {
        auto* t = static_cast<Transfer*>(self);
        t->answered = true;
        t->bytesSeen += size * count;
        return size * count;
    }

    void CollectResult() {
        int queued = 0;
        while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
            if (message->msg == CURLMSG_DONE) {
                done = true;
                result = message->data.result;
            }
        }
    }

    // Moves the transfer on until `ready` holds or it ends; a silence of
    // `silenceMs` ends it as timed out.
    template <typename Ready>
    void Pump(Ready ready, uint32_t silenceMs) {
        auto lastProgress = Clock::now();
        uint64_t seen = bytesSeen;
        while (!done && !ready()) {
            int running = 0;
            curl_multi_perform(multi, &running);
            CollectResult();
            if (done || ready()) return;
            const auto now = Clock::now();
            if (bytesSeen != seen) {
                seen = bytesSeen;
                lastProgress = now;
            } else if (now - lastProgress > std::chrono::milliseconds(silenceMs)) {
                done = true;
                result = CURLE_OPERATION_TIMEDOUT;
                return;
            }
            curl_multi_poll(multi, nullptr, 0, kPollMs, nullptr);
        }
    }
};

Get::Get() = default;
Get::~Get() = default;

bool Get::Open(const std::string& url, const std::string& agent, Timeouts timeouts) {
    InitCurlOnce();
    transfer_ = std::make_unique<Transfer>();
    Transfer& t = *transfer_;
    t.easy = curl_easy_init();
    t.multi = curl_multi_init();
    if (!t.easy || !t.multi) return false;
    readMs_ = timeouts.readMs;

    // Always from the server: no cache on the way may answer.
    t.headers = curl_slist_append(t.headers, "Cache-Control: no-cache");
    t.headers = curl_slist_append(t.headers, "Pragma: no-cache");
    curl_easy_setopt(t.easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(t.easy, CURLOPT_USERAGENT, agent.c_str());
    curl_easy_setopt(t.easy, CURLOPT_HTTPHEADER, t.headers);
    curl_easy_setopt(t.easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(t.easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeouts.connectMs));
    curl_easy_setopt(t.easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(t.easy, CURLOPT_MAXREDIRS, 5L);
    // file:// too, for an endpoint kept in a local folder; redirects stay on the network.
    curl_easy_setopt(t.easy, CURLOPT_PROTOCOLS_STR, "http,https,file");
    curl_easy_setopt(t.easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(t.easy, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(t.easy, CURLOPT_WRITEFUNCTION, &Transfer::OnBody);
    curl_easy_setopt(t.easy, CURLOPT_WRITEDATA, &t);
    curl_easy_setopt(t.easy, CURLOPT_HEADERFUNCTION, &Transfer::OnHeader);
    curl_easy_setopt(t.easy, CURLOPT_HEADERDATA, &t);
    if (curl_multi_add_handle(t.multi, t.easy) != CURLM_OK) return false;

    // curl bounds the connect; the server then has the read time-out to answer.
    // A file has no response line: its first bytes, or its end, are the answer.
    auto answered = [&t] { return t.answered || !t.pending.empty() || (t.done && t.result == CURLE_OK); };
    t.Pump(answered, timeouts.connectMs + timeouts.readMs);
    return answered();
}

std::size_t Get::Read(void* dst, std::size_t count) {
    if (!transfer_) return 0;
    Transfer& t = *transfer_;
    t.Pump([&t, count] { return t.pending.size() >= count; }, readMs_);
    const std::size_t n = std::min(count, t.pending.size());
    std::memcpy(dst, t.pending.data(), n);
    t.pending.erase(0, n);
    return n;
}

bool Get::Failed() const { return transfer_ && transfer_->done && transfer_->result != CURLE_OK; }

long Get::Status() const {
    long status = 0;
    if (transfer_ && transfer_->easy) curl_easy_getinfo(transfer_->easy, CURLINFO_RESPONSE_CODE, &status);
    return status;
}

}  // namespace qor::http
