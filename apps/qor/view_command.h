// `qor view`: the unit live on a web page, served by the tool.
#ifndef QOR_TOOL_VIEW_COMMAND_H
#define QOR_TOOL_VIEW_COMMAND_H

#include <string>

namespace qortool {

struct ViewOptions {
    int serial = 0;
    int port = 8080;  // 0: any free port
    std::string listen = "127.0.0.1";
};

// Serves the view until SIGINT or SIGTERM.
int RunView(const ViewOptions& options);

}  // namespace qortool

#endif
