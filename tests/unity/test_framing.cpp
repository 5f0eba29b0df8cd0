#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>

#include "tests/support/unity_reply.h"
#include "unity/unity_process.h"

namespace {

using harness::bytes;

// The header as the fields stand, big-endian, then the function code and the data: the
// length is written as set (00 00 when never set), never recomputed.
TEST(EncodeFrame, HeaderFieldsAsTheyStandThenFunctionAndData) {
  const struct {
    uint16_t transaction, length;
    bytes data;
    bytes raw;
  } cases[] = {
      {0x0102, 4, {0x00, 0x02}, {0x01, 0x02, 0x00, 0x00, 0x00, 0x04, 0x00, 0x5A, 0x00, 0x02}},
      {0x0102, 0, {0x00, 0x02}, {0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x5A, 0x00, 0x02}},
      {0xFFEE, 2, {}, {0xFF, 0xEE, 0x00, 0x00, 0x00, 0x02, 0x00, 0x5A}},
  };
  for (const auto& c : cases) {
    modbus_tcp_frame frame;
    frame.transaction_id = c.transaction;
    frame.length = c.length;
    frame.create_modbus(modbus_frame{0x5A, c.data});
    EXPECT_EQ(frame.to_raw_data(), c.raw) << c.length;
  }
}

TEST(DecodeFrame, DataIsEverythingAfterHeaderWhateverTheLengthSays) {
  const bytes raw = {0x00, 0x07, 0x00, 0x00, 0x00, 0x06, 0x00, 0x5A, 0x00, 0xFE,
                     0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A};
  unity_process::PRIVATE p;
  p.create_modbus_tcp_frame_to_source(raw);
  ASSERT_EQ(p.frames.size(), 1u);
  const modbus_tcp_frame& f = p.frames[0];
  EXPECT_EQ(f.transaction_id, 7);
  EXPECT_EQ(f.length, 6);
  EXPECT_EQ(f.pdu.function_code, 0x5A);
  EXPECT_EQ(f.pdu.data.size(), 12u);
  EXPECT_EQ(f.pdu.data, bytes(raw.begin() + 8, raw.end()));
}

// Up to 8 bytes (a header without Unity data) the buffer is refused.
TEST(DecodeFrame, ShortBuffersAreRefused) {
  for (std::size_t size : {0u, 1u, 5u, 7u, 8u}) {
    unity_process::PRIVATE p;
    EXPECT_THROW(p.create_modbus_tcp_frame_to_source(bytes(size, 0x5A)), std::out_of_range) << size;
  }
}

TEST(DecodeFrame, NineBytesIsTheSmallestAccepted) {
  unity_process::PRIVATE p;
  p.create_modbus_tcp_frame_to_source({0, 1, 0, 0, 0, 3, 0, 0x5A, 0x00});
  ASSERT_EQ(p.frames.size(), 1u);
  EXPECT_EQ(p.frames[0].pdu.data, bytes{0x00});
}

}  // namespace
