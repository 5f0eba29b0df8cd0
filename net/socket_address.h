// An IPv4 socket address value.
#pragma once

#include <netinet/in.h>

namespace orm {

class SocketAddress {
 public:
  SocketAddress();
  SocketAddress(const char* ip, unsigned short port);  // dotted quad, host-order port
  explicit SocketAddress(const sockaddr_in& addr);
  SocketAddress(const SocketAddress&) = default;
  SocketAddress& operator=(const SocketAddress&) = default;

  const sockaddr_in& get() const { return addr_; }
  sockaddr_in& get() { return addr_; }

 private:
  sockaddr_in addr_;
};

}  // namespace orm
