#include <gtest/gtest.h>

#include <map>

#include "tag_index/tag_record.h"

namespace {

offline_stTag_578 tag(uint32_t index, uint16_t word, uint8_t byte, int8_t bit, const char* name) {
  offline_stTag_578 t;
  t.request_index = index;
  t.request_word = word;
  t.request_byte = byte;
  t.bit_number = bit;
  t.name = name;
  return t;
}

TEST(OfflineStTag578, OrdersByIndexWordByteBitThenName) {
  struct ordered_pair {
    offline_stTag_578 lower, higher;
  };
  const ordered_pair cases[] = {
      {tag(0x80000000u, 0, 0, -1, "a"), tag(1, 0, 0, -1, "a")},  // index is signed
      {tag(1, 9, 9, 9, "z"), tag(2, 0, 0, -1, "a")},
      {tag(1, 1, 9, 9, "z"), tag(1, 2, 0, -1, "a")},
      {tag(1, 1, 1, 9, "z"), tag(1, 1, 2, -1, "a")},
      {tag(1, 1, 1, -1, "z"), tag(1, 1, 1, 0, "a")},  // bit is signed
      {tag(1, 1, 1, 3, "a"), tag(1, 1, 1, 3, "b")},
      {tag(1, 1, 1, 3, nullptr), tag(1, 1, 1, 3, "b")}};
  for (const ordered_pair& c : cases) {
    EXPECT_TRUE(c.lower < c.higher);
    EXPECT_FALSE(c.higher < c.lower);
  }
}

TEST(OfflineStTag578, EqualRecordsShareOneMapKey) {
  std::map<offline_stTag_578, unsigned long long> values;
  const std::string copy = "Motor";
  values[tag(4, 2, 195, -1, "Motor")] = 1;
  values[tag(4, 2, 195, -1, copy.c_str())] = 2;  // same text, other pointer
  values[tag(4, 2, 195, -1, nullptr)] = 3;
  values[tag(4, 2, 195, -1, "")] = 4;  // a null name compares as ""
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values.at(tag(4, 2, 195, -1, "Motor")), 2u);
  EXPECT_EQ(values.at(tag(4, 2, 195, -1, nullptr)), 4u);
}

}  // namespace
