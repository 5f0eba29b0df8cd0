#include "tools/host/value_format.h"

#include <cctype>
#include <charconv>
#include <cstring>
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

template <typename To, typename From>
To bit_cast(From from) {
  static_assert(sizeof(To) == sizeof(From), "same size");
  To to;
  std::memcpy(&to, &from, sizeof to);
  return to;
}

// One element of a non-string type; every element occupies the same number of units.
std::string format_element(uint8_t code, wire::le_reader& in) {
  switch (code) {
    case UNITYDRV_TYPE_BOOL:
    case UNITYDRV_TYPE_BITARRAY:
      return in.u16() != 0 ? "TRUE" : "FALSE";
    case UNITYDRV_TYPE_SINT:
      return std::to_string(static_cast<int8_t>(in.u16() & 0xFF));
    case UNITYDRV_TYPE_USINT:
      return std::to_string(in.u16() & 0xFF);
    case UNITYDRV_TYPE_BYTE:
      return hex(in.u16() & 0xFF, 2);
    case UNITYDRV_TYPE_INT:
      return std::to_string(static_cast<int16_t>(in.u16()));
    case UNITYDRV_TYPE_UINT:
      return std::to_string(in.u16());
    case UNITYDRV_TYPE_WORD:
      return hex(in.u16(), 4);
    case UNITYDRV_TYPE_DINT:
      return std::to_string(static_cast<int32_t>(in.u32()));
    case UNITYDRV_TYPE_UDINT:
      return std::to_string(in.u32());
    case UNITYDRV_TYPE_DWORD:
      return hex(in.u32(), 8);
    case UNITYDRV_TYPE_REAL:
      return shortest(bit_cast<float>(in.u32()));
    case UNITYDRV_TYPE_LINT:
      return std::to_string(static_cast<int64_t>(in.u64()));
    case UNITYDRV_TYPE_ULINT:
      return std::to_string(in.u64());
    case UNITYDRV_TYPE_LWORD:
      return hex(in.u64(), 16);
    case UNITYDRV_TYPE_LREAL:
      return shortest(bit_cast<double>(in.u64()));
    default:
      throw std::invalid_argument("no format for " + plc_type_name(code));
  }
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
