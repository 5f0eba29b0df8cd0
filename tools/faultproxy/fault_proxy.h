// A TCP relay between a Modbus TCP client (the driver) and a server (the simulator) that
// injects faults into the replies: started in-process by tests on a loopback address, or
// by the faultproxy command-line tool. Requests pass unchanged; replies are cut into
// Modbus TCP frames and each frame meets the fault plan.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/faultproxy/fault_plan.h"

namespace faultproxy {

class proxy {
 public:
  // Each fault applied, and each connection accepted or refused, as one line of text.
  using event_sink = std::function<void(const std::string& event)>;

  proxy(std::string upstream_address, uint16_t upstream_port);
  ~proxy();  // stops
  proxy(const proxy&) = delete;
  proxy& operator=(const proxy&) = delete;

  bool start(const std::string& address, uint16_t port);  // bind + relay on background threads
  bool start_on_free_loopback(uint16_t port = 502);       // first free 127.0.0.x, random start
  void stop();                                            // closes everything and joins
  std::string address() const;
  uint16_t port() const;

  fault_plan& plan();
  void on_event(event_sink sink);  // before start()
  // Each reply frame as upstream sent it, with the number of its connection (from 1).
  using reply_sink = std::function<void(uint64_t connection, const std::vector<uint8_t>& frame)>;
  void on_reply(reply_sink sink);  // before start()
  // Connections are refused (no listener) for ms from now.
  void refuse_for(int ms);
  // Every open connection is closed; new ones are still accepted.
  void drop_all();
  // No more faults: the plan is cleared, a refusal ends, open connections (and the black
  // holes, delays and stalls on them) are closed.
  void calm();

  uint64_t requests() const;      // pieces of request bytes received from clients
  uint64_t replies() const;       // reply frames received from upstream
  uint64_t connections() const;   // connections accepted
  uint64_t faults(kind k) const;  // faults of this kind applied

 private:
  struct impl;
  std::unique_ptr<impl> impl_;
};

}  // namespace faultproxy
