// What a chaos run counts and what makes it fail: the figures of its report.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace chaos {

struct tally {
  uint64_t seed = 0;
  bool guarded = false;
  uint64_t steps = 0, reads = 0, writes = 0, inits = 0, lives = 0;
  uint64_t values_checked = 0, positions_failed = 0, rounds_failed = 0;
  std::map<std::string, uint64_t> wrong_by_point;  // default mode: the header point
  uint64_t unexplained = 0;                        // wrong values nothing explains
  std::map<std::string, uint64_t> exceptions;      // "entry point: what"
  double longest_call_ms = 0;
  std::string longest_call;
  double longest_exchange_ms = 0;  // a call's time over its exchanges
  uint64_t slow_calls = 0;         // past 1.1 s per exchange + 0.1 s per connect
  double worst_overrun_ms = 0;     // by how much the slowest of them passed it
  double timing_slack_ms = 0;      // a call past the bound by more fails the run
  uint64_t hangs = 0;              // calls ended by the watchdog
  uint64_t writes_landed = 0, writes_lost_quiet = 0;
  std::vector<int> recover_steps;  // per device and quiet phase
  int recover_bound = 0;
  uint64_t not_recovered = 0;
  uint64_t failure_count = 0;
  std::vector<std::string> failures;  // the first ones (each printed with the last events)
  long fds_before = 0, fds_after = 0, heap_before = 0, heap_after = 0;
  std::map<std::string, uint64_t> events;  // controller events and faults by kind

  void fail(const std::string& what, const std::deque<std::string>& last_events);
};

}  // namespace chaos
