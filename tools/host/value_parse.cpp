#include "tools/host/value_parse.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "tools/host/plc_type.h"
#include "unitydrv/unitydrv.h"
#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

// The accepted values of each type, named when a value is refused.
std::string accepted_values(uint8_t code) {
  switch (code) {
    case UNITYDRV_TYPE_BOOL:
    case UNITYDRV_TYPE_BITARRAY:
      return "1, 0, TRUE, FALSE, ON, OFF, in any case";
    case UNITYDRV_TYPE_SINT:
      return "-128..127";
    case UNITYDRV_TYPE_USINT:
    case UNITYDRV_TYPE_BYTE:
      return "0..255";
    case UNITYDRV_TYPE_INT:
      return "-32768..32767";
    case UNITYDRV_TYPE_UINT:
    case UNITYDRV_TYPE_WORD:
      return "0..65535";
    case UNITYDRV_TYPE_DINT:
      return "-2147483648..2147483647";
    case UNITYDRV_TYPE_UDINT:
    case UNITYDRV_TYPE_DWORD:
      return "0..4294967295";
    case UNITYDRV_TYPE_LINT:
      return "-9223372036854775808..9223372036854775807";
    case UNITYDRV_TYPE_ULINT:
    case UNITYDRV_TYPE_LWORD:
      return "0..18446744073709551615";
    case UNITYDRV_TYPE_REAL:
      return "a decimal number within +-3.4e38";
    case UNITYDRV_TYPE_LREAL:
      return "a decimal number within +-1.8e308";
    default:
      return "";
  }
}

[[noreturn]] void reject(uint8_t code, const std::string& text) {
  const std::string accepted = accepted_values(code);
  throw bad_value("bad value '" + text + "' for " + plc_type_name(code) +
                  (accepted.empty() ? "" : " (accepted: " + accepted + ")"));
}

std::string upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
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

template <typename T>
T integer_or_reject(uint8_t code, const std::string& text) {
  T value{};
  if (!parse_integer(text, value)) reject(code, text);
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

template <typename F, typename U>
U bits_of(F value) {
  U bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
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

wire::bytes value_bytes(uint8_t code, const std::string& text, std::size_t string_length) {
  wire::bytes out;
  wire::le_writer w(out);
  switch (code) {
    case UNITYDRV_TYPE_SINT:
      w.u8(static_cast<uint8_t>(integer_or_reject<int8_t>(code, text)));
      break;
    case UNITYDRV_TYPE_USINT:
    case UNITYDRV_TYPE_BYTE:
      w.u8(integer_or_reject<uint8_t>(code, text));
      break;
    case UNITYDRV_TYPE_INT:
      w.u16(static_cast<uint16_t>(integer_or_reject<int16_t>(code, text)));
      break;
    case UNITYDRV_TYPE_UINT:
    case UNITYDRV_TYPE_WORD:
      w.u16(integer_or_reject<uint16_t>(code, text));
      break;
    case UNITYDRV_TYPE_DINT:
      w.u32(static_cast<uint32_t>(integer_or_reject<int32_t>(code, text)));
      break;
    case UNITYDRV_TYPE_UDINT:
    case UNITYDRV_TYPE_DWORD:
      w.u32(integer_or_reject<uint32_t>(code, text));
      break;
    case UNITYDRV_TYPE_REAL: {
      const double value = real_or_reject(code, text);
      if (std::fabs(value) > std::numeric_limits<float>::max()) reject(code, text);
      w.u32(bits_of<float, uint32_t>(static_cast<float>(value)));
      break;
    }
    case UNITYDRV_TYPE_LINT: {
      const auto v = static_cast<uint64_t>(integer_or_reject<int64_t>(code, text));
      w.u32(static_cast<uint32_t>(v)).u32(static_cast<uint32_t>(v >> 32));
      break;
    }
    case UNITYDRV_TYPE_ULINT:
    case UNITYDRV_TYPE_LWORD: {
      const auto v = integer_or_reject<uint64_t>(code, text);
      w.u32(static_cast<uint32_t>(v)).u32(static_cast<uint32_t>(v >> 32));
      break;
    }
    case UNITYDRV_TYPE_LREAL: {
      const auto v = bits_of<double, uint64_t>(real_or_reject(code, text));
      w.u32(static_cast<uint32_t>(v)).u32(static_cast<uint32_t>(v >> 32));
      break;
    }
    case UNITYDRV_TYPE_STRING:
      return string_bytes(text, string_length);
    default:
      throw bad_value("cannot write a value of " + plc_type_name(code));
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
  if (code == UNITYDRV_TYPE_SINT || code == UNITYDRV_TYPE_USINT || code == UNITYDRV_TYPE_BYTE) {
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
