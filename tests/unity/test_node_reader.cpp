#include <gtest/gtest.h>

#include <string>

#include "tools/common/unity_reply.h"
#include "unity/message_strategy.h"

namespace {

using harness::bytes;

bytes named_record(uint16_t type, uint16_t block, uint32_t offset, const std::string& name) {
  return harness::unity_message()
      .le16(type)
      .le16(block)
      .le32(offset)
      .le16(0xCCCC)
      .cstr(name)
      .bytes();
}

// unity_message starts with pairing and status; records are read from index 2 here.
constexpr unsigned short record_start = 2;

TEST(GetNextNodeData, NamedRecordKeepsItsZeroAndSkipsTwoBytes) {
  const bytes data = named_record(0x0102, 0x0304, 0x05060708, "Motor_1");
  unsigned short cursor = record_start;
  const node n = get_next_node_data(data, cursor, true);
  EXPECT_EQ(n.type_id, 0x0102);
  EXPECT_EQ(n.block, 0x0304);
  EXPECT_EQ(n.offset, 0x05060708u);
  EXPECT_EQ(n.spare, 0);
  EXPECT_EQ(n.name, (bytes{'M', 'o', 't', 'o', 'r', '_', '1', 0}));
  EXPECT_EQ(cursor, data.size());
}

TEST(GetNextNodeData, UnnamedRecordIsEightBytes) {
  const bytes data = named_record(1, 2, 3, "X");
  unsigned short cursor = record_start;
  const node n = get_next_node_data(data, cursor, false);
  EXPECT_EQ(n.offset, 3u);
  EXPECT_TRUE(n.name.empty());
  EXPECT_EQ(cursor, record_start + 8);
}

TEST(GetNextNodeData, LongNameIsCutAndNextRecordStartsInsideIt) {
  // 34 characters are taken, the 35th closes the name; the cursor stays inside the name.
  const bytes data = {0x01, 0x00, 0x02, 0x00, 0x03, 0x00, 0x00, 0x00, 0xCC, 0xCC, 'a', 'b', 'c',
                      'd',  'e',  'f',  'g',  'h',  'i',  'j',  'k',  'l',  'm',  'n', 'o', 'p',
                      'q',  'r',  's',  't',  'u',  'v',  'w',  'x',  'y',  'z',  'A', 'B', 'C',
                      'D',  'E',  'F',  'G',  'H',  'I',  'J',  'K',  'L',  0x00};
  unsigned short cursor = 0;
  const node first = get_next_node_data(data, cursor, true);
  ASSERT_EQ(first.name.size(), 35u);
  EXPECT_EQ(std::string(first.name.begin(), first.name.end()),
            "abcdefghijklmnopqrstuvwxyzABCDEFGHI");
  EXPECT_EQ(cursor, 45);
  const node second = get_next_node_data(data, cursor, true);
  EXPECT_EQ(second.type_id, 'J' | 'K' << 8);
  EXPECT_EQ(second.block, static_cast<uint16_t>('L'));
  EXPECT_TRUE(second.name.empty());
}

TEST(GetNextNodeData, NameWithoutZeroStopsAtTheEnd) {
  bytes data = named_record(1, 2, 3, "abc");
  data.pop_back();
  unsigned short cursor = record_start;
  const node n = get_next_node_data(data, cursor, true);
  EXPECT_EQ(n.name, (bytes{'a', 'b', 'c'}));
  EXPECT_GT(cursor, data.size() - 1);
}

struct truncation_case {
  std::size_t size;  // bytes of the record that arrived
  uint16_t type_id;
  uint16_t block;
  uint32_t offset;
};

class TruncatedRecord : public ::testing::TestWithParam<truncation_case> {};

TEST_P(TruncatedRecord, IsPartlyFilledWithoutReadingPastTheEnd) {
  const bytes full = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0xCC, 0xCC, 'Z', 0};
  const bytes data(full.begin(), full.begin() + static_cast<long>(GetParam().size));
  unsigned short cursor = 0;
  const node n = get_next_node_data(data, cursor, true);
  EXPECT_EQ(n.type_id, GetParam().type_id);
  EXPECT_EQ(n.block, GetParam().block);
  EXPECT_EQ(n.offset, GetParam().offset);
  EXPECT_TRUE(n.name.empty());
}

INSTANTIATE_TEST_SUITE_P(Sizes, TruncatedRecord,
                         ::testing::Values(truncation_case{1, 0x11, 0, 0},
                                           truncation_case{2, 0x2211, 0, 0},
                                           truncation_case{3, 0x2211, 0x33, 0},
                                           truncation_case{6, 0x2211, 0x4433, 0x6655},
                                           truncation_case{8, 0x2211, 0x4433, 0x88776655},
                                           truncation_case{10, 0x2211, 0x4433, 0x88776655}));

}  // namespace
