// Exact request bytes of the identification, dictionary and variable access builders.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/unity_reply.h"
#include "unity/unity_process.h"

namespace {

using bytes = std::vector<unsigned char>;

void expect_frame_shape(const modbus_tcp_frame& frame, uint16_t transaction) {
  EXPECT_EQ(frame.transaction_id, transaction);
  EXPECT_EQ(frame.protocol_id, 0);
  EXPECT_EQ(frame.unit_id, 0);
  EXPECT_EQ(frame.pdu.function_code, 0x5A);
  EXPECT_EQ(frame.length, frame.pdu.data.size() + 2);
}

struct init_case {
  uint16_t step;
  bytes message;
};
void PrintTo(const init_case& c, std::ostream* os) {
  *os << "step " << c.step;
}

class InitRequest : public ::testing::TestWithParam<init_case> {};

TEST_P(InitRequest, MessageOfEachStep) {
  unity_process session;
  bool more = true;
  const modbus_tcp_frame frame = session.create_init_request(GetParam().step, 2, more);
  expect_frame_shape(frame, GetParam().step);
  EXPECT_EQ(frame.pdu.data, GetParam().message);
  EXPECT_TRUE(more);
}

const bytes read_block_30 = {0x00, 0x20, 0x01, 0x30, 0x00, 0x00, 0x00, 0x00, 0x00, 0x20, 0x00};

INSTANTIATE_TEST_SUITE_P(
    ElevenSteps, InitRequest,
    ::testing::Values(init_case{1, {0x00, 0x02}}, init_case{2, {0x00, 0x01, 0x00}},
                      init_case{3, {0x00, 0x03, 0x00}}, init_case{4, read_block_30},
                      init_case{5, {0x00, 0x03, 0x00}},
                      init_case{6,
                                {0x00, 0x20, 0x01, 0x13, 0x00, 0x41, 0x00, 0x00, 0x00, 0x18, 0x00}},
                      init_case{7, {0x00, 0x03, 0x04}}, init_case{8, {0x00, 0x03, 0x03}},
                      init_case{9, {0x00, 0x04}}, init_case{10, read_block_30},
                      init_case{11, {0x00, 0x07, 0x01, 0x1A, 0x00, 0x00}}));

TEST(FileHandleRequest, SendsAddressBytesInItsOwnOrder) {
  unity_process session;
  session.variable_address = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
  bool more = true;
  const modbus_tcp_frame frame = session.get_file_handle_request(7, 2, more);
  expect_frame_shape(frame, 7);
  EXPECT_EQ(frame.pdu.data, (bytes{0x00, 0x22, 0x7E, 0x8B, 0x4B, 0x05, 0x01, 0x01, 0xA0, 0xA1, 0x01,
                                   0xA3, 0xA4, 0xA2}));
}

class DictionaryRequest : public ::testing::Test {
 protected:
  DictionaryRequest() {
    session.dictionary_handle = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
  }
  unity_process session;
  bool more = true;
};

TEST_F(DictionaryRequest, DataTypeListCarriesHandleAndContinuation) {
  const modbus_tcp_frame frame =
      session.create_get_data_type_request(3, 2, more, {0xC0, 0xC1, 0xC2, 0xC3});
  expect_frame_shape(frame, 3);
  EXPECT_EQ(frame.pdu.data,
            (bytes{0x00, 0x26, 0x03, 0xFB, 0x03, 0x11, 0x22, 0x33, 0x44, 0xC0, 0xC1, 0xC2, 0xC3}));
}

TEST_F(DictionaryRequest, DetailCarriesTypeIdAndZeroContinuation) {
  const modbus_tcp_frame frame =
      session.create_get_data_type_detail_request(0x1234, 2, more, {0x34, 0x12});
  expect_frame_shape(frame, 0x1234);
  EXPECT_EQ(frame.pdu.data, (bytes{0x00, 0x26, 0x02, 0xFB, 0x03, 0x11, 0x22, 0x33, 0x44, 0x34, 0x12,
                                   0x00, 0x00, 0x00, 0x00}));
}

TEST_F(DictionaryRequest, BrowseCarriesBrowseAddress) {
  session.browse_address = {0xB0, 0xB1, 0xB2, 0xB3};
  const modbus_tcp_frame frame = session.create_browse_request(9, 2, more);
  expect_frame_shape(frame, 9);
  EXPECT_EQ(frame.pdu.data, (bytes{0x00, 0x26, 0x02, 0xFB, 0x03, 0x11, 0x22, 0x33, 0x44, 0xFF, 0xFF,
                                   0xB0, 0xB1, 0xB2, 0xB3}));
}

// An item at block 0x0102, byte offset 0x012345; byte 5 of the location is never used.
read_comm item_at_012345(uint8_t format, uint16_t type_id, uint16_t count) {
  read_comm item;
  item.location = {0x02, 0x01, 0x45, 0x23, 0x01, 0xAA};
  item.read_format = format;
  item.type_id = type_id;
  item.count = count;
  return item;
}

data_type array_of(uint16_t element_type) {
  data_type t;
  t.name = std::string("T") + '\0';
  t.element_type = element_type;
  return t;
}

// An item at block 0x0102, byte offset 0x012345 plus its offsets; its record in hex.
struct read_item_case {
  const char* what;
  uint8_t format;
  uint16_t type;
  uint16_t count;
  uint16_t element;  // element_offset
  uint64_t member;   // member_offset
  const char* record;
  uint8_t single_element;
};
void PrintTo(const read_item_case& c, std::ostream* os) {
  *os << c.what;
}

class ReadItem : public ::testing::TestWithParam<read_item_case> {};

TEST_P(ReadItem, RecordBytes) {
  const read_item_case& c = GetParam();
  unity_process session;
  session.data_types[100] = array_of(4);   // INT elements
  session.data_types[101] = array_of(25);  // EBOOL elements
  session.data_types[102] = array_of(6);   // DINT elements
  session.data_types[104] = array_of(0);   // elements of no controller type
  session.data_types[105] = array_of(16);  // 64-bit elements
  session.table_address = 0x0A0B0C0D;
  std::vector<read_comm> items{item_at_012345(c.format, c.type, c.count)};
  items[0].element_offset = c.element;
  items[0].member_offset = c.member;
  bool expect_reply = true;
  bool normalise = false;
  const modbus_tcp_frame frame = session.create_read_request(42, 2, expect_reply, items, normalise);
  expect_frame_shape(frame, 42);
  bytes expected = harness::hex("00 22 0D0C0B0A 01");
  const bytes record = harness::hex(c.record);
  expected.insert(expected.end(), record.begin(), record.end());
  EXPECT_EQ(frame.pdu.data, expected) << c.what;
  EXPECT_EQ(items[0].single_element, c.single_element) << c.what;
  EXPECT_TRUE(expect_reply);
  EXPECT_FALSE(normalise);
}

const read_item_case read_items[] = {
    {"direct format", 2, 4, 1, 0, 0, "02 0201 01 2301 45", 0},
    {"offsets add, member offset cut", 3, 6, 1, 0x100, 0x100000010, "03 0201 01 2401 55", 0},
    {"type 9: length code 17, any format", 3, 9, 1, 0, 0, "11 0201 01 2301 45", 0},
    {"typed one element: 01, EBOOL marks", 0x21, 101, 1, 0, 0, "21 0201 01 2301 01 45", 1},
    {"typed one element, other type", 0x21, 100, 1, 0, 0, "21 0201 01 2301 01 45", 0},
    {"typed run of 2: length code and count", 0x21, 100, 2, 0, 0, "12 0201 01 2301 45 0200", 0},
    {"typed run of 3: length code and count", 0x21, 100, 3, 0, 0, "12 0201 01 2301 45 0300", 0},
    {"typed run of 64-bit elements", 0x21, 105, 2, 0, 0, "14 0201 01 2301 45 0200", 0},
    {"typed run, unknown type: 0x21", 0x21, 555, 0x0102, 0, 0, "21 0201 01 2301 45 0201", 0},
    {"no format, known type: counted", 255, 102, 1, 0, 0, "13 0201 01 2301 45 0100", 0},
    {"no format, no controller type", 255, 104, 2, 0, 0, "FF 0201 01 2301 45 0200", 0},
    {"no format, unknown type", 255, 555, 4, 0, 0, "FF 0201 01 2301 45 0400", 0},
    {"direct format, count 2: no count", 1, 100, 2, 0, 0, "01 0201 01 2301 45", 0},
};
INSTANTIATE_TEST_SUITE_P(Codes, ReadItem, ::testing::ValuesIn(read_items));

// One item at 0x012345 (read format, type id, count, value bytes in hex).
struct written_item {
  uint8_t format;
  uint16_t type;
  uint16_t count;
  const char* data;
};

struct write_item_case {
  const char* what;
  std::vector<written_item> items;
  const char* expected;  // everything after the item count
};
void PrintTo(const write_item_case& c, std::ostream* os) {
  *os << c.what;
}

class WriteItem : public ::testing::TestWithParam<write_item_case> {};

TEST_P(WriteItem, RecordBytes) {
  unity_process session;
  session.data_types[100] = array_of(4);
  session.data_types[101] = array_of(25);
  session.data_types[103] = array_of(9);
  session.data_types[104] = array_of(0);
  session.data_types[105] = array_of(16);
  session.table_address = 0x01020304;
  std::vector<read_comm> items;
  for (const written_item& i : GetParam().items) {
    const bytes data = harness::hex(i.data);
    items.push_back(item_at_012345(i.format, i.type, i.count));
    items.back().data.assign(data.begin(), data.end());
  }
  bool expect_reply = true;
  const modbus_tcp_frame frame = session.create_write_request(5, 2, expect_reply, items);
  expect_frame_shape(frame, 5);
  const std::string count = items.size() == 1 ? "01" : "02";
  EXPECT_EQ(frame.pdu.data, harness::hex("0023 04030201" + count + GetParam().expected))
      << GetParam().what;
}

const write_item_case write_items[] = {
    {"address as 4 bytes, values as they are", {{2, 4, 1, "3412"}}, "02 0201 45230100 3412"},
    {"first code 0 sends booleans", {{0, 25, 1, "80"}}, "00 0201 45230100 01"},
    {"first code 0: every item's values booleans",
     {{0, 25, 1, "00"}, {2, 4, 1, "0200"}},
     "00 0201 45230100 00 02 0201 45230100 0100"},
    {"type 9: 17 and a count", {{0x21, 9, 2, "6162"}}, "11 0201 45230100 0200 6162"},
    {"no format, one known: format code", {{0xFF, 100, 1, "0500"}}, "02 0201 45230100 0500"},
    {"no format, run: length code, count", {{0xFF, 101, 2, "0080"}}, "10 0201 45230100 0200 0080"},
    {"no format, 64-bit run: 20, count", {{0xFF, 105, 2, "01"}}, "14 0201 45230100 0200 01"},
    {"no format, one 64-bit: 4, no count", {{0xFF, 105, 1, "01"}}, "04 0201 45230100 01"},
    {"no format, string: length code for one", {{0xFF, 103, 1, "78"}}, "11 0201 45230100 0100 78"},
    {"no format, no controller type: 255", {{0xFF, 104, 1, "07"}}, "FF 0201 45230100 07"},
    {"no format, unknown type: 255, no count", {{0xFF, 555, 1, "07"}}, "FF 0201 45230100 07"},
    {"typed format sends a count", {{0x21, 100, 1, "01"}}, "21 0201 45230100 0100 01"},
    {"first item's code decides every count",
     {{0x21, 100, 3, ""}, {2, 4, 1, "09"}},
     "21 0201 45230100 0300 02 0201 45230100 0100 09"},
};
INSTANTIATE_TEST_SUITE_P(Codes, WriteItem, ::testing::ValuesIn(write_items));

TEST(StringSize, OddDeclaredLength) {
  unity_process session;
  session.data_types[1] = array_of(4);
  data_type odd = array_of(9);
  odd.name = std::string("STRING[17]") + '\0';
  session.data_types[2] = odd;
  data_type even = odd;
  even.name = std::string("STRING[16]") + '\0';
  session.data_types[3] = even;
  data_type plain = odd;
  plain.name = std::string("STRING") + '\0';
  session.data_types[4] = plain;

  EXPECT_FALSE(session.is_string_size_odd(99));
  EXPECT_FALSE(session.is_string_size_odd(1));
  EXPECT_TRUE(session.is_string_size_odd(2));
  EXPECT_FALSE(session.is_string_size_odd(3));
  EXPECT_THROW(session.is_string_size_odd(4), std::out_of_range);
}

// Steps outside the table: step 1 carries the caller's code, the others are bare headers.
TEST(InitRequestOutsideTable, StepOneCarriesTheCallersCodeLaterOnesAreEmpty) {
  unity_process session;
  bool more = true;
  EXPECT_EQ(session.create_init_request(1, 0x7F, more).pdu.data, (bytes{0x00, 0x7F}));
  for (uint16_t step : {0, 12, 300}) {
    const modbus_tcp_frame frame = session.create_init_request(step, 2, more);
    EXPECT_TRUE(frame.pdu.data.empty()) << step;
    EXPECT_EQ(frame.to_raw_data().size(), 8u) << step;
  }
}

}  // namespace
