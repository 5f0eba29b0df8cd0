#include "net/orm_socket.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net/descriptor_wait.h"

namespace orm {

ormSocket::~ormSocket() {
  close();
}

bool ormSocket::create(bool recreate) {
  if (recreate) {
    close();
  } else if (fd_ != -1) {
    return true;
  }
  fd_ = createSocket();
  return fd_ != -1;
}

void ormSocket::close() {
  if (fd_ != -1) {
    ::close(fd_);
    fd_ = -1;
  }
}

bool ormSocket::bind(unsigned short port) {
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_ANY);
  addr.sin_port = htons(port);
  return ::bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
}

bool ormSocket::getSocketAddress(SocketAddress* address) {
  socklen_t len = sizeof(sockaddr_in);
  return ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address->get()), &len) == 0;
}

int ormSocket::setDebug(int on) {
  return ::setsockopt(fd_, SOL_SOCKET, SO_DEBUG, &on, sizeof on);
}

int ormSocket::setReuseAddr(int on) {
  return ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
}

int ormSocket::setKeepAlive(int on) {
  return ::setsockopt(fd_, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
}

int ormSocket::setLinger(bool on, unsigned short seconds) {
  linger l{};
  l.l_onoff = on ? 1 : 0;
  l.l_linger = seconds;
  return ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &l, sizeof l);
}

int ormSocket::setBlocking(bool blocking) {
  int non_blocking = blocking ? 0 : 1;
  return ::ioctl(fd_, FIONBIO, &non_blocking);
}

int ormSocket::selectRead(unsigned long ms) {
  return wait_one(fd_, wait_for::read, static_cast<long>(ms));
}

int ormSocket::selectWrite(unsigned long ms) {
  return wait_one(fd_, wait_for::write, static_cast<long>(ms));
}

int ormSocket::selectError(unsigned long ms) {
  return wait_one(fd_, wait_for::error, static_cast<long>(ms));
}

int ormSocket::detach() {
  int fd = fd_;
  fd_ = -1;
  return fd;
}

int TcpSocket::createSocket() {
  return ::socket(AF_INET, SOCK_STREAM, 0);
}

}  // namespace orm
