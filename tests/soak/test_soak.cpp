// Many rounds of the host's whole device life (start, initialise, read, write, close)
// against the simulator: open descriptors and heap in use must not grow. The number of
// rounds is UNITYDRV_SOAK_ROUNDS (default 2000).
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/plant_device.h"
#include "tools/common/process_resources.h"

#if defined(__SANITIZE_ADDRESS__)
#define UNITYDRV_HEAP_MEASURABLE 0  // the sanitizer's allocator is not seen by mallinfo2
#else
#define UNITYDRV_HEAP_MEASURABLE 1
#endif

namespace {

using loaded_driver::request;

constexpr std::size_t warm_up_rounds = 50;
// Slack for allocator bookkeeping and for the simulator's connection threads that may
// still be closing their last socket; a leak of one descriptor or of one device per
// round exceeds both within the default number of rounds.
constexpr long fd_tolerance = 3;
constexpr long heap_tolerance_bytes = 256 * 1024;

std::size_t soak_rounds() {
  const char* text = std::getenv("UNITYDRV_SOAK_ROUNDS");
  const long n = text != nullptr ? std::strtol(text, nullptr, 10) : 0;
  return n > 0 ? static_cast<std::size_t>(n) : 2000;
}

using process_resources::heap_in_use;
using process_resources::open_descriptors;

class Soak : public plant::device_test {
 protected:
  // One device from start to close; false at the first step that did not work.
  bool device_life(uint16_t value) {
    loaded_driver::device device(*lib_);
    if (device.start(tag_path_, 0) != 0 || device.handle() == nullptr) return false;
    if (device.get_init() != 0 || device.check_init() != 1) return false;
    const request counter{tag("Counter"), UNITYDRV_TYPE_INT};
    device.write(counter, {value});
    const auto round = device.read({counter, {tag("Total"), UNITYDRV_TYPE_DINT}});
    return round.results[0].result_status == 0 && round.units(0, 1) == std::vector<uint16_t>{value};
  }
};

TEST_F(Soak, DeviceLivesLeaveNoDescriptorsOrHeapBehind) {
  const std::size_t rounds = soak_rounds();
  for (std::size_t i = 0; i < warm_up_rounds; ++i) {
    ASSERT_TRUE(device_life(static_cast<uint16_t>(i))) << "warm-up round " << i;
  }
  const long fds_before = open_descriptors();
  const long heap_before = heap_in_use();
  for (std::size_t i = 0; i < rounds; ++i) {
    ASSERT_TRUE(device_life(static_cast<uint16_t>(i))) << "round " << i;
  }
  EXPECT_LE(open_descriptors() - fds_before, fd_tolerance);
  if (UNITYDRV_HEAP_MEASURABLE) {
    EXPECT_LE(heap_in_use() - heap_before, heap_tolerance_bytes);
  }
}

}  // namespace
