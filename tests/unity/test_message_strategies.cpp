#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tests/support/unity_reply.h"
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

// A request unless byte 7 is not 0x5A, or byte 9 is a status (0xFE, 0xFD).
TEST(IsRequest, ClassifiesByFunctionCodeAndByte9) {
  const std::pair<const char*, bool> cases[] = {
      {"0001 0000 0004 00 5A 00 FE", false}, {"0001 0000 0004 00 5A 00 FD", false},
      {"0001 0000 0004 00 5A 00 26", true},  {"0001 0000 0004 00 5A 00 00", true},
      {"0001 0000 0002 00 03", false},
  };
  for (const auto& [raw, request] : cases) {
    unity_process::PRIVATE p;
    EXPECT_EQ(p.is_request(harness::hex(raw)), request) << raw;
  }
}

TEST(ResponseStrategy, RepliesWithoutAUsableMessageYieldNothing) {
  const bytes cases[] = {
      harness::hex("0001 0000 0005 00 5A 00FE 00"),                         // MBAP length 5
      harness::hex("0001 0000 000D 00 5A 00FD 09 00000000 0100 0100"),      // error status
      harness::hex("0001 0000 000E 00 03 00FE 00 00000000 0000 00000000"),  // not function 0x5A
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

// A reply cut short of the length its header announces is decoded at that length, the
// missing bytes as zeros: a variables page's missing records become one variable with an
// empty name, type 0, at block 0 offset 0 (nothing raises); a structure page's missing
// members raise, the search for a name running off the message.
TEST(ResponseStrategy, RecordsOfACutReplyReadAsZeros) {
  for (const uint8_t format : {9, 2}) {
    SCOPED_TRACE(static_cast<int>(format));
    bytes raw = harness::modbus_reply(dictionary_reply(format, 0, 2).bytes());
    raw[5] = 40;  // the header announces 38 message bytes, 9 arrived
    unity_process::PRIVATE p;
    const auto out = commands_of(p, raw);
    ASSERT_EQ(out.size(), 1u);
    ASSERT_EQ(out[0].nodes[0].name.size(), 38u);
    unity_process session;
    if (format == 9) {
      session.save_table_info(out);
      ASSERT_EQ(session.tables.size(), 1u);
      const auto& [name, variable] = *session.tables.begin();
      EXPECT_EQ(name, std::string(1, '\0'));
      EXPECT_EQ(variable.type_id, 0);
      EXPECT_EQ(variable.location, bytes(6, 0));
    } else {
      unity_process::data_type_entry entry(40, data_type{});
      std::vector<data_type> members;
      EXPECT_THROW(session.save_struct_detail(out, entry, members), std::out_of_range);
    }
  }
}

// The raw-message node is the message the MBAP length announces: bytes behind it belong to
// no message, and bytes not yet received (a split reply) read as 0.
TEST(ResponseStrategy, RawMessageNodeFollowsMbapLengthNotBufferSize) {
  const bytes head = {0x00, 0x01, 0x00, 0x00, 0x00, 0x0B, 0x00, 0x5A, 0x00, 0xFE, 0x09};
  bytes longer = head;
  longer.insert(longer.end(), {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0xEE, 0xEE});
  const std::pair<bytes, bytes> cases[] = {
      {longer, {0x00, 0xFE, 0x09, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06}},
      {head, {0x00, 0xFE, 0x09, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}},
  };
  for (const auto& [raw, message] : cases) {
    unity_process::PRIVATE p;
    auto out = commands_of(p, raw);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].nodes[0].name, message);
  }
}

// Virtual slot of a member function in the Itanium C++ ABI: a pointer to a virtual member
// holds the slot's byte offset, plus 1 except on 32-bit ARM, which flags it elsewhere.
template <typename F>
std::size_t virtual_slot(F member) {
  std::uintptr_t offset = 0;
  std::memcpy(&offset, &member, sizeof offset);
#if defined(__arm__) || defined(__aarch64__)
  return offset / sizeof(void*);
#else
  return (offset - 1) / sizeof(void*);
#endif
}

TEST(StrategyInterface, VirtualSlotsAfterTheTwoDestructors) {
  EXPECT_EQ(virtual_slot(&IUnity_message_strategy::get_commands), 2u);
  EXPECT_EQ(virtual_slot(&IUnity_message_strategy::on_set_comm_successed), 3u);
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
  // Without a next address: only the transaction and the zero length.
  std::vector<modbus_tcp_frame> frames;
  bytes raw;
  modbus_tcp_frame bare;
  bare.length = 30;
  response_strategy(frames, raw).on_set_comm_successed(bare);
  EXPECT_EQ(bare.transaction_id, 1);
  EXPECT_EQ(bare.length, 0);
  EXPECT_EQ(bare.pdu.function_code, 0x5A);
  EXPECT_TRUE(bare.pdu.data.empty());
}

// The record loop stops at the end of the data: three records announced and two sent give
// the raw-message node and two records, with their names when the format is 9 (only then).
TEST(ResponseStrategy, RecordLoopEndsWithTheDataAndReadsNamesOnlyInFormatNine) {
  for (const uint8_t format : {9, 2}) {
    SCOPED_TRACE(static_cast<int>(format));
    const bytes message = dictionary_reply(format, 0, 3)
                              .le16(0x0104)
                              .le16(0x0001)
                              .le32(0x00000060)
                              .le16(0)
                              .cstr("Ab")
                              .le16(0x0108)
                              .le16(0x0002)
                              .le32(0x00000010)
                              .le16(0)
                              .cstr("C")
                              .bytes();
    unity_process::PRIVATE p;
    const auto out = commands_of(p, harness::modbus_reply(message));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].record_count, 3);
    const std::vector<node>& nodes = out[0].nodes;
    EXPECT_EQ(nodes[0].name, message);
    if (format == 9) {
      ASSERT_EQ(nodes.size(), 3u);
      EXPECT_EQ(nodes[1].type_id, 0x0104);
      EXPECT_EQ(nodes[1].block, 1);
      EXPECT_EQ(nodes[1].offset, 0x60u);
      EXPECT_EQ(nodes[1].name, (bytes{'A', 'b', 0}));
      EXPECT_EQ(nodes[2].type_id, 0x0108);
      EXPECT_EQ(nodes[2].offset, 0x10u);
      EXPECT_EQ(nodes[2].name, (bytes{'C', 0}));
    } else {
      // Unnamed 8-byte records: the same bytes read as three records of eight.
      ASSERT_EQ(nodes.size(), 4u);
      EXPECT_EQ(nodes[1].type_id, 0x0104);
      EXPECT_EQ(nodes[2].type_id, 0x0000);
      EXPECT_EQ(nodes[2].block, 0x6241);  // 'A' 'b'
      for (std::size_t i = 1; i < nodes.size(); ++i) EXPECT_TRUE(nodes[i].name.empty()) << i;
    }
  }
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
