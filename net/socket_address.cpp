#include "net/socket_address.h"

#include <arpa/inet.h>

#include <cstring>

namespace orm {

SocketAddress::SocketAddress() {
  std::memset(&addr_, 0, sizeof addr_);
}

SocketAddress::SocketAddress(const char* ip, unsigned short port) : SocketAddress() {
  addr_.sin_family = AF_INET;
  addr_.sin_port = htons(port);
  addr_.sin_addr.s_addr = inet_addr(ip);
}

SocketAddress::SocketAddress(const sockaddr_in& addr) : addr_(addr) {}

}  // namespace orm
