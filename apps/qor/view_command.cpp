#include "view_command.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <thread>

#include "live_measurement.h"
#include "view_server.h"

namespace qortool {
namespace {

// The name another machine reaches this one by, for a server on all addresses.
std::string ReachableName(const std::string& listen) {
    if (listen != "0.0.0.0" && listen != "::") return listen.find(':') == std::string::npos ? listen : "[" + listen + "]";
    char name[256] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "localhost";
}

}  // namespace

int RunView(const ViewOptions& options) {
    // The signals come to this thread alone, which waits for them below.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    ViewSettings initial;
    initial.serial = options.serial;
    LiveMeasurement measurement(initial);
    measurement.Start();

    ServerOptions server{options.listen, options.port, RandomToken()};
    ViewServer view(&measurement, server);
    const int port = view.Bind();
    std::thread serving([&] { view.Serve(); });
    std::printf("qor view: unit %08d live at http://%s:%d/?token=%s\n", measurement.Settings().serial,
                ReachableName(options.listen).c_str(), port, server.token.c_str());
    if (options.listen != "127.0.0.1" && options.listen != "localhost" && options.listen != "::1") {
        std::printf("serving other machines: the page needs the token of this address\n");
    }
    std::printf("Ctrl-C ends it\n");
    std::fflush(stdout);

    int signal = 0;
    sigwait(&stopSignals, &signal);
    view.Stop();
    serving.join();
    measurement.Stop();
    return 0;
}

}  // namespace qortool
