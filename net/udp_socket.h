// A UDP socket: datagrams to and from IPv4 addresses.
#pragma once

#include "net/orm_socket.h"
#include "net/socket_address.h"

namespace orm {

class UdpSocket : public ormSocket {
 public:
  int createSocket() override;

  // ip in network byte order (as inet_addr returns it); returns sendto's result.
  long sendTo(unsigned long ip, unsigned short port, const char* buf, unsigned int len, int flags);
  long sendTo(const char* ip, unsigned short port, const char* buf, unsigned int len, int flags);
  // Stores the sender in *from when from is not null; returns recvfrom's result.
  long recvFrom(char* buf, unsigned int len, int flags, SocketAddress* from);
};

}  // namespace orm
