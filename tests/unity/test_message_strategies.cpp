#include <gtest/gtest.h>

#include <stdexcept>

#include "tools/common/unity_reply.h"
#include "unity/unity_process.h"

namespace {

using harness::bytes;
using harness::dictionary_reply;
using harness::unity_message;

std::vector<unity_frame> commands_of(unity_process::PRIVATE& p, const bytes& raw) {
  std::vector<unity_frame> out;
  p.get_strategy(raw)->get_commands(out);
  return out;
}

struct classification_case {
  const char* what;
  bytes raw;
  bool request;
};

class IsRequest : public ::testing::TestWithParam<classification_case> {};

TEST_P(IsRequest, ClassifiesByFunctionCodeAndByte9) {
  unity_process::PRIVATE p;
  EXPECT_EQ(p.is_request(GetParam().raw), GetParam().request) << GetParam().what;
}

INSTANTIATE_TEST_SUITE_P(
    Frames, IsRequest,
    ::testing::Values(
        classification_case{"success status", {0, 1, 0, 0, 0, 4, 0, 0x5A, 0x00, 0xFE}, false},
        classification_case{"error status", {0, 1, 0, 0, 0, 4, 0, 0x5A, 0x00, 0xFD}, false},
        classification_case{"unity function 0x26", {0, 1, 0, 0, 0, 4, 0, 0x5A, 0x00, 0x26}, true},
        classification_case{"unity function 0x00", {0, 1, 0, 0, 0, 4, 0, 0x5A, 0x00, 0x00}, true},
        classification_case{"other modbus function, short", {0, 1, 0, 0, 0, 2, 0, 0x03}, false}));

TEST(ResponseStrategy, RepliesWithoutAUsableMessageYieldNothing) {
  const bytes cases[] = {
      {0x00, 0x01, 0x00, 0x00, 0x00, 0x05, 0x00, 0x5A, 0x00, 0xFE, 0x00},  // MBAP length 5
      {0x00, 0x01, 0x00, 0x00, 0x00, 0x0D, 0x00, 0x5A, 0x00, 0xFD, 0x09, 0x00, 0x00, 0x00, 0x00,
       0x01, 0x00, 0x01, 0x00},  // error status
      {0x00, 0x01, 0x00, 0x00, 0x00, 0x0E, 0x00, 0x03, 0x00, 0xFE,
       0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},  // not function 0x5A
  };
  for (const bytes& raw : cases) {
    unity_process::PRIVATE p;
    EXPECT_TRUE(commands_of(p, raw).empty()) << raw.size();
  }
}

// Regression: an 8-byte Unity message (MBAP length 10) ends inside its record count; reading
// the missing high byte raised std::out_of_range instead of giving one frame without records.
struct short_message_case {
  const char* what;
  bytes message;
  uint16_t record_count;
  bool decoder_throws;  // records announced but absent: the decoder's checked reads raise
};

// A variables-table page (format 9) goes to the table decoder, a structure page to the
// structure decoder.
void decode(const std::vector<unity_frame>& frames) {
  unity_process session;
  if (frames[0].record_format == 9) {
    session.save_table_info(frames);
    EXPECT_TRUE(session.tables.empty());
    return;
  }
  unity_process::data_type_entry entry(40, data_type{});
  std::vector<data_type> members;
  EXPECT_EQ(session.save_struct_detail(frames, entry, members), 1);
  EXPECT_TRUE(session.struct_members.at(40).empty());
}

TEST(ResponseStrategy, EightByteMessageGivesOneFrameWithoutRecords) {
  const short_message_case cases[] = {
      {"variables page, none", {0x00, 0xFE, 0x09, 0x00, 0x00, 0x00, 0x00, 0x00}, 0, false},
      {"structure page, no member", {0x00, 0xFE, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00}, 0, false},
      {"variables announced", {0x00, 0xFE, 0x09, 0x00, 0x00, 0x00, 0x00, 0x05}, 5, true},
      {"member announced", {0x00, 0xFE, 0x02, 0x00, 0x00, 0x00, 0x00, 0x01}, 1, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    unity_process::PRIVATE p;
    std::vector<unity_frame> out;
    ASSERT_NO_THROW(out = commands_of(p, harness::modbus_reply(c.message)));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].record_count, c.record_count);
    EXPECT_EQ(out[0].record_format, c.message[2]);
    ASSERT_EQ(out[0].nodes.size(), 1u);
    EXPECT_EQ(out[0].nodes[0].name, c.message);
    if (c.decoder_throws) {
      EXPECT_THROW(decode(out), std::out_of_range);
    } else {
      EXPECT_NO_THROW(decode(out));
    }
  }
}

TEST(ResponseStrategy, RawMessageNodeFollowsMbapLengthNotBufferSize) {
  // MBAP length 11 says 9 message bytes; the two trailing bytes belong to no message.
  const bytes raw = {0x00, 0x01, 0x00, 0x00, 0x00, 0x0B, 0x00, 0x5A, 0x00, 0xFE,
                     0x09, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xEE, 0xEE};
  unity_process::PRIVATE p;
  auto out = commands_of(p, raw);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0].nodes[0].name, bytes(raw.begin() + 8, raw.begin() + 17));
}

// Regression guard: the dictionary download's record-less split must keep every frame's
// header and raw-message node where get_commands puts them, and raise where it raises.
TEST(ResponseStrategy, WithoutRecordsKeepsHeadersAndRawMessage) {
  const bytes page = dictionary_reply(9, 0x0600, 2)
                         .le16(0x0102)
                         .le16(0x0304)
                         .le32(0x05060708)
                         .le16(0)
                         .cstr("A")
                         .le16(0x0102)
                         .le16(0x0304)
                         .le32(0x05060708)
                         .le16(0)
                         .cstr("BC")
                         .bytes();
  for (const bytes& raw :
       {harness::modbus_reply(page), harness::modbus_reply(unity_message(0xFD).bytes())}) {
    unity_process::PRIVATE p;
    const auto full = commands_of(p, raw);
    std::vector<unity_frame> bare;
    p.get_strategy(raw)->get_commands_without_records(bare);
    ASSERT_EQ(bare.size(), full.size());
    for (std::size_t i = 0; i < full.size(); ++i) {
      EXPECT_EQ(bare[i].status_word, full[i].status_word);
      EXPECT_EQ(bare[i].record_format, full[i].record_format);
      EXPECT_EQ(bare[i].next_address, full[i].next_address);
      EXPECT_EQ(bare[i].record_count, full[i].record_count);
      EXPECT_EQ(full[i].nodes.size(), 1u + full[i].record_count);
      ASSERT_EQ(bare[i].nodes.size(), 1u);
      EXPECT_EQ(bare[i].nodes[0].name, full[i].nodes[0].name);
    }
  }
  std::vector<unity_frame> out;
  unity_process::PRIVATE p;
  EXPECT_THROW(p.get_strategy({0x00, 0x01, 0x00, 0x00, 0x00, 0x04, 0x00, 0x5A, 0x00, 0x26})
                   ->get_commands_without_records(out),
               std::out_of_range);
}

TEST(OnSetCommSuccessed, ResponseStrategyBuildsContinuation) {
  const bytes message = dictionary_reply(9, 0x000012AB, 0).bytes();
  unity_process::PRIVATE p;
  auto strategy = p.get_strategy(harness::modbus_reply(message));
  std::vector<unity_frame> out;
  strategy->get_commands(out);
  modbus_tcp_frame frame;
  frame.transaction_id = 4;
  strategy->on_set_comm_successed(frame);
  EXPECT_EQ(frame.transaction_id, 5);
  EXPECT_EQ(frame.pdu.function_code, 0x5A);
  EXPECT_EQ(frame.pdu.data,
            (bytes{0x00, 0x26, 0x02, 0xFB, 0x03, 0x64, 0x10, 0xB1, 0x07, 0xFF, 0xAB, 0x26}));
  EXPECT_EQ(frame.length, 14);
}

TEST(OnSetCommSuccessed, WithoutAddressOnlyBumpsTransaction) {
  std::vector<modbus_tcp_frame> frames;
  bytes raw;
  response_strategy s(frames, raw);
  modbus_tcp_frame frame;
  frame.transaction_id = 1;
  frame.length = 30;
  s.on_set_comm_successed(frame);
  EXPECT_EQ(frame.transaction_id, 2);
  EXPECT_EQ(frame.length, 0);
  EXPECT_EQ(frame.pdu.function_code, 0x5A);
  EXPECT_TRUE(frame.pdu.data.empty());
}

// A request echoed back, or a frame too short to classify: no commands, or a range error.
TEST(RequestStrategy, RequestsAndShortFramesYieldNoCommands) {
  unity_process::PRIVATE p;
  EXPECT_THROW(p.is_request({0, 1, 0, 0, 0, 2, 0}), std::out_of_range);
  EXPECT_THROW(p.is_request({0, 1, 0, 0, 0, 2, 0, 0x5A, 0x00}), std::out_of_range);
  std::vector<unity_frame> out;
  auto strategy = p.get_strategy({0x00, 0x01, 0x00, 0x00, 0x00, 0x04, 0x00, 0x5A, 0x00, 0x26});
  EXPECT_THROW(strategy->get_commands(out), std::out_of_range);
  for (unsigned char status : {0xFE, 0xFD}) {
    std::vector<modbus_tcp_frame> frames(1);
    frames[0].create_modbus(modbus_frame{0x5A, {0x00, status}});
    bytes raw;
    request_strategy(frames, raw).get_commands(out);
  }
  EXPECT_TRUE(out.empty());
}

}  // namespace
