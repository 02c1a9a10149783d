// The calibration tests' loopback HTTP server, built into this suite as well:
// the download endpoint of the end-to-end calibration tests.
#include "../calibration/loopback_http_server.cpp"
