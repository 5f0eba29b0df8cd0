#include "tools/faultproxy/fault_plan.h"

#include <algorithm>

namespace faultproxy {

namespace {

const char* const names[kind_count] = {"delay_short", "delay_long", "split", "drop",
                                       "reset",       "black_hole", "stall", "corrupt",
                                       "duplicate",   "refuse"};

int uniform(std::mt19937_64& rng, int low, int high) {
  return std::uniform_int_distribution<int>(low, high)(rng);
}

// A byte position strictly inside a reply of size bytes (1 when there is none).
std::size_t inside(std::mt19937_64& rng, std::size_t size) {
  if (size < 2) return 1;
  return std::uniform_int_distribution<std::size_t>(1, size - 1)(rng);
}

}  // namespace

const char* name_of(kind k) {
  return names[static_cast<std::size_t>(k)];
}

bool kind_of(const std::string& name, kind& out) {
  for (std::size_t i = 0; i < kind_count; ++i) {
    if (name == names[i]) {
      out = static_cast<kind>(i);
      return true;
    }
  }
  return false;
}

std::vector<kind> all_kinds() {
  std::vector<kind> out;
  for (std::size_t i = 0; i < kind_count; ++i) out.push_back(static_cast<kind>(i));
  return out;
}

// Delays carry jitter by being drawn from a range each time; the long ones stay clear of
// the one-second wait on both sides so that the outcome does not depend on scheduling.
fault draw(kind k, std::mt19937_64& rng, std::size_t size) {
  fault f;
  f.what = k;
  switch (k) {
    case kind::delay_short:
      f.ms = uniform(rng, 20, 800);
      break;
    case kind::delay_long:
      f.ms = uniform(rng, 1200, 2500);
      break;
    case kind::split:
      f.at = inside(rng, size), f.ms = uniform(rng, 0, 30);
      break;
    case kind::stall:
      f.at = inside(rng, size), f.ms = uniform(rng, 1200, 3000);
      break;
    case kind::black_hole:
      f.ms = uniform(rng, 1500, 5000);
      break;
    case kind::refuse:
      f.ms = uniform(rng, 200, 3000);
      break;
    case kind::corrupt:
      f.at = static_cast<std::size_t>(
          uniform(rng, 0, static_cast<int>(std::min(size, framing_bytes)) - 1));
      f.mask = static_cast<uint8_t>(uniform(rng, 1, 255));
      break;
    default:
      break;
  }
  return f;
}

void fault_plan::script(const std::map<uint64_t, fault>& by_reply) {
  std::lock_guard<std::mutex> lock(mu_);
  script_ = by_reply;
}

void fault_plan::push(const fault& f) {
  std::lock_guard<std::mutex> lock(mu_);
  pushed_.push_back(f);
}

void fault_plan::randomise(uint64_t seed, double probability, std::vector<kind> kinds) {
  std::lock_guard<std::mutex> lock(mu_);
  rng_.seed(seed);
  probability_ = kinds.empty() ? 0 : probability;
  kinds_ = std::move(kinds);
}

void fault_plan::clear() {
  std::lock_guard<std::mutex> lock(mu_);
  script_.clear();
  pushed_.clear();
  probability_ = 0;
}

std::optional<fault> fault_plan::next(std::size_t size) {
  std::lock_guard<std::mutex> lock(mu_);
  ++replies_;
  if (!pushed_.empty()) {
    fault f = pushed_.front();
    pushed_.pop_front();
    return f;
  }
  auto scripted = script_.find(replies_);
  if (scripted != script_.end()) return scripted->second;
  if (probability_ <= 0 || std::uniform_real_distribution<double>(0, 1)(rng_) >= probability_)
    return std::nullopt;
  const kind k = kinds_[std::uniform_int_distribution<std::size_t>(0, kinds_.size() - 1)(rng_)];
  return draw(k, rng_, size);
}

}  // namespace faultproxy
