#include "tools/host/report_formats.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <vector>

namespace panelhost {

text_table::text_table(std::vector<std::string> header) : header_(std::move(header)) {}

void text_table::add(std::vector<std::string> row) {
  row.resize(header_.size());
  rows_.push_back(std::move(row));
}

void text_table::print(std::ostream& out) const {
  std::vector<std::size_t> width(header_.size());
  for (std::size_t c = 0; c < header_.size(); ++c) {
    width[c] = header_[c].size();
    for (const auto& row : rows_) width[c] = std::max(width[c], row[c].size());
  }
  auto line = [&](const std::vector<std::string>& cells) {
    std::string text;
    for (std::size_t c = 0; c < cells.size(); ++c) {
      text += cells[c];
      if (c + 1 < cells.size()) text += std::string(width[c] - cells[c].size() + 2, ' ');
    }
    out << text << '\n';
  };
  line(header_);
  std::vector<std::string> rule;
  for (std::size_t w : width) rule.emplace_back(w, '-');
  line(rule);
  for (const auto& row : rows_) line(row);
}

json_report::json_report(const std::string& command) {
  doc_["command"] = command;
  doc_["tags"] = nlohmann::json::array();
}

void json_report::add_tag(const std::string& name, bool ok, const nlohmann::json& fields) {
  nlohmann::json tag = {{"name", name}, {"ok", ok}};
  tag.update(fields);
  doc_["tags"].push_back(std::move(tag));
  ok_ = ok_ && ok;
}

void json_report::set(const std::string& key, nlohmann::json value) {
  doc_[key] = std::move(value);
}

void json_report::fail(const std::string& error) {
  doc_["error"] = error;
  ok_ = false;
}

void json_report::print(std::ostream& out) const {
  nlohmann::json doc = doc_;
  doc["ok"] = ok_;
  out << doc.dump(1) << '\n';
}

void json_report::print_line(std::ostream& out) const {
  nlohmann::json doc = doc_;
  doc["ok"] = ok_;
  out << doc.dump() << '\n';
}

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
