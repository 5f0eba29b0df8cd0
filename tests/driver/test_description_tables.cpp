#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "driver/description_tables.h"
#include "wire/plc_types.h"

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

// Rows of 450 bytes, fields of 30: each row names its type and code as the type table does.
TEST(AddressTypes, OneRowPerTypeAndNothingPast) {
  std::vector<unsigned char> got(wire::plc_type_count * 450 + 16, 0xAA);
  description::copy_address_types(reinterpret_cast<unitydrv_address_type*>(got.data()));
  for (std::size_t r = 0; r < wire::plc_type_count; ++r) {
    EXPECT_STREQ(reinterpret_cast<char*>(&got[r * 450 + 30]), wire::plc_types[r].name);
    EXPECT_EQ(std::atoi(reinterpret_cast<char*>(&got[r * 450 + 60])), wire::plc_types[r].code);
  }
  for (std::size_t i = got.size() - 16; i < got.size(); ++i) EXPECT_EQ(got[i], 0xAA) << i;
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

TEST(HostType, EveryTypeHasItsHostType) {
  for (const wire::plc_type& row : wire::plc_types) {
    uint32_t out = 0xDEAD;
    EXPECT_TRUE(description::host_type_of(row.code, out)) << row.name;
    EXPECT_EQ(out, row.host_type) << row.name;
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
