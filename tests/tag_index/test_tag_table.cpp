#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "tag_index/tag_table.h"
#include "tag_index/temp_tag_file.h"
#include "wire/byte_cursor.h"

namespace {

constexpr uint32_t kOffset = 13;
// The tag count field sits after the skipped offset, 7 unused bytes and the wide flag.
constexpr std::size_t kCountPos = kOffset + 7 + 4;

std::vector<uint16_t> wide_units(const char* name) {
  std::vector<uint16_t> units;
  uint16_t unit;
  do {
    std::memcpy(&unit, name + 2 * units.size(), 2);
    units.push_back(unit);
  } while (unit != 0);
  return units;
}

void patch_u32(std::vector<unsigned char>& bytes, std::size_t pos, uint32_t value) {
  wire::bytes patch;
  wire::le_writer(patch).u32(value);
  std::copy(patch.begin(), patch.end(), bytes.begin() + static_cast<long>(pos));
}

class TagTableRead : public ::testing::Test {
 protected:
  temp_tag_file file;
  offline_CTagTable_578 tags;
};

TEST_F(TagTableRead, LoadsRecordsFromOffsetPlusSeven) {
  const std::vector<tag_file::record> records = {
      {"Motor.Speed", 7, 0x11223344, 0xA0B0C0D0}, {"", 0, 0, 1}, {"Line[2]", 255, 9, 8}};
  file.write_bytes(tag_file::encode(records, false, kOffset));
  ASSERT_EQ(tags.Read(file.path(), kOffset), 0);
  EXPECT_EQ(tags.wide_names, 0u);
  ASSERT_EQ(tags.tag_count, 3u);
  for (uint32_t i = 0; i < 3; ++i) {
    EXPECT_STREQ(tags.Get(i)->name, records[i].name.c_str());
    EXPECT_EQ(tags.Get(i)->file_kind, records[i].file_kind);
    EXPECT_EQ(tags.Get(i)->file_value1, records[i].file_value1);
    EXPECT_EQ(tags.Get(i)->file_value2, records[i].file_value2);
    EXPECT_EQ(tags.Get(i)->member_offset, 0u);
    EXPECT_EQ(tags.Get(i)->type_id, 0u);
  }
  EXPECT_EQ(tags.GetTagIndexfromName("Line[2]"), 2);
}

TEST_F(TagTableRead, WideNamesHoldSixteenBitCharactersAndAWideZero) {
  const std::vector<tag_file::record> records = {{"x"}, {"abc"}, {"\xF0\x9D\x84\x9E"}};
  const auto bytes = tag_file::encode(records, true);
  const std::size_t expected = 7 + 8 + (11 + 2) + (11 + 6) + (11 + 4);  // U+1D11E: 2 units
  ASSERT_EQ(bytes.size(), expected);
  file.write_bytes(bytes);
  ASSERT_EQ(tags.Read(file.path(), 0), 0);
  EXPECT_NE(tags.wide_names, 0u);
  EXPECT_EQ(wide_units(tags.Get(1)->name), (std::vector<uint16_t>{'a', 'b', 'c', 0}));
  EXPECT_EQ(wide_units(tags.Get(2)->name), (std::vector<uint16_t>{0xD834, 0xDD1E, 0}));
  // Lookups compare the bytes before the first zero byte, as strcmp does.
  EXPECT_EQ(tags.GetTagIndexfromName("a"), 1);
  EXPECT_EQ(tags.GetTagIndexfromName("abc"), 0);
}

TEST_F(TagTableRead, EmptyOrMissingFilesLeaveNoEntries) {
  file.write_bytes(tag_file::encode({}, false));
  ASSERT_EQ(tags.Read(file.path(), 0), 0);
  EXPECT_EQ(tags.tag_count, 0u);
  EXPECT_EQ(tags.entries, nullptr);
  EXPECT_EQ(tags.GetTagIndexfromName(""), 0);

  file.write_names({"a", "b"});
  ASSERT_EQ(tags.Read(file.path(), 0), 0);
  EXPECT_EQ(tags.Read("/nonexistent/dir/tags", 0), 0);
  EXPECT_EQ(tags.tag_count, 2u);               // a failed open leaves the table as it was
  EXPECT_EQ(tags.Read(file.path(), 1000), 0);  // start beyond the end of the file
  EXPECT_EQ(tags.tag_count, 0u);
}

TEST_F(TagTableRead, EveryTruncationLoadsAPrefixWithoutReadingPastTheEnd) {
  const std::vector<tag_file::record> records = {
      {"Conveyor.Speed", 1, 2, 3}, {"Conveyor.Mode", 4, 5, 6}, {"Alarm", 7, 8, 9}};
  const auto full = tag_file::encode(records, false);
  for (std::size_t size = 0; size <= full.size(); ++size) {
    file.write_bytes({full.begin(), full.begin() + static_cast<long>(size)});
    ASSERT_EQ(tags.Read(file.path(), 0), 0);
    ASSERT_LE(tags.tag_count, 3u);
    for (uint32_t i = 0; i < tags.tag_count; ++i) {
      const tag_entry& e = *tags.Get(i);
      ASSERT_NE(e.name, nullptr);
      EXPECT_EQ(records[i].name.compare(0, std::strlen(e.name), e.name), 0) << size;
      const bool whole = e.name == records[i].name && e.file_kind == records[i].file_kind &&
                         e.file_value1 == records[i].file_value1 &&
                         e.file_value2 == records[i].file_value2;
      const bool blank = e.file_kind == 0 && e.file_value1 == 0 && e.file_value2 == 0;
      EXPECT_TRUE(whole || blank) << size;
    }
    EXPECT_EQ(tags.tag_count == 3 && tags.Get(2)->file_value2 == 9, size == full.size());
    tags.Release();
  }
  // Cut inside the third record's length field: the count holds, the rest is empty.
  file.write_bytes({full.begin(), full.end() - 15});
  ASSERT_EQ(tags.Read(file.path(), 0), 0);
  ASSERT_EQ(tags.tag_count, 3u);
  EXPECT_STREQ(tags.Get(1)->name, "Conveyor.Mode");
  EXPECT_STREQ(tags.Get(2)->name, "");
  EXPECT_EQ(tags.Get(2)->file_value1, 0u);
}

TEST_F(TagTableRead, HostileCountsAndLengthsAreBoundedByTheFileSize) {
  auto bytes = tag_file::encode({{"Alpha.Beta.Gamma"}, {"Delta", 1, 2, 3}}, false);
  patch_u32(bytes, 7 + 4, 0xFFFFFFFF);
  file.write_bytes(bytes);
  ASSERT_EQ(tags.Read(file.path(), 0), 0);
  EXPECT_EQ(tags.tag_count, (bytes.size() - 15) / 11);
  EXPECT_STREQ(tags.Get(1)->name, "Delta");
  EXPECT_EQ(tags.Get(1)->file_value2, 3u);
  for (uint32_t i = 2; i < tags.tag_count; ++i) {
    EXPECT_STREQ(tags.Get(i)->name, "");
  }

  // The last name claims 65,535 characters: it keeps the bytes that are there.
  bytes = tag_file::encode({{"A"}, {"B", 1, 2, 3}}, false);
  bytes[7 + 8 + 12] = 0xFF;
  bytes[7 + 8 + 13] = 0xFF;
  file.write_bytes(bytes);
  ASSERT_EQ(tags.Read(file.path(), 0), 0);
  ASSERT_EQ(tags.tag_count, 2u);
  const char expected[] = {'B', 1, 2, 0, 0, 0, 3, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(tags.Get(1)->name, expected, sizeof expected), 0);
  EXPECT_EQ(tags.Get(1)->file_value1, 0u);
}

TEST_F(TagTableRead, LookupFindsTheFirstPositionTruncatedToSixteenBits) {
  std::vector<std::string> names = {"x", "a", "b", "a"};
  for (int i = 4; i < 65540; ++i) {
    names.push_back("t" + std::to_string(i));
  }
  file.write_names(names);
  ASSERT_EQ(tags.Read(file.path(), 0), 0);
  EXPECT_EQ(tags.GetTagIndexfromName("a"), 1);
  EXPECT_EQ(tags.GetTagIndexfromName("x"), 0);
  EXPECT_EQ(tags.GetTagIndexfromName("unknown"), 0);
  EXPECT_EQ(tags.GetTagIndexfromName("t65535"), 65535);
  EXPECT_EQ(tags.GetTagIndexfromName("t65537"), 1);
  tags.Release();
  EXPECT_EQ(tags.entries, nullptr);
  EXPECT_EQ(tags.GetTagIndexfromName("a"), 0);
  tags.Release();
}

TEST(TagFileEncode, RejectsNamesTheLengthFieldCannotHold) {
  EXPECT_THROW(tag_file::encode({{std::string(65536, 'x')}}, false), std::length_error);
  EXPECT_EQ(tag_file::encode({{std::string(65535, 'x')}}, false).size(), 7 + 8 + 11 + 65535u);
}

}  // namespace
