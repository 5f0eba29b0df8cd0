#include "net/udp_socket.h"

#include <arpa/inet.h>
#include <sys/socket.h>

namespace orm {

int UdpSocket::createSocket() {
  return ::socket(AF_INET, SOCK_DGRAM, 0);
}

long UdpSocket::sendTo(unsigned long ip, unsigned short port, const char* buf, unsigned int len,
                       int flags) {
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(port);
  to.sin_addr.s_addr = static_cast<in_addr_t>(ip);
  return ::sendto(fd_, buf, len, flags, reinterpret_cast<sockaddr*>(&to), sizeof to);
}

long UdpSocket::sendTo(const char* ip, unsigned short port, const char* buf, unsigned int len,
                       int flags) {
  return sendTo(static_cast<unsigned long>(inet_addr(ip)), port, buf, len, flags);
}

long UdpSocket::recvFrom(char* buf, unsigned int len, int flags, SocketAddress* from) {
  sockaddr_in sender{};
  socklen_t sender_len = sizeof sender;
  long n = ::recvfrom(fd_, buf, len, flags, reinterpret_cast<sockaddr*>(&sender), &sender_len);
  if (from != nullptr && n >= 0) {
    *from = SocketAddress(sender);
  }
  return n;
}

}  // namespace orm
