#include "net/client_socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>

#include "net/descriptor_wait.h"

namespace orm {

namespace {

// Waits for the pending non-blocking connect to finish; a negative time-out waits forever.
bool wait_connected(int fd, int timeout_ms) {
  const int ready = wait_one(fd, wait_for::write, timeout_ms);
  if (ready < 1) {
    if (ready == 0) errno = ETIMEDOUT;  // the reason a blocking connect would give
    return false;
  }
  int pending = 0;
  socklen_t len = sizeof pending;
  if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &len) != 0) {
    return false;
  }
  // A failed connect leaves its reason in errno, as a blocking connect would.
  if (pending != 0) errno = pending;
  return pending == 0;
}

}  // namespace

ClientSocket::ClientSocket() : address("127.0.0.1") {}

ClientSocket::ClientSocket(int accepted_descriptor) : address("127.0.0.1") {
  fd_ = accepted_descriptor;
}

ClientSocket::~ClientSocket() {
  close();
}

bool ClientSocket::connectToServer(unsigned int ip, unsigned short port, int timeout_ms) {
  if (fd_ == -1 && !create(false)) {
    return false;
  }
  setBlocking(false);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = ip;
  if (::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 || errno == EISCONN) {
    setBlocking(true);
    return true;
  }
  if (errno != EINPROGRESS && errno != EALREADY && errno != EINTR) {
    return false;
  }
  // On failure the descriptor stays open and non-blocking: the session closes it.
  if (!wait_connected(fd_, timeout_ms)) {
    return false;
  }
  setBlocking(true);
  return true;
}

bool ClientSocket::connectToServer(const char* ip, unsigned short port, int timeout_ms) {
  if (ip == nullptr) {
    return false;
  }
  return connectToServer(static_cast<unsigned int>(inet_addr(ip)), port, timeout_ms);
}

bool ClientSocket::isConnected() const {
  if (fd_ == -1) {
    return false;
  }
  sockaddr_in peer{};
  socklen_t len = sizeof peer;
  return ::getpeername(fd_, reinterpret_cast<sockaddr*>(&peer), &len) == 0;
}

}  // namespace orm
