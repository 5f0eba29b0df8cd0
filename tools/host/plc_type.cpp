#include "tools/host/plc_type.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <stdexcept>

#include "unitydrv/unitydrv.h"

namespace panelhost {

namespace {

const plc_type k_types[] = {
    {UNITYDRV_TYPE_BOOL, "BOOL", 1, 1},     {UNITYDRV_TYPE_BITARRAY, "BITARRAY", 1, 1},
    {UNITYDRV_TYPE_SINT, "SINT", 1, 1},     {UNITYDRV_TYPE_USINT, "USINT", 1, 1},
    {UNITYDRV_TYPE_BYTE, "BYTE", 1, 1},     {UNITYDRV_TYPE_INT, "INT", 2, 1},
    {UNITYDRV_TYPE_UINT, "UINT", 2, 1},     {UNITYDRV_TYPE_WORD, "WORD", 2, 1},
    {UNITYDRV_TYPE_DINT, "DINT", 4, 2},     {UNITYDRV_TYPE_UDINT, "UDINT", 4, 2},
    {UNITYDRV_TYPE_DWORD, "DWORD", 4, 2},   {UNITYDRV_TYPE_REAL, "REAL", 4, 2},
    {UNITYDRV_TYPE_LINT, "LINT", 8, 4},     {UNITYDRV_TYPE_ULINT, "ULINT", 8, 4},
    {UNITYDRV_TYPE_LWORD, "LWORD", 8, 4},   {UNITYDRV_TYPE_LREAL, "LREAL", 8, 4},
    {UNITYDRV_TYPE_STRING, "STRING", 1, 1},
};

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace

const plc_type* find_plc_type(uint8_t code) {
  auto it = std::find_if(std::begin(k_types), std::end(k_types),
                         [code](const plc_type& t) { return t.code == code; });
  return it == std::end(k_types) ? nullptr : &*it;
}

const plc_type& parse_plc_type(const std::string& text) {
  const std::string name = upper(text);
  for (const plc_type& t : k_types) {
    if (name == t.name) return t;
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
  return t ? t->name : "type " + std::to_string(code);
}

bool is_bit_type(uint8_t code) {
  return code == UNITYDRV_TYPE_BOOL || code == UNITYDRV_TYPE_BITARRAY;
}

}  // namespace panelhost
