#include <gtest/gtest.h>

#include "plcsim/sim_client.h"

using simtest::bytes;
using simtest::hex;

namespace {

using identification = simtest::served_plant;

TEST_F(identification, TypeTextSitsAtByte24And25) {
  bytes r = c->exchange(hex("00 02"));
  ASSERT_EQ(r.size(), 25u + 12u + 9u);
  EXPECT_EQ(r[0], 0x00);
  EXPECT_EQ(r[1], 0xFE);
  EXPECT_EQ(r[24], 12);
  EXPECT_EQ(std::string(r.begin() + 25, r.begin() + 37), "BMX P34 2020");
}

TEST_F(identification, MemoryBlock0x30CarriesDictionaryHandleAtBytes10To17) {
  bytes r = c->exchange(hex("00 20 01 30 00 00 00 00 00 20 00"));
  ASSERT_EQ(r.size(), 5u + 0x20u);
  EXPECT_EQ(bytes(r.begin(), r.begin() + 5), hex("00 FE 01 20 00"));
  EXPECT_EQ(bytes(r.begin() + 10, r.begin() + 18), hex("EF CD AB 89 67 45 23 01"));
}

TEST_F(identification, OtherStepsSucceed) {
  for (const char* req : {"00 01 00", "00 03 00", "00 20 01 13 00 41 00 00 00 18 00", "00 03 04",
                          "00 03 03", "00 04", "00 07 01 1A 00 00"}) {
    bytes r = c->exchange(hex(req));
    ASSERT_GE(r.size(), 2u) << req;
    EXPECT_EQ(r[1], 0xFE) << req;
  }
}

TEST_F(identification, UnknownFunctionIsRefused) {
  EXPECT_EQ(c->exchange(hex("00 55 01 02")), hex("00 FD 00"));
}

TEST(identification_m580, PlcInformationCarriesHalfTheTableAddressAtBufferByte26) {
  plcsim::project p = simtest::plant();
  p.plc_type = "BME P58 2040";
  auto srv = simtest::started(p);
  ASSERT_TRUE(srv);
  simtest::client c(*srv);
  ASSERT_TRUE(c.send(simtest::adu(9, hex("00 04"))));
  bytes frame = c.recv_frame();
  ASSERT_GE(frame.size(), 30u);
  EXPECT_EQ(simtest::le32_at(frame, 26) * 2, p.table_address);
}

// An M340 must not hand out the table address on the M580 path.
TEST_F(identification, M340PlcInformationDoesNotCarryTheTableAddress) {
  ASSERT_TRUE(c->send(simtest::adu(9, hex("00 04"))));
  bytes frame = c->recv_frame();
  ASSERT_GE(frame.size(), 30u);
  EXPECT_NE(simtest::le32_at(frame, 26) * 2, srv->table_address());
}

}  // namespace
