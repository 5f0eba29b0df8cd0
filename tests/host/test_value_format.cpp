#include <gtest/gtest.h>

#include "tools/host/value_format.h"
#include "unitydrv/unitydrv.h"

using namespace panelhost;

namespace {

struct format_case {
  uint8_t code;
  std::vector<uint16_t> units;
  std::size_t count;
  std::string text;
};
void PrintTo(const format_case& c, std::ostream* os) {
  *os << int(c.code) << " as " << c.text;
}

class FormatValue : public ::testing::TestWithParam<format_case> {};

TEST_P(FormatValue, DecodesUnitsByType) {
  const format_case& c = GetParam();
  EXPECT_EQ(format_value(c.code, c.units, c.count), c.text);
}

INSTANTIATE_TEST_SUITE_P(
    Types, FormatValue,
    ::testing::Values(
        format_case{UNITYDRV_TYPE_INT, {0xFFD6}, 1, "-42"},
        format_case{UNITYDRV_TYPE_INT, {0x8000}, 1, "-32768"},
        format_case{UNITYDRV_TYPE_UINT, {0xFFD6}, 1, "65494"},
        format_case{UNITYDRV_TYPE_SINT, {0x00FF}, 1, "-1"},
        format_case{UNITYDRV_TYPE_USINT, {0x00FF}, 1, "255"},
        // Low unit first, as the driver copies little-endian bytes into the units.
        format_case{UNITYDRV_TYPE_DINT, {0xFFFE, 0xFFFF}, 1, "-2"},
        format_case{UNITYDRV_TYPE_UDINT, {0x5E00, 0xB2D0}, 1, "3000000000"},
        format_case{UNITYDRV_TYPE_DWORD, {0x0001, 0x8000}, 1, "16#80000001"},
        format_case{UNITYDRV_TYPE_WORD, {0x0018}, 1, "16#0018"},
        format_case{UNITYDRV_TYPE_REAL, {0x0000, 0xC1AC}, 1, "-21.5"},
        format_case{UNITYDRV_TYPE_LREAL, {0, 0, 0, 0x3FF8}, 1, "1.5"},
        format_case{UNITYDRV_TYPE_LINT, {0xFFFB, 0xFFFF, 0xFFFF, 0xFFFF}, 1, "-5"},
        format_case{UNITYDRV_TYPE_LINT, {0x04CB, 0x71FB, 0x011F, 0}, 1, "1234567890123"},
        format_case{
            UNITYDRV_TYPE_ULINT, {0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF}, 1, "18446744073709551615"},
        // One character per unit, in its low byte; the text ends at the first zero.
        format_case{UNITYDRV_TYPE_STRING, {'P', 'L', 0x4100 | 'A', 0, 'X'}, 5, "\"PLA\""},
        format_case{UNITYDRV_TYPE_STRING, {'a', 'b'}, 2, "\"ab\""},
        format_case{UNITYDRV_TYPE_BOOL, {1}, 1, "TRUE"},
        format_case{UNITYDRV_TYPE_BOOL, {0}, 1, "FALSE"},
        format_case{UNITYDRV_TYPE_BOOL, {1, 0, 1}, 3, "1 0 1"},
        format_case{UNITYDRV_TYPE_INT, {1, 0xFFFF, 3}, 3, "[1, -1, 3]"},
        format_case{UNITYDRV_TYPE_DINT, {1, 0, 2, 0}, 2, "[1, 2]"}));

TEST(FormatBits, SetUnitsPrintAsOne) {
  EXPECT_EQ(format_bits({65535, 65535, 0, 0}, 4), "1 1 0 0");
}

TEST(FormatValue, TooFewUnitsForTheTypeIsAnError) {
  EXPECT_THROW(format_value(UNITYDRV_TYPE_DINT, {1}, 1), std::out_of_range);
}

struct encode_case {
  uint8_t code;
  std::string text;
  std::vector<uint16_t> words;
};
void PrintTo(const encode_case& c, std::ostream* os) {
  *os << int(c.code) << " from " << c.text;
}

class EncodeValue : public ::testing::TestWithParam<encode_case> {};

TEST_P(EncodeValue, GivesTheWriteWords) {
  const encode_case& c = GetParam();
  EXPECT_EQ(encode_value(c.code, c.text).words, c.words);
}

INSTANTIATE_TEST_SUITE_P(
    Types, EncodeValue,
    ::testing::Values(encode_case{UNITYDRV_TYPE_INT, "-42", {0xFFD6}},
                      encode_case{UNITYDRV_TYPE_INT, "+7", {7}},
                      encode_case{UNITYDRV_TYPE_UINT, "65535", {0xFFFF}},
                      encode_case{UNITYDRV_TYPE_WORD, "16#BEEF", {0xBEEF}},
                      encode_case{UNITYDRV_TYPE_WORD, "0x10", {0x10}},
                      encode_case{UNITYDRV_TYPE_SINT, "-1", {0xFF}},
                      encode_case{UNITYDRV_TYPE_DINT, "-2", {0xFFFE, 0xFFFF}},
                      encode_case{UNITYDRV_TYPE_UDINT, "3000000000", {0x5E00, 0xB2D0}},
                      encode_case{UNITYDRV_TYPE_REAL, "1450", {0x4000, 0x44B5}},
                      encode_case{UNITYDRV_TYPE_LREAL, "1.5", {0, 0, 0, 0x3FF8}},
                      encode_case{UNITYDRV_TYPE_LINT, "-5", {0xFFFB, 0xFFFF, 0xFFFF, 0xFFFF}},
                      // Two characters per word, low byte first, with a terminating zero.
                      encode_case{UNITYDRV_TYPE_STRING, "abc", {0x6261, 0x0063}},
                      encode_case{UNITYDRV_TYPE_STRING, "ab", {0x6261, 0x0000}}));

TEST(EncodeValue, StringIsPaddedToItsDeclaredLength) {
  EXPECT_EQ(encode_value(UNITYDRV_TYPE_STRING, "ab", 6).words,
            (std::vector<uint16_t>{0x6261, 0, 0}));
  EXPECT_THROW(encode_value(UNITYDRV_TYPE_STRING, "abcdefg", 6), bad_value);
}

TEST(EncodeValue, BitsGoInTheBitValue) {
  for (const char* on : {"1", "TRUE", "true", "On"}) {
    EXPECT_EQ(encode_value(UNITYDRV_TYPE_BOOL, on).bit_value, 1) << on;
  }
  for (const char* off : {"0", "FALSE", "off"}) {
    EXPECT_EQ(encode_value(UNITYDRV_TYPE_BITARRAY, off).bit_value, 0) << off;
  }
  EXPECT_TRUE(encode_value(UNITYDRV_TYPE_BOOL, "1").words.empty());
}

struct bad_case {
  uint8_t code;
  std::string text;
};
void PrintTo(const bad_case& c, std::ostream* os) {
  *os << int(c.code) << " refuses '" << c.text << "'";
}

class RejectValue : public ::testing::TestWithParam<bad_case> {};

TEST_P(RejectValue, ThrowsBadValue) {
  EXPECT_THROW(encode_value(GetParam().code, GetParam().text), bad_value);
}

INSTANTIATE_TEST_SUITE_P(
    Types, RejectValue,
    ::testing::Values(bad_case{UNITYDRV_TYPE_INT, "32768"}, bad_case{UNITYDRV_TYPE_INT, "-32769"},
                      bad_case{UNITYDRV_TYPE_INT, "1.5"}, bad_case{UNITYDRV_TYPE_INT, ""},
                      bad_case{UNITYDRV_TYPE_INT, "12abc"}, bad_case{UNITYDRV_TYPE_INT, " 1"},
                      bad_case{UNITYDRV_TYPE_UINT, "-1"}, bad_case{UNITYDRV_TYPE_SINT, "128"},
                      bad_case{UNITYDRV_TYPE_USINT, "256"}, bad_case{UNITYDRV_TYPE_WORD, "16#-1"},
                      bad_case{UNITYDRV_TYPE_UDINT, "4294967296"},
                      bad_case{UNITYDRV_TYPE_REAL, "1e39"}, bad_case{UNITYDRV_TYPE_REAL, "nan"},
                      bad_case{UNITYDRV_TYPE_REAL, "abc"}, bad_case{UNITYDRV_TYPE_LREAL, "1.0x"},
                      bad_case{UNITYDRV_TYPE_BOOL, "2"}, bad_case{UNITYDRV_TYPE_BOOL, "yes"},
                      bad_case{99, "1"}));

}  // namespace
