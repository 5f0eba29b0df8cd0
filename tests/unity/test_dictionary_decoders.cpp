#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "tests/support/unity_reply.h"
#include "unity/unity_process.h"

namespace {

using harness::bytes;
using harness::decoded_reply;
using harness::dictionary_reply;
using harness::unity_message;

std::string key(const char* text) {
  return std::string(text) + '\0';
}

class Decoders : public ::testing::Test {
 protected:
  unity_process session;
};

// PLC identification: text length at [24], text from [25].
bytes identification(const std::string& text, uint8_t status = 0xFE) {
  return unity_message(status)
      .zeros(22)
      .u8(static_cast<uint8_t>(text.size()))
      .raw(bytes(text.begin(), text.end()))
      .bytes();
}

TEST_F(Decoders, PlcTypeIsStoredAndBmeP58Recognised) {
  session.save_plc_type({decoded_reply(identification("BMX P34 2020"))});
  EXPECT_EQ(session.plc_type, "BMX P34 2020");
  EXPECT_FALSE(session.is_bme_p58());
  session.save_plc_type({decoded_reply(identification("xBME P58 4040"))});
  EXPECT_TRUE(session.is_bme_p58());
}

TEST_F(Decoders, ErrorStatusLeavesSessionUnchanged) {
  const bytes bad = identification("BME P58 1", 0xFD);
  session.save_plc_type({decoded_reply(bad)});
  session.save_array_type_pos({decoded_reply(unity_message(0xFD).zeros(20).bytes())});
  session.save_data_type_info(
      {decoded_reply(unity_message(0xFD).zeros(4).le16(1).zeros(20).bytes())});
  session.save_table_info({decoded_reply(unity_message(0xFD).zeros(30).bytes(), 9, 1)});
  EXPECT_TRUE(session.plc_type.empty());
  EXPECT_EQ(session.dictionary_handle, bytes(8, 0));
  EXPECT_TRUE(session.data_types.empty());
  EXPECT_TRUE(session.tables.empty());
}

TEST_F(Decoders, PlcTypeShortMessages) {
  // Too short for the length byte: range error.
  EXPECT_THROW(session.save_plc_type({decoded_reply(unity_message().zeros(22).bytes())}),
               std::out_of_range);
  // Length byte present but no text: only resized.
  session.save_plc_type({decoded_reply(unity_message().zeros(22).u8(3).bytes())});
  EXPECT_EQ(session.plc_type, std::string(3, '\0'));
  // Regression: a text shorter than announced raised; its missing bytes read as zeros, as
  // past the end of every other decoder's message. The 31-byte reply of step 1 holds six of
  // the nine bytes its length byte announces.
  session.save_plc_type({decoded_reply(unity_message().zeros(22).u8(9).raw({'A'}).bytes())});
  EXPECT_EQ(session.plc_type, std::string("A\0\0\0\0\0\0\0\0", 9));
  const bytes step_one = {0x00, 0xFE, 0x10, 0xFF, 0x5A, 0x01, 0x01, 0x00, 0x00, 0x00, 0x70,
                          0x02, 0x00, 0x00, 0x27, 0x00, 0x09, 0x00, 0x08, 0x00, 0x00, 0x00,
                          0x00, 0x00, 0x09, 'B',  'M',  'X',  ' ',  'P',  '3'};
  ASSERT_EQ(step_one.size(), 31u);
  ASSERT_NO_THROW(session.save_plc_type({decoded_reply(step_one)}));
  EXPECT_EQ(session.plc_type, std::string("BMX P3\0\0\0", 9));
  // A zero length with bytes behind it: an empty type text.
  session.save_plc_type({decoded_reply(unity_message().zeros(22).u8(0).u8('X').bytes())});
  EXPECT_EQ(session.plc_type, "");
}

TEST_F(Decoders, ArrayTypePosFillsHandleFrom10To17) {
  // Message sizes 10, 11 and 18: too short changes nothing, missing bytes read as zero.
  const std::pair<bytes, bytes> cases[] = {
      {unity_message().zeros(8).bytes(), bytes(8, 0)},
      {unity_message().zeros(8).u8(0x5C).bytes(), {0x5C, 0, 0, 0, 0, 0, 0, 0}},
      {unity_message().zeros(8).raw({1, 2, 3, 4, 5, 6, 7, 8}).bytes(), {1, 2, 3, 4, 5, 6, 7, 8}}};
  for (const auto& [message, handle] : cases) {
    session.save_array_type_pos({decoded_reply(message)});
    EXPECT_EQ(session.dictionary_handle, handle) << message.size();
  }
}

TEST_F(Decoders, TableInfoStoresNamesWithZeroAndFirstLocation) {
  plcsim::msg_writer m = dictionary_reply(9, 0, 2);
  m.le16(4).raw({0x01, 0x00, 0x10, 0x00, 0x00, 0x00}).le16(0).cstr("A");
  m.le16(16).raw({0x02, 0x00, 0x20, 0x00, 0x00, 0x00}).le16(0).cstr("Speed");
  session.save_table_info({decoded_reply(m.bytes(), 9, 2)});
  ASSERT_EQ(session.tables.size(), 2u);
  ASSERT_EQ(session.tables.count(key("A")), 1u);
  EXPECT_EQ(session.tables.count("A"), 0u);
  const table& a = session.tables.at(key("A"));
  EXPECT_EQ(a.type_id, 4);
  EXPECT_EQ(a.read_format, 2);
  EXPECT_EQ(a.location, (bytes{0x01, 0x00, 0x10, 0x00, 0x00, 0x00}));
  EXPECT_EQ(session.tables.at(key("Speed")).read_format, 4);
  const std::array<unsigned char, 6> first = {0x01, 0x00, 0x10, 0x00, 0x00, 0x00};
  EXPECT_EQ(session.variable_address, first);
}

// Regression guard: a first variable at block 0, offset 0 leaves the address all zero, so
// the next record's location must still be taken; names out of order must all be kept.
TEST_F(Decoders, TableInfoZeroFirstLocationAndNamesOutOfOrder) {
  plcsim::msg_writer m = dictionary_reply(9, 0, 3);
  m.le16(4).raw({0, 0, 0, 0, 0, 0}).le16(0).cstr("C");
  m.le16(4).raw({1, 0, 4, 0, 0, 0}).le16(0).cstr("B");
  m.le16(4).raw({2, 0, 8, 0, 0, 0}).le16(0).cstr("A");
  session.save_table_info({decoded_reply(m.bytes(), 9, 3)});
  ASSERT_EQ(session.tables.size(), 3u);
  EXPECT_EQ(session.tables.at(key("A")).location, (bytes{2, 0, 8, 0, 0, 0}));
  EXPECT_EQ(session.tables.at(key("C")).location, (bytes{0, 0, 0, 0, 0, 0}));
  const std::array<unsigned char, 6> second = {1, 0, 4, 0, 0, 0};
  EXPECT_EQ(session.variable_address, second);
}

TEST_F(Decoders, TableInfoNameWithoutZeroThrows) {
  // The name cut before its zero, or missing altogether.
  for (const bytes& name : {bytes{'A', 'B', 'C'}, bytes{}}) {
    const bytes message = dictionary_reply(9, 0, 1).le16(1).zeros(6).le16(0).raw(name).bytes();
    EXPECT_THROW(session.save_table_info({decoded_reply(message, 9, 1)}), std::out_of_range);
  }
}

TEST_F(Decoders, DataTypeListStoresNamesAndResetsEntries) {
  session.data_types[40].element_type = 7;
  plcsim::msg_writer m = unity_message();
  m.zeros(4).le16(2).zeros(5);  // count at [6], records from [13]
  m.le16(40).cstr("MyStruct").zeros(5);
  m.le16(41).cstr("Arr").zeros(5);
  session.save_data_type_info({decoded_reply(m.bytes())});
  ASSERT_EQ(session.data_types.size(), 2u);
  EXPECT_EQ(session.data_types.at(40).name, key("MyStruct"));
  EXPECT_EQ(session.data_types.at(40).element_type, 0);
  EXPECT_EQ(session.data_types.at(41).name, key("Arr"));
}

TEST_F(Decoders, DataTypeListShortMessages) {
  EXPECT_THROW(session.save_data_type_info({decoded_reply(unity_message().zeros(4).bytes())}),
               std::out_of_range);
  // 12 bytes or fewer: passed over even with a count.
  session.save_data_type_info({decoded_reply(unity_message().zeros(4).le16(1).zeros(4).bytes())});
  EXPECT_TRUE(session.data_types.empty());
  // A count that runs past the message must not over-read.
  plcsim::msg_writer m = unity_message();
  m.zeros(4).le16(3).zeros(5).le16(40).cstr("X").zeros(5);
  EXPECT_THROW(session.save_data_type_info({decoded_reply(m.bytes())}), std::out_of_range);
}

plcsim::msg_writer structure_page(uint16_t next_low, uint16_t count) {
  plcsim::msg_writer m = unity_message();
  m.u8(2).le16(next_low).le16(0).le16(count);  // format [2], next address [3..6], count [7..8]
  return m;
}

TEST_F(Decoders, StructDetailSkipsZerosBeforeNamesAndStores) {
  plcsim::msg_writer m = structure_page(0, 2);
  m.le16(4).le32(0).zeros(3).cstr("x");
  m.le16(16).le32(2).cstr("y");
  unity_process::data_type_entry entry(40, data_type{});
  std::vector<data_type> members;
  EXPECT_EQ(session.save_struct_detail({decoded_reply(m.bytes(), 2)}, entry, members), 1);
  ASSERT_EQ(session.struct_members.count(40), 1u);
  const auto& stored = session.struct_members.at(40);
  ASSERT_EQ(stored.size(), 2u);
  EXPECT_EQ(stored[0].name, key("x"));
  EXPECT_EQ(stored[0].bounds, (bytes{4, 0}));
  EXPECT_EQ(stored[0].member_offset_bytes, (bytes{0, 0, 0, 0}));
  EXPECT_EQ(stored[1].name, key("y"));
  EXPECT_EQ(stored[1].bounds, (bytes{16, 0}));
  EXPECT_EQ(stored[1].member_offset_bytes, (bytes{2, 0, 0, 0}));
  EXPECT_EQ(stored[1].kind, 0);
}

TEST_F(Decoders, StructDetailWithoutStructureFrameChangesNothing) {
  unity_process::data_type_entry entry(60, data_type{});
  std::vector<data_type> members;
  plcsim::msg_writer not_struct = unity_message();
  not_struct.u8(4).zeros(10);
  EXPECT_EQ(session.save_struct_detail({decoded_reply(not_struct.bytes(), 4)}, entry, members), 0);
  plcsim::msg_writer refused = unity_message(0xFD);
  refused.u8(2).zeros(6).le16(1).le16(1).le32(0).cstr("a");
  EXPECT_EQ(session.save_struct_detail({decoded_reply(refused.bytes(), 2)}, entry, members), 0);
  EXPECT_TRUE(members.empty());
  EXPECT_TRUE(session.struct_members.empty());
}

TEST_F(Decoders, StructDetailMemberRunningPastTheEndThrows) {
  unity_process::data_type_entry entry(60, data_type{});
  std::vector<data_type> members;
  plcsim::msg_writer m = structure_page(0, 2);
  m.le16(1).le32(0).cstr("a").le16(2).le32(4).raw({'b'});
  EXPECT_THROW(session.save_struct_detail({decoded_reply(m.bytes(), 2)}, entry, members),
               std::out_of_range);
}

TEST_F(Decoders, ArrayDetailCopiesBoundsFromTheDimensionCount) {
  const bytes message = harness::hex("00FE 04 0500 02 0000 0000 0A000000 01000000 03000000");
  unity_process::data_type_entry entry(70, data_type{});
  session.save_array_detail({decoded_reply(message, 4)}, entry);
  ASSERT_EQ(entry.second.bounds.size(), 16u);
  EXPECT_EQ(entry.second.bounds[0], 2);
  EXPECT_EQ(entry.second.bounds, bytes(message.begin() + 5, message.begin() + 21));
  EXPECT_EQ(entry.second.element_type, 5);
}

TEST_F(Decoders, ArrayDetailOtherFormatSetsOnlyElementType) {
  const bytes message = unity_message().u8(2).le16(0x0019).u8(1).zeros(8).bytes();
  unity_process::data_type_entry entry(70, data_type{});
  session.save_array_detail({decoded_reply(message, 2)}, entry);
  EXPECT_TRUE(entry.second.bounds.empty());
  EXPECT_EQ(entry.second.element_type, 0x19);
}

TEST_F(Decoders, ArrayDetailShortMessages) {
  unity_process::data_type_entry entry(70, data_type{});
  EXPECT_THROW(
      session.save_array_detail({decoded_reply(unity_message().u8(4).le16(1).bytes(), 4)}, entry),
      std::out_of_range);
  // Three dimensions announced, one present: no over-read, the missing bounds read 0.
  session.save_array_detail(
      {decoded_reply(unity_message().u8(4).le16(1).u8(3).zeros(7).bytes(), 4)}, entry);
  ASSERT_EQ(entry.second.bounds.size(), 24u);
  EXPECT_EQ(entry.second.bounds[0], 3);
  EXPECT_EQ(std::count(entry.second.bounds.begin(), entry.second.bounds.end(), 0), 23);
}

}  // namespace
