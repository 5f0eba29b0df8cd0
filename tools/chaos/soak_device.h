// One device of the chaos soak, driven through its whole host life with the host's
// records: start, initialise, read and write rounds, reconnects, close. In the default
// mode it applies the header's recipes; guarded, it only calls GetInitCmdEx2 and
// CheckInitCmdResponseEx2 again when rounds fail. Every value delivered with status 0 is
// checked against what the controller held while the request was in flight.
#pragma once

#include <atomic>
#include <deque>
#include <random>
#include <set>
#include <string>

#include "tools/chaos/chaos_controller.h"
#include "tools/chaos/soak_tally.h"
#include "tools/common/host_device.h"

namespace chaos {

// The call in progress, for the watchdog thread.
struct call_watch {
  std::atomic<int64_t> started_ns{0};  // 0: no call
  std::atomic<void*> handle{nullptr};
  std::atomic<bool> ended_by_watchdog{false};
};

class soak_device {
 public:
  soak_device(int id, controller& ctl, loaded_driver::driver_api& api, std::string tag_path, tally& t,
              call_watch& watch, uint64_t seed);
  ~soak_device();

  // One host step: a start, an initialisation attempt, a read or a write round.
  void step(bool quiet);
  // The last read round delivered every tag of the running program, right.
  bool recovered() const { return last_round_right_; }
  uint64_t right_rounds() const { return right_rounds_; }
  // The faults stopped: what the device served before proves nothing any more.
  void faults_stopped() { last_round_right_ = false; }
  void fault_seen(const std::string& kind);
  // A connection of this device reached a controller: its own, or a failure.
  void connected_to(const controller* c);
  void note(const std::string& event);
  int id() const { return id_; }
  const std::deque<std::string>& last_events() const { return last_; }

 private:
  enum class state { stopped, starting, ready };
  void start();
  void initialise();
  std::vector<loaded_driver::request> round_requests();
  void read_round();
  void write_round(bool quiet);
  void failed(const std::string& why);
  void close();
  template <typename F>
  void timed(const char* entry, bool connects, F call);
  bool check_position(std::size_t tag, const _input_data_& r, uint16_t index, uint16_t count,
                      uint8_t bit, clock::time_point from, clock::time_point to);
  std::string attribute(std::size_t tag, const std::vector<int>& programs) const;

  int id_;
  controller& ctl_;
  loaded_driver::driver_api& api_;
  std::string tag_path_;
  tally& t_;
  call_watch& watch_;
  std::mt19937_64 rng_;
  void* handle_ = nullptr;
  state state_ = state::stopped;
  bool ever_initialised_ = false;
  int dictionary_program_ = 0;    // program running at the last successful handshake
  std::set<std::string> taint_;   // faults met on the current connection
  std::deque<std::string> last_;  // last events, for a failure's report
  bool last_round_right_ = false;
  uint32_t write_seq_ = 0;
  uint64_t right_rounds_ = 0;
};

}  // namespace chaos
