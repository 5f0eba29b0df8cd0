#include <gtest/gtest.h>

#include <boost/lexical_cast.hpp>
#include <stdexcept>

#include "tag_index/tag_names.h"

namespace {

std::string z(const std::string& text) {
  return text + '\0';
}

TEST(ParseArrayIndices, ReadsSignedNumbersSkippingEmptyTokens) {
  const std::pair<std::string, std::vector<int>> cases[] = {{"", {}},
                                                            {"2,,3", {2, 3}},
                                                            {"-1", {-1}},
                                                            {"1 ,, 2", {1, 2}},
                                                            {"+7", {7}},
                                                            {"2147483647", {2147483647}},
                                                            {"-2147483648", {-2147483647 - 1}}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(parse_array_indices(text), expected) << text;
  }
}

TEST(ParseArrayIndices, RejectsTokensThatAreNotPlainIntegers) {
  for (const char* text : {"2147483648", "1a", "0x10", "1.5", "-", "3,x"}) {
    EXPECT_THROW(parse_array_indices(text), boost::bad_lexical_cast) << text;
  }
}

TEST(ParseArrayIndicesFromSubscript, TakesOnlyTheLastBracketGroup) {
  const std::pair<std::string, std::vector<int>> cases[] = {
      {z("Recipe"), {}},   {z("Recipe[3]"), {3}}, {z("M[1, 2]"), {1, 2}},
      {z("a[1][2]"), {2}}, {z("a[]"), {}},        {z("12]"), {12}}};
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(pares_array_indices_from_subscript(name), expected) << name;
  }
  // Without '[' the whole text before ']' is read as numbers.
  EXPECT_THROW(pares_array_indices_from_subscript(z("ab]")), boost::bad_lexical_cast);
  EXPECT_THROW(pares_array_indices_from_subscript(z("")), std::out_of_range);
}

TEST(RemoveArrayIndex, StripsOnlyASingleTrailingGroup) {
  const std::pair<std::string, std::string> cases[] = {
      {z("Recipe"), z("Recipe")}, {z("Recipe[3]"), z("Recipe")}, {z("a[1][2]"), z("a[1][2]")},
      {z("a.b[3]"), z("a.b")},    {z("a[1].b"), z("a[1].b")},    {z("a[1].b[2]"), z("a[1].b[2]")}};
  for (auto [name, expected] : cases) {
    remove_array_index(name);
    EXPECT_EQ(name, expected);
  }
}

TEST(RemoveLastArraySymbol, CutsAsManyCharactersAsTheClosingBracketPosition) {
  const std::pair<std::string, std::string> cases[] = {
      {"abc[12]", "abc"}, {"a[1].b[2]", "a[1].b"}, {"ab[1]cd", "abd"}, {"[3]", "]"},
      {"abc", "abc"},     {"abc]", "abc]"},        {"a[b", "a[b"}};
  for (const auto& [name, expected] : cases) {
    EXPECT_EQ(RemoveLastArraySymbol(name), expected) << name;
  }
}

struct override_case {
  const char* source;
  unsigned short index;
  unsigned char kind;
  unsigned int result;
  const char* target;  // checked only when result is 1
};

TEST(OverrideTagNameForNewArrayIndex, RewritesTheLastSubscript) {
  const override_case cases[] = {{"Bits[2]", 96, 211, 1, "Bits[3]"},
                                 {"Bits[2]", 64, 211, 0, ""},
                                 {"Bits", 31, 211, 0, ""},
                                 {"A[]", 3, 0, 1, "A[3]"},
                                 {"Tag", 4, 0, 1, "Tag[4]"},
                                 {"Tag", 0, 0, 0, ""},
                                 {"Matrix[1,2]", 5, 0, 1, "Matrix[1,5]"},
                                 {"M[1, 2]", 3, 0, 1, "M[1, 3]"},
                                 {"Alarm[7]", 9, 0, 1, "Alarm[9]"},
                                 {"Alarm[7]", 7, 0, 0, ""},
                                 {"x[abc]", 0, 0, 0, ""},
                                 {"x[abc]", 5, 0, 1, "x[5]"},
                                 {"T[-1]", 65535, 0, 0, ""},
                                 {"R[3].v", 2, 0, 1, "R[3].v[2]"},
                                 {"]", 2, 0, 1, "2]"},
                                 {"12]", 3, 0, 1, "3]"}};
  for (const override_case& c : cases) {
    char target[64] = {};
    EXPECT_EQ(tag_plc_tools_function_578::OverrideTagNameForNewArrayIndex(c.source, target, c.index,
                                                                          c.kind),
              c.result)
        << c.source << " " << c.index;
    if (c.result == 1) {
      EXPECT_STREQ(target, c.target);
    }
  }
}

}  // namespace
