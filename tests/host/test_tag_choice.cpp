#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "tools/common/tag_file_writer.h"
#include "tools/host/plc_type.h"
#include "tools/host/tag_choice.h"
#include "tools/host/tag_file_reader.h"
#include "unitydrv/unitydrv.h"

using namespace panelhost;

namespace {

TEST(ParseTagChoice, NameWithOptionalTypeAndCount) {
  tag_choice plain = parse_tag_choice("  Motor1.Speed \r");
  EXPECT_EQ(plain.name, "Motor1.Speed");
  EXPECT_EQ(plain.type.code, 0);

  tag_choice typed = parse_tag_choice("Line[2].Speed:real");
  EXPECT_EQ(typed.name, "Line[2].Speed");
  EXPECT_EQ(typed.type.code, UNITYDRV_TYPE_REAL);
  EXPECT_EQ(typed.type.count, 0);

  tag_choice text = parse_tag_choice("Name : STRING[20]");
  EXPECT_EQ(text.name, "Name");
  EXPECT_EQ(text.type.code, UNITYDRV_TYPE_STRING);
  EXPECT_EQ(text.type.count, 20);

  EXPECT_EQ(parse_tag_choice("X:195").type.code, UNITYDRV_TYPE_INT);
}

TEST(ParseTagChoice, RejectsBadTypesAndMissingNames) {
  for (const char* bad :
       {"X:FLOAT", "X:INT[0]", "X:INT[", "X:INT[3x]", ":INT", "X:196x", "X:300"}) {
    EXPECT_THROW(parse_tag_choice(bad), std::invalid_argument) << bad;
  }
}

TEST(ParseAssignment, SplitsAtTheFirstEquals) {
  EXPECT_EQ(parse_assignment("Name=a=b"), (std::pair<std::string, std::string>{"Name", "a=b"}));
  EXPECT_EQ(parse_assignment("Line[2].Speed=1.5").first, "Line[2].Speed");
  EXPECT_EQ(parse_assignment("Msg=").second, "");
  EXPECT_THROW(parse_assignment("Counter"), std::invalid_argument);
  EXPECT_THROW(parse_assignment("=5"), std::invalid_argument);
}

}  // namespace

namespace {

std::string file_of(const std::vector<tag_file::record>& records, bool wide, uint32_t offset = 0) {
  const auto bytes = tag_file::encode(records, wide, offset);
  return std::string(bytes.begin(), bytes.end());
}

TEST(TagFileNames, WideAndOffsetFilesReadBack) {
  const std::vector<tag_file::record> records = {{"Motor1.Speed"}, {"Temp\xC3\xA9rature"}};
  for (const bool wide : {false, true}) {
    const auto names = parse_tag_names("f", file_of(records, wide, 5), 5);
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[1], "Temp\xC3\xA9rature") << wide;
  }
}

struct implausible_case {
  std::string bytes;
  const char* message_part;
};

// Text lists and garbage read as odd tables with exit 0 before the checks.
TEST(TagFileNames, ImplausibleFilesAreRefused) {
  const std::string good = file_of({{"AB"}}, false);
  std::string unprintable = good;
  unprintable[17] = '\x01';
  std::string zero_length = good;
  zero_length[15] = 0;
  const implausible_case cases[] = {
      {"Counter:INT\nLevels\n", "it is text: pass a tag list with --list"},
      {good.substr(0, 12), "too short"},
      {good.substr(0, 24), "announces 1 tags"},
      {good + "x", "1 bytes follow the last of its 1 tags"},
      {unprintable, "unprintable character"},
      {zero_length, "impossible name length 0"},
      {std::string(7, '\0') + std::string("\x02\0\0\0\0\0\0\0", 8), "name-width field reads 2"},
  };
  for (const implausible_case& c : cases) {
    try {
      parse_tag_names("f", c.bytes, 0);
      ADD_FAILURE() << "accepted: " << c.message_part;
    } catch (const std::runtime_error& e) {
      EXPECT_NE(std::string(e.what()).find(c.message_part), std::string::npos) << e.what();
    }
  }
}

}  // namespace
