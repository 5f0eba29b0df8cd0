// A whole chaos run: two controllers behind their fault proxies, four devices, phases of
// faults each followed by a quiet phase in which every device must recover; then the
// report.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "tools/chaos/soak_tally.h"

namespace chaos {

struct run_options {
  double minutes = 2;
  uint64_t seed = 1;
  std::string library;
  std::string source_dir;
  int fault_seconds = 20;
  int quiet_seconds = 8;
  double reply_fault_probability = 0.03;
  int recover_bound = 10;
  // How far past its bound a call may return before the run fails: the scheduling delay of
  // a loaded machine (the report gives every call past the bound, and the load).
  double timing_slack_ms = 250;  // host steps per device after the faults stop
  std::string corpus_dir;        // when set, fuzz seeds from the traffic are written there
};

tally run(const run_options& options);
// The report; true when the run passed.
bool report(const tally& t, const run_options& options, std::ostream& out);

}  // namespace chaos
