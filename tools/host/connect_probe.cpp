#include "tools/host/connect_probe.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace panelhost {

namespace {

constexpr int k_connect_wait_ms = 100;  // the driver's own connect wait

std::string reason_of(int error, uint16_t port) {
  switch (error) {
    case 0:
      return "";
    case ECONNREFUSED:
      return "connection refused (nothing listens on port " + std::to_string(port) + ")";
    case ETIMEDOUT:
      return "timed out (no answer within " + std::to_string(k_connect_wait_ms) +
             " ms: the address is not on the network, or a firewall drops the connection)";
    case ENETUNREACH:
    case EHOSTUNREACH:
      return "no route to the controller's network (" + std::string(std::strerror(error)) + ")";
    default:
      return std::strerror(error);
  }
}

// The connection's outcome within the wait: 0, an errno value, or ETIMEDOUT.
int try_connect(int fd, const sockaddr_in& to) {
  if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  pollfd p{fd, POLLOUT, 0};
  const int ready = poll(&p, 1, k_connect_wait_ms);
  if (ready < 0) return errno;
  if (ready == 0) return ETIMEDOUT;
  int error = 0;
  socklen_t length = sizeof error;
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return errno;
  return error;
}

}  // namespace

std::string connect_failure_reason(const std::string& address, uint16_t port) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &to.sin_addr) != 1) return "not an IPv4 address";
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return std::strerror(errno);
  const int error = try_connect(fd, to);
  close(fd);
  return reason_of(error, port);
}

}  // namespace panelhost
