#include <gtest/gtest.h>

#include "driver/init_handshake.h"

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

}  // namespace
