#include "tools/chaos/soak_tally.h"

#include <iostream>

namespace chaos {

namespace {
constexpr std::size_t failures_printed = 10;
}

// The first failures are printed as they happen, with what it takes to replay them.
void tally::fail(const std::string& what, const std::deque<std::string>& last_events) {
  std::string text = "FAILURE (seed " + std::to_string(seed) + ", " +
                     (guarded ? "guarded" : "default") + " mode): " + what + "\n  last events:";
  for (const std::string& e : last_events) text += "\n    " + e;
  ++failure_count;
  if (failures.size() < failures_printed) {
    std::cerr << text << std::endl;
    failures.push_back(what);
  }
}

}  // namespace chaos
