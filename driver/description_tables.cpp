#include "driver/description_tables.h"

#include <array>
#include <cstring>
#include <string>

#include "wire/plc_types.h"

namespace description {
namespace {

// The full name; the host sees only its first 50 characters (see fill_attributes).
constexpr char driver_name[] = "Schneider M340/M580 series (Symbolic Addressing) (Ethernet)";
static_assert(sizeof(driver_name) == 60, "the name literal is written with its terminator");

static_assert(wire::plc_type_count == address_type_count, "one address type per PLC type");

template <std::size_t N>
void put_text(char (&field)[N], const char* text) {
  std::memset(field, 0, N);
  std::strncpy(field, text, N - 1);
}

std::array<unitydrv_address_type, address_type_count> build_address_types() {
  std::array<unitydrv_address_type, address_type_count> rows{};
  for (int i = 0; i < address_type_count; ++i) {
    const wire::plc_type& t = wire::plc_types[i];
    // Kind "B" for the bit types, "W" for words; unit "D" for 32- and 64-bit types.
    const char* kind = t.one_bit ? "B" : "W";
    const char* unit = t.size >= 4 ? "D" : "W";
    const std::string code = std::to_string(t.code);
    const char* fields[9] = {kind, t.name, code.c_str(), "D", unit, "0", "W", "0", "0"};
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
  a->value_56 = 200;
  a->value_70 = 1;
  a->value_74 = 271;
  a->value_78 = 37;
  // The other numbers are zero.
  a->value_54 = 0;
  a->value_58 = a->value_60 = a->value_68 = a->value_76 = a->value_80 = 0;
}

void copy_address_types(unitydrv_address_type* table) {
  std::memcpy(table, address_types.data(), sizeof(address_types));
}

void fill_size_limit(unitydrv_size_limit* limit) {
  const char* fields[9] = {"0", "1", "1", "", "", "", "", "", ""};
  for (int f = 0; f < 9; ++f) put_text(limit->field[f], fields[f]);
}

bool host_type_of(uint8_t plc_code, uint32_t& host_type) {
  const wire::plc_type* t = wire::find_plc_type(plc_code);
  if (t == nullptr) return false;
  host_type = t->host_type;
  return true;
}

}  // namespace description
