#include <algorithm>
#include <fstream>
#include <iomanip>
#include <numeric>

#include "tools/chaos/chaos_run.h"

namespace chaos {

namespace {

// Descriptors may differ by what is still closing; a leak per reconnect exceeds this
// within one quiet phase's reconnects. The heap holds a bounded value history.
constexpr long fd_tolerance = 3;
constexpr long heap_tolerance_bytes = 1024 * 1024;

void print_counts(std::ostream& out, const std::map<std::string, uint64_t>& counts) {
  bool first = true;
  for (const auto& [name, n] : counts) {
    out << (first ? "" : ", ") << name << " " << n;
    first = false;
  }
  if (first) out << "none";
  out << '\n';
}

std::string load_average() {
  std::ifstream in("/proc/loadavg");
  std::string one, five, fifteen;
  in >> one >> five >> fifteen;
  return one + " " + five + " " + fifteen;
}

}  // namespace

bool report(const tally& t, const run_options& o, std::ostream& out) {
  uint64_t wrong = t.unexplained;
  for (const auto& [point, n] : t.wrong_by_point) wrong += n;
  const int worst = t.recover_steps.empty()
                        ? -1
                        : *std::max_element(t.recover_steps.begin(), t.recover_steps.end());
  const bool fds_flat = t.fds_after - t.fds_before <= fd_tolerance;
  const bool heap_flat = t.heap_after - t.heap_before <= heap_tolerance_bytes;
  out << "chaos report: " << (t.guarded ? "guarded" : "default") << " mode, seed " << t.seed << ", "
      << o.minutes << " min (phases of " << o.fault_seconds << " s of faults, " << o.quiet_seconds
      << " s quiet), 4 devices on 2 controllers\n";
  out << "  host steps " << t.steps << ": reads " << t.reads << ", writes " << t.writes
      << ", handshakes " << t.inits << ", device lives " << t.lives << ", rounds failed "
      << t.rounds_failed << "\n  faults and events: ";
  print_counts(out, t.events);
  out << "  values checked " << t.values_checked << ", positions not served " << t.positions_failed
      << "\n  wrong values " << wrong << " (unexplained " << t.unexplained << ")";
  for (const auto& [point, n] : t.wrong_by_point) out << "\n    " << n << "  point " << point;
  out << "\n  exceptions out of entry points: ";
  print_counts(out, t.exceptions);
  out << std::fixed << std::setprecision(0) << "  longest call " << t.longest_call_ms << " ms ("
      << t.longest_call << "), longest per exchange " << t.longest_exchange_ms
      << " ms, past the bound " << t.slow_calls << " (worst by " << t.worst_overrun_ms
      << " ms; slack " << t.timing_slack_ms << " ms), ended by the watchdog " << t.hangs
      << "\n  rounds to recover after the faults stop: at most " << worst << " host steps over "
      << t.recover_steps.size() << " device recoveries (bound " << t.recover_bound
      << "), not recovered " << t.not_recovered << "\n  writes landed " << t.writes_landed
      << ", lost while no fault was on " << t.writes_lost_quiet << "\n  descriptors "
      << t.fds_before << " -> " << t.fds_after << (fds_flat ? " (flat)" : " (GROWN)") << ", heap "
      << t.heap_before << " -> " << t.heap_after << " bytes" << (heap_flat ? " (flat)" : " (GROWN)")
      << '\n';
  const bool pass = t.failure_count == 0 && fds_flat && heap_flat && (!t.guarded || wrong == 0);
  out << "  load average at the end: " << load_average() << '\n';
  out << "  result: " << (pass ? "PASS" : "FAIL") << " (" << t.failure_count << " failures)\n";
  return pass;
}

}  // namespace chaos
