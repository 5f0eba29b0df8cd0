// An in-memory peer for the session's socket, so that a fuzz input costs no socket pair,
// no thread and no wait. The targets that use it link with --wrap for send, recv and poll:
// calls on the peer's descriptor land here, every other call goes to the C library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace memory_transport {

using bytes = std::vector<unsigned char>;

struct peer {
  int fd = -1;  // the descriptor whose calls are answered here; -1: none
  // Per-request mode: each request sent is answered with the next reply; once they are
  // used up the peer has closed (sends fail, receives see the end).
  bool per_request = true;
  std::vector<bytes> replies;
  std::size_t next = 0;
  // Bytes the session can receive now.
  bytes readable;
  std::size_t read_at = 0;
  // Otherwise (a reply waiting from the start): the end is seen once it is read, when set.
  bool ends_after_readable = false;
};

// The peer the wrapped calls answer; attach() replaces it.
peer& current();
// Answers fd per request with replies.
void attach_replies(int fd, std::vector<bytes> replies);
// Has reply waiting on fd from the start; an empty reply is the peer's end at once.
void attach_waiting(int fd, const bytes& reply);
void detach();

}  // namespace memory_transport
