#include "tools/host/plc_type.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace panelhost {

namespace {

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace

const plc_type* find_plc_type(uint8_t code) {
  return wire::find_plc_type(code);
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
      if (const plc_type* t = find_plc_type(static_cast<uint8_t>(code))) return *t;
    }
  }
  throw std::invalid_argument("unknown PLC type '" + text + "'");
}

std::string plc_type_name(uint8_t code) {
  const plc_type* t = find_plc_type(code);
  return t ? upper(t->name) : "type " + std::to_string(code);
}

bool is_bit_type(uint8_t code) {
  const plc_type* t = find_plc_type(code);
  return t != nullptr && t->one_bit;
}

}  // namespace panelhost
