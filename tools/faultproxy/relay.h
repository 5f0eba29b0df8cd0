// One relayed connection: the client's socket, the upstream socket and the reply bytes
// scheduled for the client, sent when they fall due.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "tools/faultproxy/fault_plan.h"

namespace faultproxy {

using clock = std::chrono::steady_clock;
using bytes = std::vector<uint8_t>;

// What a relay needs from its proxy.
struct relay_context {
  std::function<std::optional<fault>(const std::vector<uint8_t>& frame)> next_fault;
  std::function<void(const fault&)> applied;  // counts and reports a fault
  std::function<void(int ms)> refuse_for;
  std::function<void()> request_seen;  // a chunk of request bytes from the client
  const std::atomic<bool>* running = nullptr;
};

class relay {
 public:
  relay(int client, int upstream, relay_context context);
  ~relay();
  // Relays until either side closes, a fault ends the connection, or the proxy stops.
  void run();
  void close_soon() { closing_ = true; }
  bool done() const { return done_; }

 private:
  enum class action { send, close, reset };
  struct pending {
    clock::time_point due;
    bytes data;
    action act = action::send;
  };

  bool forward_requests();
  void take_replies();
  void schedule(const bytes& frame);
  void schedule_fault(const fault& f, bytes frame);
  void later(int ms, bytes data, action act = action::send);
  bool send_due(bool& reset);
  int wait_ms() const;

  int client_;
  int upstream_;
  relay_context context_;
  bytes from_upstream_;
  std::deque<pending> queue_;
  clock::time_point last_due_ = clock::now();
  clock::time_point black_hole_until_{};
  bool upstream_open_ = true;
  std::atomic<bool> closing_{false};
  std::atomic<bool> done_{false};
};

// Closes a socket with an RST instead of a FIN.
void reset_socket(int fd);

}  // namespace faultproxy
