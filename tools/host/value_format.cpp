#include "tools/host/value_format.h"

#include <cctype>
#include <charconv>
#include <stdexcept>

#include "tools/host/plc_type.h"
#include "unitydrv/unitydrv.h"
#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

// Units back to the little-endian bytes the driver copied into them.
wire::bytes unit_bytes(const std::vector<uint16_t>& units) {
  wire::bytes out;
  wire::le_writer w(out);
  for (uint16_t u : units) w.u16(u);
  return out;
}

template <typename F>
std::string shortest(F value) {
  char buf[32];
  auto res = std::to_chars(buf, buf + sizeof buf, value);
  return std::string(buf, res.ptr);
}

template <typename T>
std::string hex(T value, int digits) {
  char buf[24];
  auto res = std::to_chars(buf, buf + sizeof buf, value, 16);
  std::string text(buf, res.ptr);
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return "16#" +
         std::string(text.size() < static_cast<std::size_t>(digits)
                         ? static_cast<std::size_t>(digits) - text.size()
                         : 0,
                     '0') +
         text;
}

// One element from the units it takes in a result, whole (a one-byte type's unit may carry
// more than its byte).
uint64_t element_units(const plc_type& type, wire::le_reader& in) {
  switch (type.units) {
    case 1:
      return in.u16();
    case 2:
      return in.u32();
    default:
      return in.u64();
  }
}

// The element's value bits: the low size bytes.
uint64_t value_bits(uint64_t units, unsigned size) {
  return size < 8 ? units & ((uint64_t{1} << (8 * size)) - 1) : units;
}

int64_t sign_extended(uint64_t bits, unsigned size) {
  if (size >= 8) return static_cast<int64_t>(bits);
  const uint64_t sign = uint64_t{1} << (8 * size - 1);
  return static_cast<int64_t>((bits ^ sign) - sign);
}

// One element of a non-string type; every element occupies the same number of units.
std::string format_element(uint8_t code, wire::le_reader& in) {
  const plc_type* type = wire::find_plc_type(code);
  const value_form* form = find_value_form(code);
  if (type == nullptr || form == nullptr || form->shown == display::text) {
    throw std::invalid_argument("no format for " + plc_type_name(code));
  }
  const uint64_t units = element_units(*type, in);
  if (form->shown == display::truth) return units != 0 ? "TRUE" : "FALSE";
  const uint64_t bits = value_bits(units, type->size);
  if (form->shown == display::hex) return hex(bits, 2 * type->size);
  if (form->floating) {
    return type->size == 4 ? shortest(bit_cast<float>(static_cast<uint32_t>(bits)))
                           : shortest(bit_cast<double>(bits));
  }
  return form->is_signed ? std::to_string(sign_extended(bits, type->size)) : std::to_string(bits);
}

std::string format_string(const std::vector<uint16_t>& units, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count && i < units.size(); ++i) {
    const char c = static_cast<char>(units[i] & 0xFF);
    if (c == '\0') break;
    text += c;
  }
  return '"' + text + '"';
}

}  // namespace

std::string format_value(uint8_t code, const std::vector<uint16_t>& units, std::size_t count) {
  if (code == UNITYDRV_TYPE_STRING) return format_string(units, count);
  // A run of bits reads best as a row of digits.
  if (count > 1 && is_bit_type(code)) return format_bits(units, count);
  const wire::bytes bytes = unit_bytes(units);
  wire::le_reader in(bytes);
  if (count == 1) return format_element(code, in);
  std::string out = "[";
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) out += ", ";
    out += format_element(code, in);
  }
  return out + "]";
}

std::string format_bits(const std::vector<uint16_t>& units, std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count && i < units.size(); ++i) {
    if (i != 0) out += ' ';
    out += units[i] != 0 ? '1' : '0';
  }
  return out;
}

}  // namespace panelhost
