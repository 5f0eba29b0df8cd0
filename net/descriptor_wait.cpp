#include "net/descriptor_wait.h"

#include <poll.h>
#include <sys/select.h>

namespace orm {

namespace {

int select_one(int fd, wait_for what, long timeout_ms) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  timeval tv{};
  timeval* limit = nullptr;
  if (timeout_ms >= 0) {
    tv.tv_sec = static_cast<time_t>(timeout_ms / 1000);
    tv.tv_usec = static_cast<suseconds_t>((timeout_ms % 1000) * 1000);
    limit = &tv;
  }
  fd_set* r = what == wait_for::read ? &set : nullptr;
  fd_set* w = what == wait_for::write ? &set : nullptr;
  fd_set* e = what == wait_for::error ? &set : nullptr;
  return ::select(fd + 1, r, w, e, limit);
}

int poll_one(int fd, wait_for what, long timeout_ms) {
  pollfd one{};
  one.fd = fd;
  one.events = what == wait_for::read ? POLLIN : what == wait_for::write ? POLLOUT : POLLPRI;
  const int limit = timeout_ms < 0 ? -1 : static_cast<int>(timeout_ms);
  return ::poll(&one, 1, limit);
}

}  // namespace

int wait_one(int fd, wait_for what, long timeout_ms) {
  if (fd < 0) return -1;
  return fd < FD_SETSIZE ? select_one(fd, what, timeout_ms) : poll_one(fd, what, timeout_ms);
}

}  // namespace orm
