#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "driver/device_context.h"
#include "driver/init_handshake.h"
#include "driver/tag_driver_offline_578.h"
#include "tools/common/tag_file_writer.h"

namespace {

unitydrv_init_params params(uint16_t at12, uint16_t at10, uint16_t at8) {
  unitydrv_init_params p{};
  p.octet1 = static_cast<uint8_t>(at12);
  p.octet2 = static_cast<uint8_t>(at12 >> 8);
  p.octet3 = at10;
  p.octet4 = at8;
  return p;
}

TEST(InitParams, DottedTextFromTheHostRecord) {
  EXPECT_EQ(init_handshake::address_from_params(params(10, 0, 5)), "10.0.0.5");
  EXPECT_EQ(init_handshake::address_from_params(params(0x01C0 | 0xA800, 1, 2)), "192.169.1.2");
  // The third and fourth numbers are 16-bit: written as they are, without clipping.
  EXPECT_EQ(init_handshake::address_from_params(params(0x007F, 300, 65535)), "127.0.300.65535");
}

TEST(Lifecycle, MissingFileGivesAHandleAndAnEmptyTable) {
  tag_driver_offline_578 driver;
  void* handle = nullptr;
  EXPECT_EQ(driver.start_device(0, &handle, "/nonexistent/dir/tags.bin", 0), 0);
  ASSERT_NE(handle, nullptr);
  auto* device = static_cast<device_context*>(handle);
  EXPECT_EQ(device->tag_table.tag_count, 0u);
  EXPECT_EQ(device->tag_table.entries, nullptr);
  EXPECT_EQ(device->session.state, unity_process::state_not_connected);
  driver.close_device(0, handle);
}

}  // namespace
