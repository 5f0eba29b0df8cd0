// Why a controller cannot be reached: the driver reports only that it could not connect.
#pragma once

#include <cstdint>
#include <string>

namespace panelhost {

// Tries one TCP connection to address:port, waiting as long as the driver does (100 ms),
// and says why it fails: "connection refused (nothing listens on port 502)", "timed out
// ...", "no route to ..."; "" when it succeeds now.
std::string connect_failure_reason(const std::string& address, uint16_t port);

}  // namespace panelhost
