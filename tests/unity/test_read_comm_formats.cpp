#include <gtest/gtest.h>

#include "unity/dictionary_records.h"

namespace {

struct type_row {
  uint16_t type_id;
  int format;
  int length;
};

class TypeFormats : public ::testing::TestWithParam<type_row> {};

TEST_P(TypeFormats, FormatAndLengthCode) {
  EXPECT_EQ(read_comm::get_read_format_from_type(GetParam().type_id), GetParam().format);
  EXPECT_EQ(read_comm::use_reading_defines_length_from_type(GetParam().type_id), GetParam().length);
}

// Every row of the controller's type table, plus ids just outside it.
INSTANTIATE_TEST_SUITE_P(
    AllIds, TypeFormats,
    ::testing::Values(type_row{0, 255, 255}, type_row{1, 1, 17}, type_row{2, 255, 255},
                      type_row{3, 255, 255}, type_row{4, 2, 18}, type_row{5, 2, 18},
                      type_row{6, 3, 19}, type_row{7, 3, 19}, type_row{8, 3, 19},
                      type_row{9, 255, 17}, type_row{10, 3, 19}, type_row{11, 255, 255},
                      type_row{12, 255, 255}, type_row{13, 255, 255}, type_row{14, 3, 19},
                      type_row{15, 3, 19}, type_row{16, 4, 20}, type_row{17, 255, 255},
                      type_row{18, 255, 255}, type_row{19, 255, 255}, type_row{20, 255, 255},
                      type_row{21, 1, 17}, type_row{22, 2, 18}, type_row{23, 3, 19},
                      type_row{24, 255, 255}, type_row{25, 0, 16}, type_row{26, 255, 255},
                      type_row{0xFFFF, 255, 255}));

}  // namespace
