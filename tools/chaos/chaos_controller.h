// One simulated controller of the soak behind its fault proxy: stepped values, the value
// history of every tag element under either program, and the controller events (restart,
// program download) with the times they happened.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tools/chaos/chaos_plant.h"
#include "tools/faultproxy/fault_proxy.h"
#include "tools/plcsim/value_history.h"
#include "tools/plcsim/value_stepper.h"

namespace chaos {

using clock = std::chrono::steady_clock;
using bytes = std::vector<uint8_t>;

class controller {
 public:
  // Starts the simulator and its proxy on free loopback addresses (port 502).
  controller(const plcsim::project& original, uint32_t step_scale,
             faultproxy::proxy::event_sink proxy_events, faultproxy::proxy::reply_sink replies);
  ~controller();

  bool started() const { return started_; }
  std::string address() const { return proxy_->address(); }  // where devices connect
  faultproxy::proxy& proxy() { return *proxy_; }

  void restart();
  void download();  // switches to the other program
  // Index (0 original, 1 changed) of the programs running at some instant of [from, to].
  std::vector<int> programs_between(clock::time_point from, clock::time_point to) const;
  int program() const;
  const plcsim::project& program_text(int index) const { return programs_[index]; }
  // Every value element k of the tag held in [from, to] under program index, none when
  // the tag's variable is not in that program.
  std::vector<bytes> held(int program, std::size_t tag, std::size_t k, clock::time_point from,
                          clock::time_point to) const;
  uint64_t restarts() const { return restarts_; }
  uint64_t downloads() const { return downloads_; }

 private:
  void step_program(int index);

  plcsim::project programs_[2];
  uint32_t step_scale_;
  plcsim::value_history history_{std::chrono::seconds(4)};
  // (program, tag, element) -> history region
  std::map<std::tuple<int, std::size_t, std::size_t>, std::size_t> regions_;
  std::unique_ptr<plcsim::server> sim_;
  std::unique_ptr<faultproxy::proxy> proxy_;
  std::unique_ptr<plcsim::value_stepper> stepper_;
  mutable std::mutex mu_;
  std::vector<std::pair<clock::time_point, int>> timeline_;  // program switches
  bool started_ = false;
  uint64_t restarts_ = 0, downloads_ = 0;
};

}  // namespace chaos
