// Guarded mode's verdict on tag names: which names it refuses, and why, against a
// dictionary of a structure, an ARRAY[1..3] of it, an ARRAY[1..8] OF INT and a STRING[20].
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "guard/guard.h"
#include "tag_index/guarded_index.h"
#include "tests/support/dictionary_builders.h"

namespace {

using dictionary_builders::member;
using dictionary_builders::variable;

struct dictionary {
  std::map<std::string, table> tables;
  std::map<unsigned short, std::vector<data_type>> structs;
  std::map<unsigned short, data_type> types;

  dictionary() {
    // PUMP: Speed REAL at 0, Mode INT at 6, Starts UDINT at 8: 12 bytes.
    structs[100] = {member("Speed", 8, 0), member("Mode", 4, 6), member("Starts", 7, 8)};
    types[100].name = std::string("PUMP") + '\0';
    array(101, 100, 1, 3);  // ARRAY[1..3] OF PUMP, sharing the member list
    structs[101] = structs[100];
    array(102, 4, 1, 8);  // ARRAY[1..8] OF INT
    types[103].name = std::string("STRING[20]") + '\0';
    types[103].element_type = 9;
    tables[std::string("Pumps") + '\0'] = variable(101, 1, 0);
    tables[std::string("Levels") + '\0'] = variable(102, 1, 36);
    tables[std::string("Label") + '\0'] = variable(103, 1, 52);
    tables[std::string("Counter") + '\0'] = variable(4, 1, 72);
  }

  // Bounds as the download stores them: the dimension count, the low bound, the high bound
  // without its top byte.
  void array(unsigned short id, unsigned short element, int32_t low, int32_t high) {
    data_type& t = types[id];
    t.element_type = element;
    t.bounds = {1};
    for (int32_t bound : {low, high}) {
      for (int k = 0; k < 4; ++k) t.bounds.push_back(static_cast<unsigned char>(bound >> (8 * k)));
    }
    t.bounds.pop_back();
  }
};

struct name_case {
  const char* name;
  uint64_t member_offset;  // where the index build placed it
  uint8_t refusal;
  uint32_t extent;
  uint32_t element;
};

TEST(GuardedIndex, JudgesEachNameAgainstTheDictionary) {
  const dictionary d;
  const ::dictionary::type_sizes sizes(d.structs, d.types);
  const name_case cases[] = {
      {"Counter", 0, guard::served, 2, 0},
      {"Pumps[2].Speed", 24, guard::served, 4, 0},  // counted from 0: the third element
      {"Pumps[0].Starts", 8, guard::served, 4, 0},
      {"Pumps[3].Speed", 36, guard::subscript_outside, 0, 0},
      {"Pumps[-1].Speed", 0, guard::subscript_outside, 0, 0},
      {"Pumps.Speed", 0, guard::needs_subscript, 0, 0},
      {"Pumps[1]", 0, guard::names_a_structure, 0, 0},
      {"Pumps", 0, guard::names_a_structure, 0, 0},
      {"Pumps[1].Nope", 0, guard::unknown_member, 0, 0},
      {"Pumps[1].Speed.X", 12, guard::member_of_value, 0, 0},
      {"Pumps[x].Speed", 0, guard::malformed_name, 0, 0},
      {"Pumps[1][2].Speed", 0, guard::malformed_name, 0, 0},
      {"Pumps[1,2].Speed", 0, guard::malformed_name, 0, 0},
      {"Pumps..Speed", 0, guard::malformed_name, 0, 0},
      {"Nope", 0, guard::unknown_variable, 0, 0},
      {"Levels", 0, guard::served, 16, 0},
      {"Levels[3]", 0, guard::served, 16, 3},  // declared subscript 3: array_index 2
      {"Levels[1]", 0, guard::served, 16, 1},
      {"Levels[0]", 0, guard::subscript_outside, 0, 0},
      {"Levels[9]", 0, guard::subscript_outside, 0, 0},
      {"Counter[5]", 0, guard::subscript_on_value, 0, 0},
      {"Counter.X", 0, guard::member_of_value, 0, 0},
      {"Label", 0, guard::served, 20, 0},
  };
  for (const name_case& c : cases) {
    SCOPED_TRACE(c.name);
    const guarded_index::verdict v =
        guarded_index::judge_name(c.name, c.member_offset, d.tables, sizes);
    EXPECT_EQ(int{v.refusal}, int{c.refusal}) << guard::reason_text(v.refusal);
    if (c.refusal == guard::served) {
      EXPECT_EQ(v.extent, c.extent);
      EXPECT_EQ(v.element, c.element);
    }
  }
}

TEST(GuardedIndex, RefusesAnItemPlacedOutsideItsVariable) {
  const dictionary d;
  const ::dictionary::type_sizes sizes(d.structs, d.types);
  EXPECT_EQ(sizes.size_of(101), 36u);
  // A placement the build computed past the three pumps' 36 bytes.
  EXPECT_EQ(guarded_index::judge_name("Pumps[2].Starts", 40, d.tables, sizes).refusal,
            guard::outside_variable);
}

}  // namespace
