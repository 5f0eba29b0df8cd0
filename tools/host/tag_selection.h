// Which tags a command works on, and the host request for each.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/host/dictionary.h"
#include "tools/host/host_device.h"
#include "tools/host/tag_choice.h"

namespace panelhost {

struct selection_options {
  std::string tag_file;            // --tags
  std::string list_file;           // --list
  std::vector<std::string> names;  // positional, "Name" or "Name:TYPE"
  std::vector<std::string> types;  // --type NAME=TYPE
  std::optional<uint16_t> index;   // --index
  std::optional<uint16_t> count;   // --count
  std::optional<int> bit;          // --bit
};

struct selected_tag {
  std::string name;
  host_request request;
};

// A tag file made for the run from a list or from names; removed on destruction.
class temp_tag_file {
 public:
  explicit temp_tag_file(const std::vector<tag_choice>& tags);
  ~temp_tag_file();
  temp_tag_file(const temp_tag_file&) = delete;
  temp_tag_file& operator=(const temp_tag_file&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The names of a tag file in file order (16-bit names converted to UTF-8); throws
// std::runtime_error when the file cannot be read.
std::vector<std::string> read_tag_names(const std::string& path, uint32_t offset = 0);

class tag_selection {
 public:
  // Reads the list or tag file; names not in the tag file are rejected.
  explicit tag_selection(const selection_options& options);
  const std::string& tag_file() const { return tag_file_; }
  // Types from --type, then from the list, then from the dictionary (when given).
  // Throws std::runtime_error for a tag the dictionary does not know or with no type.
  std::vector<selected_tag> requests(const dictionary* dict) const;

 private:
  selection_options options_;
  std::unique_ptr<temp_tag_file> temp_;
  std::string tag_file_;
  std::vector<std::string> file_names_;
  std::vector<tag_choice> chosen_;
  std::vector<uint32_t> positions_;
};

}  // namespace panelhost
