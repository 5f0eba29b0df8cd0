#include "tools/plcsim/value_history.h"

#include <algorithm>
#include <stdexcept>

namespace plcsim {

value_history::value_history(std::chrono::milliseconds keep) : keep_(keep) {}

std::size_t value_history::watch(uint16_t block, uint32_t offset, std::size_t size) {
  if (size == 0 || size > sizeof(entry::value))
    throw std::invalid_argument("value_history: a region holds 1 to 8 bytes");
  std::lock_guard<std::mutex> lock(mu_);
  regions_.push_back({block, offset, size, {}, 0});
  return regions_.size() - 1;
}

void value_history::attach(server& s) {
  s.observe_memory([this](uint16_t block, uint32_t offset, std::size_t n, const auto& read) {
    update(block, offset, n, read);
  });
}

void value_history::update(uint16_t block, uint32_t offset, std::size_t n,
                           const std::function<bytes(uint16_t, uint32_t, std::size_t)>& read) {
  const clock::time_point now = clock::now();
  std::lock_guard<std::mutex> lock(mu_);
  for (region& r : regions_) {
    const bool touched =
        n == 0 || (r.block == block && offset < r.offset + r.size && r.offset < offset + n);
    if (touched) record(r, read(r.block, r.offset, r.size), now);
  }
  prune(now);
}

// Every region now and then, written or not, so that memory follows the keep time.
void value_history::prune(clock::time_point now) {
  if (now - pruned_ < std::chrono::milliseconds(100)) return;
  pruned_ = now;
  for (region& r : regions_) {
    while (r.entries.size() > 1 && r.entries[1].at < now - keep_) r.entries.pop_front();
  }
}

void value_history::record(region& r, const bytes& value, clock::time_point now) {
  entry e{now, {}};
  std::copy(value.begin(), value.end(), e.value.begin());
  if (!r.entries.empty() && r.entries.back().value == e.value) return;
  r.entries.push_back(e);
  ++r.changes;
}

std::vector<value_history::bytes> value_history::held_between(std::size_t index,
                                                              clock::time_point from,
                                                              clock::time_point to) const {
  std::lock_guard<std::mutex> lock(mu_);
  const region& r = regions_.at(index);
  std::vector<bytes> out;
  for (std::size_t i = 0; i < r.entries.size(); ++i) {
    const bool started = r.entries[i].at <= to;
    const bool still = i + 1 == r.entries.size() || r.entries[i + 1].at >= from;
    if (started && still)
      out.emplace_back(r.entries[i].value.begin(), r.entries[i].value.begin() + r.size);
  }
  return out;
}

uint64_t value_history::changes(std::size_t index) const {
  std::lock_guard<std::mutex> lock(mu_);
  return regions_.at(index).changes;
}

}  // namespace plcsim
