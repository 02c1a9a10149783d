// The HTTP side of the live view: the page, its settings and the stream of frames.
//
// GET  /, /view.css, /view.js   the page, embedded in the tool
// GET  /api/state               settings, units, refusals and notes (JSON)
// POST /api/settings            a JSON object of settings to change; 400 when
//                               malformed, 422 when the unit refused one
// GET  /api/stream              the frames of view_frame.h, chunked, newest first
//
// Every request must name this server in `Host` (a loopback name when it
// listens on loopback), and an `Origin` it carries must be this server; the
// /api requests carry the token in `X-Qor-Token`. So a page from elsewhere
// can neither read the unit nor drive it.
#ifndef QOR_TOOL_VIEW_SERVER_H
#define QOR_TOOL_VIEW_SERVER_H

#include <httplib.h>

#include <string>

#include "live_measurement.h"

namespace qortool {

struct ServerOptions {
    std::string listen = "127.0.0.1";
    int port = 8080;  // 0: any free port
    std::string token;
};

class ViewServer {
public:
    ViewServer(LiveMeasurement* measurement, ServerOptions options);
    ViewServer(const ViewServer&) = delete;
    ViewServer& operator=(const ViewServer&) = delete;

    // Binds the address; throws ToolError when it cannot. Returns the port.
    int Bind();
    // Answers requests until Stop.
    void Serve();
    void Stop();

private:
    bool HostAllowed(const std::string& host) const;
    bool Admit(const httplib::Request& request, httplib::Response& response) const;
    void Routes();

    LiveMeasurement* measurement_;
    ServerOptions options_;
    httplib::Server server_;
};

// A random token of 128 bits in hex.
std::string RandomToken();

}  // namespace qortool

#endif
