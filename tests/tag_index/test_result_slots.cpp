#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>
#include <vector>

#include "tag_index/result_slots.h"

namespace {

TEST(ResultSlots, GrowsOnDemandAndKeepsEarlierSlots) {
  result_slots tags;
  // An empty read or round touches nothing (no slot -1, no host record).
  tags.plan(0);
  tags.post_heads();
  tags.deliver(nullptr, nullptr, 0);
  tags.slot(0).element_count = 7;
  EXPECT_EQ(tags.slot(40).element_count, 0);
  EXPECT_EQ(tags.slot(0).element_count, 7);
}

// Every fill clears the first 512 bytes of its data area; the slots clear only what was
// written there. Random fills (whole, string-like, long ones running on into later slots)
// and uncleared offline writes must leave the block exactly as a full clear would.
TEST(ResultSlots, FillsLeaveWhatClearingEveryAreaWouldLeave) {
  constexpr std::size_t count = 6;
  constexpr std::size_t longest = 4096;
  result_slots tags;
  tags.area(count - 1, longest);
  uint8_t* const block = reinterpret_cast<uint8_t*>(&tags.slot(0));
  const std::size_t size = ((count - 1) * sizeof(result_slot) + offsetof(result_slot, data) +
                            longest + sizeof(result_slot) - 1) /
                           sizeof(result_slot) * sizeof(result_slot);
  std::vector<uint8_t> model(size, 0);
  std::mt19937 rng(11);
  for (int step = 0; step < 4000; ++step) {
    const std::size_t i = rng() % count;
    const int kind = static_cast<int>(rng() % 3);
    const std::size_t length = rng() % 8 == 0 ? rng() % longest : rng() % 40;
    const auto value = static_cast<uint8_t>(1 + rng() % 255);
    const std::size_t at = i * sizeof(result_slot) + offsetof(result_slot, data);
    if (kind == 2) {  // an offline write: no clear first
      for (std::size_t b = 0; b < length; ++b) model[at + b] = block[at + b] = value;
      tags.note_written(i, length);
    } else {
      // A read of INT values fills every byte; a STRING's fill only the low byte of a unit.
      const bool text = kind == 1;
      const std::size_t elements = length / 2;
      read_comm item;
      item.count = static_cast<uint16_t>(elements);
      slot_head* heads = tags.plan(count);
      heads[i] = {text ? uint8_t{UNITYDRV_TYPE_STRING} : uint8_t{UNITYDRV_TYPE_INT}, 255,
                  item.count};
      const std::vector<unsigned char> values(text ? elements : 2 * elements, value);
      const uint16_t position = static_cast<uint16_t>(i);
      tags.fill_positions({item}, &position, 1, values);
      std::fill_n(model.begin() + static_cast<std::ptrdiff_t>(at), 512, 0);
      for (std::size_t b = 0; b < 2 * elements; b += text ? 2 : 1) model[at + b] = value;
    }
    ASSERT_EQ(std::memcmp(model.data(), block, size), 0) << "step " << step;
  }
}

}  // namespace
