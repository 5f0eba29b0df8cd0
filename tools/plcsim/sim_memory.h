// The controller's memory: byte-addressed blocks that grow on demand. Bytes
// never written read as zero. Thread-safe: connections share one memory.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace plcsim {

class sim_memory {
 public:
  std::vector<uint8_t> read(uint16_t block, uint32_t offset, std::size_t n) const;
  void write(uint16_t block, uint32_t offset, const std::vector<uint8_t>& bytes);
  void write(uint16_t block, uint32_t offset, const uint8_t* bytes, std::size_t n);

 private:
  mutable std::mutex mu_;
  std::map<uint16_t, std::vector<uint8_t>> blocks_;
};

}  // namespace plcsim
