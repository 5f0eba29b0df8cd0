// The controller's memory: byte-addressed blocks that grow on demand. Bytes
// never written read as zero. Thread-safe: connections share one memory.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

namespace plcsim {

class sim_memory {
 public:
  // Reads memory while an observer holds the lock.
  using reader =
      std::function<std::vector<uint8_t>(uint16_t block, uint32_t offset, std::size_t n)>;
  // Called under the lock after each write of n bytes at block:offset (n 0: anything may
  // have changed), so that what it reads is what every later read sees.
  using observer =
      std::function<void(uint16_t block, uint32_t offset, std::size_t n, const reader& read)>;

  void set_observer(observer o);
  void notify_all_changed();

  std::vector<uint8_t> read(uint16_t block, uint32_t offset, std::size_t n) const;
  void write(uint16_t block, uint32_t offset, const std::vector<uint8_t>& bytes);
  void write(uint16_t block, uint32_t offset, const uint8_t* bytes, std::size_t n);

 private:
  std::vector<uint8_t> read_locked(uint16_t block, uint32_t offset, std::size_t n) const;

  mutable std::mutex mu_;
  observer observer_;
  std::map<uint16_t, std::vector<uint8_t>> blocks_;
};

}  // namespace plcsim
