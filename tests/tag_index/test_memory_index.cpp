#include <gtest/gtest.h>

#include <boost/lexical_cast.hpp>
#include <stdexcept>

#include "tag_index/tag_table.h"
#include "tag_index/temp_tag_file.h"
#include "tests/support/dictionary_builders.h"
#include "dictionary/dictionary_records.h"
#include "wire/byte_cursor.h"

namespace {

using dictionary_builders::member;
using dictionary_builders::variable;

using member_map = std::map<unsigned short, std::vector<data_type>>;

constexpr uint16_t kInt = 4;     // format 2: 2 bytes
constexpr uint16_t kDint = 6;    // format 3: 4 bytes
constexpr uint16_t kType9 = 9;   // no format, 16 bytes
constexpr uint16_t kNoSize = 2;  // no format, no size

std::array<unsigned char, 6> location_of(const table& t) {
  std::array<unsigned char, 6> a{};
  std::copy(t.location.begin(), t.location.end(), a.begin());
  return a;
}

unsigned int block_size(member_map members, unsigned short type, unsigned int size = 0) {
  calculate_block_size(members, type, size);
  return size;
}

TEST(CalculateBlockSize, AddsTheLastMembersOffsetAndElementSize) {
  const std::pair<data_type, unsigned int> cases[] = {
      {member("i", kInt, 4), 6},  {member("t9", kType9, 8), 24}, {member("u", kNoSize, 10), 10},
      {member("d", kDint, 4), 8}, {member("l", 16, 0), 8},       {member("b", 1, 3), 4},
      {member("s", 25, 5), 6}};
  for (const auto& [last, expected] : cases) {
    EXPECT_EQ(block_size({{100, {member("first", kDint, 0), last}}}, 100), expected) << last.name;
  }
  EXPECT_EQ(block_size({{100, {member("i", kInt, 4)}}}, 100, 30), 32u);  // accumulator kept
  EXPECT_EQ(block_size({{100, {member("i", kInt, 4)}}}, 101, 30), 30u);  // not a structure
}

TEST(CalculateBlockSize, NestedLastStructureAddsItsOffsetButNotTheInnerOffset) {
  const member_map members = {{100, {member("a", kInt, 0), member("inner", 101, 8)}},
                              {101, {member("x", kInt, 0), member("y", kInt, 6)}}};
  EXPECT_EQ(block_size(members, 100), 8u + 2u);
  // A last member whose structure type has a direct format ends the walk unchanged.
  EXPECT_EQ(block_size({{100, {member("d", kDint, 4)}}, {kDint, {member("x", kInt, 0)}}}, 100), 0u);
}

TEST(CalculateBlockSize, CyclicStructureTypesTerminate) {
  // Regression: a dictionary whose last members form a type cycle recursed for ever.
  EXPECT_EQ(block_size({{100, {member("next", 101, 4)}}, {101, {member("back", 100, 8)}}}, 100),
            4u);
  EXPECT_EQ(block_size({{100, {member("self", 100, 6)}}}, 100), 0u);
}

TEST(CalculateBlockSize, MalformedMemberListsThrow) {
  data_type no_bounds = member("x", kInt, 0);
  no_bounds.bounds.clear();
  data_type no_offset = member("x", kInt, 0);
  no_offset.member_offset_bytes.clear();
  for (const member_map& members :
       {member_map{{100, {}}}, member_map{{100, {no_bounds}}}, member_map{{100, {no_offset}}}}) {
    EXPECT_THROW(block_size(members, 100), std::out_of_range);
  }
}

class SetupMemoryIndex : public ::testing::Test {
 protected:
  SetupMemoryIndex() {
    tables[name("Motor")] = variable(100, 3, 0x10);
    tables[name("Line")] = variable(101, 4, 0x200);
    tables[name("A")] = variable(102, 5, 0x40);
    tables[name("Counter")] = variable(kDint, 6, 0x80);
    members[100] = {member("Mode", kInt, 0), member("Speed", kDint, 12)};
    members[101] = {member("Speed", kInt, 4), member("Pad", kInt, 18)};  // block size 20
    members[102] = {member("B", 103, 8), member("Raw", 200, 20)};
    members[103] = {member("Y", kInt, 0), member("Z", kInt, 2), member("W", kInt, 4)};  // 6
  }

  static std::string name(const std::string& text) { return text + '\0'; }

  int resolve(const std::vector<std::string>& names, bool wide = false) {
    file.write_names(names, wide);
    EXPECT_EQ(tags.Read(file.path(), 0), 0);
    return tags.setup_memory_index(tables, members, {});
  }

  void expect_member(uint32_t index, const char* variable_name, uint64_t offset, uint16_t type) {
    const tag_entry& e = *tags.Get(index);
    EXPECT_EQ(e.member_offset, offset) << e.name;
    EXPECT_EQ(e.type_id, type) << e.name;
    const uint32_t format = type == kInt ? 2 : type == kDint ? 3 : 255;  // 200: no format
    EXPECT_EQ(e.read_format, format) << e.name;
    EXPECT_EQ(e.location, location_of(tables.at(name(variable_name)))) << e.name;
  }

  temp_tag_file file;
  offline_CTagTable_578 tags;
  std::map<std::string, table> tables;
  member_map members;
};

TEST_F(SetupMemoryIndex, ResolvesMemberPathsToVariableLocationAndOffset) {
  EXPECT_EQ(resolve({"Motor.Speed", "Line[2].Speed", "A.B.Z", "A.B[3].Z", "Counter[5]",
                     "Motor.bad.Speed", "Line[2,7].Speed", "Line[2].Speed[3]", "A.Raw"}),
            1);
  expect_member(0, "Motor", 12, kDint);
  expect_member(1, "Line", 4 + 20 * 2, kInt);
  expect_member(2, "A", 8 + 2, kInt);
  expect_member(3, "A", 8 + 6 * 3 + 2, kInt);
  expect_member(4, "Counter", 0, kDint);
  expect_member(5, "Motor", 12, kDint);  // an unknown member is skipped
  expect_member(6, "Line", 44, kInt);    // only the first number counts
  expect_member(7, "Line", 44, kInt);    // a subscript on an elementary member is ignored
  expect_member(8, "A", 20, 200);        // a type without members is stored as is
}

TEST_F(SetupMemoryIndex, NegativeVariableIndexWrapsIn32BitsThenCarriesInto64) {
  resolve({"Line[-1].Speed"});
  EXPECT_EQ(tags.Get(0)->member_offset, 4u + (0x100000000ull - 20u));
}

TEST_F(SetupMemoryIndex, UnresolvedTagsKeepZeroLocationAndCountAsNothing) {
  // A.B ends in a structure, Counter.x has no members, Nope is not in the dictionary.
  EXPECT_EQ(resolve({"A.B", "Counter.x", "Nope", "Motor.Speed.x.y"}), 1);
  const tag_entry& path_to_structure = *tags.Get(0);
  EXPECT_EQ(path_to_structure.read_format, 255u);
  EXPECT_EQ(path_to_structure.type_id, 103);
  EXPECT_EQ(path_to_structure.location, (std::array<unsigned char, 6>{}));
  EXPECT_EQ(tags.Get(2)->location, (std::array<unsigned char, 6>{}));
  expect_member(3, "Motor", 12, kDint);
  EXPECT_EQ(resolve({"A.B", "Counter.x", "Nope"}), 0);
  EXPECT_EQ(tags.setup_memory_index(tables, members, {}), 0);
  EXPECT_EQ(resolve({}), 0);  // an empty table
}

TEST_F(SetupMemoryIndex, RunningAgainClearsEarlierLocations) {
  ASSERT_EQ(resolve({"Motor.Speed"}), 1);
  tables.erase(name("Motor"));
  EXPECT_EQ(tags.setup_memory_index(tables, members, {}), 0);
  EXPECT_EQ(tags.Get(0)->member_offset, 0u);
  EXPECT_EQ(tags.Get(0)->location, (std::array<unsigned char, 6>{}));
}

TEST_F(SetupMemoryIndex, WideNamesResolveByTheirFirstByte) {
  tables[name("M")] = variable(kInt, 9, 2);
  EXPECT_EQ(resolve({"Motor.Speed"}, true), 1);
  expect_member(0, "M", 0, kInt);
}

TEST_F(SetupMemoryIndex, MalformedNamesAbandonTheRunAndKeepEarlierResults) {
  const std::vector<std::string> out_of_range = {"", ".Speed", "Motor.", "Motor..Speed"};
  for (const std::string& bad : out_of_range) {
    EXPECT_THROW(resolve({"Motor.Speed", bad, "Counter"}), std::out_of_range) << bad;
    expect_member(0, "Motor", 12, kDint);
    EXPECT_EQ(tags.Get(2)->type_id, 0) << bad;
  }
  for (const char* bad : {"Line[x].Speed", "A.B[1a].Z", "Motor[2147483648].Speed"}) {
    EXPECT_THROW(resolve({bad}), boost::bad_lexical_cast) << bad;
  }
}

TEST_F(SetupMemoryIndex, MalformedDictionaryRecordsThrowOutOfRange) {
  tables[name("Empty")] = table{};
  EXPECT_THROW(resolve({"Empty"}), std::out_of_range);
  members[100][1].member_offset_bytes.clear();
  EXPECT_THROW(resolve({"Motor.Speed"}), std::out_of_range);
}

}  // namespace
