#include <gtest/gtest.h>

#include <string>

#include "tests/support/unity_reply.h"
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
  cursor = record_start;  // unnamed: 8 bytes
  EXPECT_TRUE(get_next_node_data(data, cursor, false).name.empty());
  EXPECT_EQ(cursor, record_start + 8);
}

TEST(GetNextNodeData, LongNameIsCutAndNextRecordStartsInsideIt) {
  // 34 characters are taken, the 35th closes the name; the cursor stays inside the name.
  bytes data = harness::hex("0100 0200 03000000 CCCC");
  const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKL";
  data.insert(data.end(), letters.begin(), letters.end());
  data.push_back(0);
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

// A record cut after size bytes is filled as far as it goes, its name left empty.
TEST(GetNextNodeData, TruncatedRecordIsPartlyFilledWithoutReadingPastTheEnd) {
  struct truncation_case {
    std::size_t size;
    uint16_t type_id, block;
    uint32_t offset;
  };
  const truncation_case cases[] = {{1, 0x11, 0, 0},
                                   {2, 0x2211, 0, 0},
                                   {3, 0x2211, 0x33, 0},
                                   {6, 0x2211, 0x4433, 0x6655},
                                   {8, 0x2211, 0x4433, 0x88776655},
                                   {10, 0x2211, 0x4433, 0x88776655}};
  const bytes full = harness::hex("1122 3344 55667788 CCCC 5A00");
  for (const truncation_case& c : cases) {
    const bytes data(full.begin(), full.begin() + static_cast<long>(c.size));
    unsigned short cursor = 0;
    const node n = get_next_node_data(data, cursor, true);
    EXPECT_EQ(n.type_id, c.type_id) << c.size;
    EXPECT_EQ(n.block, c.block) << c.size;
    EXPECT_EQ(n.offset, c.offset) << c.size;
    EXPECT_TRUE(n.name.empty()) << c.size;
  }
}

}  // namespace
