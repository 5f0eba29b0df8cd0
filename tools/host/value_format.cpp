#include "tools/host/value_format.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
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

namespace {

// The integer range of a type, from its width and signedness.
struct integer_range {
  int64_t low;
  uint64_t high;
};

integer_range range_of(const plc_type& type, const value_form& form) {
  const unsigned bits = 8 * type.size;
  if (form.is_signed) {
    const uint64_t high = (uint64_t{1} << (bits - 1)) - 1;
    return {-static_cast<int64_t>(high) - 1, high};
  }
  return {0, bits >= 64 ? UINT64_MAX : (uint64_t{1} << bits) - 1};
}

// The largest magnitude of a floating type, to one decimal: 3.4e38.
template <typename F>
std::string largest() {
  char text[16];
  std::snprintf(text, sizeof text, "%.1e", static_cast<double>(std::numeric_limits<F>::max()));
  std::string out(text);
  out.erase(out.find('+'), 1);
  return out;
}

// The accepted values of each type, named when a value is refused.
std::string accepted_values(uint8_t code) {
  const plc_type* type = wire::find_plc_type(code);
  const value_form* form = find_value_form(code);
  if (type == nullptr || form == nullptr || form->shown == display::text) return "";
  if (form->shown == display::truth) return "1, 0, TRUE, FALSE, ON, OFF, in any case";
  if (form->floating) {
    return "a decimal number within +-" + (type->size == 4 ? largest<float>() : largest<double>());
  }
  const integer_range range = range_of(*type, *form);
  return std::to_string(range.low) + ".." + std::to_string(range.high);
}

[[noreturn]] void reject(uint8_t code, const std::string& text) {
  const std::string accepted = accepted_values(code);
  throw bad_value("bad value '" + text + "' for " + plc_type_name(code) +
                  (accepted.empty() ? "" : " (accepted: " + accepted + ")"));
}

// Decimal with an optional sign, or hexadecimal as 16#FF or 0xFF; the whole text must match.
template <typename T>
bool parse_integer(const std::string& text, T& value) {
  const std::string u = upper(text);
  int base = 10;
  std::size_t skip = 0;
  if (u.rfind("16#", 0) == 0) {
    base = 16;
    skip = 3;
  } else if (u.rfind("0X", 0) == 0) {
    base = 16;
    skip = 2;
  } else if (!u.empty() && u[0] == '+') {
    skip = 1;
  }
  const char* first = u.data() + skip;
  const char* last = u.data() + u.size();
  if (first == last || (base == 16 && *first == '-')) return false;
  auto res = std::from_chars(first, last, value, base);
  return res.ec == std::errc() && res.ptr == last;
}

// The value's two's-complement bits, refused outside the type's range.
uint64_t integer_or_reject(const plc_type& type, const value_form& form, const std::string& text) {
  const integer_range range = range_of(type, form);
  if (form.is_signed) {
    int64_t value = 0;
    if (!parse_integer(text, value) || value < range.low ||
        (value > 0 && static_cast<uint64_t>(value) > range.high)) {
      reject(type.code, text);
    }
    return static_cast<uint64_t>(value);
  }
  uint64_t value = 0;
  if (!parse_integer(text, value) || value > range.high) reject(type.code, text);
  return value;
}

double real_or_reject(uint8_t code, const std::string& text) {
  if (text.empty() || std::isspace(static_cast<unsigned char>(text[0]))) reject(code, text);
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(value)) {
    reject(code, text);
  }
  return value;
}

bool bit_or_reject(uint8_t code, const std::string& text) {
  const std::string u = upper(text);
  if (u == "1" || u == "TRUE" || u == "ON") return true;
  if (u == "0" || u == "FALSE" || u == "OFF") return false;
  reject(code, text);
}

// Little-endian value bytes, one 16-bit unit per pair (zero-padded to an even length).
std::vector<uint16_t> units_of(const wire::bytes& bytes) {
  wire::bytes padded = bytes;
  if (padded.size() % 2 != 0) padded.push_back(0);
  std::vector<uint16_t> units;
  wire::le_reader in(padded);
  while (!in.at_end()) units.push_back(in.u16());
  return units;
}

wire::bytes string_bytes(const std::string& text, std::size_t string_length) {
  if (string_length != 0 && text.size() > string_length) {
    throw bad_value("string '" + text + "' is longer than " + std::to_string(string_length) +
                    " characters");
  }
  wire::bytes bytes(text.begin(), text.end());
  bytes.resize(std::max(string_length, text.size() + 1), 0);
  return bytes;
}

// size bytes of bits, little-endian.
void put(wire::le_writer& out, uint64_t bits, unsigned size) {
  switch (size) {
    case 1:
      out.u8(static_cast<uint8_t>(bits));
      break;
    case 2:
      out.u16(static_cast<uint16_t>(bits));
      break;
    case 4:
      out.u32(static_cast<uint32_t>(bits));
      break;
    default:
      out.u32(static_cast<uint32_t>(bits)).u32(static_cast<uint32_t>(bits >> 32));
  }
}

double real_of(const plc_type& type, const std::string& text) {
  const double value = real_or_reject(type.code, text);
  if (type.size == 4 && std::fabs(value) > std::numeric_limits<float>::max()) {
    reject(type.code, text);
  }
  return value;
}

wire::bytes value_bytes(uint8_t code, const std::string& text, std::size_t string_length) {
  const plc_type* type = wire::find_plc_type(code);
  const value_form* form = find_value_form(code);
  if (type == nullptr || form == nullptr || form->shown == display::truth) {
    throw bad_value("cannot write a value of " + plc_type_name(code));
  }
  if (form->shown == display::text) return string_bytes(text, string_length);
  wire::bytes out;
  wire::le_writer w(out);
  if (!form->floating) {
    put(w, integer_or_reject(*type, *form, text), type->size);
  } else if (type->size == 4) {
    put(w, bit_cast<uint32_t>(static_cast<float>(real_of(*type, text))), 4);
  } else {
    put(w, bit_cast<uint64_t>(real_of(*type, text)), 8);
  }
  return out;
}

}  // namespace

write_data encode_value(uint8_t code, const std::string& text, std::size_t string_length) {
  write_data data;
  if (is_bit_type(code)) {
    data.bit_value = bit_or_reject(code, text) ? 1 : 0;
    return data;
  }
  const wire::bytes bytes = value_bytes(code, text, string_length);
  if (wire::element_size(code) == 1 && code != UNITYDRV_TYPE_STRING) {
    // One-byte types take the low byte of each unit.
    data.words.assign(bytes.begin(), bytes.end());
  } else {
    data.words = units_of(bytes);
  }
  return data;
}

}  // namespace panelhost

namespace panelhost {

namespace {

std::vector<std::string> list_items(const std::string& text) {
  std::vector<std::string> items;
  const std::string inner = text.substr(1, text.size() - 2);
  std::size_t at = 0;
  while (at <= inner.size()) {
    const std::size_t comma = std::min(inner.find(',', at), inner.size());
    std::string item = inner.substr(at, comma - at);
    item.erase(0, item.find_first_not_of(" \t"));
    item.erase(item.find_last_not_of(" \t") + 1);
    items.push_back(item);
    at = comma + 1;
  }
  if (items.size() == 1 && items[0].empty()) items.clear();
  return items;
}

}  // namespace

write_data encode_request_value(uint8_t code, const std::string& text, std::size_t count) {
  const bool list = !text.empty() && text.front() == '[' && text.back() == ']';
  if (code == UNITYDRV_TYPE_STRING) return encode_value(code, text, count);
  if (count <= 1) {
    if (list) throw bad_value("a list '" + text + "' for a single " + plc_type_name(code));
    return encode_value(code, text);
  }
  if (is_bit_type(code)) {
    throw bad_value("the driver writes one bit at a time: write NAME[i]=value per element");
  }
  const std::vector<std::string> items = list ? list_items(text) : std::vector<std::string>{};
  if (items.size() != count) {
    throw bad_value("the array holds " + std::to_string(count) +
                    " elements: give all of them as [v1, v2, ...] (got " +
                    (list ? std::to_string(items.size()) : "one value") +
                    ") or write one element as NAME[i]=value");
  }
  write_data data;
  for (const std::string& item : items) {
    const write_data one = encode_value(code, item);
    data.words.insert(data.words.end(), one.words.begin(), one.words.end());
  }
  return data;
}

}  // namespace panelhost
