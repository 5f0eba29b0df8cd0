// A listening TCP socket that hands out accepted connections as client sockets.
#pragma once

#include <boost/shared_ptr.hpp>

#include "net/client_socket.h"
#include "net/orm_socket.h"

namespace orm {

class ServerSocket : public TcpSocket {
 public:
  // Binds INADDR_ANY:port and listens; on any failure the descriptor is closed.
  bool listenToClient(unsigned short port, int backlog, bool reuse);
  // The accepted connection, owning its descriptor; empty when accept fails.
  boost::shared_ptr<ClientSocket> acceptClient();
};

}  // namespace orm
