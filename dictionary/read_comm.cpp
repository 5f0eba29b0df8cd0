#include "dictionary/dictionary_records.h"

namespace {

struct type_formats {
  unsigned char format;  // access format code
  unsigned char length;  // length code of a read whose length the type defines
};

constexpr unsigned char none = 255;

// Indexed by type id - 1. Where defined the length code is 16 + format, except type 9:
// it has no format of its own but reads still send length code 17.
constexpr type_formats formats_by_type[25] = {
    {1, 17}, {none, none}, {none, none}, {2, 18},      {2, 18},      {3, 19},      {3, 19},
    {3, 19}, {none, 17},   {3, 19},      {none, none}, {none, none}, {none, none}, {3, 19},
    {3, 19}, {4, 20},      {none, none}, {none, none}, {none, none}, {none, none}, {1, 17},
    {2, 18}, {3, 19},      {none, none}, {0, 16},
};

const type_formats* find_formats(uint16_t type_id) {
  if (type_id < 1 || type_id > 25) {
    return nullptr;
  }
  return &formats_by_type[type_id - 1];
}

}  // namespace

int read_comm::get_read_format_from_type(uint16_t type_id) {
  const type_formats* row = find_formats(type_id);
  return row ? row->format : none;
}

int read_comm::use_reading_defines_length_from_type(uint16_t type_id) {
  const type_formats* row = find_formats(type_id);
  return row ? row->length : none;
}
