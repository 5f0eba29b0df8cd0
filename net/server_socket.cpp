#include "net/server_socket.h"

#include <sys/socket.h>

namespace orm {

bool ServerSocket::listenToClient(unsigned short port, int backlog, bool reuse) {
  if (!create(false)) {
    return false;
  }
  if ((reuse && setReuseAddr(1) != 0) || !bind(port) || ::listen(fd_, backlog) != 0) {
    close();
    return false;
  }
  return true;
}

boost::shared_ptr<ClientSocket> ServerSocket::acceptClient() {
  int fd = ::accept(fd_, nullptr, nullptr);
  if (fd == -1) {
    return boost::shared_ptr<ClientSocket>();
  }
  return boost::shared_ptr<ClientSocket>(new ClientSocket(fd));
}

}  // namespace orm
