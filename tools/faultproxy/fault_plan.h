// What the fault proxy does to each reply it relays: scripted by reply number, pushed for
// the next replies, or drawn at random from a seed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace faultproxy {

enum class kind : uint8_t {
  delay_short,  // the reply waits less than the driver's one-second wait
  delay_long,   // ... more than that
  split,        // the reply goes out in two pieces with a short pause
  drop,         // the connection is closed (FIN) instead of the reply
  reset,        // the connection is reset (RST) instead of the reply
  black_hole,   // the connection swallows every reply for a while
  stall,        // part of the reply, a long pause, the rest
  corrupt,      // one byte of the reply flipped
  duplicate,    // the reply is sent twice, the copy after a pause
  refuse,       // the connection is reset and new connections are refused for a while
};
constexpr std::size_t kind_count = 10;

const char* name_of(kind k);
// false when the name is none of the kinds above.
bool kind_of(const std::string& name, kind& out);
std::vector<kind> all_kinds();

struct fault {
  kind what = kind::delay_short;
  int ms = 0;          // delay, pause, or how long a black hole or a refusal lasts
  std::size_t at = 0;  // split, stall: bytes sent before the pause; corrupt: the byte
  uint8_t mask = 1;    // corrupt: the bits flipped
};

// Bytes of a reply that carry framing and status rather than values: a random corruption
// stays inside them, since nothing in Modbus TCP could tell a flipped value byte (on a
// real network TCP's checksum catches it).
constexpr std::size_t framing_bytes = 10;

// A fault of this kind with its parameters drawn from rng for a reply of size bytes.
fault draw(kind k, std::mt19937_64& rng, std::size_t size);

class fault_plan {
 public:
  // Reply numbers count every reply relayed since start, from 1, over all connections.
  void script(const std::map<uint64_t, fault>& by_reply);
  // The next replies get these faults, one each, before any script or draw.
  void push(const fault& f);
  // Each reply draws a fault with this probability, its kind uniformly from kinds.
  void randomise(uint64_t seed, double probability, std::vector<kind> kinds);
  void clear();
  // The fault for the next reply (of size bytes), if any; counts the reply.
  std::optional<fault> next(std::size_t size);

 private:
  std::mutex mu_;
  uint64_t replies_ = 0;
  std::map<uint64_t, fault> script_;
  std::deque<fault> pushed_;
  std::mt19937_64 rng_;
  double probability_ = 0;
  std::vector<kind> kinds_;
};

}  // namespace faultproxy
