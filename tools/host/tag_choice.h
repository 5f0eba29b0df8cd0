// A tag as the user names it: "Name", "Name:INT", "Msg:STRING[20]", "Temps:INT[10]".
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace panelhost {

struct type_choice {
  uint8_t code = 0;    // 0: not given, taken from the controller's dictionary
  uint16_t count = 0;  // 0: one element (or the declared length of a STRING)
};

struct tag_choice {
  std::string name;
  type_choice type;
};

// "INT", "195", "STRING[20]", "REAL[4]"; throws std::invalid_argument.
type_choice parse_type_choice(const std::string& text);
// One line of a tag list; the type follows the last ':'. Throws std::invalid_argument.
tag_choice parse_tag_choice(const std::string& line);
// Blank lines and lines starting with '#' are skipped. Throws std::runtime_error when the
// file cannot be read and std::invalid_argument (with the line number) on a bad line.
std::vector<tag_choice> read_tag_list(const std::string& path);
// "NAME=VALUE" split at the first '='; throws std::invalid_argument.
std::pair<std::string, std::string> parse_assignment(const std::string& text);

}  // namespace panelhost
