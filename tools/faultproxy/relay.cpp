#include "tools/faultproxy/relay.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace faultproxy {

namespace {

constexpr int idle_poll_ms = 20;  // how soon a stop or a drop is noticed
constexpr std::size_t mbap_size = 7;

bool send_all(int fd, const uint8_t* data, std::size_t n) {
  while (n > 0) {
    const ssize_t sent = ::send(fd, data, n, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    data += sent;
    n -= static_cast<std::size_t>(sent);
  }
  return true;
}

void close_socket(int fd) {
  ::shutdown(fd, SHUT_RDWR);
  ::close(fd);
}

}  // namespace

void reset_socket(int fd) {
  linger hard{1, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
  ::close(fd);
}

relay::relay(int client, int upstream, relay_context context)
    : client_(client), upstream_(upstream), context_(std::move(context)) {}

relay::~relay() = default;

void relay::run() {
  bool reset = false;
  while (*context_.running && !closing_) {
    pollfd p[2] = {{client_, POLLIN, 0}, {upstream_open_ ? upstream_ : -1, POLLIN, 0}};
    if (::poll(p, 2, wait_ms()) < 0 && errno != EINTR) break;
    if ((p[0].revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !forward_requests()) break;
    if ((p[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) take_replies();
    if (!send_due(reset)) break;
  }
  if (reset) {
    reset_socket(client_);
  } else {
    close_socket(client_);
  }
  close_socket(upstream_);
  done_ = true;
}

bool relay::forward_requests() {
  uint8_t chunk[4096];
  const ssize_t got = ::recv(client_, chunk, sizeof chunk, 0);
  if (got <= 0) return false;
  context_.request_seen();
  // A black hole swallows the requests too: upstream never learns of them.
  if (clock::now() < black_hole_until_) return true;
  return !upstream_open_ || send_all(upstream_, chunk, static_cast<std::size_t>(got));
}

// Takes whole frames off the upstream bytes; when upstream closes, the client's connection
// closes after what is already scheduled.
void relay::take_replies() {
  uint8_t chunk[4096];
  const ssize_t got = ::recv(upstream_, chunk, sizeof chunk, 0);
  if (got <= 0) {
    upstream_open_ = false;
    later(0, {}, action::close);
    return;
  }
  from_upstream_.insert(from_upstream_.end(), chunk, chunk + got);
  while (from_upstream_.size() >= mbap_size) {
    const std::size_t length = static_cast<std::size_t>(from_upstream_[4]) << 8 | from_upstream_[5];
    const std::size_t size = length < 2 ? from_upstream_.size() : 6 + length;
    if (from_upstream_.size() < size) break;
    schedule(
        bytes(from_upstream_.begin(), from_upstream_.begin() + static_cast<std::ptrdiff_t>(size)));
    from_upstream_.erase(from_upstream_.begin(),
                         from_upstream_.begin() + static_cast<std::ptrdiff_t>(size));
  }
}

void relay::schedule(const bytes& frame) {
  if (clock::now() < black_hole_until_) return;
  const std::optional<fault> f = context_.next_fault(frame);
  if (!f) {
    later(0, frame);
    return;
  }
  context_.applied(*f);
  schedule_fault(*f, frame);
}

void relay::schedule_fault(const fault& f, bytes frame) {
  const std::size_t at = std::min(f.at, frame.size());
  switch (f.what) {
    case kind::delay_short:
    case kind::delay_long:
      later(f.ms, std::move(frame));
      break;
    case kind::split:
    case kind::stall:
      later(0, bytes(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(at)));
      later(f.ms, bytes(frame.begin() + static_cast<std::ptrdiff_t>(at), frame.end()));
      break;
    case kind::drop:
      later(0, {}, action::close);
      break;
    case kind::reset:
      later(0, {}, action::reset);
      break;
    case kind::black_hole:
      black_hole_until_ = clock::now() + std::chrono::milliseconds(f.ms);
      break;
    case kind::corrupt:
      if (at < frame.size()) frame[at] ^= f.mask;
      later(0, std::move(frame));
      break;
    case kind::duplicate:  // the copy after a pause, as a retransmitting gateway sends it
      later(0, frame);
      later(f.ms, std::move(frame));
      break;
    case kind::refuse:
      context_.refuse_for(f.ms);
      later(0, {}, action::reset);
      break;
  }
}

// Due ms after the later of now and the last scheduled piece, so that order is kept.
void relay::later(int ms, bytes data, action act) {
  last_due_ = std::max(last_due_, clock::now()) + std::chrono::milliseconds(ms);
  queue_.push_back({last_due_, std::move(data), act});
}

bool relay::send_due(bool& reset) {
  const clock::time_point now = clock::now();
  while (!queue_.empty() && queue_.front().due <= now) {
    pending p = std::move(queue_.front());
    queue_.pop_front();
    if (p.act != action::send) {
      reset = p.act == action::reset;
      return false;
    }
    if (!p.data.empty() && !send_all(client_, p.data.data(), p.data.size())) return false;
  }
  return true;
}

int relay::wait_ms() const {
  if (queue_.empty()) return idle_poll_ms;
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(queue_.front().due - clock::now())
          .count();
  return static_cast<int>(std::clamp<long long>(left, 0, idle_poll_ms));
}

}  // namespace faultproxy
