// Guarded mode's receive: a reply is taken only when it carries the request's transaction
// id, whole. A late reply to an earlier request is passed over, a reply that comes in
// pieces is gathered within the one-second wait, and what an earlier exchange left in the
// socket is discarded before the next request goes out.
#include <sys/socket.h>
#include <time.h>

#include <cerrno>
#include <cstring>

#include "guard/guard.h"
#include "net/descriptor_wait.h"
#include "trace/trace.h"
#include "unity/exchange_trace.h"
#include "unity/unity_process.h"

namespace {

constexpr std::size_t receive_buffer_size = 2048;
constexpr long reply_wait_ms = 1000;
constexpr std::size_t mbap_size = 6;  // id, protocol, length; the length counts what follows

long monotonic_ms() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

unsigned be16(const unsigned char* at) {
  return unsigned{at[0]} << 8 | at[1];
}

}  // namespace

void unity_process::receive_for_request() {
  if (guard::on) {
    receive_matching(transaction_counter);
  } else {
    receive_reply();
  }
}

std::vector<unsigned char> unity_process::matching_reply() {
  receive_matching(transaction_counter);
  return std::vector<unsigned char>(reply_buffer_.begin(), reply_buffer_.end());
}

void unity_process::drain_stale() {
  reply_buffer_.resize(receive_buffer_size);
  const int fd = socket.descriptor();
  for (;;) {
    const ssize_t n = ::recv(fd, reply_buffer_.data(), reply_buffer_.size(), MSG_DONTWAIT);
    if (n <= 0) return;
    if (trace::on) {
      trace::emit("stale-bytes",
                  "bytes=%zd discarded before the request (left by an earlier "
                  "exchange)",
                  n);
    }
  }
}

std::size_t unity_process::take_matching(uint16_t id, std::size_t& held) {
  unsigned char* const data = reply_buffer_.data();
  while (held >= mbap_size) {
    const std::size_t length = be16(data + 4);
    const std::size_t total = mbap_size + length;
    // Not the start of a frame (a cut reply's rest): nothing held can be trusted.
    if (be16(data + 2) != 0 || length < 2 || total > receive_buffer_size) {
      if (trace::on) trace::emit("stale-bytes", "bytes=%zu discarded: not a reply", held);
      held = 0;
      return 0;
    }
    if (held < total) return 0;
    if (be16(data) == id) return total;
    if (trace::on) {
      trace::emit("late-reply",
                  "request_id=%u reply_id=%u discarded (guarded): a reply to an "
                  "earlier request",
                  unsigned{id}, be16(data));
    }
    std::memmove(data, data + total, held - total);
    held -= total;
  }
  return 0;
}

void unity_process::receive_matching(uint16_t id) {
  reply_buffer_.resize(receive_buffer_size);
  const int fd = socket.descriptor();
  const long deadline = monotonic_ms() + reply_wait_ms;
  std::size_t held = 0;
  for (long left = reply_wait_ms; left > 0; left = deadline - monotonic_ms()) {
    const int ready = orm::wait_one(fd, orm::wait_for::read, left);
    ssize_t n = 0;
    if (ready > 0) n = ::recv(fd, reply_buffer_.data() + held, receive_buffer_size - held, 0);
    if (trace::on) exchange_trace::received(reply_buffer_.data() + held, ready, n, errno);
    if (n <= 0) break;
    held += static_cast<std::size_t>(n);
    const std::size_t taken = take_matching(id, held);
    if (taken != 0) {
      reply_buffer_.resize(taken);
      return;
    }
  }
  reply_buffer_.resize(0);
}
