#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "driver/description_tables.h"

namespace {

uint16_t u16_at(const unsigned char* p, std::size_t off) {
  return static_cast<uint16_t>(p[off] | p[off + 1] << 8);
}

TEST(Attributes, NameIsCutAtFiftyAndNumbersFollow) {
  std::vector<unsigned char> buf(100, 0xFF);
  description::fill_attributes(reinterpret_cast<unitydrv_attributes*>(buf.data()));

  EXPECT_EQ(std::string(reinterpret_cast<char*>(buf.data()), 50),
            "Schneider M340/M580 series (Symbolic Addressing) (");
  const std::pair<std::size_t, uint16_t> numbers[] = {{50, 171}, {52, 578}, {56, 200}, {58, 0},
                                                      {60, 0},   {68, 0},   {70, 1},   {74, 271},
                                                      {76, 0},   {78, 37},  {80, 0}};
  for (auto [off, value] : numbers) EXPECT_EQ(u16_at(buf.data(), off), value) << "offset " << off;
  EXPECT_EQ(buf[54], 0);
  EXPECT_EQ(buf[55], 'n');  // the literal's character survives between the numbers
  for (std::size_t i : {62, 63, 64, 65, 66, 67, 72, 73}) EXPECT_EQ(buf[i], 0xFF) << "byte " << i;
  for (std::size_t i = 82; i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xFF) << "byte " << i;
}

TEST(AddressTypes, SeventeenRowsByteForByte) {
  struct row {
    const char* fields[9];
  };
  const row expected[] = {
      {{"B", "BOOL", "193", "D", "W", "0", "W", "0", "0"}},
      {{"B", "BitArray", "211", "D", "W", "0", "W", "0", "0"}},
      {{"W", "SINT", "194", "D", "W", "0", "W", "0", "0"}},
      {{"W", "INT", "195", "D", "W", "0", "W", "0", "0"}},
      {{"W", "DINT", "196", "D", "D", "0", "W", "0", "0"}},
      {{"W", "REAL", "202", "D", "D", "0", "W", "0", "0"}},
      {{"W", "BYTE", "2", "D", "W", "0", "W", "0", "0"}},
      {{"W", "UDINT", "6", "D", "D", "0", "W", "0", "0"}},
      {{"W", "WORD", "3", "D", "W", "0", "W", "0", "0"}},
      {{"W", "DWORD", "4", "D", "D", "0", "W", "0", "0"}},
      {{"W", "UINT", "11", "D", "W", "0", "W", "0", "0"}},
      {{"W", "USINT", "12", "D", "W", "0", "W", "0", "0"}},
      {{"W", "STRING", "212", "D", "W", "0", "W", "0", "0"}},
      {{"W", "LWORD", "7", "D", "D", "0", "W", "0", "0"}},
      {{"W", "LINT", "8", "D", "D", "0", "W", "0", "0"}},
      {{"W", "ULINT", "9", "D", "D", "0", "W", "0", "0"}},
      {{"W", "LREAL", "10", "D", "D", "0", "W", "0", "0"}},
  };
  std::vector<unsigned char> want(7650, 0);
  for (int r = 0; r < 17; ++r)
    for (int f = 0; f < 9; ++f)
      std::memcpy(&want[r * 450 + f * 30], expected[r].fields[f],
                  std::strlen(expected[r].fields[f]));

  std::vector<unsigned char> got(7650 + 16, 0xAA);
  description::copy_address_types(reinterpret_cast<unitydrv_address_type*>(got.data()));
  EXPECT_EQ(std::vector<unsigned char>(got.begin(), got.begin() + 7650), want);
  for (std::size_t i = 7650; i < got.size(); ++i) EXPECT_EQ(got[i], 0xAA) << "wrote past the table";
}

TEST(SizeLimit, NineTenByteFields) {
  std::vector<unsigned char> got(90, 0xAA);
  description::fill_size_limit(reinterpret_cast<unitydrv_size_limit*>(got.data()));
  std::vector<unsigned char> want(90, 0);
  want[0] = '0';
  want[10] = '1';
  want[20] = '1';
  EXPECT_EQ(got, want);
}

TEST(HostType, EveryListedCode) {
  const std::pair<int, uint32_t> cases[] = {
      {193, 1}, {211, 1}, {194, 7}, {212, 7}, {195, 9}, {196, 10}, {202, 5}, {2, 2},  {3, 3},
      {4, 4},   {6, 6},   {11, 11}, {12, 12}, {7, 16},  {8, 13},   {9, 14},  {10, 15}};
  for (auto [code, host] : cases) {
    uint32_t out = 0xDEAD;
    EXPECT_TRUE(description::host_type_of(static_cast<uint8_t>(code), out)) << code;
    EXPECT_EQ(out, host) << "code " << code;
  }
}

TEST(HostType, UnlistedCodesLeaveTheOutputAlone) {
  std::vector<int> codes = {0, 1, 5, 13, 192, 255};
  for (int c = 197; c <= 201; ++c) codes.push_back(c);
  for (int c = 203; c <= 210; ++c) codes.push_back(c);
  for (int code : codes) {
    uint32_t out = 0xDEAD;
    EXPECT_FALSE(description::host_type_of(static_cast<uint8_t>(code), out)) << code;
    EXPECT_EQ(out, 0xDEADu) << "code " << code;
  }
}

}  // namespace
