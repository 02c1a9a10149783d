#include "view_server.h"

#include <cstdio>
#include <random>
#include <thread>
#include <utility>

#include "session.h"
#include "view_frame.h"
#include "web_assets.h"

namespace qortool {
namespace {

// No page draws faster than this, and the stream spares the socket the rest.
constexpr auto kStreamGap = std::chrono::milliseconds(20);
constexpr int kServerThreads = 16;

bool IsLoopback(const std::string& name) {
    return name == "localhost" || name == "[::1]" || name == "::1" || name.rfind("127.", 0) == 0;
}

// Compares in time independent of where the texts differ.
bool SameSecret(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    unsigned char differ = 0;
    for (std::size_t i = 0; i < a.size(); ++i) differ |= static_cast<unsigned char>(a[i] ^ b[i]);
    return differ == 0;
}

void Refuse(httplib::Response& response, int status, const std::string& reason) {
    response.status = status;
    response.set_content(reason + "\n", "text/plain");
}

}  // namespace

std::string RandomToken() {
    std::random_device entropy;
    std::string token;
    for (int i = 0; i < 4; ++i) {
        char word[9];
        std::snprintf(word, sizeof word, "%08x", entropy());
        token += word;
    }
    return token;
}

ViewServer::ViewServer(LiveMeasurement* measurement, ServerOptions options)
    : measurement_(measurement), options_(std::move(options)) {
    server_.new_task_queue = [] { return new httplib::ThreadPool(kServerThreads); };
    server_.set_payload_max_length(16 * 1024);
    // An idle connection of a page holds a thread, and Stop waits for it.
    server_.set_keep_alive_timeout(1);
    server_.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
        return Admit(request, response) ? httplib::Server::HandlerResponse::Unhandled
                                        : httplib::Server::HandlerResponse::Handled;
    });
    Routes();
}

int ViewServer::Bind() {
    const int port = options_.port == 0 ? server_.bind_to_any_port(options_.listen)
                                        : (server_.bind_to_port(options_.listen, options_.port) ? options_.port : -1);
    if (port <= 0) {
        throw ToolError("cannot listen on " + options_.listen + " port " + std::to_string(options_.port));
    }
    options_.port = port;
    return port;
}

void ViewServer::Serve() { server_.listen_after_bind(); }

void ViewServer::Stop() { server_.stop(); }

// The name in `Host` must be one this server answers to, and the port its own:
// a page of another site that a resolver points here (DNS rebinding) names its own.
bool ViewServer::HostAllowed(const std::string& host) const {
    // Without a port the name stands for port 80.
    const std::size_t colon = host.rfind(':');
    const bool hasPort = colon != std::string::npos && host.back() != ']';
    const std::string name = hasPort ? host.substr(0, colon) : host;
    if ((hasPort ? host.substr(colon + 1) : "80") != std::to_string(options_.port)) return false;
    const std::string& listen = options_.listen;
    if (listen == "0.0.0.0" || listen == "::") return true;
    return name == listen || name == "[" + listen + "]" || IsLoopback(name);
}

bool ViewServer::Admit(const httplib::Request& request, httplib::Response& response) const {
    response.set_header("Cache-Control", "no-store");
    response.set_header("X-Content-Type-Options", "nosniff");
    const std::string host = request.get_header_value("Host");
    if (!HostAllowed(host)) {
        Refuse(response, 403, "forbidden: Host does not name this server");
        return false;
    }
    if (request.has_header("Origin") && request.get_header_value("Origin") != "http://" + host) {
        Refuse(response, 403, "forbidden: the request comes from a page of another origin");
        return false;
    }
    if (request.path.rfind("/api/", 0) == 0 && !SameSecret(request.get_header_value("X-Qor-Token"), options_.token)) {
        Refuse(response, 401, "unauthorized: missing or wrong X-Qor-Token");
        return false;
    }
    return true;
}

void ViewServer::Routes() {
    server_.Get(R"(/[a-z.]*)", [](const httplib::Request& request, httplib::Response& response) {
        const WebAsset* asset = FindWebAsset(request.path == "/" ? "/index.html" : request.path);
        if (asset == nullptr) return Refuse(response, 404, "not found");
        response.set_header("Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'");
        // Sent as it is from the tool's image: a body of known length is not
        // compressed, which costs more time than the loopback saves.
        response.set_content_provider(asset->size, asset->contentType,
                                      [asset](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                          return sink.write(reinterpret_cast<const char*>(asset->data) + offset, length);
                                      });
    });
    server_.Get("/api/state", [this](const httplib::Request&, httplib::Response& response) {
        response.set_content(measurement_->State().dump(), "application/json");
    });
    server_.Post("/api/settings", [this](const httplib::Request& request, httplib::Response& response) {
        const nlohmann::json patch = nlohmann::json::parse(request.body, nullptr, false);
        if (patch.is_discarded()) return Refuse(response, 400, "the settings are not JSON");
        ViewSettings settings = measurement_->Settings();
        const std::string reason = ApplyPatch(patch, &settings);
        if (!reason.empty()) return Refuse(response, 400, reason);
        const bool accepted = measurement_->Change(settings);
        response.status = accepted ? 200 : 422;
        response.set_content(measurement_->State().dump(), "application/json");
    });
    server_.Get("/api/stream", [this](const httplib::Request&, httplib::Response& response) {
        auto sent = std::make_shared<std::pair<std::uint32_t, std::chrono::steady_clock::time_point>>();
        response.set_chunked_content_provider("application/octet-stream", [this, sent](std::size_t,
                                                                                    httplib::DataSink& sink) {
            // Whatever came while this page was busy is skipped: it gets the newest frame.
            std::this_thread::sleep_until(sent->second + kStreamGap);
            const std::shared_ptr<const LiveFrame> frame =
                measurement_->Newer(sent->first, std::chrono::milliseconds(250));
            if (!frame) return true;
            const std::string bytes = EncodeFrame(*frame);
            *sent = {frame->sequence, std::chrono::steady_clock::now()};
            return sink.write(bytes.data(), bytes.size());
        });
    });
}

}  // namespace qortool
