#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tests/driver/host_paths_fixture.h"

namespace {

using host_paths::request_desc;

class OfflineMode : public host_paths::device_test {
 protected:
  void SetUp() override { load({"Level", "Speed", "Bits[0]", "Bits[3]"}, 1); }

  void write(const request_desc& one, const std::vector<uint16_t>& words, uint8_t bit_value = 0) {
    auto req = requests({one}, 1);
    req[0].write.write_count = static_cast<uint16_t>(words.size());
    for (std::size_t i = 0; i < words.size(); ++i) req[0].write_words[i] = words[i];
    req[0].write.bit.write_bit_value = bit_value;
    const unitydrv_result r = driver_.outputfilter(req.data(), 1);
    EXPECT_EQ(r.byte_3, 8);
    EXPECT_EQ(req[0].status[0], 0x5C);  // a write leaves the status bytes alone
  }

  // Reads through both filters, as the host does; returns the results.
  loaded_driver::input_round read(const std::vector<request_desc>& wanted) {
    auto req = requests(wanted, 0);
    const unitydrv_result r = driver_.outputfilter(req.data(), static_cast<int>(wanted.size()));
    EXPECT_EQ(r.byte_3, 8);
    const uint8_t done[] = {0, 0, 0, 0, 1};
    EXPECT_EQ(std::memcmp(req[0].status, done, sizeof(done)), 0);
    auto round = this->round(wanted.size());
    driver_.inputFilter(round.results.data(), nullptr, round.infos.data(),
                        static_cast<int>(wanted.size()));
    return round;
  }
};

TEST_F(OfflineMode, UnwrittenElementsReadAsZeroAndLeaveZeroEntries) {
  const auto round = read({{1, UNITYDRV_TYPE_DINT, 4, 3}});
  EXPECT_EQ(round.results[0].result_status, 0);
  EXPECT_EQ(round.results[0].result_code, 5);
  EXPECT_EQ(round.results[0].request_id, 1000u);
  EXPECT_EQ(round.units(0, 6), std::vector<uint16_t>(6, 0));
  ASSERT_EQ(device_->tag_values.size(), 3u);
  uint16_t index = 4;
  for (const auto& entry : device_->tag_values) {
    EXPECT_EQ(entry.first.request_word, index++);
    EXPECT_EQ(entry.first.request_index, 1u);
    EXPECT_EQ(entry.second, 0u);
  }
}

TEST_F(OfflineMode, EachElementHasItsOwnKey) {
  write({1, UNITYDRV_TYPE_INT, 10, 3}, {7, 8, 9});
  const auto round = read({{1, UNITYDRV_TYPE_INT, 11, 1},
                           {1, UNITYDRV_TYPE_INT, 12, 2},
                           {0, UNITYDRV_TYPE_INT, 11, 1}});
  EXPECT_EQ(round.units(0, 1), (std::vector<uint16_t>{8}));
  EXPECT_EQ(round.units(1, 2), (std::vector<uint16_t>{9, 0}));
  EXPECT_EQ(round.units(2, 1), (std::vector<uint16_t>{0}));
  EXPECT_EQ(round.results[2].request_id, 1002u);
}

TEST_F(OfflineMode, BitWriteUpdatesTheShadowValueOnly) {
  write({0, 3, 0, 1, 32}, {}, 1);  // bit 31
  write({0, 3, 0, 1, 3}, {}, 1);   // bit 2
  ASSERT_EQ(device_->tag_values.size(), 2u);
  auto req = requests({{0, 3, 0, 1, 32}}, 1);
  offline_stTag_578 key;
  driver_.offline_FillTagStruct(&device_->tag_table, &key, &req[0].ref);
  EXPECT_EQ(device_->tag_values[key], 0xFFFFFFFF80000000ull);
  write({0, 3, 0, 1, 32}, {}, 0);
  EXPECT_EQ(device_->tag_values[key], 0u);
}

TEST_F(OfflineMode, BitArrayElementsAreKeyedByTheRenamedElement) {
  write({2, UNITYDRV_TYPE_BITARRAY, 96, 2}, {0x0001});
  // Tag 2 names element 0; bit 96 lives in element 3, which is tag 3.
  ASSERT_EQ(device_->element_names.count("Bits[3]"), 1u);
  bool found = false;
  for (const auto& entry : device_->tag_values) {
    if (entry.first.request_index == 3 && entry.first.request_word == 96) {
      EXPECT_STREQ(entry.first.name, "Bits[3]");
      EXPECT_EQ(entry.second, 1u);
      found = true;
    }
  }
  EXPECT_TRUE(found);
  const auto round = read({{2, UNITYDRV_TYPE_BITARRAY, 96, 2}});
  EXPECT_EQ(round.units(0, 2), (std::vector<uint16_t>{1, 0}));
}

}  // namespace
