#include "tools/host/tag_choice.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

#include "tools/host/plc_type.h"
#include "tools/host/tag_file_reader.h"

namespace panelhost {

namespace {

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "";
  const auto last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

uint16_t count_or_throw(const std::string& digits, const std::string& whole) {
  unsigned value = 0;
  auto res = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (res.ec != std::errc() || res.ptr != digits.data() + digits.size() || value == 0 ||
      value > 2048) {
    throw std::invalid_argument("bad element count in '" + whole + "'");
  }
  return static_cast<uint16_t>(value);
}

}  // namespace

type_choice parse_type_choice(const std::string& text) {
  const std::string t = trim(text);
  type_choice choice;
  const auto open = t.find('[');
  if (open != std::string::npos) {
    if (t.back() != ']') throw std::invalid_argument("bad type '" + text + "'");
    choice.count = count_or_throw(t.substr(open + 1, t.size() - open - 2), text);
  }
  choice.code = parse_plc_type(t.substr(0, open)).code;
  return choice;
}

tag_choice parse_tag_choice(const std::string& line) {
  const std::string t = trim(line);
  tag_choice choice;
  const auto colon = t.rfind(':');
  choice.name = trim(t.substr(0, colon));
  if (colon != std::string::npos) choice.type = parse_type_choice(t.substr(colon + 1));
  if (choice.name.empty()) throw std::invalid_argument("missing tag name in '" + line + "'");
  return choice;
}

std::vector<tag_choice> read_tag_list(const std::string& path) {
  const std::string bytes = read_file_bytes(path, "tag list");
  if (std::any_of(bytes.begin(), bytes.end(), [](unsigned char c) {
        return c < 0x20 && c != '\n' && c != '\r' && c != '\t';
      })) {
    throw std::runtime_error(path +
                             " is not a text tag list: it holds binary data (a tag file? pass "
                             "it with --tags)");
  }
  std::istringstream in(bytes);
  std::vector<tag_choice> wanted;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    const std::string t = trim(line);
    if (t.empty() || t[0] == '#') continue;
    try {
      wanted.push_back(parse_tag_choice(t));
    } catch (const std::invalid_argument& e) {
      throw std::invalid_argument(path + ":" + std::to_string(number) + ": " + e.what());
    }
  }
  return wanted;
}

std::pair<std::string, std::string> parse_assignment(const std::string& text) {
  const auto eq = text.find('=');
  if (eq == std::string::npos || trim(text.substr(0, eq)).empty()) {
    throw std::invalid_argument("expected NAME=VALUE, got '" + text + "'");
  }
  return {trim(text.substr(0, eq)), text.substr(eq + 1)};
}

}  // namespace panelhost
