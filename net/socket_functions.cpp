#include "net/socket_functions.h"

#include <arpa/inet.h>
#include <sys/socket.h>

namespace orm {

std::string ip_to_string(unsigned long ip) {
  in_addr addr{};
  addr.s_addr = static_cast<in_addr_t>(ip);
  return inet_ntoa(addr);
}

std::string get_local_ip(int descriptor) {
  sockaddr_in local{};
  socklen_t len = sizeof local;
  ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &len);
  return inet_ntoa(local.sin_addr);
}

}  // namespace orm
