// Values that change all the time: a thread steps chosen regions of a simulator's memory
// every few milliseconds, each as a counter of its own type, so that a stale value, or
// another variable's, differs from what the region holds.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "tools/plcsim/plcsim.h"

namespace plcsim {

struct stepped_value {
  enum class form : uint8_t { integer, real, boolean };
  uint16_t block = 0;
  uint32_t offset = 0;
  uint8_t width = 2;  // bytes: 1, 2, 4 or 8 (integer), 4 (real), 1 (boolean: 0 and 1)
  form as = form::integer;
  uint32_t step = 1;
};

class value_stepper {
 public:
  value_stepper(server& s, std::vector<stepped_value> values, int period_ms);
  ~value_stepper();  // stops
  value_stepper(const value_stepper&) = delete;
  value_stepper& operator=(const value_stepper&) = delete;
  // While paused no value changes (a restart or a download can happen meanwhile).
  void pause(bool paused) { paused_ = paused; }
  uint64_t steps() const { return steps_; }

 private:
  void run();

  server& server_;
  std::vector<stepped_value> values_;
  int period_ms_;
  std::atomic<bool> running_{true};
  std::atomic<bool> paused_{false};
  std::atomic<uint64_t> steps_{0};
  std::thread thread_;
};

// The value after one step, as the little-endian bytes of its region.
std::vector<uint8_t> stepped(const stepped_value& v, std::vector<uint8_t> bytes);

}  // namespace plcsim
