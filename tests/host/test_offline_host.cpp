// The host tool's tag selection offline and its address check.
#include <gtest/gtest.h>

#include "tools/common/driver_api.h"
#include "tools/host/tag_selection.h"

using namespace panelhost;

namespace {

TEST(TagSelection, NamesOutsideTheTagFileAreUnknown) {
  selection_options options;
  options.names = {"A:INT", "B"};
  tag_selection selection(options);
  selection_options typed = options;
  typed.types = {"B=STRING[8]"};
  std::vector<tag_refusal> errors;
  const auto tags = tag_selection(typed).requests(nullptr, errors);
  EXPECT_TRUE(errors.empty());
  ASSERT_EQ(tags.size(), 2u);
  EXPECT_EQ(tags[1].request.tag_index, 1u);
  EXPECT_EQ(tags[1].request.code, UNITYDRV_TYPE_STRING);
  EXPECT_EQ(tags[1].request.count, 8);
  // Offline there is no dictionary to type B; A is still served.
  EXPECT_EQ(selection.requests(nullptr, errors).size(), 1u);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].name, "B");

  // A name outside the file is reported with the nearest one, not thrown.
  selection_options wrong;
  wrong.tag_file = selection.tag_file();
  wrong.names = {"C", "a"};
  errors.clear();
  EXPECT_TRUE(tag_selection{wrong}.requests(nullptr, errors).empty());
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[1].text(), "tag 'a': not in the tag file (did you mean 'A'?)");
}

TEST(InitParams, DottedAddress) {
  const unitydrv_init_params p = init_params_of("10.1.2.5");
  EXPECT_EQ(p.octet1, 10);
  EXPECT_EQ(p.octet2, 1);
  EXPECT_EQ(p.octet3, 2);
  EXPECT_EQ(p.octet4, 5);
  for (const char* bad : {"10.1.2", "10.1.2.256", "10.1.2.5x", "host"}) {
    EXPECT_THROW(init_params_of(bad), std::invalid_argument) << bad;
  }
}

}  // namespace
