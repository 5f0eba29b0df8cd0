#include "tools/plcsim/value_stepper.h"

#include <chrono>
#include <cstring>

namespace plcsim {

namespace {

// REAL counters count whole numbers and wrap below 2^24, where every one is exact.
constexpr float real_wrap = 16777216.0f;

}  // namespace

std::vector<uint8_t> stepped(const stepped_value& v, std::vector<uint8_t> bytes) {
  if (v.as == stepped_value::form::boolean) {
    bytes[0] = bytes[0] == 0 ? 1 : 0;
  } else if (v.as == stepped_value::form::real) {
    float f = 0;
    std::memcpy(&f, bytes.data(), sizeof f);  // the host is little-endian, as the wire
    f = f + static_cast<float>(v.step);
    if (!(f < real_wrap)) f = 0;
    std::memcpy(bytes.data(), &f, sizeof f);
  } else {
    uint64_t n = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) n |= uint64_t{bytes[i]} << (8 * i);
    n += v.step;
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(n >> (8 * i));
  }
  return bytes;
}

value_stepper::value_stepper(server& s, std::vector<stepped_value> values, int period_ms)
    : server_(s), values_(std::move(values)), period_ms_(period_ms) {
  thread_ = std::thread([this] { run(); });
}

value_stepper::~value_stepper() {
  running_ = false;
  thread_.join();
}

void value_stepper::run() {
  auto next = std::chrono::steady_clock::now();
  while (running_) {
    next += std::chrono::milliseconds(period_ms_);
    std::this_thread::sleep_until(next);
    if (paused_) continue;
    for (const stepped_value& v : values_) {
      server_.write_memory(v.block, v.offset,
                           stepped(v, server_.read_memory(v.block, v.offset, v.width)));
    }
    ++steps_;
  }
}

}  // namespace plcsim
