// A TCP client socket with a connect time-out.
#pragma once

#include <string>

#include "net/orm_socket.h"

namespace orm {

class ClientSocket : public TcpSocket {
 public:
  ClientSocket();
  explicit ClientSocket(int accepted_descriptor);
  ~ClientSocket() override;

  // timeout_ms < 0 waits without limit. On failure the descriptor stays open.
  bool connectToServer(unsigned int ip, unsigned short port, int timeout_ms);
  bool connectToServer(const char* ip, unsigned short port, int timeout_ms);
  bool isConnected() const;

  std::string address;  // the peer's address text
};

}  // namespace orm
