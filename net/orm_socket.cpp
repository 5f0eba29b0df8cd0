#include "net/orm_socket.h"

#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace orm {

namespace {

// One select() over this single descriptor; which set it lands in is the only difference
// between the three public waits.
enum class wait_for { read, write, error };

int select_one(int fd, wait_for what, unsigned long ms) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  timeval tv{};
  tv.tv_sec = static_cast<time_t>(ms / 1000);
  tv.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
  fd_set* r = what == wait_for::read ? &set : nullptr;
  fd_set* w = what == wait_for::write ? &set : nullptr;
  fd_set* e = what == wait_for::error ? &set : nullptr;
  return ::select(fd + 1, r, w, e, &tv);
}

}  // namespace

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
  return select_one(fd_, wait_for::read, ms);
}

int ormSocket::selectWrite(unsigned long ms) {
  return select_one(fd_, wait_for::write, ms);
}

int ormSocket::selectError(unsigned long ms) {
  return select_one(fd_, wait_for::error, ms);
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
