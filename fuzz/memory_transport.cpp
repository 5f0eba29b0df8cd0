#include "memory_transport.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

extern "C" {
ssize_t __real_send(int fd, const void* buf, size_t n, int flags);
ssize_t __real_recv(int fd, void* buf, size_t n, int flags);
int __real_poll(pollfd* fds, nfds_t n, int timeout);
}

namespace memory_transport {

namespace {

peer the_peer;

std::size_t left(const peer& p) {
  return p.readable.size() - p.read_at;
}

// The peer has closed its end: nothing more will come once what is readable is read.
bool ended(const peer& p) {
  return p.per_request ? p.next >= p.replies.size() : p.ends_after_readable;
}

}  // namespace

peer& current() {
  return the_peer;
}

void attach_replies(int fd, std::vector<bytes> replies) {
  the_peer = peer{};
  the_peer.fd = fd;
  the_peer.replies = std::move(replies);
}

void attach_waiting(int fd, const bytes& reply) {
  the_peer = peer{};
  the_peer.fd = fd;
  the_peer.per_request = false;
  the_peer.readable = reply;
  the_peer.ends_after_readable = reply.empty();
}

void detach() {
  the_peer.fd = -1;
}

}  // namespace memory_transport

using memory_transport::the_peer;

extern "C" ssize_t __wrap_send(int fd, const void* buf, size_t n, int flags) {
  if (fd < 0 || fd != the_peer.fd) return __real_send(fd, buf, n, flags);
  if (!the_peer.per_request) return static_cast<ssize_t>(n);
  if (the_peer.next >= the_peer.replies.size()) {
    errno = EPIPE;
    return -1;
  }
  const auto& reply = the_peer.replies[the_peer.next++];
  the_peer.readable.insert(the_peer.readable.end(), reply.begin(), reply.end());
  return static_cast<ssize_t>(n);
}

extern "C" ssize_t __wrap_recv(int fd, void* buf, size_t n, int flags) {
  if (fd < 0 || fd != the_peer.fd) return __real_recv(fd, buf, n, flags);
  const std::size_t k = std::min(n, memory_transport::left(the_peer));
  if (k == 0) return 0;  // reached only at the end: poll reports nothing else as readable
  std::memcpy(buf, the_peer.readable.data() + the_peer.read_at, k);
  the_peer.read_at += k;
  return static_cast<ssize_t>(k);
}

// Readable when bytes wait or the peer has ended; otherwise the wait times out at once.
extern "C" int __wrap_poll(pollfd* fds, nfds_t n, int timeout) {
  if (n != 1 || fds[0].fd < 0 || fds[0].fd != the_peer.fd) return __real_poll(fds, n, timeout);
  const bool in = memory_transport::left(the_peer) > 0 || memory_transport::ended(the_peer);
  fds[0].revents = static_cast<short>((fds[0].events & POLLIN) != 0 && in ? POLLIN : 0);
  if ((fds[0].events & POLLOUT) != 0) fds[0].revents |= POLLOUT;
  return fds[0].revents != 0 ? 1 : 0;
}
