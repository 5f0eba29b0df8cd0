#include "tools/plcsim/sim_memory.h"

namespace plcsim {

std::vector<uint8_t> sim_memory::read(uint16_t block, uint32_t offset, std::size_t n) const {
  std::lock_guard<std::mutex> lock(mu_);
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
}

void sim_memory::write(uint16_t block, uint32_t offset, const std::vector<uint8_t>& bytes) {
  write(block, offset, bytes.data(), bytes.size());
}

}  // namespace plcsim
