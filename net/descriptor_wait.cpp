#include "net/descriptor_wait.h"

#include <poll.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace orm {

namespace {

int select_one(int fd, long timeout_ms) {
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
  return ::select(fd + 1, nullptr, nullptr, &set, limit);
}

int poll_one(int fd, wait_for what, long timeout_ms) {
  pollfd one{};
  one.fd = fd;
  one.events = what == wait_for::read ? POLLIN : what == wait_for::write ? POLLOUT : POLLPRI;
  const int limit = timeout_ms < 0 ? -1 : static_cast<int>(std::min<long>(timeout_ms, INT_MAX));
  const int ready = ::poll(&one, 1, limit);
  // select fails on a descriptor that is not open; poll reports it as an event.
  if (ready == 1 && (one.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return -1;
  }
  return ready;
}

}  // namespace

int wait_one(int fd, wait_for what, long timeout_ms) {
  if (fd < 0) return -1;
  if (what == wait_for::error && fd < FD_SETSIZE) return select_one(fd, timeout_ms);
  return poll_one(fd, what, timeout_ms);
}

}  // namespace orm
