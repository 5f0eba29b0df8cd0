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
#include "wire/byte_cursor.h"

namespace {

// The Modbus TCP header up to its length, which counts the bytes that follow it.
struct mbap_start {
  unsigned id, protocol, length;
  static constexpr std::size_t size = 6;
};

mbap_start mbap_at(const receive_buffer& buffer) {
  wire::basic_be_reader<receive_buffer> in(buffer);
  return {in.u16(), in.u16(), in.u16()};  // a braced list is read left to right
}

long monotonic_ms() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
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
  while (held >= mbap_start::size) {
    const mbap_start mbap = mbap_at(reply_buffer_);
    const std::size_t total = mbap_start::size + mbap.length;
    // Not the start of a frame (a cut reply's rest): nothing held can be trusted.
    if (mbap.protocol != 0 || mbap.length < 2 || total > receive_buffer_size) {
      if (trace::on) trace::emit("stale-bytes", "bytes=%zu discarded: not a reply", held);
      held = 0;
      return 0;
    }
    if (held < total) return 0;
    if (mbap.id == id) return total;
    if (trace::on) {
      trace::emit("late-reply",
                  "request_id=%u reply_id=%u discarded (guarded): a reply to an "
                  "earlier request",
                  unsigned{id}, mbap.id);
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
