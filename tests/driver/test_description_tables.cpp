// The six description and parameter entry points, called through the loaded library as the
// host calls them, against the literal tables the host expects.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tools/common/driver_api.h"

namespace {

uint16_t u16_at(const unsigned char* p, std::size_t off) {
  return static_cast<uint16_t>(p[off] | p[off + 1] << 8);
}

class DescriptionCalls : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { lib = new loaded_driver::driver_api(UNITYDRV_LIBRARY_PATH); }
  static void TearDownTestSuite() {
    delete lib;
    lib = nullptr;
  }
  static loaded_driver::driver_api* lib;
};
loaded_driver::driver_api* DescriptionCalls::lib = nullptr;

TEST_F(DescriptionCalls, AttributesNameIsCutAtFiftyAndNumbersFollow) {
  std::vector<unsigned char> buf(100, 0xFF);
  lib->GetAttributeEx(reinterpret_cast<unitydrv_attributes*>(buf.data()));

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

// One row per PLC type, in the host's order: name, code, kind, unit and host type.
struct type_row {
  const char* name;
  int code;
  const char* kind;
  const char* unit;
  uint32_t host_type;
};
const type_row type_rows[] = {
    {"BOOL", 193, "B", "W", 1},   {"BitArray", 211, "B", "W", 1}, {"SINT", 194, "W", "W", 7},
    {"INT", 195, "W", "W", 9},    {"DINT", 196, "W", "D", 10},    {"REAL", 202, "W", "D", 5},
    {"BYTE", 2, "W", "W", 2},     {"UDINT", 6, "W", "D", 6},      {"WORD", 3, "W", "W", 3},
    {"DWORD", 4, "W", "D", 4},    {"UINT", 11, "W", "W", 11},     {"USINT", 12, "W", "W", 12},
    {"STRING", 212, "W", "W", 7}, {"LWORD", 7, "W", "D", 16},     {"LINT", 8, "W", "D", 13},
    {"ULINT", 9, "W", "D", 14},   {"LREAL", 10, "W", "D", 15},
};

// Rows of 450 bytes, fields of 30 (the last six empty), 7650 bytes and nothing past them.
TEST_F(DescriptionCalls, DeviceTableHoldsEachRowAsTheHostReadsIt) {
  std::vector<char> got(7650 + 16, 'x');
  uint32_t count = 0;
  lib->GetDeviceTableEx(reinterpret_cast<unitydrv_address_type*>(got.data()), &count);
  EXPECT_EQ(count, 17u);
  for (std::size_t r = 0; r < 17; ++r) {
    const type_row& t = type_rows[r];
    const std::string fields[9] = {t.kind, t.name, std::to_string(t.code), "D", t.unit, "0", "W",
                                   "0",    "0"};
    std::string want(450, '\0');
    for (std::size_t f = 0; f < 9; ++f) want.replace(f * 30, fields[f].size(), fields[f]);
    EXPECT_EQ(std::string(&got[r * 450], 450), want) << t.name;
  }
  EXPECT_EQ(std::string(got.end() - 16, got.end()), std::string(16, 'x'));
}

TEST_F(DescriptionCalls, SizeLimitIsOneRecordOfNineTenByteFields) {
  std::vector<unsigned char> got(90 + 4, 0xAA);
  uint32_t count = 0;
  lib->GetCommandSizeLimitInfo(reinterpret_cast<unitydrv_size_limit*>(got.data()), &count);
  EXPECT_EQ(count, 1u);
  std::vector<unsigned char> want(90, 0);
  want[0] = '0';
  want[10] = '1';
  want[20] = '1';
  want.insert(want.end(), 4, 0xAA);
  EXPECT_EQ(got, want);
}

uint32_t data_type_of(loaded_driver::driver_api& lib, int code, uint32_t preset, int& result) {
  unitydrv_type_query query;
  std::memset(&query, 0x5C, sizeof query);
  query.type_code = static_cast<uint8_t>(code);
  uint32_t out = preset;
  result = lib.GetDataType(&query, 0xFFFFFFFF, &out);
  return out;
}

TEST_F(DescriptionCalls, DataTypeMapsEveryListedCode) {
  for (const type_row& row : type_rows) {
    int result = 0;
    EXPECT_EQ(data_type_of(*lib, row.code, 0xDEAD, result), row.host_type) << row.name;
    EXPECT_EQ(result, 1) << row.name;
  }
}

TEST_F(DescriptionCalls, DataTypeLeavesTheOutputAloneForUnlistedCodes) {
  std::vector<int> codes = {0, 1, 5, 13, 192, 255};
  for (int c = 197; c <= 201; ++c) codes.push_back(c);
  for (int c = 203; c <= 210; ++c) codes.push_back(c);
  for (int code : codes) {
    int result = 0;
    EXPECT_EQ(data_type_of(*lib, code, 0xDEAD, result), 0xDEADu) << "code " << code;
    EXPECT_EQ(result, 1) << "code " << code;
  }
}

// The library is loaded once for the suite, so the first read sees the value at load.
TEST_F(DescriptionCalls, CommParamIsZeroUntilSetThenKept) {
  uint32_t value = 0xFFFFFFFF;
  lib->GetCommParam(&value);
  EXPECT_EQ(value, 0u);
  for (uint32_t stored : {0x12345678u, 0xFFFFFFFFu, 0u}) {
    lib->SetCommParam(stored);
    value = 0xA5A5A5A5;
    lib->GetCommParam(&value);
    EXPECT_EQ(value, stored);
  }
}

}  // namespace
