#include "tools/host/value_json.h"

#include <charconv>
#include <cstdint>
#include <vector>

namespace panelhost {

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> items;
  std::size_t at = 0;
  while (at <= text.size()) {
    const std::size_t end = std::min(text.find(separator, at), text.size());
    std::string item = text.substr(at, end - at);
    item.erase(0, item.find_first_not_of(' '));
    items.push_back(item);
    at = end + 1;
  }
  return items;
}

nlohmann::json element_json(const std::string& text) {
  if (text == "TRUE") return true;
  if (text == "FALSE") return false;
  if (text.rfind("16#", 0) == 0) {
    uint64_t value = 0;
    const auto res = std::from_chars(text.data() + 3, text.data() + text.size(), value, 16);
    if (res.ec == std::errc() && res.ptr == text.data() + text.size()) return value;
  }
  const char* end = text.data() + text.size();
  int64_t whole = 0;
  if (auto res = std::from_chars(text.data(), end, whole);
      res.ec == std::errc() && res.ptr == end) {
    return whole;
  }
  uint64_t large = 0;
  if (auto res = std::from_chars(text.data(), end, large);
      res.ec == std::errc() && res.ptr == end) {
    return large;
  }
  const nlohmann::json number = nlohmann::json::parse(text, nullptr, false);
  return number.is_number() ? number : nlohmann::json(text);
}

}  // namespace

nlohmann::json value_json(const std::string& text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    return text.substr(1, text.size() - 2);
  }
  if (text.size() >= 2 && text.front() == '[' && text.back() == ']') {
    nlohmann::json list = nlohmann::json::array();
    for (const std::string& item : split(text.substr(1, text.size() - 2), ',')) {
      list.push_back(element_json(item));
    }
    return list;
  }
  if (text.find(' ') != std::string::npos) {  // a run of bits
    nlohmann::json bits = nlohmann::json::array();
    for (const std::string& bit : split(text, ' ')) bits.push_back(bit == "1");
    return bits;
  }
  return element_json(text);
}

}  // namespace panelhost
