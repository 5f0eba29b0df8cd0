// The values that regions of a simulator's memory held over time: what a checker needs to
// tell whether a value delivered by a driver was one the controller really held while the
// request was in flight. Fed by the server's memory observer; old entries are dropped.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "tools/plcsim/plcsim.h"

namespace plcsim {

class value_history {
 public:
  using clock = std::chrono::steady_clock;
  using bytes = std::vector<uint8_t>;

  // Entries older than keep are dropped, the last one of each region excepted.
  explicit value_history(std::chrono::milliseconds keep = std::chrono::seconds(30));

  // Starts recording a region of at most 8 bytes (before the server is observed); its
  // number. Throws std::invalid_argument for a larger region.
  std::size_t watch(uint16_t block, uint32_t offset, std::size_t size);
  // Installs this history as the server's memory observer.
  void attach(server& s);

  // Every value the region held at some instant of [from, to], oldest first.
  std::vector<bytes> held_between(std::size_t region, clock::time_point from,
                                  clock::time_point to) const;
  // Number of values recorded for the region so far.
  uint64_t changes(std::size_t region) const;
  // Records what the regions hold now (memory's read under its lock); n 0: every region.
  void update(uint16_t block, uint32_t offset, std::size_t n,
              const std::function<bytes(uint16_t, uint32_t, std::size_t)>& read);

 private:
  // Values are kept inline: a history of counters stepped every few milliseconds must not
  // cost an allocation per step.
  struct entry {
    clock::time_point at;
    std::array<uint8_t, 8> value;
  };
  struct region {
    uint16_t block;
    uint32_t offset;
    std::size_t size;
    std::deque<entry> entries;
    uint64_t changes = 0;
  };
  void record(region& r, const bytes& value, clock::time_point now);
  void prune(clock::time_point now);

  std::chrono::milliseconds keep_;
  mutable std::mutex mu_;
  std::vector<region> regions_;
  clock::time_point pruned_{};
};

}  // namespace plcsim
