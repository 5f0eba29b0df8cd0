#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/driver/host_paths_fixture.h"

namespace {

class InputFilter : public host_paths::device_test {
 protected:
  void SetUp() override {
    load({"A", "B", "C"}, 0);
    device_->session.state = unity_process::state_ready;
  }

  void set_slot(std::size_t i, uint8_t type, uint8_t bit, uint16_t n,
                const std::vector<uint8_t>& data) {
    result_slot& s = device_->tag_table.slots.slot(i);
    s.type_code = type;
    s.bit_number = bit;
    s.element_count = n;
    std::memset(s.data, 0, sizeof(s.data));
    std::memcpy(s.data, data.data(), data.size());
  }
};

TEST_F(InputFilter, SessionFailureIsReportedOnceForEveryResult) {
  set_slot(0, 3, 255, 1, {0x34, 0x12});
  set_slot(1, 3, 255, 1, {0x78, 0x56});
  set_slot(2, 3, 255, 1, {0x01, 0x00});
  device_->session.state = unity_process::state_failed;
  auto round = this->round(3);
  auto& res = round.results;
  auto& inf = round.infos;
  driver_.inputFilter(res.data(), nullptr, inf.data(), 3);
  for (const auto& r : res) {
    EXPECT_EQ(r.result_status, 2);
    EXPECT_EQ(r.result_code, 10);
  }
  EXPECT_EQ(res[0].request_id, 0u);
  EXPECT_EQ(res[1].result_words[0], 0xAAAA);
  EXPECT_EQ(device_->session.state, unity_process::state_ready);

  driver_.inputFilter(res.data(), nullptr, inf.data(), 3);
  const uint16_t want[] = {0x1234, 0x5678, 0x0001};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(res[i].result_status, 0);
    EXPECT_EQ(res[i].result_code, 5);
    EXPECT_EQ(res[i].request_id, 1000u + i);
    EXPECT_EQ(res[i].result_words[0], want[i]);
  }
}

// Online and offline alike, only the first result's preset is written.
TEST_F(InputFilter, NothingValidLeavesAllButThePresetAlone) {
  set_slot(0, 3, 255, 1, {0x34, 0x12});
  for (uint8_t offline : {0, 1}) {
    device_->offline_mode = offline;
    auto round = this->round(2, 0);
    auto& res = round.results;
    auto& inf = round.infos;
    driver_.inputFilter(res.data(), nullptr, inf.data(), 2);
    EXPECT_EQ(res[0].result_status, 0);
    EXPECT_EQ(res[0].result_code, 5);
    EXPECT_EQ(res[0].request_id, 0u);
    EXPECT_EQ(res[0].result_words[0], 0xAAAA);
    EXPECT_EQ(res[1].result_status, 0xAA);
  }
}

struct copy_case {
  const char* what;
  uint8_t type;
  uint16_t n;
  std::size_t bytes_copied;
};

TEST_F(InputFilter, WholeValuesCopyTheirSizeAndNoMore) {
  const copy_case cases[] = {
      {"BOOL one unit each", UNITYDRV_TYPE_BOOL, 3, 6},
      {"SINT", UNITYDRV_TYPE_SINT, 2, 4},
      {"STRING", UNITYDRV_TYPE_STRING, 5, 10},
      {"WORD", UNITYDRV_TYPE_WORD, 3, 6},
      {"DINT", UNITYDRV_TYPE_DINT, 2, 8},
      {"REAL", UNITYDRV_TYPE_REAL, 1, 4},
      {"LREAL", UNITYDRV_TYPE_LREAL, 2, 16},
      {"unknown type", 99, 4, 0},
  };
  std::vector<uint8_t> pattern(64);
  for (std::size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<uint8_t>(i + 1);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    set_slot(0, c.type, 255, c.n, pattern);
    auto round = this->round(1);
    auto& res = round.results;
    auto& inf = round.infos;
    driver_.inputFilter(res.data(), nullptr, inf.data(), 1);
    const uint8_t* words = reinterpret_cast<const uint8_t*>(&res[0]) + 8;
    for (std::size_t b = 0; b < 32; ++b) {
      EXPECT_EQ(words[b], b < c.bytes_copied ? pattern[b] : 0xAA) << "byte " << b;
    }
  }
}

// Regression: an element count beyond the slot must not copy past the result; the copy runs
// on through the slot behind (its type 3 and bit 0 are unit 396).
TEST_F(InputFilter, HugeElementCountsStayInsideSlotAndResult) {
  set_slot(0, 10, 255, 65535, {1});
  set_slot(1, 3, 0, 65535, {0xFF, 0xFF});
  auto round = this->round(2);
  auto& res = round.results;
  auto& inf = round.infos;
  driver_.inputFilter(res.data(), nullptr, inf.data(), 2);
  EXPECT_EQ(res[0].result_words[0], 1);
  EXPECT_EQ(res[0].result_words[396], 0x0003);  // past the slot's 792 bytes
  EXPECT_EQ(res[1].result_words[2047], 0);      // bit 2047 mod 256 = 255: clear
  EXPECT_EQ(res[1].result_words[256], 0xFFFF);  // position 0 again
}

struct bit_case {
  const char* what;
  uint8_t type;
  std::vector<uint8_t> data;
  uint8_t bit;
  uint16_t n;
  std::vector<uint16_t> want;
};

TEST_F(InputFilter, BitAddressingPicksBitsOfOneSourceValue) {
  const bit_case cases[] = {
      {"WORD 0x0018 from bit 3", UNITYDRV_TYPE_WORD, {0x18, 0x00}, 3, 4, {0xFFFF, 0xFFFF, 0, 0}},
      {"DWORD across bit 31", UNITYDRV_TYPE_DWORD, {0, 0, 0, 0xC0}, 30, 4, {0xFFFF, 0xFFFF, 0, 0}},
      {"positions wrap at 256",
       UNITYDRV_TYPE_DINT,
       {0x03, 0, 0, 0},
       254,
       4,
       {0, 0, 0xFFFF, 0xFFFF}},
      {"a byte source ignores the next byte", UNITYDRV_TYPE_BYTE, {0x80, 0xFF}, 7, 2, {0xFFFF, 0}},
      {"INT high byte", UNITYDRV_TYPE_INT, {0x00, 0x80}, 15, 1, {0xFFFF}},
      {"bit 32 and beyond are clear",
       UNITYDRV_TYPE_REAL,
       {0xFF, 0xFF, 0xFF, 0xFF, 0xFF},
       32,
       2,
       {0, 0}},
      {"BOOL has no source value", UNITYDRV_TYPE_BOOL, {0xFF, 0xFF}, 0, 2, {0, 0}},
      {"LREAL has no source value", UNITYDRV_TYPE_LREAL, {0xFF, 0xFF}, 1, 1, {0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    set_slot(0, c.type, c.bit, c.n, c.data);
    auto round = this->round(1);
    auto& res = round.results;
    auto& inf = round.infos;
    driver_.inputFilter(res.data(), nullptr, inf.data(), 1);
    EXPECT_EQ(round.units(0, c.want.size()), c.want);
    EXPECT_EQ(res[0].result_words[c.n], 0xAAAA);
  }
}

TEST(HostFilters, NullDeviceHandleTouchesNothing) {
  tag_driver_offline_578 driver;
  auto req = loaded_driver::requests(nullptr, {});
  EXPECT_EQ(driver.outputfilter(req.data(), 1).byte_3, 8);
  loaded_driver::input_round round(nullptr, 1);
  driver.inputFilter(round.results.data(), nullptr, round.infos.data(), 1);
  EXPECT_EQ(round.results[0].result_status, 0xAA);
  EXPECT_EQ(round.results[0].result_code, 0xAA);
}

}  // namespace
