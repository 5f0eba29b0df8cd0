#include "driver/description_tables.h"

#include <array>
#include <cstring>

namespace description {
namespace {

// The full name; the host sees only its first 50 characters (see fill_attributes).
constexpr char driver_name[] = "Schneider M340/M580 series (Symbolic Addressing) (Ethernet)";
static_assert(sizeof(driver_name) == 60, "the name literal is written with its terminator");

struct address_type_row {
  const char* kind;
  const char* name;
  const char* code;
  const char* unit;
};

// Kind "B" for the bit types, "W" for words; unit "D" for 32- and 64-bit types.
constexpr address_type_row address_type_rows[address_type_count] = {
    {"B", "BOOL", "193", "W"},   {"B", "BitArray", "211", "W"}, {"W", "SINT", "194", "W"},
    {"W", "INT", "195", "W"},    {"W", "DINT", "196", "D"},     {"W", "REAL", "202", "D"},
    {"W", "BYTE", "2", "W"},     {"W", "UDINT", "6", "D"},      {"W", "WORD", "3", "W"},
    {"W", "DWORD", "4", "D"},    {"W", "UINT", "11", "W"},      {"W", "USINT", "12", "W"},
    {"W", "STRING", "212", "W"}, {"W", "LWORD", "7", "D"},      {"W", "LINT", "8", "D"},
    {"W", "ULINT", "9", "D"},    {"W", "LREAL", "10", "D"},
};

template <std::size_t N>
void put_text(char (&field)[N], const char* text) {
  std::memset(field, 0, N);
  std::strncpy(field, text, N - 1);
}

std::array<unitydrv_address_type, address_type_count> build_address_types() {
  std::array<unitydrv_address_type, address_type_count> rows{};
  for (int i = 0; i < address_type_count; ++i) {
    const address_type_row& r = address_type_rows[i];
    const char* fields[9] = {r.kind, r.name, r.code, "D", r.unit, "0", "W", "0", "0"};
    for (int f = 0; f < 9; ++f) put_text(rows[i].field[f], fields[f]);
  }
  return rows;
}

const std::array<unitydrv_address_type, address_type_count> address_types = build_address_types();

}  // namespace

void fill_attributes(unitydrv_attributes* a) {
  // The whole literal first, then the numbers over its tail: the host's name field ends
  // after 50 characters with no terminator, and byte 55 keeps the literal's character.
  std::memcpy(reinterpret_cast<char*>(a), driver_name, sizeof(driver_name));
  a->value_50 = 171;
  a->driver_number = 578;
  a->value_54 = 0;
  a->value_56 = 200;
  a->value_58 = 0;
  a->value_60 = 0;
  a->value_68 = 0;
  a->value_70 = 1;
  a->value_74 = 271;
  a->value_76 = 0;
  a->value_78 = 37;
  a->value_80 = 0;
}

void copy_address_types(unitydrv_address_type* table) {
  std::memcpy(table, address_types.data(), sizeof(address_types));
}

void fill_size_limit(unitydrv_size_limit* limit) {
  const char* fields[9] = {"0", "1", "1", "", "", "", "", "", ""};
  for (int f = 0; f < 9; ++f) put_text(limit->field[f], fields[f]);
}

bool host_type_of(uint8_t plc_code, uint32_t& host_type) {
  switch (plc_code) {
    case 193:
    case 211:
      host_type = 1;
      return true;  // BOOL, BitArray
    case 194:
    case 212:
      host_type = 7;
      return true;  // SINT, STRING
    case 195:
      host_type = 9;
      return true;  // INT
    case 196:
      host_type = 10;
      return true;  // DINT
    case 202:
      host_type = 5;
      return true;  // REAL
    case 2:
    case 3:
    case 4:
    case 6:
    case 11:
    case 12:
      host_type = plc_code;
      return true;
    case 7:
      host_type = 16;
      return true;  // LWORD
    case 8:
      host_type = 13;
      return true;  // LINT
    case 9:
      host_type = 14;
      return true;  // ULINT
    case 10:
      host_type = 15;
      return true;  // LREAL
    default:
      return false;
  }
}

}  // namespace description
