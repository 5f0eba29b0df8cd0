#include "tools/host/plc_type.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace panelhost {

namespace {

// One row for every row of wire::plc_types.
constexpr value_form k_forms[] = {
    {UNITYDRV_TYPE_BOOL, false, false, display::truth},
    {UNITYDRV_TYPE_BITARRAY, false, false, display::truth},
    {UNITYDRV_TYPE_SINT, true, false, display::decimal},
    {UNITYDRV_TYPE_INT, true, false, display::decimal},
    {UNITYDRV_TYPE_DINT, true, false, display::decimal},
    {UNITYDRV_TYPE_REAL, true, true, display::decimal},
    {UNITYDRV_TYPE_BYTE, false, false, display::hex},
    {UNITYDRV_TYPE_UDINT, false, false, display::decimal},
    {UNITYDRV_TYPE_WORD, false, false, display::hex},
    {UNITYDRV_TYPE_DWORD, false, false, display::hex},
    {UNITYDRV_TYPE_UINT, false, false, display::decimal},
    {UNITYDRV_TYPE_USINT, false, false, display::decimal},
    {UNITYDRV_TYPE_STRING, false, false, display::text},
    {UNITYDRV_TYPE_LWORD, false, false, display::hex},
    {UNITYDRV_TYPE_LINT, true, false, display::decimal},
    {UNITYDRV_TYPE_ULINT, false, false, display::decimal},
    {UNITYDRV_TYPE_LREAL, true, true, display::decimal},
};

constexpr bool is_a_row(uint8_t code) {
  for (const plc_type& t : wire::plc_types) {
    if (t.code == code) return true;
  }
  return false;
}

constexpr bool every_row_has_a_form() {
  if (sizeof(k_forms) / sizeof(k_forms[0]) != wire::plc_type_count) return false;
  for (const value_form& f : k_forms) {
    if (!is_a_row(f.code)) return false;
  }
  return true;
}
static_assert(every_row_has_a_form(), "a PLC type without its value form");

}  // namespace

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

const value_form* find_value_form(uint8_t code) {
  for (const value_form& f : k_forms) {
    if (f.code == code) return &f;
  }
  return nullptr;
}

const plc_type& parse_plc_type(const std::string& text) {
  const std::string name = upper(text);
  for (const plc_type& t : wire::plc_types) {
    if (name == upper(t.name)) return t;
  }
  if (!name.empty() && name.size() <= 3 &&
      std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c); })) {
    const int code = std::stoi(name);
    if (code < 256) {
      if (const plc_type* t = wire::find_plc_type(static_cast<uint8_t>(code))) return *t;
    }
  }
  throw std::invalid_argument("unknown PLC type '" + text + "'");
}

std::string plc_type_name(uint8_t code) {
  const plc_type* t = wire::find_plc_type(code);
  return t ? upper(t->name) : "type " + std::to_string(code);
}

bool is_bit_type(uint8_t code) {
  const plc_type* t = wire::find_plc_type(code);
  return t != nullptr && t->one_bit;
}

}  // namespace panelhost
