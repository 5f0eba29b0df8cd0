// The soak's expectations: how a delivered unit is derived from what the controller held,
// and what the program a download brings changes.
#include <gtest/gtest.h>

#include "tools/chaos/chaos_plant.h"

namespace {

using chaos::unit_form;
using bytes = std::vector<uint8_t>;

TEST(ChaosPlant, UnitsExpectedFromTheBytesHeld) {
  struct unit_case {
    unit_form form;
    bytes held;
    uint8_t bit;
    std::vector<uint16_t> units;
  };
  const unit_case cases[] = {
      {unit_form::word, {0xD6, 0xFF}, 0, {0xFFD6}},
      {unit_form::dword, {0x40, 0xE2, 0x01, 0x00}, 0, {0xE240, 0x0001}},
      {unit_form::ebool, {0x01}, 0, {1}},
      {unit_form::ebool, {0x02}, 0, {0}},  // an EBOOL's bit 1 alone reads as 0
      {unit_form::ebool, {0x03}, 0, {1}},
      {unit_form::word_bit, {0x18, 0x00}, 3, {0xFFFF}},
      {unit_form::word_bit, {0x18, 0x00}, 2, {0}},
      {unit_form::word_bit, {0x00, 0x80}, 15, {0xFFFF}},
  };
  for (const unit_case& c : cases) {
    EXPECT_EQ(chaos::expected_units(c.form, c.held, c.bit), c.units);
    EXPECT_EQ(chaos::units_per_element(c.form), c.units.size());
  }
}

plcsim::project plant() {
  return chaos::original_program(UNITYDRV_SOURCE_DIR);
}

const chaos::tag& tag_named(const std::string& name) {
  for (const chaos::tag& t : chaos::tags())
    if (t.name == name) return t;
  throw std::runtime_error("no tag " + name);
}

// Where a tag's element lies in the plant and in the changed program ("" when absent).
std::string place(const plcsim::project& p, const std::string& name, std::size_t k = 0) {
  uint16_t block = 0;
  uint32_t offset = 0;
  if (!chaos::element_location(p, tag_named(name), k, block, offset)) return "";
  return std::to_string(block) + ":" + std::to_string(offset);
}

TEST(ChaosPlant, DownloadRemovesMovesAndAddsVariables) {
  const plcsim::project before = plant();
  const plcsim::project after = chaos::changed_program(before);
  const struct {
    const char* tag;
    std::size_t element;
    const char* before;
    const char* after;
  } cases[] = {
      {"Counter", 0, "1:96", "1:400"},      {"Levels", 3, "1:146", "1:426"},
      {"Production", 0, "1:104", ""},       {"Added", 0, "", "1:460"},
      {"Line[2].Speed", 0, "1:64", "1:64"}, {"Setpoint", 0, "2:0", "2:0"},
      {"Motor1.Mode", 0, "1:10", "1:10"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(place(before, c.tag, c.element), c.before) << c.tag;
    EXPECT_EQ(place(after, c.tag, c.element), c.after) << c.tag;
  }
  EXPECT_NE(after.dictionary_handle, before.dictionary_handle);
}

// Written tags are left alone; each controller steps by its own scale.
TEST(ChaosPlant, SteppedValuesSkipWrittenTagsAndScaleTheirSteps) {
  const auto a = chaos::stepped_values(plant(), 1);
  const auto b = chaos::stepped_values(plant(), 7);
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(b[i].step, 7 * a[i].step);
    EXPECT_FALSE(a[i].block == 2 && a[i].offset == 0) << "Setpoint is written, not stepped";
    EXPECT_FALSE(a[i].block == 1 && a[i].offset == 112) << "Status is written, not stepped";
  }
  EXPECT_EQ(a.size(), 19u);  // 9 single values and the 10 elements of Levels
}

}  // namespace
