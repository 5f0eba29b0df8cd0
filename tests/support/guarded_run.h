// Whether this run loads the driver in guarded mode: ctest runs the end-to-end, fault and
// host-tool suites twice, the second time with UNITYDRV_GUARD=1, which the library reads
// when it is loaded and the test reads here.
#pragma once

#include <cstdlib>
#include <cstring>

namespace guarded_run {

inline bool on() {
  const char* value = std::getenv("UNITYDRV_GUARD");
  return value != nullptr && std::strcmp(value, "1") == 0;
}

}  // namespace guarded_run
