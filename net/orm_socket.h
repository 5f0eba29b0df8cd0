// A socket descriptor owner with thin wrappers over socket options; nothing throws.
#pragma once

#include "net/socket_address.h"

namespace orm {

class ormSocket {
 public:
  ormSocket() = default;
  virtual ~ormSocket();
  ormSocket(const ormSocket&) = delete;
  ormSocket& operator=(const ormSocket&) = delete;

  virtual int createSocket() = 0;

  bool create(bool recreate);
  void close();
  bool bind(unsigned short port);
  bool getSocketAddress(SocketAddress* address);
  int setDebug(int on);
  int setReuseAddr(int on);
  int setKeepAlive(int on);
  int setLinger(bool on, unsigned short seconds);
  int setBlocking(bool blocking);
  int selectRead(unsigned long ms);
  int selectWrite(unsigned long ms);
  int selectError(unsigned long ms);
  int detach();

  int descriptor() const { return fd_; }

 protected:
  int fd_ = -1;
};

class TcpSocket : public ormSocket {
 public:
  int createSocket() override;
};

}  // namespace orm
