#include "tools/plcsim/sim_memory.h"

namespace plcsim {

std::vector<uint8_t> sim_memory::read(uint16_t block, uint32_t offset, std::size_t n) const {
  std::lock_guard<std::mutex> lock(mu_);
  return read_locked(block, offset, n);
}

std::vector<uint8_t> sim_memory::read_locked(uint16_t block, uint32_t offset, std::size_t n) const {
  std::vector<uint8_t> out(n, 0);
  auto it = blocks_.find(block);
  if (it == blocks_.end()) return out;
  const auto& b = it->second;
  for (std::size_t i = 0; i < n && offset + i < b.size(); ++i) out[i] = b[offset + i];
  return out;
}

void sim_memory::write(uint16_t block, uint32_t offset, const uint8_t* bytes, std::size_t n) {
  std::lock_guard<std::mutex> lock(mu_);
  auto& b = blocks_[block];
  if (b.size() < offset + n) b.resize(offset + n, 0);
  for (std::size_t i = 0; i < n; ++i) b[offset + i] = bytes[i];
  if (observer_)
    observer_(block, offset, n,
              [this](uint16_t bl, uint32_t at, std::size_t k) { return read_locked(bl, at, k); });
}

void sim_memory::set_observer(observer o) {
  std::lock_guard<std::mutex> lock(mu_);
  observer_ = std::move(o);
}

void sim_memory::notify_all_changed() {
  std::lock_guard<std::mutex> lock(mu_);
  if (observer_)
    observer_(0, 0, 0,
              [this](uint16_t bl, uint32_t at, std::size_t k) { return read_locked(bl, at, k); });
}

void sim_memory::write(uint16_t block, uint32_t offset, const std::vector<uint8_t>& bytes) {
  write(block, offset, bytes.data(), bytes.size());
}

}  // namespace plcsim
